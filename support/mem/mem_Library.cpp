#include "mem_Library.h"

bool mem_LibraryCalls::Enter(int& count)
{
    if (m_Depth++ > 0) return false;
    ++count;
    return true;
}

bool mem_LibraryCalls::Leave(int& count)
{
    if (m_Depth == 0 || --m_Depth > 0) return false;
    --count;
    return true;
}

static mem_LibraryCalls s_Calls;

void mem_initialize(int& count) { s_Calls.Enter(count); }
void mem_finalize(int& count) { s_Calls.Leave(count); }
