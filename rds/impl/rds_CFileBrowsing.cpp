#include "rds_CFileBrowsing.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "rds_BrowsingFormat.h"
#include "rds_Client.h"
#include "utl_BinIStream.h"
#include "utl_BinOStream.h"

#include <utility>

[[noreturn]] static void Fail(const cow_String& text) { nex_ThrowText(text, "rds_CFileBrowsing"); }

rds_CFileBrowsing::rds_CFileBrowsing() noexcept = default;

rds_CFileBrowsing::rds_CFileBrowsing(rds_Client* client) : m_Client(client)
{
    if (client == nullptr) nex_ThrowAssert("client != nullptr");
    m_InputFd = client->SourceDescriptor();
    m_OutputFd = client->SinkDescriptor();
    m_In = std::make_unique<utl_BinIStream>(m_InputFd, omi_Swapper::Pipe);
    m_Out = std::make_unique<utl_BinOStream>(m_OutputFd, omi_Swapper::Pipe);
    // The platform first: a service on that one answers no more than these two.
    if (GetServerPlatform() == "nt")
        Fail("*** Error: Network RDX connector is not supported when the server is running on the NT "
             "platform.");
    if (GetServerVersion() != rds_BrowsingVersion)
        Fail("*** Error: Network RDX connector Client and Server are running different verions.");
}

rds_CFileBrowsing::~rds_CFileBrowsing()
{
    if (m_Client == nullptr) return;
    const std::unique_ptr<utl_TempFile> errors(m_Client->StdErrFile());
    const std::unique_ptr<rds_Client> client(std::exchange(m_Client, nullptr)); // goes before its file
    client->Reap(0);
}

utl_BinOStream& rds_CFileBrowsing::Out() const
{
    if (m_Out == nullptr) nex_ThrowAssert("m_Out != nullptr");
    return *m_Out;
}

utl_BinIStream& rds_CFileBrowsing::In() const
{
    if (m_In == nullptr) nex_ThrowAssert("m_In != nullptr");
    return *m_In;
}

void rds_CFileBrowsing::LoseConnection()
{
    m_IsLost = true;
    m_Client->Reap(0);
    Fail("*** Error: Lost connection to remote server");
}

// The end that misread the flag, or never got it, takes what comes next for something else.
void rds_CFileBrowsing::RefuseFlag(const char* text, char flag)
{
    m_IsLost = true;
    // Signed on every platform, as it travels.
    Fail(atr_Message(text, cow_String(static_cast<signed char>(flag))));
}

// No code goes out without its path: the service would take the next request for that.
void rds_CFileBrowsing::SendRequest(int code, const cow_String& path) const
{
    utl_BinOStream::RefuseLongString(path);
    Out().WriteInt(code);
    Out().WriteString(path);
}

template <class Read> auto rds_CFileBrowsing::Guarded(Read read)
{
    // The service may live on, and what is left of its reply would pass for the next one.
    if (m_IsLost) LoseConnection();
    try
    {
        return read();
    }
    catch (const utl_BinStreamException&)
    {
        LoseConnection();
    }
}

cow_String rds_CFileBrowsing::GetServerPlatform()
{
    Out().WriteInt(rds_PlatformReq);
    return Guarded([this] { return In().ReadString(); });
}

int rds_CFileBrowsing::GetServerVersion()
{
    Out().WriteInt(rds_VersionReq);
    return Guarded([this] { return In().ReadInt(); });
}

cow_List<rds_DirectoryEntity>* rds_CFileBrowsing::ListDir(const cow_String& path, rdb_FileFilterID filter,
                                                          char flag)
{
    SendRequest(rds_ListDirReq, path);
    Out().WriteInt(static_cast<int>(filter));
    // kept: checked only now, so that the service waits for the rest of the request.
    // Test: AFlagThatIsNotValidIsFoundOnlyBehindTheRestOfTheRequest.
    if (flag != AllAttributes && flag != ShortForm)
        RefuseFlag("*** Error: rds_CFileBrowsing::ListDir flag option %s not valid", flag);
    Out().WriteSchar(static_cast<signed char>(flag));
    return ListDirReply();
}

int rds_CFileBrowsing::IsRemoteDir(const cow_String& path)
{
    SendRequest(rds_IsDirReq, path);
    return IsRemoteDirReply();
}

int rds_CFileBrowsing::IsRemoteFile(const cow_String& path)
{
    SendRequest(rds_IsFileReq, path);
    return IsRemoteFileReply();
}

rds_DirectoryEntity* rds_CFileBrowsing::StatCall(const cow_String& path)
{
    SendRequest(rds_StatReq, path);
    return StatCallReply();
}

// kept: the code alone, without the path that the service reads behind it. Test: RemoveFileSendsItsCodeAlone.
void rds_CFileBrowsing::RemoveFile() { Out().WriteInt(rds_RemoveReq); }

// kept: a service that has gone is told in the stream's own words.
// Test: ExitToAServiceThatHasGonePassesTheStreamsOwnException.
void rds_CFileBrowsing::Exit() { Out().WriteInt(rds_ExitReq); }

// kept: every status but 0 is a success, a negative one too. Test: EveryStatusButZeroIsASuccess.
void rds_CFileBrowsing::ReadStatus()
{
    if (In().ReadInt() == rds_RefusedStatus) Fail(In().ReadString());
}

int rds_CFileBrowsing::ReadAnswer()
{
    ReadStatus();
    return In().ReadInt();
}

cow_List<rds_DirectoryEntity>* rds_CFileBrowsing::ListDirReply()
{
    return Guarded([this]
                   { return std::make_unique<cow_List<rds_DirectoryEntity>>(ReadListing()).release(); });
}

rds_DirectoryEntity* rds_CFileBrowsing::StatCallReply()
{
    return Guarded(
        [this]
        {
            ReadStatus();
            return std::make_unique<rds_DirectoryEntity>(rds_ReadAttributes(In())).release();
        });
}

int rds_CFileBrowsing::IsRemoteDirReply()
{
    return Guarded([this] { return ReadAnswer(); });
}

int rds_CFileBrowsing::IsRemoteFileReply()
{
    return Guarded([this] { return ReadAnswer(); });
}

cow_List<rds_DirectoryEntity> rds_CFileBrowsing::ReadListing()
{
    ReadStatus();
    const char flag = static_cast<char>(In().ReadSchar());
    const int count = In().ReadInt();
    // No service that is sound claims so many, and nobody waits for them.
    // kept: a negative count is a lie as well, and not a listing without entries.
    // Test: ACountThatNoServiceClaimsIsALostConnectionAtOnce.
    if (count < 0 || count > kMostEntries) LoseConnection();
    cow_List<rds_DirectoryEntity> list;
    rds_ListingRoom room;
    for (int read = 0; read < count; ++read)
    {
        const rds_DirectoryEntity entity = ReadListed(flag);
        if (!room.Take(entity)) LoseConnection();
        // kept: the list is in the reverse of the service's order. Test: AListingOfXAndYAndZGivesZAndYAndX.
        list.Prepend(entity);
    }
    return list;
}

rds_DirectoryEntity rds_CFileBrowsing::ReadListed(char flag)
{
    const int kind = In().ReadInt();
    const cow_String name = In().ReadString();
    if (flag == AllAttributes) return rds_ReadListedAttributes(In(), name, kind);
    // kept: looked at for each entry, so a listing without any may have any flag.
    // Test: AReplyWithoutEntriesMayHaveAnyFlag.
    if (flag != ShortForm)
        RefuseFlag("*** Error: rds_CFileBrowsing::ListDirReply flag option %s not valid", flag);
    return {name, kind};
}
