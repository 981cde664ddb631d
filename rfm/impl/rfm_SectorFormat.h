#pragma once

// A compressed file is an array of sectors of 4096 bytes; sector n lies at n * 4096. All numbers are little-endian.
//
//   a sector:      byte 0                                                     4092      4096
//                       +--------------------------------------------------------+---------+
//                       |                          data                          |  link   |
//                       +--------------------------------------------------------+---------+
//
// Link: the next sector of the chain, 0xFFFFFFFF at its end. A sector never leaves its chain.
//
//   sector 0:      byte 0        8         12         16         20       20 + u                4092
//                       +--------+----------+----------+----------+-----------+-------------------+---------+
//                       | magic  | version  | length u | number   |   user    | cells, 4 bytes    |  link   |
//                       | 8 chars| 1        | of user  | of cells |   header  | each              |         |
//                       |        |          | header   |          |           |                   |         |
//                       +--------+----------+----------+----------+-----------+-------------------+---------+
//
// Magic: "MRKTSA00". Cells go on in the sectors linked to sector 0, from byte 0 of each to 4092. Cell i is the first
// sector of the stored stream i, 0 when there is none; sector 0 can't begin a stream.
//
//   a stream:      byte 0        4                                            4092
//                       +--------+-----------------------------------------------+---------+
//      first sector     | length |                    data                       |  link   |
//                       +--------+-----------------------------------------------+---------+
//      each later one   |                         data                           |  link   |
//                       +--------------------------------------------------------+---------+
//
// Length: of the data, and 4 for itself. What lies in a chain behind the data is left from a longer stream.

#include <cstdint>
#include <string_view>

inline constexpr int rfm_SectorBytes = 4096;
inline constexpr int rfm_SectorLinkBytes = 4;
inline constexpr int rfm_SectorDataBytes = rfm_SectorBytes - rfm_SectorLinkBytes;
inline constexpr int rfm_SectorGrowth = 256; // sectors that a full file gets at a time: 1 MiB
inline constexpr std::uint32_t rfm_NullSector = 0xFFFFFFFF;

inline constexpr std::string_view rfm_SectorMagic = "MRKTSA00";
/// By these a file is known as compressed, so that a later version is recognised as well.
inline constexpr std::string_view rfm_SectorMagicStart = rfm_SectorMagic.substr(0, 6);
inline constexpr int rfm_SectorVersion = 1;
inline constexpr int rfm_SectorHeadOffset = 8;
inline constexpr int rfm_SectorHeaderBytes = 20;
inline constexpr int rfm_SectorCellBytes = 4;
inline constexpr int rfm_CellsPerSector = rfm_SectorDataBytes / rfm_SectorCellBytes;
inline constexpr int rfm_StreamLengthBytes = 4;
static_assert(rfm_CellsPerSector == 1023, "this layout is on disk");

/// The numbers behind the magic.
struct rfm_SectorHead
{
    int version = 0;
    int userHeaderLength = 0;
    int cellCount = 0;
    bool operator==(const rfm_SectorHead&) const = default;
};

/// 12 bytes.
void rfm_EncodeSectorHead(const rfm_SectorHead& head, char* bytes);
rfm_SectorHead rfm_DecodeSectorHead(const char* bytes);

/// How many cells sector 0 has room for.
inline constexpr int rfm_CellsInFirstSector(int userHeaderLength)
{
    return (rfm_SectorDataBytes - rfm_SectorHeaderBytes - userHeaderLength) / rfm_SectorCellBytes;
}
static_assert(rfm_CellsInFirstSector(20) == 1013, "this layout is on disk");

/// A number of 4 bytes as it is stored: links, cells and lengths.
void rfm_StoreWord(char* bytes, std::uint32_t value);
std::uint32_t rfm_LoadWord(const char* bytes);
