#include "value.h"

#include "RowQuery.h"
#include "Text.h"

#include <fmt/format.h>

#include <charconv>

namespace rfm_tool
{
namespace
{
class ValueCommand : public Command
{
public:
    std::string_view Name() const override { return "value"; }
    std::string_view Summary() const override { return "one bare value, for scripts"; }
    std::string_view Help() const override
    {
        return "OBJECT names a field: TABLE.FIELD, ARRAY.ELEMENT, or an object that has only one; --fields "
               "does, too.\n"
               "The row is the first, the one that --row gives, or the first for which --where holds. The "
               "exit "
               "code\n"
               "is 1 when there is no such row, or no data in it.\n"
               "\n"
               "examples:\n"
               "  rfm value job.rdx STEPS.time --row -1               of the last row\n"
               "  rfm value job.rdx NODES.x --where 'id == 17'\n"
               "  test \"$(rfm value job.rdx JOB.state)\" = done\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        m_Query.Declare(options);
        m_Style.DeclareJson(options);
        options.Add("--row", m_Row, "the row, from 0; from the end below 0, the last is -1")
            .ValueName("ROW")
            .Excludes("--where");
    }
    int Run(Output& output) override;

private:
    bool GoToRow(QueriedRows& rows) const;
    void Write(Output& output, const QueriedRows& rows, std::int64_t row, const Value& value) const;

    std::string m_File;
    RowQuery m_Query;
    StyleOptions m_Style;
    std::int64_t m_Row = 0;
};

std::int64_t RowCount(QueriedRows& rows)
{
    if (const std::optional<std::int64_t> length = rows.Source().Length()) return *length;
    std::int64_t count = 0;
    while (rows.Source().Next()) ++count;
    return count;
}

bool ValueCommand::GoToRow(QueriedRows& rows) const
{
    const std::int64_t row = m_Row < 0 ? RowCount(rows) + m_Row : m_Row;
    if (row < 0) return false;
    if (m_Row != 0) rows.Seek(row);
    return rows.Next();
}

// A text goes out byte by byte: whoever asked for the bare value wants these. A terminal must not obey them.
void ValueCommand::Write(Output& output, const QueriedRows& rows, std::int64_t row, const Value& value) const
{
    if (m_Style.json)
        output.Line(fmt::format(
            "{{\"rfm\":1,\"command\":\"value\",\"file\":{},\"handle\":{},\"row\":{},\"value\":{}}}",
            TextJson(m_File), rows.Object().handle.Value(), row, JsonOf(value)));
    else if (value.IsText())
        output.Line(output.IsTerminal() ? OneLine(value.Text()) : value.Text());
    else
        output.Line(TextOf(value));
}

int ValueCommand::Run(Output& output)
{
    DatabaseFile file(m_File);
    QueriedRows rows(file, m_Query);
    TellOfSemaphore(file, "a change may be shown half done");
    const std::size_t fields = rows.Fields().size();
    if (fields != 1 && rows.Source().Length() != 0)
        throw Failure(ExitUsage, OneLine(m_Query.object),
                      fmt::format("has {} fields, and a value is of one", fields),
                      "give one, as in TABLE.FIELD; `rfm schema` lists them");
    bool isThere = false;
    bool hasData = false;
    ReadRows(file, rows,
             [&]
             {
                 isThere = fields == 1 && GoToRow(rows);
                 if (!isThere) return;
                 const Value value = rows.Values().back();
                 hasData = !value.IsAbsent();
                 if (hasData) Write(output, rows, rows.Source().Row(), value);
             });
    if (hasData) return ExitDone;
    const std::string what = fmt::format("{}: {}", OneLine(m_File), OneLine(m_Query.object));
    if (!isThere && !rows.IsWhole())
        throw Failure(ExitNo, what, "no row fits", "`rfm stats` tells which values there are");
    if (!isThere) throw Failure(ExitNo, what, "there is no such row", "`rfm ls` tells how many there are");
    throw Failure(ExitNo, what, fmt::format("row {} has no data there", rows.Source().Row()),
                  "`present(FIELD)` in --where finds rows that have");
}
} // namespace

std::unique_ptr<Command> MakeValue() { return std::make_unique<ValueCommand>(); }
} // namespace rfm_tool
