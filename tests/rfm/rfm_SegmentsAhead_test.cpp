#include "rfm_SegmentsAhead.h"

#include "Forked.h"
#include "Threads.h"
#include "nex_Exception.h"
#include "rfm_CodecZip.h"
#include "rfm_EncodedFormat.h"
#include "rfm_FileReprEncoded.h"
#include "rfm_TestFile.h"
#include "utl_FaultPlan.h"
#include "utl_FileException.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{
constexpr int kSegment = 65536;
constexpr int kSegments = 24; // more than there are buffers
constexpr int kHole = 10;     // of these two nothing is stored
constexpr int kLength = (kSegments - 1) * kSegment + 1234;
constexpr const char* kCorrupt = "nex: ***ERROR: VDX database is corrupt.";

/// Where decoding happens, and a barrier that the helper has to wait at.
struct Traffic
{
    void Open()
    {
        open = true;
        open.notify_all();
    }
    bool HelperIsHeldUp()
    {
        return Comes([&] { return held.load() > 0; });
    }
    const std::thread::id owner = std::this_thread::get_id();
    std::atomic<int> byOwner = 0;
    std::atomic<int> byHelper = 0;
    std::atomic<int> held = 0; // that came to the closed barrier
    std::atomic<bool> open = true;
};

class WatchedCodec : public rfm_CodecZip
{
public:
    explicit WatchedCodec(Traffic& traffic) : rfm_CodecZip(6), m_Traffic(traffic) {}
    int Decode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in) override
    {
        const bool isOwner = std::this_thread::get_id() == m_Traffic.owner;
        ++(isOwner ? m_Traffic.byOwner : m_Traffic.byHelper);
        if (!isOwner && !m_Traffic.open)
        {
            ++m_Traffic.held;
            m_Traffic.open.wait(false);
        }
        return rfm_CodecZip::Decode(out, in);
    }

private:
    Traffic& m_Traffic;
};

/// Bytes that compress by about half, as a database has them.
std::string MakeContent()
{
    std::mt19937 random(7);
    std::string bytes(kLength, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i % 2 == 0 ? random() : i / 1000);
    std::fill_n(bytes.begin() + kHole * kSegment, 2 * kSegment, '\0');
    return bytes;
}
const std::string& Content()
{
    static const std::string content = MakeContent();
    return content;
}
std::string SegmentOf(int index)
{
    return Content().substr(static_cast<std::size_t>(index) * kSegment, kSegment);
}

class rfm_SegmentsAheadTest : public testing::Test
{
protected:
    void SetUp() override
    {
#ifdef __SANITIZE_THREAD__
        thr_Helper::Start().reset(); // ThreadSanitizer has a thread of its own from the first other one on
        ASSERT_TRUE(ThreadCountBecomes(2));
#endif
        MakeFile(m_File);
        Open();
        m_Threads = ThreadCount();
    }
    static void MakeFile(const rfm_TestFile& file)
    {
        rfm_FileReprEncoded repr(file.Name(), std::make_unique<rfm_CodecZip>(6), kSegment);
        repr.Write(Content().data(), kHole * kSegment);
        repr.ExtendBy(2 * kSegment);
        repr.Seek((kHole + 2) * kSegment);
        repr.Write(Content().data() + (kHole + 2) * kSegment, kLength - (kHole + 2) * kSegment);
    }
    std::unique_ptr<rfm_FileReprEncoded> Opened(const rfm_TestFile& file,
                                                utl_FileAccess access = utl_FileAccessRead)
    {
        return std::make_unique<rfm_FileReprEncoded>(file.Name(), access,
                                                     std::make_unique<WatchedCodec>(m_Traffic));
    }
    void Open(utl_FileAccess access = utl_FileAccessRead)
    {
        m_Repr.reset();
        m_Traffic.byOwner = m_Traffic.byHelper = 0;
        m_Repr = Opened(m_File, access);
    }
    static std::string ReadOn(rfm_FileReprEncoded& repr, int count)
    {
        std::string bytes(static_cast<std::size_t>(count), '?');
        bytes.resize(static_cast<std::size_t>(repr.Read(bytes.data(), count)));
        return bytes;
    }
    std::string Segment(int index)
    {
        m_Repr->Seek(std::int64_t{index} * kSegment);
        return ReadOn(*m_Repr, kSegment);
    }
    /// Reads segments `first` to `last` and expects what is in them.
    void Run(int first, int last)
    {
        for (int index = first; index <= last; ++index)
            ASSERT_TRUE(Segment(index) == SegmentOf(index)) << index;
    }
    /// Reads 0 to 2, after which the helper is at work with 3 and can't go on.
    void RunAndHoldUp()
    {
        m_Traffic.open = false;
        Run(0, 2);
        ASSERT_TRUE(m_Traffic.HelperIsHeldUp());
    }
    /// What reading the segments one after the other gives: "." for the right bytes, else the failure. Each that fails
    /// is tried again, then left out.
    std::vector<std::string> Outcomes()
    {
        Open();
        std::vector<std::string> outcomes;
        for (int index = 0; index < kSegments; ++index)
            for (int attempt = 0; attempt < 2; ++attempt)
            {
                outcomes.push_back(OutcomeOf(index));
                if (outcomes.back() == ".") break;
            }
        return outcomes;
    }
    std::string OutcomeOf(int index)
    {
        try
        {
            return Segment(index) == SegmentOf(index) ? "." : "other bytes";
        }
        catch (const utl_FileException& failure)
        {
            return std::string("utl: ") + failure.what();
        }
        catch (const nex_Exception& failure)
        {
            return std::string("nex: ") + failure.what();
        }
    }
    std::vector<std::string> OutcomesWithoutHelper()
    {
        const OneProcessor one;
        return Outcomes();
    }
    /// The first sector of the stream of a segment, from the directory.
    std::size_t StreamOf(int index) const
    {
        return rfm_LoadWord(m_File.Bytes(40 + 4 * static_cast<std::size_t>(index), 4).data()) * 4096;
    }

    const AnyProcessors m_AnyProcessors;
    rfm_TestFile m_File{".sdx"};
    Traffic m_Traffic;
    std::unique_ptr<rfm_FileReprEncoded> m_Repr;
    int m_Threads = 0;
};
} // namespace

// --- when

TEST_F(rfm_SegmentsAheadTest, TheThirdLoadInARowStartsTheHelperAndCloseEndsIt)
{
    Run(0, 1);
    EXPECT_EQ(ThreadCount(), m_Threads);
    Run(2, 2);
    EXPECT_EQ(ThreadCount(), m_Threads + 1);
    Run(3, 9);
    EXPECT_EQ(ThreadCount(), m_Threads + 1);
    m_Repr.reset();
    EXPECT_TRUE(ThreadCountBecomes(m_Threads));
}

TEST_F(rfm_SegmentsAheadTest, StepsAboutNeverStartIt)
{
    for (int step = 1; step < 200; ++step)
    {
        const int index = step * 7 % kSegments;
        ASSERT_TRUE(Segment(index) == SegmentOf(index));
    }
    for (int index = kSegments; index-- > 0;) ASSERT_TRUE(Segment(index) == SegmentOf(index));
    EXPECT_EQ(ThreadCount(), m_Threads);
}

TEST_F(rfm_SegmentsAheadTest, SegmentsThatAreInMemoryNeverStartIt)
{
    for (const int index : {3, 1, 4, 2, 5}) Run(index, index);
    Run(1, 5);
    EXPECT_EQ(ThreadCount(), m_Threads);
}

TEST_F(rfm_SegmentsAheadTest, AFileOpenForUpdateHasNone)
{
    Open(utl_FileAccessUpdate);
    Run(0, kSegments - 1);
    EXPECT_EQ(ThreadCount(), m_Threads);
    m_Repr->Seek(5 * kSegment);
    m_Repr->Write("new", 3);
    EXPECT_TRUE(Segment(5) == "new" + SegmentOf(5).substr(3));
}

TEST_F(rfm_SegmentsAheadTest, OneProcessorDoesItAlone)
{
    const OneProcessor one;
    Run(0, kSegments - 1);
    EXPECT_EQ(ThreadCount(), m_Threads);
    EXPECT_EQ(m_Traffic.byHelper, 0);
}

// --- the same bytes

TEST_F(rfm_SegmentsAheadTest, PiecesOfAnySizeGiveTheBytesOfTheFile)
{
    for (const int piece : {1000, 50000, 3 * kSegment, kLength + 10})
    {
        Open();
        std::string bytes;
        for (std::string more = ReadOn(*m_Repr, piece); !more.empty(); more = ReadOn(*m_Repr, piece))
            bytes += more;
        EXPECT_TRUE(bytes == Content()) << piece;
        EXPECT_EQ(m_Repr->Location(), kLength);
    }
}

TEST_F(rfm_SegmentsAheadTest, EachStoredSegmentIsDecodedOnceWhoeverDoesIt)
{
    Run(0, kSegments - 1);
    m_Repr.reset();
    EXPECT_EQ(m_Traffic.byOwner + m_Traffic.byHelper, kSegments - 2);
}

TEST_F(rfm_SegmentsAheadTest, TheHelperWorksAheadWithoutBeingAskedAgainForAtMostTwoSegments)
{
    Run(0, 2);
    EXPECT_TRUE(Comes([&] { return m_Traffic.byHelper == 2; })) << "3 and 4";
    EXPECT_EQ(m_Traffic.byOwner, 3);
    Run(3, 3);
    EXPECT_TRUE(Comes([&] { return m_Traffic.byHelper == 3; })) << "5";
    EXPECT_EQ(m_Traffic.byOwner, 3);
}

TEST_F(rfm_SegmentsAheadTest, TheReaderDoesNotWaitForAHelperThatIsStuckWithASegmentFurtherOn)
{
    Run(0, 2);
    ASSERT_TRUE(Comes([&] { return m_Traffic.byHelper == 2; }));
    m_Traffic.open = false;
    Run(3, 4);
    ASSERT_TRUE(m_Traffic.HelperIsHeldUp()) << "with 5";
    EXPECT_EQ(m_Traffic.byOwner, 3);
    std::thread opening(
        [&]
        {
            // The reader has come to 5 when it does 6 itself.
            EXPECT_TRUE(Comes([&] { return m_Traffic.byOwner >= 4; }));
            m_Traffic.Open();
        });
    Run(5, 6);
    opening.join();
}

TEST_F(rfm_SegmentsAheadTest, SeveralFilesAtOnceHaveAHelperEach)
{
    const rfm_TestFile otherFile(".sdx");
    MakeFile(otherFile);
    const auto other = Opened(otherFile);
    for (int index = 0; index < kSegments; ++index)
    {
        ASSERT_TRUE(ReadOn(*m_Repr, kSegment) == SegmentOf(index)) << index;
        ASSERT_TRUE(ReadOn(*other, kSegment) == SegmentOf(index)) << index;
    }
    EXPECT_EQ(ThreadCount(), m_Threads + 2);
    m_Repr.reset();
    EXPECT_TRUE(ThreadCountBecomes(m_Threads + 1));
}

// --- steps aside

TEST_F(rfm_SegmentsAheadTest, AStepAsideDoesNotWaitForWhatIsUnderWay)
{
    RunAndHoldUp();
    Run(20, 20);
    Run(8, 8);
    Run(15, 16);
    m_Traffic.Open();
    Run(3, kSegments - 1);
}

TEST_F(rfm_SegmentsAheadTest, WhatWasLeftBehindUnderWayIsNotTakenForAnything)
{
    RunAndHoldUp();
    Run(12, 13);
    m_Traffic.Open();
    Run(14, kSegments - 1);
    Run(3, 9);
}

TEST_F(rfm_SegmentsAheadTest, ARefreshForgetsWhatWasDecodedAhead)
{
    Run(0, 2);
    ASSERT_TRUE(Comes([&] { return m_Traffic.byHelper == 2; })) << "3 and 4";
    const std::string changed(kSegment, 'n');
    {
        const auto writer = Opened(m_File, utl_FileAccessUpdate);
        writer->Seek(4 * kSegment);
        writer->Write(changed.data(), kSegment);
    }
    m_Repr->Refresh();
    Run(3, 3);
    EXPECT_TRUE(Segment(4) == changed);
}

TEST_F(rfm_SegmentsAheadTest, CloseWaitsForWhatIsUnderWay)
{
    RunAndHoldUp();
    std::thread opening([&] { m_Traffic.Open(); });
    m_Repr.reset();
    EXPECT_TRUE(m_Traffic.open) << "the helper could not end before";
    opening.join();
    EXPECT_TRUE(ThreadCountBecomes(m_Threads));
}

// --- damage and failures

TEST_F(rfm_SegmentsAheadTest, DamageIsToldWhenItsSegmentIsAskedForAndTheSameAsWithoutAHelper)
{
    const std::string whole = m_File.Bytes();
    const std::size_t stream = StreamOf(7);
    const std::pair<const char*, std::function<void()>> damages[] = {
        {"its bytes", [&] { m_File.Patch(stream + 1000, "damaged here"); }},
        {"its head", [&] { m_File.Patch(stream + 4, "??"); }},
        {"a length of nothing", [&] { m_File.Patch(stream, rfm_IntBytes(0)); }},
        {"a length behind its chain", [&] { m_File.Patch(stream, rfm_IntBytes(70000)); }},
        {"a huge length", [&] { m_File.Patch(stream, rfm_IntBytes(0x7FFFFFFF)); }},
        {"a link back", [&] { m_File.Patch(stream + 4092, rfm_IntBytes(1)); }},
        {"a link out of the file", [&] { m_File.Patch(stream + 4092, rfm_IntBytes(99999)); }},
        {"its cell", [&] { m_File.Patch(40 + 4 * 7, rfm_IntBytes(99999)); }},
    };
    std::vector<std::string> expected(kSegments + 1, ".");
    expected[7] = expected[8] = kCorrupt; // and again
    for (const auto& [name, damage] : damages)
    {
        SCOPED_TRACE(name);
        m_Repr.reset();
        m_File.Write(whole);
        damage();
        const std::vector<std::string> alone = OutcomesWithoutHelper();
        EXPECT_EQ(Outcomes(), alone);
        EXPECT_EQ(alone, expected);
    }
}

TEST_F(rfm_SegmentsAheadTest, DamageAheadThatIsNeverAskedForIsNeverTold)
{
    m_Repr.reset();
    for (const int index : {5, 6}) m_File.Patch(StreamOf(index) + 1000, "damaged here");
    Open();
    Run(0, 4);
    ASSERT_TRUE(Comes([&] { return m_Traffic.byHelper + m_Traffic.byOwner == 7; })) << "it was met";
    Run(7, kSegments - 1);
}

TEST_F(rfm_SegmentsAheadTest, AFileThatFailsAheadFailsTheReadThatWantsIt)
{
    m_Repr.reset();
    for (int failAt = 1;; ++failAt)
    {
        SCOPED_TRACE(failAt);
        Open();
        utl_FaultPlan plan({.failRead = failAt, .staysBroken = true});
        int index = 0;
        std::string outcome = ".";
        for (; index < kSegments && outcome == "."; ++index) outcome = OutcomeOf(index);
        EXPECT_EQ(plan.Fired(), outcome != ".") << "nothing swallowed, nothing made up";
        if (!plan.Fired()) break;
        EXPECT_THAT(outcome, testing::StartsWith("utl: "));
        plan.Repair();
        Run(index - 1, kSegments - 1);
    }
}

TEST_F(rfm_SegmentsAheadTest, AReadThatFailsOnceAndOnlyAheadDoesNoHarm)
{
    m_Repr.reset();
    for (int failAt = 1;; ++failAt)
    {
        SCOPED_TRACE(failAt);
        Open();
        const utl_FaultPlan plan({.failRead = failAt});
        int failures = 0;
        for (int index = 0; index < kSegments; ++index)
            while (OutcomeOf(index) != ".") ++failures;
        EXPECT_LE(failures, 1);
        if (!plan.Fired()) break;
    }
}

// --- processes

TEST_F(rfm_SegmentsAheadTest, AForkedChildReadsOnByItselfAndSoDoesTheParent)
{
    RunAndHoldUp();
    EXPECT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      ::alarm(60);
                      const int threads = ThreadCount();
                      for (int index = 3; index < kSegments; ++index)
                          if (Segment(index) != SegmentOf(index)) return 1;
                      if (Segment(2) != SegmentOf(2)) return 2;
                      m_Repr.reset();
                      return ThreadCount() == threads ? 0 : 3;
                  }),
              0);
    m_Traffic.Open();
    Run(3, kSegments - 1);
}

TEST_F(rfm_SegmentsAheadTest, AForkedChildMayCloseTheFileAtOnce)
{
    RunAndHoldUp();
    EXPECT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      ::alarm(60);
                      m_Repr->Refresh();
                      m_Repr.reset();
                      return 0;
                  }),
              0);
    m_Traffic.Open();
}

// ThreadSanitizer has no threads in a child that was forked beside others.
#ifndef __SANITIZE_THREAD__
TEST_F(rfm_SegmentsAheadTest, AForkedChildHasHelpersOfItsOwnForFilesOfItsOwn)
{
    RunAndHoldUp();
    EXPECT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      ::alarm(60);
                      const int threads = ThreadCount();
                      const auto own = Opened(m_File);
                      m_Traffic.open = true;
                      std::string bytes;
                      for (int i = 0; i < 3; ++i) bytes += ReadOn(*own, kSegment);
                      if (ThreadCount() != threads + 1) return 1;
                      bytes += ReadOn(*own, kLength);
                      return bytes == Content() ? 0 : 2;
                  }),
              0);
    m_Traffic.Open();
}
#endif

TEST_F(rfm_SegmentsAheadTest, AProgramMayEndWithAFileStillOpen)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static std::unique_ptr<rfm_FileReprEncoded> s_Repr = std::move(m_Repr);
            for (int index = 0; index < 6; ++index) ReadOn(*s_Repr, kSegment);
            std::exit(ThreadCount() > 1 ? 7 : 8);
        },
        testing::ExitedWithCode(7), "");
}
