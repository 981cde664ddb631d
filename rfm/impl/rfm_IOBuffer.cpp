#include "rfm_IOBuffer.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "nex_Report.h"
#include "rfm_Exc.h"
#include "rfm_StringManager.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <utility>

namespace
{
constexpr int kDefaultCapacity = 2048;
}

rfm_IOBuffer::rfm_IOBuffer(rfm_IOS* target, int size)
    : rfm_IOS(target->Swapped()),
      m_Target(target),
      m_Capacity(size < 1 ? kDefaultCapacity : size),
      m_ReadOnly(target->ReadOnly()),
      m_Base(target->Location()),
      m_Data(std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(m_Capacity)))
{
}

rfm_IOBuffer::~rfm_IOBuffer()
{
    try
    {
        SettleBlock();
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
}

utl_FileOffset rfm_IOBuffer::Length() const { return std::max(Location(), m_Target->Length()); }

void rfm_IOBuffer::CheckWritable() const
{
    if (m_ReadOnly) rfm_ThrowReadOnlyDatabase();
}

void rfm_IOBuffer::RequireGranted(int granted, const char* tooLittle)
{
    if (granted < 1) nex_ThrowText(atr_Message(tooLittle));
}

void rfm_IOBuffer::Settle() noexcept
{
    m_Base = m_Base.Value() + m_Cursor;
    m_Cursor = 0;
    m_Limit = 0;
}

void rfm_IOBuffer::Load()
{
    m_Target->Seek(m_Base);
    m_Limit = m_Target->Read(m_Data.get(), std::min(m_Capacity, std::exchange(m_ExpectedBytes, INT_MAX)));
    m_Cursor = 0;
}

void rfm_IOBuffer::OpenForWriting() noexcept
{
    m_Limit = m_Capacity;
    m_Cursor = 0;
}

void rfm_IOBuffer::WriteToTarget(const char* bytes, int count)
{
    m_Target->Seek(m_Base);
    for (int written = 0; written < count;)
    {
        const int moved = m_Target->Write(bytes + written, count - written);
        if (moved < 1) nex_ThrowText(atr_Message("***ERROR: Write operation failed."));
        written += moved;
    }
}

// A target that throws leaves cursor and base as they were: the block is still whole for the next try.
void rfm_IOBuffer::WriteOut()
{
    CheckWritable();
    if (m_Cursor > 0) WriteToTarget(m_Data.get(), m_Cursor);
    Settle();
}

void rfm_IOBuffer::SettleBlock()
{
    if (m_Mode == Mode::Writing)
        WriteOut();
    else if (m_Mode == Mode::Reading)
        Settle();
    m_Mode = Mode::Idle;
}

// Back to where a write began that could not be finished, so that the caller can make it again. What it has already
// brought to the target there will be written over.
void rfm_IOBuffer::GoBackTo(utl_FileOffset start) noexcept
{
    if (m_Mode != Mode::Writing) return;
    if (m_Base > start)
    {
        m_Base = start;
        m_Cursor = 0;
    }
    else
    {
        m_Cursor = static_cast<int>(start.Value() - m_Base.Value());
    }
}

void rfm_IOBuffer::Discard() noexcept
{
    m_Cursor = 0;
    m_Limit = 0;
    m_Mode = Mode::Idle;
}

void rfm_IOBuffer::Seek(utl_FileOffset position)
{
    if (position == Location()) return;
    SettleBlock();
    m_Base = position;
}

void rfm_IOBuffer::Flush()
{
    SettleBlock();
    m_Target->Flush();
}

void rfm_IOBuffer::Extend(utl_FileOffset amount)
{
    Flush();
    m_Target->Seek(m_Base);
    m_Target->Extend(amount);
}

bool rfm_IOBuffer::PrepRead(int quantum, int count)
{
    if (m_Mode == Mode::Writing) WriteOut();
    if (m_Mode != Mode::Reading)
    {
        m_Mode = Mode::Idle;
        Load();
    }
    m_Mode = Mode::Reading;
    m_Slice = nullptr;
    m_SliceCount = 0;
    int available = m_Limit - m_Cursor;
    if (available < quantum)
    {
        // What is left is read again with what follows it, so that no quantum is ever split.
        Settle();
        Load();
        available = m_Limit;
    }
    if (available < quantum) return false;
    m_SliceCount = std::min(count, available / quantum);
    m_Slice = m_Data.get() + m_Cursor;
    m_Cursor += m_SliceCount * quantum;
    return m_SliceCount > 0;
}

void rfm_IOBuffer::PrepWrite(int quantum, int count)
{
    CheckWritable();
    if (quantum > m_Capacity)
        nex_ThrowText(atr_Message("rfm_IOBuffer::PrepWrite: Quantum is too large for buffer."));
    if (m_Mode == Mode::Reading) Settle();
    if (m_Mode != Mode::Writing) OpenForWriting();
    m_Mode = Mode::Writing;
    m_Slice = nullptr;
    m_SliceCount = 0;
    if (m_Limit - m_Cursor < quantum)
    {
        WriteOut();
        OpenForWriting();
    }
    m_SliceCount = std::min(count, (m_Limit - m_Cursor) / quantum);
    m_Slice = m_Data.get() + m_Cursor;
    m_Cursor += m_SliceCount * quantum;
}

// A transfer as large as the block goes past it, straight between the caller's memory and the target. What it leaves
// is the state that a walk through the block would leave: positioned behind the last whole quantum.
int rfm_IOBuffer::ReadPast(char* buffer, int bytes, int quantum)
{
    Settle();
    m_Mode = Mode::Reading;
    m_Target->Seek(m_Base);
    const int whole = m_Target->Read(buffer, bytes) / quantum * quantum;
    m_Base = m_Base.Value() + whole;
    return whole;
}

void rfm_IOBuffer::WritePast(const char* buffer, int bytes)
{
    if (m_Mode == Mode::Writing)
        WriteOut();
    else if (m_Mode == Mode::Reading)
        Settle();
    WriteToTarget(buffer, bytes);
    m_Base = m_Base.Value() + bytes;
    OpenForWriting();
    m_Mode = Mode::Writing;
}

int rfm_IOBuffer::Read(char* buffer, int count)
{
    if (m_Mode == Mode::Reading && count > 0 && count <= m_Limit - m_Cursor)
    {
        // The usual case, a row out of a loaded block: nothing but its bytes moves.
        std::memcpy(buffer, m_Data.get() + m_Cursor, static_cast<std::size_t>(count));
        m_Cursor += count;
        return count;
    }
    int done = 0;
    while (done < count)
    {
        const bool drained = m_Mode != Mode::Writing && m_Cursor == m_Limit;
        if (drained && count - done >= m_Capacity)
        {
            const int moved = ReadPast(buffer + done, count - done, 1);
            if (moved < 1) break;
            done += moved;
            continue;
        }
        if (!PrepRead(1, count - done)) break;
        std::memcpy(buffer + done, m_Slice, static_cast<std::size_t>(m_SliceCount));
        done += m_SliceCount;
    }
    return done;
}

int rfm_IOBuffer::Write(const char* buffer, int count)
{
    CheckWritable();
    if (m_Mode == Mode::Writing && count > 0 && count <= m_Limit - m_Cursor)
    {
        std::memcpy(m_Data.get() + m_Cursor, buffer, static_cast<std::size_t>(count));
        m_Cursor += count;
        return count;
    }
    WholeOrNothing transfer(*this);
    if (count >= m_Capacity)
    {
        WritePast(buffer, count);
        transfer.Keep();
        return count;
    }
    int done = 0;
    while (done < count)
    {
        PrepWrite(1, count - done);
        std::memcpy(m_Slice, buffer + done, static_cast<std::size_t>(m_SliceCount));
        done += m_SliceCount;
    }
    transfer.Keep();
    return done;
}

template <class T> int rfm_IOBuffer::ReadNumbers(T* values, int count)
{
    constexpr int width = static_cast<int>(sizeof(T));
    int done = 0;
    while (done < count)
    {
        const int wanted = count - done;
        const bool drained = m_Mode != Mode::Writing && m_Limit - m_Cursor < width;
        if (drained && wanted >= m_Capacity / width && wanted <= INT_MAX / width && m_Capacity >= width)
        {
            char* target = reinterpret_cast<char*>(values + done);
            const int moved = ReadPast(target, wanted * width, width) / width;
            if (moved < 1) break;
            if (Swapped()) rfm_Internalize(target, values + done, moved, true);
            done += moved;
            continue;
        }
        if (!PrepRead(width, wanted)) break;
        rfm_Internalize(m_Slice, values + done, m_SliceCount, Swapped());
        done += m_SliceCount;
    }
    return done;
}

template <class T> void rfm_IOBuffer::WriteNumbers(const T* values, int count, const char* tooLittle)
{
    constexpr int width = static_cast<int>(sizeof(T));
    CheckWritable();
    WholeOrNothing transfer(*this);
    // Only what needs no swap can go past the block: the caller's array is not ours to change.
    if (!Swapped() && count >= m_Capacity / width && count <= INT_MAX / width && m_Capacity >= width)
    {
        WritePast(reinterpret_cast<const char*>(values), count * width);
        transfer.Keep();
        return;
    }
    for (int done = 0; done < count;)
    {
        PrepWrite(width, count - done);
        RequireGranted(m_SliceCount, tooLittle);
        rfm_Externalize(values + done, m_Slice, m_SliceCount, Swapped());
        done += m_SliceCount;
    }
    transfer.Keep();
}

int rfm_IOBuffer::ReadArray(int* values, int count) { return ReadNumbers(values, count); }
int rfm_IOBuffer::ReadArray(float* values, int count) { return ReadNumbers(values, count); }
int rfm_IOBuffer::ReadArray(double* values, int count) { return ReadNumbers(values, count); }
void rfm_IOBuffer::WriteArray(const int* values, int count)
{
    WriteNumbers(values, count, "rfm_IOBuffer::WriteArray(int): Unable to find sufficient space in buffer.");
}
void rfm_IOBuffer::WriteArray(const float* values, int count)
{
    WriteNumbers(values, count,
                 "rfm_IOBuffer::WriteArray(float): Unable to find sufficient space in buffer.");
}
void rfm_IOBuffer::WriteArray(const double* values, int count)
{
    WriteNumbers(values, count,
                 "rfm_IOBuffer::WriteArray(double): Unable to find sufficient space in buffer.");
}

int rfm_IOBuffer::ReadArray(cow_String* values, int count)
{
    int done = 0;
    while (done < count && PrepRead(StringManager()->ReferenceSize(), count - done))
    {
        StringManager()->Decode(m_Slice, values + done, m_SliceCount);
        done += m_SliceCount;
    }
    return done;
}

void rfm_IOBuffer::WriteArray(const cow_String* values, int count)
{
    CheckWritable();
    WholeOrNothing transfer(*this);
    for (int done = 0; done < count;)
    {
        PrepWrite(StringManager()->ReferenceSize(), count - done);
        RequireGranted(m_SliceCount,
                       "rfm_IOBuffer::WriteArray(string): Unable to find sufficient space in buffer.");
        StringManager()->Encode(m_Slice, values + done, m_SliceCount);
        done += m_SliceCount;
    }
    transfer.Keep();
}

cow_String rfm_IOBuffer::ReadFixedString(int length)
{
    std::string text;
    while (length > 0 && PrepRead(1, length))
    {
        text.append(m_Slice, static_cast<std::size_t>(m_SliceCount));
        length -= m_SliceCount;
    }
    return cow_String(std::string_view(text));
}

void rfm_IOBuffer::Append(rfm_IOBuffer& source, utl_FileOffset most)
{
    CheckWritable();
    const int chunk = std::min(m_Capacity, source.m_Capacity);
    std::int64_t left = most.Value();
    while (left > 0 && source.PrepRead(1, static_cast<int>(std::min<std::int64_t>(chunk, left))))
    {
        const int granted = source.m_SliceCount;
        for (int done = 0; done < granted;)
        {
            PrepWrite(1, granted - done);
            RequireGranted(m_SliceCount, "rfm_IOBuffer::Append - Bad transfer length.");
            std::memcpy(m_Slice, source.m_Slice + done, static_cast<std::size_t>(m_SliceCount));
            done += m_SliceCount;
        }
        left -= granted;
    }
}
