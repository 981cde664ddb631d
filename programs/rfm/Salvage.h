#pragma once

#include "SpaceBytes.h"
#include "rfm_LinkageFormat.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

// What is where in a database that may be damaged, as far as it can be found out. Where `check` gives up and tells,
// this goes on and weighs what speaks for what:
//
//   an extent that claims bytes of another    in a sound file extents lie side by side: it is right to begin where
//                                             another ends, or with the mark of an object, and to end where another
//                                             begins
//   a link between entries                    leads to a later entry, never to the head of an object, and no two lead
//                                             to one
//   a pool whose place is lost                the bytes that start with its mark
//   a block of the linkage table that is      bytes that read as one, whose number is that of the missing block
//   out of reach
//
// Nothing is believed that would take more bytes than the file has.

namespace rfm_tool
{
/// Whether an object, or a pool, begins with this word.
bool IsMarkOfObject(std::uint32_t word);

/// Something that was not as it should be, and what it cost.
struct Loss
{
    std::uint32_t handle = 0; // of the object; 0: the file itself
    std::int64_t offset = 0;  // in the database
    std::string what;         // "rows 3 to 9", "the object"
    std::string why;
    bool isLost = true; // false: nothing was lost, since it could be found in another way

    /// "lost: handle 4, offset 15396: row 0, name: WHY"; "mended: ...".
    std::string Line() const;
    std::string Json() const;
};

/// It keeps so many and counts the rest.
class LossList
{
public:
    static constexpr std::size_t kMostKept = 10000;

    void Add(Loss loss);
    const std::vector<Loss>& Kept() const noexcept { return m_Kept; }
    std::int64_t LostCount() const noexcept { return m_Lost; }
    std::int64_t MendedCount() const noexcept { return m_Mended; }

private:
    std::vector<Loss> m_Kept;
    std::int64_t m_Lost = 0;
    std::int64_t m_Mended = 0;
};

/// The bytes of one object, or of a pool, that could be found.
struct SalvagedSpace
{
    std::uint32_t handle = 0;
    std::vector<Extent> extents; // the last byte of the last one can be read, others perhaps not
    std::int64_t entryOffset = 0;
    bool isCut = false; // something was behind it that can't be found
    bool isLoose =
        false; // starts with no mark: bytes of the application's own, or a piece that lost its object
};

class Salvage
{
public:
    /// `image` fills its holes.
    Salvage(FileImage& image, LossList& losses) : m_Image(image), m_Losses(losses), m_HolesLeft(image.Size())
    {
    }
    /// All spaces by ascending handle, the pools 1 and 3 among them if there is anything of them.
    std::vector<SalvagedSpace> Run();

private:
    struct Entry
    {
        rfm_LinkageEntry stored;
        bool isUsed = false;
        bool isBroken = false; // where its extent lies is not known
        bool isCut = false;    // it went on, but where is not known
        bool hasMark = false;  // its extent starts as an object does
        int linksToIt = 0;
    };
    struct Piece
    {
        std::int64_t start;
        std::int64_t end;
        std::uint32_t handle; // 0: header and linkage blocks
        int atStart;          // what speaks for its start
        int atEnd;            // and for its end

        int Weight() const { return atStart + atEnd; }
    };
    struct Refusal
    {
        Piece piece;
        Piece other; // for which it had to go
    };

    void ReadBlocks();
    bool IsPlaceForABlock(std::int64_t offset) const;
    std::int64_t NextBlock(std::int64_t block, const rfm_LinkageEntry& link);
    std::int64_t SearchBlock(std::uint32_t number);
    bool LooksLikeBlock(const char* bytes, std::uint32_t number) const;
    bool IsBlock(std::int64_t offset, const rfm_LinkageEntry& link, std::uint32_t number);
    void DecodeBlock(std::int64_t offset);
    void MendPool(std::uint32_t handle, std::uint32_t mark);
    std::uint32_t WordAt(std::int64_t offset);
    std::int64_t SearchMark(std::uint32_t mark);
    std::int64_t NextStart(std::int64_t offset) const;
    void DecodeEntry(std::uint32_t handle, const char* bytes);
    std::int64_t PlaceOfEntry(std::uint32_t handle) const;
    void JudgeExtents();
    void ClipLengths();
    std::vector<Piece> CollectPieces() const;
    static int Compare(const Piece& earlier, const Piece& later);
    void SettleOverlaps();
    static std::vector<Refusal> LeftRefused(std::vector<Refusal> refused, const std::vector<Piece>& kept);
    void Break(std::uint32_t handle, const std::string& why);
    void FindMarks();
    void JudgeLinks();
    SalvagedSpace Collect(std::uint32_t head);

    FileImage& m_Image;
    LossList& m_Losses;
    std::vector<std::int64_t> m_Blocks;
    std::set<std::int64_t> m_BlockPlaces;
    std::vector<Entry> m_Entries;
    std::int64_t m_SearchLeft = 0; // bytes that are searched for blocks
    std::int64_t m_HolesLeft;      // bytes that are taken though they can't be read
};
} // namespace rfm_tool
