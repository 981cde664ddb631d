#include "Command.h"

#include <CLI/CLI.hpp>

namespace rfm_tool
{
void StyleOptions::DeclareJson(CLI::App& app)
{
    app.add_flag("--json", json, "as JSON, in a shape that stays (docs/cli.md)");
}

void StyleOptions::DeclareAll(CLI::App& app)
{
    DeclareJson(app);
    app.add_flag("--csv", csv, "as CSV")->excludes("--json");
}

Style StyleOptions::Choose(const Output& output) const
{
    if (json) return Style::Json;
    if (csv) return Style::Csv;
    return output.IsTerminal() ? Style::Aligned : Style::Tabs;
}

void DeclareFile(CLI::App& app, std::string& file) { app.add_option("FILE", file, "a database")->required(); }
} // namespace rfm_tool
