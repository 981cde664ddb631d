#pragma once

#include "rfm_Export.h"

/// Brackets the use of connections inside `rfm_initialize` and `rfm_finalize`, which do it too and which register the
/// class of repositories that connections stand on. The first call registers the classes
/// and makes an empty registry of connections, the last one deletes the registry. Calls nest; the first raises the
/// caller's `count` by one, the last lowers it by one.
/// Threads: for the start and the end of the process, not locked.
RFM_EXPORT void rds_initialize(int& count);
RFM_EXPORT void rds_finalize(int& count);
