#pragma once

#include <cstddef>

/// The process's allocator, with the one difference that it never answers null: std::bad_alloc is thrown instead.
void* mem_Malloc(std::size_t bytes);
void* mem_Realloc(void* block, std::size_t bytes);
void mem_Free(void* block) noexcept;
