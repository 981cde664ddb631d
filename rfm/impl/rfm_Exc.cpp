#include "rfm_Exc.h"

#include "atr_Translate.h"
#include "nex_Exception.h"

void rfm_ThrowReadOnlyDatabase(const char* sourceName, int line)
{
    nex_ThrowText(
        atr_Message("The output database was opened as read-only. Modification of data is not permitted."),
        sourceName, line);
}

void rfm_ThrowCorrupt(const cow_String& fileName, const char* sourceName, int line)
{
    nex_ThrowText(
        atr_Message("***ERROR: Unable to procede.  MARLEK database file is corrupt:\n  %s", fileName),
        sourceName, line);
}

void rfm_ThrowMetadataCorrupt(const char* sourceName, int line)
{
    nex_ThrowText(atr_Message("***ERROR: Metadata is corrupt in MARLEK database file."), sourceName, line);
}

void rfm_ThrowEncodedCorrupt(const char* sourceName, int line)
{
    nex_ThrowText(atr_Message("***ERROR: VDX database is corrupt."), sourceName, line);
}

void rfm_ThrowEndOfFile(const char* sourceName, int line)
{
    nex_ThrowText(atr_Message("***ERROR: Unexpected End Of File."), sourceName, line);
}
