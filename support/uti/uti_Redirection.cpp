#include "uti_Redirection.h"

#include "nex_Exception.h"
#include "uti_Pipe.h"
#include "utl_FileException.h"

#include <cerrno>
#include <fcntl.h>

uti_Redirection::uti_Redirection(const cow_String& stream, const cow_String& name)
{
    if (stream.View() != "2>") nex_ThrowAssert("stream == \"2>\"");
    m_Error.Reset(::open(name.CString(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
    if (!m_Error.IsOpen()) utl_FileException("open", name, errno).Throw(__FILE__, __LINE__);
    m_Error = uti_AboveStandard(std::move(m_Error));
}
