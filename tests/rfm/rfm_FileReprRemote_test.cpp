#include "rfm_FileReprRemote.h"

#include "RemoteFileScene.h"
#include "ScriptedRun.h"
#include "rfm_HeaderFormat.h"
#include "utl_FaultPlan.h"

#include <fstream>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{
constexpr int kPage = 1024;
constexpr const char* kCorrupt =
    "***ERROR: The MARLEK database file is corrupt. If this file was transferred from another machine using "
    "FTP or "
    "equivalent, ensure that the file was copied using the binary mode instead of ASCII mode.";

class rfm_FileReprRemoteTest : public RemoteFileScene
{
protected:
    /// A viewer of job.rdx, which a writer has just begun.
    rfm_Database OpenAfterFirstIncrement(ScriptedRun::Writer& writer)
    {
        writer.SetUp();
        writer.WriteIncrement(1);
        writer.Flush();
        rfm_Database viewer = rfm_Database::Open(rfm_File::Open(Url("job.rdx"), utl_FileAccessRead), "TEST");
        ScriptedRun::ExpectAtLeast(viewer, 1);
        return viewer;
    }
    rfm_FileReprRemoteTest() { Options(1, kNoLimit); }

    /// A file over there, and the reader of it; what was asked so far is behind.
    rfm_FileReprRemote& Open(const std::string& content, const std::string& name = "a.rdx")
    {
        Put(name, content);
        m_Files.push_back(std::make_unique<rfm_FileReprRemote>(Url(name)));
        Requests();
        return *m_Files.back();
    }
    static std::string Read(rfm_FileReprRemote& file, int count)
    {
        std::string bytes(static_cast<std::size_t>(count), '?');
        bytes.resize(static_cast<std::size_t>(file.Read(bytes.data(), count)));
        return bytes;
    }
    static std::string ReadAt(rfm_FileReprRemote& file, std::int64_t position, int count)
    {
        file.Seek(position);
        return Read(file, count);
    }
    /// A page of 0 in the file's place at 500: as a writer stamps it.
    static std::string Stamped(std::int64_t size, std::size_t bytes)
    {
        std::string content(bytes, '\0');
        rfm_EncodeSizeStamp(size, omi_Swapper(omi_Swapper::Stored), content.data() + rfm_SizeStampOffset);
        return content;
    }
    void Append(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(Path(name), std::ios::app | std::ios::binary) << bytes;
    }
    static std::string Page(std::int64_t start, const std::string& dropped = "")
    {
        return "page " + std::to_string(start) + " of 1024 dropped" + dropped;
    }

    void Close() { m_Files.clear(); }

private:
    std::vector<std::unique_ptr<rfm_FileReprRemote>> m_Files;
};

// --- bytes on the wire

TEST_F(rfm_FileReprRemoteTest, ASessionHasTheseBytes)
{
    Script(
        "take 1\nsend 0001\ntake 6\n"
        "take 1\nsend 0000 0000000000000403\n"          // 1027 bytes
        "take 15\nsend ff00 00000400\nfill 1024\n"      // page 0; the first byte is not looked at
        "take 1\nsend 0002 00000001 0000000000000000\n" // status: page 0 has changed
        "take 23\nsend 0000 00000003 616263\n"          // page 1024, and 0 is dropped
        "take 15\nsend 0002 00000002 0000000000000000 0000000000000400 00000003 646566\n" // page 1024 again
        "swallow\n");
    {
        rfm_FileReprRemote file(Url("a.rdx"));
        EXPECT_EQ(Read(file, 3), "fff");
        EXPECT_EQ(file.CheckStatus(), rfm_FileStatus::RfmFileUpdated);
        EXPECT_EQ(ReadAt(file, kPage, 3), "abc");
        EXPECT_EQ(ReadAt(file, kPage, 4), "abc"); // more was wanted, and nothing more has come behind them
        EXPECT_EQ(ReadAt(file, kPage, 3), "def");
    }
    EXPECT_EQ(Taken(), "00"
                       "0001"
                       "00000400"
                       "01"
                       "02"
                       "0000"
                       "0000000000000000"
                       "00000400"
                       "03"
                       "02"
                       "0001"
                       "0000000000000000"
                       "0000000000000400"
                       "00000400"
                       "02"
                       "0000"
                       "0000000000000400"
                       "00000400");
}

// --- reading

TEST_F(rfm_FileReprRemoteTest, TheFirstReadOfAPageIsOneRequestAndTheNextNone)
{
    const std::string content = ContentOf(1, 4 * kPage);
    rfm_FileReprRemote& file = Open(content);
    EXPECT_EQ(ReadAt(file, kPage + 100, 50), content.substr(kPage + 100, 50));
    EXPECT_THAT(Requests(), ElementsAre(Page(kPage)));
    EXPECT_EQ(Read(file, 50), content.substr(kPage + 150, 50));
    EXPECT_EQ(ReadAt(file, kPage, kPage), content.substr(kPage, kPage));
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_EQ(file.Location(), 2 * kPage);
}

TEST_F(rfm_FileReprRemoteTest, AReadGoesOverAnyNumberOfPages)
{
    const std::string content = ContentOf(1, 5 * kPage + 10);
    rfm_FileReprRemote& file = Open(content);
    EXPECT_EQ(ReadAt(file, kPage - 1, 2 * kPage + 2), content.substr(kPage - 1, 2 * kPage + 2));
    EXPECT_THAT(Requests(), ElementsAre(Page(0), Page(kPage), Page(2 * kPage), Page(3 * kPage)));
    EXPECT_EQ(file.Location(), 3 * kPage + 1);
    EXPECT_EQ(ReadAt(file, 0, 6 * kPage), content);
    EXPECT_EQ(file.Location(), 5 * kPage + 10);
}

TEST_F(rfm_FileReprRemoteTest, TheShortLastPageIsAskedForAgainEachTimeMoreIsWantedFromIt)
{
    rfm_FileReprRemote& file = Open("0123456789");
    EXPECT_EQ(Read(file, 10), "0123456789");
    EXPECT_THAT(Requests(), ElementsAre(Page(0)));
    EXPECT_EQ(ReadAt(file, 2, 8), "23456789"); // all there
    EXPECT_THAT(Requests(), IsEmpty());
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_EQ(ReadAt(file, 8, 4), "89");
        EXPECT_THAT(Requests(), ElementsAre(Page(0)));
        EXPECT_EQ(file.Location(), 10);
        EXPECT_EQ(Read(file, 4), "");
        EXPECT_THAT(Requests(), ElementsAre(Page(0)));
        EXPECT_EQ(file.Location(), 10);
    }
}

TEST_F(rfm_FileReprRemoteTest, WhatWasAppendedIsSeenByTheNextReadBehindTheOldEnd)
{
    rfm_FileReprRemote& file = Open("0123456789");
    EXPECT_EQ(Read(file, 20), "0123456789");
    Append("a.rdx", "abc" + std::string(2 * kPage, 'd'));
    EXPECT_EQ(Read(file, 3), "abc");
    EXPECT_EQ(ReadAt(file, 2 * kPage, 20), std::string(13, 'd'));
    EXPECT_EQ(file.Length(), 10);
    EXPECT_EQ(file.LogicalLength(), 10);
    EXPECT_EQ(file.PhysicalLength(), 10);
    EXPECT_EQ(file.MediumSize(), 13 + 2 * kPage);
}

TEST_F(rfm_FileReprRemoteTest, AReadAtTheExactEndOfAFullPageLooksAtTheNextOne)
{
    rfm_FileReprRemote& file = Open(ContentOf(1, kPage));
    EXPECT_EQ(Read(file, kPage + 1), ContentOf(1, kPage));
    EXPECT_THAT(Requests(), ElementsAre(Page(0), Page(kPage)));
    EXPECT_EQ(Read(file, 1), "");
    EXPECT_THAT(Requests(), ElementsAre(Page(kPage)));
}

TEST_F(rfm_FileReprRemoteTest, AnEmptyFileReadsAsNothing)
{
    rfm_FileReprRemote& file = Open("");
    EXPECT_EQ(file.Length(), 0);
    EXPECT_EQ(Read(file, 10), "");
    EXPECT_EQ(ReadAt(file, 5000, 10), "");
    EXPECT_THAT(Requests(), ElementsAre(Page(0), Page(4096)));
}

TEST_F(rfm_FileReprRemoteTest, AReadOfNothingSendsNothing)
{
    rfm_FileReprRemote& file = Open("0123456789");
    EXPECT_EQ(file.Read(nullptr, 0), 0);
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(rfm_FileReprRemoteTest, ParametersThatCannotBeAreTold)
{
    rfm_FileReprRemote& file = Open("0123456789");
    char byte = 0;
    EXPECT_EQ(Thrown<nex_TextException>([&] { file.Read(&byte, -1); }),
              "rfm_FileReprRemote::Read: Invalid length when reading file.");
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Read(nullptr, 1); }),
              "*** ERROR: Bad parameter passed to file method: rfm_FileReprRemote::Read.");
    file.Seek(-1); // no test there
    EXPECT_EQ(file.Location(), -1);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Read(&byte, 1); }),
              "*** ERROR: Bad parameter passed to file method: rfm_FileReprRemote::Read.");
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(rfm_FileReprRemoteTest, BehindThePlacesThatAFileCanHaveThereIsNothing)
{
    rfm_FileReprRemote& file = Open("0123456789");
    EXPECT_EQ(ReadAt(file, INT64_MAX, 10), "");
    EXPECT_EQ(ReadAt(file, INT64_MAX - 1023, 10), "");
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(rfm_FileReprRemoteTest, EveryWayToWriteIsRefused)
{
    rfm_FileReprRemote& file = Open("0123456789");
    const std::string expected =
        std::string("*** ERROR: Attempt to write to read-only file:\n  ") + Url("a.rdx").CString();
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.Write("x", 1); }), expected);
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.Extend(1); }), expected);
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.ExtendBy(1); }), expected);
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.TrimToLength(); }), expected);
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.WriteSizeStamp(500); }), expected);
    file.Flush();
    EXPECT_THAT(Requests(), IsEmpty());
}

// --- news

TEST_F(rfm_FileReprRemoteTest, TheStatusIsThatOfTheAssistant)
{
    rfm_FileReprRemote& file = Open("0123456789");
    for (const int status : {0, 1, 3, 4})
    {
        Put("status", std::to_string(status));
        EXPECT_EQ(file.CheckStatus(), status);
    }
    Put("changed", "");
    EXPECT_EQ(file.CheckStatus(), rfm_FileStatus::RfmFileUpdated);
    EXPECT_THAT(Requests(), ElementsAre("status", "status", "status", "status", "status"));
}

TEST_F(rfm_FileReprRemoteTest, AStatusOfAPageReplyDiscardsThePagesItLists)
{
    rfm_FileReprRemote& file = Open(ContentOf(1, 4 * kPage));
    ReadAt(file, 0, 3 * kPage);
    Requests();
    Put("a.rdx", ContentOf(2, 4 * kPage));
    Put("changed", "0 2048");
    EXPECT_EQ(ReadAt(file, 3 * kPage, kPage), ContentOf(2, 4 * kPage).substr(3 * kPage));
    EXPECT_EQ(ReadAt(file, 0, kPage), ContentOf(2, kPage));
    EXPECT_EQ(ReadAt(file, kPage, kPage), ContentOf(1, 4 * kPage).substr(kPage, kPage)); // not listed
    EXPECT_EQ(ReadAt(file, 2 * kPage, kPage), ContentOf(2, 4 * kPage).substr(2 * kPage, kPage));
    // 0 was fetched again before anybody could be told that it had gone; 2048 had gone by then.
    EXPECT_THAT(Requests(), ElementsAre(Page(3 * kPage), Page(0, " 2048"), Page(2 * kPage)));
}

TEST_F(rfm_FileReprRemoteTest, ThePageThatIsBeingFetchedStaysThoughItIsListed)
{
    const std::string content = ContentOf(1, 2 * kPage);
    rfm_FileReprRemote& file = Open(content);
    Put("changed", "0");
    EXPECT_EQ(ReadAt(file, 0, 10), content.substr(0, 10));
    EXPECT_EQ(ReadAt(file, kPage, kPage), content.substr(kPage));
    EXPECT_EQ(ReadAt(file, 0, kPage), content.substr(0, kPage));
    EXPECT_THAT(Requests(), ElementsAre(Page(0), Page(kPage)));
}

TEST_F(rfm_FileReprRemoteTest, AListMayNamePagesThatNobodyHolds)
{
    rfm_FileReprRemote& file = Open("0123456789");
    Put("changed", "1024 -1024 9223372036854775807 -9223372036854775808 77");
    EXPECT_EQ(Read(file, 10), "0123456789");
    EXPECT_EQ(file.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_EQ(ReadAt(file, 0, 10), "0123456789");
    EXPECT_THAT(Requests(), ElementsAre(Page(0), "status"));
}

TEST_F(rfm_FileReprRemoteTest, MoreDroppedPagesThanARequestHoldsGoWithTheNext)
{
    constexpr int kPages = 32769;
    const std::string content(static_cast<std::size_t>(kPages) * kPage, 'c');
    rfm_FileReprRemote& file = Open(content);
    EXPECT_EQ(ReadAt(file, 0, kPages * kPage), content);
    std::string all;
    for (int i = 0; i < kPages; ++i) all += std::to_string(std::int64_t{i} * kPage) + " ";
    Put("changed", all);
    file.CheckStatus();
    Requests();
    ReadAt(file, 5 * kPage, 1);
    ReadAt(file, 6 * kPage, 1);
    ReadAt(file, 7 * kPage, 1);
    std::vector<std::ptrdiff_t> dropped;
    for (const std::string& request : Requests())
        dropped.push_back(std::ranges::count(request, ' ') - 4); // those of a request that drops nothing
    // All but the page that was fetched first.
    EXPECT_THAT(dropped, ElementsAre(32767, 1, 0));
}

// --- the cache between files

TEST_F(rfm_FileReprRemoteTest, APageTakenForAnotherFileIsToldAtTheNextPageRequest)
{
    Options(512, 1); // two pages
    const std::string content = ContentOf(1, 3 << 19);
    rfm_FileReprRemote& a = Open(content, "a.rdx");
    rfm_FileReprRemote& b = Open(content, "b.rdx");
    ReadAt(a, 0, 1);
    ReadAt(a, 1 << 19, 1);
    ReadAt(b, 0, 1); // takes a's first page
    Requests();
    EXPECT_EQ(ReadAt(a, 2 << 19, 10), content.substr(2 << 19, 10)); // takes a's second page
    EXPECT_THAT(Requests(), ElementsAre("page 1048576 of 524288 dropped 0 524288"));
    EXPECT_EQ(ReadAt(b, 0, 1), content.substr(0, 1));
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_EQ(CacheFileBytes(), 2 << 19);
}

TEST_F(rfm_FileReprRemoteTest, AFileThatIsClosedGivesItsPagesBack)
{
    Options(512, 1);
    rfm_FileReprRemote& a = Open(ContentOf(1, 1 << 19), "a.rdx");
    ReadAt(a, 0, 1);
    {
        Put("b.rdx", ContentOf(2, 1 << 19));
        rfm_FileReprRemote b(Url("b.rdx"));
        ReadAt(b, 0, 1);
    }
    rfm_FileReprRemote& c = Open(ContentOf(3, 1 << 19), "c.rdx");
    EXPECT_EQ(ReadAt(c, 0, 100), ContentOf(3, 100));
    Requests();
    EXPECT_EQ(ReadAt(a, 0, 100), ContentOf(1, 100)); // still there
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(rfm_FileReprRemoteTest, WithoutRoomForAPageTheReadIsRefused)
{
    Options(1, 0);
    rfm_FileReprRemote& file = Open("0123456789");
    char byte = 0;
    EXPECT_EQ(Thrown<nex_TextException>([&] { file.Read(&byte, 1); }), "Cache Space Exausted.");
    EXPECT_EQ(file.CheckStatus(), rfm_FileStatus::RfmFileUnchanged); // the connection stands
}

TEST_F(rfm_FileReprRemoteTest, AFullDiskFailsTheReadAndNothingElse)
{
    const std::string content = ContentOf(1, 4 * kPage);
    rfm_FileReprRemote& file = Open(content);
    EXPECT_EQ(Read(file, kPage), content.substr(0, kPage));
    {
        const utl_FaultPlan full({.room = 4096});
        char bytes[2 * kPage];
        for (int i = 0; i < 2; ++i)
        {
            EXPECT_THAT(Thrown<utl_FileException>([&] { file.Read(bytes, 2 * kPage); }),
                        ::testing::EndsWith("No space left on device."));
            EXPECT_EQ(file.Location(), kPage);
        }
        EXPECT_EQ(ReadAt(file, 0, 10), content.substr(0, 10));
    }
    EXPECT_EQ(ReadAt(file, 0, 4 * kPage), content);
}

TEST_F(rfm_FileReprRemoteTest, EveryPageIsReleasedWhateverFails)
{
    Options(512, 1); // two pages, of which each failed read must give one back
    Script(
        "take 1\nsend 0001\ntake 6\ntake 1\nsend 0000 0000000000100000\ntake 15\nsend 0000 00000010 6162\n");
    Put("b.rdx", "other");
    rfm_FileReprRemote file(Url("a.rdx"));
    char bytes[16];
    for (int i = 0; i < 5; ++i)
        EXPECT_THROW(file.Read(bytes, 16), rfm_FileFailExc); // cut off in the midst of a page; then lost
    std::filesystem::remove(Path("script"));
    rfm_FileReprRemote other(Url("b.rdx"));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(ReadAt(other, 0, 5), "other");
    file.Seek(0);
    EXPECT_THROW(file.Read(bytes, 2), rfm_FileFailExc); // not the two bytes that came
}

// --- size

TEST_F(rfm_FileReprRemoteTest, TheSizeIsAskedForAgainOnlyWhereThereMayBeNews)
{
    rfm_FileReprRemote& file = Open(ContentOf(1, 2 * kPage));
    EXPECT_EQ(file.MediumSize(), 2 * kPage);
    EXPECT_EQ(file.MediumSize(), 2 * kPage);
    EXPECT_THAT(Requests(), IsEmpty());
    Append("a.rdx", "more");
    file.CheckStatus(); // no news
    EXPECT_EQ(file.MediumSize(), 2 * kPage);
    EXPECT_THAT(Requests(), ElementsAre("status"));
    Put("changed", "");
    file.CheckStatus();
    EXPECT_EQ(file.MediumSize(), 2 * kPage + 4);
    EXPECT_EQ(file.MediumSize(), 2 * kPage + 4);
    EXPECT_THAT(Requests(), ElementsAre("status", "size"));
}

TEST_F(rfm_FileReprRemoteTest, APlaceBelowTheKnownSizeIsNotAskedFor)
{
    rfm_FileReprRemote& file = Open(ContentOf(1, 2 * kPage));
    Append("a.rdx", "more");
    ReadAt(file, 0, 1);
    EXPECT_TRUE(file.ReachesTo(2 * kPage));
    EXPECT_TRUE(file.MayHold(2 * kPage));
    EXPECT_THAT(Requests(), ElementsAre(Page(0)));
    EXPECT_TRUE(file.MayHold(2 * kPage + 4));
    EXPECT_FALSE(file.MayHold(2 * kPage + 5));
    EXPECT_FALSE(file.ReachesTo(2 * kPage + 5));
    EXPECT_THAT(Requests(), ElementsAre("size"));
}

TEST_F(rfm_FileReprRemoteTest, AStampThatAgreesPassesAndLeavesThePosition)
{
    rfm_FileReprRemote& file = Open(Stamped(3000, 3000));
    file.Seek(77);
    file.VerifySizeStamp(rfm_SizeStampOffset);
    EXPECT_EQ(file.Location(), 77);
    EXPECT_THAT(Requests(), ElementsAre(Page(0)));
}

TEST_F(rfm_FileReprRemoteTest, AStampOfNothingPassesUnlessItsFirstBytesWereAltered)
{
    Open(std::string(3000, '\0')).VerifySizeStamp(rfm_SizeStampOffset);
    std::string content(3000, '\0');
    content.replace(rfm_SizeStampOffset, 4, std::string("\x0A\0\x0D\x0A", 4));
    Open(content, "b.rdx").VerifySizeStamp(rfm_SizeStampOffset);
    content.replace(rfm_SizeStampOffset, 4, std::string("\x0D\x0A\0\x0D", 4));
    EXPECT_EQ(Thrown<nex_TextException>([&] { Open(content, "c.rdx").VerifySizeStamp(rfm_SizeStampOffset); }),
              kCorrupt);
}

TEST_F(rfm_FileReprRemoteTest, AStampOfAnotherSizeIsToldWithAnyFirstBytes)
{
    for (const int stamped : {2999, 3001})
    {
        rfm_FileReprRemote& file = Open(Stamped(stamped, 3000));
        file.Seek(77);
        EXPECT_EQ(Thrown<nex_TextException>([&] { file.VerifySizeStamp(rfm_SizeStampOffset); }), kCorrupt);
        EXPECT_EQ(file.Location(), 77);
    }
}

TEST_F(rfm_FileReprRemoteTest, AFileThatGrewBetweenItsOpenAndTheStampIsNotCorrupt)
{
    rfm_FileReprRemote& file = Open(Stamped(3000, 3000));
    Put("a.rdx", Stamped(4000, 4000));
    file.VerifySizeStamp(rfm_SizeStampOffset);
    EXPECT_THAT(Requests(), ElementsAre(Page(0), "size"));
    EXPECT_EQ(file.PhysicalLength(), 3000);
}

TEST_F(rfm_FileReprRemoteTest, AFileThatGrewBehindItsStampIsLookedAtAgain)
{
    rfm_FileReprRemote& file = Open(Stamped(2000, 3000));
    ReadAt(file, 0, 1); // the old stamp is in the cache
    Put("a.rdx", Stamped(4000, 4000));
    file.VerifySizeStamp(rfm_SizeStampOffset);
    EXPECT_THAT(Requests(), ElementsAre(Page(0), "size", Page(0)));
}

TEST_F(rfm_FileReprRemoteTest, TheWarningComesAboveFiveMebibytesAPage)
{
    Options(512, 1); // two pages: 10 MiB, though they hold but one
    rfm_FileReprRemote& file = Open("");
    std::filesystem::resize_file(Path("a.rdx"), 10 << 20);
    EXPECT_EQ(file.CheckCache(), atr_String());
    std::filesystem::resize_file(Path("a.rdx"), (10 << 20) + 1);
    EXPECT_EQ(std::string(file.CheckCache().View()),
              "The Network RDX file being opened is over five times the size of the Network RDX cache file. "
              "Performance may be degraded. If this is not acceptable, please relocate the temporary file "
              "directory "
              "to a location that has more free space.");
    EXPECT_THAT(Requests(), ElementsAre("size", "size"));
}

TEST_F(rfm_FileReprRemoteTest, ARoomyCacheNeverWarns)
{
    rfm_FileReprRemote& file = Open("0123456789");
    EXPECT_EQ(file.CheckCache(), atr_String());
}

// --- the trace

TEST_F(rfm_FileReprRemoteTest, EachRequestIsALineWhenItIsAskedFor)
{
    const EnvironmentVariable debug("nrdx_debug", "");
    ::testing::internal::CaptureStderr();
    rfm_FileReprRemote& file = Open("0123456789");
    Read(file, 4);
    Read(file, 4);
    Put("changed", "0");
    file.CheckStatus();
    ReadAt(file, kPage, 1);
    const std::string url = Url("a.rdx").CString();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "rfm_FileReprRemote: size 10, status 0: " + url + "\n" +
                  "rfm_FileReprRemote: page 0 with 10 bytes, 0 dropped, status 0: " + url + "\n" +
                  "rfm_FileReprRemote: status, status 2: " + url + "\n" +
                  "rfm_FileReprRemote: page 1024 with 0 bytes, 1 dropped, status 0: " + url + "\n");
}

TEST_F(rfm_FileReprRemoteTest, WithoutItNothingIsSaid)
{
    ::testing::internal::CaptureStderr();
    Read(Open("0123456789"), 4);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// --- the end of the library

TEST_F(rfm_FileReprRemoteTest, AFileThatOutlivesTheLibraryKeepsTheCacheAndTakesItAlong)
{
    const std::string content = ContentOf(1, 3 * kPage);
    rfm_FileReprRemote& file = Open(content);
    ReadAt(file, 0, kPage);
    rfm_finalize(Count());
    EXPECT_EQ(ReadAt(file, 0, 2 * kPage), content.substr(0, 2 * kPage));
    rfm_initialize(Count());
    Options(2, kNoLimit); // the next file has a cache of its own
    EXPECT_EQ(ReadAt(Open(content, "b.rdx"), 0, 1), content.substr(0, 1));
    EXPECT_THAT(Requests(), ElementsAre("page 0 of 2048 dropped"));
    EXPECT_EQ(ReadAt(file, 2 * kPage, kPage), content.substr(2 * kPage));
    EXPECT_EQ(FilesOfCaches(), 2);
    Close();
    EXPECT_EQ(FilesOfCaches(), 1);
}

// --- a database

TEST_F(rfm_FileReprRemoteTest, ADatabaseReadsAsItWasWritten)
{
    {
        ScriptedRun::Writer writer(Path("job.rdx"));
        writer.SetUp();
        for (int n = 1; n <= 60; ++n) writer.WriteIncrement(n);
        writer.Flush();
        writer.Close();
    }
    rfm_Database viewer = rfm_Database::Open(rfm_File::Open(Url("job.rdx"), utl_FileAccessRead), "TEST");
    EXPECT_TRUE(viewer.ReadOnly());
    EXPECT_EQ(viewer.CheckNRDXCache(), atr_String());
    ScriptedRun::ExpectAtLeast(viewer, 60);
}

// New texts and no growth: a reader has all that it needs in the pages.
TEST_F(rfm_FileReprRemoteTest, ARefreshWithNewTextsAsksForNoSize)
{
    ScriptedRun::Writer writer(Path("job.rdx"));
    rfm_Database viewer = OpenAfterFirstIncrement(writer);
    Requests();
    writer.WriteIncrement(2);
    writer.Flush();
    std::string all;
    for (int i = 0; i < 1024; ++i) all += std::to_string(i * kPage) + " ";
    Put("changed", all);
    EXPECT_EQ(viewer.FileStatus(), rfm_FileStatus::RfmFileUpdated);
    EXPECT_EQ(viewer.Snap(), 1);
    ScriptedRun::ExpectAtLeast(viewer, 2);
    EXPECT_THAT(Requests(), ::testing::Not(::testing::Contains("size")));
}

TEST_F(rfm_FileReprRemoteTest, TheWarningReachesTheUserOfADatabase)
{
    {
        ScriptedRun::Writer writer(Path("job.rdx"));
        writer.SetUp();
        writer.Flush();
        writer.Close();
    }
    Options(512, 1);
    rfm_Database viewer = rfm_Database::Open(rfm_File::Open(Url("job.rdx"), utl_FileAccessRead), "TEST");
    EXPECT_EQ(viewer.CheckNRDXCache(), atr_String());
    std::filesystem::resize_file(Path("job.rdx"), 20 << 20);
    EXPECT_THAT(std::string(viewer.CheckNRDXCache().View()),
                ::testing::StartsWith("The Network RDX file being opened is over five times the size"));
}

TEST_F(rfm_FileReprRemoteTest, AViewerFollowsAWriterWhoseFileGrows)
{
    ScriptedRun::Writer writer(Path("job.rdx"));
    rfm_Database viewer = OpenAfterFirstIncrement(writer);
    EXPECT_EQ(viewer.FileStatus(), rfm_FileStatus::RfmFileUnchanged);

    // Enough to fill the first linkage block, so that the table reaches behind the end that was known at the open.
    constexpr int kIncrements = 1500;
    for (int n = 2; n <= kIncrements; ++n) writer.WriteIncrement(n);
    writer.Flush();
    std::string all;
    for (int i = 0; i < 20000; ++i) all += std::to_string(i * kPage) + " ";
    Put("changed", all);
    EXPECT_EQ(viewer.FileStatus(), rfm_FileStatus::RfmFileUpdated);
    EXPECT_EQ(viewer.Snap(), 1);
    EXPECT_EQ(viewer.Snap(), 0);
    ScriptedRun::ExpectAtLeast(viewer, kIncrements);
}
} // namespace
