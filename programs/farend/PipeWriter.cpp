#include "PipeWriter.h"

#include <cerrno>
#include <unistd.h>

namespace farend
{
// Answers how many went out.
std::size_t PipeWriter::WriteSome(std::string_view bytes)
{
    std::size_t written = 0;
    while (written < bytes.size() && !m_IsBroken)
    {
        const ssize_t put = ::write(m_Descriptor, bytes.data() + written, bytes.size() - written);
        if (put >= 0)
            written += static_cast<std::size_t>(put);
        else if (errno == EAGAIN)
            break;
        else if (errno != EINTR)
            m_IsBroken = true;
    }
    return written;
}

void PipeWriter::Put(std::string_view bytes)
{
    Flush();
    if (IsIdle()) bytes.remove_prefix(WriteSome(bytes));
    if (!m_IsBroken) m_Rest.append(bytes);
}

void PipeWriter::Flush()
{
    m_Rest.erase(0, WriteSome(m_Rest));
    if (m_IsBroken) m_Rest.clear();
}
} // namespace farend
