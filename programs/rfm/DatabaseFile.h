#pragma once

#include "rfm.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rfm_tool
{
enum class Kind
{
    Strings, // the pool of strings
    Layouts, // the pool of layouts
    Unused,  // a handle without content
    Table,
    Array,
    Stream,
    Space, // bytes of the application's own
};

/// What a listing tells of an object, without its content.
struct Object
{
    rfm_Handle handle;
    Kind kind = Kind::Space;
    rfm_Type elementType = rfm_TypeNone; // of an array
    std::string layout;                  // of a table
    int columns = 0;                     // fields of a table, elements in an array's row
    int rowBytes = 0;
    std::optional<std::int64_t> rows; // of tables and arrays
    int flushCount = 0;
    std::int64_t size = 0;
    std::int64_t allocation = 0;
    int extents = 0;
    std::string damage; // why it can't be described; empty for a sound one

    /// "table", "double array", "stream", ...
    std::string TypeWord() const;
    /// Whether it is a pool or an unused handle, and no application made it.
    bool IsOfTheLibrary() const noexcept
    {
        return kind == Kind::Strings || kind == Kind::Layouts || kind == Kind::Unused;
    }
};

/// "int", "float", "double", "handle", "string"; "type 17" for an unknown number.
std::string TypeWord(int type);
/// The word for a listing of objects by type: "tables", "arrays", ...
std::string PluralWord(Kind kind);

/// What the header says that the library doesn't give.
struct Header
{
    std::string mark; // of the application
    int version = 0;
};

/// A database that is open for reading, with all its layouts, whatever its application's mark.
/// Throws: Failure with the exit code that fits; nothing is ever written.
class DatabaseFile
{
public:
    explicit DatabaseFile(const std::string& path);

    const std::string& Path() const noexcept { return m_Path; }
    rfm_Database& Database() noexcept { return m_Database; }
    const rfm_File& File() const noexcept { return m_File; }
    std::int64_t FileBytes() const;
    rfm_tool::Header Header() const;
    std::vector<rfm_Handle> Handles();
    /// Never throws for damage: it tells.
    Object Describe(rfm_Handle handle);

private:
    void DescribeTable(Object& object);
    void DescribeContent(Object& object);

    std::string m_Path;
    rfm_File m_File;
    rfm_Database m_Database;
};

/// Whether the file can be opened at all: there, readable, a regular file with something in it. Opening a pipe, say,
/// would wait for ever.
/// Throws: Failure.
void RequireReadableFile(const std::string& path);
/// What the library said about `path`, as a failure of ours.
[[noreturn]] void ThrowDamaged(const std::string& path, const std::exception& cause);
/// The first bytes say that it is no database, or one of the old format.
/// Throws: Failure.
void RequireDatabaseMagic(const std::string& path);

/// The directory by which a writer asks readers to wait.
struct Semaphore
{
    std::string path;
    bool isPresent = false;
    std::int64_t since = 0; // seconds since 1970, when it is present
};
Semaphore LookAtSemaphore(const std::string& path);
/// A note for whoever takes more from the file than a look, when a semaphore stands.
void TellOfSemaphore(const std::string& path, std::string_view consequence);
} // namespace rfm_tool
