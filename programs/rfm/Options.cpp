#include "Options.h"

#include "Text.h"

#include <algorithm>
#include <utility>

namespace rfm_tool
{
namespace
{
// "csv, npy or vtu".
std::string Alternatives(const std::vector<std::string>& words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
    {
        if (i > 0) text += i + 1 == words.size() ? " or " : ", ";
        text += words[i];
    }
    return text;
}
} // namespace

Option& Option::Required()
{
    isRequired = true;
    return *this;
}

Option& Option::ValueName(std::string_view name)
{
    valueName = name;
    return *this;
}

Option& Option::Excludes(std::string_view name)
{
    excluded = name;
    return *this;
}

Option& Option::Choices(std::vector<std::string> words)
{
    choices = std::move(words);
    return *this;
}

Option& Option::Check(Judge judgeOfValues)
{
    judge = std::move(judgeOfValues);
    return *this;
}

Option& Option::NamesNewFile()
{
    return Check([](const std::string& text) -> std::string
                 { return text == "-" ? "it can't be standard output; give the name of a file" : ""; });
}

Option& Option::OneOf(std::vector<std::string> words)
{
    Check(
        [words](const std::string& text) -> std::string
        {
            const bool isKnown = std::find(words.begin(), words.end(), text) != words.end();
            return isKnown ? "" : text + " is not " + Alternatives(words);
        });
    return Choices(std::move(words));
}

std::vector<const Option*> Options::Arguments() const
{
    std::vector<const Option*> arguments;
    for (const Option& option : m_All)
        if (option.IsArgument()) arguments.push_back(&option);
    return arguments;
}

std::vector<std::string> Options::Names() const
{
    std::vector<std::string> names{"-h", "--help"};
    for (const Option& option : m_All)
        if (!option.IsArgument()) names.insert(names.end(), option.names.begin(), option.names.end());
    return names;
}

const Option* Options::Find(std::string_view name) const
{
    const auto found = std::find_if(
        m_All.begin(), m_All.end(),
        [&](const Option& option)
        { return std::find(option.names.begin(), option.names.end(), name) != option.names.end(); });
    return found == m_All.end() ? nullptr : &*found;
}

Option& Options::AddOption(std::string_view names, Option::Target target, std::string_view help)
{
    Option option;
    option.names = Split(names, ',');
    option.target = target;
    option.help = help;
    return m_All.emplace_back(std::move(option));
}
} // namespace rfm_tool
