#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

namespace farend
{
/// What a user must hear, in one line without a prefix: each program puts its own before it.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
    /// `what`, a colon, and the system's text for `error`.
    Failure(const std::string& what, int error)
        : std::runtime_error(what + ": " + std::strerror(error)),
          m_Error(error)
    {
    }
    /// The system's number, 0 where it had no part in it.
    int Error() const noexcept { return m_Error; }

private:
    int m_Error = 0;
};
} // namespace farend
