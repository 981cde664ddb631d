#pragma once

#include <cstdint>
#include <string>

namespace rfm_tool
{
/// A regular file that is read from its start on, as often as wanted. `what` is what should be in it: "a CSV file".
class TextFile
{
public:
    /// Throws: Failure with ExitMissing or ExitUnreadable.
    TextFile(const std::string& path, const std::string& what);
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    ~TextFile();

    const std::string& Path() const noexcept { return m_Path; }
    std::int64_t Size() const noexcept { return m_Size; }
    void Rewind() noexcept { m_Offset = 0; }
    /// Reads up to `count` bytes; 0 at the end.
    /// Throws: Failure with ExitUnreadable.
    std::size_t Read(char* bytes, std::size_t count);

private:
    std::string m_Path;
    int m_Descriptor = -1;
    std::int64_t m_Size = 0;
    std::int64_t m_Offset = 0;
};

/// The whole text of a small file.
/// Throws: Failure, for a larger one too.
std::string ReadTextFile(const std::string& path, const std::string& what, std::size_t largest);
} // namespace rfm_tool
