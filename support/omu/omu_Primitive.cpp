#include "omu_Primitive.h"

#include "nex_Exception.h"

#include <charconv>
#include <string>

omu_Primitive::~omu_Primitive() = default;
omu_PrimSequence::~omu_PrimSequence() = default;
omu_PrimTuple::~omu_PrimTuple() = default;

omu_PrimSequence* omu_PrimSequence::Copy() const { return new omu_PrimSequence(*this); }
omu_PrimTuple* omu_PrimTuple::Copy() const { return new omu_PrimTuple(*this); }

void omu_PrimSequence::CheckRoom() const {}

void omu_PrimTuple::CheckRoom() const
{
    if (Count() >= m_Capacity) nex_ThrowAssert("Count() < m_Capacity");
}

void omu_PrimSequence::PutValue(const Value& value)
{
    CheckRoom();
    m_Values.push_back(value);
}

const omu_PrimSequence::Value& omu_PrimSequence::At(int index) const
{
    if (index < 0 || index >= Count()) nex_ThrowAssert("index >= 0 && index < Count()");
    return m_Values[static_cast<std::size_t>(index)];
}

static cow_String Quoted(const cow_String& text)
{
    cow_String quoted(text);
    quoted.Substitute("\\", "\\\\");
    quoted.Substitute("'", "\\'");
    return cow_String("'") + quoted + "'";
}

static cow_String Shortest(double value)
{
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    return cow_String(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

cow_String omu_PrimSequence::Text(const Value& value)
{
    struct Writer
    {
        cow_String operator()(int number) const { return cow_String(number); }
        cow_String operator()(double number) const { return Shortest(number); }
        cow_String operator()(bool truth) const { return truth ? "True" : "False"; }
        cow_String operator()(const cow_String& text) const { return Quoted(text); }
        cow_String operator()(const Nested& nested) const { return nested.ConstGet().AsString(); }
    };
    return std::visit(Writer(), value);
}

cow_String omu_PrimSequence::AsString() const
{
    cow_String text(&m_Delimiter, 1);
    for (int index = 0; index < Count(); ++index)
    {
        if (index > 0) text.append(", ", 2);
        text.append(Text(At(index)));
    }
    const char closing = m_Delimiter == '(' ? ')' : m_Delimiter == '{' ? '}' : ']';
    text.append(&closing, 1);
    return text;
}
