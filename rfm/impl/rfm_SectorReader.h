#pragma once

#include "rfm_SectorFile.h"

/// Reads the stream of a chain, from its data on. Sectors come in runs of consecutive ones, each run in one read: a stream
/// that was written at once is one run.
class rfm_SectorReader
{
public:
    /// Throws: the text of a corrupt file for a first sector that is none, and for a length that no stream of this file
    /// can have.
    explicit rfm_SectorReader(rfm_Sector first, rfm_SectorFile& file);
    rfm_SectorReader(const rfm_SectorReader&) = delete;
    rfm_SectorReader& operator=(const rfm_SectorReader&) = delete;
    ~rfm_SectorReader();

    /// The stored length: of the data, and 4.
    int Length() const noexcept { return m_Length; }
    /// The next `count` bytes of the chain, also behind the stream's end; fewer where the chain ends.
    /// Throws: the text of a corrupt file for a link that leads nowhere or back.
    int Read(char* bytes, int count);

private:
    int SectorsFor(int count) const noexcept;
    void LoadRun(unsigned first, int count);
    const char* Sector() const noexcept;
    bool GoOn(int wanted);

    rfm_SectorFile& m_File;
    unsigned m_Current;
    int m_Position = rfm_StreamLengthBytes;
    int m_Length = 0;

    // What is in memory: a run of consecutive sectors, m_Current among them.
    std::unique_ptr<char[]> m_Block;
    unsigned m_RunFirst = 0;
    int m_RunCount = 0;
    int m_RunLimit; // sectors worth reading at once: few, once runs turned out to be short
    int m_Sectors = 1;
    rfm_SectorTrail m_Trail;
};
