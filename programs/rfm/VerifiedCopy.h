#pragma once

#include "FileKind.h"

#include <cstdint>
#include <string>

namespace rfm_tool
{
/// Copies the database `in`, byte for byte, into the new file `out` of that kind, reads it back to compare, and opens it.
/// `out` gets its name when all of that went well. Shows its progress.
/// Result: the bytes of the database.
/// Throws: Failure; with ExitBusy when a writer flushed meanwhile.
std::int64_t CopyVerified(const std::string& in, const std::string& out, FileKind kind, bool mayReplace);
} // namespace rfm_tool
