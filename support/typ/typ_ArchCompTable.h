#pragma once

#include <span>
#include <vector>

// A type id names a class by the library that it belongs to and its row in that library's table:
//
//      31                        16 15                        0
//       +--------------------------+--------------------------+
//       |   number of the library  |    row, from 0           |
//       +--------------------------+--------------------------+
//
// Row 0 of each table is no class. Type id 1 is the base of a class that has none.

inline constexpr int typ_NoBase = 1;
constexpr int typ_TypeId(int library, int row) { return library * 65536 + row; }

/// What the rows of a table describe.
enum typ_Kind : int
{
    typ_KindNone = 0,
    typ_KindClass = 7,
};

/// One row: a class, the type id of its base and its name, which is a literal or null.
struct typ_Entry
{
    int kind;
    int base;
    const char* name;
};

/// The table of one library.
class typ_ArchCompEntry
{
public:
    /// Copies `count` rows.
    typ_ArchCompEntry(const typ_Entry* rows, int count) : m_Rows(rows, rows + count) {}
    std::span<const typ_Entry> Rows() const noexcept { return m_Rows; }

private:
    std::vector<typ_Entry> m_Rows;
};

/// All libraries' tables, by the libraries' numbers.
/// Threads: tables are registered while the library starts, and only read from then on.
class typ_ArchCompTable
{
public:
    /// Registers the table of library `id`; a table that it had before is replaced.
    static void InsertEntry(int id, const typ_ArchCompEntry& entry);
    /// The row of a type; null when no table has it.
    static const typ_Entry* FindRow(int typeId);
    /// Whether a type is `base` or derives from it, as far as the tables tell.
    static bool IsA(int typeId, int base);
};
