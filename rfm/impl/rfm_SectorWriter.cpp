#include "rfm_SectorWriter.h"

#include "rfm_SectorArray.h"

#include <algorithm>
#include <cstring>

rfm_SectorWriter::rfm_SectorWriter(rfm_SectorArray& array, int cell)
    : m_Array(array),
      m_Cell(cell),
      m_UsedBefore(array.UsedCount()),
      m_First(array.Cell(cell)),
      m_CurrentIsNew(m_First == 0)
{
    if (m_CurrentIsNew)
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

int rfm_SectorWriter::Write(const char* bytes, int count)
{
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

// To the next sector of the chain, to a new one at its end. The link between old and new ones is left for the end.
void rfm_SectorWriter::GoOn()
{
    rfm_Sector next = m_CurrentIsNew ? rfm_Sector() : m_Array.At(m_Current).Next();
    const bool nextIsNew = next.IsNull();
    if (nextIsNew) next = m_Array.At(m_Array.TakeSector());
    m_Trail.Enter(next.Number());
    const bool joins = nextIsNew && !m_CurrentIsNew;
    if (joins)
    {
        m_OldLast = m_Current;
        m_FirstNew = next.Number();
    }
    else
        rfm_StoreWord(Sector() + DataBytes(), next.Number());
    const bool runGoesOn = next.Number() == m_Current + 1 && !joins && m_RunCount < rfm_SectorRun;
    if (!runGoesOn) WriteRun(m_Array.SectorSize());
    m_Current = next.Number();
    m_CurrentIsNew = nextIsNew;
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
    if (m_CurrentIsNew)
        std::memset(Sector() + m_Position, 0, static_cast<std::size_t>(DataBytes() - m_Position));
    const int lastSectorBytes = m_CurrentIsNew ? m_Array.SectorSize() : m_Position;
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
