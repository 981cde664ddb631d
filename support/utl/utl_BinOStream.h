#pragma once

#include "cow_String.h"
#include "omi_Swapper.h"
#include "utl_BinStreamException.h"

#include <cstdint>
#include <string>

/// Writes typed values to a file descriptor, a pipe or socket as a rule; utl_BinStreamFormat.h draws their bytes.
/// The stream keeps nothing back, except between `Hold` and `Send`: when a call returns, the system has all of it. It
/// does not own the descriptor, which must stay open as long as the stream is used; several streams may write to one
/// descriptor in turn.
/// Throws: utl_BinStreamEOF when the reader has gone, utl_BinStreamReadError for everything else that the system refuses
/// and for a text of more than 16 MiB. What was written before the failure has been written. A reader that has gone
/// never ends the program: SIGPIPE is kept from it, and its own handling of the signal stays as it is.
/// Threads: one at a time on one descriptor, or the bytes of two calls may mix.
class utl_BinOStream
{
public:
    utl_BinOStream(int descriptor, omi_Swapper::EndianType order);

    void WriteSchar(signed char value) { WriteNumber(value); }
    void WriteUchar(unsigned char value) { WriteNumber(value); }
    void WriteShort(short value) { WriteNumber(value); }
    void WriteInt(int value) { WriteNumber(value); }
    void WriteUInt(unsigned value) { WriteNumber(value); }
    void WriteInt64(std::int64_t value) { WriteNumber(value); }
    void WriteUInt64(std::uint64_t value) { WriteNumber(value); }
    void WriteString(const cow_String& text);
    /// Throws what WriteString throws for a text that is too long: for a message whose first fields must not go out
    /// without it.
    static void RefuseLongString(const cow_String& text);
    /// The bytes as given. Waits as long as the reader takes nothing.
    void Write(const char* bytes, int count);

    /// From here on writes are gathered into pieces of 64 KiB and more, and `Send` ends that with the last piece. For a
    /// message of many small fields: field by field a listing through a relay takes five times as long. What was not sent when the stream
    /// goes is lost.
    void Hold() noexcept { m_Holds = true; }
    void Send();

private:
    template <class T> void WriteNumber(T value)
    {
        char bytes[sizeof(T)];
        if constexpr (sizeof(T) == 1)
            bytes[0] = static_cast<char>(value);
        else
            omi_Store(bytes, value, m_Swapped);
        Write(bytes, sizeof bytes);
    }
    void Transfer(const char* bytes, int count);
    void TransferHeld();

    int m_Descriptor;
    bool m_Swapped;
    bool m_IsSocket;
    bool m_Holds = false;
    std::string m_Held; // empty unless m_Holds
};
