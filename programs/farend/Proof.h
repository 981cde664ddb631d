#pragma once

#include "Key.h"
#include "RelayFormat.h"

#include <openssl/ssl.h>

#include <array>
#include <memory>

namespace farend
{
/// What both ends make of the key and the daemon's hello, and feed to TLS. Never crosses the wire.
class SharedSecret
{
public:
    static constexpr std::size_t kBytes = 32;

    /// A password is hashed with the hello's salt and cost first, which takes a tenth of a second and 32 MiB.
    /// All bytes of the hello go into it: ends that have seen different hellos have nothing in common.
    /// Throws: Failure.
    SharedSecret(const Key& key, const Hello& hello);
    SharedSecret(const SharedSecret&) = delete;
    SharedSecret& operator=(const SharedSecret&) = delete;
    ~SharedSecret();

    const std::array<unsigned char, kBytes>& Bytes() const { return m_Bytes; }

private:
    std::array<unsigned char, kBytes> m_Bytes{};
};

struct FreeTls
{
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* connection) const { SSL_free(connection); }
};
using TlsConnection = std::unique_ptr<SSL, FreeTls>;

/// Makes connections on which each end proves to the other that it has the secret: TLS 1.3 alone, the secret as its
/// external pre-shared key, with a fresh key exchange each time. No certificates, no tickets, no early data.
class ProvingTls
{
public:
    enum class End
    {
        Relay,
        Daemon,
    };
    /// `secret` is needed until the last connection is proved.
    /// Throws: Failure.
    ProvingTls(End end, const SharedSecret& secret);

    /// Throws: Failure.
    TlsConnection Connect(int socket) const;

private:
    End m_End;
    std::unique_ptr<SSL_CTX, FreeTls> m_Context;
};
} // namespace farend
