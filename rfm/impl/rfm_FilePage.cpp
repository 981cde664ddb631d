#include "rfm_FilePage.h"

#include "atr_Translate.h"
#include "rfm_FileCache.h"
#include "rfm_RemoteFormat.h"
#include "utl_File.h"
#include "utl_FileException.h"

#include <algorithm>

// Bytes move in transfers of 32 pieces, as much as the relay writes at once: a system call a piece would cost as much as
// the piece. On the stack: threads load at the same time, and a page in memory could be 64 MiB.
static constexpr int kTransferBytes = 32 * rfm_FilePage::kPieceBytes;

void rfm_FilePage::Unlink() noexcept
{
    m_Previous->m_Next = m_Next;
    m_Next->m_Previous = m_Previous;
    m_Next = m_Previous = this;
}

void rfm_FilePage::MoveBehind(rfm_FilePage& head) noexcept
{
    Unlink();
    m_Next = head.m_Next;
    m_Previous = &head;
    m_Next->m_Previous = this;
    head.m_Next = this;
}

void rfm_FilePage::ReadPage(int& total, char*& target, int& remaining, utl_FileOffset& position) const
{
    const std::int64_t offset = position.Value() - m_Start;
    if (offset < 0 || offset >= m_Length) return;
    const int wanted = static_cast<int>(std::min<std::int64_t>(m_Length - offset, remaining));
    Cache().ReadSlot(m_Slot + offset, target, wanted);
    total += wanted;
    target += wanted;
    position += wanted;
    remaining -= wanted;
}

void rfm_FilePage::LoadPage(utl_BinIStream& source)
{
    const int length = source.ReadInt();
    if (!rfm_IsRemotePageLength(length, Cache().PageSize()))
        utl_BinStreamEOF("read", atr_Message("A page of %d bytes was announced", length))
            .Throw(__FILE__, __LINE__);
    m_Length = 0; // until all of it is there
    TakeBytes(source, length);
    m_Length = length;
}

static void TakeAway(utl_BinIStream& source, int count)
{
    char bytes[rfm_FilePage::kPieceBytes];
    for (; count > 0; count -= std::min<int>(count, sizeof bytes))
        source.Read(bytes, std::min<int>(count, sizeof bytes));
}

void rfm_FilePage::TakeBytes(utl_BinIStream& source, int length) const
{
    const rfm_FileCache& cache = Cache();
    char buffer[kTransferBytes] = {};
    int due = length;
    try
    {
        const std::int64_t slotBytes = SlotBytes(cache.PageSize());
        for (std::int64_t written = 0; written < slotBytes; written += kTransferBytes)
        {
            const int taken = std::min(due, kTransferBytes);
            due -= taken;
            source.Read(buffer, taken);
            cache.WriteSlot(m_Slot + written, buffer,
                            static_cast<int>(std::min<std::int64_t>(kTransferBytes, slotBytes - written)));
        }
    }
    catch (const utl_FileException&)
    {
        TakeAway(source, due); // the stream stays in step, and the file can be read on once there is room
        throw;
    }
}
