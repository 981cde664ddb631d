#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace rfm_tool
{
/// Whether a writer in another process flushes while a file is read from end to end: what was read may then be of two
/// states.
class WriterWatch
{
public:
    /// Throws: Failure.
    explicit WriterWatch(const std::string& path);
    /// Throws: Failure with ExitBusy when the flush count has moved.
    void RequireRest() const;

private:
    std::string m_Path;
    std::uint32_t m_Before;
};

class NewFile;

/// Runs `write`, which reads the database at `in`, and fills `out` with what is in it. What goes wrong is told apart: a
/// writer that flushed or closed meanwhile, which is no damage; another host; `out` that can't be written.
/// Throws: Failure.
void WriteWatched(const std::string& in, const WriterWatch& watch, const NewFile& out,
                  const std::function<void()>& write);
} // namespace rfm_tool
