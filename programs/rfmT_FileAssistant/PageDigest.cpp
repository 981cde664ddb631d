#include "PageDigest.h"

#include "Failure.h"
#include "Key.h"

#include <openssl/evp.h>

namespace assistant
{
namespace
{
// OpenSSL refuses only what its configuration switched off.
void Require(int result)
{
    if (result != 1) throw farend::Failure("AES-128-GCM is not available in OpenSSL");
}
} // namespace

// The tag of AES-128-GCM over bytes that are only authenticated. Its nonce may stay the same, as no tag is ever seen.
PageDigest::PageDigest() : m_Context(::EVP_CIPHER_CTX_new(), &::EVP_CIPHER_CTX_free)
{
    unsigned char key[16];
    farend::FillWithRandomBytes(key, sizeof key);
    Require(::EVP_EncryptInit_ex(m_Context.get(), ::EVP_aes_128_gcm(), nullptr, key, nullptr));
    Restart();
}

void PageDigest::Restart()
{
    static constexpr unsigned char kNonce[12] = {};
    Require(::EVP_EncryptInit_ex(m_Context.get(), nullptr, nullptr, nullptr, kNonce));
}

void PageDigest::Add(const char* bytes, std::size_t count)
{
    int added = 0;
    Require(::EVP_EncryptUpdate(m_Context.get(), nullptr, &added,
                                reinterpret_cast<const unsigned char*>(bytes), static_cast<int>(count)));
}

PageDigest::Value PageDigest::Take()
{
    Value value;
    int added = 0;
    unsigned char nothing[16];
    Require(::EVP_EncryptFinal_ex(m_Context.get(), nothing, &added));
    Require(::EVP_CIPHER_CTX_ctrl(m_Context.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(value.size()),
                                  value.data()));
    Restart();
    return value;
}
} // namespace assistant
