#pragma once

#include "rfm_IOS.h"

#include <climits>
#include <memory>

/// A block of memory in front of another stream, so that small transfers don't reach it one by one.
///
///            PrepRead: load                PrepWrite: open
///   +--------- reading (1) <----- idle (0) -----> writing (2) ---------+
///   |              |                ^  ^               |               |
///   |              +---- settle ----+  +-- write out --+               |
///   +---- PrepWrite: settle, open -------> 2     1 <--- PrepRead: write out, load
///
/// Idle means that nothing is in the block. A Seek to elsewhere, Flush, Extend and the destructor settle the block or
/// write it out.
/// Invariants: 0 <= m_Cursor <= m_Limit <= m_Capacity. m_Base is the place in the target of the block's first byte.
/// Bytes of the block past m_Limit are stale and must not reach the target. A block under write holds only what was
/// written since it was opened.
class rfm_IOBuffer : public rfm_IOS
{
public:
    /// `target` is not owned and must outlive the buffer. A size below 1 gives 2048 bytes.
    rfm_IOBuffer(rfm_IOS* target, int size);
    ~rfm_IOBuffer() override;

    bool ReadOnly() const override { return m_ReadOnly; }
    /// kept: beyond the end of the target the position counts as the length, also when nothing was written there.
    /// Test: LengthBeyondTheEndIsThePosition.
    utl_FileOffset Length() const override;
    void Seek(utl_FileOffset position) override;
    utl_FileOffset Location() const override { return m_Base + m_Cursor; }
    void Flush() override;
    void Extend(utl_FileOffset amount) override;
    int Read(char* buffer, int count) override;
    int Write(const char* buffer, int count) override;

    int ReadArray(int* values, int count) override;
    int ReadArray(float* values, int count) override;
    int ReadArray(double* values, int count) override;
    void WriteArray(const int* values, int count) override;
    void WriteArray(const float* values, int count) override;
    void WriteArray(const double* values, int count) override;
    /// What is there, also when that is shorter; memory is taken as it comes.
    cow_String ReadFixedString(int length) override;
    rfm_StringManager* StringManager() override { return m_Target->StringManager(); }
    int ReadArray(cow_String* values, int count) override;
    void WriteArray(const cow_String* values, int count) override;

    /// Copies what follows `source`'s position, at most `most` bytes, to this buffer's position.
    void Append(rfm_IOBuffer& source, utl_FileOffset most);
    /// All of the rest.
    void Append(rfm_IOBuffer& source) { Append(source, source.Length() - source.Location()); }
    /// Says that the next load serves `bytes` bytes and what follows them will hardly be read: a row out of a large
    /// table is 16 cache lines of a cold page cheaper without the rest of its block.
    void ExpectRead(int bytes) noexcept { m_ExpectedBytes = bytes; }
    /// Forgets what was written and not yet written out.
    void Discard() noexcept;

protected:
    /// Grants up to `count` quanta of stored bytes in m_Slice; false when not even one is left, or fits the block.
    bool PrepRead(int quantum, int count);
    /// Grants room for up to `count` quanta, at least one, in m_Slice; what the caller fills in counts as written.
    void PrepWrite(int quantum, int count);

    /// Stops a transfer that was granted nothing, which would go round for ever.
    static void RequireGranted(int granted, const char* tooLittle);

    const char* Slice() const noexcept { return m_Slice; }
    int SliceCount() const noexcept { return m_SliceCount; }

private:
    enum class Mode
    {
        Idle,
        Reading,
        Writing
    };

    /// A write that fails leaves the position where it was, and nothing of it in the block.
    class WholeOrNothing
    {
    public:
        explicit WholeOrNothing(rfm_IOBuffer& buffer) : m_Buffer(buffer), m_Start(buffer.Location()) {}
        ~WholeOrNothing()
        {
            if (!m_IsKept) m_Buffer.GoBackTo(m_Start);
        }
        WholeOrNothing(const WholeOrNothing&) = delete;
        WholeOrNothing& operator=(const WholeOrNothing&) = delete;
        void Keep() noexcept { m_IsKept = true; }

    private:
        rfm_IOBuffer& m_Buffer;
        const utl_FileOffset m_Start;
        bool m_IsKept = false;
    };

    void CheckWritable() const;
    void GoBackTo(utl_FileOffset start) noexcept;
    void Settle() noexcept;
    void Load();
    void OpenForWriting() noexcept;
    void WriteOut();
    void WriteToTarget(const char* bytes, int count);
    void SettleBlock();
    template <class T> int ReadNumbers(T* values, int count);
    template <class T> void WriteNumbers(const T* values, int count, const char* tooLittle);
    int ReadPast(char* buffer, int bytes, int quantum);
    void WritePast(const char* buffer, int bytes);

    rfm_IOS* m_Target;
    int m_Capacity;
    const bool
        m_ReadOnly; // asked once: it never changes, and a row's write would ask through three virtual calls
    int m_Cursor = 0;
    int m_Limit = 0;
    utl_FileOffset m_Base;
    std::unique_ptr<char[]> m_Data;
    char* m_Slice = nullptr;
    int m_SliceCount = 0;
    Mode m_Mode = Mode::Idle;
    int m_ExpectedBytes = INT_MAX;
};
