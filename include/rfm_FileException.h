#pragma once

#include "nex_Exception.h"

/// The base of all failures of file access; a catch of it takes every class below.
class RFM_EXPORT rfm_FileException : public nex_TextException
{
public:
    using nex_TextException::nex_TextException;
    ~rfm_FileException() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// A write or an extension on a read-only file, create or update of a URL, update without write permission.
class RFM_EXPORT rfm_FileReadOnlyExc : public rfm_FileException
{
public:
    explicit rfm_FileReadOnlyExc(const cow_String& fileName);
    ~rfm_FileReadOnlyExc() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// Read or update of a file that does not exist.
class RFM_EXPORT rfm_FileNoSuchFile : public rfm_FileException
{
public:
    explicit rfm_FileNoSuchFile(const cow_String& fileName);
    ~rfm_FileNoSuchFile() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// Read of a file without the permission to.
class RFM_EXPORT rfm_FileNotReadable : public rfm_FileException
{
public:
    explicit rfm_FileNotReadable(const cow_String& fileName);
    ~rfm_FileNotReadable() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// A null buffer or a negative length in a call on a file; the text names the operation.
class RFM_EXPORT rfm_FileBadParameterExc : public rfm_FileException
{
public:
    explicit rfm_FileBadParameterExc(const cow_String& operation);
    ~rfm_FileBadParameterExc() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// A remote file that cannot be connected to.
class RFM_EXPORT rfm_FileConnectExc : public rfm_FileException
{
public:
    rfm_FileConnectExc(const cow_String& fileName, const cow_String& reason);
    ~rfm_FileConnectExc() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// A remote file whose server was lost.
class RFM_EXPORT rfm_FileFailExc : public rfm_FileException
{
public:
    rfm_FileFailExc(const cow_String& fileName, const cow_String& reason);
    ~rfm_FileFailExc() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};

/// Reserved for a cache of remote files without room.
class RFM_EXPORT rfm_FileCacheExc : public rfm_FileException
{
public:
    rfm_FileCacheExc();
    ~rfm_FileCacheExc() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};
