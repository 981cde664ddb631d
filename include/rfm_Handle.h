#pragma once

#include <compare>
#include <cstdint>

/// Names one object of a database for the whole life of its file: 32 bits that rows and streams can store.
/// Bits 9 to 31 are a block of the linkage table, bits 0 to 8 a slot in it. 0 is the null handle.
class rfm_Handle
{
public:
    constexpr rfm_Handle() noexcept = default;
    constexpr explicit rfm_Handle(std::uint32_t value) noexcept : m_Value(value) {}

    constexpr std::uint32_t Value() const noexcept { return m_Value; }
    constexpr bool IsNull() const noexcept { return m_Value == 0; }
    constexpr auto operator<=>(const rfm_Handle&) const noexcept = default;

private:
    std::uint32_t m_Value = 0;
};
