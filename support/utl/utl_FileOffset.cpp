#include "utl_FileOffset.h"

#include "atr_Translate.h"
#include "nex_Exception.h"

void utl_FileOffset::ThrowOverflow()
{
    nex_ThrowText(atr_Message("***ERROR: A file position or length is out of range."));
}
