#pragma once

#include "nex_Exception.h"

/// A refusal of the operating system: what was asked, of which file, and the system's own words.
class RFM_EXPORT utl_FileException : public nex_TextException
{
public:
    /// `action` is a verb such as "write"; `error` an errno value.
    utl_FileException(const char* action, const cow_String& fileName, int error);
    utl_FileException(const char* action, const cow_String& fileName, const cow_String& reason);
    ~utl_FileException() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// The file does not exist.
class RFM_EXPORT utl_FileExceptionNoFile : public utl_FileException
{
public:
    using utl_FileException::utl_FileException;
    ~utl_FileExceptionNoFile() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};
