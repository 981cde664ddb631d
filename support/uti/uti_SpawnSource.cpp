#include "uti_SpawnSource.h"

#include "nex_Exception.h"
#include "uti_Pipe.h"
#include "uti_Process.h"
#include "utl_BinStreamException.h"
#include "utl_SystemText.h"
#include "utl_Wait.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

uti_SpawnSource::uti_SpawnSource() noexcept = default;

static cow_String ProgramOf(const cow_String& command)
{
    if (command.View().find('/') != std::string_view::npos) return command;
    cow_String found = uti_Spawn::FindCommand(command);
    // Never the bare name: that would be a program in the current directory.
    if (found.IsEmpty()) uti_RefuseStart(command, ENOENT);
    return found;
}

uti_SpawnSource::uti_SpawnSource(const cow_String& command, const cow_1DArrayList<cow_String>& arguments,
                                 uti_Redirection& redirection,
                                 const cow_Map<cow_String, cow_String>& environment)
{
    spawnSource(ProgramOf(command), arguments, redirection, environment);
}

uti_SpawnSource::~uti_SpawnSource()
{
    m_Source.Reset(); // before the wait of the base: a child stuck on a full pipe gets an error and leaves
}

void uti_SpawnSource::spawnSource(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                                  uti_Redirection& redirection,
                                  const cow_Map<cow_String, cow_String>& environment)
{
    SpawnWithInput(-1, program, arguments, redirection, environment);
}

void uti_SpawnSource::SpawnWithInput(int input, const cow_String& program,
                                     const cow_1DArrayList<cow_String>& arguments,
                                     uti_Redirection& redirection,
                                     const cow_Map<cow_String, cow_String>& environment)
{
    uti_Pipe output = uti_MakePipe();
    Start(program, arguments, environment,
          {.input = input, .output = output.writeEnd.Get(), .error = redirection.ErrorDescriptor()});
    m_Source = std::move(output.readEnd);
}

bool uti_SpawnSource::Refill()
{
    if (m_Block == nullptr) m_Block = std::make_unique_for_overwrite<char[]>(kBlockBytes);
    while (m_Source.IsOpen())
    {
        const ssize_t moved = ::read(m_Source.Get(), m_Block.get(), kBlockBytes);
        if (moved >= 0)
        {
            m_First = 0;
            m_End = static_cast<int>(moved);
            return moved > 0;
        }
        if (utl_WouldBlock(errno))
            utl_WaitUntilReadable(m_Source.Get());
        else if (errno != EINTR)
            utl_BinStreamReadError("read", utl_SystemText(errno)).Throw(__FILE__, __LINE__);
    }
    return false;
}

int uti_SpawnSource::GetLine(char* buffer, int size)
{
    if (buffer == nullptr) nex_ThrowAssert("buffer != nullptr");
    if (size < 2) nex_ThrowAssert("size > 1");
    int length = 0;
    bool hasEnd = false;
    while (!hasEnd && length < size - 1 && (m_First < m_End || Refill()))
    {
        const char* const first = m_Block.get() + m_First;
        const int most = std::min(size - 1 - length, m_End - m_First);
        const void* const lineEnd = std::memchr(first, '\n', static_cast<std::size_t>(most));
        hasEnd = lineEnd != nullptr;
        const int taken = hasEnd ? static_cast<int>(static_cast<const char*>(lineEnd) - first) + 1 : most;
        std::memcpy(buffer + length, first, static_cast<std::size_t>(taken));
        length += taken;
        m_First += taken;
    }
    buffer[length] = '\0';
    return length;
}

int uti_SpawnSource::Reap(int seconds)
{
    const int status = ReapDraining(seconds, m_Source.Get());
    if (seconds > 0) m_Source.Reset();
    return status;
}

void uti_SpawnSource::Detach()
{
    m_Source.Reset();
    uti_Spawn::Detach();
}
