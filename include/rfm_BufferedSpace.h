#pragma once

#include "rfm_Space.h"

#include <utility>

class rfm_IOBuffer;

template <> struct RFM_EXPORT cow_Deleter<rfm_IOBuffer>
{
    static void Delete(rfm_IOBuffer* object);
};

/// A space behind a block of 2048 bytes: for many small reads and writes. Copies share space and block.
/// What was written reaches the space at `Flush`, at a step aside, or when the last copy goes; a refusal is then one
/// line on standard error, so call `Flush` first. It must go before the last rfm_Database handle does.
/// Pointers must not be null unless the count is 0 or less, which moves nothing. Everything that writes or extends
/// throws nex_TextException on a read-only database, and what the file system refuses: the position stays then.
/// Threads: a database and everything made from it belongs to one thread at a time.
class RFM_EXPORT rfm_BufferedSpace
{
public:
    explicit rfm_BufferedSpace(const rfm_Space& space);
    rfm_BufferedSpace(const rfm_BufferedSpace&) = default;
    rfm_BufferedSpace(rfm_BufferedSpace&&) noexcept = default;
    // Block before space here too: one that goes now settles into a space that is still there.
    rfm_BufferedSpace& operator=(rfm_BufferedSpace source) noexcept
    {
        std::swap(m_Space, source.m_Space);
        std::swap(m_Buffer, source.m_Buffer);
        return *this;
    }
    ~rfm_BufferedSpace() = default;

    rfm_Handle Handle() const { return m_Space.Handle(); }
    utl_FileOffset Allocation() const { return m_Space.Allocation(); }
    bool ReadOnly() const;
    utl_FileOffset Length() const;
    /// Any place is taken; one past the end shows when the block next reads or writes, which throws.
    void Seek(utl_FileOffset offset);
    utl_FileOffset Location() const;
    void Flush();
    void Extend(utl_FileOffset amount);
    /// Bytes read: fewer than `count` at the end.
    int Read(char* buffer, int count);
    int Write(const char* buffer, int count);
    /// Elements read: fewer than `count` at the end.
    int ReadIntArray(int* values, int count);
    int ReadFloatArray(float* values, int count);
    int ReadDoubleArray(double* values, int count);
    void WriteIntArray(const int* values, int count);
    void WriteFloatArray(const float* values, int count);
    void WriteDoubleArray(const double* values, int count);

private:
    class BufferHld : public cow_CountedHld<rfm_IOBuffer>
    {
    public:
        explicit BufferHld(rfm_IOBuffer* buffer) : cow_CountedHld<rfm_IOBuffer>(buffer) {}
        rfm_IOBuffer& Get() const { return *m_Object; }
    };

    // Order: the block settles into the space when it goes, so it goes first.
    rfm_Space m_Space;
    BufferHld m_Buffer;
};
