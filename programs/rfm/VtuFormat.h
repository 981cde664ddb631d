#pragma once

#include "FileTarget.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// An unstructured grid of VTK in XML, with its numbers behind the text:
//
//   <VTKFile type="UnstructuredGrid" ... header_type="UInt64">
//     <UnstructuredGrid> <Piece NumberOfPoints=".." NumberOfCells="..">
//       <PointData> <CellData> <Points> <Cells>     each with its <DataArray ... offset=".."/>
//     </Piece> </UnstructuredGrid>
//     <AppendedData encoding="raw">
//   _+-----------------+----------+-----------------+----------+----
//    | bytes of array  | elements | bytes of array  | elements | ...       all little-endian
//    | 0 (uint64)      |          | 1 (uint64)      |          |
//    +-----------------+----------+-----------------+----------+----
//     </AppendedData>
//   </VTKFile>
//
// An offset counts from the byte behind the underscore to the length in front of the elements.

namespace rfm_tool
{
/// Numbers of one type. `type` is VTK's word: "Int32", "UInt32", "Int64", "UInt8", "Float32" or "Float64".
struct VtuArray
{
    std::string name;
    std::string_view type;
    int components = 1;
    std::string bytes = {}; // the elements, little-endian
};

struct VtuGrid
{
    std::int64_t points = 0;
    std::int64_t cells = 0;
    VtuArray coordinates{"Points", "Float64", 3};
    VtuArray connectivity{"connectivity", "Int64"}; // numbers of points, from 0, cell after cell
    VtuArray offsets{"offsets", "Int64"};           // of each cell: where its points end
    VtuArray types{"types", "UInt8"};
    std::vector<VtuArray> pointData;
    std::vector<VtuArray> cellData;
};

void WriteVtu(const VtuGrid& grid, FileTarget& target);

/// VTK's number for a kind of cell, such as "tetra"; 0 for an unknown word.
int CellTypeOfWord(std::string_view word);
/// How many nodes such a cell has.
int NodesOfCellType(int type);
/// What a cell of so many nodes is when nothing else is said; 0 when there is none.
int CellTypeOfNodes(int nodes);
/// All words, as a list for a person.
std::string CellTypeWords();
} // namespace rfm_tool
