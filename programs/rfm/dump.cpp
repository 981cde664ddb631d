#include "dump.h"

#include "DatabaseFile.h"
#include "Selection.h"
#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_StringPoolFormat.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace rfm_tool
{
namespace
{
constexpr std::int64_t kAllRows = std::numeric_limits<std::int64_t>::max();
// Rows of an array are read in pieces of about this size.
constexpr std::int64_t kPieceBytes = 262144;
constexpr int kReadAhead = 256;
constexpr int kSpaceBytesPerRow = 16;

/// The rows of one object that were asked for, one way of reading for each kind of object.
class DumpCommand : public Command
{
public:
    std::string_view Name() const override { return "dump"; }
    std::string_view Summary() const override
    {
        return "the rows of a table, slices of an array, items of a stream";
    }
    std::string_view Help() const override
    {
        return "OBJECT is a handle, as `rfm ls` shows it (decimal, or hexadecimal after 0x), or the layout "
               "of a\n"
               "table: the first table that has it. On a terminal one screen is shown; everywhere else all\n"
               "rows, with tabs between the cells. A field without data is empty, null in JSON. A plain "
               "space\n"
               "is shown as bytes.\n"
               "\n"
               "examples:\n"
               "  rfm dump job.rdx NODES\n"
               "  rfm dump job.rdx 9 --from 100 -n 10        rows 100 to 109\n"
               "  rfm dump job.rdx NODES --csv > nodes.csv\n";
    }
    void Declare(CLI::App& app) override
    {
        DeclareFile(app, m_File);
        app.add_option("OBJECT", m_Object, "a handle, or the layout of a table")->required();
        m_Style.DeclareAll(app);
        DeclareCount(app, "-n", m_Count, "N", "at most this many rows");
        DeclareCount(app, "--from", m_From, "ROW", "the first row to show, from 0");
        app.add_flag("-a,--all", m_All, "all rows, on a terminal too")->excludes("-n");
    }
    int Run(Output& output) override;

private:
    bool Wants(std::int64_t row) const { return row < m_End && !m_Output->IsGone(); }
    Listing Begin(const Object& object, std::vector<Column> columns);
    void DumpTable(DatabaseFile& file, const Object& object);
    void DumpArray(DatabaseFile& file, const Object& object);
    template <class Array> void DumpElements(Array array, const Object& object);
    void DumpStream(DatabaseFile& file, const Object& object);
    void DumpStrings(DatabaseFile& file, const Object& object);
    void DumpLayouts(DatabaseFile& file, const Object& object);
    void DumpSpace(DatabaseFile& file, const Object& object);
    void DumpByKind(DatabaseFile& file, const Object& object);
    void TellTheRest(const Object& object) const;

    std::string m_File;
    std::string m_Object;
    StyleOptions m_Style;
    std::int64_t m_Count = -1; // not given
    std::int64_t m_From = 0;
    bool m_All = false;

    Output* m_Output = nullptr;
    std::int64_t m_End = kAllRows; // the first row that is not shown
    std::int64_t m_Next = 0;       // the row behind the last that was written
    bool m_HasMore = false;
    bool m_WasCut = false;
};

Cell ElementCell(int value) { return Cell::OfInt(value); }
Cell ElementCell(float value) { return Cell::OfFloat(value); }
Cell ElementCell(double value) { return Cell::OfDouble(value); }
Cell ElementCell(const cow_String& value) { return Cell::OfText(value.View()); }

Cell FieldCell(const rfm_Row& row, const rfm_FieldMetadata& field)
{
    const rfm_FieldHandle handle(field.index);
    if (row.DataIsPresent(handle) == 0) return Cell::Absent();
    switch (field.type)
    {
    case rfm_TypeInt: return Cell::OfInt(row.ReadFieldInt(handle));
    case rfm_TypeHandle: return Cell::OfInt(row.ReadFieldHandle(handle).Value());
    case rfm_TypeFloat: return Cell::OfFloat(row.ReadFieldFloat(handle));
    case rfm_TypeDouble: return Cell::OfDouble(row.ReadFieldDouble(handle));
    case rfm_TypeString: return Cell::OfText(row.ReadFieldString(handle).View());
    default: return Cell::Absent();
    }
}

Cell ItemCell(const rfm_TaggedStream& stream)
{
    switch (stream.GetType())
    {
    case rfm_TypeInt: return Cell::OfInt(stream.GetInt());
    case rfm_TypeHandle: return Cell::OfInt(stream.GetHandle().Value());
    case rfm_TypeFloat: return Cell::OfFloat(stream.GetFloat());
    case rfm_TypeDouble: return Cell::OfDouble(stream.GetDouble());
    default: return Cell::OfText(stream.GetString().View());
    }
}

bool IsNumber(int type) { return type != rfm_TypeString && type != rfm_TypeFixedString; }

Listing DumpCommand::Begin(const Object& object, std::vector<Column> columns)
{
    std::string head = fmt::format("\"command\":\"dump\",\"file\":{},\"handle\":{},\"type\":\"{}\",",
                                   TextJson(m_File), object.handle.Value(), object.TypeWord());
    if (object.kind == Kind::Table) head += fmt::format("\"layout\":{},", TextJson(object.layout));
    columns.insert(columns.begin(),
                   {object.kind == Kind::Strings || object.kind == Kind::Space || object.kind == Kind::Unused
                        ? "offset"
                        : "row",
                    "int", true});
    return {*m_Output, m_Style.Choose(*m_Output), std::move(columns), head};
}

void DumpCommand::DumpTable(DatabaseFile& file, const Object& object)
{
    rfm_Table table = file.Database().Table(object.handle, -1, kReadAhead);
    std::vector<rfm_FieldMetadata> fields;
    std::vector<Column> columns;
    for (const auto& [name, field] : table.TableMetadata().Fields())
    {
        fields.push_back(field);
        columns.push_back({name.CString(), TypeWord(field.type), IsNumber(field.type)});
    }
    Listing listing = Begin(object, std::move(columns));
    const std::int64_t length = table.Length();
    for (m_Next = m_From; m_Next < length && Wants(m_Next); ++m_Next)
    {
        const rfm_Row row = table.ReadRow(static_cast<int>(m_Next));
        std::vector<Cell> cells{Cell::OfInt(m_Next)};
        for (const rfm_FieldMetadata& field : fields) cells.push_back(FieldCell(row, field));
        listing.Row(std::move(cells));
    }
    m_HasMore = m_Next < length;
    listing.Finish();
    m_WasCut = listing.WasCut();
}

void DumpCommand::DumpArray(DatabaseFile& file, const Object& object)
{
    rfm_Database& database = file.Database();
    switch (object.elementType)
    {
    case rfm_TypeInt: return DumpElements(database.ArrayInt(object.handle, -1, 0), object);
    case rfm_TypeFloat: return DumpElements(database.ArrayFloat(object.handle, -1, 0), object);
    case rfm_TypeDouble: return DumpElements(database.ArrayDouble(object.handle, -1, 0), object);
    default: return DumpElements(database.ArrayString(object.handle, -1, 0), object);
    }
}

template <class T, int N> T ElementOf(const rfm_Array<T, N>&);

// A last row of which only a part is there shows that part, and nothing for the rest.
template <class Array> void DumpCommand::DumpElements(Array array, const Object& object)
{
    const std::size_t width = static_cast<std::size_t>(object.columns);
    const std::string type = TypeWord(object.elementType);
    const std::int64_t length = array.Length();
    std::vector<Column> columns;
    for (std::size_t i = 0; length > 0 && i < width; ++i)
        columns.push_back({fmt::format("{}", i), type, IsNumber(object.elementType)});
    Listing listing = Begin(object, std::move(columns));
    const std::int64_t pieceRows = std::max<std::int64_t>(kPieceBytes / std::max(object.rowBytes, 1), 1);
    std::vector<decltype(ElementOf(array))> elements;
    m_Next = m_From;
    if (m_Next < length) array.Seek(static_cast<int>(m_Next));
    while (m_Next < length && Wants(m_Next))
    {
        const std::int64_t rows = std::min({pieceRows, length - m_Next, m_End - m_Next});
        elements.resize(static_cast<std::size_t>(rows) * width);
        const std::size_t read =
            static_cast<std::size_t>(std::max(array.Read(elements.data(), static_cast<int>(rows)), 0));
        for (std::int64_t i = 0; i < rows; ++i, ++m_Next)
        {
            std::vector<Cell> cells{Cell::OfInt(m_Next)};
            for (std::size_t element = static_cast<std::size_t>(i) * width, column = 0; column < width;
                 ++column, ++element)
                cells.push_back(element < read ? ElementCell(elements[element]) : Cell::Absent());
            listing.Row(std::move(cells));
        }
    }
    m_HasMore = m_Next < length;
    listing.Finish();
    m_WasCut = listing.WasCut();
}

void DumpCommand::DumpStream(DatabaseFile& file, const Object& object)
{
    const rfm_TaggedStream stream = file.Database().TaggedStream(object.handle, 0);
    Listing listing = Begin(object, {{"type", "string"}, {"id", "int", true}, {"value", "any"}});
    for (m_Next = 0; !m_HasMore && stream.Next();)
    {
        if (m_Next < m_From)
        {
            ++m_Next;
            continue;
        }
        m_HasMore = !Wants(m_Next);
        if (m_HasMore) break;
        listing.Row({Cell::OfInt(m_Next), Cell::OfText(TypeWord(stream.GetType())),
                     Cell::OfInt(stream.GetID()), ItemCell(stream)});
        ++m_Next;
    }
    listing.Finish();
    m_WasCut = listing.WasCut();
}

// Rows of the pool of strings are its records; each text stands under the offset by which it is referred to.
void DumpCommand::DumpStrings(DatabaseFile& file, const Object& object)
{
    rfm_BufferedSpace space(file.Database().Space(object.handle, -1));
    Listing listing = Begin(object, {{"text", "string"}});
    std::string text;
    std::int64_t offset = rfm_StringPoolFirstRecord;
    for (m_Next = 0; offset < object.size; ++m_Next)
    {
        m_HasMore = !Wants(m_Next);
        if (m_HasMore) break;
        int length = 0;
        space.Seek(offset);
        // The pool was judged when the database was opened: records fit.
        space.ReadIntArray(&length, 1);
        text.resize(static_cast<std::size_t>(length));
        if (m_Next >= m_From)
        {
            if (length > 0) space.Read(text.data(), length);
            listing.Row({Cell::OfInt(offset), Cell::OfText(text)});
        }
        offset += rfm_StringRecordBytes(length);
    }
    listing.Finish();
    m_WasCut = listing.WasCut();
}

void DumpCommand::DumpLayouts(DatabaseFile& file, const Object& object)
{
    Listing listing = Begin(object, {{"layout", "string"}, {"field", "string"}, {"type", "string"}});
    m_Next = 0;
    for (const cow_String& name : file.Database().GetTableMetadataNames())
        for (const auto& [fieldName, field] : file.Database().GetTableMetadata(name).Fields())
        {
            m_HasMore = m_HasMore || !Wants(m_Next);
            if (m_HasMore) continue;
            if (m_Next >= m_From)
                listing.Row({Cell::OfInt(m_Next), Cell::OfText(name.View()), Cell::OfText(fieldName.View()),
                             Cell::OfText(TypeWord(field.type))});
            ++m_Next;
        }
    listing.Finish();
    m_WasCut = listing.WasCut();
}

void DumpCommand::DumpSpace(DatabaseFile& file, const Object& object)
{
    rfm_BufferedSpace space(file.Database().Space(object.handle, -1));
    Listing listing = Begin(object, {{"bytes", "string"}, {"text", "string"}});
    const std::int64_t rows = (object.size + kSpaceBytesPerRow - 1) / kSpaceBytesPerRow;
    for (m_Next = m_From; m_Next < rows && Wants(m_Next); ++m_Next)
    {
        char bytes[kSpaceBytesPerRow];
        space.Seek(m_Next * kSpaceBytesPerRow);
        const int read = space.Read(bytes, kSpaceBytesPerRow);
        std::string hex;
        std::string text;
        for (int i = 0; i < read; ++i)
        {
            hex += fmt::format("{}{:02x}", i == 0 ? "" : " ", static_cast<unsigned char>(bytes[i]));
            text += bytes[i] >= ' ' && bytes[i] <= '~' ? bytes[i] : '.';
        }
        listing.Row({Cell::OfInt(m_Next * kSpaceBytesPerRow), Cell::OfText(hex), Cell::OfText(text)});
    }
    m_HasMore = m_Next < rows;
    listing.Finish();
    m_WasCut = listing.WasCut();
}

void DumpCommand::DumpByKind(DatabaseFile& file, const Object& object)
{
    switch (object.kind)
    {
    case Kind::Table: return DumpTable(file, object);
    case Kind::Array: return DumpArray(file, object);
    case Kind::Stream: return DumpStream(file, object);
    case Kind::Strings: return DumpStrings(file, object);
    case Kind::Layouts: return DumpLayouts(file, object);
    case Kind::Unused:
    case Kind::Space: return DumpSpace(file, object);
    }
}

void DumpCommand::TellTheRest(const Object& object) const
{
    if (m_HasMore && m_Count < 0)
        Note(fmt::format("there is more{}; --all shows it, --from {} goes on",
                         object.rows ? fmt::format(": {} rows in all", *object.rows) : "", m_Next));
    if (m_WasCut) Note("lines that end with > are cut at the width of the screen; --csv has them whole");
}

int DumpCommand::Run(Output& output)
{
    DatabaseFile file(m_File);
    const Object object = SelectOne(file, m_Object).object;
    TellOfSemaphore(m_File, "a change may be shown half done");
    m_Output = &output;
    const bool isScreen = m_Style.Choose(output) == Style::Aligned && !m_All;
    // Of a screen, the names of the columns, the note behind the rows and the next prompt want a line each.
    if (m_Count < 0 && isScreen) m_End = std::max(output.ScreenLines() - 3, 1);
    if (m_Count >= 0) m_End = m_Count;
    m_End = m_From > kAllRows - m_End ? kAllRows : m_From + m_End;
    try
    {
        DumpByKind(file, object);
    }
    catch (const nex_Exception& cause)
    {
        throw Failure(ExitUnreadable,
                      fmt::format("{}: handle {}, row {}", OneLine(m_File), object.handle.Value(), m_Next),
                      PlainMessage(cause.what()), "`rfm check` tells what is damaged");
    }
    output.Flush();
    if (!output.IsGone()) TellTheRest(object);
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeDump() { return std::make_unique<DumpCommand>(); }
} // namespace rfm_tool
