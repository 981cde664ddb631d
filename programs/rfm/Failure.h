#pragma once

#include <stdexcept>
#include <string>

namespace rfm_tool
{
/// What the process answers to whoever started it.
enum ExitCode : int
{
    ExitDone = 0,
    ExitNo = 1, // the answer is no, or damage was found
    ExitUsage = 2,
    ExitMissing = 3,    // no such file or object
    ExitUnreadable = 4, // not a database, or not readable
    ExitBusy = 5,       // busy or timed out
    ExitRemote = 6,     // another host could not be reached, or refused
    ExitOutput = 7,     // standard output could not be written
    ExitInterrupted = 130,
};

/// Ends a command: one line "rfm: WHAT: WHY; REMEDY" on standard error, and an exit code.
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode code, const std::string& what, const std::string& why, const std::string& remedy)
        : std::runtime_error(what + ": " + why + (remedy.empty() ? "" : "; " + remedy)),
          m_Code(code)
    {
    }
    ExitCode Code() const noexcept { return m_Code; }

private:
    ExitCode m_Code;
};
} // namespace rfm_tool
