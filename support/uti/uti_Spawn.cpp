#include "uti_Spawn.h"

#include "nex_Exception.h"
#include "uti_Child.h"
#include "utl_FilePath.h"
#include "utl_PathFinder.h"

uti_Spawn::uti_Spawn() noexcept = default;
uti_Spawn::~uti_Spawn() = default;

void uti_Spawn::Start(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                      const cow_Map<cow_String, cow_String>& environment, const uti_StandardStreams& streams)
{
    m_Child = std::make_unique<uti_Child>(program, arguments, environment, streams);
}

bool uti_Spawn::IsRunning() { return m_Child != nullptr && m_Child->IsRunning(); }

int uti_Spawn::Reap(int seconds) { return ReapDraining(seconds, -1); }

int uti_Spawn::ReapDraining(int seconds, int drained)
{
    if (seconds < 0) nex_ThrowAssert("seconds >= 0");
    return m_Child != nullptr ? m_Child->Reap(seconds, drained) : uti_StatusUnknown;
}

void uti_Spawn::Detach()
{
    if (m_Child != nullptr) m_Child->Detach();
}

cow_String uti_Spawn::FindCommand(const cow_String& command)
{
    if (command.View().find('/') == std::string_view::npos)
        return utl_PathFinder::getSubDirPath("PATH", "", command, true, false, false);
    return utl_FilePath(command, "").IsExecutable() ? command : cow_String();
}
