#pragma once

#include "DamageList.h"
#include "SpaceBytes.h"
#include "rfm_LinkageFormat.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace rfm_tool
{
/// What a walk has been through.
struct WalkSums
{
    std::int64_t objects = 0;
    std::int64_t extents = 0;
    std::int64_t linkageBlocks = 0;
    std::int64_t texts = 0;
    std::int64_t layouts = 0;
};

/// Walks every structure of a database from its bytes: header, linkage table, chains, pools, objects. It believes nothing
/// that it reads, never writes, and goes on past damage.
///
/// Bounds: the linkage table is kept in memory, and of the pools which records there are: together a little more than the
/// file's own size at worst. No byte of the file is content of two spaces, since extents that lie over each other are
/// not walked, so the time is bounded by the file's size too.
class FileWalk
{
public:
    FileWalk(FileImage& image, DamageList& damages) : m_Image(image), m_Damages(damages) {}
    WalkSums Run();

private:
    struct Entry
    {
        rfm_LinkageEntry stored;
        bool isUsed = false;
        bool isBroken = false;  // its extent can't be read, or not be trusted
        bool isTail = false;    // another entry goes on with it
        bool isVisited = false; // a chain from a head came by
    };
    struct Piece
    {
        std::int64_t start;
        std::int64_t end;
        std::uint32_t handle;
    };
    struct Space
    {
        std::vector<Extent> extents;
        bool isWhole = true;
    };

    void CheckHeader();
    void ReadLinkage();
    bool CheckNextBlock(std::int64_t blockOffset, const rfm_LinkageEntry& link);
    void DecodeBlock(std::int64_t offset, const std::vector<char>& bytes);
    void DecodeEntry(std::uint32_t handle, const char* bytes);
    void FindUsed(std::uint32_t block);
    void CheckExtent(std::uint32_t handle);
    void CheckLink(std::uint32_t handle);
    void CheckOverlaps();
    void ReportOverlap(const Piece& earlier, const Piece& later);
    void CheckLoops();
    void ReportLoop(std::uint32_t handle);
    Space CollectSpace(std::uint32_t head);
    void WalkContents();

    bool IsUsed(std::uint32_t handle) const;
    std::int64_t PlaceOfEntry(std::uint32_t handle) const;
    void Report(std::uint32_t handle, std::int64_t offset, const std::string& what, const std::string& found,
                const std::string& expected, const char* remedy);

    FileImage& m_Image;
    DamageList& m_Damages;
    std::vector<std::int64_t> m_Blocks;   // offsets, in the order of the chain
    std::set<std::int64_t> m_BlockPlaces; // the same in the order of the file
    std::vector<Entry> m_Entries;         // by handle
    WalkSums m_Sums;
};
} // namespace rfm_tool
