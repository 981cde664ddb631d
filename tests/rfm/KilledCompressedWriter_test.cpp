// A writer of a compressed file is killed at each of its calls that change the file in turn. There is no journal, so what
// is promised is judged segment by segment, against copies of the file as each flush left it:
//
//   a segment whose sectors are still those of the last flush    reads as the last flush
//   one that was stored over since                               reads as before or as after, or is told to be corrupt
//
// Never anything else, and the tool that looks from outside names the same segments.
#include "KilledRun.h"
#include "ScriptedRun.h"
#include "TestFolder.h"
#include "ToolRunner.h"
#include "nex_Exception.h"
#include "rfm_ArmedSegment.h"
#include "rfm_CodecZip.h"
#include "rfm_EncodedSegmentTable.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

namespace
{
constexpr int kIncrements = 3;
constexpr const char* kCorrupt = "***ERROR: VDX database is corrupt.";

class KilledCompressedWriter : public ::testing::Test
{
protected:
    KilledCompressedWriter()
    {
        // The run once to its end, with a copy after each flush: index n is flush n, the last one is the close.
        Write([&](int) { m_Flushes.push_back(BytesOf(m_Name)); });
        m_Flushes.push_back(BytesOf(m_Name));
        for (const std::string& flush : m_Flushes) m_Segments.push_back(SegmentsOf(flush));
    }

    template <class AtFlush> void Write(AtFlush atFlush) const
    {
        ScriptedRun::Writer writer(rfm_File::CreateCompressed(m_Name));
        writer.SetUp();
        std::optional<ScriptedRun::Ballast> ballast(writer.Database());
        atFlush(0);
        for (int n = 1; n <= kIncrements; ++n)
        {
            ballast->WriteIncrement(n);
            writer.WriteIncrement(n);
            ballast->Flush();
            writer.Flush();
            atFlush(n);
        }
        ballast.reset();
        writer.Close();
    }

    using Segments = std::vector<std::optional<std::string>>; // of those that can be read, their bytes

    // Each by itself: one that can't be read, be it the first, keeps nobody from the others.
    static Segments ReadSegments(const cow_String& path)
    {
        rfm_EncodedSegmentTable table(path, std::make_unique<rfm_CodecZip>(6), utl_FileAccessRead);
        Segments segments;
        for (int i = 0; i < table.SegmentCount(); ++i)
        {
            try
            {
                const rfm_ArmedSegment segment(table.GetSegment(i));
                std::string bytes(static_cast<std::size_t>(segment->DecodedLength()), '?');
                segment->Read(bytes.data(), 0, segment->DecodedLength());
                segments.emplace_back(bytes);
            }
            catch (const nex_TextException& failure)
            {
                EXPECT_STREQ(failure.what(), kCorrupt);
                segments.emplace_back();
            }
        }
        return segments;
    }
    Segments SegmentsOf(const std::string& bytes) const
    {
        if (bytes[0] == '\0') return {}; // before the first flush
        const cow_String copy = m_Folder.Path("copy.sdx");
        PutBytes(copy, bytes);
        return ReadSegments(copy);
    }

    // Whether a sector of the segment's chain, as one flush left it, has other bytes now.
    static bool IsOverwritten(const std::string& flush, const std::string& now, int segment)
    {
        const auto word = [&](std::size_t place) { return rfm_LoadWord(flush.data() + place); };
        for (std::size_t sector = word(40 + 4 * static_cast<std::size_t>(segment)); sector != rfm_NullSector;
             sector = word(sector * rfm_SectorBytes + rfm_SectorDataBytes))
            if (flush.compare(sector * rfm_SectorBytes, rfm_SectorBytes, now, sector * rfm_SectorBytes,
                              rfm_SectorBytes) != 0)
                return true;
        return false;
    }

    // The flush whose directory the file has: that of sector 0, which is written whole and last.
    int DirectoryOf(const std::string& bytes, int flushed) const
    {
        for (std::size_t n = static_cast<std::size_t>(flushed); n < m_Flushes.size(); ++n)
            if (m_Flushes[n].compare(0, rfm_SectorBytes, bytes, 0, rfm_SectorBytes) == 0)
                return static_cast<int>(n);
        ADD_FAILURE() << "sector 0 is of no flush";
        return flushed;
    }

    static bool IsEachByteOfOneOf(const std::string& bytes, const std::string& before,
                                  const std::optional<std::string>& after)
    {
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (bytes[i] != before[i] && (!after || i >= after->size() || bytes[i] != (*after)[i]))
                return false;
        return true;
    }

    // The segments that the tool tells to be hurt.
    std::set<int> HurtSegments() const
    {
        const ToolResult check = Tool::Run({"check", m_Name.CString(), "--json", "-n", "1000"});
        std::set<int> hurt;
        const auto said = nlohmann::json::parse(check.out);
        for (const auto& damage : said.at("damages"))
            if (damage.contains("segment")) hurt.insert(damage.at("segment").get<int>());
        EXPECT_EQ(said.at("compressed").at("segmentsDamaged").get<std::size_t>(), hurt.size());
        return hurt;
    }

    // Whether the database opens and has all that was flushed with increment n; false for a clear exception.
    bool DatabaseReads(int n) const
    {
        try
        {
            rfm_Database database = rfm_Database::Open(rfm_File::Open(m_Name, utl_FileAccessRead), "TEST");
            ScriptedRun::ExpectAtLeast(database, n);
            ScriptedRun::ExpectBallast(database, n);
            return true;
        }
        catch (const nex_Exception&)
        {
            return false;
        }
    }

    void Judge(const KilledRun::Outcome& outcome);
    void KillAtEveryCall(bool within);

    TestFolder m_Folder;
    cow_String m_Name = m_Folder.Path("killed.sdx");
    std::vector<std::string> m_Flushes;
    std::vector<Segments> m_Segments; // what the library reads from each

    int m_AsLastFlush = 0; // byte for byte
    int m_WithNewer = 0;   // all that was flushed is there, and newer bytes
    int m_Hurt = 0;        // failed clearly: a segment was written in part
    int m_Mixed = 0;       // failed clearly: all segments can be read, but not all are of one flush
    int m_BeforeAny = 0;   // killed before the first flush was whole
};

void KilledCompressedWriter::Judge(const KilledRun::Outcome& outcome)
{
    const std::string bytes = BytesOf(m_Name);
    if (bytes.size() < rfm_SectorBytes || bytes[0] == '\0')
    {
        ASSERT_EQ(outcome.flushed, 0);
        EXPECT_FALSE(DatabaseReads(0)) << "no compressed file yet";
        ++m_BeforeAny;
        return;
    }
    const int n = DirectoryOf(bytes, std::max(outcome.flushed, 1));
    const Segments& before = m_Segments[static_cast<std::size_t>(n)];
    const bool isLast = static_cast<std::size_t>(n) + 1 == m_Segments.size();
    const Segments& after = isLast ? before : m_Segments[static_cast<std::size_t>(n) + 1];
    const Segments found = ReadSegments(m_Name);
    ASSERT_EQ(found.size(), before.size());
    std::set<int> unreadable;
    bool asLastFlush = true;
    for (std::size_t i = 0; i < found.size(); ++i)
    {
        SCOPED_TRACE("segment " + std::to_string(i));
        const bool overwritten =
            IsOverwritten(m_Flushes[static_cast<std::size_t>(n)], bytes, static_cast<int>(i));
        if (!found[i]) unreadable.insert(static_cast<int>(i));
        if (found[i] != before[i]) asLastFlush = false;
        ASSERT_TRUE(overwritten || found[i] == before[i]);
        ASSERT_TRUE(!found[i] || IsEachByteOfOneOf(*found[i], *before[i], after[i]));
    }
    EXPECT_EQ(HurtSegments(), unreadable);
    const bool reads = DatabaseReads(std::min(n, kIncrements));
    EXPECT_TRUE(reads || !asLastFlush);
    EXPECT_TRUE(!reads || unreadable.empty());
    ++(asLastFlush ? m_AsLastFlush : reads ? m_WithNewer : unreadable.empty() ? m_Mixed : m_Hurt);
}

void KilledCompressedWriter::KillAtEveryCall(bool within)
{
    int atCall = 1;
    for (bool killed = true; killed && !HasFailure(); ++atCall)
    {
        SCOPED_TRACE("killed at call " + std::to_string(atCall));
        std::filesystem::remove(m_Name.CString());
        const KilledRun::Outcome outcome =
            KilledRun::RunAndKill(atCall, within,
                                  [&](const KilledRun::Teller& teller)
                                  {
                                      KilledRun::WatchFiles();
                                      Write([&](int n) { teller.FlushEnded(n); });
                                  });
        killed = outcome.killed;
        Judge(outcome);
    }
    std::printf(
        "of %d killed runs %d ended before the first flush was whole; of the other %d, %d read as their last "
        "flush, %d as that with newer bytes in it, %d failed clearly: %d with a torn segment, %d with "
        "segments of two flushes\n",
        atCall - 1, m_BeforeAny, atCall - 1 - m_BeforeAny, m_AsLastFlush, m_WithNewer, m_Hurt + m_Mixed,
        m_Hurt, m_Mixed);
    EXPECT_GT(m_AsLastFlush, 0);
    EXPECT_GT(m_WithNewer, 0);
    EXPECT_GT(atCall, 16 * kIncrements); // each segment had its turn
}
} // namespace

TEST_F(KilledCompressedWriter, BeforeAnyCallNothingOfTheLastFlushReadsWrong) { KillAtEveryCall(false); }
TEST_F(KilledCompressedWriter, WithinAnyWriteNothingOfTheLastFlushReadsWrong)
{
    KillAtEveryCall(true);
    EXPECT_GT(m_Hurt, 0) << "some segment was torn";
}
