#pragma once

#include <cstdint>
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
} // namespace rfm_tool
