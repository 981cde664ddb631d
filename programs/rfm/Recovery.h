#pragma once

#include "FileKind.h"
#include "Progress.h"
#include "Salvage.h"

#include <string>

namespace rfm_tool
{
/// Writes what can still be read of a database into a new one at `path`, under the same handles; what can't goes to
/// `losses`. A row that can't be read keeps its number and has no data; an element that can't is NaN, 0 or an empty
/// text. What lies at the end of an object and can't be read is left away. `image` fills its holes. Answers how many
/// objects the new database has. Throws: Failure when there is nothing to go by; what the library says when the file
/// can't be written.
std::int64_t WriteRecovered(FileImage& image, FileKind kind, const std::string& path, LossList& losses,
                            Progress& progress);
/// Whether bytes that don't begin as a database do may be one all the same: the linkage table leads to the pools.
bool LooksLikeDatabase(FileImage& image);
} // namespace rfm_tool
