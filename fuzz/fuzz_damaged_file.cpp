// The input is damage done to a whole database of every kind of object: patches of three bytes each, two for the place
// and one for the value. The file stays valid elsewhere, so that the damage is met where it lies and not at the door.
#include "walk_database.h"

#include <rfm.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{
void WriteObjects(rfm_Database& database)
{
    rfm_TableMetadata layout("node", 1);
    layout.DefineIntField("id");
    layout.DefineDoubleField("x");
    layout.DefineFloatField("load");
    layout.DefineStringField("name");
    layout.DefineHandleField("field");
    database.Bind(layout);
    rfm_Table first = database.Table("node", -1, -1);
    rfm_Table second = database.Table("node", 64, -1);
    auto values = database.ArrayDouble(3, -1, 0);
    auto names = database.ArrayString(1, -1, 0);
    auto stream = database.TaggedStream(0);
    for (int i = 0; i < 20; ++i)
    {
        rfm_Row row = i % 3 == 0 ? second.NewRow() : first.NewRow();
        row.WriteFieldInt("id", i);
        row.WriteFieldDouble("x", 0.5 * i);
        if (i % 2 == 0) row.WriteFieldFloat("load", 2.0F);
        row.WriteFieldString("name", std::to_string(i).c_str());
        row.WriteFieldHandle("field", values.Handle());
        const double point[3] = {1, 2, 3};
        values.Write(point, 1);
        const cow_String name("a name");
        names.Write(&name, 1);
        stream.WriteString(i, name);
        stream.WriteFixedString(i, cow_String("\x04\0\0\0text", 8)); // its length first, as reading wants it
        // Turns, so that objects have more than one extent.
        first.Flush();
        second.Flush();
        values.Flush();
        names.Flush();
        stream.Flush();
        database.Flush();
    }
}

std::vector<std::uint8_t> MakeBase()
{
    char name[] = "/tmp/rfm_fuzz_XXXXXX";
    const int descriptor = mkstemp(name);
    if (descriptor < 0) std::abort();
    close(descriptor);
    {
        rfm_Database database =
            rfm_Database::Create(rfm_File::Open(name, utl_FileAccessCreate), "FUZZ", "one of each", 1);
        WriteObjects(database);
        database.Close();
    }
    std::ifstream file(name, std::ios::binary);
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    unlink(name);
    if (bytes.size() > 0x10000) std::abort(); // two bytes must reach every place
    return bytes;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const std::vector<std::uint8_t> base = MakeBase();
    std::vector<std::uint8_t> damaged = base;
    for (std::size_t at = 0; at + 3 <= size; at += 3)
    {
        const std::size_t place = bytes[at] + 256U * bytes[at + 1];
        damaged[place % damaged.size()] = bytes[at + 2];
    }
    fuzz_WalkDatabase(damaged.data(), damaged.size());
    fuzz_AppendToDatabase(damaged.data(), damaged.size());
    return 0;
}
