// `rfm check`: each structure damaged by hand, and the line that tells of it.
#include "SampleDatabase.h"
#include "ToolRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>

namespace
{
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kRestore = "; the library refuses the file; restore it from a copy\n";
constexpr const char* kObjectLost = "; the object can't be read from here on; restore the file from a copy\n";
constexpr const char* kCantOpen = "; the object can't be opened; restore the file from a copy\n";
constexpr const char* kTextsLost = "; texts from here on are out of reach; restore the file from a copy\n";
constexpr const char* kNoName = "; the tables of this layout can't be opened; restore the file from a copy\n";
constexpr const char* kWriteAgain = "; write the value again; everything else can be read\n";
constexpr const char* kFlushFirst =
    "; what is missing reads as zero; the writer must flush the object before the database\n";
constexpr const char* kStreamEnds = "; items from here on are out of reach; write the stream again\n";
constexpr const char* kHarmless = "; readers ignore it; nothing is lost\n";

class RfmCheck : public testing::Test
{
protected:
    RfmCheck() { MakeSample(m_File); }

    std::int64_t Extent(int handle) const { return ExtentOfEntry(m_File, handle); }
    // Where the link of the last entry of a chain stands; it is 0.
    std::int64_t LastLink(int handle) const
    {
        const std::string file = ReadFile(m_File);
        for (std::uint32_t step = static_cast<std::uint32_t>(handle);;)
        {
            const std::int64_t link = EntryPlace(static_cast<int>(step)) + 24;
            std::memcpy(&step, file.data() + link, sizeof step);
            if (step == 0) return link;
        }
    }
    // The damages that a check tells, without the summary; nothing may have been written.
    std::string Damages()
    {
        const std::string before = ReadFile(m_File);
        const ToolResult result = Tool::Run({"check", m_File});
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(ReadFile(m_File), before);
        const std::size_t summary = result.out.rfind('\n', result.out.size() - 2) + 1;
        EXPECT_THAT(result.out.substr(summary), HasSubstr("damage"));
        return result.out.substr(0, summary);
    }
    static std::string At(int handle, std::int64_t offset)
    {
        return "handle " + std::to_string(handle) + ", offset " + std::to_string(offset) + ": ";
    }
    static std::string InFile(std::int64_t offset) { return "file, offset " + std::to_string(offset) + ": "; }
    static std::string Text(std::int64_t number) { return std::to_string(number); }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
};

TEST_F(RfmCheck, ASoundFileIsExitZeroAndOneLine)
{
    const ToolResult result = Tool::Run({"check", m_File});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "sound: 15872 bytes, 6 objects, 1 layout, 11 texts\n");
}

TEST_F(RfmCheck, GapsBetweenExtentsAndUnusedTailsAreNoDamage)
{
    Overwrite<double>(m_File, EntryPlace(9), 0); // the space gives its extent up: a gap
    Overwrite<double>(m_File, EntryPlace(9) + 8, 0);
    Overwrite<double>(m_File, EntryPlace(9) + 16, 1);
    Overwrite<double>(m_File, EntryPlace(5) + 8, 12);
    EXPECT_EQ(Tool::Run({"check", m_File}).code, 0);
}

TEST_F(RfmCheck, TheHeaderIsJudged)
{
    Overwrite<int>(m_File, 8, 10);
    Overwrite<double>(m_File, 504, 15871);
    EXPECT_EQ(Damages(),
              InFile(8) + "version: found 10, expected 11 or 12" + kRestore + InFile(500) +
                  "size stamp: found 15871, expected 15872, the size of the file; the file was cut off, or "
                  "altered by a transfer as text; copy it again, as binary\n");
}

TEST_F(RfmCheck, AStampOfNothingPasses)
{
    Overwrite<double>(m_File, 504, 0);
    EXPECT_EQ(Tool::Run({"check", m_File}).code, 0);
}

TEST_F(RfmCheck, AFileThatWasCutOffIsToldOfByHeaderBlocksAndExtents)
{
    std::filesystem::resize_file(m_File, 700);
    const std::string damages = Damages();
    EXPECT_THAT(damages, StartsWith(InFile(700) +
                                    "header: found 700 bytes, expected 1024 bytes; the file was cut off"));
    EXPECT_THAT(damages, HasSubstr(InFile(1024) + "linkage block: found 0 bytes, expected 14336 bytes"));
}

TEST_F(RfmCheck, ACutThroughTheLastExtentKeepsTheOthers)
{
    const std::int64_t end = Extent(9) + 24;
    std::filesystem::resize_file(m_File, static_cast<std::uintmax_t>(end - 1));
    const std::string damages = Damages();
    EXPECT_THAT(damages, HasSubstr(At(9, EntryPlace(9)) + "end of an extent: found " + Text(end) +
                                   ", expected at most " + Text(end - 1) + ", the size of the file"));
    EXPECT_THAT(damages, Not(HasSubstr("handle 4,")));
}

TEST_F(RfmCheck, ALoopOfLinkageBlocksIsCut)
{
    Overwrite<double>(m_File, EntryPlace(0) + 16, 1024);
    EXPECT_EQ(Damages(),
              InFile(1024) + "handle of the next linkage block: found 0, expected 512" + kHarmless +
                  InFile(1024) +
                  "place of the next linkage block: found 1024, expected a place that no other linkage "
                  "block has" +
                  kRestore);
}

TEST_F(RfmCheck, ALinkageBlockOutsideTheFileAndRoomInItsFirstEntryAreTold)
{
    Overwrite<double>(m_File, EntryPlace(0), 3);
    Overwrite<double>(m_File, EntryPlace(0) + 16, 1e9);
    Overwrite<int>(m_File, EntryPlace(0) + 24, 512);
    EXPECT_EQ(Damages(),
              InFile(1024) + "room of a linkage block's first entry: found 3 and 0, expected 0 and 0" +
                  kHarmless + InFile(1024) +
                  "place of the next linkage block: found 1000000000, expected 0, or 1024 to 1536" +
                  kRestore);
}

TEST_F(RfmCheck, NumbersThatNoWriterStoresAreToldWithTheirEntry)
{
    const std::int64_t place = Extent(6);
    for (const double number : {-1.0, 1e300, std::numeric_limits<double>::quiet_NaN()})
    {
        Overwrite<double>(m_File, EntryPlace(6) + 8, number);
        const std::string words = number < 0 ? "-1" : number > 0 ? "1e+300" : "nan";
        EXPECT_EQ(Damages(), At(6, EntryPlace(6)) + "numbers of a linkage entry: found 64, " + words +
                                 " and " + Text(place) + ", expected numbers from 0 to 2^53" + kRestore);
    }
}

TEST_F(RfmCheck, AnEntryInUseBehindTheFirstFreeOneIsTold)
{
    Overwrite<double>(m_File, EntryPlace(20) + 16, 15360);
    EXPECT_EQ(Damages(),
              At(20, EntryPlace(20)) +
                  "place of an extent: found 15360, expected 0, as of every entry behind the first free "
                  "one; readers don't see it; restore the file from a copy\n");
}

TEST_F(RfmCheck, ChainsThatLeaveTheTableOrLoopAreCut)
{
    const std::string link = "entry that goes on with the object: found ";
    const std::string shared =
        ", expected an entry to which no other leads: this is a loop, or two objects share it";
    Overwrite<std::uint32_t>(m_File, EntryPlace(6) + 24, 700);
    EXPECT_EQ(Damages(), At(6, EntryPlace(6)) + link + "700, expected 0, or an entry in use" + kObjectLost);
    Overwrite<std::uint32_t>(m_File, EntryPlace(6) + 24, 6);
    EXPECT_EQ(Damages(), At(6, EntryPlace(6)) + link + "6" + shared + kObjectLost);
    Overwrite<std::uint32_t>(m_File, EntryPlace(6) + 24, 9);
    Overwrite<std::uint32_t>(m_File, EntryPlace(7) + 24, 9);
    EXPECT_THAT(Damages(), HasSubstr(At(7, EntryPlace(7)) + link + "9" + shared + kObjectLost));
}

TEST_F(RfmCheck, ALoopWithoutABeginningIsToldOnce)
{
    Overwrite<std::uint32_t>(m_File, EntryPlace(8) + 24, 9);
    Overwrite<std::uint32_t>(m_File, EntryPlace(9) + 24, 8);
    EXPECT_EQ(Damages(),
              At(8, EntryPlace(8)) +
                  "chain of entries: found a loop without a beginning, expected a chain with an end" +
                  kObjectLost);
}

// Both pools are looked into whatever leads to them, so a loop through one must end the walk.
TEST_F(RfmCheck, APoolWhoseChainComesBackToItIsToldOnce)
{
    for (const int pool : {1, 3})
    {
        MakeSample(m_File);
        Overwrite<std::uint32_t>(m_File, LastLink(pool), static_cast<std::uint32_t>(pool));
        const std::string loop =
            At(pool, EntryPlace(pool)) +
            "chain of entries: found a loop without a beginning, expected a chain with an end" + kObjectLost;
        EXPECT_THAT(Damages(), StartsWith(loop));
    }
}

TEST_F(RfmCheck, ExtentsOverEachOtherAreToldWithBothAndNotLookedInto)
{
    const std::int64_t six = Extent(6);
    Overwrite<double>(m_File, EntryPlace(7) + 16, static_cast<double>(six + 8));
    EXPECT_EQ(Damages(),
              At(7, EntryPlace(7)) + "extent: found " + Text(six + 8) + " to " + Text(six + 40) +
                  ", expected no byte of " + Text(six) + " to " + Text(six + 64) +
                  ", which belongs to entry 6; neither is sure to be right, so neither is looked into; "
                  "restore the file from a copy\n");
}

TEST_F(RfmCheck, ExtentsOverALinkageBlockInTheHeaderOrOutsideAreTold)
{
    Overwrite<double>(m_File, EntryPlace(9) + 16, 2000);
    EXPECT_THAT(Damages(),
                HasSubstr(At(9, EntryPlace(9)) + "extent: found 2000 to 2024, expected no byte of 1024 to "
                                                 "15360, which belongs to the library's own blocks; "));
    Overwrite<double>(m_File, EntryPlace(9) + 16, 512);
    EXPECT_EQ(Damages(), At(9, EntryPlace(9)) +
                             "place of an extent: found 512, expected 1, or at least 1024" + kObjectLost);
    Overwrite<double>(m_File, EntryPlace(9) + 16, 1e9);
    EXPECT_EQ(Damages(),
              At(9, EntryPlace(9)) +
                  "end of an extent: found 1000000024, expected at most 15872, the size of the file" +
                  kObjectLost);
}

TEST_F(RfmCheck, AnExtentThatUsesMoreThanItReservesIsTold)
{
    Overwrite<double>(m_File, EntryPlace(9) + 8, 25);
    EXPECT_EQ(Damages(), At(9, EntryPlace(9)) +
                             "length of an extent: found 25, expected at most the 24 that it reserves" +
                             kObjectLost);
}

TEST_F(RfmCheck, AnEntryWithoutAnExtentHasNoRoom)
{
    Overwrite<double>(m_File, EntryPlace(2), 4);
    EXPECT_EQ(Damages(), At(2, EntryPlace(2)) +
                             "room of an entry without an extent: found 4 and 0, expected 0 and 0" +
                             kObjectLost);
}

TEST_F(RfmCheck, ThePoolOfStringsIsWalked)
{
    const std::int64_t start = Extent(1);
    Overwrite<std::uint32_t>(m_File, start, 0x12345678);
    EXPECT_THAT(Damages(),
                StartsWith(At(1, start) +
                           "mark of the pool of strings: found 0x12345678, expected 0xAAFFBBEE" + kRestore));
}

TEST_F(RfmCheck, ATextThatRunsPastThePoolIsToldAndHidesThoseBehindIt)
{
    const std::int64_t rest =
        ExtentOfEntry(m_File, static_cast<int>(NumberAt<std::uint32_t>(m_File, EntryPlace(1) + 24)));
    Overwrite<int>(m_File, rest, 97); // the first text: 104 - 4 - 4 = 96 bytes are left for it
    EXPECT_EQ(Damages(), At(1, rest) + "length of a text: found 97, expected 0 to 96" + kTextsLost);
    Overwrite<int>(m_File, rest, -1);
    EXPECT_EQ(Damages(), At(1, rest) + "length of a text: found -1, expected 0 to 96" + kTextsLost);
}

TEST_F(RfmCheck, ThePoolOfLayoutsIsWalked)
{
    const std::int64_t record =
        ExtentOfEntry(m_File, static_cast<int>(NumberAt<std::uint32_t>(m_File, EntryPlace(3) + 24)));
    const std::string sound = ReadFile(m_File);
    const auto again = [&] { WriteFile(m_File, sound); };
    Overwrite<int>(m_File, record, 71);
    EXPECT_EQ(
        Damages(),
        At(3, record) +
            "length of a layout: found 71, expected 12 and 12 for each field, at most 72; tables of the "
            "layouts from here on can't be opened; restore the file from a copy\n");
    again();
    Overwrite<double>(m_File, record + 4, 6);
    EXPECT_EQ(Damages(),
              At(3, record + 4) +
                  "name of a layout: found a reference to 6, expected the place of a text in the pool of "
                  "strings" +
                  kNoName);
    again();
    Overwrite<int>(m_File, record + 12, 5);
    EXPECT_EQ(Damages(), At(3, record + 12) +
                             "type of a field of \"NODES\": found 5, expected 1, 2, 3, 4 or 6" + kNoName);
    again();
    Overwrite<double>(m_File, record + 16, 40); // id becomes weight, which is behind link
    EXPECT_EQ(Damages(),
              At(3, record + 28) +
                  "name of a field of \"NODES\": found \"link\", expected a name behind \"weight\", in "
                  "ascending order" +
                  kNoName);
    again();
    Overwrite<double>(m_File, record + 28, -3);
    EXPECT_THAT(Damages(),
                StartsWith(At(3, record + 28) + "name of a field of \"NODES\": found a reference to -3, "));
    again();
    Overwrite<std::uint32_t>(m_File, Extent(3), 1);
    EXPECT_THAT(Damages(),
                StartsWith(At(3, Extent(3)) +
                           "mark of the pool of layouts: found 0x00000001, expected 0xFAAAEBBB" + kRestore));
}

TEST_F(RfmCheck, ATablesHeaderAndRowsAreWalked)
{
    const std::int64_t table = Extent(4);
    const std::int64_t secondRow = table + 12 + 36;
    Overwrite<int>(m_File, Extent(5) + 8, 400);
    Overwrite<int>(m_File, secondRow, 0xFB & ~4);      // bits beyond the five fields; name stays absent
    Overwrite<double>(m_File, secondRow + 16, 6);      // name, absent: not judged
    Overwrite<double>(m_File, table + 12 + 16, 6);     // name of row 0
    Overwrite<double>(m_File, EntryPlace(4) + 8, 110); // the last row loses ten bytes
    EXPECT_EQ(Damages(),
              At(4, table + 28) +
                  "row 0, field 2: found a reference to 6, expected the place of a text in the pool of "
                  "strings" +
                  kWriteAgain + At(4, secondRow) +
                  "row 1, presence bits: found 0x000000FB, expected none behind those of 5 fields; readers "
                  "ignore them; compare the row with its source, its other bytes may be damaged too\n" +
                  At(4, table + 84) + "last row: found 26 bytes, expected 36 bytes" + kFlushFirst +
                  At(5, Extent(5) + 8) +
                  "layout of the table: found 400, expected the place of a layout in its pool" + kCantOpen);
}

TEST_F(RfmCheck, AHeaderThatIsCutOffIsToldForEveryKind)
{
    Overwrite<double>(m_File, EntryPlace(5) + 8, 8);
    Overwrite<double>(m_File, EntryPlace(6) + 8, 12);
    Overwrite<double>(m_File, EntryPlace(8) + 8, 7);
    EXPECT_EQ(Damages(), At(5, Extent(5)) + "header: found 8 bytes, expected 12 bytes" + kCantOpen +
                             At(6, Extent(6)) + "header: found 12 bytes, expected 16 bytes" + kCantOpen +
                             At(8, Extent(8)) + "header: found 7 bytes, expected 8 bytes" + kCantOpen);
}

TEST_F(RfmCheck, AnArraysHeaderAndStringsAreWalked)
{
    const std::int64_t doubles = Extent(6);
    Overwrite<int>(m_File, doubles + 8, 17);
    Overwrite<int>(m_File, doubles + 12, -2);
    Overwrite<double>(m_File, Extent(7) + 24, 1e9);
    EXPECT_EQ(Damages(),
              At(6, doubles + 8) + "type of the elements: found 17, expected 1, 3, 4 or 6" + kCantOpen +
                  At(6, doubles + 12) +
                  "elements in a row: found -2, expected 1 or more; readers see no rows; restore the file "
                  "from a copy\n" +
                  At(7, Extent(7) + 24) +
                  "row 1, element 0: found a reference to 1000000000, expected the place of a text in the "
                  "pool of strings" +
                  kWriteAgain);
    MakeSample(m_File);
    Overwrite<double>(m_File, EntryPlace(6) + 8, 60);
    EXPECT_EQ(Damages(), At(6, Extent(6) + 48) + "last row: found 12 bytes, expected 16 bytes" + kFlushFirst);
    MakeSample(m_File);
    Overwrite<int>(m_File, Extent(6) + 12, 0);
    EXPECT_THAT(Damages(),
                StartsWith(At(6, Extent(6) + 12) + "elements in a row: found 0, expected 1 or more"));
}

// Items: 8 int (12 bytes), 20 float (12), 32 double (16), 48 handle (16), 64 string (16).
TEST_F(RfmCheck, AStreamsItemsAreWalked)
{
    const std::int64_t stream = Extent(8);
    Overwrite<double>(m_File, stream + 72, 6);
    EXPECT_EQ(Damages(),
              At(8, stream + 72) +
                  "item 4: found a reference to 6, expected the place of a text in the pool of strings" +
                  kWriteAgain);
    Overwrite<int>(m_File, stream + 32, 5);
    EXPECT_EQ(Damages(),
              At(8, stream + 32) + "item 2, type: found 5, expected 1, 2, 3, 4, 6 or 7" + kStreamEnds);
    MakeSample(m_File);
    Overwrite<double>(m_File, EntryPlace(8) + 8, 74);
    EXPECT_EQ(Damages(), At(8, stream + 64) + "item 4: found 10 bytes, expected 16 bytes" + kStreamEnds);
    MakeSample(m_File);
    Overwrite<int>(m_File, stream + 64, 7); // a fixed string, of as many bytes as its first four say
    Overwrite<int>(m_File, stream + 72, 5);
    EXPECT_EQ(Damages(), At(8, stream + 64) + "item 4: found 16 bytes, expected 17 bytes" + kStreamEnds);
    Overwrite<int>(m_File, stream + 72, 4);
    EXPECT_EQ(Tool::Run({"check", m_File}).code, 0);
}

TEST_F(RfmCheck, ASemaphoreThatStandsIsToldWithWhatRemovesIt)
{
    std::filesystem::create_directory(m_Folder / "s.lsm");
    const ToolResult result = Tool::Run({"check", m_File});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err,
              "rfm: " + m_File +
                  ": a writer asks readers to wait; if none runs, `rfm unlock` removes what it left\n");
}

TEST_F(RfmCheck, NTellsHowManyDamagesOfAnObjectAreListed)
{
    for (int row = 0; row < 3; ++row) Overwrite<int>(m_File, Extent(4) + 12 + 36 * row, 0x7FFFFFF1);
    const ToolResult result = Tool::Run({"check", m_File, "-n", "1"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, StartsWith(At(4, Extent(4) + 12) + "row 0, presence bits: found 0x7FFFFFF1"));
    EXPECT_THAT(result.out,
                EndsWith("\nand 2 more; -n N lists more of each object\n3 damages: 15872 bytes, 6 objects, 1 "
                         "layout, 11 texts; `rfm recover " +
                         m_File + " OUT` saves what can still be read\n"));
}

TEST_F(RfmCheck, JsonHasEachDamageAsAnObject)
{
    const std::string head = "{\"rfm\":1,\"command\":\"check\",\"file\":\"" + m_File + "\",";
    const std::string tail =
        "\"bytes\":15872,\"objects\":6,\"extents\":10,\"linkageBlocks\":1,\"layouts\":1,\"texts\":11}\n";
    EXPECT_EQ(Tool::Run({"check", m_File, "--json"}).out,
              head + "\"sound\":true,\"count\":0,\"damages\":[]," + tail);
    Overwrite<int>(m_File, 8, 10);
    EXPECT_EQ(
        Tool::Run({"check", m_File, "--json"}).out,
        head +
            "\"sound\":false,\"count\":1,\"damages\":[\n{\"handle\":0,\"offset\":8,\"what\":\"version\","
            "\"found\":"
            "\"10\",\"expected\":\"11 or 12\",\"remedy\":\"the library refuses the file; restore it from a "
            "copy\"}]," +
            tail);
}

// Entries that all claim the whole file would make a walk of their contents take the square of its size.
TEST_F(RfmCheck, ManyExtentsOverTheWholeFileAreToldWithoutWalkingThem)
{
    const std::int64_t bytes = std::int64_t{4} << 20;
    std::filesystem::resize_file(m_File, static_cast<std::uintmax_t>(bytes));
    Overwrite<double>(m_File, 504, 0);
    for (int handle = 4; handle < 512; ++handle)
    {
        Overwrite<double>(m_File, EntryPlace(handle), static_cast<double>(bytes - 15360));
        Overwrite<double>(m_File, EntryPlace(handle) + 8, static_cast<double>(bytes - 15360));
        Overwrite<double>(m_File, EntryPlace(handle) + 16, 15360);
    }
    EXPECT_THAT(Damages(), HasSubstr(At(511, EntryPlace(511)) + "extent: found 15360 to "));
}

// A new one for each run, or that of an earlier run to be seen again.
unsigned Seed()
{
    const char* wanted = std::getenv("RFM_TEST_SEED");
    return wanted != nullptr ? static_cast<unsigned>(std::stoul(wanted)) : std::random_device()();
}

// Whatever the bytes are: an answer of the tool's own, no crash.
TEST_F(RfmCheck, BytesAtRandomNeverBreakTheTool)
{
    const unsigned seed = Seed();
    std::mt19937 random(seed);
    const std::string sound = ReadFile(m_File);
    for (int round = 0; round < 30; ++round)
    {
        std::string bytes = sound;
        for (int change = 0; change < 4; ++change)
        {
            // Half of the changes hit what is in use: the first entries, and what lies behind the table.
            const std::size_t place =
                random() % 2 == 0 ? 1024 + random() % 336 : 15360 + random() % (bytes.size() - 15360);
            bytes[place] = static_cast<char>(random());
        }
        WriteFile(m_File, bytes);
        for (const Tool::Words& words :
             {Tool::Words{"check", m_File}, {"ls", m_File}, {"dump", m_File, "4"}, {"info", m_File}})
            EXPECT_THAT(Tool::Run(words).code, AnyOf(0, 1, 3, 4))
                << words.front() << ", RFM_TEST_SEED=" << seed << ", round " << round;
    }
}
} // namespace
