#include "mem_Alloc.h"

#include <cstdlib>
#include <new>

void* mem_Malloc(std::size_t bytes)
{
    void* block = std::malloc(bytes > 0 ? bytes : 1);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void* mem_Realloc(void* block, std::size_t bytes)
{
    void* moved = std::realloc(block, bytes > 0 ? bytes : 1);
    if (moved == nullptr) throw std::bad_alloc();
    return moved;
}

void mem_Free(void* block) noexcept { std::free(block); }
