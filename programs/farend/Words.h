#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace farend
{
/// The words of a command line, taken one by one.
class Words
{
public:
    Words(int count, char** words) : m_Words(words, words + count) {}
    explicit Words(std::vector<std::string> words) : m_Words(std::move(words)) {}

    bool HasMore() const { return m_Next < m_Words.size(); }
    const std::string& Next() const { return m_Words[m_Next]; }
    std::string Take() { return m_Words[m_Next++]; }
    /// The word behind `option`.
    /// Throws: Failure when there is none.
    std::string TakeValue(const std::string& option);
    std::vector<std::string> TakeRest();

private:
    std::vector<std::string> m_Words;
    std::size_t m_Next = 0;
};
} // namespace farend
