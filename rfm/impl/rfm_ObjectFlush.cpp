#include "rfm_ObjectFlush.h"

#include "rfm_IOBuffer.h"
#include "rfm_ObjectFormat.h"

#include <cstdint>

int rfm_FlushObject(rfm_IOBuffer& buffer, int flushCount)
{
    // The count wraps as its 32 bits in the file do.
    const int next = static_cast<int>(static_cast<std::uint32_t>(flushCount) + 1U);
    const utl_FileOffset place = buffer.Location();
    buffer.Flush(); // the content is in the file before its count says so
    buffer.Seek(rfm_ObjectFlushCountOffset);
    try
    {
        buffer.WriteInt(next);
        buffer.Flush();
    }
    catch (...)
    {
        buffer.Discard(); // the count alone
        buffer.Seek(place);
        throw;
    }
    buffer.Seek(place);
    return next;
}
