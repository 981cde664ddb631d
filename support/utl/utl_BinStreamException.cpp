#include "utl_BinStreamException.h"

#include "atr_Translate.h"

utl_BinStreamException::utl_BinStreamException(const char* action, const cow_String& reason)
    : nex_TextException(atr_Message("*** ERROR: Can't %s stream, reason:\n  %s.", action, reason))
{
}

utl_BinStreamException::~utl_BinStreamException() = default;
nex_Exception* utl_BinStreamException::Copy() const { return new utl_BinStreamException(*this); }
void utl_BinStreamException::Propagate() const { throw utl_BinStreamException(*this); }
cow_String utl_BinStreamException::AsString() const
{
    return cow_String("utl_BinStreamException: ") + UserReport();
}

utl_BinStreamEOF::~utl_BinStreamEOF() = default;
nex_Exception* utl_BinStreamEOF::Copy() const { return new utl_BinStreamEOF(*this); }
void utl_BinStreamEOF::Propagate() const { throw utl_BinStreamEOF(*this); }
cow_String utl_BinStreamEOF::AsString() const { return cow_String("utl_BinStreamEOF: ") + UserReport(); }

utl_BinStreamReadError::~utl_BinStreamReadError() = default;
nex_Exception* utl_BinStreamReadError::Copy() const { return new utl_BinStreamReadError(*this); }
void utl_BinStreamReadError::Propagate() const { throw utl_BinStreamReadError(*this); }
cow_String utl_BinStreamReadError::AsString() const
{
    return cow_String("utl_BinStreamReadError: ") + UserReport();
}
