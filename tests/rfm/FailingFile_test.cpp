#include "ScriptedRun.h"
#include "utl_File.h"
#include "utl_System.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>

// The n-th call that changes the file is refused, for every n. The call of ours that met it throws, the last flush
// stays readable, and the same objects go on as soon as there is room.

namespace
{
class DiskFull
{
public:
    explicit DiskFull(int atCall, bool tornAtHalf) : m_Real(utl_System())
    {
        s_This = this;
        m_AtCall = atCall;
        m_TornAtHalf = tornAtHalf;
        utl_System().write = Write;
        utl_System().allocate = Allocate;
        utl_System().truncate = Truncate;
    }
    ~DiskFull() { utl_System() = m_Real; }
    bool Fired() const { return m_Calls >= m_AtCall; }

private:
    bool IsDue() { return ++m_Calls == m_AtCall; }
    static int Refuse()
    {
        errno = ENOSPC;
        return -1;
    }
    static ssize_t Write(int descriptor, const char* buffer, size_t bytes, off_t offset)
    {
        if (!s_This->IsDue()) return s_This->m_Real.write(descriptor, buffer, bytes, offset);
        // What a full disk does: it takes a part, and refuses the rest at the next call.
        if (s_This->m_TornAtHalf && bytes > 1)
        {
            --s_This->m_AtCall;
            s_This->m_Calls -= 2;
            s_This->m_TornAtHalf = false;
            return s_This->m_Real.write(descriptor, buffer, bytes / 2, offset);
        }
        return Refuse();
    }
    static int Allocate(int descriptor, off_t offset, off_t bytes)
    {
        return s_This->IsDue() ? Refuse() : s_This->m_Real.allocate(descriptor, offset, bytes);
    }
    static int Truncate(int descriptor, off_t size)
    {
        return s_This->IsDue() ? Refuse() : s_This->m_Real.truncate(descriptor, size);
    }

    static inline DiskFull* s_This = nullptr;
    utl_SystemCalls m_Real;
    int m_AtCall = 0;
    int m_Calls = 0;
    bool m_TornAtHalf = false;
};

constexpr int kIncrements = 6;
constexpr int kCompressedIncrements = 2;

// Runs `step` until it goes through; counts the failures, each of which must name the file.
template <class Step> void Insist(const std::string& path, int& failures, Step step)
{
    for (;;)
    {
        try
        {
            step();
            return;
        }
        catch (const utl_FileException& failure)
        {
            EXPECT_NE(std::string(failure.what()).find(path), std::string::npos) << failure.what();
            ++failures;
        }
    }
}

void ExpectLastFlush(const std::string& path, int flushed)
{
    rfm_Database reader = rfm_Database::Open(rfm_File::Open(path.c_str(), utl_FileAccessRead), "TEST");
    ScriptedRun::ExpectAtLeast(reader, flushed);
}

void ExpectLastFlushWithBallast(const std::string& path, int flushed)
{
    rfm_Database reader = rfm_Database::Open(rfm_File::Open(path.c_str(), utl_FileAccessRead), "TEST");
    ScriptedRun::ExpectAtLeast(reader, flushed);
    ScriptedRun::ExpectBallast(reader, flushed);
}

// Over compressed files, with what makes them store segments between flushes.
void RefuseEveryCallOfACompressedRun(bool tornAtHalf)
{
    const std::string path = ::testing::TempDir() + "failing.sdx";
    bool fired = true;
    int atCall = 1;
    for (; fired && !::testing::Test::HasFailure(); ++atCall)
    {
        SCOPED_TRACE("refused at call " + std::to_string(atCall));
        int failures = 0;
        {
            std::unique_ptr<ScriptedRun::Writer> writer;
            std::optional<ScriptedRun::Ballast> ballast;
            DiskFull disk(atCall, tornAtHalf);
            Insist(path, failures,
                   [&] {
                       writer =
                           std::make_unique<ScriptedRun::Writer>(rfm_File::CreateCompressed(path.c_str()));
                   });
            Insist(path, failures, [&] { writer->SetUp(); });
            Insist(path, failures,
                   [&]
                   {
                       if (!ballast) ballast.emplace(writer->Database());
                   });
            for (int n = 1; n <= kCompressedIncrements; ++n)
            {
                const int before = failures;
                Insist(path, failures, [&] { ballast->WriteIncrement(n); });
                Insist(path, failures, [&] { writer->WriteIncrement(n); });
                Insist(path, failures, [&] { ballast->Flush(); });
                Insist(path, failures, [&] { writer->Flush(); });
                if (failures > before) ExpectLastFlushWithBallast(path, n);
            }
            ballast.reset();
            // The file goes with the last handle, which then cuts its reserve off. Nobody can be told of what fails in
            // that but by a line.
            ::testing::internal::CaptureStderr();
            Insist(path, failures, [&] { writer->Close(); });
            const std::string said = ::testing::internal::GetCapturedStderr();
            if (!said.empty())
            {
                EXPECT_NE(said.find(path), std::string::npos) << said;
                ++failures;
            }
            fired = disk.Fired();
        }
        EXPECT_EQ(failures, fired ? 1 : 0); // nothing swallowed, nothing made up
        ExpectLastFlushWithBallast(path, kCompressedIncrements);
    }
    EXPECT_GT(atCall, 16 * kCompressedIncrements);
    ::unlink(path.c_str());
}

void RefuseEveryCall(bool tornAtHalf)
{
    const std::string path = ::testing::TempDir() + "failing.rdx";
    bool fired = true;
    for (int atCall = 1; fired && !::testing::Test::HasFatalFailure(); ++atCall)
    {
        SCOPED_TRACE("refused at call " + std::to_string(atCall));
        int failures = 0;
        {
            std::unique_ptr<ScriptedRun::Writer> writer;
            DiskFull disk(atCall, tornAtHalf);
            Insist(path, failures, [&] { writer = std::make_unique<ScriptedRun::Writer>(path); });
            Insist(path, failures, [&] { writer->SetUp(); });
            for (int n = 1; n <= kIncrements; ++n)
            {
                const int before = failures;
                Insist(path, failures, [&] { writer->WriteIncrement(n); });
                Insist(path, failures, [&] { writer->Flush(); });
                if (failures > before) ExpectLastFlush(path, n);
            }
            Insist(path, failures, [&] { writer->Close(); });
            fired = disk.Fired();
        }
        EXPECT_EQ(failures, fired ? 1 : 0); // nothing swallowed, nothing made up
        ExpectLastFlush(path, kIncrements);
    }
    ::unlink(path.c_str());
}
} // namespace

TEST(FailingFile, AnyRefusedCallIsReportedOnceAndNothingIsLost) { RefuseEveryCall(false); }
TEST(FailingFile, AnyWriteTakenByHalfIsReportedOnceAndNothingIsLost) { RefuseEveryCall(true); }

TEST(FailingFile, AnyRefusedCallOfACompressedFileIsReportedOnceAndNothingIsLost)
{
    RefuseEveryCallOfACompressedRun(false);
}
TEST(FailingFile, AnyWriteOfACompressedFileTakenByHalfIsReportedOnceAndNothingIsLost)
{
    RefuseEveryCallOfACompressedRun(true);
}

TEST(FailingFile, AWriterPastItsSizeLimitFailsAndGoesOnWithARaisedLimit)
{
    const std::string path = ::testing::TempDir() + "limited.rdx";
    struct rlimit before
    {
    };
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    {
        rfm_Database database =
            rfm_Database::Create(rfm_File::Open(path.c_str(), utl_FileAccessCreate), "TEST", "limit", 1);
        auto array = database.ArrayDouble(1, -1, 4096);
        std::vector<double> values(100000, 2.5);
        array.Write(values.data(), 100000);
        array.Flush();
        database.Flush();
        const struct rlimit tight
        {
            1 << 20, before.rlim_max
        };
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
        EXPECT_THROW(array.Write(values.data(), 100000), utl_FileException);
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
        array.Write(values.data(), 100000);
        EXPECT_EQ(array.Length(), 200000);
        array.Flush();
    }
    std::signal(SIGXFSZ, oldHandler);
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path.c_str(), utl_FileAccessRead), "TEST");
    EXPECT_EQ(database.ArrayDouble(rfm_Handle(4), -1, 0).Length(), 200000);
}
