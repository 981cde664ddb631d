#pragma once

// What tables, arrays and tagged streams have at the start of their spaces. All numbers are 32-bit integers.
//
//   table:    0            4             8                 12
//             +------------+-------------+-----------------+--------+--------+-- -
//             | 0xAAAFBBBE | flush count | metadata offset |  row 0 |  row 1 |  ...
//             +------------+-------------+-----------------+--------+--------+-- -
//             The metadata offset is the place of the table's layout in the metadata pool.
//
//   array:    0            4             8              12                   16
//             +------------+-------------+--------------+--------------------+--------+-- -
//             | 0xFFFAEEEB | flush count | element type | elements per row   |  row 0 |  ...
//             +------------+-------------+--------------+--------------------+--------+-- -
//
//   stream:   0            4             8
//             +------------+-------------+--------+--------+-- -        item:   type, identifier, value
//             | 0xFAAFEBBE | flush count | item 0 | item 1 |  ...               (int32) (int32)  by type
//             +------------+-------------+--------+--------+-- -
//             Values: int 4 bytes, float 4, double 8, handle 8 (its value and a zero word), string a reference of 8 into
//             the string pool, fixed string its characters, NUL padded to a multiple of 4, without a length.
//
// There is no stored row count: the length of the space gives it, rounded to the nearest whole row, so that a row of
// which at least half is there counts.

#include <cstdint>

inline constexpr int rfm_ObjectFlushCountOffset = 4;
inline constexpr int rfm_TableFirstRowOffset = 12;
inline constexpr int rfm_ArrayFirstRowOffset = 16;
inline constexpr int rfm_StreamFirstItemOffset = 8;

/// Rows in a space of `length` bytes; 0 for a layout without bytes.
int rfm_RowsInSpace(std::int64_t length, int firstRowOffset, std::int64_t rowSize);
