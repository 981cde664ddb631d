// A writer here, the assistant over there: what it tells of changes, reply by reply.
#include "AssistantReader.h"
#include "RandomSeed.h"
#include "TestFolder.h"
#include "rfm.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>

namespace
{
using testing::IsEmpty;
using testing::IsSubsetOf;
using Starts = AssistantReader::Starts;

constexpr int kPage = 1024;

/// The starts of the pages in which two states of a file differ.
Starts DifferentPages(const std::string& before, const std::string& after)
{
    Starts starts;
    for (std::size_t start = 0; start < std::max(before.size(), after.size()); start += kPage)
        if ((start < before.size() ? before.substr(start, kPage) : "") !=
            (start < after.size() ? after.substr(start, kPage) : ""))
            starts.push_back(static_cast<std::int64_t>(start));
    return starts;
}

/// A file that looks like a database to the checker, written byte by byte.
class FollowingReader : public ::testing::Test
{
protected:
    static constexpr int kPages = 20;

    FollowingReader()
    {
        std::string bytes;
        for (int i = 0; i < kPages; ++i) bytes += std::string(kPage, static_cast<char>('a' + i));
        PutBytes(cow_String(m_Path), bytes.replace(512, 8, std::string(8, '\0')));
    }
    void Patch(std::size_t offset, std::string_view bytes) const
    {
        std::fstream file(m_Path, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(static_cast<std::streamoff>(offset));
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    /// Moves the flush count, as the end of a flush does.
    void Flush()
    {
        ++m_Count;
        Patch(512, {reinterpret_cast<const char*>(&m_Count), 4});
    }
    std::string Bytes() const { return BytesOf(cow_String(m_Path)); }
    AssistantReader Open() const { return AssistantReader({RFM_FILE_ASSISTANT, m_Path}, kPage); }
    static void Take(AssistantReader& reader, const Starts& starts)
    {
        for (const std::int64_t start : starts) reader.Page(start);
    }
    static void Expect(const AssistantReader::Reply& reply, int status, const Starts& changed = {})
    {
        EXPECT_EQ(reply.status, status);
        EXPECT_EQ(reply.changed, changed);
    }

    TestFolder m_Folder;
    std::string m_Path = m_Folder.Path() + "/job.rdx";
    int m_Count = 0;
};

// ---- A database and its writer ----

class WrittenDatabase : public FollowingReader
{
protected:
    WrittenDatabase()
    {
        m_Database.emplace(rfm_Database::Create(rfm_File::Open(cow_String(m_Path), utl_FileAccessCreate),
                                                "TEST", "sample", 1700000000));
        rfm_TableMetadata layout("STEPS", 1);
        m_Time = layout.DefineDoubleField("time");
        m_Steps = m_Database->Table(m_Database->Bind(layout), -1, -1);
        for (int i = 0; i < 2000; ++i) m_Steps.NewRow().WriteFieldDouble(m_Time, i);
        Publish();
    }
    void Publish()
    {
        m_Steps.Flush();
        m_Database->Flush();
    }

    std::optional<rfm_Database> m_Database;
    rfm_Table m_Steps;
    int m_Time = -1;
};

TEST_F(WrittenDatabase, OneChangedRowIsToldAsThePagesThatItChangedAndNothingElse)
{
    AssistantReader reader = Open();
    const std::string before = Bytes();
    EXPECT_EQ(reader.AllPages(), before);
    Expect(reader.Status(), 0);

    m_Steps.UpdateRow(1000).WriteFieldDouble(m_Time, 0.5);
    Publish();
    const Starts different = DifferentPages(before, Bytes());
    ASSERT_GE(different.size(), 2U); // the header and the row at least
    ASSERT_LE(different.size(), 4U);
    Expect(reader.Status(), 2, different);
    Expect(reader.Status(), 0);
    EXPECT_EQ(reader.AllPages(), Bytes());
}

TEST_F(WrittenDatabase, RowsThatAreAddedAreToldTheSameWay)
{
    AssistantReader reader = Open();
    const std::string before = Bytes();
    EXPECT_EQ(reader.AllPages(), before);
    for (int i = 0; i < 5; ++i) m_Steps.NewRow().WriteFieldDouble(m_Time, i);
    Publish();
    Expect(reader.Status(), 2, DifferentPages(before, Bytes()));
}

TEST_F(WrittenDatabase, TheCloseThatCutsTheFileIsTold)
{
    AssistantReader reader = Open();
    const std::string before = Bytes();
    ASSERT_EQ(before.size() % 1048576, 0U);
    Take(reader, {0, 1024, 1047552});
    EXPECT_EQ(reader.Size().size, 1048576);
    m_Steps = rfm_Table();
    m_Database.reset();
    ASSERT_LT(Bytes().size(), 1047552U);
    const AssistantReader::Reply reply = reader.Size();
    EXPECT_EQ(reply.size, static_cast<std::int64_t>(Bytes().size()));
    EXPECT_EQ(reply.status, 2);
    EXPECT_THAT(reply.changed, testing::Contains(0));
    EXPECT_THAT(reply.changed, testing::Contains(1047552));
    EXPECT_EQ(reader.Page(1047552).page, "");
}

// ---- Two watches ----

TEST_F(FollowingReader, AStatusRequestAnswersUpdatedOnceForEachMovement)
{
    AssistantReader reader = Open();
    Expect(reader.Status(), 0);
    Flush();
    Expect(reader.Status(), 2); // nothing is held
    Expect(reader.Status(), 0);
    Flush();
    Flush();
    Expect(reader.Status(), 2);
    Expect(reader.Status(), 0);
}

TEST_F(FollowingReader, WhenNoHeldPageHasChangedTheListIsEmpty)
{
    AssistantReader reader = Open();
    Take(reader, {1024, 4096});
    Flush(); // changes page 0 alone
    Expect(reader.Status(), 2);
}

TEST_F(FollowingReader, APageReplyTellsTheChangedPagesAndLeavesTheStatusRequestItsUpdated)
{
    AssistantReader reader = Open();
    Take(reader, {0, 1024, 2048});
    Patch(2000, "changed");
    Flush();
    Expect(reader.Page(4096), 2, {0, 1024});
    Expect(reader.Page(5120), 0); // told once
    Expect(reader.Status(), 2);
    Expect(reader.Status(), 0);
}

TEST_F(FollowingReader, SoDoesASizeReply)
{
    AssistantReader reader = Open();
    Take(reader, {0, 1024});
    Flush();
    const AssistantReader::Reply reply = reader.Size();
    Expect(reply, 2, {0});
    EXPECT_EQ(reply.size, kPages * kPage);
    Expect(reader.Size(), 0);
    Expect(reader.Status(), 2);
}

TEST_F(FollowingReader, AStatusRequestLeavesNothingForTheNextPage)
{
    AssistantReader reader = Open();
    Take(reader, {0, 1024});
    Flush();
    Expect(reader.Status(), 2, {0});
    Expect(reader.Page(4096), 0);
}

TEST_F(FollowingReader, ThePageThatIsAnsweredIsNeverListed)
{
    AssistantReader reader = Open();
    Take(reader, {0, 1024});
    Patch(2000, "changed");
    Flush();
    const AssistantReader::Reply reply = reader.Page(0);
    Expect(reply, 2, {1024});
    EXPECT_EQ(reply.page, Bytes().substr(0, kPage));
    Expect(reader.Status(), 2); // it was sent as it is now
}

// ---- What is held ----

TEST_F(FollowingReader, DroppedPagesAreNotTold)
{
    AssistantReader reader = Open();
    Take(reader, {0, 1024, 2048, 3072});
    reader.Page(4096, {1024, 3072, 9216});
    Patch(1024, std::string(3 * kPage, 'x'));
    Flush();
    Expect(reader.Status(), 2, {0, 2048});
}

TEST_F(FollowingReader, PagesThatWereToldAreHeldAgainWhenTheyAreSentAgain)
{
    AssistantReader reader = Open();
    Take(reader, {1024});
    for (int i = 0; i < 3; ++i)
    {
        Patch(1030, std::to_string(i));
        Flush();
        Expect(reader.Status(), 2, {1024});
        Patch(1031, std::to_string(i));
        Flush();
        Expect(reader.Status(), 2);
        EXPECT_EQ(reader.Page(1024).page, Bytes().substr(1024, kPage));
    }
}

TEST_F(FollowingReader, AShortPageThatGrewHasChanged)
{
    Patch(kPages * kPage, "abc");
    AssistantReader reader = Open();
    EXPECT_EQ(reader.Page(kPages * kPage).page, "abc");
    EXPECT_EQ(reader.Page((kPages + 1) * kPage).page, "");
    Patch(kPages * kPage + 3, std::string(2 * kPage, '\0'));
    Flush();
    Expect(reader.Status(), 2, {kPages * kPage});
}

TEST_F(FollowingReader, AListOfAnyLengthIsTold)
{
    constexpr int kMany = 3000;
    Patch(kPages * kPage, std::string((kMany - kPages) * kPage, 'z'));
    AssistantReader reader = Open();
    Starts all;
    for (int i = 0; i < kMany; ++i) all.push_back(std::int64_t{i} * kPage);
    Take(reader, all);
    for (const std::int64_t start : all) Patch(static_cast<std::size_t>(start) + 1000, "x");
    Flush();
    const AssistantReader::Reply reply = reader.Page(2048);
    all.erase(all.begin() + 2);
    Expect(reply, 2, all);
    EXPECT_EQ(reply.page, Bytes().substr(2048, kPage));
}

// ---- Between two flushes ----

// A reader here would see such a write at once. The write comes within the same tick of the file's clock as the reply
// before it, or not: it must show all the same.
TEST_F(FollowingReader, AWriteWithoutAFlushIsToldWithTheNextPageBesideIt)
{
    AssistantReader reader = Open();
    for (int i = 0; i < 100; ++i)
    {
        reader.Page(1024);
        Patch(1500, std::to_string(i));
        const AssistantReader::Reply reply = reader.Page(2048, {2048});
        Expect(reply, 2, {1024});
        Expect(reader.Status(), 0);
    }
}

TEST_F(FollowingReader, OneThatLiesFarAwayIsToldWithTheFlush)
{
    AssistantReader reader = Open();
    for (int i = 0; i < 15; ++i) reader.Page(i * kPage);
    Patch(1500, "changed");
    Patch(13 * kPage, "changed");
    Expect(reader.Page(16 * kPage), 2, {13 * kPage});
    Flush();
    Expect(reader.Status(), 2, {0, 1024});
}

// ---- The other states ----

TEST_F(FollowingReader, AFileInTransactionIsToldAndServed)
{
    AssistantReader reader = Open();
    Take(reader, {0, 1024});
    std::filesystem::create_directory(m_Folder.Path() + "/job.lsm");
    Expect(reader.Status(), 4);
    Expect(reader.Size(), 4);
    const AssistantReader::Reply page = reader.Page(19 * kPage);
    Expect(page, 4);
    EXPECT_EQ(page.page, Bytes().substr(19 * kPage));
    std::filesystem::remove(m_Folder.Path() + "/job.lsm");
    Expect(reader.Status(), 0);
}

TEST_F(FollowingReader, WhatWasFlushedInATransactionIsToldBehindIt)
{
    AssistantReader reader = Open();
    Take(reader, {0, 1024, 2048});
    std::filesystem::create_directory(m_Folder.Path() + "/job.lsm");
    Patch(2000, "changed");
    Flush();
    Expect(reader.Status(), 4);
    std::filesystem::remove(m_Folder.Path() + "/job.lsm");
    Expect(reader.Status(), 2, {0, 1024});
    Expect(reader.Status(), 0);
}

// A reader here sees them too: only a snap waits.
TEST_F(FollowingReader, PagesThatAreWrittenInATransactionAreToldWithThePageBesideThem)
{
    AssistantReader reader = Open();
    Take(reader, {0, 1024});
    std::filesystem::create_directory(m_Folder.Path() + "/job.lsm");
    Patch(2000, "changed");
    Expect(reader.Page(2048), 2, {1024});
    Expect(reader.Page(3072), 4);
    Expect(reader.Status(), 4);
}

TEST_F(FollowingReader, AReplacedFileIsToldForEverAndTheOldOneServed)
{
    AssistantReader reader = Open();
    const std::string before = Bytes();
    const std::string fresh = m_Folder.Path() + "/fresh";
    PutBytes(cow_String(fresh), std::string(2 * kPage, 'n'));
    std::filesystem::rename(fresh, m_Path);
    Expect(reader.Status(), 1);
    Expect(reader.Status(), 1);
    const AssistantReader::Reply page = reader.Page(1024);
    Expect(page, 1);
    EXPECT_EQ(page.page, before.substr(1024, kPage));
    EXPECT_EQ(reader.Size().size, kPages * kPage);
}

TEST_F(FollowingReader, AFileThatIsGoneIsToldAndServed)
{
    AssistantReader reader = Open();
    const std::string before = Bytes();
    std::filesystem::remove(m_Path);
    Expect(reader.Status(), 3);
    const AssistantReader::Reply page = reader.Page(1024);
    Expect(page, 3);
    EXPECT_EQ(page.page, before.substr(1024, kPage));
}

// As on this host: who reads such a file sees it as it was when it was opened.
TEST_F(FollowingReader, CompressedFilesAreUnchangedForEver)
{
    {
        const rfm_File file = rfm_File::CreateCompressed(cow_String(m_Path));
        rfm_Database::Create(file, "TEST", "sample", 1).Flush();
    }
    AssistantReader reader = Open();
    const std::string before = reader.AllPages();
    ASSERT_GE(before.size(), 15360U);
    std::filesystem::rename(m_Path, m_Path + ".old");
    Expect(reader.Status(), 0);
    EXPECT_EQ(reader.AllPages(), before);
}

// ---- Everything at once ----

// Against a model that keeps the bytes of every page that the reader holds.
TEST_F(FollowingReader, WhateverHappensExactlyTheChangedPagesAreTold)
{
    std::mt19937 random(RandomSeed());
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    AssistantReader reader = Open();
    std::map<std::int64_t, std::string> held;
    bool isDue = false;
    bool isUntold = false;
    const auto pageOf = [](const std::string& bytes, std::int64_t start)
    {
        const auto place = static_cast<std::size_t>(start);
        return place < bytes.size() ? bytes.substr(place, kPage) : "";
    };
    const auto takeChanged = [&](const AssistantReader::Reply& reply, const std::string& bytes)
    {
        Starts all;
        for (const auto& [start, page] : held)
            if (page != pageOf(bytes, start)) all.push_back(start);
        if (isDue)
            EXPECT_EQ(reply.changed, all);
        else
            EXPECT_THAT(reply.changed, IsSubsetOf(all));
        for (const std::int64_t start : reply.changed) held.erase(start);
        isDue = false;
    };
    for (int step = 0; step < 2000 && !HasFailure(); ++step)
    {
        const std::string bytes = Bytes();
        const auto start = static_cast<std::int64_t>(below(kPages + 6)) * kPage;
        switch (below(8))
        {
        case 0:
            Flush();
            isDue = isUntold = true;
            break;
        case 1: Patch(1024 + below(bytes.size()), std::to_string(step)); break; // at the end it grows
        case 2:
            if (bytes.size() > 15 * kPage) std::filesystem::resize_file(m_Path, bytes.size() - below(kPage));
            break;
        case 3:
        {
            const AssistantReader::Reply reply = reader.Status();
            EXPECT_EQ(reply.status, isUntold ? 2 : 0);
            if (isUntold && isDue)
                takeChanged(reply, bytes);
            else
                EXPECT_THAT(reply.changed, IsEmpty());
            isUntold = false;
            break;
        }
        default:
        {
            Starts dropped;
            for (const auto& [at, page] : held)
                if (below(10) == 0) dropped.push_back(at);
            for (const std::int64_t at : dropped) held.erase(at);
            held.erase(start);
            const AssistantReader::Reply reply = reader.Page(start, dropped);
            EXPECT_EQ(reply.status, reply.changed.empty() ? 0 : 2);
            takeChanged(reply, bytes);
            EXPECT_EQ(reply.page, pageOf(bytes, start));
            if (!reply.page.empty()) held[start] = reply.page;
        }
        }
    }
    EXPECT_EQ(reader.End().code, 0);
}
} // namespace
