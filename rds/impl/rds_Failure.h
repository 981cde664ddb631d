#pragma once

#include "atr_Translate.h"
#include "nex_Exception.h"

/// Throws a nex_TextException with the message of `format` and its values. Whichever file finds the failure, its source is
/// the connection.
template <class... Values> [[noreturn]] void rds_Fail(const char* format, const Values&... values)
{
    nex_ThrowText(atr_Message(format, values...), "rds_RemoteConnection");
}
