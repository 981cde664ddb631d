// What `rfm recover` does with a damaged compressed file: header, directory, links and streams, each damaged by hand and
// at random. What no damage has hit is in the new database; what is missing there was told.
#include "ByteCopy.h"
#include "DamagedFile.h"
#include "EqualObjects.h"
#include "Failure.h"
#include "RandomSeed.h"
#include "Recovery.h"
#include "SampleDatabase.h"
#include "rfm_CodecZip.h"
#include "rfm_FileReprEncoded.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <set>

namespace
{
using rfm_tool::LossList;
using testing::HasSubstr;
using testing::Not;

constexpr int kSector = 4096;
constexpr int kSegment = 16384; // small ones: many of them in a small file
constexpr std::uint32_t kNoSector = 0xFFFFFFFF;

/// A new compressed file with segments of a size of ours.
rfm_File NewCompressed(const std::string& path, int segmentSize)
{
    return rfm_File(new rfm_FileReprEncoded(path.c_str(), std::make_unique<rfm_CodecZip>(6), segmentSize));
}

/// Handles: 4 a table of 3000 rows with texts, 5 numbers that don't compress, 6 numbers that do, 7 texts, 8 to 12 small
/// arrays. 22 segments or so.
void Fill(rfm_Database& database)
{
    rfm_TableMetadata layout("ROWS", 1);
    const int id = layout.DefineIntField("id");
    const int name = layout.DefineStringField("name");
    const rfm_TableMetadata& bound = database.Bind(layout);
    rfm_Table rows = database.Table(bound, -1, -1);
    for (int i = 0; i < 3000; ++i)
    {
        rfm_Row row = rows.NewRow();
        row.WriteFieldInt(id, i);
        if (i % 3 != 0) row.WriteFieldString(name, ("row " + std::to_string(i)).c_str());
    }
    rows.Flush();
    std::mt19937 random(1);
    auto noise = database.ArrayInt(1, -1, 0);
    std::vector<int> words(50000);
    for (int& word : words) word = static_cast<int>(random());
    noise.Write(words.data(), static_cast<int>(words.size()));
    noise.Flush();
    auto slope = database.ArrayDouble(2, -1, 0);
    std::vector<double> values(6000);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i) * 0.5;
    slope.Write(values.data(), static_cast<int>(values.size()) / 2);
    slope.Flush();
    auto texts = database.ArrayString(1, -1, 0);
    for (int i = 0; i < 500; ++i)
    {
        const cow_String text = ("text " + std::to_string(i)).c_str();
        texts.Write(&text, 1);
    }
    texts.Flush();
    for (int i = 0; i < 5; ++i)
    {
        auto small = database.ArrayInt(1, -1, 0);
        small.Write(&i, 1);
        small.Flush();
    }
}

const std::set<int> kAll{4, 5, 6, 7, 8, 9, 10, 11, 12};

class RfmRecoverCompressed : public testing::Test
{
protected:
    RfmRecoverCompressed()
    {
        rfm_Database database = CreateDatabase(m_Plain);
        Fill(database);
        database.Close();
        Pack(kSegment);
    }

    void Pack(int segmentSize)
    {
        {
            rfm_File target = NewCompressed(m_In, segmentSize);
            const rfm_File source = rfm_File::Open(m_Plain.c_str(), utl_FileAccessRead);
            rfm_tool::Progress progress(1);
            rfm_tool::CopyBytes(source, target, progress);
        }
        m_Sound = ReadFile(m_In);
    }
    static std::uint32_t Word(const std::string& bytes, std::size_t place)
    {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes.data() + place, sizeof word);
        return word;
    }
    std::uint32_t Word(std::size_t place) const { return Word(m_Sound, place); }
    static void Put(std::string& bytes, std::size_t place, std::uint32_t word)
    {
        std::memcpy(bytes.data() + place, &word, sizeof word);
    }
    std::string With(std::size_t place, std::uint32_t word) const
    {
        std::string bytes = m_Sound;
        Put(bytes, place, word);
        return bytes;
    }
    std::size_t SegmentCount() const { return Word(32); }
    std::uint32_t Cell(std::size_t segment) const { return Word(40 + 4 * segment); }
    static std::size_t Place(std::uint32_t sector) { return std::size_t{sector} * kSector; }
    static std::size_t Link(std::uint32_t sector) { return Place(sector) + kSector - 4; }
    std::uint32_t SectorCount() const { return static_cast<std::uint32_t>(m_Sound.size() / kSector); }

    struct Outcome
    {
        std::set<int> equal;
        LossList losses;
    };
    Outcome Recover(const std::string& bytes)
    {
        WriteFile(m_In, bytes);
        Outcome outcome;
        {
            rfm_tool::DamagedFile in(m_In, outcome.losses);
            EXPECT_EQ(in.Kind(), rfm_tool::FileKind::Compressed);
            rfm_tool::Progress progress(1);
            rfm_tool::WriteRecovered(in.Image(), rfm_tool::FileKind::Plain, m_Out, outcome.losses, progress);
        }
        outcome.equal = EqualHandles(m_Plain, m_Out);
        return outcome;
    }
    // Whatever happened to the file, the database in it is found whole, and what was mended is told.
    void ExpectWhole(const std::string& bytes, const std::string& what)
    {
        SCOPED_TRACE(what);
        const Outcome outcome = Recover(bytes);
        EXPECT_EQ(outcome.equal, kAll) << LinesOf(outcome.losses);
        EXPECT_EQ(outcome.losses.LostCount(), 0) << LinesOf(outcome.losses);
        EXPECT_GT(outcome.losses.MendedCount(), 0);
    }
    void ExpectRefused(const std::string& bytes, const std::string& why)
    {
        try
        {
            Recover(bytes);
            ADD_FAILURE() << "something was found";
        }
        catch (const rfm_tool::Failure& failure)
        {
            EXPECT_EQ(failure.Code(), rfm_tool::ExitUnreadable);
            EXPECT_THAT(failure.what(), HasSubstr(why));
        }
    }

    TestFolder m_Folder;
    std::string m_Plain = m_Folder / "plain.rdx";
    std::string m_In = m_Folder / "in.sdx";
    std::string m_Out = m_Folder / "out.rdx";
    std::string m_Sound;
};

TEST_F(RfmRecoverCompressed, ASoundFileIsReadWholeAndNothingIsTold)
{
    ASSERT_GT(SegmentCount(), 20U);
    const Outcome outcome = Recover(m_Sound);
    EXPECT_EQ(outcome.equal, kAll);
    EXPECT_EQ(LinesOf(outcome.losses), "");
}

TEST_F(RfmRecoverCompressed, NoNumberOfTheHeaderCostsAnything)
{
    for (std::size_t place = 0; place < 40; place += 4)
        for (const std::uint32_t value : {0U, 1U, 100U, 0x7FFFFFFFU, 0xFFFFFFFFU, Word(place) + 1})
        {
            // A number of segments that is too large, and more bytes in the last one, are taken for room that was
            // reserved: zeros that no object has.
            const bool isRoom = (place == 32 || place == 36) && value > Word(place) && value < 0x80000000U &&
                                (place == 32 || value <= kSegment);
            if (value == Word(place) || isRoom) continue;
            ExpectWhole(With(place, value), std::to_string(value) + " at " + std::to_string(place));
        }
}

TEST_F(RfmRecoverCompressed, ANumberOfSegmentsThatIsTooLargeCostsNothingEither)
{
    for (const std::uint32_t count : {static_cast<std::uint32_t>(SegmentCount()) + 1, 100000U, 0x7FFFFFFFU})
    {
        const Outcome outcome = Recover(With(32, count));
        EXPECT_EQ(outcome.equal, kAll) << count << LinesOf(outcome.losses);
        EXPECT_EQ(outcome.losses.LostCount(), 0) << count << LinesOf(outcome.losses);
    }
}

TEST_F(RfmRecoverCompressed, NoCellOfTheDirectoryCostsAnything)
{
    for (std::size_t segment = 0; segment < SegmentCount(); ++segment)
        for (const std::uint32_t value :
             {0U, kNoSector, SectorCount(), Cell((segment + 5) % SegmentCount()), Cell(segment) + 1})
            ExpectWhole(With(40 + 4 * segment, value),
                        "cell " + std::to_string(segment) + ": " + std::to_string(value));
}

TEST_F(RfmRecoverCompressed, WithoutHeaderAndDirectoryAllStreamsAreFound)
{
    std::mt19937 random(1);
    for (const char* how : {"zeros", "ones", "noise"})
    {
        std::string bytes = m_Sound;
        for (int i = 0; i < kSector; ++i)
            bytes[static_cast<std::size_t>(i)] = static_cast<char>(how[0] == 'z'   ? 0
                                                                   : how[0] == 'o' ? 0xFF
                                                                                   : random());
        ExpectWhole(bytes, how);
    }
    const Outcome outcome = Recover(std::string(kSector, '\0') + m_Sound.substr(kSector));
    EXPECT_THAT(
        LinesOf(outcome.losses),
        HasSubstr("mended: file, offset 40: directory of the compressed file: the streams of segments "));
    EXPECT_THAT(LinesOf(outcome.losses), HasSubstr("lacked; found by what begins in it\n"));
    EXPECT_THAT(LinesOf(outcome.losses), HasSubstr("lacked; a guess by the order of the streams\n"));
}

TEST_F(RfmRecoverCompressed, WithoutHeaderAndDirectoryALinkToTheStartOfAnotherStreamCostsNothing)
{
    std::string bytes = std::string(kSector, '\0') + m_Sound.substr(kSector);
    ASSERT_EQ(Word(Link(Cell(10))), Cell(10) + 1); // it has several sectors
    Put(bytes, Link(Cell(10)), Cell(20));
    ExpectWhole(bytes, "10 to 20");
}

TEST_F(RfmRecoverCompressed, OfEachKindOfCellsALostHalfIsFound)
{
    for (const std::size_t first : {std::size_t{0}, SegmentCount() / 2})
    {
        std::string bytes = m_Sound;
        for (std::size_t i = 0; i < SegmentCount() / 2; ++i) Put(bytes, 40 + 4 * (first + i), 0);
        ExpectWhole(bytes, std::to_string(first));
    }
}

// A file with small segments, so that its directory goes on in a second sector and a third.
TEST_F(RfmRecoverCompressed, ADirectoryOfSeveralSectorsIsMended)
{
    Pack(128);
    ASSERT_GT(Word(16), 2 * 1023U);
    const std::uint32_t second = Word(4092);
    const std::uint32_t third = Word(Link(second));
    ASSERT_NE(third, kNoSector);
    EXPECT_EQ(LinesOf(Recover(m_Sound).losses), "");
    for (const std::uint32_t value : {0U, kNoSector, SectorCount(), 0xFFFFU, Cell(3)})
        ExpectWhole(With(4092, value), "link to the second sector " + std::to_string(value));
    for (const std::uint32_t sector : {second, third})
    {
        std::string bytes = m_Sound;
        bytes.replace(Place(sector), kSector, kSector, '\x55');
        ExpectWhole(bytes, "directory sector " + std::to_string(sector));
    }
}

TEST_F(RfmRecoverCompressed, LinksOfStreamsInSequenceAreNotNeeded)
{
    std::size_t tried = 0;
    for (std::uint32_t sector = 1; sector < SectorCount(); ++sector)
    {
        if (Word(Link(sector)) != sector + 1) continue;
        for (const std::uint32_t value : {0U, sector, kNoSector, Cell(2)})
        {
            if (++tried % 7 != 0) continue; // each kind at many places
            const std::string bytes = With(Link(sector), value);
            ExpectWhole(bytes, std::to_string(sector) + " to " + std::to_string(value));
        }
    }
    EXPECT_GT(tried, 50U);
}

TEST_F(RfmRecoverCompressed, TheLengthOfAStreamIsNotNeeded)
{
    for (const std::uint32_t segment : {0U, 5U})
        for (const std::uint32_t value : {0U, 5U, 0xFFFFFFFFU})
        {
            const std::size_t place = Place(Cell(segment));
            const Outcome outcome = Recover(With(place, value));
            EXPECT_EQ(outcome.equal, kAll);
            EXPECT_EQ(LinesOf(outcome.losses),
                      "mended: file, offset " + std::to_string(place) + ": length of the stream of segment " +
                          std::to_string(segment) + " of the compressed file: found " +
                          std::to_string(value) + "; the stream ends after " + std::to_string(Word(place)) +
                          "\n");
        }
}

// What a damaged stream held is lost, with the directory or without it; nothing else is.
TEST_F(RfmRecoverCompressed, ADamagedStreamCostsItsSegmentAlsoWithoutADirectory)
{
    const std::size_t segment = 10; // in the middle of 5
    std::string bytes = m_Sound;
    bytes[Place(Cell(segment)) + 2000] ^= 0x10;
    for (const bool hasDirectory : {true, false})
    {
        if (!hasDirectory) bytes.replace(0, kSector, kSector, '\0');
        const Outcome outcome = Recover(bytes);
        std::set<int> others = kAll;
        others.erase(5);
        EXPECT_EQ(outcome.equal, others) << hasDirectory << LinesOf(outcome.losses);
        EXPECT_EQ(outcome.losses.LostCount(), 2);
        EXPECT_THAT(LinesOf(outcome.losses),
                    HasSubstr("lost: file, offset 163840: bytes up to 180224: segment 10 of the compressed "
                              "file can't be read\nlost: handle 5, offset 163840: elements "));
    }
}

// The start of the stream is gone, so nothing of it is found; its neighbours are, by what begins in them at least.
TEST_F(RfmRecoverCompressed, AStreamThatIsGoneCostsItsSegment)
{
    std::string bytes = m_Sound;
    bytes.replace(Place(Cell(10)), 100, 100, '\0');
    const Outcome outcome = Recover(bytes);
    std::set<int> others = kAll;
    others.erase(5);
    EXPECT_EQ(outcome.equal, others);
    EXPECT_THAT(LinesOf(outcome.losses), HasSubstr("segment 10 of the compressed file can't be found\n"));
}

TEST_F(RfmRecoverCompressed, ACutFileKeepsWhatLiesBeforeTheCut)
{
    const Outcome outcome = Recover(m_Sound.substr(0, Place(Cell(15)) + 100));
    EXPECT_THAT(LinesOf(outcome.losses), HasSubstr("lost: handle 5, offset 245760: elements from "));
    const auto read = [](const std::string& path, int count)
    {
        std::vector<int> words(static_cast<std::size_t>(count));
        rfm_tool::DatabaseFile file(path);
        EXPECT_EQ(file.Database().ArrayInt(rfm_Handle(5), -1, 0).Read(words.data(), count), count);
        return words;
    };
    const int count = (245760 - static_cast<int>(ExtentOfEntry(m_Plain, 5)) - 16) / 4;
    EXPECT_EQ(read(m_Out, count), read(m_Plain, count));
}

TEST_F(RfmRecoverCompressed, WithoutSegmentZeroNothingIsFoundAndThatIsSaid)
{
    std::string bytes = m_Sound;
    bytes[Place(Cell(0)) + 200] ^= 0x10;
    ExpectRefused(bytes,
                  "segment 0, which tells where all else in the database lies, can't be read; restore");
    bytes.replace(0, kSector, kSector, '\0');
    ExpectRefused(bytes, "not a database");
    ExpectRefused(With(Place(Cell(0)) + 4, 0), "no database: none of its segments begins as one; restore");
}

// A writer that runs leaves segments in any order, and some that have no stream at all.
TEST_F(RfmRecoverCompressed, AFileThatWasWrittenInPlaceIsFoundTooWithoutHeaderAndDirectory)
{
    {
        rfm_Database database =
            rfm_Database::Create(NewCompressed(m_In, kSegment), "TEST", "sample", 1700000000);
        Fill(database);
        database.Close();
    }
    m_Sound = ReadFile(m_In);
    const Outcome sound = Recover(m_Sound);
    ASSERT_EQ(sound.equal, kAll);
    EXPECT_EQ(LinesOf(sound.losses), "");
    ExpectWhole(std::string(kSector, '\0') + m_Sound.substr(kSector), "no first sector");
    for (std::size_t segment = 0; segment < SegmentCount(); ++segment)
        if (Cell(segment) != 0)
            ExpectWhole(With(40 + 4 * segment, 0xABCDEF), "cell " + std::to_string(segment));
}

// Sectors that a killed writer had filled and that no cell leads to yet.
TEST_F(RfmRecoverCompressed, StreamsThatNoFlushHasKeptAreLeftOut)
{
    std::string bytes = m_Sound;
    const std::size_t last = Place(Cell(SegmentCount() - 1));
    const std::string stale = m_Sound.substr(Place(Cell(6)), 5 * kSector);
    ASSERT_LT(last, bytes.size());
    bytes += stale;
    for (std::uint32_t i = 0; i < 4; ++i)
        Put(bytes, m_Sound.size() + i * kSector + 4092, SectorCount() + i + 1);
    Put(bytes, m_Sound.size() + 4 * kSector + 4092, kNoSector);
    EXPECT_EQ(LinesOf(Recover(bytes).losses), "");
    Put(bytes, 8, 7);
    ExpectWhole(bytes, "version");
    Put(bytes, 40 + 4 * 8, 0);
    ExpectWhole(bytes, "a cell");
}

TEST_F(RfmRecoverCompressed, BytesAtRandomInHeaderAndDirectoryCostNothingOrWhatIsTold)
{
    const unsigned seed = RandomSeed();
    std::mt19937 random(seed);
    const std::size_t used = 40 + 4 * SegmentCount();
    int whole = 0;
    for (int round = 0; round < 40; ++round)
    {
        std::string bytes = m_Sound;
        for (int change = 0; change < 1 + round % 6; ++change)
            bytes[40 + random() % (used - 40)] = static_cast<char>(random());
        if (round % 3 == 0) bytes[random() % 28] ^= 0x55;
        const Outcome outcome = Recover(bytes);
        if (outcome.equal == kAll) ++whole;
        // A cell that by chance leads to the stream of another segment may cost one of them, but not in silence.
        EXPECT_EQ(outcome.equal == kAll, outcome.losses.LostCount() == 0) << "round " << round << "\n"
                                                                          << LinesOf(outcome.losses);
    }
    EXPECT_GE(whole, 30);
}

// Whatever is in the file: it ends, and the new database is sound when there is one. EqualHandles looks.
TEST_F(RfmRecoverCompressed, BytesAtRandomAnywhereNeverBreakTheTool)
{
    const unsigned seed = RandomSeed();
    std::mt19937 random(seed);
    for (int round = 0; round < 40; ++round)
    {
        SCOPED_TRACE("RFM_TEST_SEED=" + std::to_string(seed) + ", round " + std::to_string(round));
        std::string bytes = m_Sound;
        for (int change = 0; change < 1 + round % 20; ++change)
        {
            bytes[random() % bytes.size()] = static_cast<char>(random());
            const auto sector = static_cast<std::uint32_t>(random() % SectorCount());
            const auto next = static_cast<std::uint32_t>(random() % (SectorCount() + 1));
            if (change % 2 == 0) Put(bytes, Link(sector), next);
        }
        try
        {
            const Outcome outcome = Recover(bytes);
            EXPECT_TRUE(outcome.equal == kAll || outcome.losses.LostCount() > 0) << LinesOf(outcome.losses);
        }
        catch (const rfm_tool::Failure& failure)
        {
            EXPECT_EQ(failure.Code(), rfm_tool::ExitUnreadable) << failure.what();
        }
    }
}

// Numbers that would take a program for ever, or all memory, if it believed them.
TEST_F(RfmRecoverCompressed, ClaimsBeyondTheFileHaveAnEnd)
{
    std::string bytes = m_Sound;
    Put(bytes, 28, 1U << 30);
    Put(bytes, 32, 0x7FFFFFFF);
    ExpectWhole(bytes, "2 EiB of segments");
    // Each sector leads to the first one of a stream without an end.
    for (std::uint32_t sector = 1; sector < SectorCount(); ++sector)
    {
        Put(bytes, Link(sector), 1);
        Put(bytes, Place(sector), 4092);
        bytes.replace(Place(sector) + 4, 2, "\x78\x01");
        bytes.replace(Place(sector) + 6, 5, std::string("\x00\xF0\x0F\x0F\xF0", 5)); // 4080 bytes as they are
    }
    ExpectRefused(bytes, "");
    // A directory that is a loop, and one that is all of the file.
    ExpectWhole(With(4092, 0), "a directory that leads to its start");
    std::string chain = m_Sound;
    for (std::uint32_t sector = 0; sector + 1 < SectorCount(); ++sector) Put(chain, Link(sector), sector + 1);
    const Outcome outcome = Recover(chain);
    EXPECT_EQ(outcome.equal, kAll) << LinesOf(outcome.losses);
}
} // namespace
