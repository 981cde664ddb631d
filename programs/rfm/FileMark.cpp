#include "FileMark.h"

#include <algorithm>
#include <fstream>
#include <utility>

namespace rfm_tool
{
namespace
{
constexpr std::pair<std::string_view, const char*> kMarks[] = {
    {"SQLite format 3", "an SQLite database"},
    {"\x89PNG", "a PNG picture"},
    {"\xff\xd8\xff", "a JPEG picture"},
    {"GIF8", "a GIF picture"},
    {"%PDF", "a PDF document"},
    {"PK\x03\x04", "a zip archive"},
    {"\x1f\x8b", "gzip data"},
    {"BZh", "bzip2 data"},
    {"\xfd"
     "7zXZ",
     "xz data"},
    {"\x28\xb5\x2f\xfd", "zstd data"},
    {"\x7f"
     "ELF",
     "a program"},
    {"\x93NUMPY", "a NumPy array"},
    {"CDF", "a netCDF file"},
    {"<?xml", "an XML text"},
    {"<VTKFile", "an XML text"},
};

// Null without a mark.
const char* MarkedAs(std::string_view start)
{
    for (const auto& [mark, what] : kMarks)
        if (start.starts_with(mark)) return what;
    return nullptr;
}

bool HasHdf5Mark(std::string_view start) { return start.starts_with("\x89HDF"); }

bool HasTextBytesOnly(std::string_view start)
{
    const auto isText = [](char byte)
    { return static_cast<unsigned char>(byte) >= ' ' || byte == '\t' || byte == '\n' || byte == '\r'; };
    return std::all_of(start.begin(), start.end(), isText);
}
} // namespace

std::string StartOfFile(const std::string& path)
{
    char bytes[kMarkBytes] = {};
    std::ifstream file(path, std::ios::binary);
    file.read(bytes, sizeof bytes);
    return {bytes, static_cast<std::size_t>(file.gcount())};
}

// Files that hold a database in another way have marks of their own; the library knows them.
bool HasDatabaseMark(std::string_view start)
{
    return start.starts_with("TVNR") || start.starts_with("MRKTSA") || HasHdf5Mark(start);
}

bool HasOldDatabaseMark(std::string_view start) { return start.starts_with("TVNDFM"); }

std::string LooksLike(std::string_view start)
{
    if (const char* marked = MarkedAs(start)) return marked;
    if (!HasTextBytesOnly(start)) return "binary data";
    return start.starts_with('{') || start.starts_with('[') ? "a JSON text" : "a text";
}

std::string BinaryKind(std::string_view start)
{
    if (HasTextBytesOnly(start)) return {};
    if (HasDatabaseMark(start)) return "a database";
    const char* marked = MarkedAs(start);
    return marked == nullptr ? "" : marked;
}

// HDF5 lets nobody in, not even `rfm check`.
std::string RemedyForUnopened(const std::string& path)
{
    return HasHdf5Mark(StartOfFile(path)) ? "restore it from a copy" : "`rfm check` tells what is damaged";
}
} // namespace rfm_tool
