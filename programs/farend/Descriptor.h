#pragma once

#include <unistd.h>

#include <utility>

namespace farend
{
/// Owns an open file descriptor.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : m_Number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_Number(std::exchange(other.m_Number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        if (this != &other)
        {
            Close();
            m_Number = std::exchange(other.m_Number, -1);
        }
        return *this;
    }
    ~Descriptor() { Close(); }

    /// The number, -1 when there is none; poll() passes over a -1.
    int Get() const noexcept { return m_Number; }
    bool IsOpen() const noexcept { return m_Number >= 0; }
    void Close() noexcept
    {
        if (m_Number >= 0) ::close(m_Number);
        m_Number = -1;
    }

private:
    int m_Number = -1;
};

/// Both ends of a pipe, close-on-exec.
/// Throws: Failure.
struct Pipe
{
    Pipe();
    Descriptor read;
    Descriptor write;
};

/// Makes reads and writes answer EAGAIN rather than wait; the former flags come back at the end.
class NonBlocking
{
public:
    explicit NonBlocking(int descriptor) noexcept;
    NonBlocking(const NonBlocking&) = delete;
    NonBlocking& operator=(const NonBlocking&) = delete;
    ~NonBlocking();

private:
    int m_Descriptor;
    int m_Flags;
};

/// Closes everything but the three standard descriptors: what somebody left open above is none of ours.
void CloseStrayDescriptors() noexcept;

/// Fills the numbers of standard descriptors that are closed, so that no socket or pipe gets one of them and is taken for
/// an input or an output. What is filled in refuses to be read or written, as a closed one does.
/// Throws: Failure.
void FillStandardDescriptors();

/// Points the three standard descriptors at nothing. Whoever waits for the end of our output is let go, and no
/// later descriptor gets one of their numbers.
/// Throws: Failure.
void LetGoOfStandardDescriptors();
} // namespace farend
