#pragma once

#include "rfm_LinkageFormat.h"

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

/// One block of the linkage table in memory.
struct rfm_LinkageBlock
{
    std::int64_t fileOffset = 0;
    bool dirty = false;     // must be written by the next flush
    std::uint32_t used = 1; // slots in use, slot 0 among them: 1 to 512
    // The slots that differ from the file, first to last; the others need not be written again. A slot may be among
    // them without making the block dirty: it goes out with the next one that does.
    std::uint32_t firstChanged = rfm_LinkageBlockEntries;
    std::uint32_t lastChanged = 0;

    void Change(std::uint32_t slot) noexcept
    {
        firstChanged = std::min(firstChanged, slot);
        lastChanged = std::max(lastChanged, slot);
    }
    void SetUnchanged() noexcept
    {
        dirty = false;
        firstChanged = rfm_LinkageBlockEntries;
        lastChanged = 0;
    }
    rfm_LinkageEntry entries[rfm_LinkageBlockEntries];
};

/// The whole table, in the order of its chain. It stays in memory from open to close: a lookup is two array steps.
class rfm_LinkageList
{
public:
    std::uint32_t Count() const noexcept { return static_cast<std::uint32_t>(m_Blocks.size()); }
    rfm_LinkageBlock& Block(std::uint32_t index) noexcept { return *m_Blocks[index]; }
    const rfm_LinkageBlock& Block(std::uint32_t index) const noexcept { return *m_Blocks[index]; }
    rfm_LinkageBlock& Last() noexcept { return *m_Blocks.back(); }
    void Append(std::unique_ptr<rfm_LinkageBlock> block) { m_Blocks.push_back(std::move(block)); }

    /// The entry of a handle; null when no block, or no used slot, is there.
    rfm_LinkageEntry* Find(std::uint32_t handle) noexcept
    {
        const std::uint32_t index = handle >> rfm_SlotBits;
        const std::uint32_t slot = handle & rfm_SlotMask;
        if (index >= m_Blocks.size() || slot >= m_Blocks[index]->used) return nullptr;
        return &m_Blocks[index]->entries[slot];
    }
    /// Whether the handle names an object. What counts is the entry alone, not how many slots are in use.
    bool IsValid(std::uint32_t handle) const noexcept
    {
        const std::uint32_t index = handle >> rfm_SlotBits;
        const std::uint32_t slot = handle & rfm_SlotMask;
        return slot >= 1 && index < m_Blocks.size() && m_Blocks[index]->entries[slot].offset != 0;
    }
    /// A bound for the steps of any walk along a chain that is not a loop.
    std::int64_t MostEntries() const noexcept
    {
        return static_cast<std::int64_t>(m_Blocks.size()) * rfm_LinkageBlockEntries;
    }

private:
    std::vector<std::unique_ptr<rfm_LinkageBlock>> m_Blocks;
};

/// Decodes a block from its 14336 bytes; false when one of its numbers is none that a writer stores.
bool rfm_DecodeLinkageBlock(const char* bytes, bool swapped, rfm_LinkageBlock& block);
/// Encodes the slots from `first` to `last` into their places in the block's bytes.
void rfm_EncodeLinkageSlots(const rfm_LinkageBlock& block, std::uint32_t first, std::uint32_t last,
                            bool swapped, char* bytes);
/// Where the blocks of a table lie, to tell a chain that comes back to itself at its first step back.
class rfm_LinkagePlaces
{
public:
    /// False when a block at `offset` would lie over one taken before.
    bool Take(std::int64_t offset);

private:
    std::set<std::int64_t> m_Offsets;
};
