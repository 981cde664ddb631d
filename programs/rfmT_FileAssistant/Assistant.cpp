#include "Assistant.h"

#include "Failure.h"
#include "omi_Swapper.h"
#include "utl_BinStreamException.h"

#include <fcntl.h>
#include <strings.h>

#include <algorithm>
#include <array>

namespace assistant
{
using farend::Failure;

namespace
{
// A user has room for 64 MiB of pipes before his programs get none but the smallest, and a daemon has 64 services.
constexpr int kPipeBytes = 256 * 1024;
// Any head but one with a list of hundreds of pages.
constexpr std::size_t kRoomForHead = 4096;
constexpr int kStartBytes = sizeof(std::int64_t);
constexpr int kPageFieldsBytes = kStartBytes + sizeof(int);

template <class T> T Load(const char* bytes) { return omi_Load<T>(bytes, omi_Swapper(omi_Swapper::Pipe)); }
} // namespace

// The end of a reply fits into the pipe, so that the next request is read while the reader still works on this one's.
Assistant::Assistant(int input, int output, std::size_t mostWatched)
    : m_Input(input, omi_Swapper::Pipe),
      m_Output(output, omi_Swapper::Pipe),
      m_MostWatched(mostWatched)
{
    if (::fcntl(output, F_GETPIPE_SZ) < kPipeBytes)
        ::fcntl(output, F_SETPIPE_SZ, kPipeBytes); // where it is no pipe, or may not grow, it stays as it is
}

void Assistant::Serve(const cow_String& path)
{
    TakeKey();
    m_File.emplace(path, m_Watch);
    AgreeOnVersion();
    AgreeOnPageSize();
    for (signed char code = 0; NextRequest(code);) Answer(code);
}

// ---- Handshake ----

// Who gave it is not judged here: the daemon let in only whoever proved it, and without a daemon the reader started this
// process itself.
void Assistant::TakeKey()
{
    std::array<char, rfm_RemoteMostKeyBytes> key;
    const auto length = static_cast<unsigned char>(m_Input.ReadSchar());
    m_Input.Read(key.data(), length);
    ::explicit_bzero(key.data(), key.size());
}

void Assistant::AgreeOnVersion()
{
    std::string version(sizeof rfm_RemoteVersion, '\0');
    omi_Store(version.data(), rfm_RemoteVersion, omi_Swapper(omi_Swapper::Pipe));
    Send(version);
    const short agreed = m_Input.ReadShort();
    if (agreed < 1 || agreed > rfm_RemoteVersion)
        throw Failure("version " + std::to_string(agreed) + " of the protocol is not spoken here");
}

void Assistant::AgreeOnPageSize()
{
    const int bytes = m_Input.ReadInt();
    if (!rfm_IsRemotePageSize(bytes))
        throw Failure("pages of " + std::to_string(bytes) + " bytes: it must be 1 KiB to 64 MiB");
    m_PageSize = bytes;
    m_Block = std::make_unique_for_overwrite<char[]>(kRoomForHead + static_cast<std::size_t>(bytes));
    if (m_Watch) m_Held.emplace(*m_File, bytes, m_MostWatched);
}

// ---- Requests ----

bool Assistant::NextRequest(signed char& code)
{
    try
    {
        code = m_Input.ReadSchar();
        return true;
    }
    catch (const utl_BinStreamEOF&)
    {
        return false;
    }
}

void Assistant::Answer(signed char code)
{
    switch (code)
    {
    case rfm_RemoteSizeRequest: return AnswerSize();
    case rfm_RemotePageRequest: return AnswerPage();
    case rfm_RemoteStatusRequest: return AnswerStatus();
    default: throw Failure("there is no request " + std::to_string(code));
    }
}

void Assistant::AnswerSize()
{
    static constexpr std::int64_t kNoPage = -1;
    const std::string head = HeadWithChanges(kNoPage);
    Send(head + rfm_EncodeRemoteSize(m_File->Size()));
}

// The page is read behind the check of those that are held, so they are never older than it: whatever the writer flushes
// from the check on moves the count again.
void Assistant::AnswerPage()
{
    const std::int64_t start = TakePageRequest();
    if (m_Held) m_Held->Drop(start); // from here on the reader has what this reply brings
    const std::string head = HeadWithChanges(start);
    const std::int64_t mark = m_Held ? m_File->WriteMark() : ServedFile::kUnsettled;
    char* const page = m_Block.get() + kRoomForHead;
    const int length = m_File->Read(start, page, m_PageSize);
    SendPage(head, length);
    // The rest while the reader is busy with the page.
    if (m_Held) m_Held->Sent(start, page, length, mark);
    if (length == m_PageSize) m_File->Expect(start + length, m_PageSize);
}

std::int64_t Assistant::TakePageRequest()
{
    const int droppedCount = m_Input.ReadShort();
    if (droppedCount < 0) throw Failure("a list of " + std::to_string(droppedCount) + " pages");
    const int droppedBytes = droppedCount * kStartBytes;
    m_Request.resize(static_cast<std::size_t>(droppedBytes) + kPageFieldsBytes);
    m_Input.Read(m_Request.data(), static_cast<int>(m_Request.size()));

    const auto start = Load<std::int64_t>(m_Request.data() + droppedBytes);
    const int pageSize = Load<int>(m_Request.data() + droppedBytes + kStartBytes);
    if (pageSize != m_PageSize)
        throw Failure("a page of " + std::to_string(pageSize) + " bytes, where " +
                      std::to_string(m_PageSize) + " were agreed on");
    if (!rfm_IsRemotePageStart(start, pageSize)) throw Failure("no page begins at " + std::to_string(start));
    DropPages(m_Request.data(), droppedCount);
    return start;
}

// Starts that are not held are nothing special: the reader drops pages that it was told to forget, too.
void Assistant::DropPages(const char* starts, int count)
{
    if (!m_Held) return;
    for (int i = 0; i < count; ++i) m_Held->Drop(Load<std::int64_t>(starts + i * kStartBytes));
}

// ---- Replies ----

// Readers who may not follow are told "unchanged" for ever, as on this host.
rfm_FileStatus::RfmFileStatus Assistant::Look()
{
    return m_Watch ? m_Watch->CheckStatus() : rfm_FileStatus::RfmFileUnchanged;
}

// The head of a reply that brings content. A movement of the count is told here only by the pages that it changed: the
// question for the status has its own answer coming. Between two movements the writer may have written into rows that are
// there; what lies next to the page is looked at for that, so that no object is half old and half new.
std::string Assistant::HeadWithChanges(std::int64_t wanted)
{
    rfm_FileStatus::RfmFileStatus status = Look();
    if (status == rfm_FileStatus::RfmFileUpdated) status = rfm_FileStatus::RfmFileUnchanged;
    std::vector<std::int64_t> changed;
    if (m_Watch && m_Watch->TakePagesDue())
        changed = m_Held->TakeChanged();
    else if (m_Held && wanted >= 0)
        changed = m_Held->TakeChangedNear(wanted);
    if (m_Held && wanted >= 0) m_Held->MakeRoom(changed);
    if (!changed.empty()) status = rfm_FileStatus::RfmFileUpdated;
    return rfm_EncodeRemoteReplyHead(static_cast<signed char>(status), changed);
}

void Assistant::AnswerStatus()
{
    const rfm_FileStatus::RfmFileStatus status = Look();
    const bool isHereToStay =
        status == rfm_FileStatus::RfmFileUnchanged || status == rfm_FileStatus::RfmFileUpdated;
    std::vector<std::int64_t> changed;
    if (!m_Watch || !isHereToStay || !m_Watch->TakeMovement())
        return Send(rfm_EncodeRemoteReplyHead(static_cast<signed char>(status), changed));
    if (m_Watch->TakePagesDue()) changed = m_Held->TakeChanged();
    Send(rfm_EncodeRemoteReplyHead(rfm_RemoteUpdated, changed));
}

// Head and page in one piece: the reader is woken once, and nothing is copied but the head.
void Assistant::SendPage(std::string_view head, int length)
{
    const std::string front = std::string(head) + rfm_EncodeRemotePageLength(length);
    char* const page = m_Block.get() + kRoomForHead;
    if (front.size() > kRoomForHead)
    {
        Send(front);
        return Send({page, static_cast<std::size_t>(length)});
    }
    char* const reply = std::copy_backward(front.begin(), front.end(), page);
    Send({reply, front.size() + static_cast<std::size_t>(length)});
}

void Assistant::Send(std::string_view bytes)
{
    try
    {
        m_Output.Write(bytes.data(), static_cast<int>(bytes.size()));
    }
    catch (const utl_BinStreamEOF&)
    {
        throw ReaderHasGone();
    }
}
} // namespace assistant
