// Files that were written once and must be read for ever; tests/data/README.md draws them.
#include "TestFolder.h"
#include "rfm_FileRepr.h"
#include "rfm_GoldenFiles.h"

#include <rfm.h>

#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <vector>

using testing::ElementsAre;

namespace
{
cow_String PathOf(const char* name) { return cow_String(RFM_TEST_DATA "/") + name; }

rfm_Database OpenGolden(const char* name)
{
    return rfm_Database::Open(rfm_File::Open(PathOf(name), utl_FileAccessRead), "GOLD");
}

// The bytes of "EE BB FF AA".
std::string Bytes(const std::string& digits)
{
    std::istringstream words(digits);
    std::string bytes;
    for (unsigned value = 0; words >> std::hex >> value;) bytes.push_back(static_cast<char>(value));
    return bytes;
}

// One line of a picture: what the file has at a place.
void ExpectBytes(const std::string& file, std::size_t offset, const std::string& digits)
{
    const std::string expected = Bytes(digits);
    ASSERT_LE(offset + expected.size(), file.size());
    EXPECT_EQ(file.substr(offset, expected.size()), expected) << "at offset " << offset;
}

template <class T, int N> std::vector<T> AllElements(rfm_Array<T, N> array)
{
    std::vector<T> elements(static_cast<std::size_t>(array.Length() * array.FieldCount()) + 1);
    elements.resize(static_cast<std::size_t>(array.Read(elements.data(), array.Length() + 1)));
    return elements;
}

std::string Content(rfm_Space space)
{
    char bytes[64];
    const int read = space.Read(bytes, sizeof bytes);
    return {bytes, static_cast<std::size_t>(read)};
}

std::vector<std::uint32_t> HandlesOf(const rfm_Database& database)
{
    std::vector<std::uint32_t> handles;
    for (const rfm_Handle& handle : database.Handles()) handles.push_back(handle.Value());
    return handles;
}

void ExpectLastField(rfm_Database& database, std::uint32_t handle, const char* name, int fields)
{
    rfm_Table table = database.Table(rfm_Handle(handle), -1, -1);
    EXPECT_EQ(table.TableMetadata().Name(), name);
    EXPECT_EQ(table.GetFieldMap().Count(), fields);
    ASSERT_EQ(table.Length(), 1);
    const rfm_Row row = table.ReadRow(0);
    for (int i = 0; i < fields; ++i) EXPECT_EQ(row.DataIsPresent(i), i == fields - 1 ? 1 : 0) << i;
    EXPECT_EQ(row.ReadFieldInt(fields - 1), fields);
}

void ExpectRowsOfTheTables(rfm_Database database)
{
    database.Bind();
    EXPECT_EQ(database.RootTableHandle(), rfm_Handle(4));
    EXPECT_EQ(database.RootTableHandle2(), rfm_Handle(5));
    for (int i = 0; i < 4; ++i)
    {
        rfm_Table table = database.Table(rfm_Handle(static_cast<std::uint32_t>(4 + i % 2)), -1, -1);
        ASSERT_EQ(table.Length(), 2);
        const rfm_Row row = table.ReadRow(i / 2);
        EXPECT_EQ(row.ReadFieldInt("id"), i - 2);
        EXPECT_EQ(row.ReadFieldDouble("x"), 0.5 * i);
        EXPECT_EQ(row.DataIsPresent("load"), i < 2 ? 1 : 0);
        if (i < 2)
        {
            EXPECT_EQ(row.ReadFieldFloat("load"), 1.25F);
        }
        EXPECT_EQ(row.ReadFieldString("name"), i < 2 ? "left" : "right");
        EXPECT_EQ(row.ReadFieldHandle("next"), rfm_Handle(static_cast<std::uint32_t>(5 - i % 2)));
    }
}
} // namespace

class EveryGoldenFile : public testing::TestWithParam<GoldenFile>
{
};

INSTANTIATE_TEST_SUITE_P(GoldenFiles, EveryGoldenFile, testing::ValuesIn(kGoldenFiles),
                         [](const auto& file)
                         {
                             const std::string name = file.param.name;
                             return name.substr(0, name.find('.'));
                         });

TEST_P(EveryGoldenFile, IsWhatTheLibraryWritesToday)
{
    const TestFolder folder;
    const cow_String fileName = folder.Path(GetParam().name);
    GetParam().write(fileName);
    const std::string today = BytesOf(fileName);
    const std::string golden = BytesOf(PathOf(GetParam().name));
    ASSERT_EQ(today.size(), golden.size());
    for (std::size_t i = 0; i < golden.size(); ++i) ASSERT_EQ(today[i], golden[i]) << "at offset " << i;
}

TEST_P(EveryGoldenFile, HasItsHeaderAndItsPools)
{
    const std::string file = BytesOf(PathOf(GetParam().name));
    ExpectBytes(file, 0, "54 56 4E 52 47 4F 4C 44 0C 00 00 00"); // TVNR, GOLD, version 12
    ExpectBytes(file, 496, "00 00 00 00 00 00 00 00");
    ExpectBytes(file, 512, "01 00 00 00 78 56 34 12"); // the flush of the close; the time of creation
    EXPECT_EQ(file.substr(520, 504), std::string(504, '\0'));
    ExpectBytes(file, 1068, "00 00 00 00 00 00 CE 40"); // entry 1, the strings, is at 15360
    ExpectBytes(file, 1080,
                "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 F0 3F 00 00 00 00");
    ExpectBytes(file, 1124, "00 00 00 00 00 02 CE 40"); // entry 3, the layouts, is at 15364
    ExpectBytes(file, 15360, "EE BB FF AA BB EB AA FA");
}

TEST_P(EveryGoldenFile, IsOfItsApplicationAndTime)
{
    const rfm_File file = rfm_File::Open(PathOf(GetParam().name), utl_FileAccessRead);
    EXPECT_TRUE(rfm_Database::IsMagic(file, "GOLD"));
    EXPECT_FALSE(rfm_Database::IsMagic(file, "IRON"));
    EXPECT_EQ(rfm_Database::GetCreationTime(file), kGoldenCreationTime);
}

TEST(GoldenFiles, TheEmptyDatabaseHasNoObjectOfAnApplication)
{
    const rfm_Database database = OpenGolden("empty.rdx");
    EXPECT_EQ(database.Description(), "nothing in it");
    EXPECT_EQ(database.GetFlushCount(), 1);
    EXPECT_THAT(HandlesOf(database), ElementsAre(1U, 2U, 3U));
    EXPECT_EQ(database.GetTableMetadataNames().Count(), 0);
}

TEST(GoldenFiles, TheEmptyDatabaseEndsBehindItsPools)
{
    const std::string file = BytesOf(PathOf("empty.rdx"));
    ASSERT_EQ(file.size(), 15368U);
    ExpectBytes(file, 504, "00 00 00 00 00 04 CE 40");                          // 15368
    ExpectBytes(file, 1052, "00 00 00 00 00 00 10 40 00 00 00 00 00 00 10 40"); // 4 bytes, 4 in use
    ExpectBytes(file, 1076, "00 00 00 00");
    EXPECT_EQ(file.substr(1136, 14224), std::string(14224, '\0')); // no entry behind the third
}

TEST(GoldenFiles, TheTablesHaveTheirRows) { ExpectRowsOfTheTables(OpenGolden("table.rdx")); }

// In the order of the names: id, load, name, next, x.
TEST(GoldenFiles, ATableHasTheBytesOfItsPicture)
{
    const std::string file = BytesOf(PathOf("table.rdx"));
    ExpectBytes(file, 1136,
                "00 00 00 00 00 00 48 40 00 00 00 00 00 00 48 40");  // entry 4: 48 bytes, all in use
    ExpectBytes(file, 1152, "00 00 00 00 00 04 CE 40 06 00 00 00");  // at 15368, on in entry 6
    ExpectBytes(file, 15368, "BE BB AF AA 02 00 00 00 04 00 00 00"); // flushed twice, layout at 4
    ExpectBytes(file, 15380, "1F 00 00 00");                         // all five fields
    ExpectBytes(file, 15384, "FE FF FF FF 00 00 A0 3F");             // -2, 1.25
    ExpectBytes(file, 15392, "00 00 00 00 00 00 4A 40");             // the text at 52: left
    ExpectBytes(file, 15400, "05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"); // handle 5, 0.0
    ExpectBytes(file, 15464, "1D 00 00 00 00 00 00 00 00 00 00 00");             // the second: no load
    ExpectBytes(file, 15536,
                "48 00 00 00 00 00 00 00 00 00 10 40 01 00 00 00"); // layout: 72 bytes, name at 4, int
    ExpectBytes(file, 15608, "04 00 00 00 6E 6F 64 65 02 00 00 00 69 64 00 00"); // texts: node, id
}

TEST(GoldenFiles, TheArraysHaveTheirElements)
{
    rfm_Database database = OpenGolden("arrays.rdx");
    EXPECT_EQ(database.HandleType(rfm_Handle(4)), rfm_TypeInt);
    EXPECT_EQ(database.HandleType(rfm_Handle(5)), rfm_TypeFloat);
    EXPECT_EQ(database.HandleType(rfm_Handle(6)), rfm_TypeDouble);
    EXPECT_EQ(database.HandleType(rfm_Handle(7)), rfm_TypeString);
    EXPECT_THAT(AllElements(database.ArrayInt(rfm_Handle(4), -1, 0)),
                ElementsAre(1, -2, 0x7FFFFFFF, -0x7FFFFFFF - 1));
    EXPECT_THAT(AllElements(database.ArrayFloat(rfm_Handle(5), -1, 0)), ElementsAre(0.5F, -1.0F, 3.0F));
    EXPECT_THAT(AllElements(database.ArrayDouble(rfm_Handle(6), -1, 0)), ElementsAre(1.0, -0.125));
    EXPECT_THAT(AllElements(database.ArrayString(rfm_Handle(7), -1, 0)),
                ElementsAre(cow_String("a"), cow_String("bb"), cow_String("a"), cow_String("")));
    EXPECT_EQ(database.ArrayInt(rfm_Handle(4), -1, 0).FieldCount(), 2);
    EXPECT_EQ(database.ArrayFloat(rfm_Handle(5), -1, 0).FieldCount(), 3);
}

TEST(GoldenFiles, AnArrayHasTheBytesOfItsPicture)
{
    const std::string file = BytesOf(PathOf("arrays.rdx"));
    ExpectBytes(file, 15368, "EB EE FA FF 01 00 00 00 01 00 00 00 02 00 00 00"); // ints, two columns
    ExpectBytes(file, 15384, "01 00 00 00 FE FF FF FF FF FF FF 7F 00 00 00 80");
    ExpectBytes(file, 15400, "EB EE FA FF 01 00 00 00 03 00 00 00 03 00 00 00"); // floats, three columns
    ExpectBytes(file, 15416, "00 00 00 3F 00 00 80 BF 00 00 40 40");
    ExpectBytes(file, 15428, "EB EE FA FF 01 00 00 00 04 00 00 00 01 00 00 00"); // doubles, one column
    ExpectBytes(file, 15444, "00 00 00 00 00 00 F0 3F 00 00 00 00 00 00 C0 BF");
    ExpectBytes(file, 15460, "EB EE FA FF 01 00 00 00 06 00 00 00 02 00 00 00"); // references, two columns
    ExpectBytes(file, 15476, "00 00 00 00 00 00 10 40 00 00 00 00 00 00 28 40"); // a at 4, bb at 12
    ExpectBytes(file, 15492,
                "00 00 00 00 00 00 10 40 00 00 00 00 00 00 34 40"); // a once more, the empty one at 20
    ExpectBytes(file, 15508, "01 00 00 00 61 00 00 00 02 00 00 00 62 62 00 00 00 00 00 00");
}

TEST(GoldenFiles, TheStreamHasItsItems)
{
    rfm_Database database = OpenGolden("stream.rdx");
    ASSERT_EQ(database.HandleType(rfm_Handle(4)), rfm_TypeTaggedStream);
    const rfm_TaggedStream stream = database.TaggedStream(rfm_Handle(4), 0);
    const rfm_Type types[7] = {rfm_TypeInt,    rfm_TypeHandle,      rfm_TypeFloat, rfm_TypeDouble,
                               rfm_TypeString, rfm_TypeFixedString, rfm_TypeInt};
    const std::string texts[7] = {"", "", "", "", "in the pool", std::string(4, '\0'), ""};
    for (int i = 0; i < 7; ++i)
    {
        ASSERT_TRUE(stream.Next());
        EXPECT_EQ(stream.GetType(), types[i]);
        EXPECT_EQ(stream.GetID(), i + 1);
        EXPECT_EQ(stream.GetInt(), i == 0 ? -5 : i == 6 ? 7 : 0);
        EXPECT_EQ(stream.GetHandle(), rfm_Handle(i == 1 ? 0x201 : 0));
        EXPECT_EQ(stream.GetFloat(), i == 2 ? 2.5F : 0.0F);
        EXPECT_EQ(stream.GetDouble(), i == 3 ? -2.5 : 0.0);
        EXPECT_EQ(stream.GetString().View(), texts[i]);
    }
    EXPECT_FALSE(stream.Next());
}

TEST(GoldenFiles, AStreamHasTheBytesOfItsPicture)
{
    const std::string file = BytesOf(PathOf("stream.rdx"));
    ExpectBytes(file, 15368, "BE EB AF FA 01 00 00 00");
    ExpectBytes(file, 15376, "01 00 00 00 01 00 00 00 FB FF FF FF");
    ExpectBytes(file, 15388, "02 00 00 00 02 00 00 00 01 02 00 00 00 00 00 00");
    ExpectBytes(file, 15404, "03 00 00 00 03 00 00 00 00 00 20 40");
    ExpectBytes(file, 15416, "04 00 00 00 04 00 00 00 00 00 00 00 00 00 04 C0");
    ExpectBytes(file, 15432, "06 00 00 00 05 00 00 00 00 00 00 00 00 00 10 40"); // the text at 4
    ExpectBytes(file, 15448, "07 00 00 00 06 00 00 00 04 00 00 00 00 00 00 00");
    ExpectBytes(file, 15464, "01 00 00 00 07 00 00 00 07 00 00 00");
    ExpectBytes(file, 15476, "0B 00 00 00 69 6E 20 74 68 65 20 70 6F 6F 6C 00"); // in the pool
    EXPECT_EQ(file.size(), 15492U);
}

TEST(GoldenFiles, TheSpacesHaveTheirBytes)
{
    rfm_Database database = OpenGolden("space.rdx");
    EXPECT_THAT(HandlesOf(database), ElementsAre(1U, 2U, 3U, 4U, 5U, 6U));
    EXPECT_EQ(Content(database.Space(rfm_Handle(4), -1)), "0123456789abcdefghij");
    EXPECT_EQ(Content(database.Space(rfm_Handle(5), -1)), "between");
    EXPECT_EQ(Content(database.Space(rfm_Handle(6), -1)), "");
    EXPECT_EQ(database.Space(rfm_Handle(4), -1).Allocation(), 32);
    EXPECT_EQ(database.Space(rfm_Handle(5), -1).Allocation(), 8);
}

TEST(GoldenFiles, SpacesHaveTheBytesOfTheirPicture)
{
    const std::string file = BytesOf(PathOf("space.rdx"));
    ASSERT_EQ(file.size(), 15408U);
    ExpectBytes(file, 504, "00 00 00 00 00 18 CE 40"); // 15408
    ExpectBytes(file, 1136,
                "00 00 00 00 00 00 30 40 00 00 00 00 00 00 30 40"); // entry 4: 16 bytes, 16 in use
    ExpectBytes(file, 1152, "00 00 00 00 00 04 CE 40 07 00 00 00"); // at 15368, on in entry 7
    ExpectBytes(file, 1164, "00 00 00 00 00 00 20 40 00 00 00 00 00 00 1C 40"); // entry 5: 8 bytes, 7 in use
    ExpectBytes(file, 1192, "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"); // entry 6: no room,
    ExpectBytes(file, 1208, "00 00 00 00 00 00 F0 3F 00 00 00 00");             // a handle alone
    ExpectBytes(file, 1220, "00 00 00 00 00 00 30 40 00 00 00 00 00 00 10 40"); // entry 7: 16 bytes, 4 in use
    ExpectBytes(file, 1236, "00 00 00 00 00 10 CE 40 00 00 00 00");             // at 15392
    EXPECT_EQ(file.substr(15368, 16), "0123456789abcdef");
    EXPECT_EQ(file.substr(15384, 8), std::string("between\0", 8));
    EXPECT_EQ(file.substr(15392, 16), "ghij" + std::string(12, '\0'));
}

TEST(GoldenFiles, TheTextsAreAllThere)
{
    rfm_Database database = OpenGolden("strings.rdx");
    const std::vector<cow_String> texts = AllElements(database.ArrayString(rfm_Handle(4), -1, 0));
    ASSERT_EQ(texts.size(), static_cast<std::size_t>(kGoldenTextCount));
    for (int i = 0; i < kGoldenTextCount; ++i)
        EXPECT_EQ(texts[static_cast<std::size_t>(i)].View(), GoldenText(i)) << "text " << i;
}

// The pool goes on at 15456, so its place 4 is there.
TEST(GoldenFiles, TheTextsLieOneBehindTheOther)
{
    const std::string file = BytesOf(PathOf("strings.rdx"));
    ExpectBytes(file, 15384,
                "00 00 00 00 00 00 10 40 00 00 00 00 00 00 20 40"); // at 4 the empty one, at 8 "a"
    ExpectBytes(file, 15456, "00 00 00 00");
    ExpectBytes(file, 15460, "01 00 00 00 61 00 00 00");
    ExpectBytes(file, 15468, "03 00 00 00 62 63 64 00");
    ExpectBytes(file, 15476, "04 00 00 00 65 66 67 68");
    ExpectBytes(file, 15484, "05 00 00 00 69 6A 6B 6C 6D 00 00 00");
    ExpectBytes(file, 15496, "03 00 00 00 6E 00 70 00");
    ExpectBytes(file, 15504, "02 00 00 00 E4 FF 00 00");
    ExpectBytes(file, 15512, "FF 00 00 00 71");    // 255 and a byte of padding
    ExpectBytes(file, 15771, "00 01 08 00 00 72"); // 2049
    ExpectBytes(file, 17824, "72 00 00 00");
    EXPECT_EQ(file.size(), 17828U);
}

TEST(GoldenFiles, TheLayoutsAreAllThere)
{
    rfm_Database database = OpenGolden("layouts.rdx");
    database.Bind();
    std::vector<std::string> names;
    for (const cow_String& name : database.GetTableMetadataNames()) names.emplace_back(name.View());
    EXPECT_THAT(names, ElementsAre("alone", "more", "one", "word"));
    ExpectLastField(database, 4, "one", 1);
    ExpectLastField(database, 5, "word", 32);
    ExpectLastField(database, 6, "more", 33);
    const rfm_TableMetadata& alone = database.GetTableMetadata("alone");
    EXPECT_EQ(alone.GetFieldMD("a").type, rfm_TypeHandle);
    EXPECT_EQ(alone.GetFieldMD("b").type, rfm_TypeDouble);
    EXPECT_EQ(alone.Fields().Count(), 2);
}

// Records of 24, 396, 408 and 36 bytes behind the mark, so at 4, 28, 424 and 832 of the pool.
TEST(GoldenFiles, ThirtyThreeFieldsTakeASecondPresenceWord)
{
    const std::string file = BytesOf(PathOf("layouts.rdx"));
    ExpectBytes(file, 15368, "BE BB AF AA 01 00 00 00 04 00 00 00 01 00 00 00 01 00 00 00");
    ExpectBytes(file, 15388,
                "BE BB AF AA 01 00 00 00 1C 00 00 00 00 00 00 80"); // 132 bytes a row: up to 15532
    ExpectBytes(file, 15528, "20 00 00 00");
    ExpectBytes(file, 15532,
                "BE BB AF AA 01 00 00 00 A8 01 00 00 00 00 00 00 01 00 00 00"); // 140: up to 15684
    ExpectBytes(file, 15680, "21 00 00 00");
    ExpectBytes(file, 15684, "18 00 00 00 00 00 00 00 00 00 10 40 01 00 00 00");
    ExpectBytes(file, 15708, "8C 01 00 00"); // 12 + 12 * 32
    ExpectBytes(file, 16104, "98 01 00 00"); // 12 + 12 * 33
    ExpectBytes(file, 16512, "24 00 00 00"); // 12 + 12 * 2
    ExpectBytes(file, 16524, "02 00 00 00"); // a, a handle
    ExpectBytes(file, 16536, "04 00 00 00"); // b, a double
}

// ---- compressed.rdx: four segments, the streams of three in two sectors each ----

TEST(GoldenFiles, TheCompressedFileHasTheRowsOfTheTables)
{
    ExpectRowsOfTheTables(OpenGolden(kCompressedGoldenName));
}

TEST(GoldenFiles, TheCompressedFileHoldsTheBytesOfThePlainOne)
{
    const rfm_File file = rfm_File::Open(PathOf(kCompressedGoldenName), utl_FileAccessRead);
    std::string expected = BytesOf(PathOf("table.rdx"));
    expected.replace(500, 12, std::string(12, '\0')); // no size stamp: the file's size says nothing
    ASSERT_EQ(file.Repr().Length(), 15676);
    std::string bytes(15676, '?');
    file.Repr().Seek(0);
    ASSERT_EQ(file.Repr().Read(bytes.data(), 15676), 15676);
    EXPECT_TRUE(bytes == expected);
}

TEST(GoldenFiles, TheCompressedFileIsWhatTheLibraryWritesToday)
{
    const TestFolder folder;
    WriteCompressedGolden(folder.Path("today.rdx"));
    EXPECT_TRUE(BytesOf(folder.Path("today.rdx")) == BytesOf(PathOf(kCompressedGoldenName)));
}

TEST(GoldenFiles, TheFirstSectorOfACompressedFileHasTheBytesOfItsPicture)
{
    const std::string file = BytesOf(PathOf(kCompressedGoldenName));
    ASSERT_EQ(file.size(), 8 * 4096U);
    ExpectBytes(file, 0, "4D 52 4B 54 53 41 30 30");              // MRKTSA00
    ExpectBytes(file, 8, "01 00 00 00 14 00 00 00 04 00 00 00");  // version 1, 20 bytes from 20 on, 4 cells
    ExpectBytes(file, 20, "A5 C1 41 61 01 00 00 00 00 10 00 00"); // version 1, segments of 4096 bytes
    ExpectBytes(file, 32, "04 00 00 00 3C 0D 00 00");             // 4 segments, 3388 bytes in the last
    ExpectBytes(file, 40, "01 00 00 00 03 00 00 00 05 00 00 00 07 00 00 00"); // where their streams begin
    EXPECT_EQ(file.substr(56, 4036), std::string(4036, '\0'));
    ExpectBytes(file, 4092, "FF FF FF FF"); // no more cells
}

// 4096 bytes, 11 around them and 4 of the length are 4111: 19 more than the first sector has room for.
TEST(GoldenFiles, AStoredStreamOfTwoSectorsHasTheBytesOfItsPicture)
{
    const std::string file = BytesOf(PathOf(kCompressedGoldenName));
    ExpectBytes(file, 4096, "0F 10 00 00");                         // 4111
    ExpectBytes(file, 4100, "78 01 01 00 10 FF EF");                // one stored block of 4096 bytes
    ExpectBytes(file, 4107, "54 56 4E 52 47 4F 4C 44 0C 00 00 00"); // TVNRGOLD, version 12
    ExpectBytes(file, 8188, "02 00 00 00");                         // goes on in sector 2
    EXPECT_EQ(file.substr(8192, 15), std::string(15, '\0'));        // the last bytes of the segment
    EXPECT_NE(file.substr(8207, 4), std::string(4, '\0'));          // their sum
    EXPECT_EQ(file.substr(8211, 4073), std::string(4073, '\0'));    // not in use
    ExpectBytes(file, 12284, "FF FF FF FF");                        // and the end
}

TEST(GoldenFiles, TheLastSegmentIsAsLongAsTheHeaderSays)
{
    const std::string file = BytesOf(PathOf(kCompressedGoldenName));
    const std::string plain = BytesOf(PathOf("table.rdx"));
    ExpectBytes(file, 28672, "4B 0D 00 00 78 01 01 3C 0D C3 F2"); // 3403 with itself; a block of 3388 bytes
    EXPECT_TRUE(file.substr(28683, 3388) == plain.substr(12288));
    EXPECT_EQ(file.substr(32075, 689), std::string(689, '\0'));
    ExpectBytes(file, 32764, "FF FF FF FF");
}
