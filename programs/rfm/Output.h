#pragma once

#include <string>
#include <string_view>

namespace rfm_tool
{
/// Standard output. It gathers what is written and never throws: whoever writes much asks `IsGone` now and then, and the
/// end of the program asks `Error`.
///
///             a write fails with EPIPE                  a write fails otherwise
///   (gone) <--------------------------- (writing) ---------------------------> (failed)
///
/// Gone is no failure: who reads has seen enough.
class Output
{
public:
    Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void Write(std::string_view text);
    void Line(std::string_view text);
    /// Hands everything to the system.
    void Flush();
    /// Whether writing on is of no use.
    bool IsGone() const noexcept { return m_Closed || m_Error != 0; }
    /// Whether whoever reads has left.
    bool IsClosed() const noexcept { return m_Closed; }
    /// The errno value of the write that failed, 0 when all went well.
    int Error() const noexcept { return m_Error; }

    bool IsTerminal() const noexcept { return m_IsTerminal; }
    int ScreenLines() const noexcept { return m_Lines; }
    int ScreenColumns() const noexcept { return m_Columns; }

private:
    std::string m_Pending;
    bool m_Closed = false;
    int m_Error = 0;
    bool m_IsTerminal;
    int m_Lines = 24;
    int m_Columns = 80;
};

/// One line "rfm: TEXT" on standard error.
void Note(std::string_view text);
} // namespace rfm_tool
