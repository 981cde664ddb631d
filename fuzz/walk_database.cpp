#include "walk_database.h"

#include <rfm.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace
{
// A stored number may claim a billion rows; the first ones of each object show what reading does.
constexpr int kRowsToRead = 40;

// One object's refusal must not hide the next object.
template <class Step> void Refusable(const Step& step)
{
    try
    {
        step();
    }
    catch (const nex_Exception& refusal)
    {
        if (std::string(refusal.what()).empty()) std::abort(); // a refusal without a word helps nobody
    }
}

class MemoryFile
{
public:
    MemoryFile(const std::uint8_t* bytes, std::size_t size) : m_Descriptor(memfd_create("fuzz", MFD_CLOEXEC))
    {
        if (m_Descriptor < 0 || write(m_Descriptor, bytes, size) != static_cast<ssize_t>(size)) std::abort();
    }
    ~MemoryFile() { close(m_Descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Name() const { return "/proc/self/fd/" + std::to_string(m_Descriptor); }

private:
    int m_Descriptor;
};

void ReadField(const rfm_Row& row, const rfm_FieldMetadata& field)
{
    const rfm_FieldHandle handle(field.name);
    if (row.DataIsPresent(handle) == 0) return;
    switch (field.type)
    {
    case rfm_TypeInt: row.ReadFieldInt(handle); break;
    case rfm_TypeHandle: row.ReadFieldHandle(handle); break;
    case rfm_TypeFloat: row.ReadFieldFloat(handle); break;
    case rfm_TypeDouble: row.ReadFieldDouble(handle); break;
    case rfm_TypeString: row.ReadFieldString(handle); break;
    default: std::abort(); // the table's constructor lets no other type through
    }
}

void WalkTable(rfm_Database& database, rfm_Handle handle)
{
    rfm_Table table = database.Table(handle, -1, 8);
    for (int row = 0; row < std::min(table.Length(), kRowsToRead); ++row)
        Refusable(
            [&]
            {
                const rfm_Row current = table.ReadRow(row);
                for (auto entry : table.GetFieldMap()) Refusable([&] { ReadField(current, entry.value); });
            });
}

template <class T, int N> void WalkArray(rfm_Array<T, N> array)
{
    array.Length();
    const int columns = array.FieldCount();
    if (columns < 1 || columns > 10000) return; // the caller's own memory, not the library's
    std::vector<T> row(static_cast<std::size_t>(columns));
    for (int i = 0; i < kRowsToRead && array.Read(row.data(), 1) == columns; ++i)
    {
    }
}

void WalkStream(rfm_Database& database, rfm_Handle handle)
{
    const rfm_TaggedStream stream = database.TaggedStream(handle, 0);
    for (int i = 0; i < kRowsToRead && stream.Next(); ++i) stream.GetString();
}

void WalkSpace(rfm_Database& database, rfm_Handle handle)
{
    rfm_Space space = database.Space(handle, -1);
    char bytes[256];
    for (int i = 0; i < kRowsToRead && space.Read(bytes, sizeof bytes) > 0; ++i)
    {
    }
    space.Seek(space.Length());
    database.GetObjStatistics(handle);
}

void WalkObject(rfm_Database& database, rfm_Handle handle)
{
    Refusable([&] { WalkSpace(database, handle); });
    switch (database.HandleType(handle))
    {
    case rfm_TypeTable: WalkTable(database, handle); break;
    case rfm_TypeTaggedStream: WalkStream(database, handle); break;
    case rfm_TypeInt: WalkArray(database.ArrayInt(handle, -1, 0)); break;
    case rfm_TypeFloat: WalkArray(database.ArrayFloat(handle, -1, 0)); break;
    case rfm_TypeDouble: WalkArray(database.ArrayDouble(handle, -1, 0)); break;
    case rfm_TypeString: WalkArray(database.ArrayString(handle, -1, 0)); break;
    default: break;
    }
}
} // namespace

namespace
{
void WalkEverything(rfm_Database& database)
{
    Refusable([&] { database.Bind(); });
    Refusable([&] { database.Description(); });
    Refusable([&] { database.GetDBStatistics(); });
    database.FileStatus();
    Refusable([&] { database.Snap(); });
    for (const int offset : {0, 1024, 15368}) Refusable([&] { database.GetObjectLocationReport(offset); });
    std::set<rfm_Handle> handles;
    // Those that are no head, and those that are none at all.
    for (const std::uint32_t handle : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 20U, 512U, 513U})
        handles.insert(rfm_Handle(handle));
    Refusable(
        [&]
        {
            for (const rfm_Handle& handle : database.Handles()) handles.insert(handle);
        });
    for (const rfm_Handle& handle : handles) Refusable([&] { WalkObject(database, handle); });
}

void AppendRow(rfm_Database& database, rfm_Handle handle)
{
    rfm_Table table = database.Table(handle, -1, 8);
    rfm_Row row = table.NewRow();
    for (auto entry : table.GetFieldMap())
        if (entry.value.type == rfm_TypeString)
            row.WriteFieldString(rfm_FieldHandle(entry.value.name), "new");
    table.Flush();
}

template <class T, int N> void AppendElements(rfm_Array<T, N> array)
{
    const int columns = array.FieldCount();
    if (columns < 1 || columns > 10000) return; // the caller's own memory, not the library's
    const std::vector<T> row(static_cast<std::size_t>(columns));
    array.Seek(array.Length());
    array.Write(row.data(), 1);
    array.Flush();
}

void AppendItem(rfm_Database& database, rfm_Handle handle)
{
    rfm_TaggedStream stream = database.TaggedStream(handle, 0);
    for (int i = 0; i < kRowsToRead && stream.Next(); ++i)
    {
    }
    stream.WriteString(1, "item");
    stream.Flush();
}

void AppendBytes(rfm_Database& database, rfm_Handle handle)
{
    rfm_Space space = database.Space(handle, -1);
    space.Seek(space.Length());
    space.Write("bytes", 5);
}

void AppendTo(rfm_Database& database, rfm_Handle handle)
{
    switch (database.HandleType(handle))
    {
    case rfm_TypeTable: AppendRow(database, handle); break;
    case rfm_TypeTaggedStream: AppendItem(database, handle); break;
    case rfm_TypeInt: AppendElements(database.ArrayInt(handle, -1, 0)); break;
    case rfm_TypeFloat: AppendElements(database.ArrayFloat(handle, -1, 0)); break;
    case rfm_TypeDouble: AppendElements(database.ArrayDouble(handle, -1, 0)); break;
    case rfm_TypeString: AppendElements(database.ArrayString(handle, -1, 0)); break;
    default: AppendBytes(database, handle); break;
    }
}

void AppendNewTable(rfm_Database& database)
{
    rfm_TableMetadata layout("fresh", 1);
    layout.DefineStringField("text");
    rfm_Table table = database.Table(database.Bind(layout), -1, -1);
    table.NewRow().WriteFieldString("text", "row");
    table.Flush();
}

void AppendEverywhere(rfm_Database& database)
{
    Refusable([&] { database.Bind(); });
    for (std::uint32_t handle = 4; handle < 10; ++handle)
        Refusable([&] { AppendTo(database, rfm_Handle(handle)); });
    Refusable([&] { AppendNewTable(database); });
    Refusable([&] { database.Space(-1).Write("space", 5); });
    Refusable([&] { database.Flush(); });
    Refusable([&] { database.Close(); });
}
} // namespace

void fuzz_WalkDatabase(const std::uint8_t* bytes, std::size_t size)
{
    const MemoryFile file(bytes, size);
    const cow_String name(file.Name().c_str());
    Refusable([&] { rfm_Database::IsMagic(rfm_File::Open(name, utl_FileAccessRead), ""); });
    Refusable([&] { rfm_Database::GetCreationTime(rfm_File::Open(name, utl_FileAccessRead)); });
    Refusable(
        [&]
        {
            rfm_Database database = rfm_Database::Open(rfm_File::Open(name, utl_FileAccessRead), "");
            WalkEverything(database);
        });
}

void fuzz_AppendToDatabase(const std::uint8_t* bytes, std::size_t size)
{
    const MemoryFile file(bytes, size);
    const cow_String name(file.Name().c_str());
    Refusable(
        [&]
        {
            rfm_Database database = rfm_Database::Open(rfm_File::Open(name, utl_FileAccessUpdate), "");
            AppendEverywhere(database);
        });
    Refusable(
        [&]
        {
            rfm_Database database = rfm_Database::Open(rfm_File::Open(name, utl_FileAccessRead), "");
            WalkEverything(database);
        });
}
