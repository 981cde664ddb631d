#pragma once

// The metadata pool keeps each table layout once. Its space:
//
//   byte 0              4
//        +--------------+----------+----------+-- -
//        |  0xFAAAEBBB  |  record  |  record  |  ...        without gap
//        +--------------+----------+----------+-- -
//
//   record:   0           4                12
//             +-----------+----------------+---------+---------+-- -
//             |  length   |   table name   |  field  |  field  |  ...       length counts itself
//             |  (int32)  |  (reference)   |         |         |            fields in ascending order of their names
//             +-----------+----------------+---------+---------+-- -
//
//   field:    0           4                12
//             +-----------+----------------+
//             |   type    |   field name   |             names are references into the string pool
//             |  (int32)  |  (reference)   |
//             +-----------+----------------+

inline constexpr int rfm_MetadataFirstRecord = 4;
inline constexpr int rfm_MetadataHeadBytes = 12;
inline constexpr int rfm_MetadataFieldBytes = 12;

/// Whether a record can be as long as it says.
inline constexpr bool rfm_IsMetadataLength(int length)
{
    return length >= rfm_MetadataHeadBytes && (length - rfm_MetadataHeadBytes) % rfm_MetadataFieldBytes == 0;
}
