#include "rfm_GoldenFiles.h"

#include "EnvironmentVariable.h"
#include "rfm_Codec.h"
#include "rfm_FileReprEncoded.h"

#include <cstring>
#include <memory>
#include <rfm.h>
#include <stdexcept>

namespace
{
rfm_Database NewDatabase(const rfm_File& file, const char* description)
{
    return rfm_Database::Create(file, "GOLD", description, kGoldenCreationTime);
}
rfm_Database NewDatabase(const cow_String& fileName, const char* description)
{
    return NewDatabase(rfm_File::Open(fileName, utl_FileAccessCreate), description);
}

// Streams that any zlib reads and whose bytes hang on no engine and no version of it: one block, stored as it is.
//
//   byte 0     2    3        5         7          7 + n        11 + n
//        +-----+----+--------+---------+-----------+------------+
//        |78 01| 01 | n      | not n   | the bytes | their sum, |
//        |     |    | little | little  |           | big-endian |
//        +-----+----+--------+---------+-----------+------------+
class StoredCodec : public rfm_Codec
{
public:
    void Encode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int decodedLength) override
    {
        out.Require(MostEncoded(decodedLength));
        char* bytes = out.Writable(MostEncoded(decodedLength));
        const auto count = static_cast<unsigned>(decodedLength);
        const unsigned head[] = {0x78, 0x01, 0x01, count, count >> 8U, ~count, ~count >> 8U};
        for (const unsigned byte : head) *bytes++ = static_cast<char>(byte & 0xFFU);
        std::memcpy(bytes, in.Data(), count);
        bytes += count;
        const unsigned sum = Adler32(in.Data(), decodedLength);
        for (const unsigned shift : {24U, 16U, 8U, 0U}) *bytes++ = static_cast<char>(sum >> shift & 0xFFU);
        out.Shrink(MostEncoded(decodedLength));
    }
    int Decode(rfm_SegmentBuffer&, const rfm_SegmentBuffer&) override
    {
        throw std::logic_error("a golden file is only written");
    }
    int MostEncoded(int decodedLength) const noexcept override { return decodedLength + 11; }

private:
    static unsigned Adler32(const char* bytes, int count)
    {
        unsigned low = 1;
        unsigned high = 0;
        for (int i = 0; i < count; ++i)
        {
            low = (low + static_cast<unsigned char>(bytes[i])) % 65521;
            high = (high + low) % 65521;
        }
        return high << 16U | low;
    }
};

void WriteEmpty(const cow_String& fileName) { NewDatabase(fileName, "nothing in it").Close(); }

// Two tables of one layout in turns, so that both have two extents. Every second row lacks a field.
void WriteTableInto(const rfm_File& file)
{
    rfm_Database database = NewDatabase(file, "two tables of one layout");
    rfm_TableMetadata layout("node", 1);
    layout.DefineStringField("name");
    layout.DefineIntField("id");
    layout.DefineDoubleField("x");
    layout.DefineFloatField("load");
    layout.DefineHandleField("next");
    database.Bind(layout);
    {
        rfm_Table tables[2] = {database.Table("node", -1, -1), database.Table("node", -1, -1)};
        for (int i = 0; i < 4; ++i)
        {
            rfm_Row row = tables[i % 2].NewRow();
            row.WriteFieldInt("id", i - 2);
            row.WriteFieldDouble("x", 0.5 * i);
            if (i < 2) row.WriteFieldFloat("load", 1.25F);
            row.WriteFieldString("name", i < 2 ? "left" : "right");
            row.WriteFieldHandle("next", tables[1 - i % 2].Handle());
            tables[i % 2].Flush();
        }
    }
    database.Close();
}

void WriteTable(const cow_String& fileName)
{
    WriteTableInto(rfm_File::Open(fileName, utl_FileAccessCreate));
}

void WriteArrays(const cow_String& fileName)
{
    rfm_Database database = NewDatabase(fileName, "arrays of the four types");
    {
        auto ints = database.ArrayInt(2, -1, 0);
        const int numbers[4] = {1, -2, 0x7FFFFFFF, -0x7FFFFFFF - 1};
        ints.Write(numbers, 2);
        ints.Flush();
        auto floats = database.ArrayFloat(3, -1, 0);
        const float loads[3] = {0.5F, -1.0F, 3.0F};
        floats.Write(loads, 1);
        floats.Flush();
        auto doubles = database.ArrayDouble(1, -1, 0);
        const double lengths[2] = {1.0, -0.125};
        doubles.Write(lengths, 2);
        doubles.Flush();
        auto names = database.ArrayString(2, -1, 0);
        const cow_String texts[4] = {"a", "bb", "a", ""};
        names.Write(texts, 2);
        names.Flush();
    }
    database.Close();
}

void WriteStream(const cow_String& fileName)
{
    rfm_Database database = NewDatabase(fileName, "a tagged stream");
    {
        rfm_TaggedStream stream = database.TaggedStream(0);
        stream.WriteInt(1, -5);
        stream.WriteHandle(2, rfm_Handle(0x201));
        stream.WriteFloat(3, 2.5F);
        stream.WriteDouble(4, -2.5);
        stream.WriteString(5, "in the pool");
        // Its own first four bytes are its length for whoever reads it; what follows is the padding.
        stream.WriteFixedString(6, cow_String("\x04\0\0\0\0\0\0\0", 8));
        stream.WriteInt(7, 7);
        stream.Flush();
    }
    database.Close();
}

// The first space goes on behind the second; the third never gets a byte.
void WriteSpace(const cow_String& fileName)
{
    rfm_Database database = NewDatabase(fileName, "plain spaces");
    {
        rfm_Space first = database.Space(16);
        rfm_Space second = database.Space(4);
        const rfm_Space third = database.Space(4);
        first.Write("0123456789", 10);
        second.Write("between", 7);
        first.Write("abcdefghij", 10);
    }
    database.Close();
}

void WriteStrings(const cow_String& fileName)
{
    rfm_Database database = NewDatabase(fileName, "texts of all lengths");
    {
        auto names = database.ArrayString(1, -1, 0);
        for (int i = 0; i < kGoldenTextCount; ++i)
        {
            const cow_String text{std::string_view(GoldenText(i))};
            names.Write(&text, 1);
        }
        names.Flush();
    }
    database.Close();
}

void WriteWide(rfm_Database& database, const char* name, int fields)
{
    rfm_TableMetadata layout(name, 1);
    for (int i = 0; i < fields; ++i) layout.DefineIntField(("f" + std::to_string(10 + i)).c_str());
    database.Bind(layout);
    rfm_Table table = database.Table(name, -1, -1);
    rfm_Row row = table.NewRow();
    if (fields > 0) row.WriteFieldInt(fields - 1, fields);
    table.Flush();
}

// One presence word is full at 32 fields. The last layout has no table.
void WriteLayouts(const cow_String& fileName)
{
    rfm_Database database = NewDatabase(fileName, "layouts around one presence word");
    WriteWide(database, "one", 1);
    WriteWide(database, "word", 32);
    WriteWide(database, "more", 33);
    rfm_TableMetadata alone("alone", 1);
    alone.DefineDoubleField("b");
    alone.DefineHandleField("a");
    database.Bind(alone);
    database.Close();
}
} // namespace

const GoldenFile kGoldenFiles[kGoldenFileCount] = {
    {"empty.rdx", WriteEmpty},     {"table.rdx", WriteTable}, {"arrays.rdx", WriteArrays},
    {"stream.rdx", WriteStream},   {"space.rdx", WriteSpace}, {"strings.rdx", WriteStrings},
    {"layouts.rdx", WriteLayouts},
};

std::string GoldenText(int index)
{
    switch (index)
    {
    case 0: return "";
    case 1: return "a";
    case 2: return "bcd";
    case 3: return "efgh";
    case 4: return "ijklm";
    case 5: return {"n\0p", 3};
    case 6: return "\xE4\xFF";
    case 7: return std::string(255, 'q');
    default: return std::string(2049, 'r');
    }
}

void WriteHdf5Golden(const cow_String& fileName)
{
    const EnvironmentVariable hdf("MRK_HDF_RDX", "");
    WriteTable(fileName);
}

void WriteCompressedGolden(const cow_String& fileName)
{
    WriteTableInto(rfm_File(
        new rfm_FileReprEncoded(fileName, std::make_unique<StoredCodec>(), kCompressedGoldenSegment)));
}
