#include "typ_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void typ_initialize(int& count) { s_Calls.Enter(count); }
void typ_finalize(int& count) { s_Calls.Leave(count); }
