#include "live.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <limits>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace bench
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{20};

/// What the processes of one race share. Lock-free atomics work across processes in shared memory.
struct Board
{
    std::atomic<int> opened{0};     // readers that have the file open
    std::atomic<bool> ready{false}; // the file can be opened
    std::atomic<bool> done{false};  // no more rows come
    std::atomic<int> seen{0};       // rows that the first reader has read
    std::atomic<std::int64_t> seenAt{0};
    std::atomic<std::uint64_t> sum{0};
};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

std::int64_t Now() { return Clock::now().time_since_epoch().count(); }

class SharedBoard
{
public:
    SharedBoard()
        : m_Memory(::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (m_Memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
        m_Board = new (m_Memory) Board;
    }
    SharedBoard(const SharedBoard&) = delete;
    SharedBoard& operator=(const SharedBoard&) = delete;
    ~SharedBoard() { ::munmap(m_Memory, sizeof(Board)); }
    Board* operator->() const { return m_Board; }
    Board& operator*() const { return *m_Board; }

private:
    void* m_Memory;
    Board* m_Board = nullptr;
};

template <class Condition> void WaitFor(Condition&& condition, const char* what)
{
    const auto limit = Clock::now() + kPatience;
    while (!condition())
    {
        if (Clock::now() > limit) throw std::runtime_error(std::string("waited in vain for ") + what);
        std::this_thread::yield();
    }
}

/// A child that runs `work` and is reaped, whatever becomes of its parent's work.
class Child
{
public:
    explicit Child(const std::function<void()>& work) : m_Pid(::fork())
    {
        if (m_Pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
        if (m_Pid == 0) ::_exit(RunAsChild(work));
    }
    Child(Child&& source) noexcept : m_Pid(std::exchange(source.m_Pid, -1)) {}
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child()
    {
        if (m_Pid > 0) Reap();
    }
    void Join()
    {
        if (Reap() != 0) throw std::runtime_error("a following process failed");
    }

private:
    static int RunAsChild(const std::function<void()>& work)
    {
        try
        {
            work();
            return 0;
        }
        catch (const std::exception& failure)
        {
            std::cerr << "follower: " << failure.what() << std::endl;
            return 1;
        }
    }
    int Reap()
    {
        int status = 0;
        ::waitpid(std::exchange(m_Pid, -1), &status, 0);
        return status;
    }
    pid_t m_Pid;
};

/// Children end when `done` is set, also when the writer fails.
class DoneAtEnd
{
public:
    explicit DoneAtEnd(Board& board) : m_Board(board) {}
    DoneAtEnd(const DoneAtEnd&) = delete;
    DoneAtEnd& operator=(const DoneAtEnd&) = delete;
    ~DoneAtEnd() { m_Board.done = true; }

private:
    Board& m_Board;
};

class VisibleRace : public Contender
{
public:
    VisibleRace(LivePeer peer, const Sizes& sizes) : m_Peer(std::move(peer)), m_Sizes(sizes) {}

    void Prepare(int /*round*/) override { std::filesystem::remove(m_Peer.file); }

    double Run() override
    {
        SharedBoard board;
        Child reader([&] { Follow(*board); });
        std::vector<double> latencies = Write(*board);
        reader.Join();
        m_Sum = board->sum;
        const auto middle = latencies.begin() + static_cast<std::ptrdiff_t>(latencies.size() / 2);
        std::nth_element(latencies.begin(), middle, latencies.end());
        return *middle;
    }

    std::uint64_t Verify() override { return m_Sum; }

private:
    std::vector<double> Write(Board& board) const
    {
        const DoneAtEnd atEnd(board);
        const auto writer = m_Peer.makeWriter();
        writer->Publish();
        board.ready = true;
        WaitFor([&] { return board.opened == 1; }, "the reader to open the file");

        std::vector<double> latencies;
        for (int flush = 0; flush < m_Sizes.flushCount; ++flush)
        {
            const int first = flush * m_Sizes.rowsPerFlush;
            for (int i = first; i < first + m_Sizes.rowsPerFlush; ++i) writer->Append(RowAt(i));
            const std::int64_t publishedAt = Now();
            writer->Publish();
            WaitFor([&] { return board.seen >= first + m_Sizes.rowsPerFlush; }, "a flush to be seen");
            latencies.push_back(static_cast<double>(board.seenAt - publishedAt) * 1e-9);
        }
        return latencies;
    }

    void Follow(Board& board) const
    {
        WaitFor([&] { return board.ready || board.done; }, "the file");
        const auto reader = m_Peer.makeReader();
        board.opened = 1;
        int seen = 0;
        std::uint64_t sum = 0;
        while (!board.done && seen < m_Sizes.flushCount * m_Sizes.rowsPerFlush)
        {
            const Sight sight = reader->Look(seen, std::numeric_limits<int>::max());
            if (sight.visible <= seen) continue;
            const std::int64_t now = Now();
            sum += sight.sum;
            seen = sight.visible;
            board.sum = sum;
            board.seenAt = now;
            board.seen = seen;
        }
    }

    LivePeer m_Peer;
    Sizes m_Sizes;
    std::uint64_t m_Sum = 0;
};

class FollowedRace : public Contender
{
public:
    FollowedRace(LivePeer peer, const Sizes& sizes, int readerCount)
        : m_Peer(std::move(peer)),
          m_Sizes(sizes),
          m_ReaderCount(readerCount)
    {
    }

    void Prepare(int /*round*/) override { std::filesystem::remove(m_Peer.file); }

    double Run() override
    {
        SharedBoard board;
        std::vector<Child> readers;
        readers.reserve(static_cast<std::size_t>(m_ReaderCount));
        const DoneAtEnd atEnd(*board);
        for (int i = 0; i < m_ReaderCount; ++i) readers.emplace_back([&] { Follow(*board); });
        const double seconds = Write(*board);
        board->done = true;
        for (Child& reader : readers) reader.Join();
        return seconds;
    }

    std::uint64_t Verify() override { return m_Peer.makeReader()->Look(0, m_Sizes.rowCount).sum; }

private:
    double Write(Board& board) const
    {
        const auto writer = m_Peer.makeWriter();
        writer->Publish();
        board.ready = true;
        WaitFor([&] { return board.opened == m_ReaderCount; }, "the readers to open the file");
        return SecondsOf(
            [&]
            {
                for (int i = 0; i < m_Sizes.rowCount; ++i)
                {
                    writer->Append(RowAt(i));
                    if ((i + 1) % m_Sizes.followedRowsPerFlush == 0) writer->Publish();
                }
                writer->Publish();
            });
    }

    void Follow(Board& board) const
    {
        WaitFor([&] { return board.ready || board.done; }, "the file");
        const auto reader = m_Peer.makeReader();
        ++board.opened;
        int seen = 0;
        while (!board.done) seen = LookAndCheck(*reader, seen);
        LookAndCheck(*reader, seen);
    }

    int LookAndCheck(LiveReader& reader, int seen) const
    {
        const Sight sight = reader.Look(seen, m_Sizes.readerNewest);
        if (sight.sum != RowsSum(sight.first, sight.visible - sight.first))
        {
            throw std::runtime_error("rows differ from what the writer published");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(m_Sizes.readerPauseMilliseconds));
        return sight.visible;
    }

    LivePeer m_Peer;
    Sizes m_Sizes;
    int m_ReaderCount;
};

} // namespace

std::unique_ptr<Contender> MakeVisible(LivePeer peer, const Setting& setting)
{
    return std::make_unique<VisibleRace>(std::move(peer), setting.sizes);
}

std::unique_ptr<Contender> MakeFollowed(LivePeer peer, const Setting& setting, int readerCount)
{
    return std::make_unique<FollowedRace>(std::move(peer), setting.sizes, readerCount);
}

} // namespace bench
