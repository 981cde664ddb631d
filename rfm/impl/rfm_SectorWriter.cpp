#include "rfm_SectorWriter.h"

#include "rfm_SectorArray.h"

#include <algorithm>
#include <cstring>

rfm_SectorWriter::rfm_SectorWriter(rfm_SectorArray& array, int cell)
    : m_Array(array),
      m_Cell(cell),
      m_UsedBefore(array.UsedCount()),
      m_First(array.Cell(cell))
{
    if (m_First == 0)
        m_First = array.TakeSector();
    else
        array.CheckChainSector(m_First);
    m_Current = m_First;
    m_Trail.Enter(m_First);
    m_Block = array.BorrowBlock();
    BeginRun(m_First);
}

rfm_SectorWriter::~rfm_SectorWriter()
{
    if (!m_Kept) m_Array.GiveBack(m_UsedBefore);
    m_Array.ReturnBlock(std::move(m_Block));
}

int rfm_SectorWriter::DataBytes() const noexcept { return m_Array.SectorSize() - rfm_SectorLinkBytes; }

char* rfm_SectorWriter::Sector() noexcept
{
    return m_Block.get() +
           static_cast<std::size_t>(m_RunCount - 1) * static_cast<std::size_t>(m_Array.SectorSize());
}

void rfm_SectorWriter::BeginRun(unsigned first)
{
    m_RunFirst = first;
    m_RunCount = 0;
    AddSector();
}

// It ends the chain until another follows.
void rfm_SectorWriter::AddSector()
{
    ++m_RunCount;
    rfm_StoreWord(Sector() + DataBytes(), rfm_NullSector);
}

// All sectors that `count` more bytes need. A chain that is damaged, or that can't grow, shows here.
void rfm_SectorWriter::Secure(int count)
{
    m_Ahead.clear();
    m_AheadUsed = 0;
    const std::int64_t beyond = std::int64_t{count} - (DataBytes() - m_Position);
    if (beyond <= 0) return;
    const std::int64_t needed = (beyond + DataBytes() - 1) / DataBytes();
    for (unsigned last = m_Current; static_cast<std::int64_t>(m_Ahead.size()) < needed;)
    {
        last = SectorBehind(last);
        m_Trail.Enter(last);
        m_Ahead.push_back(last);
    }
}

unsigned rfm_SectorWriter::SectorBehind(unsigned last)
{
    const rfm_Sector next = IsNew(last) ? rfm_Sector() : m_Array.At(last).Next();
    return next.IsNull() ? m_Array.TakeSector() : next.Number();
}

int rfm_SectorWriter::Write(const char* bytes, int count)
{
    Secure(count);
    for (int done = 0; done < count;)
    {
        if (m_Position == DataBytes()) GoOn();
        const int piece = std::min(DataBytes() - m_Position, count - done);
        std::memcpy(Sector() + m_Position, bytes + done, static_cast<std::size_t>(piece));
        m_Position += piece;
        m_Length += piece;
        done += piece;
    }
    return count;
}

// To the next sector. The link between old and new ones is left for the end.
void rfm_SectorWriter::GoOn()
{
    const unsigned next = m_Ahead[m_AheadUsed++];
    const bool joins = IsNew(next) && !IsNew(m_Current);
    if (joins)
    {
        m_OldLast = m_Current;
        m_FirstNew = next;
    }
    else
        rfm_StoreWord(Sector() + DataBytes(), next);
    const bool runGoesOn = next == m_Current + 1 && !joins && m_RunCount < rfm_SectorRun;
    if (!runGoesOn) WriteRun(m_Array.SectorSize());
    m_Current = next;
    if (runGoesOn)
        AddSector();
    else
        BeginRun(m_Current);
    m_Position = 0;
}

void rfm_SectorWriter::WriteRun(int lastSectorBytes)
{
    // The old length stands until all data are there.
    const int skipped = RunHoldsFirst() ? rfm_StreamLengthBytes : 0;
    const int bytes = (m_RunCount - 1) * m_Array.SectorSize() + lastSectorBytes;
    m_Array.WriteBytes(m_RunFirst, skipped, m_Block.get() + skipped, bytes - skipped);
    if (skipped > 0) m_FirstIsOut = true;
}

void rfm_SectorWriter::End()
{
    // Of an old sector nothing is touched that the stream does not need; what a new one does not use is zero.
    if (IsNew(m_Current))
        std::memset(Sector() + m_Position, 0, static_cast<std::size_t>(DataBytes() - m_Position));
    const int lastSectorBytes = IsNew(m_Current) ? m_Array.SectorSize() : m_Position;
    char length[rfm_StreamLengthBytes];
    rfm_StoreWord(length, static_cast<std::uint32_t>(m_Length));
    if (RunHoldsFirst())
    {
        std::memcpy(m_Block.get(), length, sizeof length);
        m_Array.WriteBytes(m_RunFirst, 0, m_Block.get(),
                           (m_RunCount - 1) * m_Array.SectorSize() + lastSectorBytes);
    }
    else
    {
        WriteRun(lastSectorBytes);
        if (m_FirstNew != rfm_NullSector && m_OldLast != rfm_NullSector)
        {
            m_Array.At(m_OldLast).SetNext(m_Array.At(m_FirstNew));
            m_Kept = true;
        }
        m_Array.WriteBytes(m_First, 0, length, sizeof length);
    }
    m_Array.SetCell(m_Cell, m_First);
    m_Kept = true;
}
