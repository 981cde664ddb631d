#pragma once

#include "HeldPages.h"
#include "ServedFile.h"
#include "rfm_RemoteFormat.h"
#include "utl_BinIStream.h"
#include "utl_BinOStream.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace assistant
{
/// The reader has closed its end: there is nobody left to say anything to.
struct ReaderHasGone
{
};

/// Serves one file to one reader; rfm_RemoteFormat.h draws what they say. Requests are judged before anything is done for
/// them, and memory does not depend on what they claim: one page, one request, a digest for each page that the reader
/// holds.
class Assistant
{
public:
    /// Watches `mostWatched` pages at most, and one at least.
    Assistant(int input, int output, std::size_t mostWatched = rfm_RemoteMostWatchedPages);

    /// Until the input ends between two requests.
    /// Throws: farend::Failure for what the protocol does not know, utl_BinStreamEOF when the input ends before that,
    /// ReaderHasGone; what the library says when the file can't be read.
    void Serve(const cow_String& path);

private:
    void TakeKey();
    void AgreeOnVersion();
    void AgreeOnPageSize();
    bool NextRequest(signed char& code);
    void Answer(signed char code);
    void AnswerSize();
    void AnswerPage();
    void AnswerStatus();
    std::int64_t TakePageRequest();
    void DropPages(const char* starts, int count);
    rfm_FileStatus::RfmFileStatus Look();
    std::string HeadWithChanges(std::int64_t wanted);
    void SendPage(std::string_view head, int length);
    void Send(std::string_view bytes);

    utl_BinIStream m_Input;
    utl_BinOStream m_Output;
    std::size_t m_MostWatched;
    std::optional<ServedFile> m_File;
    std::optional<StatusWatch> m_Watch; // both only where readers may follow
    std::optional<HeldPages> m_Held;
    int m_PageSize = 0;
    std::unique_ptr<char[]> m_Block; // room for the head of a reply, then the page
    std::vector<char> m_Request;     // what is behind the count of a page request
};
} // namespace assistant
