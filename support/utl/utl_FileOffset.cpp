#include "utl_FileOffset.h"

#include "nex_Exception.h"

void utl_FileOffset::ThrowOverflow()
{
    nex_ThrowText("***ERROR: A file position or length is out of range.");
}
