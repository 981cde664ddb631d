#pragma once

#include "Deadline.h"
#include "Descriptor.h"
#include "Proof.h"
#include "RelayFormat.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace farend
{
/// Frames over TLS over a socket that doesn't block. What is sent waits in a queue until Flush() gets it out; what
/// arrives is taken a frame at a time, and while nobody takes it, nothing is read: memory is bounded both ways.
/// SIGPIPE must be ignored: TLS writes with calls that raise it.
///
///   [ new ] --Prove--> [ proved ] --Finish, or the other end leaves--> [ ended ]
class Channel
{
public:
    enum class Proof
    {
        Given,
        Refused, // the other end has another key, or what it sends is no TLS
        Ended,   // it left
        TimedOut,
    };

    struct Frame
    {
        FrameType type = FrameType::Data;
        std::string_view payload; // until the next call of Next()
    };

    Channel(const ProvingTls& tls, Descriptor socket);

    /// Both ends show that they have the secret.
    Proof Prove(const Deadline& deadline);

    /// Queues a frame.
    void Send(FrameType type, std::string_view payload);
    /// Queues as many frames of this type as the bytes need.
    void SendAll(FrameType type, std::string_view bytes);
    /// Gets out as much of the queue as the socket takes now.
    void Flush();
    bool HasQueued() const;
    /// Whether another frame may be queued.
    bool HasRoom() const { return m_Queue.size() - m_QueueStart < kMostFrameBytes; }

    /// The next frame, if it is there whole.
    /// Throws: Failure for bytes that are no frame.
    std::optional<Frame> Next();
    /// Nothing more will arrive.
    bool HasEnded() const { return m_HasEnded; }
    /// Nothing more can be sent.
    bool IsDeaf() const { return m_IsDeaf; }

    /// Waits until the queue is out, the other end has gone, or the time is up; answers whether it is out.
    bool FlushBy(const Deadline& deadline);
    /// Waits for a frame; none when the other end has gone or the time is up.
    std::optional<Frame> NextBy(const Deadline& deadline);
    /// Says that no more comes, and waits until the other end has seen it: closing with bytes of it unread would
    /// take back from it what it has not read yet.
    void Finish(const Deadline& deadline);

    int Socket() const { return m_Socket.Get(); }
    /// What to poll the socket for, when frames are or are not wanted.
    short Events(bool wantFrames) const;

private:
    void Encrypt();
    void PushRecords();
    bool ReadUpTo(std::size_t size);
    bool WaitBy(const Deadline& deadline, bool wantFrames) const;

    Descriptor m_Socket; // in front of m_Tls, which ends first
    TlsConnection m_Tls;
    bool m_IsDeaf = false;
    bool m_HasEnded = false;
    bool m_ReadWaitsForRoom = false; // TLS itself has to say something before it can read on
    std::string m_Queue;
    std::size_t m_QueueStart = 0;
    std::array<char, kMostFrameBytes> m_Frame{};
    std::size_t m_FrameSize = 0;
    bool m_FrameTaken = false;
};
} // namespace farend
