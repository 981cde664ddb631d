#include "thr_Helper.h"

#include "Forked.h"
#include "Threads.h"

#include <atomic>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <pthread.h>
#include <string>
#include <thread>
#include <utility>

namespace
{
class Job : public thr_Job
{
public:
    explicit Job(std::function<void()> work) : m_Work(std::move(work)) {}
    void Run() noexcept override { m_Work(); }

private:
    std::function<void()> m_Work;
};

class thr_HelperTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_Helper = thr_Helper::Start();
        ASSERT_NE(m_Helper, nullptr);
    }
    /// Gives a job that is done when `m_Open` becomes true, and returns when the helper is at it.
    std::shared_ptr<thr_Job> HoldUp()
    {
        auto started = std::make_shared<std::atomic<bool>>(false);
        auto job = std::make_shared<Job>(
            [this, started]
            {
                *started = true;
                started->notify_all();
                m_Open.wait(false);
                Say("held ");
            });
        m_Helper->Give(job);
        started->wait(false);
        return job;
    }
    std::shared_ptr<thr_Job> GiveWord(const char* word)
    {
        auto job = std::make_shared<Job>([this, word] { Say(word); });
        m_Helper->Give(job);
        return job;
    }
    void Say(const char* word)
    {
        const std::lock_guard lock(m_Lock);
        m_Log += word;
    }
    void Open()
    {
        m_Open = true;
        m_Open.notify_all();
    }

    const AnyProcessors m_AnyProcessors;
    std::atomic<bool> m_Open = false;
    std::mutex m_Lock;
    std::string m_Log;
    std::unique_ptr<thr_Helper> m_Helper;
};
} // namespace

TEST_F(thr_HelperTest, JobsAreDoneInTheOrderInWhichTheyWereGiven)
{
    HoldUp();
    GiveWord("one ");
    GiveWord("two ");
    const auto last = GiveWord("three ");
    Open();
    m_Helper->Finish(*last);
    m_Helper.reset();
    EXPECT_THAT(m_Log, testing::AnyOf("held one two three ", "one held two three ", "one two held three ",
                                      "one two three held "));
}

TEST_F(thr_HelperTest, WhoWaitsForAJobDoesTheOthersMeanwhile)
{
    const auto held = HoldUp();
    std::thread::id at;
    const auto opening = std::make_shared<Job>(
        [&]
        {
            at = std::this_thread::get_id();
            Open();
        });
    m_Helper->Give(opening);
    m_Helper->Finish(*held); // for ever, if nobody did the other
    m_Helper->Finish(*opening);
    EXPECT_EQ(at, std::this_thread::get_id());
    EXPECT_EQ(m_Log, "held ");
}

TEST_F(thr_HelperTest, AJobIsDoneOnAnotherThreadAndWithoutAnybodyWaiting)
{
    std::atomic<bool> done = false;
    std::thread::id at;
    m_Helper->Give(std::make_shared<Job>(
        [&]
        {
            at = std::this_thread::get_id();
            done = true;
        }));
    EXPECT_TRUE(Comes([&] { return done.load(); }));
    EXPECT_NE(at, std::this_thread::get_id());
}

TEST_F(thr_HelperTest, AJobMayBeGivenAgain)
{
    const auto job = GiveWord("once ");
    m_Helper->Finish(*job);
    m_Helper->Give(job);
    m_Helper->Finish(*job);
    EXPECT_EQ(m_Log, "once once ");
}

TEST_F(thr_HelperTest, ForgottenJobsAreNotDone)
{
    const auto held = HoldUp();
    GiveWord("forgotten ");
    GiveWord("this too ");
    m_Helper->Forget();
    Open();
    m_Helper->Finish(*held);
    m_Helper->Finish(*GiveWord("new "));
    EXPECT_EQ(m_Log, "held new ");
}

TEST_F(thr_HelperTest, TheEndWaitsForTheJobUnderWay)
{
    HoldUp();
    std::thread opening([&] { Open(); });
    m_Helper.reset();
    EXPECT_EQ(m_Log, "held ");
    opening.join();
}

TEST_F(thr_HelperTest, ThereIsOneThreadMoreFromItsStartToItsEnd)
{
    m_Helper.reset();
    ASSERT_TRUE(Comes([before = ThreadCount()] { return ThreadCount() <= before; }));
    const int before = ThreadCount();
    m_Helper = thr_Helper::Start();
    EXPECT_EQ(ThreadCount(), before + 1);
    m_Helper.reset();
    EXPECT_TRUE(ThreadCountBecomes(before));
}

TEST_F(thr_HelperTest, TheThreadTakesNoSignals)
{
    const auto held = HoldUp();
    sigset_t blocked;
    sigemptyset(&blocked);
    std::atomic<bool> done = false;
    m_Helper->Give(std::make_shared<Job>(
        [&]
        {
            ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
            done = true;
        }));
    Open();
    ASSERT_TRUE(Comes([&] { return done.load(); }));
    for (const int signal : {SIGTERM, SIGINT, SIGALRM, SIGCHLD, SIGPIPE, SIGUSR1})
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
    sigset_t here;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &here);
    EXPECT_EQ(sigismember(&here, SIGTERM), 0) << "those of the program are as they were";
}

TEST_F(thr_HelperTest, AForkedChildHasNoneAndDoesNotWaitForIt)
{
    HoldUp();
    GiveWord("parent ");
    EXPECT_TRUE(m_Helper->IsHere());
    EXPECT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      ::alarm(60);
                      if (m_Helper->IsHere()) return 1;
                      m_Helper.reset();
// ThreadSanitizer has no threads in a child that was forked beside others.
#ifndef __SANITIZE_THREAD__
                      const auto own = thr_Helper::Start();
                      if (own == nullptr) return 2;
                      const auto job = std::make_shared<Job>([] {});
                      own->Give(job);
                      own->Finish(*job);
#endif
                      return 0;
                  }),
              0);
    Open();
    m_Helper->Finish(*GiveWord("goes on "));
    m_Helper.reset();
    EXPECT_THAT(m_Log, testing::HasSubstr("goes on "));
}

TEST(thr_Helper, WithOneProcessorThereIsNone)
{
    const OneProcessor one;
    EXPECT_EQ(thr_Helper::Start(), nullptr);
}

TEST(thr_Helper, WhereTheSystemHasNoThreadToGiveThereIsNone)
{
    const AnyProcessors any;
    EXPECT_EQ(ExitCodeOfForked(
                  []
                  {
                      // More stack for each new thread than there are addresses.
                      pthread_attr_t attributes;
                      ::pthread_attr_init(&attributes);
                      ::pthread_attr_setstacksize(&attributes, std::size_t{1} << 47);
                      if (::pthread_setattr_default_np(&attributes) != 0) return 1;
                      return thr_Helper::Start() == nullptr ? 0 : 2;
                  }),
              0);
}
