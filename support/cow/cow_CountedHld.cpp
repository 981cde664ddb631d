#include "cow_CountedHld.h"

#include "mem_Alloc.h"

void* cow_Counter::operator new(std::size_t bytes) { return mem_Malloc(bytes); }
void cow_Counter::operator delete(void* block) noexcept { mem_Free(block); }

bool cow_Counter::DropLast(cow_Counter* counter) noexcept
{
    if (--counter->m_Value > 0) return false;
    delete counter;
    return true;
}
