#include "stats.h"

#include "Extremes.h"
#include "RemoteDoor.h"
#include "RowQuery.h"
#include "Text.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class StatsCommand : public Command
{
public:
    std::string_view Name() const override { return "stats"; }
    std::string_view Summary() const override { return "minimum, maximum, mean and presence of each field"; }
    std::string_view Help() const override
    {
        return "A line for each field of a table and for each array as a whole: rows, how many values are "
               "there,\n"
               "and of numbers the least, the greatest and the mean. What is no number (nan) is counted as a "
               "value\n"
               "and left out of these. Without OBJECT all objects are told of.\n"
               "\n"
               "examples:\n"
               "  rfm stats job.rdx NODES\n"
               "  rfm stats job.rdx 'NODES.[xyz]'             coordinates only\n"
               "  rfm stats job.rdx '6.*'                     each element of an array's rows by itself\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        options.Add("OBJECT", m_Objects, "handles, names of tables, TABLE.FIELD; with * ? [a-z]");
        m_Style.DeclareAll(options);
        options.Add("--all", m_All, "all lines, on a terminal in a pager");
    }
    int Run(Output& output) override;

private:
    // False when the object can't be read to its end, which was told.
    bool Tell(DatabaseFile& file, const Selected& selected, Listing& listing, Screenful& screenful) const;

    std::string m_File;
    std::vector<std::string> m_Objects;
    StyleOptions m_Style;
    bool m_All = false;
};

std::vector<Column> Columns()
{
    return {{"handle", "int", true},  {"object", "string"},     {"field", "string"},
            {"type", "string"},       {"rows", "int", true},    {"present", "int", true},
            {"minimum", "any", true}, {"maximum", "any", true}, {"mean", "double", true}};
}

// What is summed up into one line: a field of a table, or the elements of an array's rows together.
struct Line
{
    std::string field;
    std::string type;
    std::vector<int> columns;
    Extremes extremes;
};

std::vector<Line> LinesOf(const RowSource& rows, const Selected& selected)
{
    std::vector<Line> lines;
    std::vector<int> wanted = selected.fields.value_or(std::vector<int>{});
    const bool isWholeArray = selected.object.kind == Kind::Array && !selected.fields;
    if (!selected.fields)
        for (std::size_t i = 0; i < rows.Columns().size(); ++i) wanted.push_back(static_cast<int>(i));
    if (isWholeArray)
    {
        lines.push_back({"", TypeWord(selected.object.elementType), std::move(wanted), {}});
        return lines;
    }
    for (const int column : wanted)
    {
        const Column& named = rows.Columns()[static_cast<std::size_t>(column)];
        lines.push_back({named.name, named.type, {column}, {}});
    }
    return lines;
}

void Write(Listing& listing, const Object& object, std::int64_t rows, const Line& line)
{
    const Extremes& found = line.extremes;
    const std::string name = object.kind == Kind::Table ? object.layout : object.TypeWord();
    const Value values[] = {Value::OfInt(object.handle.Value()),
                            Value::OfText(name),
                            line.field.empty() ? Value() : Value::OfText(line.field),
                            Value::OfText(line.type),
                            Value::OfInt(rows),
                            Value::OfInt(found.Present()),
                            found.Minimum(),
                            found.Maximum(),
                            found.Mean()};
    listing.Row(values);
}

bool StatsCommand::Tell(DatabaseFile& file, const Selected& selected, Listing& listing,
                        Screenful& screenful) const
{
    const Object& object = selected.object;
    std::int64_t count = 0;
    try
    {
        if (!object.damage.empty()) nex_ThrowText(object.damage.c_str());
        const std::unique_ptr<RowSource> rows = OpenRows(file, object);
        std::vector<Line> lines = LinesOf(*rows, selected);
        for (; rows->Next(); ++count)
            for (Line& line : lines)
                for (const int column : line.columns) line.extremes.Add(rows->ValueOf(column));
        for (const Line& line : lines)
            if (screenful.Takes()) Write(listing, object, count, line);
        return true;
    }
    catch (const nex_Exception& cause)
    {
        ThrowIfRemote(m_File, cause);
        Note(fmt::format("{}: handle {}, row {}: {}; `rfm check` tells what is damaged", OneLine(m_File),
                         object.handle.Value(), count, PlainMessage(cause.what())));
        return false;
    }
}

int StatsCommand::Run(Output& output)
{
    DatabaseFile file(m_File);
    const std::vector<Selected> all = Select(file, m_Objects);
    TellOfSemaphore(file, "a change may be counted half done");
    Screenful screenful(output, m_Style.Choose(output), m_All);
    Listing listing(output, m_Style.Choose(output), Columns(),
                    fmt::format("\"command\":\"stats\",\"file\":{},", TextJson(m_File)));
    bool isSound = true;
    for (const Selected& selected : all)
    {
        // Of bytes and of items of many kinds there is nothing to sum up, when nobody asked for them by name.
        const bool hasFields = selected.object.kind == Kind::Table || selected.object.kind == Kind::Array ||
                               selected.object.kind == Kind::Stream;
        if (hasFields || !selected.object.damage.empty())
            isSound = Tell(file, selected, listing, screenful) && isSound;
    }
    listing.Finish();
    screenful.TellTheRest();
    return isSound ? ExitDone : ExitNo;
}
} // namespace

std::unique_ptr<Command> MakeStats() { return std::make_unique<StatsCommand>(); }
} // namespace rfm_tool
