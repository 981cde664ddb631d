#pragma once

#include "uti_SpawnSourceWithSink.h"

class utl_TempFile;

/// Gives a relay the key, as its first input: one byte with the length, then the text without a terminator.
/// Throws: utl_BinStreamEOF when the relay has gone; utl_BinStreamReadError for what else the system refuses.
void rds_SendKey(uti_SpawnSourceWithSink& relay, const char* key);

/// Gives the relay the key and waits, however long, for the one byte with which it tells that the service runs.
/// Throws: nex_TextException with what the relay wrote to `errorFile` as the reason.
void rds_ExchangeKey(uti_SpawnSourceWithSink& relay, const char* key, utl_TempFile& errorFile);
