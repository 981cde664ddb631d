#include "zlib_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void zlib_initialize(int& count) { s_Calls.Enter(count); }
void zlib_finalize(int& count) { s_Calls.Leave(count); }
