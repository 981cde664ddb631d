#pragma once

#include "rfm_Export.h"

#include <compare>
#include <cstdint>

/// A position in a file or a length in bytes: a signed 64-bit number whose sums are checked.
/// Throws: nex_TextException when a sum or difference leaves 64 bits, or `DiffAsInt32` leaves 32; nothing changes then.
class RFM_EXPORT utl_FileOffset
{
public:
    constexpr utl_FileOffset() noexcept = default;
    constexpr utl_FileOffset(std::int64_t value) noexcept : m_Value(value) {}

    constexpr std::int64_t Value() const noexcept { return m_Value; }
    constexpr auto operator<=>(const utl_FileOffset&) const noexcept = default;

    utl_FileOffset& operator+=(utl_FileOffset step)
    {
        std::int64_t sum = 0;
        if (__builtin_add_overflow(m_Value, step.m_Value, &sum)) ThrowOverflow();
        m_Value = sum;
        return *this;
    }
    utl_FileOffset& operator-=(utl_FileOffset step)
    {
        std::int64_t difference = 0;
        if (__builtin_sub_overflow(m_Value, step.m_Value, &difference)) ThrowOverflow();
        m_Value = difference;
        return *this;
    }
    friend utl_FileOffset operator+(utl_FileOffset left, utl_FileOffset right) { return left += right; }
    friend utl_FileOffset operator-(utl_FileOffset left, utl_FileOffset right) { return left -= right; }

    /// This less `other`, as an int.
    int DiffAsInt32(utl_FileOffset other) const
    {
        const std::int64_t difference = (*this - other).m_Value;
        if (difference != static_cast<std::int32_t>(difference)) ThrowOverflow();
        return static_cast<int>(difference);
    }

private:
    [[noreturn]] static void ThrowOverflow();
    std::int64_t m_Value = 0;
};
