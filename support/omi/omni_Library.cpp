#include "omni_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void omni_initialize(int& count) { s_Calls.Enter(count); }
void omni_finalize(int& count) { s_Calls.Leave(count); }
