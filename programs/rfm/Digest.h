#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct evp_md_ctx_st;

namespace rfm_tool
{
/// SHA-256 of what is added, byte by byte.
class Digest
{
public:
    Digest();

    void Add(const char* bytes, std::size_t count);
    void Add(std::string_view bytes) { Add(bytes.data(), bytes.size()); }
    /// 64 hexadecimal digits. Nothing can be added afterwards.
    std::string Hex();

    /// Of OpenSSL, which makes them.
    /// Throws: std::runtime_error when it is not there.
    static std::string LibraryVersion();

private:
    void Drain();

    std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> m_Context;
    std::vector<char> m_Gathered; // a call for a few bytes costs more than the bytes
};
} // namespace rfm_tool
