#include "rds_SFileBrowsing.h"

#include "nex_Exception.h"
#include "rds_HostFiles.h"
#include "utl_BinIStream.h"
#include "utl_BinOStream.h"
#include "utl_Platform.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <unistd.h>

int ProcessRequest()
{
    rds_SFileBrowsing service;
    try
    {
        for (;;) service.ProcessNextRequest();
    }
    catch (const utl_BinStreamEOF&) // in the middle of a request too
    {
        std::fputs("SFileBrowsing: client terminated. Normal exit.\n", stderr);
        return 0;
    }
    catch (const nex_TextException& failure)
    {
        std::fprintf(stderr, "SFileBrowsing: %s \n", failure.AsString().CString());
        return 1;
    }
}

rds_SFileBrowsing::rds_SFileBrowsing()
    : m_In(std::make_unique<utl_BinIStream>(STDIN_FILENO, omi_Swapper::Pipe)),
      m_Out(std::make_unique<utl_BinOStream>(STDOUT_FILENO, omi_Swapper::Pipe))
{
}

rds_SFileBrowsing::~rds_SFileBrowsing() = default;

void rds_SFileBrowsing::ProcessNextRequest()
{
    switch (m_In->ReadInt())
    {
    case rds_ListDirReq: ProcessListDirRequest(); break;
    case rds_IsDirReq: ProcessIsDirRequest(); break;
    case rds_IsFileReq: ProcessIsFileRequest(); break;
    case rds_StatReq: ProcessStatRequest(); break;
    case rds_VersionReq: ProcessVersionRequest(); break;
    case rds_PlatformReq: ProcessPlatformRequest(); break;
    case rds_ExitReq: ProcessExitRequest();
    case rds_RemoveReq: ProcessRemoveRequest(); break;
    default: break; // kept: without a word. Test: ACodeThatIsNoneIsPassedOver.
    }
}

// --- what follows the code ---

void rds_SFileBrowsing::ProcessListDirRequest()
{
    const cow_String path = m_In->ReadString();
    const int filter = m_In->ReadInt();
    const char flag = static_cast<char>(m_In->ReadSchar());
    ListDirRequest(path, filter, flag);
}

void rds_SFileBrowsing::ProcessIsDirRequest() { IsDirRequest(m_In->ReadString()); }
void rds_SFileBrowsing::ProcessIsFileRequest() { IsFileRequest(m_In->ReadString()); }
void rds_SFileBrowsing::ProcessStatRequest() { StatRequest(m_In->ReadString()); }
void rds_SFileBrowsing::ProcessVersionRequest() { SendInt(rds_BrowsingVersion); }
void rds_SFileBrowsing::ProcessPlatformRequest() { m_Out->WriteString(utl_getPlatform()); }

// kept: nobody is told whether it worked. Test: ARemovalOfWhatIsNotThereChangesNothingAndIsNotAnswered.
void rds_SFileBrowsing::ProcessRemoveRequest() { rds_RemoveHostFile(m_In->ReadString()); }

// kept: at once, and without the words of a normal exit. Test: ExitEndsTheProcessWithoutAWord.
void rds_SFileBrowsing::ProcessExitRequest() { std::exit(0); }

// --- what the file system says ---

template <class Ask, class Send> void rds_SFileBrowsing::Answer(Ask ask, Send send)
{
    std::optional<decltype(ask())> answer;
    try
    {
        answer.emplace(ask());
    }
    catch (const nex_TextException& refusal)
    {
        SendInt(rds_RefusedStatus);
        m_Out->WriteString(refusal.UserReport());
        return;
    }
    m_Out->Hold();
    SendInt(rds_DoneStatus);
    send(*answer);
    m_Out->Send();
}

void rds_SFileBrowsing::ListDirRequest(const cow_String& path, int filter, char flag)
{
    Answer([&] { return rds_ListHostDirectory(path, filter, flag); },
           [&](const auto& list) { SendListDirReply(flag, &list); });
}

void rds_SFileBrowsing::IsDirRequest(const cow_String& path)
{
    Answer([&] { return rds_IsHostDirectory(path); }, [&](bool is) { SendInt(is ? 1 : 0); });
}

void rds_SFileBrowsing::IsFileRequest(const cow_String& path)
{
    Answer([&] { return rds_IsHostFile(path); }, [&](bool is) { SendInt(is ? 1 : 0); });
}

void rds_SFileBrowsing::StatRequest(const cow_String& path)
{
    Answer([&] { return rds_HostEntity(path); }, [&](const auto& entity) { SendStatReply(entity); });
}

// --- what goes out ---

void rds_SFileBrowsing::SendInt(int value) { m_Out->WriteInt(value); }

void rds_SFileBrowsing::SendListDirReply(char flag, const cow_List<rds_DirectoryEntity>* list)
{
    m_Out->WriteSchar(static_cast<signed char>(flag));
    m_Out->WriteInt(list->Count());
    for (const rds_DirectoryEntity& entity : *list) rds_WriteListed(*m_Out, entity, flag);
}

void rds_SFileBrowsing::SendStatReply(const rds_DirectoryEntity& entity)
{
    rds_WriteAttributes(*m_Out, entity);
}
