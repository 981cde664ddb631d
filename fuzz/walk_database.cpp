#include "walk_database.h"

#include <rfm.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace
{
// A stored number may claim a billion rows; the first ones of each object show what reading does.
constexpr int kRowsToRead = 200;

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
            Refusable([&] { database.Bind(); });
            database.Description();
            database.GetDBStatistics();
            database.FileStatus();
            database.Snap();
            for (const int offset : {0, 1024, 15360, 15368}) database.GetObjectLocationReport(offset);
            for (std::uint32_t handle = 1; handle < 40; ++handle)
                Refusable([&] { WalkObject(database, rfm_Handle(handle)); });
            Refusable([&] { WalkObject(database, rfm_Handle(513)); });
        });
}
