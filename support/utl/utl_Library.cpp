#include "utl_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void utl_initialize(int& count) { s_Calls.Enter(count); }
void utl_finalize(int& count) { s_Calls.Leave(count); }
