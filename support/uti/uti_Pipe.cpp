#include "uti_Pipe.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "utl_SystemText.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

[[noreturn]] static void Refuse(int error)
{
    nex_ThrowText(atr_Message("*** ERROR: Can't make a pipe, reason:\n  %s.", utl_SystemText(error)));
}

utl_Descriptor uti_AboveStandard(utl_Descriptor descriptor)
{
    if (descriptor.Get() > STDERR_FILENO) return descriptor;
    utl_Descriptor moved(::fcntl(descriptor.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!moved.IsOpen()) Refuse(errno);
    return moved;
}

uti_Pipe uti_MakePipe()
{
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) Refuse(errno);
    uti_Pipe made{utl_Descriptor(ends[0]), utl_Descriptor(ends[1])};
    made.readEnd = uti_AboveStandard(std::move(made.readEnd));
    made.writeEnd = uti_AboveStandard(std::move(made.writeEnd));
    return made;
}
