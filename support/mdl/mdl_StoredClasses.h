#pragma once

// The classes of this library as stored objects.

#include "typ_ArchCompTable.h"

inline constexpr int mdl_LibraryNumber = 10;
inline constexpr int mdl_RowRepository = 1;

void mdl_DefineClasses();
