#include "Digest.h"

#include <fmt/format.h>
#include <openssl/evp.h>

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
} // namespace

Digest::Digest() : m_Context(::EVP_MD_CTX_new(), &::EVP_MD_CTX_free)
{
    m_Gathered.reserve(kGatheredBytes);
    Require(::EVP_DigestInit_ex(m_Context.get(), ::EVP_sha256(), nullptr));
}

void Digest::Drain()
{
    if (!m_Gathered.empty())
        Require(::EVP_DigestUpdate(m_Context.get(), m_Gathered.data(), m_Gathered.size()));
    m_Gathered.clear();
}

void Digest::Add(const char* bytes, std::size_t count)
{
    if (count > kGatheredBytes - m_Gathered.size()) Drain();
    if (count > kGatheredBytes)
        Require(::EVP_DigestUpdate(m_Context.get(), bytes, count));
    else
        m_Gathered.insert(m_Gathered.end(), bytes, bytes + count);
}

std::string Digest::Hex()
{
    Drain();
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    Require(::EVP_DigestFinal_ex(m_Context.get(), value, &size));
    std::string hex;
    for (unsigned i = 0; i < size; ++i) hex += fmt::format("{:02x}", value[i]);
    return hex;
}
} // namespace rfm_tool
