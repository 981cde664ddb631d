#pragma once

#include "Progress.h"
#include "rfm_File.h"

#include <cstdint>
#include <string>

namespace rfm_tool
{
/// What a copy took: how many bytes, and their SHA-256.
struct CopiedBytes
{
    std::int64_t count = 0;
    std::string digest;

    bool operator==(const CopiedBytes&) const = default;
};

/// Copies all of `source`, from its start, to the new file `target`, and hands it to the system.
/// Throws: Failure when the source can't be read; what the library says when the target can't be written.
CopiedBytes CopyBytes(const rfm_File& source, rfm_File& target, Progress& progress);
/// What a file has: to be compared with what a copy took.
CopiedBytes ReadBytes(const rfm_File& file, Progress& progress);
} // namespace rfm_tool
