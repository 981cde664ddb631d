#pragma once

#include <string>
#include <string_view>

namespace farend
{
/// Writes to a descriptor that doesn't block, and keeps what did not fit until Flush(). Give it more only when it is
/// idle: then it holds one piece at most.
class PipeWriter
{
public:
    /// `descriptor` stays the caller's.
    explicit PipeWriter(int descriptor) noexcept : m_Descriptor(descriptor) {}

    /// What fits into the pipe goes there without a copy: a key that comes first stays in no memory of ours.
    void Put(std::string_view bytes);
    void Flush();
    /// Never touches the descriptor again.
    void Drop()
    {
        m_IsBroken = true;
        m_Rest.clear();
    }
    bool IsIdle() const { return m_Rest.empty(); }
    /// Nobody reads any more; what was left is gone, and so will be what is put.
    bool IsBroken() const { return m_IsBroken; }

private:
    std::size_t WriteSome(std::string_view bytes);

    int m_Descriptor;
    bool m_IsBroken = false;
    std::string m_Rest;
};
} // namespace farend
