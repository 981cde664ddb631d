#include "nex_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void nex_initialize(int& count) { s_Calls.Enter(count); }
void nex_finalize(int& count) { s_Calls.Leave(count); }
