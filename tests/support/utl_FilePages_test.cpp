#include "RandomSeed.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "utl_FaultPlan.h"
#include "utl_File.h"

#include <algorithm>
#include <climits>
#include <gmock/gmock.h>
#include <random>
#include <vector>

// What utl_File keeps in pages: small reads and overwrites here and there.

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Transfer = utl_FaultPlan::Transfer;

namespace
{
constexpr int kPage = utl_PageCache::kPageBytes;
constexpr int kPages = 100; // of the file of most tests
constexpr int kJumps = 16;  // small reads here and there before pages are thought of

/// Bytes that tell their own place.
std::string Pattern(std::size_t bytes)
{
    std::string text(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i) text[i] = static_cast<char>('a' + i * 7 / 3 % 26);
    return text;
}

void WriteAt(utl_File& file, std::int64_t position, std::string_view text)
{
    file.Seek(position);
    ASSERT_EQ(file.Write(text.data(), static_cast<int>(text.size())), static_cast<int>(text.size()));
}

std::string ReadAt(utl_File& file, std::int64_t position, int count)
{
    std::string bytes(static_cast<std::size_t>(count), '?');
    file.Seek(position);
    bytes.resize(static_cast<std::size_t>(file.Read(bytes.data(), count)));
    return bytes;
}

std::string Flushed(utl_File& file, const cow_String& name)
{
    file.Flush();
    return BytesOf(name);
}

class utl_FilePagesTest : public ::testing::Test
{
protected:
    utl_FilePagesTest() { PutBytes(Name(), m_Text); }

    cow_String Name() const { return m_Folder.Path("data"); }
    std::string Stored() const { return BytesOf(Name()); }
    std::string Text(std::int64_t position, int count) const
    {
        return m_Text.substr(static_cast<std::size_t>(position), static_cast<std::size_t>(count));
    }
    std::string TextWith(std::int64_t position, std::string_view written) const
    {
        std::string text = m_Text;
        return text.replace(static_cast<std::size_t>(position), written.size(), written);
    }

    /// Opens it, and jumps about in its last pages until pages are thought of.
    static void Open(utl_File& file, const cow_String& name, utl_FileAccess access)
    {
        file.Open(name, access, 0);
        file.SetKeepsPages(true);
        Jump(file);
    }
    void Open(utl_File& file, utl_FileAccess access) const { Open(file, Name(), access); }
    static void Jump(utl_File& file)
    {
        for (int i = 0; i < kJumps; ++i) ReadAt(file, std::int64_t{kPages - 1 - i} * kPage, 4);
    }
    /// Has the page that holds `position` kept.
    static void Keep(utl_File& file, std::int64_t position)
    {
        ReadAt(file, position, 4);
        ReadAt(file, std::int64_t{kPages - 1} * kPage + 100, 4); // or the next would be in sequence
        ReadAt(file, position, 4);
    }

    TestFolder m_Folder;
    const std::string m_Text = Pattern(std::size_t{kPages} * kPage);
};
} // namespace

// --- reading

TEST_F(utl_FilePagesTest, APageIsKeptFromItsSecondTouchOn)
{
    utl_File file;
    Open(file, utl_FileAccessRead);
    const utl_FaultPlan plan;
    EXPECT_EQ(ReadAt(file, 2 * kPage + 50, 36), Text(2 * kPage + 50, 36));
    EXPECT_EQ(ReadAt(file, 5 * kPage, 36), Text(5 * kPage, 36));
    EXPECT_EQ(ReadAt(file, 2 * kPage + 500, 36), Text(2 * kPage + 500, 36));
    EXPECT_EQ(ReadAt(file, 2 * kPage, 2048), Text(2 * kPage, 2048));
    EXPECT_EQ(ReadAt(file, 3 * kPage - 36, 36), Text(3 * kPage - 36, 36));
    EXPECT_THAT(plan.ReadLog(), ElementsAre(Transfer{2 * kPage + 50, 36}, Transfer{5 * kPage, 36},
                                            Transfer{2 * kPage, kPage}));
}

TEST_F(utl_FilePagesTest, AFewReadsHereAndThereCostNoMoreThanTheirBytes)
{
    utl_File file(Name(), utl_FileAccessRead, 0);
    file.SetKeepsPages(true);
    const utl_FaultPlan plan;
    for (int i = 0; i < kJumps; ++i) ReadAt(file, 1000 - 50 * i, 36);
    EXPECT_EQ(plan.Reads(), kJumps);
    for (const Transfer& read : plan.ReadLog()) EXPECT_EQ(read.bytes, 36);
}

TEST_F(utl_FilePagesTest, WhoeverDidNotAskForPagesGetsNone)
{
    utl_File file(Name(), utl_FileAccessRead, 0);
    const utl_FaultPlan plan;
    for (int i = 0; i < 100; ++i) ReadAt(file, 1000 - 10 * (i % 50), 4);
    EXPECT_EQ(plan.Reads(), 100);
}

TEST_F(utl_FilePagesTest, ALongReadHereAndThereKeepsNoPage)
{
    utl_File file;
    Open(file, utl_FileAccessRead);
    const utl_FaultPlan plan;
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(ReadAt(file, 10 * kPage, 2049), Text(10 * kPage, 2049));
        EXPECT_EQ(ReadAt(file, 0, 2049), Text(0, 2049));
    }
    EXPECT_EQ(plan.Reads(), 6);
}

TEST_F(utl_FilePagesTest, ReadingInSequenceKeepsNoPage)
{
    utl_File file;
    Open(file, utl_FileAccessRead);
    for (int round = 0; round < 2; ++round)
    {
        const utl_FaultPlan plan;
        for (int i = 0; i < 40 * kPage / 500; ++i)
            ASSERT_EQ(ReadAt(file, i * 500, 500), Text(i * 500, 500)) << "at " << i;
        EXPECT_GE(plan.Reads(), 3);
        EXPECT_LE(plan.Reads(), 12);
    }
}

TEST_F(utl_FilePagesTest, AReadOverTheEdgeOfTwoPagesTakesFromBoth)
{
    utl_File file;
    Open(file, utl_FileAccessRead);
    Keep(file, 2 * kPage);
    Keep(file, 3 * kPage);
    const utl_FaultPlan plan;
    EXPECT_EQ(ReadAt(file, 3 * kPage - 20, 36), Text(3 * kPage - 20, 36));
    EXPECT_EQ(ReadAt(file, 3 * kPage - 1, 2), Text(3 * kPage - 1, 2));
    EXPECT_EQ(plan.Reads(), 0);
}

TEST_F(utl_FilePagesTest, AReadOverTheEdgeOfAKeptPageReadsTheOtherPartAlone)
{
    utl_File file;
    Open(file, utl_FileAccessRead);
    Keep(file, 2 * kPage);
    const utl_FaultPlan plan;
    EXPECT_EQ(ReadAt(file, 3 * kPage - 20, 36), Text(3 * kPage - 20, 36));
    EXPECT_EQ(ReadAt(file, 2 * kPage - 20, 36), Text(2 * kPage - 20, 36));
    EXPECT_THAT(plan.ReadLog(), ElementsAre(Transfer{3 * kPage, 16}, Transfer{2 * kPage - 20, 20}));
}

TEST_F(utl_FilePagesTest, APageThatEndedWithTheFileIsLookedAtAgain)
{
    PutBytes(Name(), m_Text + "tail");
    utl_File file;
    Open(file, utl_FileAccessRead);
    const std::int64_t end = static_cast<std::int64_t>(m_Text.size());
    Keep(file, end);
    EXPECT_EQ(ReadAt(file, end, 10), "tail");
    PutBytes(Name(), m_Text + "tail and more");
    EXPECT_EQ(ReadAt(file, end, 4), "tail");
    EXPECT_EQ(ReadAt(file, end, 20), "tail and more");
    EXPECT_EQ(ReadAt(file, end + 5, 3), "and");
}

TEST_F(utl_FilePagesTest, ForgetAndForgetPagesShowWhatAnotherProcessHasWrittenSince)
{
    for (const bool all : {true, false})
    {
        PutBytes(Name(), m_Text);
        utl_File file;
        Open(file, utl_FileAccessRead);
        Keep(file, 2 * kPage);
        utl_File writer(Name(), utl_FileAccessUpdate, 0);
        WriteAt(writer, 2 * kPage, "news");
        writer.Close();
        EXPECT_EQ(ReadAt(file, 2 * kPage, 4), Text(2 * kPage, 4)) << "not kept";
        if (all)
            file.Forget();
        else
            file.ForgetPages();
        EXPECT_EQ(ReadAt(file, 2 * kPage, 4), "news");
    }
}

TEST_F(utl_FilePagesTest, ForgettingThePagesLeavesWhatWasReadAhead)
{
    utl_File file;
    Open(file, utl_FileAccessRead);
    for (int i = 0; i < 10; ++i) ReadAt(file, i * 1000, 1000);
    file.ForgetPages();
    const utl_FaultPlan plan;
    EXPECT_EQ(ReadAt(file, 10000, 1000), Text(10000, 1000));
    EXPECT_EQ(plan.Reads(), 0);
}

TEST_F(utl_FilePagesTest, APageThatCannotBeLoadedIsNotKeptAndTheReadHasNotMoved)
{
    utl_File file;
    Open(file, utl_FileAccessRead);
    ReadAt(file, 2 * kPage, 4);
    ReadAt(file, 9 * kPage, 4);
    const utl_FaultPlan plan({.failRead = 1});
    EXPECT_THROW(ReadAt(file, 2 * kPage + 100, 4), utl_FileException);
    std::string bytes(4, '?');
    EXPECT_EQ(file.Read(bytes.data(), 4), 4);
    EXPECT_EQ(bytes, Text(2 * kPage + 100, 4));
}

// --- writing

TEST_F(utl_FilePagesTest, AnOverwriteInAKeptPageIsGatheredAndSeen)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    const utl_FaultPlan plan;
    WriteAt(file, 2 * kPage + 300, "late");
    WriteAt(file, 2 * kPage + 100, "early");
    file.Seek(0);
    EXPECT_EQ(plan.Writes(), 0);
    EXPECT_EQ(ReadAt(file, 2 * kPage + 100, 5), "early");
    EXPECT_EQ(ReadAt(file, 2 * kPage + 298, 8), Text(2 * kPage + 298, 2) + "late" + Text(2 * kPage + 304, 2));
    EXPECT_EQ(plan.Reads(), 0);
    file.Flush();
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{2 * kPage + 100, 204}));
    EXPECT_EQ(Stored(), TextWith(2 * kPage + 100, "early" + Text(2 * kPage + 105, 195) + "late"));
    file.Flush();
    EXPECT_EQ(plan.Writes(), 1);
}

TEST_F(utl_FilePagesTest, OfTwoWritesToOnePlaceTheLastStays)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    WriteAt(file, 2 * kPage, "first");
    WriteAt(file, 7 * kPage, "aside");
    WriteAt(file, 2 * kPage, "again");
    EXPECT_EQ(Flushed(file, Name()).substr(2 * kPage, 5), "again");
    WriteAt(file, 2 * kPage, "third");
    EXPECT_EQ(Flushed(file, Name()).substr(2 * kPage, 5), "third");
}

TEST_F(utl_FilePagesTest, KeptPagesSideBySideGoOutAsOneInTheOrderOfTheirPlaces)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    for (const int page : {7, 3, 2, 4}) Keep(file, page * kPage);
    WriteAt(file, 7 * kPage, "seven");
    WriteAt(file, 4 * kPage + 9, "four");
    WriteAt(file, 2 * kPage + 5, "two");
    WriteAt(file, 4 * kPage - 1, "34"); // over the edge of both
    const utl_FaultPlan plan;
    file.Flush();
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{2 * kPage + 5, 2 * kPage + 8}, Transfer{7 * kPage, 5}));
    std::string expected = TextWith(7 * kPage, "seven");
    expected.replace(4 * kPage + 9, 4, "four")
        .replace(2 * kPage + 5, 3, "two")
        .replace(4 * kPage - 1, 2, "34");
    EXPECT_EQ(Stored(), expected);
}

TEST_F(utl_FilePagesTest, AWriteIntoAPageThatWasWantedBeforeIsGatheredInIt)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    const utl_FaultPlan plan;
    ReadAt(file, 2 * kPage + 40, 4);
    WriteAt(file, 2 * kPage + 40, "row!");
    WriteAt(file, 3 * kPage, "alone");
    ReadAt(file, 9 * kPage, 4);
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{3 * kPage, 5}));
    file.Close();
    EXPECT_EQ(Stored(), TextWith(2 * kPage + 40, "row!").replace(3 * kPage, 5, "alone"));
}

TEST_F(utl_FilePagesTest, AWritePastThePagesReplacesWhatTheyGather)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    for (const int page : {2, 3, 5}) Keep(file, page * kPage);
    WriteAt(file, 2 * kPage + 10, "under");
    WriteAt(file, 2 * kPage, "before");
    WriteAt(file, 5 * kPage + kPage - 3, "end");
    const std::string large(3 * kPage, '#');
    WriteAt(file, 2 * kPage + 8, large);
    EXPECT_EQ(ReadAt(file, 2 * kPage, 20), "before" + Text(2 * kPage + 6, 2) + std::string(12, '#'));
    EXPECT_EQ(ReadAt(file, 5 * kPage + 4, 8), "####" + Text(5 * kPage + 8, 4));
    std::string expected = TextWith(2 * kPage, "before");
    expected.replace(6 * kPage - 3, 3, "end").replace(2 * kPage + 8, large.size(), large);
    EXPECT_EQ(Flushed(file, Name()), expected);
}

TEST_F(utl_FilePagesTest, AnOverwriteOfWhatTheBlockGathersStaysOnTop)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    ReadAt(file, 2 * kPage, 4); // wanted once
    file.Seek(2 * kPage - 4);
    file.Write("12345678", 8); // in the block, over the edge
    WriteAt(file, 2 * kPage, "abcd");
    WriteAt(file, 2 * kPage - 2, "xyz");
    EXPECT_EQ(Flushed(file, Name()), TextWith(2 * kPage - 4, "12xyzbcd"));
}

TEST_F(utl_FilePagesTest, ReadsPastThePagesSeeWhatTheyGather)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 20 * kPage);
    WriteAt(file, 20 * kPage + 7, "news");
    EXPECT_EQ(ReadAt(file, 19 * kPage, 3 * kPage),
              TextWith(20 * kPage + 7, "news").substr(19 * kPage, 3 * kPage));
    WriteAt(file, 20 * kPage + 7, "late");
    std::string all;
    for (int i = 0; i < kPages * kPage / 512; ++i) all += ReadAt(file, i * 512, 512);
    EXPECT_TRUE(all == TextWith(20 * kPage + 7, "late"));
}

TEST_F(utl_FilePagesTest, FlushExtendAndCloseWriteTheDirtyPagesOut)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    WriteAt(file, 2 * kPage, "one");
    file.Flush();
    EXPECT_EQ(Stored(), TextWith(2 * kPage, "one"));
    WriteAt(file, 2 * kPage, "two");
    file.Extend(kPages * kPage + 5);
    EXPECT_EQ(Stored(), TextWith(2 * kPage, "two") + std::string(5, '\0'));
    Jump(file);
    Keep(file, 2 * kPage);
    WriteAt(file, 2 * kPage, "six");
    EXPECT_EQ(Stored().substr(2 * kPage, 3), "two") << "not gathered";
    file.Close();
    EXPECT_EQ(Stored(), TextWith(2 * kPage, "six") + std::string(5, '\0'));
}

TEST_F(utl_FilePagesTest, WhatIsCutOffIsGoneFromThePagesToo)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    WriteAt(file, 2 * kPage, "gone");
    file.Extend(2 * kPage + 2);
    EXPECT_EQ(ReadAt(file, 2 * kPage, 4), "go");
    file.Extend(2 * kPage + 4);
    EXPECT_EQ(ReadAt(file, 2 * kPage, 4), std::string("go\0\0", 4));
}

TEST_F(utl_FilePagesTest, ForgettingKeepsWhatIsGathered)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    Keep(file, 4 * kPage);
    WriteAt(file, 2 * kPage, "mine");
    file.Forget();
    const utl_FaultPlan plan;
    EXPECT_EQ(ReadAt(file, 2 * kPage, 4), "mine");
    EXPECT_EQ(plan.Reads(), 0);
    EXPECT_EQ(ReadAt(file, 4 * kPage, 4), Text(4 * kPage, 4));
    EXPECT_EQ(plan.Reads(), 1);
    EXPECT_EQ(Flushed(file, Name()), TextWith(2 * kPage, "mine"));
}

TEST_F(utl_FilePagesTest, AnotherOpenFindsNoPageOfTheFirstFile)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    WriteAt(file, 2 * kPage, "first");
    const cow_String second = m_Folder.Path("second");
    PutBytes(second, std::string(m_Text.size(), '2'));
    Open(file, second, utl_FileAccessUpdate);
    EXPECT_EQ(ReadAt(file, 2 * kPage, 5), "22222");
    file.Close();
    EXPECT_EQ(Stored(), TextWith(2 * kPage, "first"));
    EXPECT_EQ(BytesOf(second), std::string(m_Text.size(), '2'));
}

TEST_F(utl_FilePagesTest, ARefusedPageStaysGatheredAndIsTriedAgain)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    for (const int page : {2, 3, 7}) Keep(file, page * kPage);
    for (const int page : {2, 3, 7}) WriteAt(file, page * kPage, "kept");
    utl_FaultPlan plan({.failWrite = 1, .error = ENOSPC, .tornAtHalf = true, .staysBroken = true});
    EXPECT_THROW(file.Flush(), utl_FileException);
    EXPECT_EQ(ReadAt(file, 7 * kPage, 4), "kept");
    WriteAt(file, 3 * kPage, "last");
    EXPECT_THROW(file.Flush(), utl_FileException);
    plan.Repair();
    file.Flush();
    EXPECT_EQ(Stored(),
              TextWith(2 * kPage, "kept").replace(3 * kPage, 4, "last").replace(7 * kPage, 4, "kept"));
}

TEST_F(utl_FilePagesTest, AWriteThatCannotLetGoOfAPageHasNotMovedAndLosesNothing)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    WriteAt(file, 2 * kPage, "kept");
    file.Seek(3 * kPage - 2);
    {
        const utl_FaultPlan plan({.failWrite = 1});
        EXPECT_THROW(file.Write("edge", 4), utl_FileException);
        EXPECT_EQ(file.Write("edge", 4), 4);
    }
    file.Close();
    EXPECT_EQ(Stored(), TextWith(2 * kPage, "kept").replace(3 * kPage - 2, 4, "edge"));
}

TEST_F(utl_FilePagesTest, ACloseThatCannotWritePagesOutSaysSo)
{
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    WriteAt(file, 2 * kPage, "lost");
    const utl_FaultPlan plan({.failWrite = 1});
    EXPECT_THROW(file.Close(), utl_FileException);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(Stored(), m_Text);
}

// --- more pages than places

TEST_F(utl_FilePagesTest, APageThatMustMakeRoomIsWrittenOutFirst)
{
    constexpr std::int64_t kFar = 64LL * 1024 * 1024; // the same place, one round of places on
    std::filesystem::resize_file(Name().CString(), 2 * kFar);
    utl_File file;
    Open(file, utl_FileAccessUpdate);
    Keep(file, 2 * kPage);
    WriteAt(file, 2 * kPage, "near");
    const utl_FaultPlan plan;
    EXPECT_EQ(ReadAt(file, kFar + 2 * kPage, 4), std::string(4, '\0'));
    EXPECT_THAT(plan.WriteLog(), IsEmpty()) << "one touch drives nothing out";
    Keep(file, kFar + 2 * kPage);
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{2 * kPage, 4}));
    WriteAt(file, kFar + 2 * kPage, "far!");
    EXPECT_EQ(ReadAt(file, 2 * kPage, 4), "near");
    Keep(file, 2 * kPage);
    EXPECT_EQ(ReadAt(file, kFar + 2 * kPage, 4), "far!");
    EXPECT_EQ(ReadAt(file, 2 * kPage, 4), "near");
}

// --- random use beside a model, with a second reader

namespace
{
class RandomPages
{
public:
    RandomPages(const cow_String& name, unsigned seed) : m_Name(name), m_Random(seed)
    {
        m_Bytes = Pattern(static_cast<std::size_t>(kRange));
        PutBytes(m_Name, m_Bytes);
        m_File.Open(m_Name, utl_FileAccessUpdate, 0);
        m_Reader.Open(m_Name, utl_FileAccessRead, 0);
        m_File.SetKeepsPages(true);
        m_Reader.SetKeepsPages(true);
    }

    /// One step; false when the file refused it, and the model stays as it was then.
    bool Step()
    {
        try
        {
            Choose();
            return true;
        }
        catch (const utl_FileException&)
        {
            return false;
        }
    }

    void Close()
    {
        m_File.Close();
        EXPECT_TRUE(BytesOf(m_Name) == m_Bytes);
    }

private:
    static constexpr int kRange = 12 * kPage; // few pages, so that each is kept, left and kept again

    void Choose()
    {
        switch (Below(40))
        {
        case 0: return FlushAndLook();
        case 1: return m_File.Forget();
        case 2: return m_File.ForgetPages();
        case 3: return Below(4) == 0 ? SetSize() : m_File.Flush();
        case 4:
        case 5: return ReadSome(m_Position, Below(5000)); // in sequence
        case 6: return ReadSome(Somewhere(), Below(3 * kPage));
        case 7: return WriteSome(Somewhere(), Below(3 * kPage));
        case 8:
        case 9: return WriteSome(m_Position, Below(100)); // behind the last transfer
        case 10: EXPECT_EQ(m_File.FileSize(), static_cast<std::int64_t>(m_Bytes.size())); return;
        default: break;
        }
        const std::int64_t place = Somewhere();
        const int count = Below(120);
        if (Below(2) == 0) ReadSome(place, count);
        if (Below(2) == 0) WriteSome(place, count);
    }

    int Below(int bound) { return static_cast<int>(m_Random() % static_cast<unsigned>(bound)); }
    std::int64_t Somewhere()
    {
        const int nearAnEdge = Below(12) * kPage - Below(130);
        return Below(3) == 0 ? std::max(nearAnEdge, 0) : Below(kRange + kPage);
    }
    std::string Expected(std::int64_t position, int count) const
    {
        const auto start = static_cast<std::size_t>(position);
        return start < m_Bytes.size() ? m_Bytes.substr(start, static_cast<std::size_t>(count))
                                      : std::string();
    }
    void Expect(utl_File& file, std::int64_t position, int count)
    {
        EXPECT_TRUE(ReadAt(file, position, count) == Expected(position, count))
            << "read of " << count << " at " << position;
    }
    void ReadSome(std::int64_t position, int count)
    {
        Expect(m_File, position, count);
        m_Position = position + static_cast<std::int64_t>(Expected(position, count).size());
    }
    void WriteSome(std::int64_t position, int count)
    {
        const std::string text(static_cast<std::size_t>(count), static_cast<char>('A' + Below(26)));
        m_File.Seek(position);
        if (m_File.Write(text.data(), count) != count) ADD_FAILURE() << "a short write";
        m_Position = position + count;
        if (count == 0) return;
        const auto start = static_cast<std::size_t>(position);
        if (m_Bytes.size() < start + text.size()) m_Bytes.resize(start + text.size());
        m_Bytes.replace(start, text.size(), text);
    }
    void SetSize()
    {
        const int size = kRange - kPage + Below(2 * kPage);
        m_File.Extend(size);
        m_Bytes.resize(static_cast<std::size_t>(size));
    }
    // All of it is in the file, and a second reader that forgets finds it there, however it reads.
    void FlushAndLook()
    {
        m_File.Flush();
        EXPECT_TRUE(BytesOf(m_Name) == m_Bytes);
        m_Reader.Forget();
        for (int i = 0; i < 60; ++i) Expect(m_Reader, Somewhere(), Below(200));
    }

    cow_String m_Name;
    std::mt19937 m_Random;
    std::string m_Bytes; // what the file must look like from above
    std::int64_t m_Position = 0;
    utl_File m_File;
    utl_File m_Reader;
};
} // namespace

TEST_F(utl_FilePagesTest, RandomUseLooksLikeAModelAlsoToASecondReader)
{
    const unsigned seed = RandomSeed();
    for (unsigned round = 0; round < 8; ++round)
    {
        const utl_FaultPlan plan({.mostBytes = round % 2 == 0 ? 0 : 3001, .interruptEvery = 5});
        RandomPages use(Name(), seed + round);
        for (int step = 0; step < 4000 && !HasFailure(); ++step) ASSERT_TRUE(use.Step()) << "step " << step;
        use.Close();
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

TEST_F(utl_FilePagesTest, RandomUseOfAFailingFileLosesNothingThatItHasTaken)
{
    const unsigned seed = RandomSeed();
    std::mt19937 random(seed);
    int refused = 0;
    for (unsigned round = 0; round < 60; ++round)
    {
        RandomPages use(Name(), seed + round);
        utl_FaultPlan plan({.failWrite = 1 + static_cast<int>(random() % 100),
                            .failRead = 1 + static_cast<int>(random() % 300),
                            .failExtend = 1 + static_cast<int>(random() % 10),
                            .error = ENOSPC,
                            .tornAtHalf = round % 2 == 0,
                            .staysBroken = round % 2 == 1});
        for (int step = 0; step < 800 && !HasFailure(); ++step)
            if (!use.Step()) ++refused;
        plan.Repair();
        for (int step = 0; step < 100 && !HasFailure(); ++step) ASSERT_TRUE(use.Step()) << "step " << step;
        use.Close();
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
    EXPECT_GT(refused, 100);
}
