#include "schema.h"

#include "Glob.h"
#include "RowSource.h"
#include "Text.h"
#include "rfm_LinkageFormat.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class SchemaCommand : public Command
{
public:
    std::string_view Name() const override { return "schema"; }
    std::string_view Summary() const override { return "the layouts of tables: their fields and types"; }
    std::string_view Help() const override
    {
        return "A line for each field of each layout, in the order in which rows have them. LAYOUT is the "
               "name "
               "of\n"
               "one, or a glob; without it all are shown, also those that no table has.\n"
               "\n"
               "examples:\n"
               "  rfm schema job.rdx\n"
               "  rfm schema job.rdx NODES | cut -f 2            the fields of a layout\n"
               "  diff <(rfm schema old.rdx) <(rfm schema new.rdx)\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        options.Add("LAYOUT", m_Layout, "the name of a layout; with * ? [a-z]");
        m_Style.DeclareAll(options);
        options.Add("--all", m_All, "all lines, on a terminal in a pager");
    }
    int Run(Output& output) override;

private:
    bool Wants(std::string_view layout) const
    {
        return m_Layout.empty() || layout == m_Layout || MatchesGlob(m_Layout, layout);
    }
    void RequireKnown(DatabaseFile& file) const;

    std::string m_File;
    std::string m_Layout;
    StyleOptions m_Style;
    bool m_All = false;
};

void SchemaCommand::RequireKnown(DatabaseFile& file) const
{
    std::vector<std::string> names;
    for (const cow_String& name : file.Database().GetTableMetadataNames())
    {
        if (Wants(name.View())) return;
        names.emplace_back(name.CString());
    }
    if (m_Layout.empty()) return;
    const std::string_view near = NearestName(m_Layout, names);
    throw Failure(ExitMissing, OneLine(m_File), "there is no layout " + OneLine(m_Layout),
                  near.empty() ? "`rfm schema` lists the layouts"
                               : fmt::format("did you mean {}?", OneLine(near)));
}

int SchemaCommand::Run(Output& output)
{
    DatabaseFile file(m_File);
    RequireKnown(file);
    const std::unique_ptr<RowSource> rows = OpenRows(file, file.Describe(rfm_Handle(rfm_MetadataPoolHandle)));
    Screenful screenful(output, m_Style.Choose(output), m_All);
    Listing listing(output, m_Style.Choose(output), rows->Columns(),
                    fmt::format("\"command\":\"schema\",\"file\":{},", TextJson(m_File)));
    while (rows->Next())
    {
        const Value values[] = {rows->ValueOf(0), rows->ValueOf(1), rows->ValueOf(2)};
        if (Wants(values[0].Text()) && screenful.Takes()) listing.Row(values);
    }
    listing.Finish();
    screenful.TellTheRest();
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeSchema() { return std::make_unique<SchemaCommand>(); }
} // namespace rfm_tool
