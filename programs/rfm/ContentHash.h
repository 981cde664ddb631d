#pragma once

#include "DatabaseFile.h"

#include <string>
#include <vector>

namespace rfm_tool
{
/// "rfm-hash-1:" and the SHA-256 of what a reader of the database sees, in hexadecimal digits: the same for the same
/// content, whatever kind of file holds it and wherever in it the bytes lie. docs/cli.md has what enters, and how; the
/// number in front changes with that.
/// Throws: Failure when something can't be read.
std::string ContentHash(DatabaseFile& file);
/// The same of some objects, and of the layouts of the tables among them: what a file would give that has nothing else.
std::string ContentHash(DatabaseFile& file, const std::vector<rfm_Handle>& objects);
} // namespace rfm_tool
