#include "DatabaseFile.h"

#include "Failure.h"
#include "FileMark.h"
#include "Output.h"
#include "RemoteDoor.h"
#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_FileRepr.h"
#include "rfm_HeaderFormat.h"
#include "rfm_LinkageFormat.h"
#include "rfm_ObjectFormat.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace rfm_tool
{
namespace
{
struct Head
{
    int words[4] = {};
    int count = 0; // words that are there
};

Head ReadHead(rfm_Database& database, rfm_Handle handle)
{
    char bytes[sizeof(Head::words)] = {};
    rfm_Space space = database.Space(handle, -1);
    Head head;
    head.count = space.Length() > 0 ? space.Read(bytes, sizeof bytes) / 4 : 0;
    for (int i = 0; i < head.count; ++i)
        head.words[i] = omi_Load<int>(bytes + 4 * i, omi_Swapper(omi_Swapper::Stored));
    return head;
}

Kind KindOf(rfm_Handle handle, std::uint32_t magic)
{
    if (handle.Value() == rfm_StringPoolHandle) return Kind::Strings;
    if (handle.Value() == rfm_MetadataPoolHandle) return Kind::Layouts;
    if (handle.Value() == rfm_UnusedHandle) return Kind::Unused;
    switch (magic)
    {
    case rfm_TableMagic: return Kind::Table;
    case rfm_ArrayMagic: return Kind::Array;
    case rfm_TaggedStreamMagic: return Kind::Stream;
    default: return Kind::Space;
    }
}

int ElementBytes(int type)
{
    switch (type)
    {
    case rfm_TypeInt:
    case rfm_TypeFloat: return 4;
    case rfm_TypeDouble:
    case rfm_TypeString: return 8;
    default: return 0;
    }
}

int ExtentsOf(const rfm_Database& database, rfm_Handle handle)
{
    int extents = 0;
    for (const cow_String& line : database.GetObjStatistics(handle))
    {
        const std::string_view text = line.View();
        const std::size_t digits = text.find('=') + 1;
        std::from_chars(text.data() + digits, text.data() + text.size(), extents);
    }
    return extents;
}

rfm_Database OpenDatabase(const std::string& path, const rfm_File& file)
{
    try
    {
        rfm_Database database = rfm_Database::Open(file, "");
        database.Bind();
        return database;
    }
    catch (const nex_Exception& cause)
    {
        ThrowDamaged(path, cause);
    }
}

} // namespace

std::string TypeWord(int type)
{
    switch (type)
    {
    case rfm_TypeInt: return "int";
    case rfm_TypeHandle: return "handle";
    case rfm_TypeFloat: return "float";
    case rfm_TypeDouble: return "double";
    case rfm_TypeString: return "string";
    case rfm_TypeFixedString: return "fixed string";
    default: return fmt::format("type {}", type);
    }
}

std::string PluralWord(Kind kind)
{
    switch (kind)
    {
    case Kind::Strings: return "pools of strings";
    case Kind::Layouts: return "pools of layouts";
    case Kind::Unused: return "unused handles";
    case Kind::Table: return "tables";
    case Kind::Array: return "arrays";
    case Kind::Stream: return "streams";
    case Kind::Space: break;
    }
    return "spaces";
}

std::string Object::TypeWord() const
{
    switch (kind)
    {
    case Kind::Strings: return "strings";
    case Kind::Layouts: return "layouts";
    case Kind::Unused: return "unused";
    case Kind::Table: return "table";
    case Kind::Array: return rfm_tool::TypeWord(elementType) + " array";
    case Kind::Stream: return "stream";
    case Kind::Space: break;
    }
    return "space";
}

// ---- Opening ----

namespace
{
[[noreturn]] void ThrowEmpty(const std::string& path)
{
    throw Failure(ExitUnreadable, OneLine(path), "the file is empty",
                  "its writer has not begun, or was stopped");
}
} // namespace

void RequireReadableFile(const std::string& path)
{
    if (IsRemotePath(path)) return;
    const std::string name = OneLine(path);
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0)
    {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR)
            throw Failure(ExitMissing, name, "no such file", "give the path of a database, such as job.rdx");
        throw Failure(ExitUnreadable, name, std::strerror(error), "check the rights of its folders");
    }
    if (S_ISDIR(status.st_mode))
        throw Failure(ExitUnreadable, name, "is a directory", "give the path of a database in it");
    if (!S_ISREG(status.st_mode))
        throw Failure(ExitUnreadable, name, "is no regular file", "copy its bytes into a file first");
    if (::access(path.c_str(), R_OK) != 0)
        throw Failure(ExitUnreadable, name, std::strerror(errno), "ask its owner for the right to read it");
    if (status.st_size == 0) ThrowEmpty(path);
}

namespace
{
void RequireMagic(const std::string& path, std::string_view start)
{
    if (HasOldDatabaseMark(start))
        throw Failure(ExitUnreadable, OneLine(path), "a database of the old format, which is not read",
                      "run its analysis again with a newer version");
    if (HasDatabaseMark(start)) return;
    throw Failure(ExitUnreadable, OneLine(path), "not a database: it looks like " + LooksLike(start),
                  "look at it with the program that made it");
}

// What lies on another host can be looked at by the library alone.
rfm_File OpenThere(const std::string& path)
{
    rfm_File file = OpenRemoteFile(path);
    char bytes[kMarkBytes] = {};
    try
    {
        file.Repr().Seek(0);
        const int count = file.Repr().ReadUpToEnd(bytes, sizeof bytes);
        if (count == 0) ThrowEmpty(path);
        RequireMagic(path, {bytes, static_cast<std::size_t>(count)});
        file.Repr().Seek(0);
    }
    catch (const nex_Exception& cause)
    {
        ThrowIfRemote(path, cause);
        throw;
    }
    return file;
}
} // namespace

void RequireDatabaseMagic(const std::string& path)
{
    if (IsRemotePath(path)) return;
    RequireMagic(path, StartOfFile(path));
}

rfm_File OpenForReading(const std::string& path)
{
    if (IsRemotePath(path)) return OpenThere(path);
    RequireReadableFile(path);
    RequireDatabaseMagic(path);
    try
    {
        return rfm_File::Open(path.c_str(), utl_FileAccessRead);
    }
    catch (const nex_Exception& cause)
    {
        RequireReadableFile(path); // it may have gone since
        throw Failure(ExitUnreadable, OneLine(path), PlainMessage(cause.what()), RemedyForUnopened(path));
    }
}

void ThrowDamaged(const std::string& path, const std::exception& cause)
{
    ThrowIfRemote(path, cause);
    throw Failure(ExitUnreadable, OneLine(path), PlainMessage(cause.what()),
                  "`rfm check` tells what is damaged");
}

DatabaseFile::DatabaseFile(const std::string& path)
    : m_Path(path),
      m_File(OpenForReading(path)),
      m_Database(OpenDatabase(path, m_File))
{
}

std::int64_t DatabaseFile::FileBytes() const { return m_File.Repr().MediumSize().Value(); }

Header DatabaseFile::Header() const
{
    char bytes[rfm_VersionOffset + 4] = {};
    m_File.Repr().Seek(0);
    m_File.Repr().Read(bytes, sizeof bytes);
    const std::string_view mark(bytes + rfm_MagicBytes - rfm_ApplicationMagicBytes,
                                rfm_ApplicationMagicBytes);
    return {std::string(mark.substr(0, mark.find('\0'))),
            omi_Load<int>(bytes + rfm_VersionOffset, omi_Swapper(omi_Swapper::Stored))};
}

// ---- Objects ----

std::vector<rfm_Handle> DatabaseFile::Handles()
{
    try
    {
        std::vector<rfm_Handle> handles;
        for (const rfm_Handle& handle : m_Database.Handles()) handles.push_back(handle);
        return handles;
    }
    catch (const nex_Exception& cause)
    {
        ThrowDamaged(m_Path, cause);
    }
}

Object DatabaseFile::Describe(rfm_Handle handle)
{
    Object object;
    object.handle = handle;
    try
    {
        DescribeContent(object);
    }
    catch (const nex_Exception& cause)
    {
        ThrowIfRemote(m_Path, cause);
        object.damage = PlainMessage(cause.what());
    }
    return object;
}

void DatabaseFile::DescribeContent(Object& object)
{
    const rfm_Space space = m_Database.Space(object.handle, -1);
    object.size = space.Length().Value();
    object.allocation = space.Allocation().Value();
    object.extents = object.allocation == 0 ? 0 : ExtentsOf(m_Database, object.handle);
    const Head head = ReadHead(m_Database, object.handle);
    object.kind = KindOf(object.handle, static_cast<std::uint32_t>(head.words[0]));
    object.flushCount = head.words[1];
    if (object.kind == Kind::Table) DescribeTable(object);
    if (object.kind != Kind::Array) return;
    object.elementType = static_cast<rfm_Type>(head.words[2]);
    object.columns = head.words[3];
    const std::int64_t rowBytes = std::int64_t{ElementBytes(head.words[2])} * head.words[3];
    object.rowBytes = static_cast<int>(std::clamp<std::int64_t>(rowBytes, 0, INT32_MAX));
    object.rows = rfm_RowsInSpace(object.size, rfm_ArrayFirstRowOffset, rowBytes);
    if (head.count < 4 || ElementBytes(head.words[2]) == 0 || head.words[3] < 0)
        object.damage = "the header of the array is damaged";
}

void DatabaseFile::DescribeTable(Object& object)
{
    const rfm_Table table = m_Database.Table(object.handle, -1, 1);
    object.layout = table.TableMetadata().Name().CString();
    for ([[maybe_unused]] const auto& [name, field] : table.TableMetadata().Fields()) ++object.columns;
    object.rowBytes = table.RowSize();
    object.rows = table.Length();
}

Semaphore LookAtSemaphore(const std::string& path)
{
    Semaphore semaphore;
    if (IsRemotePath(path)) return semaphore;
    semaphore.path = rfm_SemaphorePath(path.c_str()).CString();
    struct stat status = {};
    semaphore.isPresent = ::stat(semaphore.path.c_str(), &status) == 0;
    if (semaphore.isPresent) semaphore.since = status.st_mtim.tv_sec;
    return semaphore;
}

Semaphore LookAtSemaphore(DatabaseFile& file)
{
    if (!IsRemotePath(file.Path())) return LookAtSemaphore(file.Path());
    Semaphore semaphore;
    semaphore.isPresent = file.Database().FileStatus() == rfm_FileStatus::RfmFileInTransaction;
    return semaphore;
}

namespace
{
void Tell(const Semaphore& semaphore, const std::string& path, std::string_view consequence)
{
    if (semaphore.isPresent)
        Note(fmt::format("{}: a writer asks readers to wait; {}", OneLine(path), consequence));
}
} // namespace

void TellOfSemaphore(DatabaseFile& file, std::string_view consequence)
{
    Tell(LookAtSemaphore(file), file.Path(), consequence);
}

void TellOfSemaphore(const std::string& path, std::string_view consequence)
{
    Tell(LookAtSemaphore(path), path, consequence);
}
} // namespace rfm_tool
