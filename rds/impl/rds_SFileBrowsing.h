#pragma once

#include "rds_BrowsingFormat.h"
#include "rds_ProcessRequest.h"

#include <memory>

/// The service end of remote browsing: one request after the other from standard input, its reply to standard output.
/// No request knows of another. rds_BrowsingFormat.h draws them.
/// Throws: as the streams do, when the client has gone or what came is no request; the two ends are out of step then.
class rds_SFileBrowsing
{
public:
    rds_SFileBrowsing();
    rds_SFileBrowsing(const rds_SFileBrowsing&) = delete;
    rds_SFileBrowsing& operator=(const rds_SFileBrowsing&) = delete;
    ~rds_SFileBrowsing();

    /// Reads one code and does what it asks for; a code that is none is passed over.
    void ProcessNextRequest();

    /// Reads what follows the code of a listing, and answers it.
    void ProcessListDirRequest();
    void ListDirRequest(const cow_String& path, int filter, char flag);

private:
    void ProcessIsDirRequest();
    void ProcessIsFileRequest();
    void ProcessStatRequest();
    void ProcessVersionRequest();
    void ProcessPlatformRequest();
    void ProcessRemoveRequest();
    [[noreturn]] void ProcessExitRequest();

    void IsDirRequest(const cow_String& path);
    void IsFileRequest(const cow_String& path);
    void StatRequest(const cow_String& path);

    void SendInt(int value);
    void SendListDirReply(char flag, const cow_List<rds_DirectoryEntity>* list);
    void SendStatReply(const rds_DirectoryEntity& entity);
    // Sends what `ask` answers behind the status through `send`, or the words in which the file system refused.
    template <class Ask, class Send> void Answer(Ask ask, Send send);

    std::unique_ptr<utl_BinIStream> m_In;
    std::unique_ptr<utl_BinOStream> m_Out;
};
