#include "rfm_LinkageList.h"

#include <algorithm>

bool rfm_DecodeLinkageBlock(const char* bytes, bool swapped, rfm_LinkageBlock& block)
{
    bool sound = true;
    for (int slot = 0; slot < rfm_LinkageBlockEntries; ++slot)
        sound &= rfm_DecodeLinkageEntry(bytes + slot * rfm_LinkageEntryBytes, swapped, block.entries[slot]);
    block.used = 1;
    while (block.used < rfm_LinkageBlockEntries && block.entries[block.used].offset != 0) ++block.used;
    block.dirty = false;
    return sound;
}

void rfm_EncodeLinkageBlock(const rfm_LinkageBlock& block, bool swapped, char* bytes)
{
    for (int slot = 0; slot < rfm_LinkageBlockEntries; ++slot)
        rfm_EncodeLinkageEntry(block.entries[slot], swapped, bytes + slot * rfm_LinkageEntryBytes);
}

bool rfm_LinkageBlocksOverlap(const rfm_LinkageList& list)
{
    std::vector<std::int64_t> offsets;
    offsets.reserve(list.Count());
    for (std::uint32_t i = 0; i < list.Count(); ++i) offsets.push_back(list.Block(i).fileOffset);
    std::sort(offsets.begin(), offsets.end());
    const auto tooClose = [](std::int64_t left, std::int64_t right)
    { return right - left < rfm_LinkageBlockBytes; };
    return std::adjacent_find(offsets.begin(), offsets.end(), tooClose) != offsets.end();
}
