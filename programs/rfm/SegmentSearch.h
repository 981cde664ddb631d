#pragma once

#include "Salvage.h"
#include "SegmentMap.h"
#include "rfm_EncodedFormat.h"

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace rfm_tool
{
/// Finds out where the segments of a compressed file lie whose header and directory may be damaged. What speaks for
/// what:
///
///   the fixed numbers of the header          are known anyway
///   a cell of the directory                  a whole stream begins where it leads: a zlib stream has a check value
///   a stream that no cell leads to           is found in the sectors that no other stream has. It is segment 0 when it
///                                            begins as a database does; else the segment in which the linkage table
///                                            puts the objects whose marks stand in it; else, a guess, it lies between
///                                            the streams of its neighbours, as writers store them in sequence
///   a stream whose links don't lead on       its sectors may lie one behind the other
///   the size of the segments                 streams inflate to it
///   their number and the last one's length   the linkage table reaches up to there
///
/// Bounds: memory of at most some 600 bytes for each stream; sectors are read a few times each, and inflated as often.
class SegmentSearch
{
public:
    /// Throws: Failure when the file can't be opened or read.
    SegmentSearch(const std::string& path, LossList& losses);
    /// With nothing in it when no segment 0 is found: no database is in the file then.
    SegmentMap Run();

private:
    /// A stream that no cell leads to.
    struct LooseStream
    {
        StoredStream stream;
        bool beginsDatabase = false;
        bool isPlaced = false;
        std::vector<std::int64_t> marks; // where marks of objects stand in it, so many of them
    };
    /// What the database says of where it has bytes.
    struct Needs
    {
        std::set<std::int64_t> segments;
        std::unordered_map<std::int64_t, std::vector<std::int64_t>>
            starts; // of extents: place in a segment, segments
        std::int64_t end = 0;
    };

    void ReadHead();
    void ExpectNumber(std::int64_t offset, const char* what, std::uint32_t found, std::uint32_t expected);
    void ReadDirectory();
    void TakeCells(const char* bytes, std::int64_t count);
    bool LooksLikeCells(const char* bytes, std::int64_t count) const;
    void CheckCellCount();
    void PlaceCells();
    std::vector<std::uint8_t> CountClaims() const;

    bool IsSector(std::uint32_t sector) const { return sector > 0 && sector < m_File.SectorCount(); }
    bool IsStart(std::uint32_t sector) const;
    std::optional<StoredStream> Probe(std::uint32_t first);
    bool Follow(StoredStream& stream);
    void TellOfStream(std::int64_t segment, const StoredStream& stream);

    void SearchStreams();
    LooseStream Inspect(const StoredStream& stream) const;
    std::vector<bool> LinkedSectors() const;
    void JudgeSize();
    std::int64_t SizeOfMost() const;

    Needs ReadNeeds() const;
    void AddBlock(const char* bytes, Needs& needs) const;
    void AddExtent(std::int64_t offset, std::int64_t length, Needs& needs) const;
    void PlaceLoose();
    bool PlaceByMarks();
    std::int64_t SegmentOf(const LooseStream& loose, const Needs& needs) const;
    bool PlaceByOrder();
    std::vector<std::int64_t> OpenSegments(const Needs& needs) const;
    bool PlaceRun(const std::vector<std::int64_t>& run, const Needs& needs);
    void PutInto(std::int64_t segment, std::size_t loose, std::vector<std::int64_t>& placed);
    void JudgeEnd(const Needs& needs);
    void TellPlaced();
    void TellHurt(const Needs& needs);
    void Mended(std::int64_t offset, const std::string& what, const std::string& why)
    {
        m_Losses.Add({0, offset, what + " of the compressed file", why, false});
    }

    SectorBytes m_File;
    LossList& m_Losses;
    rfm_SectorHead m_Head;
    rfm_EncodedHeader m_Segments;
    bool m_HasNumbers = false;     // of the segments, that can stand together
    bool m_IsDoubtful = false;     // something of header or directory was damaged
    bool m_IsDirectoryCut = false; // it goes on, but where is not known
    std::int64_t m_CellsRead = 0;
    std::int64_t m_KnownCells = std::numeric_limits<std::int64_t>::max(); // behind them nothing is known
    std::vector<std::pair<std::int64_t, std::uint32_t>>
        m_Cells;                      // segment and sector, of those that lead somewhere
    std::set<std::int64_t> m_Missing; // segments that have a stream, nobody knows where
    std::vector<bool> m_HasCell;      // by sector: a cell leads to it, so it is not in the directory
    std::vector<bool> m_IsTaken;      // by sector: in a stream, or in the directory
    std::int64_t m_StepsLeft;         // sectors that are read in vain
    std::vector<LooseStream> m_Loose; // ascending
    bool m_IsSearched = false;
    std::vector<std::int64_t> m_ByMarks;
    std::vector<std::int64_t> m_ByOrder;
    SegmentMap m_Map;
};
} // namespace rfm_tool
