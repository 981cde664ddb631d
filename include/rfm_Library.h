#pragma once

#include "rfm_Export.h"

/// Brackets a program's use of the library: `rfm_initialize` before anything else, `rfm_finalize` after the last
/// handle has gone. Calls nest; only the first and the last do anything. `count` is the caller's own: the first
/// rfm_initialize raises it by one for this library and by one for each support library, the last rfm_finalize
/// lowers it by as much.
/// Threads: for the start and the end of the process, not locked.
RFM_EXPORT void rfm_initialize(int& count);
RFM_EXPORT void rfm_finalize(int& count);
