#pragma once

// How values lie on a pipe. There is no framing: each side knows what comes next from what it has read.
//
//   Schar, Uchar       | 1 byte |
//   Short              |    2 bytes    |                       numbers in the byte order of the stream:
//   Int, UInt          |            4 bytes            |       0 big-endian, as on every pipe of this library,
//   Int64, UInt64      |            8 bytes ...                1 little-endian, as in files
//
//   String             | length: UInt, 4 bytes         | length bytes as they stand, no terminator
//
// A length may be anything that a damaged or hostile peer makes up, so both sides keep to a limit.
inline constexpr unsigned utl_MostStringBytes = 16U * 1024 * 1024;
inline constexpr int utl_StringLengthBytes = 4;
