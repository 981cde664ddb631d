#include "Words.h"

#include "Failure.h"

namespace farend
{
std::string Words::TakeValue(const std::string& option)
{
    if (!HasMore()) throw Failure(option + " wants a value behind it");
    return Take();
}

std::vector<std::string> Words::TakeRest()
{
    std::vector<std::string> rest(m_Words.begin() + static_cast<std::ptrdiff_t>(m_Next), m_Words.end());
    m_Next = m_Words.size();
    return rest;
}
} // namespace farend
