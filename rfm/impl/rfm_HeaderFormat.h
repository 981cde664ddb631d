#pragma once

// Block 0, the first 1024 bytes of a database.
//
//   byte 0        8         12                     496       500         512       516       520      1024
//        +---------+---------+----------------------+---------+-----------+---------+---------+---------+
//        |  magic  | version |     description      |    0    |   size    |  flush  | created |  zero   |
//        | 8 chars | (int32) |      484 chars       | (int32) |   stamp   |  count  | (int32) |         |
//        +---------+---------+----------------------+---------+-----------+---------+---------+---------+
//
// Magic: "TVNR", then the application's mark of at most four characters, NUL padded. The flush count is the mark by
// which readers know that table and data belong together; it is the last that a flush writes.
//
// Size stamp, 12 bytes:   4 bytes of 0, then the size of the file on its medium as a double. All zero until the first
// one, and while the size changes: a zero stamp passes for any size.

#include <cstdint>

inline constexpr int rfm_HeaderBytes = 1024;
inline constexpr int rfm_MagicBytes = 8;
inline constexpr int rfm_ApplicationMagicBytes = 4;
inline constexpr int rfm_VersionOffset = 8;
inline constexpr int rfm_DescriptionOffset = 12;
inline constexpr int rfm_DescriptionBytes = 484;
inline constexpr int rfm_ReservedOffset = 496;
inline constexpr int rfm_SizeStampOffset = 500;
inline constexpr int rfm_SizeStampBytes = 12;
inline constexpr int rfm_FlushCountOffset = 512;
inline constexpr int rfm_CreationTimeOffset = 516;

inline constexpr int rfm_FormatVersion = 12;
inline constexpr int rfm_OldestVersion = 11;

static_assert(rfm_DescriptionOffset + rfm_DescriptionBytes == rfm_ReservedOffset, "this layout is on disk");

/// A stamp for a file of `size` bytes.
void rfm_EncodeSizeStamp(std::int64_t size, bool swapped, char* bytes);
/// Whether a stamp allows a file of `size` bytes: it says so, or it says nothing and its first bytes are as they were
/// written, not as a transfer in text mode leaves them.
bool rfm_SizeStampAllows(const char* bytes, bool swapped, std::int64_t size);
