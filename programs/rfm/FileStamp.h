#pragma once

#include <cstdint>
#include <string>

namespace rfm_tool
{
/// What every write to a file moves.
struct FileStamp
{
    std::int64_t bytes = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    bool operator==(const FileStamp&) const = default;
};

/// All zero when the file can't be asked.
FileStamp StampOf(const std::string& path);
} // namespace rfm_tool
