#pragma once

#include "nex_Exception.h"

/// A transfer through a typed stream that did not come about; the text names the direction and the reason.
class RFM_EXPORT utl_BinStreamException : public nex_TextException
{
public:
    /// `action` is "read" or "write".
    utl_BinStreamException(const char* action, const cow_String& reason);
    ~utl_BinStreamException() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// The other end has gone: the stream ended before all bytes of a read had come, or nobody is left to read what was
/// to be written.
class RFM_EXPORT utl_BinStreamEOF : public utl_BinStreamException
{
public:
    using utl_BinStreamException::utl_BinStreamException;
    ~utl_BinStreamEOF() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// Any other failure of a transfer, of a write too; the name is older than the second direction.
class RFM_EXPORT utl_BinStreamReadError : public utl_BinStreamException
{
public:
    using utl_BinStreamException::utl_BinStreamException;
    ~utl_BinStreamReadError() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};
