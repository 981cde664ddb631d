#pragma once

#include "rfm_FilePage.h"
#include "utl_CommandLine.h"
#include "utl_File.h"
#include "utl_TempFile.h"

#include <memory>

/// The pages of all remote files of the process, on the local disk: bytes lie in one temporary file, and in memory there
/// is one small record a page. Every record stands in one of three lists:
///
///                        GetPage                          ReleasePage
///     new, free  ------------------------->  in use  ------------------------->  released
///         ^                                  ^  the page that a read works on      |   |
///         |                                  |                                     |   |
///         |                                  +--- GetPage: a hit, or the page -----+   |
///         |                                       released longest ago, for another    |
///         +----------------------- DiscardPage, ReleaseFile ---------------------------+
///
/// Invariants: a page that a map holds has that map as its owner and is entered there under its start; a record without
/// an owner is in the free list; records live as long as the cache. Slots are handed out one behind
/// the other, so the temporary file grows to at most the limit.
///
/// Threads: all operations may be called from any number of threads; one mutex guards the lists and all page maps. Bytes
/// are moved outside of it: a page that is in use belongs to the thread that got it, positioned transfers need no lock,
/// and only released pages are taken for others.
class rfm_FileCache
{
public:
    /// The one cache, made at its first use from the options of the process.
    /// Throws: what utl_TempFile and utl_File throw; nex_TextException for an option that is no number.
    static std::shared_ptr<rfm_FileCache> Instance();
    /// Takes the cache down, if there is one. All remote files should be closed by then; where one is not, the cache and
    /// its file stay until that goes. The next use makes a fresh one.
    static void Finalize() noexcept;

    rfm_FileCache(const rfm_FileCache&) = delete;
    rfm_FileCache& operator=(const rfm_FileCache&) = delete;
    /// All pages have been given back.
    ~rfm_FileCache();

    /// The page at `start`, which is the caller's until `ReleasePage`; its length is 0 when it has to be loaded.
    /// Throws: nex_TextException "Cache Space Exausted." when the limit is reached and all pages are in use.
    rfm_FilePage* GetPage(std::int64_t start, rfm_FilePageMap& pages);
    void ReleasePage(rfm_FilePage* page) noexcept;
    /// Forgets a page of the file, if it is there: its bytes are no longer those of the file. Not for a page in use.
    void DiscardPage(std::int64_t start, rfm_FilePageMap& pages);
    /// Takes back all pages of a file and empties its map.
    void ReleaseFile(rfm_FilePageMap& pages) noexcept;
    /// The starts that lost their page, `most` of them at most; they leave the map.
    std::vector<std::int64_t> TakeDroppedPages(rfm_FilePageMap& pages, int most);

    int PageSize() const noexcept { return m_PageSize; }
    /// How many pages there may be.
    std::int64_t PageLimit() const noexcept { return m_PageLimit; }

    /// Bytes of a page, by the options.
    static int PageSizeBy(const utl_CommandLine& options);
    static std::int64_t PageLimitBy(const utl_CommandLine& options, std::uint64_t freeBytes, int pageSize);

private:
    friend class rfm_FilePage;

    rfm_FileCache();

    void ReadSlot(std::int64_t place, char* target, int count) const;
    void WriteSlot(std::int64_t place, const char* bytes, int count) const
    {
        m_File.WriteAt(bytes, count, place);
    }
    rfm_FilePage* FindRecord();
    rfm_FilePage* NewRecord();
    static void Rebind(rfm_FilePage& page, std::int64_t start, rfm_FilePageMap* owner);

    std::unique_ptr<utl_TempFile> m_TempFile;
    utl_File m_File;
    rfm_FilePage m_InUse;
    rfm_FilePage m_Released;
    rfm_FilePage m_Free;
    int m_PageSize;
    std::int64_t m_PageLimit;
    int m_PageCount = 0;
};
