#include "Command.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <limits>

namespace rfm_tool
{
namespace
{
// What the parser itself says of a number out of range is a line of 600 digits.
template <class T> CLI::Validator NotNegative(const char* wanted)
{
    const auto judge = [wanted](std::string& text) -> std::string
    {
        T value{};
        const std::from_chars_result end = std::from_chars(text.data(), text.data() + text.size(), value);
        const bool isNumber = end.ec == std::errc() && end.ptr == text.data() + text.size();
        if (isNumber && value >= 0) return {};
        return text + " is not " + wanted;
    };
    return CLI::Validator(judge, "");
}
} // namespace

void DeclareCount(CLI::App& app, const std::string& name, std::int64_t& value, const std::string& valueName,
                  const std::string& help)
{
    app.add_option(name, value, help)
        ->type_name(valueName)
        ->check(NotNegative<std::int64_t>("a whole number from 0 up"));
}

void DeclareNumber(CLI::App& app, const std::string& name, double& value, const std::string& valueName,
                   const std::string& help)
{
    app.add_option(name, value, help)->type_name(valueName)->check(NotNegative<double>("a number from 0 up"));
}

void DeclareSeconds(CLI::App& app, const std::string& name, double& value, const std::string& help)
{
    app.add_option(name, value, help)->type_name("S")->check(NotNegative<double>("a number of seconds"));
}

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

// Of a screen, the names of the columns, the note behind the rows and the next prompt want a line each.
Screenful::Screenful(Output& output, Style style, bool wantsAll)
    : m_Output(output),
      m_Limit(std::numeric_limits<std::int64_t>::max())
{
    if (style != Style::Aligned) return;
    if (wantsAll)
        output.Page();
    else
        m_Limit = output.ScreenLines() - 3;
}

void Screenful::TellTheRest() const
{
    m_Output.Finish();
    if (m_Count > m_Limit && !m_Output.IsGone())
        Note(fmt::format("there is more: {} lines in all; --all shows it", m_Count));
}

void DeclareFile(CLI::App& app, std::string& file) { app.add_option("FILE", file, "a database")->required(); }
} // namespace rfm_tool
