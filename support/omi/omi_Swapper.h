#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// Answers, for a stream of a given byte order, whether numbers must be reversed on this host.
class omi_Swapper
{
public:
    enum EndianType : int
    {
        Pipe = 0,   ///< pipes and browsing streams: big-endian, the order of the network
        Stored = 1, ///< everything in files: little-endian, so that today's machines never swap
    };

    explicit constexpr omi_Swapper(EndianType type) noexcept
        : m_Swapped((std::endian::native == std::endian::little) != (type == Stored))
    {
    }
    constexpr operator bool() const noexcept { return m_Swapped; }

private:
    bool m_Swapped;
};

/// Reverses words of 32 and 64 bits between stored bytes and host words. Source and target may be the same address.
class omi_SwapperGuts
{
public:
    static void InternalizeArray(const char* stored, std::uint32_t* words, int count);
    static void InternalizeArray(const char* stored, std::uint64_t* words, int count);
    static void ExternalizeArray(const std::uint32_t* words, char* stored, int count);
    static void ExternalizeArray(const std::uint64_t* words, char* stored, int count);
    static void CopyBytes(void* target, const void* source, std::size_t bytes)
    {
        if (target != source) std::memcpy(target, source, bytes);
    }
};

/// The unsigned word of a number's width.
template <class T>
using omi_Word = std::conditional_t<sizeof(T) == 2, std::uint16_t,
                                    std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>;

template <class Word> Word omi_Reversed(Word word) noexcept
{
    if constexpr (sizeof(Word) == 2) return __builtin_bswap16(word);
    if constexpr (sizeof(Word) == 4) return __builtin_bswap32(word);
    if constexpr (sizeof(Word) == 8) return __builtin_bswap64(word);
}

/// One number of 2, 4 or 8 bytes out of stored bytes, and into them; the host's alignment does not matter.
template <class T> T omi_Load(const char* stored, bool swapped) noexcept
{
    static_assert(sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8);
    omi_Word<T> word;
    std::memcpy(&word, stored, sizeof word);
    if (swapped) word = omi_Reversed(word);
    return std::bit_cast<T>(word);
}

template <class T> void omi_Store(char* stored, T value, bool swapped) noexcept
{
    static_assert(sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8);
    omi_Word<T> word = std::bit_cast<omi_Word<T>>(value);
    if (swapped) word = omi_Reversed(word);
    std::memcpy(stored, &word, sizeof word);
}
