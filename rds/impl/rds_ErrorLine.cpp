#include "rds_ErrorLine.h"

#include "atr_Translate.h"

#include <algorithm>
#include <cstring>

static constexpr const char* kErrorPrefixes[] = {
    "MARLEK Error:", "*** Error:", "***Error:", "***ERROR:", "*** ERROR:",
};

static bool BeginsWith(const char* line, const char* prefix)
{
    return std::strncmp(line, prefix, std::strlen(prefix)) == 0;
}

bool rds_IsErrorLine(const char* line)
{
    // The driver may speak the language of this side, or the one that it was written in.
    const auto isTranslated = [line](const char* prefix)
    { return BeginsWith(line, atr_translate(prefix).Result().CString()); };
    const auto isPlain = [line](const char* prefix) { return BeginsWith(line, prefix); };
    return std::ranges::any_of(kErrorPrefixes, isTranslated) || std::ranges::any_of(kErrorPrefixes, isPlain);
}
