#include "rfm_SegmentBuffer.h"

#include "nex_Exception.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

rfm_SegmentBuffer::rfm_SegmentBuffer(int size)
{
    if (size < 0) nex_ThrowAssert("size >= 0");
    if (size == 0) return;
    // Zeroed by the system, page by page as they are touched.
    m_Data.reset(static_cast<char*>(std::calloc(static_cast<std::size_t>(size), 1)));
    if (m_Data == nullptr) throw std::bad_alloc();
    m_Size = m_Capacity = size;
}

rfm_SegmentBuffer::rfm_SegmentBuffer(const rfm_SegmentBuffer& source) : rfm_SegmentBuffer(source.m_Size)
{
    m_Written = std::min(source.m_Written, source.m_Size);
    if (m_Written > 0) std::memcpy(m_Data.get(), source.m_Data.get(), static_cast<std::size_t>(m_Written));
}

void rfm_SegmentBuffer::Swap(rfm_SegmentBuffer& other) noexcept
{
    std::swap(m_Data, other.m_Data);
    std::swap(m_Size, other.m_Size);
    std::swap(m_Capacity, other.m_Capacity);
    std::swap(m_Written, other.m_Written);
}

void rfm_SegmentBuffer::Shrink(int newSize)
{
    if (newSize > m_Size) nex_ThrowAssert("newSize <= m_Size");
    if (newSize < 0) nex_ThrowAssert("newSize >= 0");
    m_Size = newSize;
}

void rfm_SegmentBuffer::Require(int size)
{
    if (size > m_Capacity) *this = rfm_SegmentBuffer(size);
    if (size < 0) nex_ThrowAssert("size >= 0");
    m_Size = size;
}

void rfm_SegmentBuffer::Fill(char byte) noexcept
{
    if (m_Size > 0) std::memset(Writable(m_Size), byte, static_cast<std::size_t>(m_Size));
}

void rfm_SegmentBuffer::ClearFrom(int first) noexcept
{
    if (first >= m_Written) return;
    std::memset(m_Data.get() + first, 0, static_cast<std::size_t>(m_Written - first));
    m_Written = first;
}
