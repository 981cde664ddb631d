#include "rfm_SectorFile.h"

#include "atr_Translate.h"
#include "nex_Report.h"
#include "rfm_Exc.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

namespace
{
constexpr utl_FileSharing kSharedByReaders = 2;
constexpr utl_FileSharing kSharedByWriter = 1;
} // namespace

// ---- rfm_Sector ----

int rfm_Sector::Capacity() const noexcept { return m_File->SectorSize() - rfm_SectorLinkBytes; }

std::int64_t rfm_Sector::Place(int offset) const
{
    return std::int64_t{m_Number} * m_File->SectorSize() + offset;
}

int rfm_Sector::Read(char* bytes, int length, int offset) const
{
    m_File->File().Seek(Place(offset));
    return m_File->File().Read(bytes, length);
}

int rfm_Sector::Write(const char* bytes, int length, int offset)
{
    m_File->File().Seek(Place(offset));
    return m_File->File().Write(bytes, length);
}

void rfm_Sector::SetNext(rfm_Sector next)
{
    if (IsNull()) nex_ThrowAssert("!IsNull()");
    if (!next.IsNull()) m_File->NoteLink(m_Number, next.m_Number);
    char link[rfm_SectorLinkBytes];
    rfm_StoreWord(link, next.m_Number);
    Write(link, sizeof link, Capacity());
}

rfm_Sector rfm_Sector::Next() const
{
    if (IsNull()) return {};
    char link[rfm_SectorLinkBytes] = {};
    Read(link, sizeof link, Capacity());
    const unsigned next = rfm_LoadWord(link);
    if (next != rfm_NullSector) m_File->CheckLink(m_Number, next);
    return {next, m_File};
}

rfm_Sector rfm_Sector::NextOrAllocate()
{
    if (IsNull()) nex_ThrowAssert("!IsNull()");
    rfm_Sector next = Next();
    if (!next.IsNull()) return next;
    next = m_File->Allocate();
    SetNext(next);
    return next;
}

// ---- rfm_SectorTrail ----

void rfm_SectorTrail::Enter(unsigned sector)
{
    if (m_Passed.empty() || sector > m_Highest)
        m_Highest = sector;
    else
    {
        for (; m_KnownCount < m_Passed.size(); ++m_KnownCount) m_Known.insert(m_Passed[m_KnownCount]);
        if (m_Known.contains(sector)) rfm_ThrowEncodedCorrupt();
    }
    m_Passed.push_back(sector);
}

// ---- rfm_SectorFile ----

rfm_SectorFile::rfm_SectorFile(const cow_String& name, int sectorSize, utl_FileAccess access)
    : m_SectorSize(sectorSize),
      m_File(name, access, access == utl_FileAccessRead ? kSharedByReaders : kSharedByWriter),
      m_Name(name),
      m_ReadOnly(access == utl_FileAccessRead)
{
    // Streams are read whole, each from a place of its own.
    m_File.SetReadsAhead(false);
    const std::int64_t count = m_File.FileSize().Value() / m_SectorSize;
    if (count > INT_MAX) rfm_ThrowEncodedCorrupt();
    m_UsedCount = m_Capacity = m_UsedAtOpen = static_cast<int>(count);
}

rfm_SectorFile::~rfm_SectorFile()
{
    // One line for what fails: what the file could not be given stays the reason of all that follows.
    bool reported = false;
    const auto attempt = [&](auto step)
    {
        try
        {
            step();
        }
        catch (const std::exception& failure)
        {
            if (!std::exchange(reported, true)) nex_ReportUnthrown(failure);
        }
    };
    attempt([&] { Trim(); });
    attempt([&] { m_File.Close(); });
}

void rfm_SectorFile::Trim()
{
    if (m_Capacity == m_UsedCount) return;
    m_File.Extend(std::int64_t{m_SectorSize} * m_UsedCount);
    m_Capacity = m_UsedCount;
}

void rfm_SectorFile::CheckChainSector(unsigned number) const
{
    if (!IsChainSector(number)) rfm_ThrowEncodedCorrupt();
}

void rfm_SectorFile::CheckLink(unsigned from, unsigned to) const
{
    CheckChainSector(to);
    const auto atOpen = static_cast<unsigned>(m_UsedAtOpen);
    if (from < atOpen && to >= atOpen && !m_Grown.contains(from)) rfm_ThrowEncodedCorrupt();
}

void rfm_SectorFile::NoteLink(unsigned from, unsigned to)
{
    const auto atOpen = static_cast<unsigned>(m_UsedAtOpen);
    if (from < atOpen && to >= atOpen) m_Grown.insert(from);
}

unsigned rfm_SectorFile::TakeSector()
{
    if (m_UsedCount == m_Capacity)
    {
        if (m_Capacity > INT_MAX - rfm_SectorGrowth)
            nex_ThrowText(
                atr_Message("***ERROR: No more data fits in compressed database file:\n  %s", m_Name));
        m_File.Extend(std::int64_t{m_SectorSize} * (m_Capacity + rfm_SectorGrowth));
        m_Capacity += rfm_SectorGrowth;
    }
    return static_cast<unsigned>(m_UsedCount++);
}

rfm_Sector rfm_SectorFile::Allocate()
{
    rfm_Sector sector = At(TakeSector());
    try
    {
        sector.SetNext({});
    }
    catch (...)
    {
        GiveBack(m_UsedCount - 1);
        throw;
    }
    return sector;
}

void rfm_SectorFile::ReadSectors(unsigned first, int count, char* bytes)
{
    m_File.Seek(std::int64_t{first} * m_SectorSize);
    const int read = m_File.Read(bytes, count * m_SectorSize);
    std::memset(bytes + read, 0, static_cast<std::size_t>(count * m_SectorSize - read));
}

void rfm_SectorFile::WriteBytes(unsigned first, int offset, const char* bytes, int count)
{
    m_File.Seek(std::int64_t{first} * m_SectorSize + offset);
    m_File.Write(bytes, count);
}

std::unique_ptr<char[]> rfm_SectorFile::BorrowBlock()
{
    if (m_Block != nullptr) return std::move(m_Block);
    return std::make_unique_for_overwrite<char[]>(std::size_t{rfm_SectorRun} *
                                                  static_cast<std::size_t>(m_SectorSize));
}
