#include "utl_System.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

static ssize_t SystemRead(int descriptor, char* buffer, size_t bytes, off_t offset)
{
    return ::pread(descriptor, buffer, bytes, offset);
}

static ssize_t SystemWrite(int descriptor, const char* buffer, size_t bytes, off_t offset)
{
    return ::pwrite(descriptor, buffer, bytes, offset);
}

static int SystemAllocate(int descriptor, off_t offset, off_t bytes)
{
    return ::fallocate(descriptor, 0, offset, bytes);
}

static int SystemTruncate(int descriptor, off_t size) { return ::ftruncate(descriptor, size); }

utl_SystemCalls& utl_System() noexcept
{
    static utl_SystemCalls s_Calls{SystemRead, SystemWrite, SystemAllocate, SystemTruncate};
    return s_Calls;
}
