#include "utl_FileException.h"

#include "atr_Translate.h"
#include "utl_SystemText.h"

utl_FileException::utl_FileException(const char* action, const cow_String& fileName, const cow_String& reason)
    : nex_TextException(
          atr_Message("*** ERROR: Can't %s file:\n  %s, reason:\n  %s.", action, fileName, reason))
{
}

utl_FileException::utl_FileException(const char* action, const cow_String& fileName, int error)
    : utl_FileException(action, fileName, utl_SystemText(error))
{
}

utl_FileException::~utl_FileException() = default;
nex_Exception* utl_FileException::Copy() const { return new utl_FileException(*this); }
void utl_FileException::Propagate() const { throw utl_FileException(*this); }
cow_String utl_FileException::AsString() const { return cow_String("utl_FileException: ") + UserReport(); }

utl_FileExceptionNoFile::~utl_FileExceptionNoFile() = default;
nex_Exception* utl_FileExceptionNoFile::Copy() const { return new utl_FileExceptionNoFile(*this); }
void utl_FileExceptionNoFile::Propagate() const { throw utl_FileExceptionNoFile(*this); }
cow_String utl_FileExceptionNoFile::AsString() const
{
    return cow_String("utl_FileExceptionNoFile: ") + UserReport();
}
