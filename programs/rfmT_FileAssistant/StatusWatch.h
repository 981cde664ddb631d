#pragma once

#include "rfm_DBStatusChecker.h"

#include <utility>

namespace assistant
{
/// Looks at the file's header for one reader, and remembers a movement of the flush count for two who ask at different
/// times: the pages that the reader holds, and its own questions for the status. Neither takes it from the other.
///
///                    the count moves                        the count moves
///    pages:  [ fresh ] ------------> [ due ]     status:  [ told ] ------------> [ untold ]
///                ^  TakePagesDue       |                     ^  TakeMovement        |
///                +---------------------+                     +----------------------+
class StatusWatch : public rfm_DBStatusCheckerFile
{
public:
    using rfm_DBStatusCheckerFile::rfm_DBStatusCheckerFile;

    void StatusSeen(int) override {} // every reply has the status in it
    void FileChanged() override { m_PagesAreDue = m_MovementIsUntold = true; }

    bool TakePagesDue() noexcept { return std::exchange(m_PagesAreDue, false); }
    bool TakeMovement() noexcept { return std::exchange(m_MovementIsUntold, false); }

private:
    bool m_PagesAreDue = false;
    bool m_MovementIsUntold = false;
};
} // namespace assistant
