#pragma once

#include "rfm_Export.h"

#include <utility>

/// Owns one descriptor of the operating system, or none, and closes it at its end.
class RFM_EXPORT utl_Descriptor
{
public:
    utl_Descriptor() noexcept = default;
    explicit utl_Descriptor(int descriptor) noexcept : m_Descriptor(descriptor) {}
    utl_Descriptor(utl_Descriptor&& source) noexcept : m_Descriptor(source.Release()) {}
    utl_Descriptor& operator=(utl_Descriptor&& source) noexcept
    {
        Reset(source.Release());
        return *this;
    }
    ~utl_Descriptor() { Reset(); }

    /// -1 for none. It stays this object's.
    int Get() const noexcept { return m_Descriptor; }
    bool IsOpen() const noexcept { return m_Descriptor >= 0; }
    /// Hands the descriptor to the caller, whose it is to close.
    int Release() noexcept { return std::exchange(m_Descriptor, -1); }
    /// Closes what it has and takes `descriptor`.
    void Reset(int descriptor = -1) noexcept;

private:
    int m_Descriptor = -1;
};
