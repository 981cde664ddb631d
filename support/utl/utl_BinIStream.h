#pragma once

#include "cow_String.h"
#include "omi_Swapper.h"
#include "utl_BinStreamException.h"

#include <cstdint>

/// Reads typed values from a file descriptor, a pipe or socket as a rule; utl_BinStreamFormat.h draws their bytes.
/// The stream never reads ahead, so another one on the same descriptor goes on exactly behind it. It does not own the
/// descriptor, which must stay open as long as the stream is used.
/// Throws: utl_BinStreamEOF when the bytes end before the value does, utl_BinStreamReadError for everything else that the
/// system refuses and for a text whose length is above 16 MiB. The stream is then out of step with its other end, and
/// nothing that is read afterwards has a meaning.
/// Threads: one at a time on one descriptor.
class utl_BinIStream
{
public:
    utl_BinIStream(int descriptor, omi_Swapper::EndianType order);

    signed char ReadSchar() { return ReadNumber<signed char>(); }
    short ReadShort() { return ReadNumber<short>(); }
    int ReadInt() { return ReadNumber<int>(); }
    unsigned ReadUInt() { return ReadNumber<unsigned>(); }
    std::int64_t ReadInt64() { return ReadNumber<std::int64_t>(); }
    std::uint64_t ReadUInt64() { return ReadNumber<std::uint64_t>(); }
    /// A length that the peer only claims costs no memory: it is taken as its bytes come.
    cow_String ReadString();
    /// All `count` bytes as they come; waits for them as long as it takes.
    void Read(char* bytes, int count);

private:
    template <class T> T ReadNumber()
    {
        char bytes[sizeof(T)];
        Read(bytes, sizeof bytes);
        if constexpr (sizeof(T) == 1)
            return static_cast<T>(bytes[0]);
        else
            return omi_Load<T>(bytes, m_Swapped);
    }

    int m_Descriptor;
    bool m_Swapped;
};
