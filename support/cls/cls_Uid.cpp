#include "cls_Uid.h"

#include <atomic>

static std::uint64_t NextNumber() noexcept
{
    static std::atomic<std::uint64_t> s_Last = 0;
    return ++s_Last;
}

void cls_Uid::AllocateUid() const noexcept
{
    if (IsEmpty()) m_Number = NextNumber();
}

void cls_Uid::NewUid() noexcept { m_Number = NextNumber(); }
