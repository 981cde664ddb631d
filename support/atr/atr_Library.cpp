#include "atr_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void atr_initialize(int& count) { s_Calls.Enter(count); }
void atr_finalize(int& count) { s_Calls.Leave(count); }
