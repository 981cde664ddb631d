#include "rfm_LinkageList.h"

#include <cstring>

// Most slots of most files are free, and bytes that are all zero need no decoding.
static bool IsFree(const char* bytes)
{
    static constexpr char kFree[rfm_LinkageEntryBytes] = {};
    return std::memcmp(bytes, kFree, sizeof kFree) == 0;
}

bool rfm_DecodeLinkageBlock(const char* bytes, bool swapped, rfm_LinkageBlock& block)
{
    bool sound = true;
    for (rfm_LinkageEntry& entry : block.entries)
    {
        if (IsFree(bytes))
            entry = {};
        else
            sound &= rfm_DecodeLinkageEntry(bytes, swapped, entry);
        bytes += rfm_LinkageEntryBytes;
    }
    block.used = 1;
    while (block.used < rfm_LinkageBlockEntries && block.entries[block.used].offset != 0) ++block.used;
    block.SetUnchanged();
    return sound;
}

void rfm_EncodeLinkageSlots(const rfm_LinkageBlock& block, std::uint32_t first, std::uint32_t last,
                            bool swapped, char* bytes)
{
    for (std::uint32_t slot = first; slot <= last; ++slot)
        rfm_EncodeLinkageEntry(block.entries[slot], swapped, bytes + slot * rfm_LinkageEntryBytes);
}

bool rfm_LinkagePlaces::Take(std::int64_t offset)
{
    const auto behind = m_Offsets.upper_bound(offset - rfm_LinkageBlockBytes);
    if (behind != m_Offsets.end() && *behind - offset < rfm_LinkageBlockBytes) return false;
    m_Offsets.insert(offset);
    return true;
}
