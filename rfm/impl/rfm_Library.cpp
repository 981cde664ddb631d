#include "rfm_Library.h"

#include "atr_Library.h"
#include "cow_Library.h"
#include "hdf_Library.h"
#include "mdl_Library.h"
#include "mem_Library.h"
#include "nex_Library.h"
#include "omni_Library.h"
#include "omu_Library.h"
#include "rds_Library.h"
#include "rfm_FileCache.h"
#include "thr_Library.h"
#include "typ_Library.h"
#include "uti_Library.h"
#include "utl_Library.h"
#include "zlib_Library.h"

static mem_LibraryCalls s_Calls;

// The order stands; a library is finalised after all that stand on it.
void rfm_initialize(int& count)
{
    if (!s_Calls.Enter(count)) return;
    mem_initialize(count);
    zlib_initialize(count);
    typ_initialize(count);
    thr_initialize(count);
    omni_initialize(count);
    atr_initialize(count);
    cow_initialize(count);
    nex_initialize(count);
    hdf_initialize(count);
    utl_initialize(count);
    uti_initialize(count);
    omu_initialize(count);
    mdl_initialize(count);
    rds_initialize(count);
}

void rfm_finalize(int& count)
{
    if (!s_Calls.Leave(count)) return;
    rfm_FileCache::Finalize();
    rds_finalize(count);
    mdl_finalize(count);
    omu_finalize(count);
    uti_finalize(count);
    utl_finalize(count);
    hdf_finalize(count);
    nex_finalize(count);
    cow_finalize(count);
    atr_finalize(count);
    omni_finalize(count);
    thr_finalize(count);
    typ_finalize(count);
    zlib_finalize(count);
    mem_finalize(count);
}
