#pragma once

#include "DatabaseFile.h"
#include "FileKind.h"

#include <string>
#include <vector>

namespace rfm_tool
{
/// Writes what a database holds into a new file of the given kind at `path`: each object in one piece, without room
/// that nothing uses, and no text that nothing refers to. Handles stay, so that what refers to objects stays right.
/// Throws: Failure when something can't be read or copied; what the library says when the file can't be written.
void WriteCompacted(DatabaseFile& source, FileKind kind, const std::string& path);
/// The same for some objects, ascending by handle, with the layouts and texts that they need. What they refer to by handle comes
/// along only when it is among them.
void WriteSelected(DatabaseFile& source, const std::vector<Object>& objects, FileKind kind,
                   const std::string& path);
} // namespace rfm_tool
