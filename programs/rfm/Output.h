#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace rfm_tool
{
/// Standard output. It gathers what is written and never throws: whoever writes much asks `IsGone` now and then, and
/// the end of the program asks `Error`.
///
///             a write fails with EPIPE                  a write fails otherwise
///   (gone) <--------------------------- (writing) ---------------------------> (failed)
///
/// Gone is no failure: who reads has seen enough.
class Output
{
public:
    Output();
    ~Output() { Finish(); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void Write(std::string_view text);
    void Line(std::string_view text);
    /// What waits to be written: for whoever puts many small pieces behind it, and then calls `FlushWhenFull`.
    std::string& Pending() noexcept { return m_Pending; }
    void FlushWhenFull();
    /// Hands everything to the system.
    void Flush();
    /// On a terminal: what is written from now on goes through $PAGER, or `less` where there is none, until `Finish`. A
    /// pager that is `cat`, empty or can't be started is none.
    void Page();
    /// Flushes, and waits for the reader to leave the pager.
    void Finish();
    /// Whether writing on is of no use.
    bool IsGone() const noexcept { return m_Closed || m_Error != 0; }
    /// Whether whoever reads has left.
    bool IsClosed() const noexcept { return m_Closed; }
    /// The errno value of the write that failed, 0 when all went well.
    int Error() const noexcept { return m_Error; }

    bool IsTerminal() const noexcept { return m_IsTerminal; }
    bool HasColour() const noexcept { return m_HasColour; }
    /// A line that stands out, where the terminal has colours and the reader wants them (NO_COLOR).
    std::string Strong(std::string_view line) const;
    int ScreenLines() const noexcept { return m_Lines; }
    /// Without a bound in a pager, which moves sideways.
    int ScreenColumns() const noexcept { return m_Pager < 0 ? m_Columns : kUnbounded; }

private:
    static constexpr int kUnbounded = 1 << 30;

    std::string m_Pending;
    int m_Target = 1; // descriptor that is written to
    pid_t m_Pager = -1;
    bool m_Closed = false;
    int m_Error = 0;
    bool m_IsTerminal;
    bool m_HasColour;
    int m_Lines = 24;
    int m_Columns = 80;
};

/// One line "rfm: TEXT" on standard error.
void Note(std::string_view text);
} // namespace rfm_tool
