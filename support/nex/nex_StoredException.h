#pragma once

// Exceptions as stored objects: the library's number, the rows of its table, and the attributes that all classes share.

#include "cls_FieldHandle.h"
#include "typ_ArchCompTable.h"

class cls_ClassMetadata;

inline constexpr int nex_LibraryNumber = 8;
inline constexpr int nex_RowException = 1;
inline constexpr int nex_RowText = 2;
inline constexpr int nex_RowAssert = 3;
inline constexpr int nex_RowCommand = 4;

inline constexpr int nex_ClassVersion = 1;

/// Gives the metadata of an exception class its attributes.
void nex_AddStoredAttributes(cls_ClassMetadata& metadata);
void nex_DefineExceptionClasses();
