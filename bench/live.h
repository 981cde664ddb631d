// A writer process and the processes that follow it.
#pragma once

#include "Contender.h"

#include <functional>

namespace bench
{

class LiveWriter
{
public:
    LiveWriter() = default;
    LiveWriter(const LiveWriter&) = delete;
    LiveWriter& operator=(const LiveWriter&) = delete;
    virtual ~LiveWriter() = default;
    virtual void Append(const Row& row) = 0;
    /// Makes the rows so far visible to other processes.
    virtual void Publish() = 0;
};

/// What one look at the file gave: the sum of the rows from `first` up to `visible`.
struct Sight
{
    int first = 0;
    int visible = 0;
    std::uint64_t sum = 0;
};

class LiveReader
{
public:
    LiveReader() = default;
    LiveReader(const LiveReader&) = delete;
    LiveReader& operator=(const LiveReader&) = delete;
    virtual ~LiveReader() = default;
    /// Looks once and reads the rows from `seen` on, of many only the newest `newest`.
    virtual Sight Look(int seen, int newest) = 0;
};

/// How a peer's writer and readers are made; both are called in the process that uses the result.
struct LivePeer
{
    std::string file;
    std::function<std::unique_ptr<LiveWriter>()> makeWriter;
    std::function<std::unique_ptr<LiveReader>()> makeReader;
};

/// The writer and the reader of a store; see StoreOf.
template <class Store> LivePeer LiveOf(const std::string& file)
{
    return {.file = file,
            .makeWriter = [file] { return std::make_unique<typename Store::Writer>(file); },
            .makeReader = [file] { return std::make_unique<typename Store::Reader>(file); }};
}

/// Median time from the start of `Publish` in one process to the last new row read in another that looks all the
/// time. The next flush waits until the last one was seen.
std::unique_ptr<Contender> MakeVisible(LivePeer peer, const Setting& setting);

/// Time of a writer that appends and publishes without pause while `readerCount` processes follow it.
std::unique_ptr<Contender> MakeFollowed(LivePeer peer, const Setting& setting, int readerCount);

} // namespace bench
