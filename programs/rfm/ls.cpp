#include "ls.h"

#include "DatabaseFile.h"
#include "Text.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class LsCommand : public Command
{
public:
    std::string_view Name() const override { return "ls"; }
    std::string_view Summary() const override { return "the objects of a database by handle"; }
    std::string_view Help() const override
    {
        return "One line for each object: handle, type, rows, columns, layout, bytes in use, bytes reserved, "
               "and\n"
               "into how many extents of the file they are spread.\n"
               "\n"
               "examples:\n"
               "  rfm ls job.rdx\n"
               "  rfm ls job.rdx | sort -t $'\\t' -k 6 -n     smallest first\n"
               "  rfm ls job.rdx --json | jq '.rows[][0]'\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        m_Style.DeclareAll(options);
        options.Add("-a", m_HasOwn, "the library's own objects too: pools and unused handles");
        options.Add("--all", m_All, "all lines, on a terminal in a pager");
    }
    int Run(Output& output) override;

private:
    std::string m_File;
    StyleOptions m_Style;
    bool m_HasOwn = false;
    bool m_All = false;
};

std::vector<Column> Columns()
{
    return {{"handle", "handle", true}, {"type", "string"},      {"rows", "int", true},
            {"columns", "int", true},   {"layout", "string"},    {"bytes", "int", true},
            {"reserved", "int", true},  {"extents", "int", true}};
}

std::vector<Cell> Cells(const Object& object)
{
    const bool hasRows = object.rows.has_value();
    return {Cell::OfInt(object.handle.Value()),
            Cell::OfText(object.TypeWord()),
            hasRows ? Cell::OfInt(*object.rows) : Cell::Absent(),
            hasRows ? Cell::OfInt(object.columns) : Cell::Absent(),
            object.kind == Kind::Table && hasRows ? Cell::OfText(object.layout) : Cell::Absent(),
            Cell::OfInt(object.size),
            Cell::OfInt(object.allocation),
            Cell::OfInt(object.extents)};
}

int LsCommand::Run(Output& output)
{
    DatabaseFile file(m_File);
    int code = ExitDone;
    Screenful screenful(output, m_Style.Choose(output), m_All);
    Listing listing(output, m_Style.Choose(output), Columns(),
                    fmt::format("\"command\":\"ls\",\"file\":{},", TextJson(m_File)));
    for (const rfm_Handle handle : file.Handles())
    {
        const Object object = file.Describe(handle);
        if (object.IsOfTheLibrary() && !m_HasOwn) continue;
        if (screenful.Takes()) listing.Row(Cells(object));
        if (object.damage.empty()) continue;
        Note(fmt::format("{}: handle {}: {}; `rfm check` tells what is damaged", OneLine(m_File),
                         handle.Value(), object.damage));
        code = ExitNo;
    }
    listing.Finish();
    screenful.TellTheRest();
    return code;
}
} // namespace

std::unique_ptr<Command> MakeLs() { return std::make_unique<LsCommand>(); }
} // namespace rfm_tool
