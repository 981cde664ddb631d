#pragma once

#include "cow_String.h"

/// The failures that more than one class raises, each worded once.

/// A write to an object of a database that was opened for reading.
[[noreturn]] void rfm_ThrowReadOnlyDatabase(const char* sourceName = __builtin_FILE(),
                                            int line = __builtin_LINE());
/// The file holds something that no writer of ours left there.
[[noreturn]] void rfm_ThrowCorrupt(const cow_String& fileName, const char* sourceName = __builtin_FILE(),
                                   int line = __builtin_LINE());
[[noreturn]] void rfm_ThrowMetadataCorrupt(const char* sourceName = __builtin_FILE(),
                                           int line = __builtin_LINE());
/// The same of a compressed file's sectors, segments and streams.
[[noreturn]] void rfm_ThrowEncodedCorrupt(const char* sourceName = __builtin_FILE(),
                                          int line = __builtin_LINE());
[[noreturn]] void rfm_ThrowEndOfFile(const char* sourceName = __builtin_FILE(), int line = __builtin_LINE());
