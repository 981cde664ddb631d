#include "uti_Library.h"

#include "mem_Library.h"
#include "thr_GlobalSingleton.h"
#include "uti_LeftChildren.h"

static mem_LibraryCalls s_Calls;

void uti_initialize(int& count) { s_Calls.Enter(count); }

void uti_finalize(int& count)
{
    if (s_Calls.Leave(count)) thr_GlobalSingleton<uti_LeftChildren>::Instance().Sweep();
}
