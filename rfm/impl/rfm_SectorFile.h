#pragma once

#include "rfm_SectorFormat.h"
#include "utl_File.h"

#include <memory>
#include <unordered_set>
#include <vector>

class rfm_SectorFile;

/// The name of one sector of a file; copied freely.
class rfm_Sector
{
public:
    rfm_Sector() noexcept = default;
    rfm_Sector(unsigned number, rfm_SectorFile* file) noexcept : m_Number(number), m_File(file) {}

    bool IsNull() const noexcept { return m_Number == rfm_NullSector; }
    unsigned Number() const noexcept { return m_Number; }
    int Capacity() const noexcept;
    void SetNext(rfm_Sector next);
    /// The null sector at the end of the chain, and for the null sector.
    /// Throws: the text of a corrupt file for a link that leads to no sector.
    rfm_Sector Next() const;
    rfm_Sector NextOrAllocate();
    /// Bytes of the sector from `offset` on; the result is how many were moved.
    int Read(char* bytes, int length, int offset) const;
    int Write(const char* bytes, int length, int offset);

private:
    std::int64_t Place(int offset) const;

    unsigned m_Number = rfm_NullSector;
    rfm_SectorFile* m_File = nullptr;
};

/// Sees to it that a walk along a chain ends: no sector comes twice. Chains mostly ascend, and a step to a sector behind
/// all others costs nothing but to note it.
class rfm_SectorTrail
{
public:
    /// Throws: the text of a corrupt file when the walk was there before.
    void Enter(unsigned sector);

private:
    std::vector<unsigned> m_Passed;
    std::unordered_set<unsigned> m_Known; // of m_Passed, what was looked at since the first step back
    std::size_t m_KnownCount = 0;
    unsigned m_Highest = 0;
};

/// One physical file as an array of sectors. New ones come from its end, which is kept ahead of the sectors in use; the
/// destructor cuts it back. How many are in use is not stored: at open all count as used.
class rfm_SectorFile
{
public:
    rfm_SectorFile(const cow_String& name, int sectorSize, utl_FileAccess access);
    rfm_SectorFile(const rfm_SectorFile&) = delete;
    rfm_SectorFile& operator=(const rfm_SectorFile&) = delete;
    ~rfm_SectorFile();

    /// A new sector, the last of a chain; nothing but its link is written.
    rfm_Sector Allocate();

    bool ReadOnly() const noexcept { return m_ReadOnly; }
    int SectorSize() const noexcept { return m_SectorSize; }
    int UsedCount() const noexcept { return m_UsedCount; }
    int Capacity() const noexcept { return m_Capacity; }
    utl_File& File() noexcept { return m_File; }
    rfm_Sector At(unsigned number) noexcept { return {number, this}; }

    /// Whether a chain may go on, or a stream begin, at that sector.
    bool IsChainSector(unsigned number) const noexcept
    {
        return number >= 1 && number < static_cast<unsigned>(m_UsedCount);
    }
    /// Throws: the text of a corrupt file unless it is one.
    void CheckChainSector(unsigned number) const;
    /// The same for a link that was read, but for the null sector. A link that was in the file when it was opened can't
    /// lead to a sector taken since: in a file that was cut, such numbers come into use again.
    void CheckLink(unsigned from, unsigned to) const;
    /// Notes that a link leads, or will lead, from a sector to another.
    void NoteLink(unsigned from, unsigned to);

    // For those that move whole sectors.

    /// A new sector that the caller writes as a whole, its link included.
    unsigned TakeSector();
    /// Takes back the sectors from `usedCount` on, to which nothing in the file leads yet.
    void GiveBack(int usedCount) noexcept { m_UsedCount = usedCount; }
    /// Consecutive sectors, or the first bytes of them. Bytes that the file does not have count as zero.
    void ReadSectors(unsigned first, int count, char* bytes);
    void WriteBytes(unsigned first, int offset, const char* bytes, int count);
    /// Memory for rfm_SectorRun sectors, kept from one stream to the next.
    std::unique_ptr<char[]> BorrowBlock();
    void ReturnBlock(std::unique_ptr<char[]> block) noexcept { m_Block = std::move(block); }
    /// How many sectors the last stream took: as many are read at once to begin with.
    int UsualChain() const noexcept { return m_UsualChain; }
    void SetUsualChain(int count) noexcept { m_UsualChain = count; }

private:
    void Trim();

    int m_SectorSize;
    int m_UsedCount = 0;
    int m_Capacity = 0;
    int m_UsedAtOpen = 0;
    std::unordered_set<unsigned> m_Grown; // of the sectors that there were at open, those linked to a new one
    utl_File m_File;
    cow_String m_Name;
    bool m_ReadOnly;
    std::unique_ptr<char[]> m_Block;
    int m_UsualChain = 8;
};

/// Sectors that are moved at once: 128 KiB, more than a segment of 64 KiB takes at worst.
inline constexpr int rfm_SectorRun = 32;
