#pragma once

// The string pool keeps every text of a database once. Its space:
//
//   byte 0              4
//        +--------------+----------+----------+-- -
//        |  0xAAFFBBEE  |  record  |  record  |  ...        without gap; every record starts at a multiple of 4
//        +--------------+----------+----------+-- -
//
//   record:   0          4               4 + L        up to the next multiple of 4
//             +----------+---------------+------------+
//             | L (int32)|   L bytes     |   zeros    |   no terminator; the empty text is a record of 4 bytes
//             +----------+---------------+------------+
//
// A reference to a text is the offset of its record in the space, kept in rows and streams as a double of 8 bytes.

#include <cstdint>

inline constexpr int rfm_StringPoolFirstRecord = 4;
inline constexpr int rfm_StringReferenceBytes = 8;
inline constexpr std::int64_t rfm_MostStringPoolBytes = 2147483647;

/// Bytes of the record of a text of `length` bytes.
inline constexpr std::int64_t rfm_StringRecordBytes(std::int64_t length)
{
    return 4 + ((length + 3) & ~std::int64_t{3});
}
