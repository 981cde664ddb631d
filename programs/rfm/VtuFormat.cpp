#include "VtuFormat.h"

#include "LittleEndian.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace rfm_tool
{
namespace
{
struct CellType
{
    std::string_view word;
    int type;
    int nodes;
};
// Of the types with as many nodes the first is the one that is taken unasked.
constexpr CellType kCellTypes[] = {
    {"vertex", 1, 1},
    {"line", 3, 2},
    {"triangle", 5, 3},
    {"tetra", 10, 4},
    {"quad", 9, 4},
    {"pyramid", 14, 5},
    {"wedge", 13, 6},
    {"hexahedron", 12, 8},
    {"quadratic-tetra", 24, 10},
    {"quadratic-edge", 21, 3},
    {"quadratic-triangle", 22, 6},
    {"quadratic-quad", 23, 8},
    {"quadratic-pyramid", 27, 13},
    {"quadratic-wedge", 26, 15},
    {"quadratic-hexahedron", 25, 20},
};

template <class Fits> const CellType* FindCellType(const Fits& fits)
{
    const auto* found = std::find_if(std::begin(kCellTypes), std::end(kCellTypes), fits);
    return found == std::end(kCellTypes) ? nullptr : found;
}

// The text in front of the numbers, and the arrays in the order in which it gave them their places.
class Head
{
public:
    explicit Head(const VtuGrid& grid);
    const std::string& Text() const noexcept { return m_Text; }
    const std::vector<const VtuArray*>& Arrays() const noexcept { return m_Arrays; }

private:
    void Section(std::string_view tag, const std::vector<const VtuArray*>& arrays);
    void Array(const VtuArray& array);

    std::string m_Text;
    std::vector<const VtuArray*> m_Arrays;
    std::uint64_t m_Offset = 0;
};

std::vector<const VtuArray*> PointersTo(const std::vector<VtuArray>& arrays)
{
    std::vector<const VtuArray*> pointers;
    pointers.reserve(arrays.size());
    for (const VtuArray& array : arrays) pointers.push_back(&array);
    return pointers;
}

Head::Head(const VtuGrid& grid)
{
    m_Text = fmt::format("<?xml version=\"1.0\"?>\n"
                         "<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"LittleEndian\" "
                         "header_type=\"UInt64\">\n"
                         "<UnstructuredGrid>\n"
                         "<Piece NumberOfPoints=\"{}\" NumberOfCells=\"{}\">\n",
                         grid.points, grid.cells);
    Section("PointData", PointersTo(grid.pointData));
    Section("CellData", PointersTo(grid.cellData));
    Section("Points", {&grid.coordinates});
    Section("Cells", {&grid.connectivity, &grid.offsets, &grid.types});
    m_Text += "</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";
}

void Head::Section(std::string_view tag, const std::vector<const VtuArray*>& arrays)
{
    m_Text += fmt::format("<{}>\n", tag);
    for (const VtuArray* array : arrays) Array(*array);
    m_Text += fmt::format("</{}>\n", tag);
}

void Head::Array(const VtuArray& array)
{
    m_Text += fmt::format("<DataArray type=\"{}\" Name=\"{}\" NumberOfComponents=\"{}\" format=\"appended\" "
                          "offset=\"{}\"/>\n",
                          array.type, XmlText(array.name), array.components, m_Offset);
    m_Offset += sizeof(std::uint64_t) + array.bytes.size();
    m_Arrays.push_back(&array);
}
} // namespace

void WriteVtu(const VtuGrid& grid, FileTarget& target)
{
    const Head head(grid);
    target.Write(head.Text());
    for (const VtuArray* array : head.Arrays())
    {
        AppendLittleEndian(target.Pending(), static_cast<std::uint64_t>(array->bytes.size()));
        target.Write(array->bytes);
    }
    target.Write("\n</AppendedData>\n</VTKFile>\n");
}

int CellTypeOfWord(std::string_view word)
{
    const CellType* found = FindCellType([&](const CellType& each) { return each.word == word; });
    return found == nullptr ? 0 : found->type;
}

int NodesOfCellType(int type)
{
    const CellType* found = FindCellType([&](const CellType& each) { return each.type == type; });
    return found == nullptr ? 0 : found->nodes;
}

int CellTypeOfNodes(int nodes)
{
    const CellType* found = FindCellType([&](const CellType& each) { return each.nodes == nodes; });
    return found == nullptr ? 0 : found->type;
}

std::string CellTypeWords()
{
    std::string words;
    for (const CellType& each : kCellTypes)
        words += fmt::format("{}{}", words.empty() ? "" : ", ", each.word);
    return words;
}
} // namespace rfm_tool
