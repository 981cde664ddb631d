#pragma once

// The linkage table says where every space lies. It is a chain of blocks, each of 512 entries without gap or header.
// An entry is one contiguous extent of a space:
//
//   byte 0            8            16             24        28
//        +------------+------------+--------------+---------+
//        | allocation |   length   | file offset  |  next   |
//        |  (double)  |  (double)  |   (double)   | (int32) |
//        +------------+------------+--------------+---------+
//
// File offset 0: the slot is free. File offset 1: a space with a handle and no extent yet. Next is the handle of the
// space's next entry, 0 at the end of its chain.
// Entry 0 of a block is no extent: its file offset is that of the next block, its next the handle of entry 0 there;
// both are 0 in the last block, allocation and length always.
//
// A handle, 32 bits:   | block index, in the order of the chain: 23 bits | slot in the block: 9 bits |

#include <cstdint>

inline constexpr int rfm_LinkageEntryBytes = 28;
inline constexpr int rfm_LinkageBlockEntries = 512;
inline constexpr int rfm_LinkageBlockBytes = rfm_LinkageEntryBytes * rfm_LinkageBlockEntries;
inline constexpr std::int64_t rfm_FirstLinkageBlockOffset = 1024;
inline constexpr int rfm_SlotBits = 9;
inline constexpr std::uint32_t rfm_SlotMask = 0x1FF;
inline constexpr std::uint32_t rfm_MostLinkageBlocks = 1U << 23;
inline constexpr std::int64_t rfm_NoExtentOffset = 1;
static_assert(rfm_LinkageBlockBytes == 14336, "this layout is on disk");

/// The reserved handles, the same in every database.
inline constexpr std::uint32_t rfm_StringPoolHandle = 1;
inline constexpr std::uint32_t rfm_UnusedHandle = 2;
inline constexpr std::uint32_t rfm_MetadataPoolHandle = 3;
inline constexpr std::uint32_t rfm_FirstRootHandle = 4;
inline constexpr std::uint32_t rfm_SecondRootHandle = 5;

/// The first int of the content of a space tells what it is.
inline constexpr std::uint32_t rfm_StringPoolMagic = 0xAAFFBBEE;
inline constexpr std::uint32_t rfm_MetadataPoolMagic = 0xFAAAEBBB;
inline constexpr std::uint32_t rfm_TableMagic = 0xAAAFBBBE;
inline constexpr std::uint32_t rfm_ArrayMagic = 0xFFFAEEEB;
inline constexpr std::uint32_t rfm_TaggedStreamMagic = 0xFAAFEBBE;

struct rfm_LinkageEntry
{
    std::int64_t allocation = 0; // bytes reserved for this extent
    std::int64_t length = 0;     // bytes of it in use
    std::int64_t offset = 0;     // of its first byte in the file
    std::uint32_t next = 0;
    bool reachable = false; // scratch of GetObjectLocationReport, never stored

    bool HasExtent() const noexcept { return offset >= rfm_FirstLinkageBlockOffset; }
};

void rfm_EncodeLinkageEntry(const rfm_LinkageEntry& entry, bool swapped, char* bytes);
/// False when a number is none that a writer stores; the entry is then free.
bool rfm_DecodeLinkageEntry(const char* bytes, bool swapped, rfm_LinkageEntry& entry);
