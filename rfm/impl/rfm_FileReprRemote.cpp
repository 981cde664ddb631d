#include "rfm_FileReprRemote.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "nex_Report.h"
#include "rds_KeyExchange.h"
#include "rds_RemoteConnectionsRep.h"
#include "rds_RemoteShell.h"
#include "rfm_FileException.h"
#include "rfm_HeaderFormat.h"
#include "rfm_RemoteFormat.h"
#include "utl_BinOStream.h"
#include "utl_CommandLine.h"
#include "utl_FileException.h"
#include "utl_PathFinder.h"
#include "utl_UrlParser.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{
constexpr const char* kAssistant = "rfmT_FileAssistant";
constexpr int kReasonLineBytes = 512; // with its NUL
constexpr long kMostReasonBytes = 16L * 1024 * 1024;
constexpr const char* kReasonPrefixes[] = {"qlnsrvd,", "qlnsrv,", "assistant,", "MARLEK Error:"};
// kept: 5 MiB for each page, whatever its size. Test: TheWarningComesAboveFiveMebibytesAPage.
constexpr std::int64_t kRoomyBytesPerPage = 0x500000;
constexpr int kStampAttempts = 5;
constexpr std::int64_t kNoPage = -1;

void Require(bool holds, const char* condition)
{
    if (!holds) nex_ThrowAssert(condition);
}

// A URL without a port is of this host, where no connection is needed.
// kept: the record is reached for writing, so that a "Modify" is reported. Test: TheKeyIsThatOfTheConnection.
cow_String KeyFor(const cow_String& url)
{
    if (!utl_UrlParser::HasPort(url)) return {};
    rds_RemoteConnectionsRep& registry = omi_Singleton<rds_RemoteConnectionsRep>::Instance();
    const cow_String name = registry.MapUrlToRemoteConnectionName(url);
    rds_RemoteConnections& connections = registry.Connections();
    return !name.IsEmpty() && connections.IsMember(name) ? cow_String(connections.Get(name).QlnsrvdKey())
                                                         : cow_String();
}

struct Command
{
    cow_String program;
    cow_1DArrayList<cow_String> arguments;
};

Command RelayFor(const cow_String& url)
{
    Command command;
    command.program =
        utl_PathFinder::getSubDirPath("MRL_PATH", "External/qlnsrv", "qlnsrv", true, false, false);
    if (command.program.IsEmpty())
        rfm_FileConnectExc(url, "Cannot locate qlnsrv executable").Throw(__FILE__, __LINE__);
    const cow_String host = utl_UrlParser::GetHost(url);
    rds_RefuseOption("host name", host);
    for (const cow_String& word :
         {cow_String("-cpu"), host, cow_String("-private"), cow_String("-port"), utl_UrlParser::GetPort(url),
          cow_String(kAssistant), utl_UrlParser::GetPath(url)})
        command.arguments.Append(word);
    if (url.View().find("SCRATCHDIR_RHOST") != std::string_view::npos) command.arguments.Append("-scratch");
    return command;
}

Command AssistantFor(const cow_String& url)
{
    Require(utl_UrlParser::GetHost(url) == "localhost", "utl_UrlParser::GetHost(url) == \"localhost\"");
    Command command;
    command.program = uti_Spawn::FindCommand(kAssistant);
    if (command.program.IsEmpty())
        rfm_FileConnectExc(url, "Cannot locate rfmT_FileAssistant executable").Throw(__FILE__, __LINE__);
    command.arguments.Append(utl_UrlParser::GetPath(url));
    return command;
}

bool BeginsWithReason(std::string_view line)
{
    return std::ranges::any_of(kReasonPrefixes,
                               [line](const char* prefix) { return line.starts_with(prefix); });
}

struct CloseStream
{
    void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
};

// The last line that one of the programs in between wrote for the user. Its line end is part of it. A program that never
// stops talking must not keep its reader: what is there now counts, and of that the end.
cow_String LastReason(std::FILE* stream)
{
    cow_String last("Can't be determined");
    std::fseek(stream, 0, SEEK_END);
    const long end = std::ftell(stream);
    std::fseek(stream, std::max(end - kMostReasonBytes, 0L), SEEK_SET);
    char line[kReasonLineBytes];
    while (std::ftell(stream) < end && std::fgets(line, sizeof line, stream) != nullptr)
        if (BeginsWithReason(line)) last = line;
    return last;
}

bool WantsTrace()
{
    return utl_CommandLine::OfProcess().IsMember("nrdx_debug") || std::getenv("nrdx_debug") != nullptr;
}

// A page of a file for as long as something is read from it.
class HeldPage
{
public:
    HeldPage(rfm_FileCache& cache, std::int64_t start, rfm_FilePageMap& pages)
        : m_Cache(cache),
          m_Page(*cache.GetPage(start, pages))
    {
    }
    HeldPage(const HeldPage&) = delete;
    HeldPage& operator=(const HeldPage&) = delete;
    ~HeldPage() { m_Cache.ReleasePage(&m_Page); }

    rfm_FilePage& Page() noexcept { return m_Page; }

private:
    rfm_FileCache& m_Cache;
    rfm_FilePage& m_Page;
};

// What the other end says is no protocol: for this reader it has ended there.
[[noreturn]] void ThrowNoProtocol(const char* what)
{
    utl_BinStreamEOF("read", atr_Message(what)).Throw(__FILE__, __LINE__);
}
} // namespace

// ---- Connection ----

rfm_FileReprRemote::rfm_FileReprRemote(const cow_String& url)
    : rfm_FileRepr(url),
      m_ProtocolVersion(rfm_RemoteVersion),
      m_Cache(rfm_FileCache::Instance()),
      m_Traces(WantsTrace())
{
    Require(utl_UrlParser::IsUrl(url), "utl_UrlParser::IsUrl(url)");
    Require(utl_UrlParser::HasHost(url), "utl_UrlParser::HasHost(url)");
    Require(utl_UrlParser::HasPath(url), "utl_UrlParser::HasPath(url)");
    const cow_String key = KeyFor(url);
    Start(url);
    Connect(key);
    m_PhysicalFileSize = m_LogicalFileSize = AskSize();
}

void rfm_FileReprRemote::Start(const cow_String& url)
{
    const Command command = utl_UrlParser::HasPort(url) ? RelayFor(url) : AssistantFor(url);
    uti_Redirection errors("2>", m_ErrorFile.Name());
    m_Process = std::make_unique<uti_SpawnSourceWithSink>(command.program, command.arguments, errors,
                                                          cow_Map<cow_String, cow_String>());
}

void rfm_FileReprRemote::Connect(const cow_String& key)
{
    try
    {
        rds_SendKey(*m_Process, key.CString());
        m_ProtocolVersion = rfm_RemoteCommonVersion(m_ProtocolVersion, Source().ReadShort());
        Send(rfm_EncodeRemoteAnswer(m_ProtocolVersion, m_Cache->PageSize()));
    }
    catch (const utl_BinStreamEOF&)
    {
        m_Process->Reap(0);
        rfm_FileConnectExc(m_FileName, ReasonOfFailure()).Throw(__FILE__, __LINE__);
    }
    m_IsLost = false;
}

cow_String rfm_FileReprRemote::ReasonOfFailure()
{
    if (!m_ErrorFile.OpenIfPresent()) return {};
    utl_Descriptor descriptor(m_ErrorFile.TakeDescriptor());
    const std::unique_ptr<std::FILE, CloseStream> stream(::fdopen(descriptor.Get(), "r"));
    if (stream == nullptr) return {};
    descriptor.Release(); // the stream closes it
    return LastReason(stream.get());
}

// An assistant ends when it sees its input closed. Only one that is in step is waited for: any other may never end, and
// the process object ends it.
rfm_FileReprRemote::~rfm_FileReprRemote()
{
    try
    {
        if (!m_IsLost && m_Process->IsRunning())
        {
            m_Process->CloseSink();
            for (utl_BinIStream source = Source();;) source.ReadSchar();
        }
    }
    catch (const utl_BinStreamEOF&)
    {
        m_Process->Reap(0);
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
    m_Cache->ReleaseFile(m_Pages);
}

// ---- Requests ----

template <class Exchange> void rfm_FileReprRemote::Ask(Exchange exchange)
{
    try
    {
        if (m_IsLost) ThrowNoProtocol("The connection was lost before");
        m_IsLost = true;
        exchange();
        m_IsLost = false;
    }
    catch (const utl_BinStreamEOF&)
    {
        m_Process->Reap(0);
        rfm_FileFailExc(m_FileName, ReasonOfFailure()).Throw(__FILE__, __LINE__);
    }
}

void rfm_FileReprRemote::Send(const std::string& request) const
{
    utl_BinOStream(m_Process->SinkDescriptor(), omi_Swapper::Pipe)
        .Write(request.data(), static_cast<int>(request.size()));
}

utl_BinIStream rfm_FileReprRemote::Source() const
{
    return {m_Process->SourceDescriptor(), omi_Swapper::Pipe};
}

void rfm_FileReprRemote::TakeReplyHead(utl_BinIStream& source, std::int64_t fetched)
{
    source.ReadSchar(); // nobody has a use for it
    m_Status = source.ReadSchar();
    if (m_Status != rfm_RemoteUpdated) return;
    m_SizeIsOld = true;
    DiscardChangedPages(source, fetched);
}

// One by one: the count is only what the other end claims.
void rfm_FileReprRemote::DiscardChangedPages(utl_BinIStream& source, std::int64_t fetched)
{
    const int count = source.ReadInt();
    if (!rfm_IsRemoteListLength(count)) ThrowNoProtocol("A list of pages has no such length");
    for (int i = 0; i < count; ++i)
    {
        const std::int64_t start = source.ReadInt64();
        // The page that is just being fetched is in use, and what comes for it is newer than the list.
        if (start != fetched) m_Cache->DiscardPage(start, m_Pages);
    }
}

std::int64_t rfm_FileReprRemote::AskSize()
{
    Ask(
        [this]
        {
            Send(rfm_EncodeRemoteSizeRequest());
            utl_BinIStream source = Source();
            TakeReplyHead(source, kNoPage);
            const std::int64_t size = source.ReadInt64();
            if (size < 0) ThrowNoProtocol("No file has such a size");
            m_MediumSize = size;
            m_SizeIsOld = false;
        });
    if (m_Traces) Trace("size " + std::to_string(m_MediumSize));
    return m_MediumSize;
}

rfm_FileStatus::RfmFileStatus rfm_FileReprRemote::CheckStatus()
{
    Ask(
        [this]
        {
            Send(rfm_EncodeRemoteStatusRequest());
            utl_BinIStream source = Source();
            TakeReplyHead(source, kNoPage);
        });
    if (m_Traces) Trace("status");
    return static_cast<rfm_FileStatus::RfmFileStatus>(m_Status);
}

void rfm_FileReprRemote::FetchPage(std::int64_t start, rfm_FilePage& page)
{
    std::size_t droppedCount = 0;
    Ask(
        [&]
        {
            const auto dropped = m_Cache->TakeDroppedPages(m_Pages, rfm_RemoteMostDroppedPages);
            droppedCount = dropped.size();
            Send(rfm_EncodeRemotePageRequest(dropped, start, m_Cache->PageSize()));
            utl_BinIStream source = Source();
            TakeReplyHead(source, start);
            m_SizeIsOld = true; // what the page says may lie behind the end that was known
            LoadPage(source, page);
        });
    if (m_Traces)
        Trace("page " + std::to_string(start) + " with " + std::to_string(page.Length()) + " bytes, " +
              std::to_string(droppedCount) + " dropped");
}

void rfm_FileReprRemote::LoadPage(utl_BinIStream& source, rfm_FilePage& page)
{
    try
    {
        page.LoadPage(source);
    }
    catch (const utl_FileException&)
    {
        m_IsLost = false; // a matter of this side: the whole reply was taken
        throw;
    }
}

void rfm_FileReprRemote::Trace(const std::string& what) const
{
    const std::string line = "rfm_FileReprRemote: " + what + ", status " + std::to_string(m_Status) + ": " +
                             m_FileName.CString() + "\n";
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

// ---- Operations ----

int rfm_FileReprRemote::Read(char* buffer, int count)
{
    if (count < 0) nex_ThrowText(atr_Message("rfm_FileReprRemote::Read: Invalid length when reading file."));
    if ((buffer == nullptr && count > 0) || m_Position < 0)
        rfm_FileBadParameterExc("rfm_FileReprRemote::Read").Throw(__FILE__, __LINE__);
    const int pageSize = m_Cache->PageSize();
    utl_FileOffset position = m_Position;
    int total = 0;
    for (bool goesOn = true; goesOn && count > 0;)
    {
        const std::int64_t start = position.Value() / pageSize * pageSize;
        if (!rfm_IsRemotePageStart(start, pageSize)) break; // no file is as long as that
        HeldPage held(*m_Cache, start, m_Pages);
        rfm_FilePage& page = held.Page();
        page.ReadPage(total, buffer, count, position);
        if (count > 0 && page.Length() < pageSize)
        {
            FetchPage(start, page);
            page.ReadPage(total, buffer, count, position);
        }
        goesOn = page.Length() == pageSize;
    }
    m_Position += total;
    return total;
}

utl_FileOffset rfm_FileReprRemote::MediumSize() const
{
    // Asking moves nothing but what this object knows of the file, and no object of this class is constant.
    return m_SizeIsOld ? const_cast<rfm_FileReprRemote*>(this)->AskSize() : m_MediumSize;
}

bool rfm_FileReprRemote::ReachesTo(utl_FileOffset end) const
{
    return end <= m_MediumSize || end <= MediumSize();
}

atr_String rfm_FileReprRemote::CheckCache()
{
    const std::int64_t pages = std::min(m_Cache->PageLimit(), INT64_MAX / kRoomyBytesPerPage);
    if (AskSize() <= pages * kRoomyBytesPerPage) return {};
    return atr_Message(
        "The Network RDX file being opened is over five times the size of the Network RDX cache file. "
        "Performance may be degraded. If this is not acceptable, please relocate the temporary file "
        "directory to a location that has more free space.");
}

void rfm_FileReprRemote::ReadStamp(int position, char* bytes)
{
    const utl_FileOffset before = m_Position;
    std::fill_n(bytes, rfm_SizeStampBytes, '\0');
    Seek(position);
    Read(bytes, rfm_SizeStampBytes);
    Seek(before);
}

// A writer may have made the file grow between the size at the open and the stamp. Where the size has moved indeed, the
// stamp is looked at again before the file is called corrupt.
void rfm_FileReprRemote::VerifySizeStamp(int position)
{
    std::int64_t size = m_PhysicalFileSize.Value();
    for (int attempt = 0; attempt < kStampAttempts; ++attempt)
    {
        char bytes[rfm_SizeStampBytes];
        ReadStamp(position, bytes);
        if (rfm_SizeStampAllows(bytes, Swapped(), size)) return;
        const std::int64_t sizeNow = AskSize();
        if (sizeNow == size) break;
        if (rfm_SizeStampAllows(bytes, Swapped(), sizeNow)) return;
        size = sizeNow;
        m_Cache->DiscardPage(position / m_Cache->PageSize() * m_Cache->PageSize(), m_Pages);
    }
    rfm_ThrowBadSizeStamp();
}

void rfm_FileReprRemote::Refuse() const { rfm_FileReadOnlyExc(m_FileName).Throw(__FILE__, __LINE__); }
