#include "Selection.h"

#include "Failure.h"
#include "Glob.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace rfm_tool
{
namespace
{
// A handle as a person writes it; nothing for any other word.
std::optional<std::uint32_t> HandleFromWord(std::string_view word)
{
    int base = 10;
    if (word.starts_with("0x") || word.starts_with("0X"))
    {
        base = 16;
        word.remove_prefix(2);
    }
    std::uint32_t value = 0;
    const std::from_chars_result end = std::from_chars(word.data(), word.data() + word.size(), value, base);
    if (word.empty() || end.ec != std::errc() || end.ptr != word.data() + word.size()) return {};
    return value;
}

// Indexes of the fields that one word chooses.
std::vector<int> MatchingFields(const std::vector<Field>& fields, std::string_view word)
{
    std::vector<int> found;
    for (std::size_t i = 0; i < fields.size(); ++i)
        if (fields[i].name == word || (IsGlob(word) && MatchesGlob(word, fields[i].name)))
            found.push_back(static_cast<int>(i));
    return found;
}

void AddFields(std::vector<int>& chosen, const std::vector<int>& more)
{
    for (const int field : more)
        if (std::find(chosen.begin(), chosen.end(), field) == chosen.end()) chosen.push_back(field);
}

std::string ObjectName(const Object& object)
{
    return object.kind == Kind::Table ? "table " + OneLine(object.layout)
                                      : fmt::format("{} {}", object.TypeWord(), object.handle.Value());
}

void RequireSound(const DatabaseFile& file, const Object& object)
{
    if (object.damage.empty()) return;
    throw Failure(ExitUnreadable, fmt::format("{}: handle {}", OneLine(file.Path()), object.handle.Value()),
                  object.damage, "`rfm check` tells what is damaged");
}

// Whether a word that is no handle names an object. The layout of a damaged one is unknown.
bool HasName(const Object& object, std::string_view word)
{
    const bool isTable = object.kind == Kind::Table && object.damage.empty();
    if (isTable && object.layout == word) return true;
    if (!IsGlob(word)) return false;
    return (isTable && MatchesGlob(word, object.layout)) ||
           MatchesGlob(word, NumberText(std::int64_t{object.handle.Value()}));
}

// Finds what words choose in one database. All objects are described when the first name asks for it: a handle alone
// needs only its own.
class Chooser
{
public:
    explicit Chooser(DatabaseFile& file) : m_File(file) {}

    std::vector<Selected> All();
    std::vector<Selected> Choose(const std::string& word);

private:
    const std::vector<Object>& Objects();
    std::vector<Object> Named(std::string_view word);
    Object ByHandle(std::uint32_t value, std::string_view word);
    std::vector<Selected> ChooseFields(std::string_view objects, std::string_view fields);
    [[noreturn]] void ThrowNoObject(std::string_view word);

    DatabaseFile& m_File;
    std::optional<std::vector<Object>> m_Objects; // but the library's own
};

const std::vector<Object>& Chooser::Objects()
{
    if (m_Objects) return *m_Objects;
    m_Objects.emplace();
    for (const rfm_Handle handle : m_File.Handles())
    {
        Object object = m_File.Describe(handle);
        if (!object.IsOfTheLibrary()) m_Objects->push_back(std::move(object));
    }
    return *m_Objects;
}

std::vector<Selected> Chooser::All()
{
    std::vector<Selected> all;
    for (const Object& object : Objects()) all.push_back({object, {}});
    return all;
}

Object Chooser::ByHandle(std::uint32_t value, std::string_view word)
{
    const std::vector<rfm_Handle> handles = m_File.Handles();
    if (!std::binary_search(handles.begin(), handles.end(), rfm_Handle(value)))
        throw Failure(ExitMissing, OneLine(m_File.Path()), "no object has the handle " + OneLine(word),
                      "`rfm ls` lists the handles");
    Object object = m_File.Describe(rfm_Handle(value));
    RequireSound(m_File, object);
    return object;
}

// Empty when nothing has the name.
std::vector<Object> Chooser::Named(std::string_view word)
{
    if (const std::optional<std::uint32_t> value = HandleFromWord(word)) return {ByHandle(*value, word)};
    std::vector<Object> found;
    for (const Object& object : Objects())
        if (HasName(object, word)) found.push_back(object);
    return found;
}

std::vector<Selected> Chooser::Choose(const std::string& word)
{
    std::vector<Selected> chosen;
    for (Object& object : Named(word)) chosen.push_back({std::move(object), {}});
    const std::size_t dot = word.rfind('.');
    if (chosen.empty() && dot != std::string::npos)
        return ChooseFields(std::string_view(word).substr(0, dot), std::string_view(word).substr(dot + 1));
    if (chosen.empty()) ThrowNoObject(word);
    return chosen;
}

std::vector<Selected> Chooser::ChooseFields(std::string_view objects, std::string_view fields)
{
    const std::vector<Object> found = Named(objects);
    if (found.empty()) ThrowNoObject(objects);
    std::vector<Selected> chosen;
    std::vector<std::string> names;
    for (const Object& object : found)
    {
        const std::vector<Field> all = FieldsOf(m_File, object);
        for (const Field& field : all) names.push_back(field.name);
        std::vector<int> indexes = MatchingFields(all, fields);
        if (!indexes.empty()) chosen.push_back({object, std::move(indexes)});
    }
    if (!chosen.empty()) return chosen;
    const std::string_view near = NearestName(fields, names);
    throw Failure(ExitMissing, OneLine(m_File.Path()),
                  fmt::format("{} has no field {}", ObjectName(found.front()), OneLine(fields)),
                  near.empty() ? "`rfm schema` lists the fields"
                               : fmt::format("did you mean {}.{}?", OneLine(objects), OneLine(near)));
}

void Chooser::ThrowNoObject(std::string_view word)
{
    if (IsGlob(word))
        throw Failure(ExitMissing, OneLine(m_File.Path()), "no object fits " + OneLine(word),
                      "`rfm ls` lists the objects");
    std::vector<std::string_view> layouts;
    for (const Object& object : Objects())
        if (object.kind == Kind::Table) layouts.push_back(object.layout);
    const std::string_view near = NearestName(word, layouts);
    throw Failure(ExitMissing, OneLine(m_File.Path()), "no table has the name " + OneLine(word),
                  near.empty() ? "`rfm ls` lists the tables"
                               : fmt::format("did you mean {}?", OneLine(near)));
}

void Merge(std::vector<Selected>& all, Selected more)
{
    const auto known =
        std::find_if(all.begin(), all.end(),
                     [&](const Selected& each) { return each.object.handle == more.object.handle; });
    if (known == all.end())
        all.push_back(std::move(more));
    else if (!more.fields)
        known->fields.reset();
    else if (known->fields)
        AddFields(*known->fields, *more.fields);
}

std::string HandleList(const std::vector<Selected>& chosen)
{
    constexpr std::size_t kShown = 5;
    std::string list;
    for (std::size_t i = 0; i < std::min(kShown, chosen.size()); ++i)
        list += fmt::format("{}{}", i == 0 ? "" : ", ", chosen[i].object.handle.Value());
    return chosen.size() > kShown ? list + ", ..." : list;
}
} // namespace

bool Names(std::string_view word, const Object& object)
{
    const std::optional<std::uint32_t> handle = HandleFromWord(word);
    return handle ? object.handle.Value() == *handle : HasName(object, word);
}

std::vector<Field> FieldsOf(DatabaseFile& file, const Object& object)
{
    std::vector<Field> fields;
    if (object.kind == Kind::Table && object.damage.empty())
    {
        const rfm_TableMetadata& layout = file.Database().GetTableMetadata(object.layout.c_str());
        for (const auto& [name, field] : layout.Fields()) fields.push_back({name.CString(), field.type});
    }
    if (object.kind == Kind::Stream && object.damage.empty())
        fields = {{"type", rfm_TypeString}, {"id", rfm_TypeInt}, {"value", rfm_TypeNone}};
    // Without rows nothing bears out the number that an array's header gives.
    if (object.kind == Kind::Array && object.damage.empty() && object.rows.value_or(0) > 0)
        for (int i = 0; i < object.columns; ++i)
            fields.push_back({NumberText(std::int64_t{i}), object.elementType});
    return fields;
}

std::vector<Selected> Select(DatabaseFile& file, const std::vector<std::string>& words)
{
    Chooser chooser(file);
    if (words.empty()) return chooser.All();
    std::vector<Selected> all;
    for (const std::string& word : words)
        for (Selected& chosen : chooser.Choose(word)) Merge(all, std::move(chosen));
    return all;
}

Selected SelectOne(DatabaseFile& file, const std::string& word)
{
    std::vector<Selected> chosen = Chooser(file).Choose(word);
    if (chosen.size() == 1)
    {
        RequireSound(file, chosen.front().object);
        return std::move(chosen.front());
    }
    throw Failure(ExitUsage, OneLine(file.Path()),
                  fmt::format("{} objects are meant by {}", chosen.size(), OneLine(word)),
                  fmt::format("did you mean one of the handles {}?", HandleList(chosen)));
}

std::vector<int> SelectFields(DatabaseFile& file, const Object& object, const std::string& list)
{
    const std::vector<Field> all = FieldsOf(file, object);
    std::vector<int> chosen;
    for (std::size_t begin = 0; begin <= list.size();)
    {
        const std::size_t end = std::min(list.find(',', begin), list.size());
        const std::string word = list.substr(begin, end - begin);
        const std::vector<int> found = MatchingFields(all, word);
        begin = end + 1;
        AddFields(chosen, found);
        if (!found.empty()) continue;
        std::vector<std::string_view> names;
        names.reserve(all.size());
        for (const Field& field : all) names.push_back(field.name);
        const std::string_view near = NearestName(word, names);
        throw Failure(ExitMissing, OneLine(file.Path()),
                      fmt::format("{} has no field {}", ObjectName(object), OneLine(word)),
                      near.empty() ? "`rfm schema` lists the fields"
                                   : fmt::format("did you mean {}?", OneLine(near)));
    }
    return chosen;
}
} // namespace rfm_tool
