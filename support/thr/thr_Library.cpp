#include "thr_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void thr_initialize(int& count) { s_Calls.Enter(count); }
void thr_finalize(int& count) { s_Calls.Leave(count); }
