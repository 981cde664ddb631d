#include "utl_BinIStream.h"

#include "atr_Translate.h"
#include "mem_Alloc.h"
#include "utl_BinStreamFormat.h"
#include "utl_SystemText.h"
#include "utl_Wait.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <unistd.h>

namespace
{
constexpr int kFirstPiece = 64 * 1024;

struct BlockFreer
{
    void operator()(char* block) const noexcept { mem_Free(block); }
};
using Block = std::unique_ptr<char, BlockFreer>;
} // namespace

utl_BinIStream::utl_BinIStream(int descriptor, omi_Swapper::EndianType order)
    : m_Descriptor(descriptor),
      m_Swapped(omi_Swapper(order))
{
}

void utl_BinIStream::Read(char* bytes, int count)
{
    int done = 0;
    while (done < count)
    {
        const ssize_t moved = ::read(m_Descriptor, bytes + done, static_cast<std::size_t>(count - done));
        if (moved > 0)
            done += static_cast<int>(moved);
        else if (moved == 0)
            utl_BinStreamEOF("read", atr_Message("It has ended")).Throw(__FILE__, __LINE__);
        else if (utl_WouldBlock(errno))
            utl_WaitUntilReadable(m_Descriptor);
        else if (errno != EINTR)
            utl_BinStreamReadError("read", utl_SystemText(errno)).Throw(__FILE__, __LINE__);
    }
}

static void Grow(Block& block, int bytes)
{
    char* grown = static_cast<char*>(mem_Realloc(block.get(), static_cast<std::size_t>(bytes) + 1));
    static_cast<void>(block.release()); // what it held has moved into the grown one
    block.reset(grown);
}

cow_String utl_BinIStream::ReadString()
{
    const unsigned claimed = ReadUInt();
    if (claimed > utl_MostStringBytes)
        utl_BinStreamReadError("read", atr_Message("A text claims to be longer than 16 MiB"))
            .Throw(__FILE__, __LINE__);
    const int length = static_cast<int>(claimed);
    if (length == 0) return {};
    Block block;
    // Each piece is as long as all before it, so memory is at most twice what has come, and the copying little.
    int done = 0;
    while (done < length)
    {
        const int wanted = std::min(length, std::max(kFirstPiece, 2 * done));
        Grow(block, wanted);
        Read(block.get() + done, wanted - done);
        done = wanted;
    }
    return atr_StringBase::Adopt(block.release(), length);
}
