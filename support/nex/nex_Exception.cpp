#include "nex_Exception.h"

nex_Exception::~nex_Exception() = default;
nex_TextException::~nex_TextException() = default;
nex_AssertException::~nex_AssertException() = default;

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

void nex_ThrowText(const atr_StringBase& text, const char* sourceName, int line)
{
    nex_TextException(text).Throw(sourceName, line);
}

void nex_ThrowAssert(const char* condition, const char* sourceName, int line)
{
    nex_AssertException(condition).Throw(sourceName, line);
}
