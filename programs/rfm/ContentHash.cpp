#include "ContentHash.h"

#include "Digest.h"
#include "Failure.h"
#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_LinkageFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <vector>

namespace rfm_tool
{
namespace
{
constexpr std::string_view kVersion = "rfm-hash-1";
constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);
constexpr int kPieceBytes = 262144;
constexpr int kReadAhead = 256;

/// Gives values to the digest so that no two sequences of values give it the same bytes: numbers have a fixed width,
/// texts their length in front.
class ContentWriter
{
public:
    template <class T> void Number(T value)
    {
        char bytes[sizeof value];
        omi_Store(bytes, value, kSwapped);
        m_Digest.Add(bytes, sizeof bytes);
    }
    void Count(std::int64_t count) { Number(count); }
    void Mark(char mark) { m_Digest.Add(&mark, 1); }
    void Bytes(const char* bytes, std::size_t count) { m_Digest.Add(bytes, count); }
    void Text(std::string_view text)
    {
        Count(static_cast<std::int64_t>(text.size()));
        m_Digest.Add(text);
    }
    void Value(int value) { Number(value); }
    void Value(float value) { Number(value); }
    void Value(double value) { Number(value); }
    void Value(rfm_Handle value) { Number(value.Value()); }
    void Value(const cow_String& value) { Text(value.View()); }
    std::string Hex() { return m_Digest.Hex(); }

private:
    Digest m_Digest;
};

/// The content of one database on its way into the digest.
class ContentWalk
{
public:
    explicit ContentWalk(DatabaseFile& file) : m_File(file), m_Database(file.Database()) {}
    /// Objects by ascending handle; layouts by ascending name.
    std::string Run(const std::vector<rfm_Handle>& objects, const std::vector<std::string>& layouts);

private:
    void Header();
    void Layouts(const std::vector<std::string>& names);
    void ObjectOf(const Object& object);
    void Content(const Object& object);
    void Table(const Object& object);
    void Field(const rfm_Row& row, const rfm_FieldMetadata& field);
    void Array(const Object& object);
    template <class T, int N> void Elements(rfm_Array<T, N> array, const Object& object);
    void Stream(const Object& object);
    void Item(const rfm_TaggedStream& stream);
    void Space(const Object& object);

    DatabaseFile& m_File;
    rfm_Database& m_Database;
    ContentWriter m_Writer;
};

std::string ContentWalk::Run(const std::vector<rfm_Handle>& objects, const std::vector<std::string>& layouts)
{
    m_Writer.Text(kVersion);
    Header();
    Layouts(layouts);
    m_Writer.Count(static_cast<std::int64_t>(objects.size()));
    for (const rfm_Handle handle : objects) ObjectOf(m_File.Describe(handle));
    return fmt::format("{}:{}", kVersion, m_Writer.Hex());
}

void ContentWalk::Header()
{
    m_Writer.Text(m_File.Header().mark);
    m_Writer.Text(m_Database.Description().View());
}

void ContentWalk::Layouts(const std::vector<std::string>& names)
{
    m_Writer.Count(static_cast<std::int64_t>(names.size()));
    for (const std::string& name : names)
    {
        const rfm_TableMetadata& layout = m_Database.GetTableMetadata(cow_String(name));
        m_Writer.Text(name);
        std::int64_t fields = 0;
        for ([[maybe_unused]] const auto& field : layout.Fields()) ++fields;
        m_Writer.Count(fields);
        for (const auto& [fieldName, field] : layout.Fields())
        {
            m_Writer.Text(fieldName.View());
            m_Writer.Value(field.type);
        }
    }
}

void ContentWalk::ObjectOf(const Object& object)
{
    const auto refuse = [&](const std::string& why)
    {
        throw Failure(ExitUnreadable,
                      fmt::format("{}: handle {}", OneLine(m_File.Path()), object.handle.Value()), why,
                      "`rfm check` tells what is damaged");
    };
    if (!object.damage.empty()) refuse(object.damage);
    try
    {
        m_Writer.Value(object.handle);
        Content(object);
    }
    catch (const nex_Exception& cause)
    {
        refuse(PlainMessage(cause.what()));
    }
}

void ContentWalk::Content(const Object& object)
{
    switch (object.kind)
    {
    case Kind::Table: return Table(object);
    case Kind::Array: return Array(object);
    case Kind::Stream: return Stream(object);
    case Kind::Strings:
    case Kind::Layouts:
    case Kind::Unused:
    case Kind::Space: return Space(object);
    }
}

void ContentWalk::Table(const Object& object)
{
    rfm_Table table = m_Database.Table(object.handle, -1, kReadAhead);
    std::vector<rfm_FieldMetadata> fields;
    for (const auto& [name, field] : table.TableMetadata().Fields()) fields.push_back(field);
    m_Writer.Mark('T');
    m_Writer.Text(object.layout);
    m_Writer.Count(table.Length());
    for (int i = 0; i < table.Length(); ++i)
    {
        const rfm_Row row = table.ReadRow(i);
        for (const rfm_FieldMetadata& field : fields) Field(row, field);
    }
}

void ContentWalk::Field(const rfm_Row& row, const rfm_FieldMetadata& field)
{
    const rfm_FieldHandle handle(field.index);
    const bool isPresent = row.DataIsPresent(handle) != 0;
    m_Writer.Mark(isPresent ? '\1' : '\0');
    if (!isPresent) return;
    switch (field.type)
    {
    case rfm_TypeInt: return m_Writer.Value(row.ReadFieldInt(handle));
    case rfm_TypeHandle: return m_Writer.Value(row.ReadFieldHandle(handle));
    case rfm_TypeFloat: return m_Writer.Value(row.ReadFieldFloat(handle));
    case rfm_TypeDouble: return m_Writer.Value(row.ReadFieldDouble(handle));
    default: return m_Writer.Value(row.ReadFieldString(handle));
    }
}

void ContentWalk::Array(const Object& object)
{
    switch (object.elementType)
    {
    case rfm_TypeInt: return Elements(m_Database.ArrayInt(object.handle, -1, 0), object);
    case rfm_TypeFloat: return Elements(m_Database.ArrayFloat(object.handle, -1, 0), object);
    case rfm_TypeDouble: return Elements(m_Database.ArrayDouble(object.handle, -1, 0), object);
    default: return Elements(m_Database.ArrayString(object.handle, -1, 0), object);
    }
}

// An array of nothing in a row has no elements, whatever lies behind its header.
template <class T, int N> void ContentWalk::Elements(rfm_Array<T, N> array, const Object& object)
{
    const std::int64_t rows = object.rowBytes > 0 ? array.Length() : 0;
    m_Writer.Mark('A');
    m_Writer.Value(static_cast<int>(object.elementType));
    m_Writer.Value(object.columns);
    m_Writer.Count(rows);
    const std::int64_t pieceRows = std::max(kPieceBytes / std::max(object.rowBytes, 1), 1);
    std::vector<T> elements;
    for (std::int64_t row = 0; row < rows;)
    {
        const std::int64_t wanted = std::min(pieceRows, rows - row);
        elements.assign(static_cast<std::size_t>(wanted * object.columns), T());
        array.Read(elements.data(), static_cast<int>(wanted));
        for (const T& element : elements) m_Writer.Value(element);
        row += wanted;
    }
}

void ContentWalk::Stream(const Object& object)
{
    const rfm_TaggedStream stream = m_Database.TaggedStream(object.handle, 0);
    m_Writer.Mark('S');
    while (stream.Next()) Item(stream);
    m_Writer.Value(static_cast<int>(rfm_TypeNone)); // where the type of one more item would stand
}

void ContentWalk::Item(const rfm_TaggedStream& stream)
{
    m_Writer.Value(static_cast<int>(stream.GetType()));
    m_Writer.Value(stream.GetID());
    switch (stream.GetType())
    {
    case rfm_TypeInt: return m_Writer.Value(stream.GetInt());
    case rfm_TypeHandle: return m_Writer.Value(stream.GetHandle());
    case rfm_TypeFloat: return m_Writer.Value(stream.GetFloat());
    case rfm_TypeDouble: return m_Writer.Value(stream.GetDouble());
    default: return m_Writer.Value(stream.GetString());
    }
}

void ContentWalk::Space(const Object& object)
{
    rfm_Space space = m_Database.Space(object.handle, -1);
    m_Writer.Mark('B');
    m_Writer.Count(object.size);
    std::vector<char> piece(kPieceBytes);
    for (std::int64_t left = object.size; left > 0;)
    {
        const int read =
            space.Read(piece.data(), static_cast<int>(std::min<std::int64_t>(left, kPieceBytes)));
        m_Writer.Bytes(piece.data(), static_cast<std::size_t>(read));
        left -= read;
        if (read == 0)
            throw Failure(ExitUnreadable, OneLine(m_File.Path()), "a space ends before its length",
                          "`rfm check` tells what is damaged");
    }
}
} // namespace

std::string ContentHash(DatabaseFile& file)
{
    std::vector<rfm_Handle> handles = file.Handles();
    std::erase_if(handles, [](rfm_Handle handle) { return handle.Value() <= rfm_MetadataPoolHandle; });
    std::vector<std::string> layouts;
    for (const cow_String& name : file.Database().GetTableMetadataNames()) layouts.emplace_back(name.View());
    return ContentWalk(file).Run(handles, layouts);
}

std::string ContentHash(DatabaseFile& file, const std::vector<rfm_Handle>& objects)
{
    std::set<std::string> layouts;
    for (const rfm_Handle handle : objects)
        if (const Object object = file.Describe(handle); object.kind == Kind::Table)
            layouts.insert(object.layout);
    return ContentWalk(file).Run(objects, {layouts.begin(), layouts.end()});
}
} // namespace rfm_tool
