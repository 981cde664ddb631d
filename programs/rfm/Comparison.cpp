#include "Comparison.h"

#include "Failure.h"
#include "Glob.h"
#include "Text.h"
#include "rfm_LinkageFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <unordered_map>

namespace rfm_tool
{
namespace
{
constexpr std::int64_t kPieceBytes = 262144;
constexpr int kReadAhead = 256;
constexpr std::int64_t kShownBytes = 8;

using HandleMap = std::unordered_map<std::uint32_t, std::uint32_t>;

SideValue Nothing() { return {"no data", "null"}; }
SideValue Row(const std::string& text) { return {text, TextJson(text)}; }

SideValue SideOf(std::int64_t value) { return {NumberText(value), NumberText(value)}; }
SideValue SideOf(int value) { return SideOf(std::int64_t{value}); }
SideValue SideOf(float value) { return {NumberText(value), NumberJson(value)}; }
SideValue SideOf(double value) { return {NumberText(value), NumberJson(value)}; }
SideValue SideOf(rfm_Handle value) { return SideOf(std::int64_t{value.Value()}); }
SideValue SideOf(const cow_String& value)
{
    return {'"' + OneLine(value.View()) + '"', TextJson(value.View())};
}

/// Whether two values are the same for the user's purpose, and how far apart they are when they are numbers.
class Judge
{
public:
    Judge(const ComparisonOptions& options, const HandleMap& pairs) : m_Options(options), m_Pairs(pairs) {}

    bool Same(double a, double b) const
    {
        if (a == b || (std::isnan(a) && std::isnan(b))) return true;
        const double most = std::max(std::fabs(a), std::fabs(b));
        // Neither is near an infinite one, however large the tolerance.
        return std::isfinite(most) && std::isfinite(a) && std::isfinite(b) &&
               std::fabs(a - b) <= m_Options.absolute + m_Options.relative * most;
    }
    bool Same(float a, float b) const { return Same(double{a}, double{b}); }
    bool Same(int a, int b) const { return a == b; }
    bool Same(const cow_String& a, const cow_String& b) const { return a.View() == b.View(); }
    // Handles are the same when they name a pair, or when neither names anything.
    bool Same(rfm_Handle a, rfm_Handle b) const
    {
        const auto pair = m_Pairs.find(a.Value());
        return pair == m_Pairs.end() ? a == b : pair->second == b.Value();
    }

    static std::optional<double> Distance(double a, double b)
    {
        const double distance = std::fabs(a - b);
        return std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
    }
    static std::optional<double> Distance(float a, float b) { return Distance(double{a}, double{b}); }
    static std::optional<double> Distance(int a, int b) { return Distance(double(a), double(b)); }
    static std::optional<double> Distance(rfm_Handle, rfm_Handle) { return {}; }
    static std::optional<double> Distance(const cow_String&, const cow_String&) { return {}; }

private:
    const ComparisonOptions& m_Options;
    const HandleMap& m_Pairs;
};

// What two objects must share to be a pair.
std::string SortKey(const Object& object)
{
    return fmt::format("{} {} {} {}", static_cast<int>(object.kind), static_cast<int>(object.elementType),
                       object.kind == Kind::Array ? object.columns : 0, object.layout);
}

std::vector<Object> ObjectsOf(DatabaseFile& file)
{
    std::vector<Object> objects;
    for (const rfm_Handle handle : file.Handles())
    {
        if (handle.Value() <= rfm_MetadataPoolHandle) continue;
        Object object = file.Describe(handle);
        if (!object.damage.empty())
            throw Failure(ExitUnreadable, fmt::format("{}: handle {}", OneLine(file.Path()), handle.Value()),
                          object.damage, "`rfm check` tells what is damaged");
        objects.push_back(std::move(object));
    }
    return objects;
}

struct Paired
{
    std::vector<std::pair<const Object*, const Object*>> pairs; // in the order of A
    std::set<std::uint32_t> ofB;                                // handles that have a pair
};

Paired PairByHandle(const std::vector<Object>& a, const std::vector<Object>& b)
{
    Paired paired;
    std::unordered_map<std::uint32_t, const Object*> byHandle;
    for (const Object& object : b) byHandle[object.handle.Value()] = &object;
    for (const Object& object : a)
    {
        const auto other = byHandle.find(object.handle.Value());
        if (other == byHandle.end() || SortKey(*other->second) != SortKey(object)) continue;
        paired.pairs.emplace_back(&object, other->second);
        paired.ofB.insert(object.handle.Value());
    }
    return paired;
}

Paired PairByOrder(const std::vector<Object>& a, const std::vector<Object>& b)
{
    Paired paired;
    std::map<std::string, std::vector<const Object*>> bySort;
    for (const Object& object : b) bySort[SortKey(object)].push_back(&object);
    std::map<std::string, std::size_t> taken;
    for (const Object& object : a)
    {
        const std::string sort = SortKey(object);
        const std::vector<const Object*>& others = bySort[sort];
        std::size_t& next = taken[sort];
        if (next == others.size()) continue;
        paired.pairs.emplace_back(&object, others[next]);
        paired.ofB.insert(others[next++]->handle.Value());
    }
    return paired;
}

Paired PairUp(const std::vector<Object>& a, const std::vector<Object>& b, Pairing pairing)
{
    if (pairing == Pairing::ByOrder) return PairByOrder(a, b);
    Paired paired = PairByHandle(a, b);
    const bool isAllOfOne = paired.pairs.size() == a.size() || paired.pairs.size() == b.size();
    return isAllOfOne || pairing == Pairing::ByHandle ? paired : PairByOrder(a, b);
}

/// A field that both tables have, with its number in each.
struct CommonField
{
    std::string name;
    int type = 0;
    rfm_FieldHandle a;
    rfm_FieldHandle b;
};

const rfm_FieldMetadata* FindField(const rfm_TableMetadata& layout, const std::string& name)
{
    for (const auto& [each, field] : layout.Fields())
        if (each.View() == name) return &field;
    return nullptr;
}

/// The comparison of two databases.
class Comparison
{
public:
    Comparison(DatabaseFile& a, DatabaseFile& b, const ComparisonOptions& options,
               ComparisonListener& listener)
        : m_A(a),
          m_B(b),
          m_Options(options),
          m_Judge(options, m_Handles),
          m_Listener(listener)
    {
    }
    void Run();

private:
    void RequireKnownFields();
    void RequireKnownField(const std::string& name, const std::string& option);
    bool IsIgnored(const std::string& field) const;
    std::vector<std::string> LayoutNames(DatabaseFile& file) const;
    void Layouts();
    void LayoutPair(const std::string& name);

    void Pair(const Object& a, const Object& b);
    void Table();
    std::vector<CommonField> CommonFields(const rfm_Table& a, const rfm_Table& b) const;
    void RowsByNumber(rfm_Table& a, rfm_Table& b, const std::vector<CommonField>& fields);
    void RowsByKey(rfm_Table& a, rfm_Table& b, const std::vector<CommonField>& fields,
                   const std::vector<CommonField>& key);
    void RowPair(const rfm_Row& a, const rfm_Row& b, const std::string& place,
                 const std::vector<CommonField>& fields);
    void FieldPair(const rfm_Row& a, const rfm_Row& b, const std::string& place, const CommonField& field);
    void Array();
    template <class T, int N> void Elements(rfm_Array<T, N> a, rfm_Array<T, N> b);
    void Stream();
    void ItemPair(const rfm_TaggedStream& a, const rfm_TaggedStream& b, const std::string& place);
    void Space();
    void Tail(const char* one, const char* many, std::int64_t a, std::int64_t b);

    template <class T> void Values(const T& a, const T& b, const std::string& place)
    {
        if (!m_Judge.Same(a, b)) Tell({place, SideOf(a), SideOf(b), Judge::Distance(a, b)});
    }
    void Tell(const Difference& difference);

    DatabaseFile& m_A;
    DatabaseFile& m_B;
    const ComparisonOptions& m_Options;
    HandleMap m_Handles; // of A to those of B
    Judge m_Judge;
    ComparisonListener& m_Listener;
    ObjectSummary m_Pair; // the one that is compared
};

void Comparison::Run()
{
    RequireKnownFields();
    const std::vector<Object> a = ObjectsOf(m_A);
    const std::vector<Object> b = ObjectsOf(m_B);
    const Paired paired = PairUp(a, b, m_Options.pairing);
    for (const auto& [left, right] : paired.pairs) m_Handles[left->handle.Value()] = right->handle.Value();
    for (const Object& object : a)
        if (!m_Handles.contains(object.handle.Value())) m_Listener.Only(object, true);
    for (const Object& object : b)
        if (!paired.ofB.contains(object.handle.Value())) m_Listener.Only(object, false);
    Layouts();
    for (const auto& [left, right] : paired.pairs)
        if (!m_Listener.IsGone()) Pair(*left, *right);
}

// ---- Layouts ----

std::vector<std::string> Comparison::LayoutNames(DatabaseFile& file) const
{
    std::vector<std::string> names;
    for (const cow_String& name : file.Database().GetTableMetadataNames()) names.emplace_back(name.View());
    return names;
}

bool Comparison::IsIgnored(const std::string& field) const
{
    return std::any_of(m_Options.ignore.begin(), m_Options.ignore.end(),
                       [&](const std::string& each) { return MatchesGlob(each, field); });
}

// A slip in an option must not make two files look the same, or different.
void Comparison::RequireKnownField(const std::string& name, const std::string& option)
{
    std::vector<std::string> fields;
    for (DatabaseFile* file : {&m_A, &m_B})
        for (const cow_String& layout : file->Database().GetTableMetadataNames())
            for (const auto& [field, metadata] : file->Database().GetTableMetadata(layout).Fields())
            {
                if (MatchesGlob(name, std::string(field.View()))) return;
                fields.emplace_back(field.View());
            }
    const std::string_view near = NearestName(name, fields);
    throw Failure(ExitMissing, fmt::format("{} {}", option, OneLine(name)), "no layout has such a field",
                  near.empty() ? "`rfm dump FILE 3` lists the layouts"
                               : fmt::format("did you mean {}?", OneLine(near)));
}

void Comparison::RequireKnownFields()
{
    for (const std::string& name : m_Options.key) RequireKnownField(name, "--key");
    for (const std::string& name : m_Options.ignore) RequireKnownField(name, "--ignore");
}

void Comparison::Layouts()
{
    const std::vector<std::string> a = LayoutNames(m_A);
    const std::vector<std::string> b = LayoutNames(m_B);
    std::set<std::string> all(a.begin(), a.end());
    all.insert(b.begin(), b.end());
    for (const std::string& name : all)
        if (!std::binary_search(b.begin(), b.end(), name))
            m_Listener.Layout(name, "only in A");
        else if (!std::binary_search(a.begin(), a.end(), name))
            m_Listener.Layout(name, "only in B");
        else
            LayoutPair(name);
}

void Comparison::LayoutPair(const std::string& name)
{
    const rfm_TableMetadata& a = m_A.Database().GetTableMetadata(cow_String(name));
    const rfm_TableMetadata& b = m_B.Database().GetTableMetadata(cow_String(name));
    std::set<std::string> fields;
    for (const rfm_TableMetadata* layout : {&a, &b})
        for (const auto& [field, metadata] : layout->Fields()) fields.emplace(field.View());
    for (const std::string& field : fields)
    {
        if (IsIgnored(field)) continue;
        const rfm_FieldMetadata* left = FindField(a, field);
        const rfm_FieldMetadata* right = FindField(b, field);
        if (right == nullptr || left == nullptr)
            m_Listener.Layout(name, fmt::format("field {} only in {}", OneLine(field), left ? "A" : "B"));
        else if (left->type != right->type)
            m_Listener.Layout(name, fmt::format("field {} is {} in A, {} in B", OneLine(field),
                                                TypeWord(left->type), TypeWord(right->type)));
    }
}

// ---- Pairs ----

void Comparison::Tell(const Difference& difference)
{
    ++m_Pair.differences;
    const bool isWorst =
        difference.distance && (!m_Pair.worst || *difference.distance > *m_Pair.worst->distance);
    if (isWorst) m_Pair.worst = difference;
    m_Listener.Value(m_Pair, difference);
}

void Comparison::Pair(const Object& a, const Object& b)
{
    m_Pair = {a, b, 0, {}};
    m_Listener.BeginPair(a, b);
    try
    {
        switch (a.kind)
        {
        case Kind::Table: Table(); break;
        case Kind::Array: Array(); break;
        case Kind::Stream: Stream(); break;
        case Kind::Strings:
        case Kind::Layouts:
        case Kind::Unused:
        case Kind::Space: Space(); break;
        }
    }
    catch (const nex_Exception& cause)
    {
        throw Failure(
            ExitUnreadable,
            fmt::format("{} or {}: handle {}", OneLine(m_A.Path()), OneLine(m_B.Path()), a.handle.Value()),
            PlainMessage(cause.what()), "`rfm check` tells which is damaged");
    }
    m_Listener.EndPair(m_Pair);
}

// What the longer of two has behind the end of the other: one difference.
void Comparison::Tail(const char* one, const char* many, std::int64_t a, std::int64_t b)
{
    if (a == b) return;
    const std::int64_t first = std::min(a, b);
    const std::int64_t last = std::max(a, b) - 1;
    const SideValue there = Row("there");
    const SideValue missing = Row("missing");
    Tell({first == last ? fmt::format("{} {}", one, first) : fmt::format("{} {} to {}", many, first, last),
          a > b ? there : missing,
          a > b ? missing : there,
          {}});
}

// ---- Tables ----

std::vector<CommonField> Comparison::CommonFields(const rfm_Table& a, const rfm_Table& b) const
{
    std::vector<CommonField> fields;
    for (const auto& [name, field] : a.TableMetadata().Fields())
    {
        const std::string word(name.View());
        const rfm_FieldMetadata* other = FindField(b.TableMetadata(), word);
        // Types that differ were told of with the layouts.
        if (other == nullptr || other->type != field.type || IsIgnored(word)) continue;
        fields.push_back({word, field.type, rfm_FieldHandle(field.index), rfm_FieldHandle(other->index)});
    }
    return fields;
}

void Comparison::Table()
{
    rfm_Table a = m_A.Database().Table(m_Pair.a.handle, -1, kReadAhead);
    rfm_Table b = m_B.Database().Table(m_Pair.b.handle, -1, kReadAhead);
    const std::vector<CommonField> fields = CommonFields(a, b);
    std::vector<CommonField> key;
    for (const std::string& name : m_Options.key)
        for (const CommonField& field : fields)
            if (field.name == name) key.push_back(field);
    if (!m_Options.key.empty() && key.size() == m_Options.key.size())
        RowsByKey(a, b, fields, key);
    else
        RowsByNumber(a, b, fields);
}

void Comparison::RowsByNumber(rfm_Table& a, rfm_Table& b, const std::vector<CommonField>& fields)
{
    const int rows = std::min(a.Length(), b.Length());
    for (int row = 0; row < rows && !m_Listener.IsGone(); ++row)
        RowPair(a.ReadRow(row), b.ReadRow(row), fmt::format("row {}", row), fields);
    Tail("row", "rows", a.Length(), b.Length());
}

// What a row is found by: the values of the key's fields, each with its length, so that no two keys run together.
std::string KeyOf(const rfm_Row& row, const std::vector<CommonField>& key, bool isA)
{
    std::string text;
    for (const CommonField& field : key)
    {
        const rfm_FieldHandle& handle = isA ? field.a : field.b;
        if (row.DataIsPresent(handle) == 0)
        {
            text += "-;";
            continue;
        }
        std::string value;
        switch (field.type)
        {
        case rfm_TypeInt: value = NumberText(std::int64_t{row.ReadFieldInt(handle)}); break;
        case rfm_TypeHandle: value = NumberText(std::int64_t{row.ReadFieldHandle(handle).Value()}); break;
        case rfm_TypeFloat: value = NumberText(row.ReadFieldFloat(handle)); break;
        case rfm_TypeDouble: value = NumberText(row.ReadFieldDouble(handle)); break;
        default: value = row.ReadFieldString(handle).View(); break;
        }
        text += fmt::format("{}:{};", value.size(), value);
    }
    return text;
}

std::string KeyPlace(const std::string& key)
{
    std::string place;
    for (std::size_t i = 0; i < key.size();)
    {
        place += place.empty() ? "" : ",";
        if (key[i] == '-')
        {
            i += 2;
            continue;
        }
        const std::size_t colon = key.find(':', i);
        const std::size_t length = std::stoull(key.substr(i, colon - i));
        place += OneLine(key.substr(colon + 1, length));
        i = colon + length + 2;
    }
    return "key " + place;
}

// The rows of B by their keys. Of rows with one key the first of A goes with the first of B, and so on.
void Comparison::RowsByKey(rfm_Table& a, rfm_Table& b, const std::vector<CommonField>& fields,
                           const std::vector<CommonField>& key)
{
    struct Places
    {
        int first;
        std::vector<int> more; // hardly ever used: a key should be one
        std::size_t taken = 0;
    };
    std::unordered_map<std::string, Places> rows;
    for (int row = 0; row < b.Length(); ++row)
    {
        const auto [place, isNew] = rows.emplace(KeyOf(b.ReadRow(row), key, false), Places{row, {}});
        if (!isNew) place->second.more.push_back(row);
    }
    std::vector<bool> isTaken(static_cast<std::size_t>(b.Length()));
    for (int row = 0; row < a.Length() && !m_Listener.IsGone(); ++row)
    {
        const rfm_Row left = a.ReadRow(row);
        const std::string text = KeyOf(left, key, true);
        const auto found = rows.find(text);
        if (found == rows.end() || found->second.taken > found->second.more.size())
        {
            Tell({KeyPlace(text), Row(fmt::format("row {}", row)), Row("missing"), {}});
            continue;
        }
        Places& places = found->second;
        const int other = places.taken == 0 ? places.first : places.more[places.taken - 1];
        ++places.taken;
        isTaken[static_cast<std::size_t>(other)] = true;
        RowPair(left, b.ReadRow(other), KeyPlace(text), fields);
    }
    for (int row = 0; row < b.Length() && !m_Listener.IsGone(); ++row)
        if (!isTaken[static_cast<std::size_t>(row)])
            Tell({KeyPlace(KeyOf(b.ReadRow(row), key, false)),
                  Row("missing"),
                  Row(fmt::format("row {}", row)),
                  {}});
}

void Comparison::RowPair(const rfm_Row& a, const rfm_Row& b, const std::string& place,
                         const std::vector<CommonField>& fields)
{
    for (const CommonField& field : fields) FieldPair(a, b, place, field);
}

SideValue FieldValue(const rfm_Row& row, const rfm_FieldHandle& handle, int type)
{
    if (row.DataIsPresent(handle) == 0) return Nothing();
    switch (type)
    {
    case rfm_TypeInt: return SideOf(row.ReadFieldInt(handle));
    case rfm_TypeHandle: return SideOf(row.ReadFieldHandle(handle));
    case rfm_TypeFloat: return SideOf(row.ReadFieldFloat(handle));
    case rfm_TypeDouble: return SideOf(row.ReadFieldDouble(handle));
    default: return SideOf(row.ReadFieldString(handle));
    }
}

void Comparison::FieldPair(const rfm_Row& a, const rfm_Row& b, const std::string& rowPlace,
                           const CommonField& field)
{
    const bool isInA = a.DataIsPresent(field.a) != 0;
    const bool isInB = b.DataIsPresent(field.b) != 0;
    if (!isInA && !isInB) return;
    // Made only when there is something to tell: most rows are the same.
    const auto place = [&] { return fmt::format("{}, {}", rowPlace, OneLine(field.name)); };
    if (isInA != isInB)
        return Tell({place(), FieldValue(a, field.a, field.type), FieldValue(b, field.b, field.type), {}});
    const auto values = [&](const auto& left, const auto& right)
    {
        if (!m_Judge.Same(left, right))
            Tell({place(), SideOf(left), SideOf(right), Judge::Distance(left, right)});
    };
    switch (field.type)
    {
    case rfm_TypeInt: return values(a.ReadFieldInt(field.a), b.ReadFieldInt(field.b));
    case rfm_TypeHandle: return values(a.ReadFieldHandle(field.a), b.ReadFieldHandle(field.b));
    case rfm_TypeFloat: return values(a.ReadFieldFloat(field.a), b.ReadFieldFloat(field.b));
    case rfm_TypeDouble: return values(a.ReadFieldDouble(field.a), b.ReadFieldDouble(field.b));
    default: return values(a.ReadFieldString(field.a), b.ReadFieldString(field.b));
    }
}

// ---- Arrays ----

void Comparison::Array()
{
    rfm_Database& a = m_A.Database();
    rfm_Database& b = m_B.Database();
    const rfm_Handle left = m_Pair.a.handle;
    const rfm_Handle right = m_Pair.b.handle;
    switch (m_Pair.a.elementType)
    {
    case rfm_TypeInt: return Elements(a.ArrayInt(left, -1, 0), b.ArrayInt(right, -1, 0));
    case rfm_TypeFloat: return Elements(a.ArrayFloat(left, -1, 0), b.ArrayFloat(right, -1, 0));
    case rfm_TypeDouble: return Elements(a.ArrayDouble(left, -1, 0), b.ArrayDouble(right, -1, 0));
    default: return Elements(a.ArrayString(left, -1, 0), b.ArrayString(right, -1, 0));
    }
}

template <class T, int N> void Comparison::Elements(rfm_Array<T, N> a, rfm_Array<T, N> b)
{
    if (m_Pair.a.rowBytes < 1) return;
    const std::int64_t rows = std::min(a.Length(), b.Length());
    const std::int64_t columns = m_Pair.a.columns;
    const std::int64_t pieceRows = std::max<std::int64_t>(kPieceBytes / m_Pair.a.rowBytes, 1);
    std::vector<T> left;
    std::vector<T> right;
    for (std::int64_t row = 0; row < rows && !m_Listener.IsGone(); row += pieceRows)
    {
        const std::int64_t wanted = std::min(pieceRows, rows - row);
        // A last row of which only a part is there reads as zeros behind it.
        left.assign(static_cast<std::size_t>(wanted * columns), T());
        right.assign(left.size(), T());
        a.Read(left.data(), static_cast<int>(wanted));
        b.Read(right.data(), static_cast<int>(wanted));
        for (std::size_t i = 0; i < left.size(); ++i)
        {
            if (m_Judge.Same(left[i], right[i])) continue;
            const std::int64_t place = static_cast<std::int64_t>(i);
            Tell({columns == 1 ? fmt::format("row {}", row + place)
                               : fmt::format("row {}, {}", row + place / columns, place % columns),
                  SideOf(left[i]), SideOf(right[i]), Judge::Distance(left[i], right[i])});
        }
    }
    Tail("row", "rows", a.Length(), b.Length());
}

// ---- Streams ----

SideValue ItemValue(const rfm_TaggedStream& item)
{
    switch (item.GetType())
    {
    case rfm_TypeInt: return SideOf(item.GetInt());
    case rfm_TypeHandle: return SideOf(item.GetHandle());
    case rfm_TypeFloat: return SideOf(item.GetFloat());
    case rfm_TypeDouble: return SideOf(item.GetDouble());
    default: return SideOf(item.GetString());
    }
}

// An item with its type and identifier in front.
SideValue WholeItem(const rfm_TaggedStream& item)
{
    const SideValue value = ItemValue(item);
    return {fmt::format("{} {}: {}", TypeWord(item.GetType()), item.GetID(), value.text),
            fmt::format("{{\"type\":\"{}\",\"id\":{},\"value\":{}}}", TypeWord(item.GetType()), item.GetID(),
                        value.json)};
}

void Comparison::Stream()
{
    const rfm_TaggedStream a = m_A.Database().TaggedStream(m_Pair.a.handle, 0);
    const rfm_TaggedStream b = m_B.Database().TaggedStream(m_Pair.b.handle, 0);
    std::int64_t inA = 0;
    std::int64_t inB = 0;
    bool isMoreInA = a.Next();
    bool isMoreInB = b.Next();
    while (isMoreInA && isMoreInB && !m_Listener.IsGone())
    {
        ItemPair(a, b, fmt::format("item {}", inA));
        ++inA;
        ++inB;
        isMoreInA = a.Next();
        isMoreInB = b.Next();
    }
    for (; isMoreInA; isMoreInA = a.Next()) ++inA;
    for (; isMoreInB; isMoreInB = b.Next()) ++inB;
    Tail("item", "items", inA, inB);
}

void Comparison::ItemPair(const rfm_TaggedStream& a, const rfm_TaggedStream& b, const std::string& place)
{
    if (a.GetType() != b.GetType() || a.GetID() != b.GetID())
        return Tell({place, WholeItem(a), WholeItem(b), {}});
    switch (a.GetType())
    {
    case rfm_TypeInt: return Values(a.GetInt(), b.GetInt(), place);
    case rfm_TypeHandle: return Values(a.GetHandle(), b.GetHandle(), place);
    case rfm_TypeFloat: return Values(a.GetFloat(), b.GetFloat(), place);
    case rfm_TypeDouble: return Values(a.GetDouble(), b.GetDouble(), place);
    default: return Values(a.GetString(), b.GetString(), place);
    }
}

// ---- Spaces ----

std::string HexOf(const std::vector<char>& bytes, std::int64_t first, std::int64_t count)
{
    std::string hex;
    for (std::int64_t i = first; i < first + std::min(count, kShownBytes); ++i)
        hex += fmt::format("{}{:02x}", hex.empty() ? "" : " ",
                           static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)]));
    return count > kShownBytes ? hex + " ..." : hex;
}

// One difference for each run of bytes, up to the end of a piece.
void Comparison::Space()
{
    rfm_Space a = m_A.Database().Space(m_Pair.a.handle, -1);
    rfm_Space b = m_B.Database().Space(m_Pair.b.handle, -1);
    const std::int64_t common = std::min(a.Length().Value(), b.Length().Value());
    std::vector<char> left(static_cast<std::size_t>(kPieceBytes));
    std::vector<char> right(left.size());
    for (std::int64_t start = 0; start < common && !m_Listener.IsGone(); start += kPieceBytes)
    {
        const int count = static_cast<int>(std::min(kPieceBytes, common - start));
        a.Read(left.data(), count);
        b.Read(right.data(), count);
        const auto differs = [&](int i)
        { return left[static_cast<std::size_t>(i)] != right[static_cast<std::size_t>(i)]; };
        for (int i = 0; i < count; ++i)
        {
            if (!differs(i)) continue;
            int end = i + 1;
            while (end < count && differs(end)) ++end;
            Tell({end == i + 1 ? fmt::format("byte {}", start + i)
                               : fmt::format("bytes {} to {}", start + i, start + end - 1),
                  Row(HexOf(left, i, end - i)),
                  Row(HexOf(right, i, end - i)),
                  {}});
            i = end;
        }
    }
    Tail("byte", "bytes", a.Length().Value(), b.Length().Value());
}
} // namespace

std::string SortText(const Object& object)
{
    if (object.kind == Kind::Table) return "table " + OneLine(object.layout);
    if (object.kind == Kind::Array && object.columns != 1)
        return fmt::format("{} of {}", object.TypeWord(), object.columns);
    return object.TypeWord();
}

void CompareDatabases(DatabaseFile& a, DatabaseFile& b, const ComparisonOptions& options,
                      ComparisonListener& listener)
{
    Comparison(a, b, options, listener).Run();
}
} // namespace rfm_tool
