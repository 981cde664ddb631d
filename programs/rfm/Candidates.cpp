#include "Candidates.h"

#include "DatabaseFile.h"
#include "Selection.h"
#include "Text.h"

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
    const Option* takes = nullptr; // the argument or the option that takes the word; null when nothing does
    Words arguments;               // those before it
};

Words CommandNames(const Commands& commands)
{
    Words names;
    for (const std::unique_ptr<Command>& command : commands) names.emplace_back(command->Name());
    return names;
}

const Option* ArgumentAt(const Options& options, std::size_t index)
{
    const std::vector<const Option*> all = options.Arguments();
    if (index < all.size()) return all[index];
    return !all.empty() && all.back()->IsList() ? all.back() : nullptr;
}

Place PlaceOfLast(const Options& options, const Words& words)
{
    Place place;
    const Option* pending = nullptr;
    for (std::size_t i = 0; i + 1 < words.size(); ++i)
    {
        const bool isValue = pending != nullptr;
        pending = nullptr;
        if (isValue) continue;
        if (!words[i].starts_with('-'))
            place.arguments.push_back(words[i]);
        else if (const Option* option = options.Find(words[i]); option != nullptr && !option->IsFlag())
            pending = option;
    }
    place.takes = pending != nullptr ? pending : ArgumentAt(options, place.arguments.size());
    return place;
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
    for (std::string& name : names) name.insert(0, prefix);
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
    Options options;
    command.Declare(options);
    const std::string& word = words.back();
    const Place place = PlaceOfLast(options, words);
    if (word.starts_with('-')) return options.Names();
    if (place.takes == nullptr) return {};
    const std::string& name = place.takes->Name();
    if (name == "--fields" || name.starts_with("FIELD")) return FieldsOfObject(place.arguments, word);
    if (name.starts_with("OBJECT") && !place.arguments.empty())
        return ObjectsOrFields(place.arguments[0], word);
    return place.takes->choices;
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
