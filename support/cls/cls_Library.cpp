#include "cls_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

void cls_initialize(int& count) { s_Calls.Enter(count); }
void cls_finalize(int& count) { s_Calls.Leave(count); }
