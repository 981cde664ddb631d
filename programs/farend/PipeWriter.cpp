#include "PipeWriter.h"

#include <cerrno>
#include <unistd.h>

namespace farend
{
void PipeWriter::Flush()
{
    std::size_t written = 0;
    while (written < m_Rest.size() && !m_IsBroken)
    {
        const ssize_t put = ::write(m_Descriptor, m_Rest.data() + written, m_Rest.size() - written);
        if (put >= 0)
            written += static_cast<std::size_t>(put);
        else if (errno == EAGAIN)
            break;
        else if (errno != EINTR)
            m_IsBroken = true;
    }
    if (m_IsBroken)
        m_Rest.clear();
    else
        m_Rest.erase(0, written);
}
} // namespace farend
