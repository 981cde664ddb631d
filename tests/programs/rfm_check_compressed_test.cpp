// `rfm check` on compressed files: sectors, directory and streams, each damaged by hand.
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <zlib.h>

namespace
{
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int kSector = 4096;
constexpr const char* kRecover = "; the library refuses the file; `rfm recover` may read it all the same\n";
constexpr const char* kSegmentLost =
    "; the bytes of this segment can't be read; restore the file from a copy\n";
constexpr const char* kTailLost =
    "; what is behind it is out of reach; if the segment can't be read, restore "
    "the file from a copy\n";

class RfmCheckCompressed : public testing::Test
{
protected:
    RfmCheckCompressed() { MakeSmall(); }

    // One segment in one sector: 8192 bytes.
    void MakeSmall()
    {
        MakeSample(m_Plain);
        Convert();
    }
    // 131072 numbers that don't compress in a space behind a small one: segment 0 is small, the others take many sectors.
    void MakeLarge()
    {
        {
            rfm_Database database = CreateDatabase(m_Plain);
            auto small = database.ArrayInt(1, -1, 0);
            const int one = 1;
            small.Write(&one, 1);
            small.Flush();
            auto numbers = database.ArrayInt(1, 1 << 16, 0);
            std::vector<int> values(131072);
            std::uint32_t state = 1;
            for (int& value : values) value = static_cast<int>(state = state * 1664525U + 1013904223U);
            numbers.Write(values.data(), static_cast<int>(values.size()));
            numbers.Flush();
            database.Close();
        }
        Convert();
    }
    void Convert() const
    {
        ASSERT_EQ(Tool::Run({"convert", m_Plain, m_File, "--to", "compressed", "-f"}).code, 0);
    }
    std::int64_t Size() const { return static_cast<std::int64_t>(std::filesystem::file_size(m_File)); }
    std::int64_t Cell(int segment) const
    {
        return NumberAt<std::uint32_t>(m_File, 40 + 4 * std::int64_t{segment});
    }
    std::int64_t Link(std::int64_t sector) const { return sector * kSector + 4092; }
    std::int64_t Next(std::int64_t sector) const { return NumberAt<std::uint32_t>(m_File, Link(sector)); }
    static std::string InFile(std::int64_t offset) { return "file, offset " + std::to_string(offset) + ": "; }
    static std::string In(int segment, std::int64_t offset)
    {
        return "segment " + std::to_string(segment) + ", offset " + std::to_string(offset) + ": ";
    }
    // The lines in front of the two of the summary; nothing may have been written.
    std::string Damages() const
    {
        const std::string before = ReadFile(m_File);
        const ToolResult result = Tool::Run({"check", m_File});
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(ReadFile(m_File), before);
        const std::size_t summary = result.out.find("compressed: ");
        EXPECT_NE(summary, std::string::npos) << result.out;
        return result.out.substr(0, summary);
    }

    TestFolder m_Folder;
    std::string m_Plain = m_Folder / "plain.rdx";
    std::string m_File = m_Folder / "c.sdx";
};

TEST_F(RfmCheckCompressed, ASoundFileTellsWhatItIsMadeOf)
{
    const std::int64_t stream = NumberAt<std::uint32_t>(m_File, kSector); // its length word counts itself
    ASSERT_EQ(Size(), 2 * kSector);
    // The header, one cell and the link; the stream and its link.
    const std::int64_t live = 44 + 4 + stream + 4;
    const ToolResult result = Tool::Run({"check", m_File});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, StartsWith("compressed: 8192 bytes in 2 sectors and 1 segment; live " +
                                       std::to_string(live) + " ("));
    EXPECT_THAT(result.out, HasSubstr("%), surplus " + std::to_string(8192 - live) + " ("));
    EXPECT_THAT(result.out,
                EndsWith("%), lost 0 (0.0 %)\nsound: 15872 bytes, 6 objects, 1 layout, 11 texts\n"));
    EXPECT_THAT(
        Tool::Run({"check", m_File, "--json"}).out,
        EndsWith(
            ",\"walked\":true,\"compressed\":{\"sectors\":2,\"segments\":1,\"segmentsDamaged\":0,\"live\":" +
            std::to_string(live) + ",\"surplus\":" + std::to_string(8192 - live) + ",\"lost\":0}}\n"));
}

TEST_F(RfmCheckCompressed, SectorsThatNoChainReachesAreLostAndNoDamage)
{
    std::filesystem::resize_file(m_File, 8192 + 3 * kSector + 100);
    const ToolResult result = Tool::Run({"check", m_File});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, StartsWith("compressed: 20580 bytes in 5 sectors and 1 segment; "));
    EXPECT_THAT(result.out, HasSubstr(", lost 12388 (60.2 %)\n"));
}

TEST_F(RfmCheckCompressed, SectorsThatAStreamDoesNotReachAreSurplus)
{
    std::filesystem::resize_file(m_File, 8192 + kSector);
    Overwrite<std::uint32_t>(m_File, Link(1), 2);
    Overwrite<std::uint32_t>(m_File, Link(2), 0xFFFFFFFF);
    const std::int64_t live = 44 + 4 + NumberAt<std::uint32_t>(m_File, kSector) + 4;
    const ToolResult result = Tool::Run({"check", m_File});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, HasSubstr(", surplus " + std::to_string(3 * kSector - live) + " ("));
    EXPECT_THAT(result.out, HasSubstr(", lost 0 ("));
}

TEST_F(RfmCheckCompressed, EachFieldOfTheHeaderIsJudged)
{
    const struct
    {
        int offset;
        std::uint32_t value;
        std::string line;
    } fields[] = {
        {4, 0x31304153, InFile(0) + "magic: found MRKTSA01, expected MRKTSA00"}, // "SA01"
        {8, 2, InFile(8) + "version: found 2, expected 1"},
        {12, 24, InFile(12) + "length of the user header: found 24, expected 20"},
        {16, 2000,
         InFile(16) +
             "number of cells: found 2000, expected at most 1013, as many as the directory has room for"},
        {20, 7, InFile(20) + "magic of the segments: found 0x00000007, expected 0x6141C1A5"},
        {24, 2, InFile(24) + "version of the segments: found 2, expected 1"},
        {28, 0,
         InFile(28) +
             "size, number and last length of the segments: found 0, 1 and 15872, expected a size of 1 "
             "to 1073741824, a last length of at most that, and 2^53 bytes in all at most"},
        {36, 65537,
         InFile(28) +
             "size, number and last length of the segments: found 65536, 1 and 65537, expected a "
             "size of 1 to 1073741824, a last length of at most that, and 2^53 bytes in all at most"},
    };
    for (const auto& field : fields)
    {
        Convert();
        Overwrite<std::uint32_t>(m_File, field.offset, field.value);
        EXPECT_EQ(Damages(), field.line + kRecover) << field.offset;
    }
}

TEST_F(RfmCheckCompressed, AFileShorterThanASectorIsCutOff)
{
    for (const std::uintmax_t size : {6U, 20U, 4095U})
    {
        std::filesystem::resize_file(m_File, size);
        EXPECT_EQ(Damages(), InFile(static_cast<std::int64_t>(size)) + "first sector: found " +
                                 std::to_string(size) +
                                 " bytes, expected 4096 bytes; the file was cut off; copy it again\n");
        Convert();
    }
}

TEST_F(RfmCheckCompressed, ACellOutsideTheFileOrInTheDirectoryIsTold)
{
    Overwrite<std::uint32_t>(m_File, 40, 2);
    EXPECT_THAT(Damages(), StartsWith(In(0, 40) +
                                      "sector of the stream: found 2, expected a sector of the file, "
                                      "which has 2" +
                                      kTailLost));
}

TEST_F(RfmCheckCompressed, ALengthOutsideItsChainIsTold)
{
    for (const std::uint32_t length : {0U, 3U, 4093U, 0xFFFFFFFFU})
    {
        Convert();
        Overwrite<std::uint32_t>(m_File, kSector, length);
        EXPECT_EQ(Damages(), In(0, kSector) + "length of the stream: found " + std::to_string(length) +
                                 ", expected 4 to 4092, the room in its sectors" + kSegmentLost);
    }
}

TEST_F(RfmCheckCompressed, AStreamThatDoesNotInflateIsToldWithTheReason)
{
    const std::int64_t length = NumberAt<std::uint32_t>(m_File, kSector);
    Overwrite<char>(m_File, kSector + length - 1, 'x'); // its check value
    EXPECT_EQ(Damages(),
              In(0, kSector + 4) +
                  "stream: found incorrect data check, expected a zlib stream of at most 65536 bytes" +
                  kSegmentLost);
    Convert();
    Overwrite<std::uint32_t>(m_File, kSector, static_cast<std::uint32_t>(length - 1));
    EXPECT_THAT(Damages(), StartsWith(In(0, kSector + 4) + "stream: found no end after "));
    Convert();
    Overwrite<std::uint32_t>(m_File, kSector, 4);
    EXPECT_THAT(Damages(), StartsWith(In(0, kSector + 4) + "stream: found no end after 0 bytes"));
}

TEST_F(RfmCheckCompressed, AStreamOfMoreThanItsSegmentIsTold)
{
    std::vector<unsigned char> zeros(1 << 21);
    std::vector<unsigned char> packed(4088);
    uLongf size = packed.size();
    ASSERT_EQ(::compress2(packed.data(), &size, zeros.data(), zeros.size(), 9), Z_OK);
    std::string file = ReadFile(m_File);
    std::memcpy(file.data() + kSector + 4, packed.data(), size);
    WriteFile(m_File, file);
    Overwrite<std::uint32_t>(m_File, kSector, static_cast<std::uint32_t>(size + 4));
    EXPECT_EQ(Damages(),
              In(0, kSector + 4) +
                  "stream: found more than 65536 bytes, expected a zlib stream of at most 65536 bytes" +
                  kSegmentLost);
}

TEST_F(RfmCheckCompressed, ALoopACrossLinkAndALinkOutOfTheFileEndAChain)
{
    MakeLarge();
    const std::int64_t first = Cell(2);
    const std::int64_t second = Next(first);
    ASSERT_NE(second, 0xFFFFFFFF);
    const std::int64_t other = Cell(1);
    Overwrite<std::uint32_t>(m_File, Link(second), static_cast<std::uint32_t>(first));
    EXPECT_THAT(Damages(),
                HasSubstr(In(2, Link(second)) + "sector of the stream: found " + std::to_string(first) +
                          ", expected a chain with an end: this is a loop" + kTailLost));
    Overwrite<std::uint32_t>(m_File, Link(second), static_cast<std::uint32_t>(other));
    EXPECT_THAT(Damages(),
                HasSubstr(In(2, Link(second)) + "sector of the stream: found " + std::to_string(other) +
                          ", expected a sector of its own: that one is in the chain of segment 1" +
                          kTailLost));
    const std::int64_t sectors = Size() / kSector;
    Overwrite<std::uint32_t>(m_File, Link(second), static_cast<std::uint32_t>(sectors));
    EXPECT_THAT(Damages(), HasSubstr(In(2, Link(second)) + "sector of the stream: found " +
                                     std::to_string(sectors) + ", expected a sector of the file, which has " +
                                     std::to_string(sectors) + kTailLost));
}

TEST_F(RfmCheckCompressed, AHurtSegmentIsToldOfWithTheObjectInItAndTheOthersAreWalked)
{
    MakeLarge();
    Overwrite<std::uint32_t>(m_File, Cell(3) * kSector, 3);
    const std::string damages = Damages();
    EXPECT_THAT(damages,
                StartsWith(In(3, Cell(3) * kSector) + "length of the stream: found 3, expected 4 to "));
    EXPECT_THAT(
        damages,
        EndsWith("content of an extent: found segment 3, which can't be read, expected bytes that can "
                 "be read; the object can't be read from here on; restore the file from a copy\n"));
    EXPECT_THAT(damages, HasSubstr("\nhandle 5, offset "));
    EXPECT_THAT(damages, Not(HasSubstr("handle 4,")));
    const std::string json = Tool::Run({"check", m_File, "--json"}).out;
    EXPECT_THAT(
        json, HasSubstr("{\"handle\":0,\"segment\":3,\"offset\":" + std::to_string(Cell(3) * kSector) + ","));
    EXPECT_THAT(json, HasSubstr("\"segmentsDamaged\":1,"));
}

TEST_F(RfmCheckCompressed, WhereTheLinkageTableIsHurtTheWalkOfTheDatabaseEnds)
{
    Overwrite<std::uint32_t>(m_File, kSector, 3);
    const ToolResult result = Tool::Run({"check", m_File});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, HasSubstr("\nthe database in it could not be walked to its end\n1 damage: "));
}

TEST_F(RfmCheckCompressed, DamageOfTheDatabaseInASoundFileIsToldAsInAPlainOne)
{
    Overwrite<double>(m_Plain, ExtentOfEntry(m_Plain, 7) + 16, 6);
    const std::string expected = Tool::Run({"check", m_Plain}).out;
    Convert();
    EXPECT_EQ(Damages(), expected.substr(0, expected.find('\n') + 1));
}

TEST_F(RfmCheckCompressed, BytesAtRandomNeverBreakTheTool)
{
    MakeLarge();
    const std::string sound = ReadFile(m_File);
    std::uint32_t state = 12345;
    const auto random = [&](std::size_t below)
    {
        state = state * 1664525U + 1013904223U;
        return (state >> 8U) % below;
    };
    for (int round = 0; round < 40; ++round)
    {
        std::string bytes = sound;
        for (int i = 0; i < 4; ++i)
            bytes[random(round % 2 == 0 ? 64 : bytes.size())] = static_cast<char>(random(256));
        for (int i = 0; i < 4; ++i)
            bytes[random(bytes.size() / kSector) * kSector + 4092] = static_cast<char>(random(256));
        if (!std::string_view(bytes).starts_with("MRKTSA")) bytes.replace(0, 6, "MRKTSA");
        WriteFile(m_File, bytes);
        const ToolResult result = Tool::Run({"check", m_File});
        EXPECT_TRUE(result.code == 0 || result.code == 1 || result.code == 4) << round << result.err;
        EXPECT_THAT(result.err, Not(HasSubstr("AddressSanitizer"))) << round;
    }
}
} // namespace
