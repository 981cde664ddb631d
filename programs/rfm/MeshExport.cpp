#include "MeshExport.h"

#include "Failure.h"
#include "LittleEndian.h"
#include "RowQuery.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <unordered_map>

namespace rfm_tool
{
namespace
{
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

// A number of nodes, and the VTK type of the elements that have as many.
using TypesByNodes = std::map<int, int>;

[[noreturn]] void RefuseMesh(const std::string& where, const std::string& why, const std::string& remedy)
{
    throw Failure(ExitUsage, where, why, remedy);
}

// Reads all rows of an object; `take` is given the wanted fields of each.
template <class Take> void ForEachRow(DatabaseFile& file, QueriedRows& rows, const Take& take)
{
    ReadRows(file, rows,
             [&]
             {
                 while (rows.Next())
                     take(rows.Source().Row(), std::span<const Value>(rows.Values()).subspan(1));
             });
}

QueriedRows OpenFields(DatabaseFile& file, const std::string& object, const std::string& fields)
{
    RowQuery query;
    query.object = object;
    query.fields = fields;
    return QueriedRows(file, query);
}

void RequireTable(const QueriedRows& rows, const std::string& word)
{
    if (rows.Object().kind != Kind::Table)
        RefuseMesh(OneLine(word), "is no table", "nodes and elements are tables; `rfm ls` lists them");
}

void RequireNumbers(const QueriedRows& rows, const std::string& word)
{
    for (const Column& column : rows.Columns())
        if (!column.isRight)
            RefuseMesh(OneLine(word),
                       OneLine(column.name) + " has texts, and a mesh has room for numbers only",
                       "name its other fields");
}

// Turns the mapping's words into the grid, step by step; the tables are read once.
class MeshReader
{
public:
    MeshReader(DatabaseFile& file, const MeshMapping& mapping) : m_File(file), m_Mapping(mapping) {}

    VtuGrid Read(const std::vector<std::string>& data);

private:
    void ReadNodes();
    void ReadIds();
    void ReadElements();
    void TakeElement(std::int64_t row, std::span<const Value> corners, const TypesByNodes& types);
    TypesByNodes CellTypes() const;
    std::string CornerFields() const;
    std::int64_t FirstNumber() const;
    std::int64_t NodeOf(const Value& corner, std::int64_t element) const;
    enum class Place
    {
        Points,
        Cells,
        Fitting,
    };
    void AddData(const std::string& word, Place place);
    std::vector<VtuArray>& Fitting(const std::string& word, std::int64_t rows, Place place);

    DatabaseFile& m_File;
    const MeshMapping& m_Mapping;
    VtuGrid m_Grid;
    std::unordered_map<std::int64_t, std::int64_t> m_NodeOfId;
    std::int64_t m_FirstNumber = 0;
    std::int64_t m_Corners = 0; // of all elements so far
};

std::int64_t MeshReader::FirstNumber() const
{
    if (m_Mapping.first.empty()) return 0;
    if (!m_Mapping.ids.empty())
        RefuseMesh("first=" + OneLine(m_Mapping.first), "says how rows are numbered, and ids= too",
                   "give one of them");
    std::int64_t number = 0;
    const char* end = m_Mapping.first.data() + m_Mapping.first.size();
    const std::from_chars_result result = std::from_chars(m_Mapping.first.data(), end, number);
    const bool isSmall = std::abs(number) <= std::numeric_limits<int>::max();
    if (result.ec != std::errc() || result.ptr != end || !isSmall)
        RefuseMesh("first=" + OneLine(m_Mapping.first), "is no whole number", "say first=0 or first=1");
    return number;
}

void MeshReader::ReadNodes()
{
    const std::string fields = m_Mapping.xyz.empty() ? "x,y,z" : m_Mapping.xyz;
    QueriedRows rows = OpenFields(m_File, m_Mapping.nodes, fields);
    RequireTable(rows, m_Mapping.nodes);
    RequireNumbers(rows, m_Mapping.nodes);
    const std::size_t axes = rows.Fields().size();
    if (axes != 2 && axes != 3)
        RefuseMesh("xyz=" + OneLine(fields),
                   fmt::format("{}, and a place has two or three",
                               Counted(static_cast<std::int64_t>(axes), "field", "fields")),
                   "say for example xyz=x,y,z");
    ForEachRow(m_File, rows,
               [&](std::int64_t row, std::span<const Value> place)
               {
                   for (const Value& value : place)
                   {
                       if (value.IsAbsent())
                           RefuseMesh(OneLine(m_Mapping.nodes),
                                      fmt::format("the node in row {} has no place", row),
                                      "write it, or name other fields with xyz=");
                       AppendLittleEndian(m_Grid.coordinates.bytes, value.Number());
                   }
                   if (place.size() == 2) AppendLittleEndian(m_Grid.coordinates.bytes, 0.0);
                   ++m_Grid.points;
               });
}

void MeshReader::ReadIds()
{
    m_FirstNumber = FirstNumber();
    if (m_Mapping.ids.empty()) return;
    QueriedRows rows = OpenFields(m_File, m_Mapping.nodes, m_Mapping.ids);
    if (rows.Fields().size() != 1)
        RefuseMesh("ids=" + OneLine(m_Mapping.ids), "names more than one field",
                   "name the one with the nodes' numbers");
    ForEachRow(m_File, rows,
               [&](std::int64_t row, std::span<const Value> id)
               {
                   if (id[0].GetKind() != Value::Kind::Int)
                       RefuseMesh("ids=" + OneLine(m_Mapping.ids),
                                  fmt::format("the node in row {} has no whole number there", row),
                                  "name a field that has one in every row");
                   if (!m_NodeOfId.emplace(id[0].Int(), row).second)
                       RefuseMesh("ids=" + OneLine(m_Mapping.ids),
                                  fmt::format("{} is the number of two nodes", id[0].Int()),
                                  "name a field that tells nodes apart");
               });
}

// The number at the end of a name; nothing for other names.
std::optional<int> NumberAtEnd(std::string_view name)
{
    const std::size_t letters = name.find_last_not_of("0123456789");
    const std::string_view digits = letters == std::string_view::npos ? "" : name.substr(letters + 1);
    int number = 0;
    const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (digits.empty() || end.ec != std::errc()) return {};
    return number;
}

std::string MeshReader::CornerFields() const
{
    if (!m_Mapping.corners.empty()) return m_Mapping.corners;
    std::map<int, std::string> names;
    for (const Field& field : FieldsOf(m_File, SelectOne(m_File, m_Mapping.elements).object))
        if (const std::optional<int> number = NumberAtEnd(field.name))
            if (!names.emplace(*number, field.name).second)
                RefuseMesh(OneLine(m_Mapping.elements),
                           fmt::format("more than one field has the number {}", *number),
                           "say which are the nodes of an element: corners=n1,n2,n3");
    std::string list;
    for (const auto& [number, name] : names) list += (list.empty() ? "" : ",") + name;
    if (list.empty())
        RefuseMesh(OneLine(m_Mapping.elements), "no field has a name with a number at its end",
                   "say which are the nodes of an element: corners=a,b,c");
    return list;
}

TypesByNodes MeshReader::CellTypes() const
{
    TypesByNodes types;
    if (m_Mapping.cells.empty()) return types;
    for (const std::string& word : Split(m_Mapping.cells, ','))
    {
        const int type = CellTypeOfWord(word);
        if (type == 0)
            RefuseMesh("cells=" + OneLine(word), "there is no such cell", "there are " + CellTypeWords());
        types[NodesOfCellType(type)] = type;
    }
    return types;
}

std::int64_t MeshReader::NodeOf(const Value& corner, std::int64_t element) const
{
    const bool isWhole = corner.GetKind() == Value::Kind::Int;
    const auto found = isWhole ? m_NodeOfId.find(corner.Int()) : m_NodeOfId.end();
    if (found != m_NodeOfId.end()) return found->second;
    const std::int64_t node = isWhole && m_Mapping.ids.empty() ? corner.Int() - m_FirstNumber : -1;
    if (node >= 0 && node < m_Grid.points) return node;
    const std::string nodes = m_Mapping.ids.empty()
                                  ? fmt::format("there are {} from {} on", m_Grid.points, m_FirstNumber)
                                  : "no node has this number";
    RefuseMesh(OneLine(m_Mapping.elements),
               fmt::format("row {} names node {}; {}", element, TextOf(corner), nodes),
               m_Mapping.ids.empty() ? "first=1 counts rows from 1, ids=FIELD looks numbers up"
                                     : "name another field with ids=");
}

void MeshReader::TakeElement(std::int64_t row, std::span<const Value> corners, const TypesByNodes& types)
{
    int count = 0;
    for (const Value& corner : corners)
    {
        if (corner.IsAbsent()) continue;
        AppendLittleEndian(m_Grid.connectivity.bytes, NodeOf(corner, row));
        ++count;
    }
    const auto chosen = types.find(count);
    const int type = chosen != types.end() ? chosen->second : CellTypeOfNodes(count);
    if (type == 0)
        RefuseMesh(OneLine(m_Mapping.elements),
                   fmt::format("the element in row {} has {}, and there is no such cell", row,
                               Counted(count, "node", "nodes")),
                   "corners= says which fields are its nodes");
    m_Corners += count;
    AppendLittleEndian(m_Grid.offsets.bytes, m_Corners);
    m_Grid.types.bytes += static_cast<char>(type);
    ++m_Grid.cells;
}

void MeshReader::ReadElements()
{
    const TypesByNodes types = CellTypes();
    QueriedRows rows = OpenFields(m_File, m_Mapping.elements, CornerFields());
    RequireTable(rows, m_Mapping.elements);
    RequireNumbers(rows, m_Mapping.elements);
    ForEachRow(m_File, rows,
               [&](std::int64_t row, std::span<const Value> corners) { TakeElement(row, corners, types); });
}

std::vector<VtuArray>& MeshReader::Fitting(const std::string& word, std::int64_t rows, Place place)
{
    const bool fitsPoints = rows == m_Grid.points && place != Place::Cells;
    const bool fitsCells = rows == m_Grid.cells && place != Place::Points;
    if (fitsPoints && fitsCells)
        RefuseMesh(OneLine(word), fmt::format("there are {} nodes and as many elements", rows),
                   "point-data= or cell-data= tells which of them it belongs to");
    if (!fitsPoints && !fitsCells)
        RefuseMesh(OneLine(word),
                   fmt::format("{}, but {} and {}", Counted(rows, "row", "rows"),
                               Counted(m_Grid.points, "node", "nodes"),
                               Counted(m_Grid.cells, "element", "elements")),
                   "data has a row for each node, or for each element");
    return fitsPoints ? m_Grid.pointData : m_Grid.cellData;
}

// Numbers of one array of the grid as they come. Where whole numbers are absent, all of them become doubles with nan
// there.
class DataColumn
{
public:
    explicit DataColumn(std::string type) : m_Type(std::move(type)) {}

    void Add(const Value& value)
    {
        m_HasGaps = m_HasGaps || value.IsAbsent();
        m_Numbers.push_back(value.IsAbsent() ? kNoNumber : value.Number());
    }
    VtuArray Take(const std::string& name, int components) const
    {
        VtuArray array{name, VtkType(), components};
        for (const double number : m_Numbers)
        {
            if (array.type == "Int32")
                AppendLittleEndian(array.bytes, static_cast<std::int32_t>(number));
            else if (array.type == "UInt32")
                AppendLittleEndian(array.bytes, static_cast<std::uint32_t>(number));
            else if (array.type == "Float32")
                AppendLittleEndian(array.bytes, static_cast<float>(number));
            else
                AppendLittleEndian(array.bytes, number);
        }
        return array;
    }

private:
    std::string_view VtkType() const
    {
        if (m_Type == "float") return "Float32";
        if (m_Type == "double" || m_HasGaps) return "Float64";
        return m_Type == "handle" ? "UInt32" : "Int32";
    }

    std::string m_Type;
    bool m_HasGaps = false;
    std::vector<double> m_Numbers; // every number of a database is exact as a double
};

// A table gives an array for each field, under its name; the rows of an array are one array of as many components.
void MeshReader::AddData(const std::string& word, Place place)
{
    const std::size_t equals = word.find('=');
    const std::string object = equals == std::string::npos ? word : word.substr(equals + 1);
    const std::string name = equals == std::string::npos ? "" : word.substr(0, equals);
    QueriedRows rows = OpenFields(m_File, object, "");
    const std::vector<Column> columns = rows.Columns();
    const bool isTable = rows.Object().kind == Kind::Table;
    if (!isTable && rows.Object().kind != Kind::Array)
        RefuseMesh(OneLine(object), "is no table and no array", "data is fields of tables and arrays");
    RequireNumbers(rows, object);
    if (isTable && !name.empty() && columns.size() != 2)
        RefuseMesh(OneLine(word), "one name for several fields",
                   "name one: " + OneLine(name) + "=TABLE.FIELD");
    const std::size_t arrays = isTable ? columns.size() - 1 : 1;
    std::vector<DataColumn> data;
    for (std::size_t i = 0; i < arrays; ++i) data.emplace_back(columns.size() > 1 ? columns[i + 1].type : "");
    std::int64_t count = 0;
    ForEachRow(m_File, rows,
               [&](std::int64_t, std::span<const Value> values)
               {
                   for (std::size_t i = 0; i < values.size(); ++i) data[isTable ? i : 0].Add(values[i]);
                   ++count;
               });
    std::vector<VtuArray>& target = Fitting(word, count, place);
    for (std::size_t i = 0; i < arrays; ++i)
    {
        const std::string own =
            isTable ? columns[i + 1].name : NumberText(std::int64_t{rows.Object().handle.Value()});
        const int components = isTable ? 1 : static_cast<int>(columns.size()) - 1;
        target.push_back(data[i].Take(name.empty() ? own : name, components));
    }
}

VtuGrid MeshReader::Read(const std::vector<std::string>& data)
{
    ReadNodes();
    ReadIds();
    ReadElements();
    for (const std::string& word : data) AddData(word, Place::Fitting);
    if (!m_Mapping.pointData.empty())
        for (const std::string& word : Split(m_Mapping.pointData, ',')) AddData(word, Place::Points);
    if (!m_Mapping.cellData.empty())
        for (const std::string& word : Split(m_Mapping.cellData, ',')) AddData(word, Place::Cells);
    return std::move(m_Grid);
}
} // namespace

VtuGrid ReadMesh(DatabaseFile& file, const MeshMapping& mapping, const std::vector<std::string>& data)
{
    return MeshReader(file, mapping).Read(data);
}
} // namespace rfm_tool
