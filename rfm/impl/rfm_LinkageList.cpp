#include "rfm_LinkageList.h"

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

bool rfm_LinkagePlaces::Take(std::int64_t offset)
{
    const auto behind = m_Offsets.upper_bound(offset - rfm_LinkageBlockBytes);
    if (behind != m_Offsets.end() && *behind - offset < rfm_LinkageBlockBytes) return false;
    m_Offsets.insert(offset);
    return true;
}
