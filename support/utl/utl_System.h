#pragma once

#include <sys/types.h>

/// The calls of the operating system through which file bytes move: one table for the process, so that tests can put
/// faults between the library and the system. Each answers as the call of its name: -1 with errno set on failure.
struct utl_SystemCalls
{
    ssize_t (*read)(int descriptor, char* buffer, size_t bytes, off_t offset);
    ssize_t (*write)(int descriptor, const char* buffer, size_t bytes, off_t offset);
    int (*allocate)(int descriptor, off_t offset, off_t bytes);
    int (*truncate)(int descriptor, off_t size);
};

utl_SystemCalls& utl_System() noexcept;
