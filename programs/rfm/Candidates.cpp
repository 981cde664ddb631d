#include "Candidates.h"

#include "DatabaseFile.h"
#include "Selection.h"
#include "Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace rfm_tool
{
namespace
{
using Words = std::vector<std::string>;
using Commands = std::vector<std::unique_ptr<Command>>;

// Where the last word stands in a command's line.
struct Place
{
    const CLI::Option* takes =
        nullptr;     // the argument or the option that takes the word; null when nothing does
    Words arguments; // those before it
};

Words CommandNames(const Commands& commands)
{
    Words names;
    for (const std::unique_ptr<Command>& command : commands) names.emplace_back(command->Name());
    return names;
}

std::vector<const CLI::Option*> Arguments(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

const CLI::Option* ArgumentAt(const CLI::App& app, std::size_t index)
{
    const std::vector<const CLI::Option*> all = Arguments(app);
    if (index < all.size()) return all[index];
    return !all.empty() && all.back()->get_items_expected_max() > 1 ? all.back() : nullptr;
}

Place PlaceOfLast(const CLI::App& app, const Words& words)
{
    Place place;
    const CLI::Option* pending = nullptr;
    for (std::size_t i = 0; i + 1 < words.size(); ++i)
    {
        const bool isValue = pending != nullptr;
        pending = nullptr;
        if (isValue) continue;
        if (!words[i].starts_with('-'))
            place.arguments.push_back(words[i]);
        else if (const CLI::Option* option = app.get_option_no_throw(words[i]);
                 option != nullptr && option->get_items_expected_max() > 0)
            pending = option;
    }
    place.takes = pending != nullptr ? pending : ArgumentAt(app, place.arguments.size());
    return place;
}

Words OptionNames(const CLI::App& app)
{
    Words names;
    for (const CLI::Option* option : app.get_options())
    {
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}

// What stands between the braces of "KIND:{plain,compressed,hdf5}".
Words Choices(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    const std::size_t open = type.find('{');
    const std::size_t close = type.rfind('}');
    if (open == std::string::npos || close == std::string::npos || close < open) return {};
    return Split(type.substr(open + 1, close - open - 1), ',');
}

Words FieldNames(DatabaseFile& file, const std::string& object)
{
    Words names;
    // Several tables may have the name: they have the same fields.
    for (const Field& field : FieldsOf(file, Select(file, {object}).front().object))
        names.push_back(OneLine(field.name));
    return names;
}

// A table goes by its layout, unless an earlier one has that name; everything else by its handle.
Words ObjectNames(DatabaseFile& file)
{
    Words names;
    std::set<std::string> taken;
    for (const rfm_Handle handle : file.Handles())
    {
        const Object object = file.Describe(handle);
        const bool isOfTheLibrary =
            object.kind == Kind::Strings || object.kind == Kind::Layouts || object.kind == Kind::Unused;
        if (isOfTheLibrary) continue;
        const bool hasName = !object.layout.empty() && taken.insert(object.layout).second;
        names.push_back(hasName ? OneLine(object.layout) : fmt::format("{}", handle.Value()));
    }
    return names;
}

Words WithPrefix(const std::string& prefix, Words names)
{
    for (std::string& name : names) name = prefix + name;
    return names;
}

// Behind a point: the fields of the table in front of it.
Words ObjectsOrFields(const std::string& path, const std::string& word)
{
    DatabaseFile file(path);
    const std::size_t point = word.find('.');
    if (point == std::string::npos) return ObjectNames(file);
    return WithPrefix(word.substr(0, point + 1), FieldNames(file, word.substr(0, point)));
}

// Of a list with commas the last name is completed.
Words FieldsOfObject(const Words& arguments, const std::string& word)
{
    if (arguments.size() < 2) return {};
    DatabaseFile file(arguments[0]);
    return WithPrefix(word.substr(0, word.rfind(',') + 1), FieldNames(file, arguments[1]));
}

Words InCommand(Command& command, const Words& words)
{
    CLI::App app;
    app.set_help_flag("-h,--help", "");
    command.Declare(app);
    const std::string& word = words.back();
    const Place place = PlaceOfLast(app, words);
    if (word.starts_with('-')) return OptionNames(app);
    if (place.takes == nullptr) return {};
    const std::string name = place.takes->get_name();
    if (name == "--fields" || name.starts_with("FIELD")) return FieldsOfObject(place.arguments, word);
    if (name.starts_with("OBJECT") && !place.arguments.empty())
        return ObjectsOrFields(place.arguments[0], word);
    return Choices(*place.takes);
}

Words Candidates(const Commands& commands, Words words)
{
    if (words.size() < 2) return CommandNames(commands);
    const auto named = [](std::string_view name)
    {
        return [name](const std::unique_ptr<Command>& command)
        { return command->Name() == name || (!name.empty() && command->OtherName() == name); };
    };
    auto found = std::find_if(commands.begin(), commands.end(), named(words.front()));
    if (found != commands.end())
        words.erase(words.begin());
    else
        found = std::find_if(commands.begin(), commands.end(), named("info")); // a file alone
    return InCommand(**found, words);
}
} // namespace

int PrintCandidates(const Commands& commands, const Words& words, Output& output)
{
    const std::string word = words.empty() ? "" : words.back();
    for (const std::string& candidate : Candidates(commands, words))
        if (candidate.starts_with(word)) output.Line(candidate);
    return ExitDone;
}
} // namespace rfm_tool
