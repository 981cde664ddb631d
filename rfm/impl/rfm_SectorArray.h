#pragma once

#include "omi_BlockedArray.h"
#include "rfm_SectorFile.h"
#include "rfm_SectorReader.h"
#include "rfm_SectorWriter.h"

#include <string>
#include <vector>

/// A file of numbered streams: for each cell of its directory the chain that holds one, and a small header for whoever
/// stands above. Directory and headers are in memory; Flush writes them.
class rfm_SectorArray : public rfm_SectorFile
{
public:
    /// Creates.
    rfm_SectorArray(const cow_String& name, int userHeaderLength);
    /// Opens, for reading or update.
    /// Throws: nex_AssertException for a file that is none of these; the text of a corrupt file for numbers that the
    /// file can't be right with; for update, a cell that leads out of the file among them.
    rfm_SectorArray(const cow_String& name, utl_FileAccess access);

    bool HasChain(int cell) const { return Cell(cell) != 0; }
    rfm_SectorReader GetReader(int cell);
    rfm_SectorWriter GetWriter(int cell);

    /// At most the user header's length; the result is how many bytes were moved.
    int ReadUserHeader(char* bytes, int length) const;
    int WriteUserHeader(const char* bytes, int length);
    int UserHeaderLength() const noexcept { return m_UserHeaderLength; }

    /// Links new sectors to the end of a chain until a stream of `bytes` fits it. What the chain holds stays as it is.
    void LengthenChain(int cell, int bytes);

    /// Writes directory and headers, and hands all that is gathered to the system.
    void Flush();

    int CellCount() const noexcept { return m_CellCount; }
    /// The first sector of a chain; 0 for none, also behind the last cell.
    unsigned Cell(int cell) const;
    void SetCell(int cell, unsigned sector);

private:
    void ReadHead(const char* bytes, int read);
    void ReadDirectory(const char* firstSector);
    void CheckCells() const;
    void TakeCells(const char* bytes, int first, int count);
    void PutCells(char* bytes, int first, int count) const;
    int CellsInFirst() const noexcept { return rfm_CellsInFirstSector(m_UserHeaderLength); }
    int LaterSectorsNeeded() const noexcept;
    void LengthenDirectory();
    void WriteLaterSector(int which);
    void WriteFirstSector();

    int m_UserHeaderLength = 0;
    int m_CellCount = 0;
    omi_BlockedArray<unsigned> m_Directory{0, 10};
    std::string m_UserHeader;
    // The directory's sectors behind sector 0. From m_LinkedSectors on they are new: nothing of them is written yet.
    std::vector<unsigned> m_DirectorySectors;
    int m_LinkedSectors = 0;
};
