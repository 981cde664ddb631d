#include "Command.h"

#include <fmt/format.h>

#include <charconv>
#include <limits>

namespace rfm_tool
{
namespace
{
// What the parser itself says of a number out of range is a line of 600 digits.
template <class T> Option::Judge NotNegative(const char* wanted)
{
    return [wanted](const std::string& text) -> std::string
    {
        T value{};
        const std::from_chars_result end = std::from_chars(text.data(), text.data() + text.size(), value);
        const bool isNumber = end.ec == std::errc() && end.ptr == text.data() + text.size();
        if (isNumber && value >= 0) return {};
        return text + " is not " + wanted;
    };
}
} // namespace

void DeclareCount(Options& options, const std::string& name, std::int64_t& value,
                  const std::string& valueName, const std::string& help)
{
    options.Add(name, value, help)
        .ValueName(valueName)
        .Check(NotNegative<std::int64_t>("a whole number from 0 up"));
}

void DeclareNumber(Options& options, const std::string& name, double& value, const std::string& valueName,
                   const std::string& help)
{
    options.Add(name, value, help).ValueName(valueName).Check(NotNegative<double>("a number from 0 up"));
}

void DeclareSeconds(Options& options, const std::string& name, double& value, const std::string& help)
{
    options.Add(name, value, help).ValueName("S").Check(NotNegative<double>("a number of seconds"));
}

void StyleOptions::DeclareJson(Options& options)
{
    options.Add("--json", json, "as JSON, in a shape that stays (docs/cli.md)");
}

void StyleOptions::DeclareAll(Options& options)
{
    DeclareJson(options);
    options.Add("--csv", csv, "as CSV").Excludes("--json");
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

void DeclareFile(Options& options, std::string& file) { options.Add("FILE", file, "a database").Required(); }
} // namespace rfm_tool
