#include "FileWalk.h"

#include "ObjectWalk.h"
#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_HeaderFormat.h"

#include <fmt/format.h>

#include <algorithm>

namespace rfm_tool
{
namespace
{
constexpr bool kStoredAsIs = omi_Swapper(omi_Swapper::Stored);
constexpr const char* kRestore = "the library refuses the file; restore it from a copy";
constexpr const char* kObjectLost = "the object can't be read from here on; restore the file from a copy";
constexpr const char* kHarmless = "readers ignore it; nothing is lost";

std::string HandleText(std::uint32_t handle)
{
    return handle == 0 ? "the library's own blocks" : fmt::format("entry {}", handle);
}
} // namespace

WalkSums FileWalk::Run()
{
    CheckHeader();
    ReadLinkage();
    for (std::uint32_t handle = 0; handle < m_Entries.size(); ++handle)
        if (IsUsed(handle))
        {
            CheckExtent(handle);
            CheckLink(handle);
        }
    CheckOverlaps();
    WalkContents();
    CheckLoops();
    return m_Sums;
}

void FileWalk::Report(std::uint32_t handle, std::int64_t offset, const std::string& what,
                      const std::string& found, const std::string& expected, const char* remedy)
{
    m_Damages.Add({handle, offset, what, found, expected, remedy});
}

// ---- The header ----

void FileWalk::CheckHeader()
{
    char header[rfm_HeaderBytes];
    const int read = m_Image.Read(0, header, rfm_HeaderBytes);
    if (read < rfm_HeaderBytes)
        Report(0, read, "header", Counted(read, "byte", "bytes"), Counted(rfm_HeaderBytes, "byte", "bytes"),
               "the file was cut off; copy it again");
    const int version = omi_Load<int>(header + rfm_VersionOffset, kStoredAsIs);
    if (version < rfm_OldestVersion)
        Report(0, rfm_VersionOffset, "version", fmt::format("{}", version),
               fmt::format("{} or {}", rfm_OldestVersion, rfm_FormatVersion), kRestore);
    if (rfm_SizeStampAllows(header + rfm_SizeStampOffset, kStoredAsIs, m_Image.Size())) return;
    Report(0, rfm_SizeStampOffset, "size stamp",
           NumberText(omi_Load<double>(header + rfm_SizeStampOffset + 4, kStoredAsIs)),
           fmt::format("{}, the size of the file", m_Image.Size()),
           "the file was cut off, or altered by a transfer as text; copy it again, as binary");
}

// ---- The linkage table ----

std::int64_t FileWalk::PlaceOfEntry(std::uint32_t handle) const
{
    return m_Blocks[handle >> rfm_SlotBits] + std::int64_t{handle & rfm_SlotMask} * rfm_LinkageEntryBytes;
}

bool FileWalk::IsUsed(std::uint32_t handle) const
{
    return handle < m_Entries.size() && m_Entries[handle].isUsed;
}

void FileWalk::ReadLinkage()
{
    std::vector<char> bytes(rfm_LinkageBlockBytes);
    for (std::int64_t offset = rfm_FirstLinkageBlockOffset; offset != 0;)
    {
        const int read = m_Image.Read(offset, bytes.data(), rfm_LinkageBlockBytes);
        if (read < rfm_LinkageBlockBytes)
            Report(0, offset, "linkage block", Counted(read, "byte", "bytes"),
                   Counted(rfm_LinkageBlockBytes, "byte", "bytes"), "the file was cut off; copy it again");
        DecodeBlock(offset, bytes);
        const rfm_LinkageEntry& link = m_Entries[(m_Blocks.size() - 1) << rfm_SlotBits].stored;
        offset = CheckNextBlock(offset, link) ? link.offset : 0;
    }
    m_Sums.linkageBlocks = static_cast<std::int64_t>(m_Blocks.size());
}

// Whether the chain of blocks goes on, and can be followed.
bool FileWalk::CheckNextBlock(std::int64_t blockOffset, const rfm_LinkageEntry& link)
{
    const std::uint32_t nextBlock = static_cast<std::uint32_t>(m_Blocks.size());
    const std::uint32_t expected = link.offset == 0 ? 0 : nextBlock << rfm_SlotBits;
    if (link.allocation != 0 || link.length != 0)
        Report(0, blockOffset, "room of a linkage block's first entry",
               fmt::format("{} and {}", link.allocation, link.length), "0 and 0", kHarmless);
    if (link.next != expected)
        Report(0, blockOffset, "handle of the next linkage block", fmt::format("{}", link.next),
               fmt::format("{}", expected), kHarmless);
    if (link.offset == 0) return false;
    const bool isOutside =
        link.offset < rfm_FirstLinkageBlockOffset || link.offset > m_Image.Size() - rfm_LinkageBlockBytes;
    const auto near = m_BlockPlaces.upper_bound(link.offset - rfm_LinkageBlockBytes);
    const bool isThere = near != m_BlockPlaces.end() && *near < link.offset + rfm_LinkageBlockBytes;
    if (!isOutside && !isThere && nextBlock < rfm_MostLinkageBlocks) return true;
    Report(0, blockOffset, "place of the next linkage block", fmt::format("{}", link.offset),
           isThere ? "a place that no other linkage block has"
                   : fmt::format("0, or {} to {}", rfm_FirstLinkageBlockOffset,
                                 m_Image.Size() - rfm_LinkageBlockBytes),
           kRestore);
    return false;
}

void FileWalk::DecodeBlock(std::int64_t offset, const std::vector<char>& bytes)
{
    const std::uint32_t block = static_cast<std::uint32_t>(m_Blocks.size());
    m_Blocks.push_back(offset);
    m_BlockPlaces.insert(offset);
    m_Entries.resize(m_Entries.size() + rfm_LinkageBlockEntries);
    for (std::uint32_t slot = 0; slot < rfm_LinkageBlockEntries; ++slot)
        DecodeEntry(block << rfm_SlotBits | slot, bytes.data() + slot * rfm_LinkageEntryBytes);
    FindUsed(block);
}

void FileWalk::DecodeEntry(std::uint32_t handle, const char* bytes)
{
    Entry& entry = m_Entries[handle];
    if (rfm_DecodeLinkageEntry(bytes, kStoredAsIs, entry.stored)) return;
    entry.isBroken = true;
    Report(handle, PlaceOfEntry(handle), "numbers of a linkage entry",
           fmt::format("{}, {} and {}", NumberText(omi_Load<double>(bytes, kStoredAsIs)),
                       NumberText(omi_Load<double>(bytes + 8, kStoredAsIs)),
                       NumberText(omi_Load<double>(bytes + 16, kStoredAsIs))),
           "numbers from 0 to 2^53", kRestore);
}

// Slots are used from 1 upward; from the first free one on all are free.
void FileWalk::FindUsed(std::uint32_t block)
{
    bool isFree = false;
    for (std::uint32_t slot = 1; slot < rfm_LinkageBlockEntries; ++slot)
    {
        const std::uint32_t handle = block << rfm_SlotBits | slot;
        Entry& entry = m_Entries[handle];
        const bool hasContent = entry.stored.offset != 0 || entry.isBroken;
        if (isFree && entry.stored.offset != 0)
            Report(handle, PlaceOfEntry(handle), "place of an extent", fmt::format("{}", entry.stored.offset),
                   "0, as of every entry behind the first free one",
                   "readers don't see it; restore the file from a copy");
        isFree = isFree || !hasContent;
        entry.isUsed = !isFree;
    }
}

// ---- Extents ----

void FileWalk::CheckExtent(std::uint32_t handle)
{
    Entry& entry = m_Entries[handle];
    const rfm_LinkageEntry& stored = entry.stored;
    if (entry.isBroken) return;
    const auto refuse = [&](const std::string& what, const std::string& found, const std::string& expected)
    {
        Report(handle, PlaceOfEntry(handle), what, found, expected, kObjectLost);
        entry.isBroken = true;
    };
    if (!stored.HasExtent())
    {
        if (stored.offset != rfm_NoExtentOffset)
            refuse("place of an extent", fmt::format("{}", stored.offset),
                   fmt::format("1, or at least {}", rfm_FirstLinkageBlockOffset));
        else if (stored.allocation != 0 || stored.length != 0)
            refuse("room of an entry without an extent",
                   fmt::format("{} and {}", stored.allocation, stored.length), "0 and 0");
        return;
    }
    ++m_Sums.extents;
    if (stored.length > stored.allocation)
        refuse("length of an extent", fmt::format("{}", stored.length),
               fmt::format("at most the {} that it reserves", stored.allocation));
    // Both are at most 2^53, so the sum is safe.
    if (stored.offset + stored.allocation > m_Image.Size())
        refuse("end of an extent", fmt::format("{}", stored.offset + stored.allocation),
               fmt::format("at most {}, the size of the file", m_Image.Size()));
    if (const std::int64_t segment = m_Image.UnreadableSegment(stored.offset, stored.length); segment >= 0)
        refuse("content of an extent", fmt::format("segment {}, which can't be read", segment),
               "bytes that can be read");
}

// A link that leads nowhere, or where another leads already, is cut, so that every chain ends.
void FileWalk::CheckLink(std::uint32_t handle)
{
    rfm_LinkageEntry& stored = m_Entries[handle].stored;
    if (stored.next == 0) return;
    if (!IsUsed(stored.next))
        Report(handle, PlaceOfEntry(handle), "entry that goes on with the object",
               fmt::format("{}", stored.next), "0, or an entry in use", kObjectLost);
    else if (m_Entries[stored.next].isTail || stored.next == handle)
        Report(handle, PlaceOfEntry(handle), "entry that goes on with the object",
               fmt::format("{}", stored.next),
               "an entry to which no other leads: this is a loop, or two objects share it", kObjectLost);
    else
    {
        m_Entries[stored.next].isTail = true;
        return;
    }
    stored.next = 0;
    m_Entries[handle].isBroken = true;
}

void FileWalk::ReportLoop(std::uint32_t handle)
{
    Report(handle, PlaceOfEntry(handle), "chain of entries", "a loop without a beginning",
           "a chain with an end", kObjectLost);
}

// What a chain of links comes back to without a beginning, no handle leads to.
void FileWalk::CheckLoops()
{
    for (std::uint32_t handle = 0; handle < m_Entries.size(); ++handle)
    {
        if (!IsUsed(handle) || m_Entries[handle].isVisited) continue;
        ReportLoop(handle);
        for (std::uint32_t step = handle; !m_Entries[step].isVisited; step = m_Entries[step].stored.next)
            m_Entries[step].isVisited = true;
    }
}

// Everything that has a place in the file, in the order of the places. Of those so far, only the one that reaches
// farthest can lie under the next.
void FileWalk::CheckOverlaps()
{
    std::vector<Piece> pieces{{0, rfm_HeaderBytes, 0}};
    for (const std::int64_t block : m_Blocks) pieces.push_back({block, block + rfm_LinkageBlockBytes, 0});
    for (std::uint32_t handle = 0; handle < m_Entries.size(); ++handle)
    {
        const rfm_LinkageEntry& stored = m_Entries[handle].stored;
        if (IsUsed(handle) && stored.HasExtent() && stored.allocation > 0)
            pieces.push_back({stored.offset, stored.offset + stored.allocation, handle});
    }
    const auto byPlace = [](const Piece& left, const Piece& right)
    { return left.start != right.start ? left.start < right.start : left.handle < right.handle; };
    std::sort(pieces.begin(), pieces.end(), byPlace);
    const Piece* farthest = &pieces.front();
    for (std::size_t i = 1; i < pieces.size(); ++i)
    {
        if (pieces[i].start < farthest->end) ReportOverlap(*farthest, pieces[i]);
        if (pieces[i].end > farthest->end) farthest = &pieces[i];
    }
}

void FileWalk::ReportOverlap(const Piece& earlier, const Piece& later)
{
    const std::uint32_t handle = later.handle != 0 ? later.handle : earlier.handle;
    const Piece& other = later.handle != 0 ? earlier : later;
    const Piece& own = later.handle != 0 ? later : earlier;
    if (handle == 0) return; // blocks over each other were told of when they were read
    Report(handle, PlaceOfEntry(handle), "extent", fmt::format("{} to {}", own.start, own.end),
           fmt::format("no byte of {} to {}, which belongs to {}", other.start, other.end,
                       HandleText(other.handle)),
           "neither is sure to be right, so neither is looked into; restore the file from a copy");
    for (const std::uint32_t each : {earlier.handle, later.handle})
        if (each != 0) m_Entries[each].isBroken = true;
}

// ---- Contents ----

// The extents of a chain up to the first that can't be trusted. CheckLink has left one link to each entry, so a chain
// that does not end comes back to its head; only a pool is looked into although a link leads to it.
FileWalk::Space FileWalk::CollectSpace(std::uint32_t head)
{
    Space space;
    for (std::uint32_t handle = head; handle != 0; handle = m_Entries[handle].stored.next)
    {
        Entry& entry = m_Entries[handle];
        entry.isVisited = true;
        space.isWhole = space.isWhole && !entry.isBroken;
        if (space.isWhole && entry.stored.HasExtent())
            space.extents.push_back({entry.stored.offset, entry.stored.length});
        if (entry.stored.next != head) continue;
        ReportLoop(head);
        space.isWhole = false;
        break;
    }
    return space;
}

void FileWalk::WalkContents()
{
    Pools pools;
    Space stringSpace = IsUsed(rfm_StringPoolHandle) ? CollectSpace(rfm_StringPoolHandle) : Space{};
    Space layoutSpace = IsUsed(rfm_MetadataPoolHandle) ? CollectSpace(rfm_MetadataPoolHandle) : Space{};
    SpaceBytes texts(m_Image, stringSpace.extents);
    SpaceBytes layouts(m_Image, layoutSpace.extents);
    if (stringSpace.isWhole || texts.Length() > 0) pools.strings.Walk(texts, stringSpace.isWhole, m_Damages);
    if (layoutSpace.isWhole || layouts.Length() > 0)
        pools.layouts.Walk(layouts, layoutSpace.isWhole, pools.strings, texts, m_Damages);
    m_Sums.texts = pools.strings.Count();
    m_Sums.layouts = static_cast<std::int64_t>(pools.layouts.Count());
    for (std::uint32_t handle = 1; handle < m_Entries.size(); ++handle)
    {
        if (!IsUsed(handle) || m_Entries[handle].isTail) continue;
        Space space = CollectSpace(handle);
        if (handle <= rfm_MetadataPoolHandle) continue;
        ++m_Sums.objects;
        ObjectBytes object{handle, space.isWhole, SpaceBytes(m_Image, std::move(space.extents))};
        WalkObject(object, pools, m_Damages);
    }
}
} // namespace rfm_tool
