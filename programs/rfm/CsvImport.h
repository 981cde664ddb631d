#pragma once

#include "FileKind.h"
#include "NewFile.h"

#include <cstdint>
#include <string>

namespace rfm_tool
{
/// What `import csv` was told.
struct CsvSource
{
    std::string path;
    char separator = ',';
    std::string table; // its name; empty: that of the file
    std::string types; // "id=int,x=double"; columns that aren't named are guessed
};

/// What became of a file.
struct ImportedTable
{
    std::string name;
    std::int64_t rows = 0;
    std::string fields; // "id int, x double"
};

/// Makes a database of one table under the work path of `out`.
/// Throws: Failure; what the library says of the new file.
ImportedTable ImportCsv(const CsvSource& source, FileKind kind, const NewFile& out);
} // namespace rfm_tool
