#include "Digest.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/opensslv.h>

#include <stdexcept>

namespace rfm_tool
{
namespace
{
constexpr std::size_t kGatheredBytes = 16384;

// OpenSSL refuses only what its configuration switched off.
void Require(int result)
{
    if (result != 1) throw std::runtime_error("SHA-256 is not available in OpenSSL");
}

// The few functions of OpenSSL that are needed, out of a library that is loaded when the first digest is made: with it
// among those that every start loads, a start took twice as long (1.4 of 2.8 ms), and most commands make no digest.
struct Crypto
{
    Crypto();
    template <class Function> void Find(Function& function, const char* name)
    {
        function = reinterpret_cast<Function>(::dlsym(library, name));
        if (function == nullptr) throw std::runtime_error(fmt::format("OpenSSL has no {}", name));
    }

    void* library; // stays loaded
    decltype(&::EVP_MD_CTX_new) newContext = nullptr;
    decltype(&::EVP_MD_CTX_free) freeContext = nullptr;
    decltype(&::EVP_sha256) sha256 = nullptr;
    decltype(&::EVP_DigestInit_ex) init = nullptr;
    decltype(&::EVP_DigestUpdate) update = nullptr;
    decltype(&::EVP_DigestFinal_ex) final = nullptr;
    decltype(&::OpenSSL_version) version = nullptr;
};

Crypto::Crypto()
    : library(::dlopen(fmt::format("libcrypto.so.{}", OPENSSL_VERSION_MAJOR).c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (library == nullptr) throw std::runtime_error(fmt::format("OpenSSL can't be loaded: {}", ::dlerror()));
    Find(newContext, "EVP_MD_CTX_new");
    Find(freeContext, "EVP_MD_CTX_free");
    Find(sha256, "EVP_sha256");
    Find(init, "EVP_DigestInit_ex");
    Find(update, "EVP_DigestUpdate");
    Find(final, "EVP_DigestFinal_ex");
    Find(version, "OpenSSL_version");
}

const Crypto& TheCrypto()
{
    static const Crypto crypto;
    return crypto;
}
} // namespace

Digest::Digest() : m_Context(TheCrypto().newContext(), TheCrypto().freeContext)
{
    m_Gathered.reserve(kGatheredBytes);
    Require(TheCrypto().init(m_Context.get(), TheCrypto().sha256(), nullptr));
}

void Digest::Drain()
{
    if (!m_Gathered.empty())
        Require(TheCrypto().update(m_Context.get(), m_Gathered.data(), m_Gathered.size()));
    m_Gathered.clear();
}

void Digest::Add(const char* bytes, std::size_t count)
{
    if (count > kGatheredBytes - m_Gathered.size()) Drain();
    if (count > kGatheredBytes)
        Require(TheCrypto().update(m_Context.get(), bytes, count));
    else
        m_Gathered.insert(m_Gathered.end(), bytes, bytes + count);
}

std::string Digest::Hex()
{
    Drain();
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    Require(TheCrypto().final(m_Context.get(), value, &size));
    std::string hex;
    for (unsigned i = 0; i < size; ++i) hex += fmt::format("{:02x}", value[i]);
    return hex;
}

std::string Digest::LibraryVersion() { return TheCrypto().version(OPENSSL_VERSION_STRING); }
} // namespace rfm_tool
