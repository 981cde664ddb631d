#include "RowSource.h"

#include "RemoteDoor.h"
#include "Selection.h"
#include "Text.h"
#include "rfm_StringPoolFormat.h"

#include <algorithm>

namespace rfm_tool
{
namespace
{
// Rows of an array are read in pieces of about this size.
constexpr std::int64_t kPieceBytes = 262144;
constexpr int kReadAhead = 256;
constexpr int kSpaceBytesPerRow = 16;

bool IsNumber(int type) { return type != rfm_TypeString && type != rfm_TypeFixedString; }

std::vector<Column> ColumnsOf(DatabaseFile& file, const Object& object)
{
    std::vector<Column> columns;
    for (Field& field : FieldsOf(file, object))
        columns.push_back({std::move(field.name), TypeWord(field.type), IsNumber(field.type)});
    return columns;
}

class TableRows : public RowSource
{
public:
    TableRows(DatabaseFile& file, const Object& object)
        : m_Table(file.Database().Table(object.handle, -1, kReadAhead))
    {
        m_Columns = ColumnsOf(file, object);
        for (const auto& [name, field] : m_Table.TableMetadata().Fields())
            m_Fields.push_back({rfm_FieldHandle(field.index), field.type});
        m_Texts.resize(m_Fields.size());
    }
    std::optional<std::int64_t> Length() const override { return m_Table.Length(); }
    void Seek(std::int64_t row) override { m_Row = row - 1; }
    bool Next() override
    {
        if (m_Row + 1 >= m_Table.Length()) return false;
        ++m_Row;
        m_Current = m_Table.ReadRow(static_cast<int>(m_Row));
        return true;
    }
    Value ValueOf(int index) const override
    {
        const std::size_t place = static_cast<std::size_t>(index);
        const auto& [handle, type] = m_Fields[place];
        if (m_Current->DataIsPresent(handle) == 0) return {};
        switch (type)
        {
        case rfm_TypeInt: return Value::OfInt(m_Current->ReadFieldInt(handle));
        case rfm_TypeHandle: return Value::OfInt(m_Current->ReadFieldHandle(handle).Value());
        case rfm_TypeFloat: return Value::OfFloat(m_Current->ReadFieldFloat(handle));
        case rfm_TypeDouble: return Value::OfDouble(m_Current->ReadFieldDouble(handle));
        case rfm_TypeString:
            m_Texts[place] = m_Current->ReadFieldString(handle);
            return Value::OfText(m_Texts[place].View());
        default: return {};
        }
    }

private:
    struct TypedField
    {
        rfm_FieldHandle handle;
        int type;
    };
    // Order: the row is given back before its table goes.
    rfm_Table m_Table;
    std::optional<rfm_Row> m_Current;
    std::vector<TypedField> m_Fields;
    mutable std::vector<cow_String> m_Texts; // of the current row
};

Value ElementValue(int value) { return Value::OfInt(value); }
Value ElementValue(float value) { return Value::OfFloat(value); }
Value ElementValue(double value) { return Value::OfDouble(value); }
Value ElementValue(const cow_String& value) { return Value::OfText(value.View()); }

// A last row of which only a part is there has that part, and nothing in the rest.
template <class T, int N> class ArrayRows : public RowSource
{
public:
    using Opener = rfm_Array<T, N> (rfm_Database::*)(rfm_Handle handle, int quantum, int bufferSize);

    ArrayRows(DatabaseFile& file, const Object& object, Opener open)
        : m_Database(file.Database()),
          m_Open(open),
          m_Handle(object.handle),
          m_RowBytes(object.rowBytes),
          m_Array((m_Database.*m_Open)(m_Handle, -1, 0)),
          m_Length(m_Array.Length()),
          m_PieceRows(std::max<std::int64_t>(kPieceBytes / std::max(object.rowBytes, 1), 1))
    {
        m_Columns = ColumnsOf(file, object);
    }
    std::optional<std::int64_t> Length() const override { return m_Length; }
    void Seek(std::int64_t row) override
    {
        m_Row = row - 1;
        m_PieceEnd = m_PieceBegin = row;
        if (row < m_Length) m_Array.Seek(static_cast<int>(row));
    }
    bool Next() override
    {
        if (m_Row + 1 >= m_Length) return false;
        ++m_Row;
        if (m_Row == m_PieceEnd) ReadPiece();
        m_First = static_cast<std::size_t>(m_Row - m_PieceBegin) * m_Columns.size();
        return true;
    }
    Value ValueOf(int index) const override
    {
        const std::size_t element = m_First + static_cast<std::size_t>(index);
        return element < m_Read ? ElementValue(m_Elements[element]) : Value();
    }

private:
    // Rows in front of damage can be read one by one where those of a piece can't all together.
    void ReadPiece()
    {
        try
        {
            ReadRows(std::min(m_PieceRows, m_Length - m_PieceEnd));
        }
        catch (const nex_Exception& cause)
        {
            if (m_PieceRows == 1 || IsRemoteFailure(cause)) throw;
            m_PieceRows = 1;
            m_Array =
                (m_Database.*m_Open)(m_Handle, -1, m_RowBytes); // a larger buffer reaches into the damage
            m_Array.Seek(static_cast<int>(m_PieceEnd));
            ReadRows(1);
        }
    }
    void ReadRows(std::int64_t rows)
    {
        m_Elements.resize(static_cast<std::size_t>(rows) * m_Columns.size());
        const int read = m_Columns.empty() ? 0 : m_Array.Read(m_Elements.data(), static_cast<int>(rows));
        m_Read = static_cast<std::size_t>(std::max(read, 0));
        m_PieceBegin = m_PieceEnd;
        m_PieceEnd += rows;
    }

    rfm_Database& m_Database;
    Opener m_Open;
    rfm_Handle m_Handle;
    int m_RowBytes;
    rfm_Array<T, N> m_Array;
    std::int64_t m_Length;
    std::int64_t m_PieceRows;
    std::vector<T> m_Elements; // rows m_PieceBegin to m_PieceEnd
    std::size_t m_Read = 0;    // elements of these that are there
    std::int64_t m_PieceBegin = 0;
    std::int64_t m_PieceEnd = 0;
    std::size_t m_First = 0; // element of the current row
};

// What is read from its start only, and counted on the way.
class WalkedRows : public RowSource
{
public:
    void Seek(std::int64_t row) final
    {
        if (row <= m_Row) Restart();
        while (m_Row + 1 < row && Next()) continue;
    }
    bool Next() final
    {
        ++m_Row;
        if (Step()) return true;
        --m_Row;
        return false;
    }

protected:
    // Goes in front of the first row.
    virtual void Rewind() = 0;
    // Goes to the next row; false when there is none.
    virtual bool Step() = 0;

private:
    void Restart()
    {
        Rewind();
        m_Row = -1;
    }
};

class StreamRows : public WalkedRows
{
public:
    StreamRows(DatabaseFile& file, const Object& object)
        : m_Database(file.Database()),
          m_Handle(object.handle),
          m_Stream(m_Database.TaggedStream(m_Handle, 0))
    {
        m_Columns = {{"type", "string"}, {"id", "int", true}, {"value", "any"}};
    }
    Value ValueOf(int index) const override
    {
        if (index == 0) return Value::OfText(m_Type);
        if (index == 1) return Value::OfInt(m_Stream.GetID());
        switch (m_Stream.GetType())
        {
        case rfm_TypeInt: return Value::OfInt(m_Stream.GetInt());
        case rfm_TypeHandle: return Value::OfInt(m_Stream.GetHandle().Value());
        case rfm_TypeFloat: return Value::OfFloat(m_Stream.GetFloat());
        case rfm_TypeDouble: return Value::OfDouble(m_Stream.GetDouble());
        default: m_Text = m_Stream.GetString(); return Value::OfText(m_Text.View());
        }
    }

protected:
    void Rewind() override { m_Stream = m_Database.TaggedStream(m_Handle, 0); }
    bool Step() override
    {
        if (!m_Stream.Next()) return false;
        m_Type = TypeWord(m_Stream.GetType());
        return true;
    }

private:
    rfm_Database& m_Database;
    rfm_Handle m_Handle;
    rfm_TaggedStream m_Stream;
    std::string m_Type;
    mutable cow_String m_Text;
};

// Rows of the pool of strings are its records; each text stands under the offset by which it is referred to.
class StringRows : public WalkedRows
{
public:
    StringRows(DatabaseFile& file, const Object& object)
        : m_Space(file.Database().Space(object.handle, -1)),
          m_Size(object.size)
    {
        m_Columns = {{"text", "string"}};
    }
    const char* NumberName() const override { return "offset"; }
    std::int64_t Number() const override { return m_Offset; }
    Value ValueOf(int) const override { return Value::OfText(m_Text); }

protected:
    void Rewind() override { m_Next = rfm_StringPoolFirstRecord; }
    // The pool was judged when the database was opened: records fit.
    bool Step() override
    {
        if (m_Next >= m_Size) return false;
        m_Offset = m_Next;
        int length = 0;
        m_Space.Seek(m_Offset);
        m_Space.ReadIntArray(&length, 1);
        m_Text.resize(static_cast<std::size_t>(length));
        if (length > 0) m_Space.Read(m_Text.data(), length);
        m_Next = m_Offset + rfm_StringRecordBytes(length);
        return true;
    }

private:
    rfm_BufferedSpace m_Space;
    std::int64_t m_Size;
    std::int64_t m_Next = rfm_StringPoolFirstRecord;
    std::int64_t m_Offset = 0;
    std::string m_Text;
};

class LayoutRows : public RowSource
{
public:
    explicit LayoutRows(DatabaseFile& file)
    {
        m_Columns = {{"layout", "string"}, {"field", "string"}, {"type", "string"}};
        for (const cow_String& name : file.Database().GetTableMetadataNames())
            for (const auto& [fieldName, field] : file.Database().GetTableMetadata(name).Fields())
                m_Lines.push_back({name.CString(), fieldName.CString(), TypeWord(field.type)});
    }
    std::optional<std::int64_t> Length() const override { return static_cast<std::int64_t>(m_Lines.size()); }
    void Seek(std::int64_t row) override { m_Row = row - 1; }
    bool Next() override
    {
        if (m_Row + 1 >= *Length()) return false;
        ++m_Row;
        return true;
    }
    Value ValueOf(int index) const override
    {
        const Line& line = m_Lines[static_cast<std::size_t>(m_Row)];
        return Value::OfText(index == 0 ? line.layout : index == 1 ? line.field : line.type);
    }

private:
    struct Line
    {
        std::string layout;
        std::string field;
        std::string type;
    };
    std::vector<Line> m_Lines;
};

class SpaceRows : public RowSource
{
public:
    SpaceRows(DatabaseFile& file, const Object& object)
        : m_Space(file.Database().Space(object.handle, -1)),
          m_Length((object.size + kSpaceBytesPerRow - 1) / kSpaceBytesPerRow)
    {
        m_Columns = {{"bytes", "string"}, {"text", "string"}};
    }
    const char* NumberName() const override { return "offset"; }
    std::int64_t Number() const override { return m_Row * kSpaceBytesPerRow; }
    std::optional<std::int64_t> Length() const override { return m_Length; }
    void Seek(std::int64_t row) override { m_Row = row - 1; }
    bool Next() override
    {
        if (m_Row + 1 >= m_Length) return false;
        ++m_Row;
        char bytes[kSpaceBytesPerRow];
        m_Space.Seek(Number());
        Show({bytes, static_cast<std::size_t>(std::max(m_Space.Read(bytes, kSpaceBytesPerRow), 0))});
        return true;
    }
    Value ValueOf(int index) const override { return Value::OfText(index == 0 ? m_Hex : m_Text); }

private:
    void Show(std::string_view bytes)
    {
        constexpr std::string_view kDigits = "0123456789abcdef";
        m_Hex.clear();
        m_Text.clear();
        for (const char byte : bytes)
        {
            const unsigned number = static_cast<unsigned char>(byte);
            if (!m_Hex.empty()) m_Hex += ' ';
            m_Hex += kDigits[number >> 4U];
            m_Hex += kDigits[number & 15U];
            m_Text += byte >= ' ' && byte <= '~' ? byte : '.';
        }
    }

    rfm_BufferedSpace m_Space;
    std::int64_t m_Length;
    std::string m_Hex;
    std::string m_Text;
};

template <class T, int N>
std::unique_ptr<RowSource> OpenArray(DatabaseFile& file, const Object& object,
                                     rfm_Array<T, N> (rfm_Database::*open)(rfm_Handle, int, int))
{
    return std::make_unique<ArrayRows<T, N>>(file, object, open);
}

std::unique_ptr<RowSource> OpenArrayOfType(DatabaseFile& file, const Object& object)
{
    switch (object.elementType)
    {
    case rfm_TypeInt: return OpenArray(file, object, &rfm_Database::ArrayInt);
    case rfm_TypeFloat: return OpenArray(file, object, &rfm_Database::ArrayFloat);
    case rfm_TypeDouble: return OpenArray(file, object, &rfm_Database::ArrayDouble);
    default: return OpenArray(file, object, &rfm_Database::ArrayString);
    }
}

ExpressionField::Type ExpressionTypeOf(const std::string& word)
{
    if (word == "any") return ExpressionField::Type::Any;
    return word == "string" ? ExpressionField::Type::Text : ExpressionField::Type::Number;
}
} // namespace

std::unique_ptr<RowSource> OpenRows(DatabaseFile& file, const Object& object)
{
    switch (object.kind)
    {
    case Kind::Table: return std::make_unique<TableRows>(file, object);
    case Kind::Array: return OpenArrayOfType(file, object);
    case Kind::Stream: return std::make_unique<StreamRows>(file, object);
    case Kind::Strings: return std::make_unique<StringRows>(file, object);
    case Kind::Layouts: return std::make_unique<LayoutRows>(file);
    case Kind::Unused:
    case Kind::Space: break;
    }
    return std::make_unique<SpaceRows>(file, object);
}

std::vector<ExpressionField> ExpressionFieldsOf(const RowSource& rows)
{
    std::vector<ExpressionField> fields;
    for (const Column& column : rows.Columns())
        fields.push_back({column.name, ExpressionTypeOf(column.type)});
    const bool isOneElement = fields.size() == 1 && fields.front().name == "0";
    if (isOneElement) fields.push_back({"value", fields.front().type, 0});
    return fields;
}
} // namespace rfm_tool
