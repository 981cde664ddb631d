// Several threads over one cache that is smaller than what they read. Built under ThreadSanitizer too: ./dev race.

#include "RandomSeed.h"
#include "RemoteFileScene.h"
#include "rfm_FileReprRemote.h"

#include <atomic>
#include <functional>
#include <random>
#include <thread>

namespace
{
constexpr int kThreads = 4;
constexpr int kPage = 128 * 1024;
constexpr int kPagesOfFile = 12;
constexpr int kReads = 300;

class rfm_RemoteThreadsTest : public RemoteFileScene
{
protected:
    rfm_RemoteThreadsTest() { Options(128, 1); } // eight pages

    std::string NameOf(int file) const { return std::to_string(file) + ".rdx"; }
    void PutFiles() const
    {
        for (int i = 0; i < kThreads; ++i) Put(NameOf(i), ContentOf(i, kPagesOfFile * kPage + 1000));
    }
    static void InThreads(const std::function<void(int)>& action)
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) threads.emplace_back(action, i);
        for (std::thread& thread : threads) thread.join();
    }
    /// Random reads of a file, whose content must be right each time. Answers how many were not.
    static int WrongReads(rfm_FileReprRemote& file, const std::string& content, unsigned seed)
    {
        std::mt19937 random(seed);
        int wrong = 0;
        std::string bytes(2 * kPage, '\0');
        for (int i = 0; i < kReads; ++i)
        {
            const std::size_t start = random() % (content.size() + 100);
            const int count = static_cast<int>(i % 10 == 0 ? random() % bytes.size() : random() % 5000);
            file.Seek(static_cast<std::int64_t>(start));
            const int read = file.Read(bytes.data(), count);
            const std::string expected =
                start < content.size() ? content.substr(start, static_cast<std::size_t>(count)) : "";
            if (std::string_view(bytes.data(), static_cast<std::size_t>(read)) != expected) ++wrong;
        }
        return wrong;
    }
};

TEST_F(rfm_RemoteThreadsTest, FourThreadsReadFourFilesThroughEightPages)
{
    PutFiles();
    const unsigned seed = RandomSeed();
    std::atomic<int> wrong = 0;
    InThreads(
        [&](int thread)
        {
            const std::string content = ContentOf(thread, kPagesOfFile * kPage + 1000);
            rfm_FileReprRemote file(Url(NameOf(thread))); // the cache is made by whoever comes first
            wrong += WrongReads(file, content, seed + static_cast<unsigned>(thread));
        });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(rfm_FileCache::Instance()->PageLimit(), 8);
    EXPECT_EQ(CacheFileBytes(), 8 * kPage);
}

TEST_F(rfm_RemoteThreadsTest, FilesComeAndGoWhileOthersAreRead)
{
    PutFiles();
    const unsigned seed = RandomSeed();
    std::atomic<int> wrong = 0;
    InThreads(
        [&](int thread)
        {
            const std::string content = ContentOf(thread, kPagesOfFile * kPage + 1000);
            std::mt19937 random(seed + static_cast<unsigned>(thread));
            for (int round = 0; round < 10; ++round)
            {
                rfm_FileReprRemote file(Url(NameOf(thread)));
                char bytes[100];
                for (int i = 0; i < 20; ++i)
                {
                    const std::size_t start = random() % (content.size() - sizeof bytes);
                    file.Seek(static_cast<std::int64_t>(start));
                    const int read = file.Read(bytes, sizeof bytes);
                    if (content.compare(start, sizeof bytes, bytes, static_cast<std::size_t>(read)) != 0)
                        ++wrong;
                }
                static_cast<void>(file.CheckStatus());
            }
        });
    EXPECT_EQ(wrong, 0);
    EXPECT_LE(CacheFileBytes(), 8 * kPage);
}

TEST_F(rfm_RemoteThreadsTest, ThatThereIsNoRoomReachesEachThread)
{
    PutFiles();
    Options(128, 0);
    std::atomic<int> refused = 0;
    InThreads(
        [&](int thread)
        {
            rfm_FileReprRemote file(Url(NameOf(thread)));
            char byte = 0;
            for (int i = 0; i < 50; ++i)
                if (Thrown<nex_TextException>([&] { file.Read(&byte, 1); }) == "Cache Space Exausted.")
                    ++refused;
        });
    EXPECT_EQ(refused, kThreads * 50);
}
} // namespace
