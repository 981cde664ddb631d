#pragma once

#include <cstdint>

/// Positions and lengths are stored as IEEE doubles: written by conversion, read by adding 0.5 and truncating. They are
/// exact up to 2^52; what no writer can have stored (negative, not finite, beyond 2^53) is damage and is judged here,
/// before the conversion, which would be undefined.
inline constexpr double rfm_LargestStoredOffset = 9007199254740992.0;

inline bool rfm_IsStoredOffset(double stored) noexcept
{
    return stored >= 0 && stored <= rfm_LargestStoredOffset;
}

inline std::int64_t rfm_OffsetFromStored(double stored) noexcept
{
    return static_cast<std::int64_t>(stored + 0.5);
}
