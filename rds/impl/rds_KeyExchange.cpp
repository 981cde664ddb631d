#include "rds_KeyExchange.h"

#include "rds_Failure.h"
#include "rds_InterpretStdErr.h"
#include "utl_BinIStream.h"
#include "utl_BinOStream.h"

#include <cstring>

void rds_SendKey(uti_SpawnSourceWithSink& relay, const char* key)
{
    // A record has room for 255 bytes of key, so the length fits its byte.
    const auto length = static_cast<unsigned char>(std::strlen(key));
    utl_BinOStream sink(relay.SinkDescriptor(), omi_Swapper::Pipe);
    sink.WriteUchar(length);
    sink.Write(key, length);
}

static void SendKeyOrSayWhy(uti_SpawnSourceWithSink& relay, const char* key, utl_TempFile& errorFile)
{
    // kept: the two texts differ by a blank. Tests: ARelayThatExitsBeforeItReadsTheKeyIsToldWithItsReason,
    // ARefusedWriteOfTheKeyIsToldWithTheOtherText.
    try
    {
        rds_SendKey(relay, key);
    }
    catch (const utl_BinStreamEOF&)
    {
        rds_Fail("*** Error: \nreason: %s", rds_InterpretStdErr(errorFile));
    }
    catch (const utl_BinStreamReadError&)
    {
        rds_Fail("*** Error:\nreason: %s", rds_InterpretStdErr(errorFile));
    }
}

static void AwaitService(uti_SpawnSourceWithSink& relay, utl_TempFile& errorFile)
{
    try
    {
        utl_BinIStream(relay.SourceDescriptor(), omi_Swapper::Pipe).ReadSchar(); // any byte will do
    }
    catch (const utl_BinStreamException&)
    {
        rds_Fail("*** Error: Can't establish connection to remote server:\nreason: %s",
                 rds_InterpretStdErr(errorFile));
    }
}

void rds_ExchangeKey(uti_SpawnSourceWithSink& relay, const char* key, utl_TempFile& errorFile)
{
    SendKeyOrSayWhy(relay, key, errorFile);
    AwaitService(relay, errorFile);
}
