#include "zip_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void zip_initialize(int& count) { s_Calls.Enter(count); }
void zip_finalize(int& count) { s_Calls.Leave(count); }
