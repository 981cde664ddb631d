#pragma once

#include "rfm_SectorFile.h"

#include <vector>

class rfm_SectorArray;

/// Writes the stream of one cell over its chain, with new sectors where that ends. Nothing leads to the new sectors before
/// End has written them; without End, or when it fails, they go back to the file.
/// Each Write has all the sectors it needs before any of its bytes goes out: a stream written in one leaves the old one
/// as it was when there is no room for it.
///
/// Sectors are gathered in runs of consecutive ones, link and all, each run one write. Order: data, then the link from
/// the old chain to the new sectors, then the length, then the cell. A stream of one run has its length in that one write.
class rfm_SectorWriter
{
public:
    rfm_SectorWriter(rfm_SectorArray& array, int cell);
    rfm_SectorWriter(const rfm_SectorWriter&) = delete;
    rfm_SectorWriter& operator=(const rfm_SectorWriter&) = delete;
    ~rfm_SectorWriter();

    int Write(const char* bytes, int count);
    void End();
    /// What End stores: of the data so far, and 4.
    int Length() const noexcept { return m_Length; }

private:
    char* Sector() noexcept;
    int DataBytes() const noexcept;
    bool IsNew(unsigned sector) const noexcept { return sector >= static_cast<unsigned>(m_UsedBefore); }
    void Secure(int count);
    unsigned SectorBehind(unsigned last);
    void BeginRun(unsigned first);
    void AddSector();
    void GoOn();
    void WriteRun(int lastSectorBytes);
    bool RunHoldsFirst() const noexcept { return m_RunFirst == m_First && !m_FirstIsOut; }

    rfm_SectorArray& m_Array;
    const int m_Cell;
    const int m_UsedBefore;
    unsigned m_First;
    unsigned m_Current;
    bool m_FirstIsOut = false; // written, but for its length
    bool m_Kept = false;       // something in the file leads to the new sectors
    int m_Position = rfm_StreamLengthBytes;
    int m_Length = rfm_StreamLengthBytes;

    // The sectors that the present Write goes on in: of the old chain while that lasts, then new ones.
    std::vector<unsigned> m_Ahead;
    std::size_t m_AheadUsed = 0;

    // Where the new sectors are to be linked to: the last of the old chain.
    unsigned m_OldLast = rfm_NullSector;
    unsigned m_FirstNew = rfm_NullSector;

    std::unique_ptr<char[]> m_Block;
    unsigned m_RunFirst = 0;
    int m_RunCount = 0; // m_Current is the last of them
    rfm_SectorTrail m_Trail;
};
