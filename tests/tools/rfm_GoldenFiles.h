#pragma once

#include "cow_String.h"

#include <string>

/// One small database per kind of object. The files of tests/data were made once by `make_golden_files`; the library
/// must read them for ever, and what it writes today is compared with them byte by byte.
struct GoldenFile
{
    const char* name;
    void (*write)(const cow_String& fileName);
};

inline constexpr long long kGoldenCreationTime = 0x12345678;
inline constexpr int kGoldenFileCount = 7;
extern const GoldenFile kGoldenFiles[kGoldenFileCount];

/// table.rdx once more, inside an HDF5 file. What HDF5 puts around the bytes is its own affair, so this file is not among
/// those that are compared as a whole.
inline constexpr const char* kHdf5GoldenName = "hdf5.rdx";
void WriteHdf5Golden(const cow_String& fileName);

/// table.rdx once more, in a compressed file of small segments, so that there are several. Its streams are stored blocks:
/// an engine's own choices would be in the bytes else.
inline constexpr const char* kCompressedGoldenName = "compressed.rdx";
inline constexpr int kCompressedGoldenSegment = 4096;
void WriteCompressedGolden(const cow_String& fileName);

/// Texts whose lengths lie around the rounding to 4 bytes, with a NUL inside, with bytes above 127, and longer than a
/// buffer; the empty one is written as well.
inline constexpr int kGoldenTextCount = 9;
std::string GoldenText(int index);
