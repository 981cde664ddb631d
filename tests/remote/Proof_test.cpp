#include "Channel.h"
#include "FailedTries.h"
#include "Failure.h"
#include "Socket.h"
#include "Wire.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <csignal>
#include <sys/socket.h>

#include <thread>

using namespace farend;
using namespace std::chrono_literals;

namespace
{
const std::string kMadeKey = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

Hello SampleHello()
{
    Hello hello;
    for (std::size_t i = 0; i < kSaltBytes; ++i) hello.salt[i] = static_cast<unsigned char>(i);
    return hello;
}

std::string Hex(const SharedSecret& secret)
{
    std::string text;
    for (const unsigned char byte : secret.Bytes())
    {
        text += "0123456789abcdef"[byte >> 4U];
        text += "0123456789abcdef"[byte & 0xFU];
    }
    return text;
}

Deadline Soon() { return Deadline::In(20s); }

// What each end makes of the other.
struct Proofs
{
    Channel::Proof relay = Channel::Proof::TimedOut;
    Channel::Proof daemon = Channel::Proof::TimedOut;
};

Proofs Introduce(const SharedSecret& relaySecret, const SharedSecret& daemonSecret)
{
    Wire wire;
    const ProvingTls relayTls(ProvingTls::End::Relay, relaySecret);
    const ProvingTls daemonTls(ProvingTls::End::Daemon, daemonSecret);
    Proofs proofs;
    std::thread daemonEnd(
        [&]
        {
            Channel channel(daemonTls, std::move(wire.daemon));
            proofs.daemon = channel.Prove(Soon());
        });
    Channel channel(relayTls, std::move(wire.relay));
    proofs.relay = channel.Prove(Soon());
    daemonEnd.join();
    return proofs;
}

struct FreeOpenSsl
{
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};

// A server of the right version and cipher, with a certificate of its own making.
std::unique_ptr<SSL_CTX, FreeTls> CertificateServer()
{
    std::unique_ptr<SSL_CTX, FreeTls> context(SSL_CTX_new(TLS_server_method()));
    const std::unique_ptr<EVP_PKEY, FreeOpenSsl> key(EVP_EC_gen("P-256"));
    const std::unique_ptr<X509, FreeOpenSsl> certificate(X509_new());
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), key.get());
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    EXPECT_EQ(SSL_CTX_use_certificate(context.get(), certificate.get()), 1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey(context.get(), key.get()), 1);
    return context;
}
} // namespace

// Both texts were computed with another implementation of HKDF and scrypt.
TEST(SharedSecret, AMadeKeyGoesThroughHkdfWithTheHello)
{
    EXPECT_EQ(Hex(SharedSecret(Key(kMadeKey), SampleHello())),
              "350df6e5ef35b2aeefe8d2acc4bd4e50a590c0a6c319f0dd6febc4c5472131ac");
}

TEST(SharedSecret, APasswordGoesThroughScryptWithTheDaemonsSaltFirst)
{
    EXPECT_EQ(Hex(SharedSecret(Key("a password"), SampleHello())),
              "f58b9f069e0d8c825951e2154c13baeca0d81cee9c12d261ed686664321cef0a");
}

TEST(SharedSecret, EveryByteOfTheHelloGoesIntoIt)
{
    const std::string before = Hex(SharedSecret(Key(kMadeKey), SampleHello()));
    for (std::size_t i = 0; i < kSaltBytes; ++i)
    {
        Hello other = SampleHello();
        other.salt[i] ^= 1U;
        EXPECT_NE(Hex(SharedSecret(Key(kMadeKey), other)), before) << i;
    }
    Hello other = SampleHello();
    other.costLog2 = 16; // a made key isn't hashed, and still notices
    EXPECT_NE(Hex(SharedSecret(Key(kMadeKey), other)), before);
}

TEST(Proof, EndsWithTheSameSecretProveItToEachOther)
{
    const SharedSecret secret(Key(kMadeKey), SampleHello());
    const Proofs proofs = Introduce(secret, secret);
    EXPECT_EQ(proofs.relay, Channel::Proof::Given);
    EXPECT_EQ(proofs.daemon, Channel::Proof::Given);
}

TEST(Proof, EndsWithDifferentSecretsRefuseEachOther)
{
    const SharedSecret secret(Key(kMadeKey), SampleHello());
    const SharedSecret other(Key(std::string(64, 'b')), SampleHello());
    const Proofs proofs = Introduce(secret, other);
    EXPECT_EQ(proofs.relay, Channel::Proof::Refused);
    EXPECT_EQ(proofs.daemon, Channel::Proof::Refused);
}

TEST(Proof, ACertificateInPlaceOfTheSecretIsRefused)
{
    Wire wire;
    std::thread server(
        [&]
        {
            const auto context = CertificateServer();
            const TlsConnection connection(SSL_new(context.get()));
            SSL_set_fd(connection.get(), wire.daemon.Get());
            EXPECT_NE(SSL_accept(connection.get()), 1);
            wire.daemon.Close();
        });
    const SharedSecret secret(Key(kMadeKey), SampleHello());
    const ProvingTls tls(ProvingTls::End::Relay, secret);
    Channel channel(tls, std::move(wire.relay));
    EXPECT_EQ(channel.Prove(Soon()), Channel::Proof::Refused);
    server.join();
}

TEST(Proof, ARelayWithoutTheSecretIsRefusedThoughItTrustsEverybody)
{
    Wire wire;
    std::thread stranger(
        [&]
        {
            const std::unique_ptr<SSL_CTX, FreeTls> context(SSL_CTX_new(TLS_client_method()));
            const TlsConnection connection(SSL_new(context.get()));
            SSL_set_fd(connection.get(), wire.relay.Get());
            EXPECT_NE(SSL_connect(connection.get()), 1);
            wire.relay.Close();
        });
    const SharedSecret secret(Key(kMadeKey), SampleHello());
    const ProvingTls tls(ProvingTls::End::Daemon, secret);
    Channel channel(tls, std::move(wire.daemon));
    EXPECT_EQ(channel.Prove(Soon()), Channel::Proof::Refused);
    channel.Finish(Soon());
    stranger.join();
}

TEST(Proof, ASilentPeerIsGivenUpWhenTheTimeIsUp)
{
    Wire wire;
    const SharedSecret secret(Key(kMadeKey), SampleHello());
    const ProvingTls tls(ProvingTls::End::Relay, secret);
    Channel channel(tls, std::move(wire.relay));
    EXPECT_EQ(channel.Prove(Deadline::In(1ms)), Channel::Proof::TimedOut);
}

TEST(Proof, APeerThatLeavesIsNoWrongKey)
{
    std::signal(SIGPIPE, SIG_IGN); // as all programs do that use a channel
    Wire wire;
    wire.relay.Close();
    const SharedSecret secret(Key(kMadeKey), SampleHello());
    const ProvingTls tls(ProvingTls::End::Daemon, secret);
    Channel channel(tls, std::move(wire.daemon));
    EXPECT_EQ(channel.Prove(Soon()), Channel::Proof::Ended);
}

TEST(ReceiveBy, GivesUpOnASilentPeerAndKeepsWhatCame)
{
    const Wire wire;
    ASSERT_EQ(::send(wire.daemon.Get(), "abc", 3, 0), 3);
    char bytes[10];
    EXPECT_EQ(ReceiveBy(Deadline::In(5ms), wire.relay.Get(), bytes, sizeof bytes), 3U);
}

TEST(ParseNumber, TakesDecimalDigitsWithinTheBoundsAndNothingElse)
{
    EXPECT_EQ(ParseNumber("-port", "1", 1, 65535), 1);
    EXPECT_EQ(ParseNumber("-port", "65535", 1, 65535), 65535);
    for (const char* text : {"", "0", "65536", "-1", "+5", " 5", "5 ", "5x", "0x10", "99999999999999999999"})
        EXPECT_THROW(ParseNumber("-port", text, 1, 65535), Failure) << text;
}

TEST(FailedTries, FourAreFreeAndThenEachDoublesTheWaitUpToFiveMinutes)
{
    using qlnsrvd::FailedTries;
    EXPECT_EQ(FailedTries::WaitAfter(0), 0s);
    EXPECT_EQ(FailedTries::WaitAfter(4), 0s);
    EXPECT_EQ(FailedTries::WaitAfter(5), 1s);
    EXPECT_EQ(FailedTries::WaitAfter(6), 2s);
    EXPECT_EQ(FailedTries::WaitAfter(13), 256s);
    EXPECT_EQ(FailedTries::WaitAfter(14), 300s);
    EXPECT_EQ(FailedTries::WaitAfter(1000), 300s);
}

TEST(FailedTries, OneAddressDoesNotMakeAnotherWaitAndARightKeyClearsIt)
{
    qlnsrvd::FailedTries tries;
    for (int i = 0; i < 10; ++i) tries.Add("192.0.2.1");
    EXPECT_TRUE(tries.MustWait("192.0.2.1"));
    EXPECT_FALSE(tries.MustWait("192.0.2.2"));
    tries.Clear("192.0.2.1");
    EXPECT_FALSE(tries.MustWait("192.0.2.1"));
}

TEST(FailedTries, AFloodOfAddressesForgetsTheLeastGuiltyAndNotTheWorst)
{
    qlnsrvd::FailedTries tries;
    for (int i = 0; i < 14; ++i) tries.Add("192.0.2.1");
    for (std::size_t i = 0; i < 2 * qlnsrvd::FailedTries::kMostAddresses; ++i) tries.Add(std::to_string(i));
    EXPECT_TRUE(tries.MustWait("192.0.2.1"));
}
