#pragma once

#include "rfm_FileCache.h"
#include "rfm_FileRepr.h"
#include "uti_SpawnSourceWithSink.h"
#include "utl_TempFile.h"

#include <memory>
#include <string>

/// A database on another host, or on this one in the hands of another process: read-only, named by a URL. The program
/// rfmT_FileAssistant beside the file is asked for pages, over its standard input and output as rfm_RemoteFormat.h draws
/// it, and what it sent is kept in the cache that all remote files share.
///
/// A round trip is what costs, so a page comes in one, and what the assistant has to be told of pages that the cache took
/// away rides along. A page shorter than a whole one is asked for again whenever more is wanted from it: that is how the
/// end of the file is seen, and a file that has grown.
///
/// A connection that was lost, or whose other end said something that can't be, stays lost: every later request fails.
/// Threads: one at a time for each file; several files may be used by several threads. A URL with a port is opened in the
/// thread to which the registry of connections belongs.
class rfm_FileReprRemote : public rfm_FileRepr
{
public:
    /// Throws: nex_AssertException for a URL without host or path, one without a port whose host isn't "localhost", and
    /// one with a port that no registered connection has; rfm_FileConnectExc, rfm_FileFailExc; what the cache throws.
    explicit rfm_FileReprRemote(const cow_String& url);
    /// Waits until the assistant has gone, unless the connection was lost before.
    ~rfm_FileReprRemote() override;

    bool ReadOnly() const override { return true; }
    void Seek(utl_FileOffset position) override { m_Position = position; }
    void Flush() override {}
    void Extend(utl_FileOffset) override { Refuse(); }
    int Read(char* buffer, int count) override;
    int Write(const char*, int) override { Refuse(); }
    bool ExtendBy(utl_FileOffset) override { Refuse(); }
    void TrimToLength() override { Refuse(); }
    /// Asks the assistant, and lets go of all pages that have changed.
    rfm_FileStatus::RfmFileStatus CheckStatus() override;
    atr_String CheckCache() override;
    void WriteSizeStamp(int) override { Refuse(); }
    void VerifySizeStamp(int position) override;
    /// The size now: both sizes stay as they were at the open, and the file may grow.
    utl_FileOffset MediumSize() const override;
    /// Asks only for what lies behind the size that is known. Where the file has become shorter since, reads tell it.
    bool ReachesTo(utl_FileOffset end) const override;
    bool MayHold(utl_FileOffset end) const override { return ReachesTo(end); }

private:
    void Start(const cow_String& url);
    void Connect(const cow_String& key);
    [[noreturn]] void Refuse() const;
    cow_String ReasonOfFailure();

    // One request and its reply: `exchange` runs while the connection counts as lost, unless it ends well.
    template <class Exchange> void Ask(Exchange exchange);
    void Send(const std::string& request) const;
    utl_BinIStream Source() const;
    void TakeReplyHead(utl_BinIStream& source, std::int64_t fetched);
    void DiscardChangedPages(utl_BinIStream& source, std::int64_t fetched);
    std::int64_t AskSize();
    void FetchPage(std::int64_t start, rfm_FilePage& page);
    void LoadPage(utl_BinIStream& source, rfm_FilePage& page);
    void ReadStamp(int position, char* bytes);
    void Trace(const std::string& what) const;

    short m_ProtocolVersion;
    std::unique_ptr<uti_SpawnSourceWithSink> m_Process;
    utl_TempFile m_ErrorFile{""};
    std::shared_ptr<rfm_FileCache> m_Cache;
    rfm_FilePageMap m_Pages;
    signed char m_Status = 0;

    bool m_IsLost =
        true; // the other end has gone, or both ends no longer agree on where in the stream they are
    bool m_SizeIsOld = true; // there may have been news since the size was asked for
    std::int64_t m_MediumSize = 0;
    bool m_Traces;
};
