#include "OptionParser.h"

#include "Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <type_traits>

namespace rfm_tool
{
namespace
{
// What the command does and its examples come first, then its options.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode mode) const override
    {
        return app->get_description() + make_groups(app, mode);
    }
    // The name of the value alone: what it may be, and with what, the words beside it and the refusals tell.
    std::string make_option_opts(const CLI::Option* option) const override
    {
        return option->get_items_expected_max() == 0
                   ? ""
                   : " " + option->get_type_name().substr(0, option->get_type_name().find(':'));
    }
};

CLI::Option* AddValue(CLI::App& app, const Option& option)
{
    const std::string names = fmt::format("{}", fmt::join(option.names, ","));
    return std::visit(
        [&](auto* value)
        {
            if constexpr (std::is_same_v<decltype(value), bool*>)
                return app.add_flag(names, *value, option.help);
            else
                return app.add_option(names, *value, option.help);
        },
        option.target);
}

// Refusals show the choices behind the name of the value.
std::string TypeName(const Option& option)
{
    if (option.choices.empty()) return option.valueName;
    return fmt::format("{}:{{{}}}", option.valueName, fmt::join(option.choices, ","));
}

void Add(CLI::App& app, const Option& option)
{
    CLI::Option* added = AddValue(app, option);
    if (!option.IsFlag()) added->type_name(TypeName(option));
    if (option.IsList() && !option.IsArgument()) added->expected(1)->take_all();
    if (option.isRequired) added->required();
    if (!option.excluded.empty()) added->excludes(option.excluded);
    // It would pass for an option that was not given: a script's variable may be empty.
    if (!option.IsFlag() && !option.IsArgument())
        added->check(CLI::Validator([](const std::string& text) -> std::string
                                    { return text.empty() ? "its value is empty" : ""; },
                                    ""));
    if (option.judge)
        added->check(CLI::Validator([judge = option.judge](std::string& text) { return judge(text); }, ""));
}

// "FILE", "[NAME]", "OBJECT...", "[OBJECT...]".
std::string ArgumentInUsage(const Option& argument)
{
    const std::string name = argument.Name() + (argument.IsList() ? "..." : "");
    return argument.isRequired ? name : fmt::format("[{}]", name);
}

std::string UsageLine(const Command& command, const Options& options)
{
    std::string line = fmt::format("usage: rfm {}", command.Name());
    for (const Option* argument : options.Arguments()) line += " " + ArgumentInUsage(*argument);
    for (const Option& option : options.All())
        if (option.isRequired && !option.IsArgument())
            line += fmt::format(" {} {}", option.Name(), option.valueName);
    return line + " [OPTIONS]";
}

// The first word that the parser could not place: an option that there isn't, or an argument too many.
[[noreturn]] void RefuseExtra(const Command& command, const Options& options,
                              const std::vector<std::string>& words)
{
    const std::string remedy = fmt::format("`rfm {} --help` shows how", command.Name());
    const auto option =
        std::find_if(words.begin(), words.end(),
                     [](const std::string& word) { return word.size() > 1 && word.starts_with('-'); });
    if (option == words.end())
        throw Failure(ExitUsage, std::string(command.Name()),
                      OneLine(words.front()) + " is one word too many", remedy);
    std::vector<std::string> names = options.Names();
    std::erase_if(names, [](const std::string& name) { return !name.starts_with("--"); });
    const std::string_view near = NearestName(option->substr(0, option->find('=')), names);
    throw Failure(ExitUsage, std::string(command.Name()), OneLine(*option) + ": there is no such option",
                  near.empty() ? remedy : fmt::format("did you mean {}?", near));
}
} // namespace

std::optional<std::string> ReadLine(const Command& command, const Options& options,
                                    std::vector<std::string> words)
{
    CLI::App app;
    app.name(std::string(command.Name()));
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_help_flag("-h,--help", "this text");
    for (const Option& option : options.All()) Add(app, option);
    app.description(fmt::format("rfm {}: {}\n\n{}\n{}\n", command.Name(), command.Summary(), command.Help(),
                                UsageLine(command, options)));
    // The parser takes words from the end of its list.
    std::reverse(words.begin(), words.end());
    try
    {
        app.parse(std::move(words));
    }
    catch (const CLI::CallForHelp&)
    {
        return app.help();
    }
    catch (const CLI::ExtrasError&)
    {
        RefuseExtra(command, options, app.remaining());
    }
    catch (const CLI::ParseError& error)
    {
        throw Failure(ExitUsage, std::string(command.Name()), PlainMessage(error.what()),
                      fmt::format("`rfm {} --help` shows how", command.Name()));
    }
    return std::nullopt;
}
} // namespace rfm_tool
