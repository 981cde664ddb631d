#include "nex_Exception.h"

#include "typ_ArchCompTable.h"

nex_Exception::~nex_Exception() = default;
nex_TextException::~nex_TextException() = default;
nex_AssertException::~nex_AssertException() = default;
nex_CommandException::~nex_CommandException() = default;

cow_String nex_Exception::DeveloperReport() const
{
    return AsString() + " [" + m_SourceName + ":" + cow_String(m_Line) + "]";
}

void nex_Exception::Throw(const char* sourceName, int line)
{
    m_SourceName = sourceName;
    m_Line = line;
    Propagate();
    __builtin_unreachable(); // a virtual call that never returns: the compiler can't know
}

nex_Exception* nex_TextException::Copy() const { return new nex_TextException(*this); }
void nex_TextException::Propagate() const { throw nex_TextException(*this); }
cow_String nex_TextException::AsString() const { return cow_String("nex_TextException: ") + m_Text; }

nex_Exception* nex_AssertException::Copy() const { return new nex_AssertException(*this); }
void nex_AssertException::Propagate() const { throw nex_AssertException(*this); }
cow_String nex_AssertException::AsString() const { return cow_String("nex_AssertException: ") + m_Condition; }

nex_Exception* nex_CommandException::Copy() const { return new nex_CommandException(*this); }
void nex_CommandException::Propagate() const { throw nex_CommandException(*this); }
cow_String nex_CommandException::AsString() const { return cow_String("nex_CommandException: ") + m_Text; }

void nex_ThrowText(const atr_StringBase& text, const char* sourceName, int line)
{
    nex_TextException(text).Throw(sourceName, line);
}

void nex_ThrowAssert(const char* condition, const char* sourceName, int line)
{
    nex_AssertException(condition).Throw(sourceName, line);
}

void nex_canDynamicCastRef(int wantedType, int actualType, const char* sourceName, int line)
{
    if (typ_ArchCompTable::IsA(actualType, wantedType)) return;
    nex_ThrowAssert("nex_canDynamicCastRef(wantedType, actualType)", sourceName, line);
}
