#include "rfm_SectorArray.h"

#include "rfm_Exc.h"

#include <algorithm>
#include <cstring>

// The order of writes is the file's safety: streams have reached the file when Flush is called; the later sectors of the
// directory follow from the last to the first, and sector 0 with both headers comes last. A writer that dies in between
// leaves the directory of the flush before, whose cells never change.

rfm_SectorArray::rfm_SectorArray(const cow_String& name, int userHeaderLength)
    : rfm_SectorFile(name, rfm_SectorBytes, utl_FileAccessCreate),
      m_UserHeaderLength(userHeaderLength),
      m_UserHeader(static_cast<std::size_t>(userHeaderLength), '\0')
{
    Allocate();
}

rfm_SectorArray::rfm_SectorArray(const cow_String& name, utl_FileAccess access)
    : rfm_SectorFile(name, rfm_SectorBytes, access)
{
    char first[rfm_SectorBytes] = {};
    const int read = At(0).Read(first, sizeof first, 0);
    ReadHead(first, read);
    if (UsedCount() == 0) rfm_ThrowEncodedCorrupt(); // new sectors would lie over the header
    ReadDirectory(first);
    if (!ReadOnly()) CheckCells();
}

void rfm_SectorArray::ReadHead(const char* bytes, int read)
{
    if (read < static_cast<int>(rfm_SectorMagic.size())) nex_ThrowAssert("cnt == sizeof(magic)");
    if (!std::string_view(bytes, rfm_SectorMagic.size()).starts_with(rfm_SectorMagic))
        nex_ThrowAssert("strncmp( magic, MAGIC, sizeof(magic) ) == 0");
    if (read < rfm_SectorHeaderBytes) nex_ThrowAssert("cnt == sizeof(tmp)");
    const rfm_SectorHead head = rfm_DecodeSectorHead(bytes + rfm_SectorHeadOffset);
    if (head.version != rfm_SectorVersion) nex_ThrowAssert("tmp[HEADER_VERSION] == CURRENT_VERSION");
    if (head.userHeaderLength < 0 || head.userHeaderLength > rfm_SectorDataBytes - rfm_SectorHeaderBytes)
        rfm_ThrowEncodedCorrupt();
    m_UserHeaderLength = head.userHeaderLength;
    m_CellCount = head.cellCount;
    // As long as the header says; what a short file lacks of it shows when it is read.
    const int stored = std::clamp(read - rfm_SectorHeaderBytes, 0, m_UserHeaderLength);
    m_UserHeader.assign(bytes + rfm_SectorHeaderBytes, static_cast<std::size_t>(stored));
}

// As many cells as the file can hold, over a chain that ends: memory follows the file's size.
void rfm_SectorArray::ReadDirectory(const char* firstSector)
{
    const std::int64_t most = CellsInFirst() + std::int64_t{UsedCount() - 1} * rfm_CellsPerSector;
    if (m_CellCount < 0 || m_CellCount > most) rfm_ThrowEncodedCorrupt();
    int index = std::min(m_CellCount, CellsInFirst());
    TakeCells(firstSector + rfm_SectorHeaderBytes + m_UserHeaderLength, 0, index);
    unsigned next = rfm_LoadWord(firstSector + rfm_SectorDataBytes);
    rfm_SectorTrail trail;
    while (index < m_CellCount && next != rfm_NullSector)
    {
        char sector[rfm_SectorBytes];
        CheckChainSector(next);
        trail.Enter(next);
        ReadSectors(next, 1, sector);
        m_DirectorySectors.push_back(next);
        const int count = std::min(m_CellCount - index, rfm_CellsPerSector);
        TakeCells(sector, index, count);
        index += count;
        next = rfm_LoadWord(sector + rfm_SectorDataBytes);
    }
    if (index < m_CellCount) nex_ThrowAssert("remaining == 0");
    m_LinkedSectors = static_cast<int>(m_DirectorySectors.size());
}

void rfm_SectorArray::TakeCells(const char* bytes, int first, int count)
{
    for (int i = 0; i < count; ++i)
        if (const unsigned sector = rfm_LoadWord(bytes + i * rfm_SectorCellBytes); sector != 0)
            m_Directory.SetCell(first + i, sector);
}

// A reader finds out with the stream. A writer must not give these sectors to others: the stream would show their bytes.
void rfm_SectorArray::CheckCells() const
{
    for (int cell = 0; cell < m_CellCount; ++cell)
        if (HasChain(cell)) CheckChainSector(Cell(cell));
}

void rfm_SectorArray::PutCells(char* bytes, int first, int count) const
{
    for (int i = 0; i < count; ++i) rfm_StoreWord(bytes + i * rfm_SectorCellBytes, Cell(first + i));
}

unsigned rfm_SectorArray::Cell(int cell) const { return cell < m_CellCount ? m_Directory.Cell(cell) : 0; }

void rfm_SectorArray::SetCell(int cell, unsigned sector)
{
    m_Directory.SetCell(cell, sector);
    m_CellCount = std::max(m_CellCount, cell + 1);
}

rfm_SectorReader rfm_SectorArray::GetReader(int cell)
{
    if (!HasChain(cell)) nex_ThrowAssert("cell && *cell");
    return rfm_SectorReader(At(Cell(cell)), *this);
}

rfm_SectorWriter rfm_SectorArray::GetWriter(int cell) { return {*this, cell}; }

void rfm_SectorArray::LengthenChain(int cell, int bytes)
{
    if (!HasChain(cell)) nex_ThrowAssert("cell && *cell");
    CheckChainSector(Cell(cell));
    rfm_SectorTrail trail;
    rfm_Sector sector = At(Cell(cell));
    trail.Enter(sector.Number());
    for (std::int64_t room = rfm_SectorDataBytes - rfm_StreamLengthBytes; room < bytes;
         room += rfm_SectorDataBytes)
    {
        sector = sector.NextOrAllocate();
        trail.Enter(sector.Number());
    }
}

int rfm_SectorArray::ReadUserHeader(char* bytes, int length) const
{
    const int moved = std::min(length, static_cast<int>(m_UserHeader.size()));
    std::memcpy(bytes, m_UserHeader.data(), static_cast<std::size_t>(moved));
    return moved;
}

int rfm_SectorArray::WriteUserHeader(const char* bytes, int length)
{
    const int moved = std::min(length, m_UserHeaderLength);
    m_UserHeader.resize(static_cast<std::size_t>(m_UserHeaderLength));
    std::memcpy(m_UserHeader.data(), bytes, static_cast<std::size_t>(moved));
    return moved;
}

// ---- Flush ----

void rfm_SectorArray::Flush()
{
    LengthenDirectory();
    for (int which = static_cast<int>(m_DirectorySectors.size()); which-- > 0;) WriteLaterSector(which);
    WriteFirstSector();
    m_LinkedSectors = static_cast<int>(m_DirectorySectors.size());
    File().Flush();
}

int rfm_SectorArray::LaterSectorsNeeded() const noexcept
{
    const int rest = std::max(m_CellCount - CellsInFirst(), 0);
    return rest / rfm_CellsPerSector + (rest % rfm_CellsPerSector > 0 ? 1 : 0);
}

// A chain that goes on behind the cells that there were is used first.
void rfm_SectorArray::LengthenDirectory()
{
    while (static_cast<int>(m_DirectorySectors.size()) < LaterSectorsNeeded())
    {
        const bool endIsLinked = m_LinkedSectors == static_cast<int>(m_DirectorySectors.size());
        const unsigned end = m_DirectorySectors.empty() ? 0 : m_DirectorySectors.back();
        const rfm_Sector next = endIsLinked ? At(end).Next() : rfm_Sector();
        if (next.IsNull())
        {
            m_DirectorySectors.reserve(m_DirectorySectors.size() + 1);
            m_DirectorySectors.push_back(TakeSector());
            continue;
        }
        if (std::find(m_DirectorySectors.begin(), m_DirectorySectors.end(), next.Number()) !=
            m_DirectorySectors.end())
            rfm_ThrowEncodedCorrupt();
        m_DirectorySectors.push_back(next.Number());
        ++m_LinkedSectors;
    }
}

// A sector that others follow is full, so its link goes with its cells. Of an old one at the end nothing is written but
// its cells.
void rfm_SectorArray::WriteLaterSector(int which)
{
    const bool isLast = which + 1 == static_cast<int>(m_DirectorySectors.size());
    const int first = CellsInFirst() + which * rfm_CellsPerSector;
    const int count = std::min(m_CellCount - first, rfm_CellsPerSector);
    char sector[rfm_SectorBytes] = {};
    PutCells(sector, first, count);
    const auto index = static_cast<std::size_t>(which);
    rfm_StoreWord(sector + rfm_SectorDataBytes, isLast ? rfm_NullSector : m_DirectorySectors[index + 1]);
    const bool whole = !isLast || which >= m_LinkedSectors;
    WriteBytes(m_DirectorySectors[index], 0, sector, whole ? rfm_SectorBytes : count * rfm_SectorCellBytes);
}

// `WriteBytes` moves all bytes or throws, so there is no count of written bytes to look at.
void rfm_SectorArray::WriteFirstSector()
{
    char sector[rfm_SectorBytes] = {};
    std::memcpy(sector, rfm_SectorMagic.data(), rfm_SectorMagic.size());
    rfm_EncodeSectorHead({rfm_SectorVersion, m_UserHeaderLength, m_CellCount}, sector + rfm_SectorHeadOffset);
    std::memcpy(sector + rfm_SectorHeaderBytes, m_UserHeader.data(), m_UserHeader.size());
    const int cellsOffset = rfm_SectorHeaderBytes + m_UserHeaderLength;
    const int count = std::min(m_CellCount, CellsInFirst());
    PutCells(sector + cellsOffset, 0, count);
    const bool whole = !m_DirectorySectors.empty();
    if (whole) rfm_StoreWord(sector + rfm_SectorDataBytes, m_DirectorySectors.front());
    WriteBytes(0, 0, sector, whole ? rfm_SectorBytes : cellsOffset + count * rfm_SectorCellBytes);
}
