#include "Key.h"

#include "Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/random.h>
#include <unistd.h>

namespace farend
{
namespace
{
constexpr std::size_t kRandomBytes = Key::kMadeBytes / 2;

// A buffer for secret bytes that clears itself.
template <std::size_t N> struct Cleared
{
    Cleared() = default;
    Cleared(const Cleared&) = delete;
    Cleared& operator=(const Cleared&) = delete;
    ~Cleared() { ::explicit_bzero(bytes, N); }
    char bytes[N] = {};
};

// Reads until `count` bytes are there or the input ends; answers how many.
std::size_t ReadUpTo(int descriptor, char* bytes, std::size_t count)
{
    std::size_t have = 0;
    while (have < count)
    {
        const ssize_t got = ::read(descriptor, bytes + have, count - have);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw Failure("cannot read the key", errno);
        if (got == 0) break;
        have += static_cast<std::size_t>(got);
    }
    return have;
}

void WriteAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty())
    {
        const ssize_t put = ::write(descriptor, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) throw Failure("cannot hand on the key", errno);
        bytes.remove_prefix(static_cast<std::size_t>(put));
    }
}

void CheckLength(std::size_t length)
{
    if (length < Key::kLeastBytes)
        throw Failure("a key has at least 8 bytes, this one has " + std::to_string(length));
    if (length > Key::kMostBytes) throw Failure("a key has at most 255 bytes, this one has more");
}
} // namespace

void FillWithRandomBytes(unsigned char* bytes, std::size_t count)
{
    // Up to 256 bytes come whole.
    if (::getrandom(bytes, count, 0) != static_cast<ssize_t>(count))
        throw Failure("cannot get random bytes", errno);
}

Key::Key(std::string_view bytes) { Put(bytes); }

Key::~Key() { ::explicit_bzero(m_Message.data(), m_Message.size()); }

void Key::Put(std::string_view bytes)
{
    CheckLength(bytes.size());
    m_Message[0] = static_cast<char>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), m_Message.begin() + 1);
}

void Key::Make()
{
    Cleared<kRandomBytes> random;
    Cleared<kMadeBytes> digits;
    FillWithRandomBytes(reinterpret_cast<unsigned char*>(random.bytes), kRandomBytes);
    for (std::size_t i = 0; i < kRandomBytes; ++i)
    {
        const auto byte = static_cast<unsigned char>(random.bytes[i]);
        digits.bytes[2 * i] = "0123456789abcdef"[byte >> 4U];
        digits.bytes[2 * i + 1] = "0123456789abcdef"[byte & 0xFU];
    }
    Put({digits.bytes, kMadeBytes});
}

void Key::ReadFrom(int descriptor)
{
    unsigned char length = 0;
    if (ReadUpTo(descriptor, reinterpret_cast<char*>(&length), 1) == 0)
        throw Failure("the standard input ended before the key");
    CheckLength(length);
    Cleared<kMostBytes> read;
    if (ReadUpTo(descriptor, read.bytes, length) < length)
        throw Failure("the standard input ended inside the key");
    Put({read.bytes, length});
}

void Key::ReadAllFrom(int descriptor)
{
    Cleared<kMostBytes + 1> read; // one more, to see that there is more
    Put({read.bytes, ReadUpTo(descriptor, read.bytes, sizeof read.bytes)});
}

void Key::WriteTo(int descriptor) const { WriteAll(descriptor, Message()); }

bool Key::IsMade() const
{
    return Size() == kMadeBytes && Bytes().find_first_not_of("0123456789abcdef") == std::string_view::npos;
}
} // namespace farend
