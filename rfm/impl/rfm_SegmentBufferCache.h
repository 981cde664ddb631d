#pragma once

#include "rfm_SegmentBuffer.h"

#include <list>
#include <unordered_map>

/// Whom a buffer is taken from.
class rfm_SegmentBufferHolder
{
public:
    virtual ~rfm_SegmentBufferHolder();
    /// The buffer goes to another segment when this returns. When it throws, nothing was taken.
    virtual void BufferTaken(int index, rfm_SegmentBuffer* buffer) = 0;
};

/// What the cache knows of one segment.
class rfm_SegmentBufferEntry
{
public:
    rfm_SegmentBuffer m_StreamBuffer;
    rfm_SegmentBufferHolder* m_Holder = nullptr; // set while the buffer may be taken
    int m_UseCount = 0;
    std::list<int>::iterator m_Use; // its place in the use list, while it has memory
};

/// The memory of a compressed file's decoded segments: a budget of 1 MiB, handed on from the segment that was released
/// longest ago.
///
///              Acquire                       Release
///   [ empty ] ---------> [ pinned ] ------------------------> [ released ]
///       ^                    ^            Acquire (a hit)       |     |
///       |                    +----------------------------------+     |
///       +-------------------------------------------------------------+
///                         its buffer goes to another, Forget
///
/// Entries have an address that stays, and only those with memory exist: a segment that lost its buffer is as one that
/// never had any, so memory does not grow with the number of segments visited.
/// Pinned buffers can't be taken: when there is no other, the use list grows above the budget.
class rfm_SegmentBufferCache
{
public:
    rfm_SegmentBufferCache() noexcept = default;
    /// Throws: nex_AssertException for a size that is not above 0.
    explicit rfm_SegmentBufferCache(int bufferSize);
    rfm_SegmentBufferCache(rfm_SegmentBufferCache&&) = default;
    rfm_SegmentBufferCache& operator=(rfm_SegmentBufferCache&&) = default;

    /// The buffer of a segment, pinned: with the bytes that it had when it was released, unless it was taken meanwhile;
    /// then with any.
    /// Throws: what the holder throws whose buffer was to be taken; everything is as it was then.
    rfm_SegmentBuffer* Acquire(int index);
    void Release(int index, rfm_SegmentBufferHolder* holder);
    /// Gives the memory of a segment back that is not pinned; nobody is asked.
    void Forget(int index);

    int Capacity() const noexcept { return m_Capacity; }
    int BufferSize() const noexcept { return m_BufferSize; }
    /// How many buffers there are.
    int Count() const noexcept { return static_cast<int>(m_UseList.size()); }
    bool HasBuffer(int index) const { return m_Entries.contains(index); }
    /// Memory for encoded bytes on their way, lent for one step at a time.
    rfm_SegmentBuffer& WorkBuffer() noexcept { return m_WorkBuffer; }

private:
    rfm_SegmentBuffer NewMemory();
    rfm_SegmentBuffer TakeFrom(int victim);

    int m_Capacity = 0;
    int m_BufferSize = 0;
    std::unordered_map<int, rfm_SegmentBufferEntry> m_Entries;
    std::list<int> m_UseList; // segments with memory, the one acquired longest ago first
    rfm_SegmentBuffer m_WorkBuffer;
};
