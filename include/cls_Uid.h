#pragma once

#include "rfm_Export.h"

#include <compare>
#include <cstdint>

/// The identity of a stored object, by which a stream holds it once however often it is reached. It is empty until
/// somebody asks for it. Identities are unique in the process and mean nothing outside it. A copy is the same identity,
/// so a class whose copies are objects of their own must not copy it.
/// Threads: numbers are given out to any number of threads; one identity belongs to one thread at a time.
class RFM_EXPORT cls_Uid
{
public:
    cls_Uid() noexcept = default;
    /// Gives an empty identity its number; one that has a number keeps it. What it identifies does not change by
    /// that, so it may be asked of a const one.
    void AllocateUid() const noexcept;
    /// Makes this a fresh identity, whatever it was.
    void NewUid() noexcept;
    bool IsEmpty() const noexcept { return m_Number == 0; }

    friend auto operator<=>(const cls_Uid&, const cls_Uid&) noexcept = default;

private:
    mutable std::uint64_t m_Number = 0;
};
