#include "rfm_SectorReader.h"

#include "rfm_Exc.h"

#include <algorithm>
#include <cstring>

rfm_SectorReader::rfm_SectorReader(rfm_Sector first, rfm_SectorFile& file)
    : m_File(file),
      m_Current(first.Number()),
      m_Block(file.BorrowBlock()),
      m_RunLimit(std::min(file.UsualChain(), rfm_SectorRun))
{
    file.CheckChainSector(m_Current);
    m_Trail.Enter(m_Current);
    LoadRun(m_Current, m_RunLimit);
    m_RunLimit = rfm_SectorRun;
    // The whole file but sector 0, as one stream, has this length.
    const std::int64_t most = std::int64_t{file.UsedCount() - 1} * (file.SectorSize() - rfm_SectorLinkBytes);
    const std::uint32_t length = rfm_LoadWord(Sector());
    if (length < rfm_StreamLengthBytes || length > std::min<std::int64_t>(most, INT32_MAX))
        rfm_ThrowEncodedCorrupt();
    m_Length = static_cast<int>(length);
}

rfm_SectorReader::~rfm_SectorReader()
{
    m_File.SetUsualChain(m_Sectors);
    m_File.ReturnBlock(std::move(m_Block));
}

const char* rfm_SectorReader::Sector() const noexcept
{
    return m_Block.get() +
           static_cast<std::size_t>(m_Current - m_RunFirst) * static_cast<std::size_t>(m_File.SectorSize());
}

void rfm_SectorReader::LoadRun(unsigned first, int count)
{
    m_RunFirst = first;
    m_RunCount = std::min(count, m_File.UsedCount() - static_cast<int>(first));
    m_File.ReadSectors(first, m_RunCount, m_Block.get());
}

// As many sectors as that many bytes fill, of those that are moved at once: a length may be as large as a number gets.
int rfm_SectorReader::SectorsFor(int count) const noexcept
{
    const std::int64_t capacity = m_File.SectorSize() - rfm_SectorLinkBytes;
    return static_cast<int>(std::min<std::int64_t>((count + capacity - 1) / capacity, rfm_SectorRun));
}

int rfm_SectorReader::Read(char* bytes, int count)
{
    const int capacity = m_File.SectorSize() - rfm_SectorLinkBytes;
    int done = 0;
    while (done < count)
    {
        if (m_Position == capacity && !GoOn(SectorsFor(count - done))) break;
        const int piece = std::min(capacity - m_Position, count - done);
        std::memcpy(bytes + done, Sector() + m_Position, static_cast<std::size_t>(piece));
        m_Position += piece;
        done += piece;
    }
    return done;
}

// To the next sector, of which `wanted` are worth reading at once; false at the end of the chain.
bool rfm_SectorReader::GoOn(int wanted)
{
    const unsigned next = rfm_LoadWord(Sector() + m_File.SectorSize() - rfm_SectorLinkBytes);
    if (next == rfm_NullSector) return false;
    m_File.CheckLink(m_Current, next);
    m_Trail.Enter(next);
    if (next < m_RunFirst || next - m_RunFirst >= static_cast<unsigned>(m_RunCount))
    {
        // A run that ended before its sectors were used up says that this chain is scattered.
        const int used = static_cast<int>(m_Current - m_RunFirst) + 1;
        m_RunLimit = used < m_RunCount ? std::min(2 * used, rfm_SectorRun) : rfm_SectorRun;
        LoadRun(next, std::min(wanted, m_RunLimit));
    }
    m_Current = next;
    m_Position = 0;
    ++m_Sectors;
    return true;
}
