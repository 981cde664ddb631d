#include "thr_GlobalSingleton.h"
#include "thr_ThreadSingleton.h"

#include <barrier>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace
{
struct Made
{
    Made() { ++s_Made; }
    static inline std::atomic<int> s_Made = 0;
};

struct Threaded
{
    ~Threaded()
    {
        if (destroyed != nullptr) *destroyed = true;
    }
    int value = 0;
    bool* destroyed = nullptr;
};
} // namespace

TEST(thr_GlobalSingleton, ThreadsThatComeAtOnceGetTheSameInstance)
{
    constexpr int kThreads = 8;
    std::barrier start(kThreads);
    std::vector<Made*> seen(kThreads);
    std::vector<std::thread> threads;
    for (Made*& mine : seen)
        threads.emplace_back(
            [&start, &mine]
            {
                start.arrive_and_wait();
                mine = &thr_GlobalSingleton<Made>::Instance();
            });
    for (std::thread& thread : threads) thread.join();
    for (const Made* other : seen) EXPECT_EQ(other, seen[0]);
    EXPECT_EQ(Made::s_Made, 1);
}

TEST(thr_ThreadSingleton, EachThreadHasItsOwnWhichEndsWithIt)
{
    thr_ThreadSingleton<Threaded>::Instance().value = 1;
    bool destroyed = false;
    int seen = -1;
    std::thread(
        [&]
        {
            Threaded& mine = thr_ThreadSingleton<Threaded>::Instance();
            seen = mine.value;
            mine.value = 2;
            mine.destroyed = &destroyed;
        })
        .join();
    EXPECT_EQ(seen, 0);
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(thr_ThreadSingleton<Threaded>::Instance().value, 1);
}
