#include "Channel.h"

#include "Failure.h"

#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <fcntl.h>

namespace farend
{
Channel::Channel(const ProvingTls& tls, Descriptor socket)
    : m_Socket(std::move(socket)),
      m_Tls(tls.Connect(m_Socket.Get()))
{
    ::fcntl(m_Socket.Get(), F_SETFL, ::fcntl(m_Socket.Get(), F_GETFL) | O_NONBLOCK);
}

Channel::Proof Channel::Prove(const Deadline& deadline)
{
    for (;;)
    {
        ERR_clear_error();
        const int answer = SSL_do_handshake(m_Tls.get());
        if (answer == 1) break;
        const int error = SSL_get_error(m_Tls.get(), answer);
        const bool wantsRead = error == SSL_ERROR_WANT_READ;
        if (!wantsRead && error != SSL_ERROR_WANT_WRITE)
        {
            const bool endedEarly = error == SSL_ERROR_SYSCALL || error == SSL_ERROR_ZERO_RETURN ||
                                    ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
            m_IsDeaf = true;
            return endedEarly ? Proof::Ended : Proof::Refused;
        }
        pollfd socket = {m_Socket.Get(), static_cast<short>(wantsRead ? POLLIN : POLLOUT), 0};
        if (deadline.HasPassed()) return Proof::TimedOut;
        ::poll(&socket, 1, deadline.MillisecondsLeft());
    }
    // The only proof there is: a handshake that did without the secret must never count.
    return SSL_session_reused(m_Tls.get()) == 1 ? Proof::Given : Proof::Refused;
}

void Channel::Send(FrameType type, std::string_view payload)
{
    if (m_IsDeaf) return;
    const auto head = EncodeFrameHead({type, payload.size()});
    m_Queue.erase(0, m_QueueStart);
    m_QueueStart = 0;
    m_Queue.append(head.begin(), head.end()).append(payload);
}

void Channel::SendAll(FrameType type, std::string_view bytes)
{
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kMostPayloadBytes)))
        Send(type, bytes.substr(0, kMostPayloadBytes));
}

bool Channel::HasQueued() const
{
    return !m_IsDeaf && (m_QueueStart < m_Queue.size() || BIO_wpending(SSL_get_wbio(m_Tls.get())) > 0);
}

void Channel::Flush()
{
    Encrypt();
    if (!m_IsDeaf) PushRecords();
}

// Moves the queue into records.
void Channel::Encrypt()
{
    while (m_QueueStart < m_Queue.size() && !m_IsDeaf)
    {
        ERR_clear_error();
        std::size_t written = 0;
        const int answer =
            SSL_write_ex(m_Tls.get(), m_Queue.data() + m_QueueStart, m_Queue.size() - m_QueueStart, &written);
        if (answer == 1)
        {
            m_QueueStart += written;
            continue;
        }
        const int error = SSL_get_error(m_Tls.get(), answer);
        if (error == SSL_ERROR_WANT_WRITE || error == SSL_ERROR_WANT_READ) return;
        m_IsDeaf = true;
    }
    m_Queue.clear();
    m_QueueStart = 0;
}

// Gets records out of the buffer in front of the socket.
void Channel::PushRecords()
{
    BIO* const records = SSL_get_wbio(m_Tls.get());
    if (BIO_wpending(records) > 0 && BIO_flush(records) != 1 && !BIO_should_retry(records)) m_IsDeaf = true;
}

// Fills the frame up to `size` bytes; answers whether they are there.
bool Channel::ReadUpTo(std::size_t size)
{
    m_ReadWaitsForRoom = false;
    while (m_FrameSize < size && !m_HasEnded)
    {
        ERR_clear_error();
        std::size_t read = 0;
        const int answer = SSL_read_ex(m_Tls.get(), m_Frame.data() + m_FrameSize, size - m_FrameSize, &read);
        if (answer == 1)
        {
            m_FrameSize += read;
            continue;
        }
        const int error = SSL_get_error(m_Tls.get(), answer);
        m_ReadWaitsForRoom = error == SSL_ERROR_WANT_WRITE;
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) return false;
        m_HasEnded = true;
        if (error != SSL_ERROR_ZERO_RETURN) m_IsDeaf = true;
    }
    return m_FrameSize >= size;
}

std::optional<Channel::Frame> Channel::Next()
{
    if (m_FrameTaken) m_FrameSize = 0;
    m_FrameTaken = false;
    if (!ReadUpTo(kFrameHeadBytes)) return std::nullopt;
    const FrameHead head = DecodeFrameHead({m_Frame.data(), kFrameHeadBytes});
    if (!ReadUpTo(kFrameHeadBytes + head.length)) return std::nullopt;
    m_FrameTaken = true;
    return Frame{head.type, {m_Frame.data() + kFrameHeadBytes, head.length}};
}

short Channel::Events(bool wantFrames) const
{
    const bool wantRoom = HasQueued() || (wantFrames && m_ReadWaitsForRoom);
    return static_cast<short>((wantFrames && !m_HasEnded ? POLLIN : 0) | (wantRoom ? POLLOUT : 0));
}

// Answers false when the time is up.
bool Channel::WaitBy(const Deadline& deadline, bool wantFrames) const
{
    if (deadline.HasPassed()) return false;
    pollfd socket = {m_Socket.Get(), Events(wantFrames), 0};
    ::poll(&socket, 1, deadline.MillisecondsLeft());
    return true;
}

bool Channel::FlushBy(const Deadline& deadline)
{
    for (;;)
    {
        Flush();
        if (m_IsDeaf) return false;
        if (!HasQueued()) return true;
        if (!WaitBy(deadline, false)) return false;
    }
}

std::optional<Channel::Frame> Channel::NextBy(const Deadline& deadline)
{
    for (;;)
    {
        if (const auto frame = Next()) return frame;
        if (m_HasEnded || !WaitBy(deadline, true)) return std::nullopt;
    }
}

void Channel::Finish(const Deadline& deadline)
{
    FlushBy(deadline);
    ERR_clear_error();
    if (!m_IsDeaf) SSL_shutdown(m_Tls.get());
    ::shutdown(m_Socket.Get(), SHUT_WR);
    for (char bytes[4096];;)
    {
        const ssize_t read = ::recv(m_Socket.Get(), bytes, sizeof bytes, 0);
        if (read == 0 || (read < 0 && errno != EAGAIN && errno != EINTR)) return;
        pollfd socket = {m_Socket.Get(), POLLIN, 0};
        if (deadline.HasPassed()) return;
        if (read < 0) ::poll(&socket, 1, deadline.MillisecondsLeft());
    }
}
} // namespace farend
