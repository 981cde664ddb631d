#include "rfm_FileException.h"

#include "atr_Translate.h"

// What every class of the family needs to be copied and thrown as what it is.
#define RFM_FILE_EXCEPTION_BODY(Class)                                                                       \
    Class::~Class() = default;                                                                               \
    nex_Exception* Class::Copy() const { return new Class(*this); }                                          \
    void Class::Propagate() const { throw Class(*this); }                                                    \
    cow_String Class::AsString() const { return cow_String(#Class ": ") + UserReport(); }

RFM_FILE_EXCEPTION_BODY(rfm_FileException)

rfm_FileReadOnlyExc::rfm_FileReadOnlyExc(const cow_String& fileName)
    : rfm_FileException(atr_Message("*** ERROR: Attempt to write to read-only file:\n  %s", fileName))
{
}
RFM_FILE_EXCEPTION_BODY(rfm_FileReadOnlyExc)

rfm_FileNoSuchFile::rfm_FileNoSuchFile(const cow_String& fileName)
    : rfm_FileException(atr_Message("*** ERROR: No such file: %s.", fileName))
{
}
RFM_FILE_EXCEPTION_BODY(rfm_FileNoSuchFile)

rfm_FileNotReadable::rfm_FileNotReadable(const cow_String& fileName)
    : rfm_FileException(atr_Message("*** ERROR: No permission to read: %s.", fileName))
{
}
RFM_FILE_EXCEPTION_BODY(rfm_FileNotReadable)

rfm_FileBadParameterExc::rfm_FileBadParameterExc(const cow_String& operation)
    : rfm_FileException(atr_Message("*** ERROR: Bad parameter passed to file method: %s.", operation))
{
}
RFM_FILE_EXCEPTION_BODY(rfm_FileBadParameterExc)

rfm_FileConnectExc::rfm_FileConnectExc(const cow_String& fileName, const cow_String& reason)
    : rfm_FileException(
          atr_Message("*** ERROR: Can't connect to remote file:\n%s, reason:\n%s", fileName, reason))
{
}
RFM_FILE_EXCEPTION_BODY(rfm_FileConnectExc)

rfm_FileFailExc::rfm_FileFailExc(const cow_String& fileName, const cow_String& reason)
    : rfm_FileException(
          atr_Message("*** ERROR: Lost connection to remote file:\n%s, reason:\n%s", fileName, reason))
{
}
RFM_FILE_EXCEPTION_BODY(rfm_FileFailExc)

rfm_FileCacheExc::rfm_FileCacheExc()
    : rfm_FileException(atr_Message("*** ERROR: Insufficient space in for network RDX local cache."))
{
}
RFM_FILE_EXCEPTION_BODY(rfm_FileCacheExc)
