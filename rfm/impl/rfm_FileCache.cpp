#include "rfm_FileCache.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "omi_Singleton.h"
#include "thr_Mutex.h"
#include "utl_FileException.h"

#include <algorithm>
#include <atomic>

namespace
{
constexpr int kUsualPageBytes = 0x100000;
constexpr int kMostPageKiB = 65536;
// kept: a size beyond the bound gives a modest page, not the largest one. Test: TheOptionOfThePageSizeHasItsBounds.
constexpr int kPageKiBBeyondBound = 2048;

using Locked = thr_Locked<thr_Mutex>;

// The order of the locks: the cache's first, then the global one.
std::atomic<thr_Mutex*> s_Mutex = nullptr;

// Never destroyed: the end of a forked child must not take the file of its parent.
std::shared_ptr<rfm_FileCache>& TheCache()
{
    static auto* const s_Cache = new std::shared_ptr<rfm_FileCache>;
    return *s_Cache;
}

thr_Mutex& CacheMutex()
{
    thr_Mutex* mutex = s_Mutex.load(std::memory_order_acquire);
    if (mutex != nullptr) return *mutex;
    const thr_Locked<thr_GlobalLock> locked(omi_Singleton<thr_GlobalLock>::Instance());
    mutex = s_Mutex.load(std::memory_order_relaxed); // another thread may have been faster
    if (mutex == nullptr)
    {
        mutex = new thr_Mutex;
        s_Mutex.store(mutex, std::memory_order_release);
    }
    return *mutex;
}

[[noreturn]] void ThrowNoSpace() { nex_ThrowText(atr_Message("Cache Space Exausted.")); }
} // namespace

int rfm_FileCache::PageSizeBy(const utl_CommandLine& options)
{
    if (!options.IsMember("nrdx_page_size")) return kUsualPageBytes;
    const int wanted = std::max(options.ConstGetValueAsInt("nrdx_page_size"), 1);
    return (wanted > kMostPageKiB ? kPageKiBBeyondBound : wanted) << 10;
}

// Four fifths of the free space, in whole pages.
std::int64_t rfm_FileCache::PageLimitBy(const utl_CommandLine& options, std::uint64_t freeBytes, int pageSize)
{
    const auto limit = static_cast<std::int64_t>(freeBytes / static_cast<unsigned>(pageSize) * 4 / 5);
    if (!options.IsMember("nrdx_cache_limit")) return limit;
    const std::int64_t wanted = options.ConstGetValueAsInt("nrdx_cache_limit");
    return std::min(limit, wanted * (std::int64_t{1} << 20) / pageSize);
}

rfm_FileCache::rfm_FileCache()
    : m_TempFile(std::make_unique<utl_TempFile>("")),
      m_PageSize(PageSizeBy(utl_CommandLine::OfProcess())),
      m_PageLimit(PageLimitBy(utl_CommandLine::OfProcess(), m_TempFile->AvailableSpace(), m_PageSize))
{
    m_File.Open(m_TempFile->Name(), utl_FileAccessCreate, 0);
}

rfm_FileCache::~rfm_FileCache()
{
    while (!m_Free.IsAlone())
    {
        rfm_FilePage* const page = m_Free.m_Next;
        page->Unlink();
        delete page;
    }
}

std::shared_ptr<rfm_FileCache> rfm_FileCache::Instance()
{
    const Locked locked(CacheMutex());
    if (TheCache() == nullptr) TheCache().reset(new rfm_FileCache);
    return TheCache();
}

void rfm_FileCache::Finalize() noexcept
{
    thr_Mutex* const mutex = s_Mutex.load(std::memory_order_acquire);
    if (mutex == nullptr) return;
    mutex->Lock();
    TheCache().reset();
    const thr_Locked<thr_GlobalLock> locked(omi_Singleton<thr_GlobalLock>::Instance());
    s_Mutex.store(nullptr);
    mutex->Unlock();
    delete mutex;
}

rfm_FilePage* rfm_FileCache::GetPage(std::int64_t start, rfm_FilePageMap& pages)
{
    const Locked locked(CacheMutex());
    pages.m_Cache = this;
    const auto held = pages.m_Pages.find(start);
    rfm_FilePage* page = held != pages.m_Pages.end() ? held->second : nullptr;
    if (page == nullptr)
    {
        page = FindRecord();
        rfm_FilePage*& entry = pages.m_Pages[start];
        Rebind(*page, start, &pages);
        entry = page;
    }
    page->MoveBehind(m_InUse);
    return page;
}

rfm_FilePage* rfm_FileCache::FindRecord()
{
    if (!m_Free.IsAlone()) return m_Free.m_Next;
    if (m_PageCount < m_PageLimit) return NewRecord();
    if (m_Released.IsAlone()) ThrowNoSpace();
    return m_Released.m_Previous; // released longest ago
}

// The slot follows from the count, not from what has been written: a page that failed to load, or is still loading in
// another thread, keeps its place.
rfm_FilePage* rfm_FileCache::NewRecord()
{
    auto* const page = new rfm_FilePage(m_PageCount * rfm_FilePage::SlotBytes(m_PageSize));
    page->MoveBehind(m_Free);
    ++m_PageCount;
    return page;
}

// The old owner, when there is one, sees from the start without a page what it has lost.
void rfm_FileCache::Rebind(rfm_FilePage& page, std::int64_t start, rfm_FilePageMap* owner)
{
    if (page.m_Owner != nullptr)
    {
        page.m_Owner->m_Dropped.push_back(page.m_Start); // first: it may fail, and then nothing has changed
        page.m_Owner->m_Pages.find(page.m_Start)->second = nullptr;
    }
    page.m_Owner = owner;
    page.m_Start = start;
    page.m_Length = 0;
}

void rfm_FileCache::ReleasePage(rfm_FilePage* page) noexcept
{
    const Locked locked(CacheMutex());
    page->MoveBehind(m_Released);
}

void rfm_FileCache::DiscardPage(std::int64_t start, rfm_FilePageMap& pages)
{
    const Locked locked(CacheMutex());
    const auto held = pages.m_Pages.find(start);
    if (held == pages.m_Pages.end() || held->second == nullptr) return;
    rfm_FilePage* const page = held->second;
    Rebind(*page, 0, nullptr);
    page->MoveBehind(m_Free);
}

void rfm_FileCache::ReleaseFile(rfm_FilePageMap& pages) noexcept
{
    const Locked locked(CacheMutex());
    for (const auto& [start, page] : pages.m_Pages)
    {
        if (page == nullptr) continue;
        page->m_Owner = nullptr; // nobody is left to be told what was dropped
        Rebind(*page, 0, nullptr);
        page->MoveBehind(m_Free);
    }
    pages.m_Pages.clear();
    pages.m_Dropped.clear();
}

std::vector<std::int64_t> rfm_FileCache::TakeDroppedPages(rfm_FilePageMap& pages, int most)
{
    const Locked locked(CacheMutex());
    std::vector<std::int64_t> taken;
    while (!pages.m_Dropped.empty() && taken.size() < static_cast<std::size_t>(most))
    {
        const auto entry = pages.m_Pages.find(pages.m_Dropped.back());
        if (entry != pages.m_Pages.end() && entry->second == nullptr)
        {
            taken.push_back(entry->first);
            pages.m_Pages.erase(entry);
        }
        pages.m_Dropped.pop_back();
    }
    std::ranges::sort(taken);
    return taken;
}

void rfm_FileCache::ReadSlot(std::int64_t place, char* target, int count) const
{
    if (m_File.ReadAt(target, count, place) < count)
        utl_FileException("read", cow_String(m_TempFile->Name().View()), atr_Message("It has become shorter"))
            .Throw(__FILE__, __LINE__);
}
