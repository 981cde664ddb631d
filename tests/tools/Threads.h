#pragma once

#include "thr_Helper.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <sched.h>
#include <stdexcept>
#include <thread>
#include <utility>

/// How many threads this process has.
inline int ThreadCount()
{
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

/// Whether what is to come does so, within a minute.
template <class Condition> bool Comes(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

/// A thread that was joined may be seen for a moment more.
inline bool ThreadCountBecomes(int count)
{
    return Comes([&] { return ThreadCount() == count; });
}

/// While it lives, there are helpers also on a machine with one processor.
class AnyProcessors
{
public:
    AnyProcessors() : m_Before(std::exchange(thr_Helper::LeastProcessors(), 1)) {}
    AnyProcessors(const AnyProcessors&) = delete;
    AnyProcessors& operator=(const AnyProcessors&) = delete;
    ~AnyProcessors() { thr_Helper::LeastProcessors() = m_Before; }

private:
    const int m_Before;
};

/// While it lives, this thread has one processor, as on a machine that has no other, and that is too few.
class OneProcessor
{
public:
    OneProcessor()
    {
        if (::sched_getaffinity(0, sizeof m_Before, &m_Before) != 0) throw std::runtime_error("no affinity");
        cpu_set_t one;
        CPU_ZERO(&one);
        std::size_t first = 0;
        while (!CPU_ISSET(first, &m_Before)) ++first;
        CPU_SET(first, &one);
        ::sched_setaffinity(0, sizeof one, &one);
        thr_Helper::LeastProcessors() = 2;
    }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;
    ~OneProcessor()
    {
        ::sched_setaffinity(0, sizeof m_Before, &m_Before);
        thr_Helper::LeastProcessors() = m_LeastBefore;
    }

private:
    cpu_set_t m_Before{};
    const int m_LeastBefore = thr_Helper::LeastProcessors();
};
