#pragma once

// The classes of the command layer as stored objects.

#include "cls_FieldHandle.h"
#include "typ_ArchCompTable.h"

inline constexpr int omu_LibraryNumber = 9;
inline constexpr int omu_RowPrimEnum = 1;
inline constexpr int omu_RowValueError = 2;

/// The one attribute of an enumeration's value.
inline constexpr cls_FieldHandle omu_PrimEnumName(0, "name");

void omu_DefineClasses();
