#pragma once

#include <cstdint>
#include <string>

// A NumPy array file, version 1.0: one array of numbers, row by row.
//
//   byte 0         6       8          10                                 128
//        +---------+-------+----------+----------------------------------+----------------
//        | 93      | 01 00 | length   | {'descr': '<f8', ..., }  blanks  | elements
//        | "NUMPY" |       | (uint16) | and a line end at 127            | little-endian
//        +---------+-------+----------+----------------------------------+----------------
//
// The dictionary is as long for every shape, so that it can be written again once the rows are counted.

namespace rfm_tool
{
constexpr std::size_t kNpyHeaderBytes = 128;

/// `element` is NumPy's word for a type: "<i4", "<f4" or "<f8".
std::string NpyHeader(const char* element, std::int64_t rows, std::int64_t columns);
} // namespace rfm_tool
