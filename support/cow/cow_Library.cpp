#include "cow_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void cow_initialize(int& count) { s_Calls.Enter(count); }
void cow_finalize(int& count) { s_Calls.Leave(count); }
