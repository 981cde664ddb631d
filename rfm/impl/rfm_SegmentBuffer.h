#pragma once

#include <cstdlib>
#include <memory>

/// A block of bytes that owns its memory. It starts as zeros and knows how far it was written, so that clearing it
/// costs no more than what was used: a damaged file may ask for a block of 1 GiB and fill 10 bytes of it.
class rfm_SegmentBuffer
{
public:
    rfm_SegmentBuffer() noexcept = default;
    explicit rfm_SegmentBuffer(int size);
    rfm_SegmentBuffer(const rfm_SegmentBuffer& source);
    rfm_SegmentBuffer(rfm_SegmentBuffer&& source) noexcept { Swap(source); }
    rfm_SegmentBuffer& operator=(rfm_SegmentBuffer source) noexcept
    {
        Swap(source);
        return *this;
    }
    ~rfm_SegmentBuffer() = default;

    int Size() const noexcept { return m_Size; }
    const char* Data() const noexcept { return m_Data.get(); }
    /// The bytes, for writing in front of `end`.
    char* Writable(int end) noexcept
    {
        if (end > m_Written) m_Written = end;
        return m_Data.get();
    }
    void Swap(rfm_SegmentBuffer& other) noexcept;
    /// Only lowers the size; the memory stays.
    void Shrink(int newSize);
    /// Lets it have `size` bytes of any content, in the memory that it has where that is enough.
    void Require(int size);
    void Fill(char byte) noexcept;
    /// Makes all bytes from `first` on zero.
    void ClearFrom(int first) noexcept;

private:
    struct Free
    {
        void operator()(char* block) const noexcept { std::free(block); }
    };

    std::unique_ptr<char[], Free> m_Data;
    int m_Size = 0;
    int m_Capacity = 0;
    int m_Written = 0; // bytes from here on are zero
};
