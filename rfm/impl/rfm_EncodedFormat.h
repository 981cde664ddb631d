#pragma once

// A compressed file holds the bytes of a plain one, cut into segments. Segment i is the stored stream of cell i (see
// rfm_SectorFormat.h): one zlib stream. The user header of the sector file tells how many there are:
//
//   file offset   20          24        28         32          36         40
//                  +-----------+---------+----------+-----------+----------+
//                  |   magic   | version | segment  | number of | bytes in |
//                  | A5C14161  |    1    |   size   | segments  | the last |
//                  +-----------+---------+----------+-----------+----------+
//
// All segments but the last have the segment size. So the file has (number - 1) * size + last bytes; none at all are
// stored as number 0 with a last one of the segment size, or as number 1 with a last one of 0.
// A segment without a stream is all zeros, and so is what a stream does not reach of its segment.

#include <cstdint>

inline constexpr int rfm_EncodedHeaderBytes = 20;
inline constexpr std::uint32_t rfm_EncodedMagic = 0x6141C1A5;
inline constexpr std::uint32_t rfm_EncodedVersion = 1;
inline constexpr int rfm_EncodedSegmentBytes = 65536; // of every file that is made here
inline constexpr int rfm_MostSegmentBytes = 1 << 30;

struct rfm_EncodedHeader
{
    std::uint32_t magic = rfm_EncodedMagic;
    std::uint32_t version = rfm_EncodedVersion;
    int segmentSize = 0;
    int segmentCount = 0;
    int lastLength = 0;
    bool operator==(const rfm_EncodedHeader&) const = default;
};

void rfm_EncodeEncodedHeader(const rfm_EncodedHeader& header, char* bytes);
rfm_EncodedHeader rfm_DecodeEncodedHeader(const char* bytes);
/// Whether the three numbers can stand together.
bool rfm_IsSoundEncodedHeader(const rfm_EncodedHeader& header);
