#pragma once

#include "rfm_File.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace rfm_tool
{
struct Option;
class Options;

/// What a database lies in.
enum class FileKind
{
    Plain,
    Compressed,
    Hdf5,
};

/// "plain", "compressed", "hdf5": what --to takes and what is told.
std::string_view KindWord(FileKind kind);
/// Its first bytes tell, as they tell the library.
FileKind KindOfFile(const std::string& path);
/// Size of the file as the disk has it.
std::int64_t BytesOnDisk(const std::string& path);
/// An option that takes one of the words; empty when it was not given.
Option& DeclareKind(Options& options, std::string& word, const std::string& help);
/// The kind that such an option names.
FileKind KindOfWord(std::string_view word);

/// A new, empty file of that kind under `path`.
/// Throws: what the library says.
rfm_File CreateFileOfKind(FileKind kind, const std::string& path);
} // namespace rfm_tool
