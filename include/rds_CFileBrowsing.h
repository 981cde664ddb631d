#pragma once

#include "rdb_FileFilterID.h"
#include "rds_DirectoryEntity.h"

#include <memory>

class rds_Client;
class utl_BinIStream;
class utl_BinOStream;

/// Looks around on another host, as a file dialog has to: what does this directory hold, is this name a directory or a
/// file, what are its attributes. It talks to the service "rdsT_FileBrowsing" there:
///
///     std::unique_ptr<rds_Client, EndClient> client(connection.RunRemoteFileService("rdsT_FileBrowsing"));
///     rds_CFileBrowsing browser(client.get());
///     static_cast<void>(client.release()); // the browser's from here on
///     const std::unique_ptr<cow_List<rds_DirectoryEntity>> list(
///         browser.ListDir("/data", rdb_FileFilterID::Databases, rds_CFileBrowsing::AllAttributes));
///     browser.Exit();
///
/// where EndClient is a deleter that ends a client as rds_Client.h shows.
///
/// Paths are those of the other host. A relative one hangs below the directory in which its server was started.
///
/// Throws: each request, a nex_TextException with the source name "rds_CFileBrowsing": with the words of the other host
/// when that refuses, and the browser goes on; with "*** Error: Lost connection to remote server" when the reply does
/// not come whole or can't be one. Behind the latter, and behind a flag that is not valid, the two ends are out of step:
/// the browser is good for nothing but its destructor, and what is asked then is a lost connection. When a request can't
/// be sent, the exception is the stream's own, a utl_BinStreamException; for a path of more than 16 MiB, of which nothing
/// is sent, the browser goes on. A request on an empty browser is a nex_AssertException.
/// A request waits for its reply without a limit; only the end of the connection ends the wait.
/// Threads: one at a time.
class RFM_EXPORT rds_CFileBrowsing final
{
public:
    /// How much a listing carries of each entry: everything but `m_Word3`, or name and kind.
    static constexpr char AllAttributes = 'A';
    static constexpr char ShortForm = 'S';
    /// A listing that claims more entries, or whose texts have more bytes together, counts as a lost connection. The
    /// service refuses to list such a directory in words of its own.
    static constexpr int kMostEntries = 1024 * 1024;
    static constexpr int kMostTextBytes = 256 * 1024 * 1024;

    /// An empty browser, which no request may be made on.
    rds_CFileBrowsing() noexcept;
    /// Asks the service on the pipes of `client` for its platform and version. From then on the client is the browser's,
    /// with its file of errors.
    /// Throws: nex_TextException for a service of another version or on a platform that has none, and when the
    /// connection is lost; nex_AssertException for a null `client`. The client then stays the caller's.
    explicit rds_CFileBrowsing(rds_Client* client);
    rds_CFileBrowsing(const rds_CFileBrowsing&) = delete;
    rds_CFileBrowsing& operator=(const rds_CFileBrowsing&) = delete;
    /// Ends the relay. It does not ask the service to end: that is `Exit`.
    ~rds_CFileBrowsing();

    /// The entries of a directory that `filter` lets through. The service sends them in the byte order of their names,
    /// and the list has them in reverse.
    /// Result: a new list, which the caller owns; an empty one for an empty directory.
    cow_List<rds_DirectoryEntity>* ListDir(const cow_String& path, rdb_FileFilterID filter, char flag);
    /// Whether the path leads to a directory, or to a regular file: not 0 if so. A name that does not exist is neither.
    int IsRemoteDir(const cow_String& path);
    int IsRemoteFile(const cow_String& path);
    /// Result: a new entry, which the caller owns; its `m_Word3` is 0 whatever the service sent.
    rds_DirectoryEntity* StatCall(const cow_String& path);
    /// Sends the code of the removal alone. The service takes what is sent next for the path of a file to remove, so a
    /// caller has to send one itself, on the sink of the client.
    void RemoveFile();
    /// Asks the service to end. Nothing is read.
    void Exit();

    /// The reading halves of the requests of the same names. Each of those calls its own when the request has been
    /// written.
    cow_List<rds_DirectoryEntity>* ListDirReply();
    rds_DirectoryEntity* StatCallReply();
    int IsRemoteDirReply();
    int IsRemoteFileReply();

private:
    cow_String GetServerPlatform();
    int GetServerVersion();

    utl_BinOStream& Out() const;
    utl_BinIStream& In() const;
    void SendRequest(int code, const cow_String& path) const;
    // Answers what `read` does; a failure of the stream is a lost connection.
    template <class Read> auto Guarded(Read read);
    [[noreturn]] void LoseConnection();
    [[noreturn]] void RefuseFlag(const char* text, char flag);
    void ReadStatus();
    int ReadAnswer();
    cow_List<rds_DirectoryEntity> ReadListing();
    rds_DirectoryEntity ReadListed(char flag);

    rds_Client* m_Client = nullptr;
    int m_InputFd = 0;
    int m_OutputFd = 0;
    std::unique_ptr<utl_BinIStream> m_In;
    std::unique_ptr<utl_BinOStream> m_Out;
    bool m_IsLost = false;
};
