#include "utl_BinOStream.h"

#include "atr_Translate.h"
#include "utl_BinStreamFormat.h"
#include "utl_PipeSignal.h"
#include "utl_SystemText.h"
#include "utl_Wait.h"

#include <cerrno>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr int kPieceBytes = 64 * 1024;

static bool IsSocket(int descriptor)
{
    struct stat status
    {
    };
    return ::fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode);
}

utl_BinOStream::utl_BinOStream(int descriptor, omi_Swapper::EndianType order)
    : m_Descriptor(descriptor),
      m_Swapped(omi_Swapper(order)),
      m_IsSocket(IsSocket(descriptor))
{
}

// A socket can be told for each write to send no signal; for a pipe the signal has to be taken back.
static ssize_t WriteOnce(int descriptor, bool isSocket, const char* bytes, std::size_t count)
{
    if (isSocket) return ::send(descriptor, bytes, count, MSG_NOSIGNAL);
    const utl_PipeSignal held;
    return ::write(descriptor, bytes, count);
}

[[noreturn]] static void Refuse(int error)
{
    if (error == EPIPE || error == ECONNRESET)
        utl_BinStreamEOF("write", utl_SystemText(error)).Throw(__FILE__, __LINE__);
    utl_BinStreamReadError("write", utl_SystemText(error)).Throw(__FILE__, __LINE__);
}

void utl_BinOStream::Write(const char* bytes, int count)
{
    if (!m_Holds || count >= kPieceBytes)
    {
        TransferHeld();
        Transfer(bytes, count);
        return;
    }
    m_Held.append(bytes, static_cast<std::size_t>(count));
    if (m_Held.size() >= std::size_t{kPieceBytes}) TransferHeld();
}

void utl_BinOStream::Send()
{
    m_Holds = false;
    TransferHeld();
}

void utl_BinOStream::TransferHeld()
{
    Transfer(m_Held.data(), static_cast<int>(m_Held.size())); // less than two pieces
    m_Held.clear();
}

void utl_BinOStream::Transfer(const char* bytes, int count)
{
    int done = 0;
    while (done < count)
    {
        const ssize_t moved =
            WriteOnce(m_Descriptor, m_IsSocket, bytes + done, static_cast<std::size_t>(count - done));
        if (moved >= 0)
            done += static_cast<int>(moved);
        else if (utl_WouldBlock(errno))
            utl_WaitUntilWritable(m_Descriptor);
        else if (errno != EINTR)
            Refuse(errno);
    }
}

void utl_BinOStream::RefuseLongString(const cow_String& text)
{
    if (static_cast<unsigned>(text.Length()) > utl_MostStringBytes)
        utl_BinStreamReadError("write", atr_Message("The text is longer than 16 MiB"))
            .Throw(__FILE__, __LINE__);
}

void utl_BinOStream::WriteString(const cow_String& text)
{
    RefuseLongString(text);
    // Length and bytes in one piece: a short text is one transfer, not two.
    std::string bytes(utl_StringLengthBytes, '\0');
    omi_Store(bytes.data(), static_cast<unsigned>(text.Length()), m_Swapped);
    bytes += text.View();
    Write(bytes.data(), static_cast<int>(bytes.size()));
}
