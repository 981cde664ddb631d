#include "FailedTries.h"

#include <algorithm>

namespace qlnsrvd
{
std::chrono::seconds FailedTries::WaitAfter(int count)
{
    if (count <= kFree) return std::chrono::seconds(0);
    const int doublings = std::min(count - kFree - 1, 30);
    return std::min(std::chrono::seconds(1LL << doublings), kLongestWait);
}

void FailedTries::Add(const std::string& address)
{
    if (m_Tries.size() >= kMostAddresses && m_Tries.find(address) == m_Tries.end()) ForgetOne();
    Tries& tries = m_Tries[address];
    tries.count = std::min(tries.count + 1, 1000);
    tries.next = farend::Deadline::In(WaitAfter(tries.count));
}

bool FailedTries::MustWait(const std::string& address) const
{
    const auto found = m_Tries.find(address);
    return found != m_Tries.end() && !found->second.next.HasPassed();
}

void FailedTries::ForgetOne()
{
    m_Tries.erase(std::min_element(m_Tries.begin(), m_Tries.end(),
                                   [](const auto& left, const auto& right)
                                   { return left.second.next < right.second.next; }));
}
} // namespace qlnsrvd
