#pragma once

#include "atr_String.h"

/// The text type of the whole library: see `atr_StringBase` for what it can do and what it costs.
class RFM_EXPORT cow_String : public atr_StringBase
{
public:
    using atr_StringBase::atr_StringBase;
    cow_String(const atr_StringBase& text) noexcept : atr_StringBase(text) {}
    cow_String(atr_StringBase&& text) noexcept : atr_StringBase(static_cast<atr_StringBase&&>(text)) {}
};

/// Order of keys in every map of the library: as `atr_Compare`.
inline bool operator<(const cow_String& left, const cow_String& right) noexcept
{
    return atr_Compare(left, right) < 0;
}

/// Joins two texts.
inline cow_String operator+(const cow_String& left, const cow_String& right)
{
    cow_String joined(left);
    joined.append(right);
    return joined;
}
