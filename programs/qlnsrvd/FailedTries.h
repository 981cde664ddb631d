#pragma once

#include "Deadline.h"

#include <map>
#include <string>

namespace qlnsrvd
{
/// Counts wrong keys by address, and says who has to wait. Four are free; from the fifth on each doubles the wait, from
/// one second to five minutes. A right key clears the address.
class FailedTries
{
public:
    static constexpr int kFree = 4;
    static constexpr std::chrono::seconds kLongestWait{300};
    static constexpr std::size_t kMostAddresses =
        1000; // beyond it the one that may come again soonest is forgotten

    void Add(const std::string& address);
    void Clear(const std::string& address) { m_Tries.erase(address); }
    bool MustWait(const std::string& address) const;
    /// How long the wait is after so many in a row.
    static std::chrono::seconds WaitAfter(int count);

private:
    struct Tries
    {
        int count = 0;
        farend::Deadline next = farend::Deadline::In(std::chrono::seconds(0));
    };
    void ForgetOne();

    std::map<std::string, Tries> m_Tries;
};
} // namespace qlnsrvd
