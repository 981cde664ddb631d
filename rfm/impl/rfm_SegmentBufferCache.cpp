#include "rfm_SegmentBufferCache.h"

#include "nex_Exception.h"

#include <utility>

namespace
{
constexpr int kBudget = 0x100000;
}

rfm_SegmentBufferHolder::~rfm_SegmentBufferHolder() = default;

rfm_SegmentBufferCache::rfm_SegmentBufferCache(int bufferSize) : m_BufferSize(bufferSize)
{
    if (bufferSize <= 0) nex_ThrowAssert("bufferSize > 0");
    m_Capacity = kBudget / bufferSize;
}

rfm_SegmentBuffer* rfm_SegmentBufferCache::Acquire(int index)
{
    auto found = m_Entries.find(index);
    if (found == m_Entries.end())
    {
        // The list first, then the entry: whatever fails in between leaves both without the segment.
        std::list<int> use{index};
        rfm_SegmentBufferEntry entry;
        entry.m_StreamBuffer = NewMemory();
        entry.m_Use = use.begin();
        found = m_Entries.emplace(index, std::move(entry)).first;
        m_UseList.splice(m_UseList.end(), use);
    }
    else
        m_UseList.splice(m_UseList.end(), m_UseList, found->second.m_Use);
    rfm_SegmentBufferEntry& entry = found->second;
    entry.m_Holder = nullptr;
    ++entry.m_UseCount;
    return &entry.m_StreamBuffer;
}

rfm_SegmentBuffer rfm_SegmentBufferCache::NewMemory()
{
    if (Count() >= m_Capacity)
        for (const int victim : m_UseList)
            if (m_Entries.at(victim).m_Holder != nullptr) return TakeFrom(victim);
    return rfm_SegmentBuffer(m_BufferSize);
}

rfm_SegmentBuffer rfm_SegmentBufferCache::TakeFrom(int victim)
{
    rfm_SegmentBufferEntry& entry = m_Entries.at(victim);
    entry.m_Holder->BufferTaken(victim, &entry.m_StreamBuffer);
    rfm_SegmentBuffer taken = std::move(entry.m_StreamBuffer);
    Forget(victim);
    return taken;
}

void rfm_SegmentBufferCache::Release(int index, rfm_SegmentBufferHolder* holder)
{
    const auto found = m_Entries.find(index);
    if (found == m_Entries.end()) nex_ThrowAssert("index < m_Entries.Size()");
    if (holder == nullptr) nex_ThrowAssert("holder");
    if (found->second.m_StreamBuffer.Size() <= 0) nex_ThrowAssert("entry.m_StreamBuffer.Size() > 0");
    found->second.m_Holder = holder;
}

void rfm_SegmentBufferCache::Forget(int index)
{
    const auto found = m_Entries.find(index);
    if (found == m_Entries.end()) return;
    m_UseList.erase(found->second.m_Use);
    m_Entries.erase(found);
}
