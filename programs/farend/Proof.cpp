#include "Proof.h"

#include "Failure.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace farend
{
namespace
{
// Names the key in the handshake; there is one, so that the name tells nothing.
constexpr std::string_view kIdentity = "qlnsrv";
// In front of the hello in the last step of the derivation: bytes made for this use serve no other.
constexpr std::string_view kPurpose = "qlnsrv relay to daemon 1";
// The one whose hash is that of the secret. AES with 128 bits is what every processor of today has in hardware.
constexpr const char* kCipherSuite = "TLS_AES_128_GCM_SHA256";
constexpr unsigned char kCipherSuiteId[2] = {0x13, 0x01};
constexpr const char* kGroups = "X25519:P-256";
constexpr long kRecordOverheadBytes = 22; // of this suite: head, type, tag
constexpr long kTransferBytes = kFramesPerTransfer * (long{kMostFrameBytes} + kRecordOverheadBytes);

using Octets = std::array<unsigned char, SharedSecret::kBytes>;

struct FreeKdf
{
    void operator()(EVP_KDF* kdf) const { EVP_KDF_free(kdf); }
    void operator()(EVP_KDF_CTX* context) const { EVP_KDF_CTX_free(context); }
};

[[noreturn]] void RefuseLibrary(const char* step)
{
    throw Failure(std::string("the TLS library could not ") + step);
}

// The library takes what it only reads through pointers to what it could change.
void* Unconst(const void* bytes) { return const_cast<void*>(bytes); }

void HashPassword(std::string_view password, const Hello& hello, Octets& hash)
{
    const std::uint64_t cost = std::uint64_t{1} << hello.costLog2;
    const std::uint64_t memory = 2 * 128 * cost * hello.blockSize;
    if (EVP_PBE_scrypt(password.data(), password.size(), hello.salt.data(), hello.salt.size(), cost,
                       hello.blockSize, hello.parallelism, memory, hash.data(), hash.size()) != 1)
        RefuseLibrary("hash the password");
}

void Extract(std::string_view key, const Hello& hello, Octets& secret)
{
    const std::unique_ptr<EVP_KDF, FreeKdf> kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    const std::unique_ptr<EVP_KDF_CTX, FreeKdf> context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
    if (context == nullptr) RefuseLibrary("derive a key");
    std::string purpose = std::string(kPurpose) + EncodeHello(hello);
    std::string digest = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest.data(), 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, Unconst(key.data()), key.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, Unconst(hello.salt.data()), hello.salt.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, purpose.data(), purpose.size()),
        OSSL_PARAM_construct_end(),
    };
    if (EVP_KDF_derive(context.get(), secret.data(), secret.size(), parameters) != 1)
        RefuseLibrary("derive a key");
}

// The secret in the form in which TLS takes it; null where memory ends. The caller owns it.
SSL_SESSION* SessionOf(SSL* connection)
{
    const auto* secret = static_cast<const SharedSecret*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
    SSL_SESSION* session = SSL_SESSION_new();
    const SSL_CIPHER* cipher = SSL_CIPHER_find(connection, kCipherSuiteId);
    if (session != nullptr && cipher != nullptr &&
        SSL_SESSION_set1_master_key(session, secret->Bytes().data(), SharedSecret::kBytes) == 1 &&
        SSL_SESSION_set_cipher(session, cipher) == 1 &&
        SSL_SESSION_set_protocol_version(session, TLS1_3_VERSION) == 1)
        return session;
    SSL_SESSION_free(session);
    return nullptr;
}

extern "C" int OfferSecret(SSL* connection, const EVP_MD* digest, const unsigned char** identity,
                           std::size_t* identityBytes, SSL_SESSION** session)
{
    *session = nullptr;
    *identity = reinterpret_cast<const unsigned char*>(kIdentity.data());
    *identityBytes = kIdentity.size();
    // The library asks a second time when the daemon wanted another group; the hash is then settled, and is ours.
    if (digest != nullptr && EVP_MD_get_type(digest) != NID_sha256) return 1;
    *session = SessionOf(connection);
    return *session != nullptr ? 1 : 0;
}

extern "C" int FindSecret(SSL* connection, const unsigned char* identity, std::size_t identityBytes,
                          SSL_SESSION** session)
{
    *session = nullptr;
    if (std::string_view(reinterpret_cast<const char*>(identity), identityBytes) != kIdentity) return 1;
    *session = SessionOf(connection);
    return *session != nullptr ? 1 : 0;
}

// By itself the library takes two calls of the system to read a record and one to write it. Through this buffer some
// records move with one call. What is in it is encrypted already. Null where memory ends. The caller owns it.
BIO* BufferedTransfers(int socket)
{
    BIO* const buffer = BIO_new(BIO_f_buffer());
    BIO* const socketEnd = BIO_new_socket(socket, BIO_NOCLOSE);
    if (buffer != nullptr && socketEnd != nullptr && BIO_set_read_buffer_size(buffer, kTransferBytes) == 1 &&
        BIO_set_write_buffer_size(buffer, kTransferBytes) == 1)
        return BIO_push(buffer, socketEnd);
    BIO_free(buffer);
    BIO_free(socketEnd);
    return nullptr;
}

// Before any other use of the library: whoever sets a variable of the environment must not load code into us.
void StartLibraryWithoutConfiguration() { OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr); }
} // namespace

SharedSecret::SharedSecret(const Key& key, const Hello& hello)
{
    StartLibraryWithoutConfiguration();
    if (key.IsMade())
    {
        Extract(key.Bytes(), hello, m_Bytes);
        return;
    }
    Octets hash{};
    HashPassword(key.Bytes(), hello, hash);
    Extract({reinterpret_cast<const char*>(hash.data()), hash.size()}, hello, m_Bytes);
    ::explicit_bzero(hash.data(), hash.size());
}

SharedSecret::~SharedSecret() { ::explicit_bzero(m_Bytes.data(), m_Bytes.size()); }

ProvingTls::ProvingTls(End end, const SharedSecret& secret)
    : m_End(end),
      m_Context(SSL_CTX_new(end == End::Relay ? TLS_client_method() : TLS_server_method()))
{
    SSL_CTX* context = m_Context.get();
    if (context == nullptr || SSL_CTX_set_min_proto_version(context, TLS1_3_VERSION) != 1 ||
        SSL_CTX_set_max_proto_version(context, TLS1_3_VERSION) != 1 ||
        SSL_CTX_set_ciphersuites(context, kCipherSuite) != 1 ||
        SSL_CTX_set1_groups_list(context, kGroups) != 1 || SSL_CTX_set_num_tickets(context, 0) != 1)
        RefuseLibrary("start");
    SSL_CTX_set_options(context, SSL_OP_NO_TICKET);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_app_data(context, Unconst(&secret));
    if (end == End::Daemon)
    {
        SSL_CTX_set_psk_find_session_callback(context, FindSecret);
        return;
    }
    // No certificate is trusted: a daemon that shows one instead of proving the key gets nowhere.
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_psk_use_session_callback(context, OfferSecret);
}

TlsConnection ProvingTls::Connect(int socket) const
{
    TlsConnection connection(SSL_new(m_Context.get()));
    BIO* const transfers = connection != nullptr ? BufferedTransfers(socket) : nullptr;
    if (transfers == nullptr) RefuseLibrary("begin a connection");
    SSL_set_bio(connection.get(), transfers, transfers);
    if (m_End == End::Relay)
        SSL_set_connect_state(connection.get());
    else
        SSL_set_accept_state(connection.get());
    return connection;
}
} // namespace farend
