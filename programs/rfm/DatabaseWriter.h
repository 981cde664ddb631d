#pragma once

#include "FileKind.h"
#include "rfm_Database.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace rfm_tool
{
/// What a database says of itself.
struct Heading
{
    std::string mark; // of the application
    cow_String description;
    long long created = 0;
};

/// Bytes on their way into a space of a new database, in large pieces. What was not flushed is dropped: it belongs to
/// a file that comes to nothing.
class SpaceWriter
{
public:
    explicit SpaceWriter(rfm_Space space);
    void Write(const char* bytes, std::size_t count);
    void Flush();

private:
    rfm_Space m_Space;
    std::vector<char> m_Gathered;
};

/// The texts of a new database, as its pool of strings will hold them.
class NewTexts
{
public:
    NewTexts();
    /// The reference to a text that is put behind the others.
    std::int64_t Add(std::string_view text);
    const std::vector<char>& Bytes() const noexcept { return m_Bytes; }

private:
    std::vector<char> m_Bytes;
};

/// A new database, made space by space: the layouts first, then objects by ascending handle, each whole before the next
/// begins, and the texts last. Destroyed before it was closed, it lets go of the file without a word.
class DatabaseWriter
{
public:
    /// Throws: what the library says when the file can't be made; so do all others.
    DatabaseWriter(FileKind kind, const std::string& path, const Heading& heading);
    DatabaseWriter(const DatabaseWriter&) = delete;
    DatabaseWriter& operator=(const DatabaseWriter&) = delete;
    ~DatabaseWriter();

    SpaceWriter Layouts();
    /// The space of the object with this handle. `what` names it for a failure.
    SpaceWriter NewSpace(rfm_Handle handle, const std::string& what);
    void Close(const NewTexts& texts);

private:
    void FillUpTo(rfm_Handle handle);

    std::string m_Path;
    rfm_File m_File;
    rfm_Database m_Database;
    std::vector<std::uint32_t> m_Fillers; // handles that no object has, ascending
    std::uint32_t m_Next;                 // the handle that comes next
};
} // namespace rfm_tool
