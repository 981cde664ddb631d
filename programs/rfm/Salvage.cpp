#include "Salvage.h"

#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_HeaderFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace rfm_tool
{
namespace
{
constexpr bool kStoredAsIs = omi_Swapper(omi_Swapper::Stored);
constexpr std::int64_t kSearchedBytes = 1048576;
constexpr std::int64_t kSearchedTimesTheFile = 16;
constexpr int kCertain = 10; // more than speaks for any extent
} // namespace

bool IsMarkOfObject(std::uint32_t word)
{
    return word == rfm_TableMagic || word == rfm_ArrayMagic || word == rfm_TaggedStreamMagic ||
           word == rfm_StringPoolMagic || word == rfm_MetadataPoolMagic;
}

std::string Loss::Line() const
{
    const std::string where = handle == 0 ? "file" : fmt::format("handle {}", handle);
    return fmt::format("{}: {}, offset {}: {}: {}", isLost ? "lost" : "mended", where, offset, what, why);
}

std::string Loss::Json() const
{
    return fmt::format("{{\"lost\":{},\"handle\":{},\"offset\":{},\"what\":{},\"why\":{}}}", isLost, handle,
                       offset, TextJson(what), TextJson(why));
}

void LossList::Add(Loss loss)
{
    ++(loss.isLost ? m_Lost : m_Mended);
    if (m_Kept.size() < kMostKept) m_Kept.push_back(std::move(loss));
}

std::vector<SalvagedSpace> Salvage::Run()
{
    m_SearchLeft = kSearchedTimesTheFile * (m_Image.Size() + kSearchedBytes);
    ReadBlocks();
    JudgeExtents();
    JudgeLinks();
    std::vector<SalvagedSpace> spaces;
    for (std::uint32_t handle = 1; handle < m_Entries.size(); ++handle)
    {
        if (handle == rfm_UnusedHandle || !m_Entries[handle].isUsed) continue;
        // Of entries to which two lead, no object is sure to have them: they stay as pieces by themselves.
        const bool isHead = handle <= rfm_MetadataPoolHandle || m_Entries[handle].linksToIt != 1;
        if (isHead) spaces.push_back(Collect(handle));
    }
    return spaces;
}

// ---- The linkage table ----

std::int64_t Salvage::PlaceOfEntry(std::uint32_t handle) const
{
    return m_Blocks[handle >> rfm_SlotBits] + std::int64_t{handle & rfm_SlotMask} * rfm_LinkageEntryBytes;
}

void Salvage::ReadBlocks()
{
    for (std::int64_t block = rfm_FirstLinkageBlockOffset; block != 0;)
    {
        DecodeBlock(block);
        block = NextBlock(block, m_Entries[(m_Blocks.size() - 1) << rfm_SlotBits].stored);
    }
}

bool Salvage::IsPlaceForABlock(std::int64_t offset) const
{
    const auto near = m_BlockPlaces.upper_bound(offset - rfm_LinkageBlockBytes);
    const bool isTaken = near != m_BlockPlaces.end() && *near < offset + rfm_LinkageBlockBytes;
    return offset >= rfm_FirstLinkageBlockOffset && offset < m_Image.Size() && !isTaken;
}

// 0 behind the last.
std::int64_t Salvage::NextBlock(std::int64_t block, const rfm_LinkageEntry& link)
{
    const std::uint32_t number = static_cast<std::uint32_t>(m_Blocks.size());
    if (number >= rfm_MostLinkageBlocks || (link.offset == 0 && link.next == 0 && link.length == 0)) return 0;
    if (link.offset != 0 && IsBlock(link.offset, link, number)) return link.offset;
    const std::int64_t found = SearchBlock(number);
    if (found != 0)
        m_Losses.Add({0, block, "place of the next linkage block",
                      fmt::format("found {}; the block was found at {}", link.offset, found), false});
    else if (link.offset != 0 || link.next != 0)
        m_Losses.Add({0, block, fmt::format("objects with handles from {} on", (number << rfm_SlotBits) + 1),
                      fmt::format("the linkage block of their places would be at {}", link.offset)});
    return found;
}

// When its number says that there is one, a block may have many damaged entries; when it does not, it must look like
// one.
bool Salvage::IsBlock(std::int64_t offset, const rfm_LinkageEntry& link, std::uint32_t number)
{
    if (!IsPlaceForABlock(offset)) return false;
    std::vector<char> bytes(rfm_LinkageBlockBytes);
    m_Image.Read(offset, bytes.data(), rfm_LinkageBlockBytes);
    if (LooksLikeBlock(bytes.data(), number)) return true;
    if (link.next != number << rfm_SlotBits) return false;
    int sound = 0;
    for (int slot = 0; slot < rfm_LinkageBlockEntries; ++slot)
    {
        rfm_LinkageEntry entry;
        if (rfm_DecodeLinkageEntry(bytes.data() + slot * rfm_LinkageEntryBytes, kStoredAsIs, entry)) ++sound;
    }
    return sound > rfm_LinkageBlockEntries / 2;
}

// The place of a block that nothing leads to any more, 0 when there is none. Blocks and extents lie at multiples of 4.
std::int64_t Salvage::SearchBlock(std::uint32_t number)
{
    std::vector<char> bytes(static_cast<std::size_t>(kSearchedBytes + rfm_LinkageBlockBytes));
    const std::int64_t last = m_Image.Size() - rfm_LinkageBlockBytes;
    for (std::int64_t start = rfm_FirstLinkageBlockOffset + rfm_LinkageBlockBytes; start <= last;
         start += kSearchedBytes)
    {
        m_SearchLeft -= kSearchedBytes;
        if (m_SearchLeft < 0) return 0;
        m_Image.Read(start, bytes.data(), static_cast<int>(bytes.size()));
        for (std::int64_t step = 0; step < kSearchedBytes && start + step <= last; step += 4)
        {
            if (omi_Load<std::uint32_t>(bytes.data() + step, kStoredAsIs) != 0)
                continue; // an allocation of 0 is zeros
            if (LooksLikeBlock(bytes.data() + step, number) && IsPlaceForABlock(start + step))
                return start + step;
        }
    }
    return 0;
}

// Its first entry chains it to the next block, and entries follow that lie in the file.
bool Salvage::LooksLikeBlock(const char* bytes, std::uint32_t number) const
{
    rfm_LinkageEntry link;
    if (!rfm_DecodeLinkageEntry(bytes, kStoredAsIs, link) || link.allocation != 0 || link.length != 0)
        return false;
    const std::uint32_t next = link.offset == 0 ? 0 : (number + 1) << rfm_SlotBits;
    if (link.next != next || link.offset > m_Image.Size()) return false;
    rfm_LinkageEntry first;
    rfm_LinkageEntry second;
    if (!rfm_DecodeLinkageEntry(bytes + rfm_LinkageEntryBytes, kStoredAsIs, first) ||
        !rfm_DecodeLinkageEntry(bytes + 2 * rfm_LinkageEntryBytes, kStoredAsIs, second))
        return false;
    return first.HasExtent() && first.allocation > 0 && first.length <= first.allocation &&
           first.offset + first.allocation <= m_Image.Size() && second.length <= second.allocation;
}

void Salvage::DecodeBlock(std::int64_t offset)
{
    std::vector<char> bytes(rfm_LinkageBlockBytes);
    m_Image.Read(offset, bytes.data(), rfm_LinkageBlockBytes);
    const std::uint32_t block = static_cast<std::uint32_t>(m_Blocks.size());
    if (m_Image.UnreadableSegment(offset, rfm_LinkageBlockBytes) >= 0)
        m_Losses.Add(
            {0, offset, "objects whose places stand in a linkage block", "not all of the block can be read"});
    m_Blocks.push_back(offset);
    m_BlockPlaces.insert(offset);
    m_Entries.resize(m_Entries.size() + rfm_LinkageBlockEntries);
    for (std::uint32_t slot = 0; slot < rfm_LinkageBlockEntries; ++slot)
        DecodeEntry(block << rfm_SlotBits | slot, bytes.data() + slot * rfm_LinkageEntryBytes);
}

// Readers take what is behind a free entry for free too. But none is ever given up, so an entry that looks free among
// others is one that was damaged.
void Salvage::DecodeEntry(std::uint32_t handle, const char* bytes)
{
    Entry& entry = m_Entries[handle];
    const bool isSound = rfm_DecodeLinkageEntry(bytes, kStoredAsIs, entry.stored);
    entry.stored.next = omi_Load<std::uint32_t>(bytes + rfm_LinkageEntryBytes - 4, kStoredAsIs);
    if ((handle & rfm_SlotMask) == 0) return;
    const rfm_LinkageEntry& stored = entry.stored;
    entry.isUsed =
        !isSound || stored.offset != 0 || stored.allocation != 0 || stored.length != 0 || stored.next != 0;
    const bool isNowhere = stored.offset != rfm_NoExtentOffset && !stored.HasExtent();
    if (!isSound)
        Break(handle, "the numbers of its place are none");
    else if (entry.isUsed && isNowhere)
        Break(handle, fmt::format("its place would be {}", stored.offset));
    else if (entry.isUsed && !stored.HasExtent() && stored.length > 0)
        Break(handle, "it has a length and no place");
}

void Salvage::Break(std::uint32_t handle, const std::string& why)
{
    m_Entries[handle].isBroken = true;
    if (handle > rfm_MetadataPoolHandle) // pools are searched for, the one between them holds nothing
        m_Losses.Add({handle, PlaceOfEntry(handle), "what was at an entry of the linkage table", why});
}

// ---- Extents ----

void Salvage::JudgeExtents()
{
    MendPool(rfm_StringPoolHandle, rfm_StringPoolMagic);
    MendPool(rfm_MetadataPoolHandle, rfm_MetadataPoolMagic);
    ClipLengths();
    FindMarks();
    SettleOverlaps();
}

std::uint32_t Salvage::WordAt(std::int64_t offset)
{
    char bytes[4];
    m_Image.Read(offset, bytes, sizeof bytes);
    return omi_Load<std::uint32_t>(bytes, kStoredAsIs);
}

// Where the mark stands at a multiple of 4, 0 for nowhere.
std::int64_t Salvage::SearchMark(std::uint32_t mark)
{
    std::vector<char> bytes(static_cast<std::size_t>(kSearchedBytes));
    for (std::int64_t start = 0; start < m_Image.Size(); start += kSearchedBytes)
    {
        m_Image.Read(start, bytes.data(), static_cast<int>(bytes.size()));
        for (std::int64_t step = 0; step < kSearchedBytes; step += 4)
            if (omi_Load<std::uint32_t>(bytes.data() + step, kStoredAsIs) == mark) return start + step;
    }
    return 0;
}

// Of the extents and blocks behind `offset`.
std::int64_t Salvage::NextStart(std::int64_t offset) const
{
    std::int64_t next = m_Image.Size();
    for (const Entry& entry : m_Entries)
        if (entry.isUsed && !entry.isBroken && entry.stored.offset > offset)
            next = std::min(next, entry.stored.offset);
    for (const std::int64_t block : m_Blocks)
        if (block > offset) next = std::min(next, block);
    return next;
}

// Everything else hangs on the pools, so they are searched for when their entry leads elsewhere. A pool whose mark is
// damaged is nowhere else.
void Salvage::MendPool(std::uint32_t handle, std::uint32_t mark)
{
    Entry& entry = m_Entries[handle];
    rfm_LinkageEntry& stored = entry.stored;
    if (entry.isUsed && !entry.isBroken && stored.HasExtent() && WordAt(stored.offset) == mark) return;
    const std::int64_t found = SearchMark(mark);
    if (found < rfm_FirstLinkageBlockOffset)
    {
        if (!entry.isUsed || entry.isBroken || !stored.HasExtent())
            m_Losses.Add({handle, PlaceOfEntry(handle), "the pool", "its place is lost"});
        return;
    }
    const std::int64_t room = NextStart(found) - found;
    stored.offset = found;
    if (stored.length < 4 || stored.length > room) stored.length = room;
    stored.allocation = stored.length;
    entry.isUsed = true;
    entry.isBroken = false;
    m_Losses.Add(
        {handle, PlaceOfEntry(handle), "place of a pool", fmt::format("it was found at {}", found), false});
}

// What is in use is at most what is reserved. When it is not, one of the two is wrong: the length is right when there
// is room for it up to the next extent.
void Salvage::ClipLengths()
{
    std::vector<std::int64_t> starts(m_Blocks.begin(), m_Blocks.end());
    starts.push_back(m_Image.Size());
    for (const Entry& entry : m_Entries)
        if (entry.isUsed && !entry.isBroken && entry.stored.HasExtent())
            starts.push_back(entry.stored.offset);
    std::sort(starts.begin(), starts.end());
    for (std::uint32_t handle = 1; handle < m_Entries.size(); ++handle)
    {
        Entry& entry = m_Entries[handle];
        rfm_LinkageEntry& stored = entry.stored;
        if (!entry.isUsed || entry.isBroken || stored.length <= stored.allocation) continue;
        const auto next = std::upper_bound(starts.begin(), starts.end(), stored.offset);
        const bool hasRoom = next != starts.end() && stored.length <= *next - stored.offset;
        const std::int64_t used = hasRoom ? stored.length : stored.allocation;
        m_Losses.Add({handle, PlaceOfEntry(handle), "bytes of an extent",
                      fmt::format("{} in use of {} reserved; {} of them are taken", stored.length,
                                  stored.allocation, used),
                      !hasRoom});
        stored.length = used;
    }
}

std::vector<Salvage::Piece> Salvage::CollectPieces() const
{
    std::vector<Piece> pieces{{0, rfm_HeaderBytes, 0, kCertain, kCertain}};
    for (const std::int64_t block : m_Blocks)
        pieces.push_back({block, block + rfm_LinkageBlockBytes, 0, kCertain, kCertain});
    std::multiset<std::int64_t> starts{m_Image.Size()};
    std::multiset<std::int64_t> ends;
    for (const Piece& piece : pieces)
    {
        starts.insert(piece.start);
        ends.insert(piece.end);
    }
    const auto hasPlace = [](const Entry& entry)
    { return entry.isUsed && !entry.isBroken && entry.stored.HasExtent(); };
    for (const Entry& entry : m_Entries)
    {
        if (!hasPlace(entry)) continue;
        starts.insert(entry.stored.offset);
        ends.insert(entry.stored.offset + entry.stored.allocation);
    }
    for (std::uint32_t handle = 1; handle < m_Entries.size(); ++handle)
    {
        const Entry& entry = m_Entries[handle];
        const std::int64_t start = entry.stored.offset;
        const std::int64_t end = start + entry.stored.allocation;
        if (!hasPlace(entry) || entry.stored.length == 0) continue;
        const int atStart =
            (ends.contains(start) ? 2 : 0) + (entry.hasMark ? 2 : 0) + (start % 4 == 0 ? 1 : 0);
        const int atEnd = (starts.contains(end) ? 2 : 0) + (end % 4 == 0 ? 1 : 0);
        pieces.push_back({start, start + entry.stored.length, handle, atStart, atEnd});
    }
    std::sort(pieces.begin(), pieces.end(),
              [](const Piece& left, const Piece& right) { return left.start < right.start; });
    return pieces;
}

// Whether the later one begins too early (above 0), or the earlier one ends too late (below 0), or nobody can tell.
int Salvage::Compare(const Piece& earlier, const Piece& later)
{
    const int all = earlier.Weight() - later.Weight();
    if (earlier.start == later.start) return all;
    const int here = earlier.atEnd - later.atStart;
    return here != 0 ? here : all;
}

// Of two that claim the same bytes in use one is right at most.
void Salvage::SettleOverlaps()
{
    std::vector<Piece> kept;
    std::vector<Refusal> refused;
    const auto refuse = [&](const Piece& piece, const Piece& other)
    {
        if (piece.handle != 0) refused.push_back({piece, other});
    };
    for (const Piece& piece : CollectPieces())
    {
        bool isKept = true;
        while (isKept && !kept.empty() && piece.start < kept.back().end)
        {
            const Piece other = kept.back();
            const int order = Compare(other, piece);
            isKept = order < 0;
            if (order >= 0) refuse(piece, other);
            if (order > 0) continue;
            refuse(other, piece);
            kept.pop_back();
        }
        if (isKept) kept.push_back(piece);
    }
    for (const Refusal& refusal : LeftRefused(std::move(refused), kept))
        Break(refusal.piece.handle,
              refusal.other.handle == 0
                  ? "it would lie over the library's own blocks"
                  : fmt::format("it would lie over bytes of entry {}", refusal.other.handle));
}

// One that had to go for another which then had to go itself, for a third, is right after all when its bytes are free.
// What speaks most for itself comes first.
std::vector<Salvage::Refusal> Salvage::LeftRefused(std::vector<Refusal> refused,
                                                   const std::vector<Piece>& kept)
{
    std::map<std::int64_t, std::int64_t> taken; // start and end
    for (const Piece& piece : kept) taken.emplace(piece.start, piece.end);
    std::map<std::uint32_t, std::uint32_t> refusers; // by handle
    for (const Refusal& refusal : refused) refusers.emplace(refusal.piece.handle, refusal.other.handle);
    const auto isForAThird = [&](const Refusal& refusal)
    {
        const auto other = refusers.find(refusal.other.handle);
        return other != refusers.end() && other->second != refusal.piece.handle;
    };
    const auto isFree = [&](const Piece& piece)
    {
        const auto behind = taken.lower_bound(piece.end);
        return behind == taken.begin() || std::prev(behind)->second <= piece.start;
    };
    std::stable_sort(refused.begin(), refused.end(),
                     [](const Refusal& left, const Refusal& right)
                     { return left.piece.Weight() > right.piece.Weight(); });
    std::erase_if(refused,
                  [&](const Refusal& refusal)
                  {
                      if (!isForAThird(refusal) || !isFree(refusal.piece)) return false;
                      taken.emplace(refusal.piece.start, refusal.piece.end);
                      return true;
                  });
    std::sort(refused.begin(), refused.end(),
              [](const Refusal& left, const Refusal& right)
              { return left.piece.handle < right.piece.handle; });
    return refused;
}

void Salvage::FindMarks()
{
    for (Entry& entry : m_Entries)
    {
        if (!entry.isUsed || entry.isBroken || !entry.stored.HasExtent() || entry.stored.length < 4) continue;
        char bytes[4];
        m_Image.Read(entry.stored.offset, bytes, sizeof bytes);
        entry.hasMark = IsMarkOfObject(omi_Load<std::uint32_t>(bytes, kStoredAsIs));
    }
}

// ---- Chains ----

void Salvage::JudgeLinks()
{
    const auto leadsOn = [&](std::uint32_t handle)
    {
        const std::uint32_t next = m_Entries[handle].stored.next;
        return next > handle && next > rfm_MetadataPoolHandle && next < m_Entries.size() &&
               m_Entries[next].isUsed && !m_Entries[next].hasMark;
    };
    const auto cut = [&](std::uint32_t handle, const std::string& why)
    {
        Entry& entry = m_Entries[handle];
        if (handle > rfm_MetadataPoolHandle) // what follows in a pool is searched for
            m_Losses.Add({handle, PlaceOfEntry(handle), "what followed an entry of the linkage table",
                          fmt::format("it would be entry {}, {}", entry.stored.next, why)});
        entry.isCut = true;
        entry.stored.next = 0;
    };
    for (std::uint32_t handle = 1; handle < m_Entries.size(); ++handle)
    {
        if (!m_Entries[handle].isUsed || m_Entries[handle].stored.next == 0) continue;
        if (leadsOn(handle))
            ++m_Entries[m_Entries[handle].stored.next].linksToIt;
        else
            cut(handle, "which can't go on with it");
    }
    for (std::uint32_t handle = 1; handle < m_Entries.size(); ++handle)
    {
        const std::uint32_t next = m_Entries[handle].stored.next;
        if (m_Entries[handle].isUsed && next != 0 && m_Entries[next].linksToIt > 1)
            cut(handle, "to which another leads too");
    }
}

// Links lead to later entries only, so a chain ends. Behind an extent whose place is not known nothing can be put in
// its right place, and of holes no more is taken than the file is large.
SalvagedSpace Salvage::Collect(std::uint32_t head)
{
    SalvagedSpace space{head, {}, PlaceOfEntry(head), false, !m_Entries[head].hasMark};
    for (std::uint32_t handle = head; handle != 0; handle = m_Entries[handle].stored.next)
    {
        const Entry& entry = m_Entries[handle];
        const rfm_LinkageEntry& stored = entry.stored;
        const std::int64_t there =
            stored.HasExtent() ? m_Image.TrimmedCount(stored.offset, stored.length) : 0;
        const std::int64_t hole = stored.HasExtent() ? stored.length - there : 0;
        const bool isEnd = entry.isBroken || (hole > m_HolesLeft && stored.next != 0);
        space.isCut = space.isCut || isEnd || entry.isCut;
        if (isEnd) break;
        if (stored.next != 0) m_HolesLeft -= hole;
        if (stored.HasExtent()) space.extents.push_back({stored.offset, stored.length});
    }
    while (!space.extents.empty())
    {
        Extent& last = space.extents.back();
        const std::int64_t there = m_Image.TrimmedCount(last.offset, last.length);
        space.isCut = space.isCut || there < last.length;
        last.length = there;
        if (there > 0) break;
        space.extents.pop_back();
    }
    return space;
}
} // namespace rfm_tool
