#include "utl_PageCache.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace
{
// The first pages take little. Whoever needs more gets it in the size of the system's large pages: a first touch of
// 4 KiB costs 1 us and more, of which the 13 700 pages of a table of 1 000 000 rows have as many.
constexpr std::size_t kFirstChunkBytes = 256 * 1024;
constexpr std::size_t kChunkBytes = 2 * 1024 * 1024;
} // namespace

utl_PageCache::utl_PageCache()
    : m_Places(static_cast<Page*>(std::calloc(kPlaces, sizeof(Page)))),
      m_Touched(static_cast<std::uint32_t*>(std::calloc(kPlaces, sizeof(std::uint32_t))))
{
    if (m_Places == nullptr || m_Touched == nullptr) throw std::bad_alloc();
}

// Two pages with one mark cost a load that doesn't pay, no more.
std::uint32_t utl_PageCache::MarkOf(std::int64_t number) const noexcept
{
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15U;
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(number) + m_Epoch * kSpread);
}

bool utl_PageCache::Touch(std::int64_t number) noexcept
{
    std::uint32_t& mark = m_Touched[static_cast<std::size_t>(number) & kPlaceMask];
    const std::uint32_t wanted = MarkOf(number);
    if (mark == wanted) return true;
    mark = wanted;
    return false;
}

bool utl_PageCache::AddChunk() noexcept
{
    const bool isFirst = m_Chunks.empty();
    const std::size_t bytes = isFirst ? kFirstChunkBytes : kChunkBytes;
    Memory<char> chunk(static_cast<char*>(isFirst ? std::malloc(bytes) : std::aligned_alloc(bytes, bytes)));
    if (chunk == nullptr) return false;
    try
    {
        m_Chunks.push_back(std::move(chunk));
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    m_Free = m_Chunks.back().get();
    m_FreeBytes = bytes;
    if (!isFirst)
        static_cast<void>(::madvise(m_Free, bytes, MADV_HUGEPAGE)); // advice: it may well not be taken
    return true;
}

bool utl_PageCache::Provide(Page& place) noexcept
{
    if (place.bytes != nullptr) return true;
    if (m_FreeBytes == 0 && !AddChunk()) return false;
    place.bytes = m_Free;
    m_Free += kPageBytes;
    m_FreeBytes -= kPageBytes;
    return true;
}

void utl_PageCache::Keep(Page& place, std::int64_t number, int valid) noexcept
{
    place.number = number;
    place.epoch = m_Epoch;
    place.valid = static_cast<std::uint16_t>(valid);
    place.dirtyStart = place.dirtyEnd = 0;
}

void utl_PageCache::Overwrite(Page& page, int place, const char* bytes, int count)
{
    const auto start = static_cast<std::uint16_t>(place);
    const auto end = static_cast<std::uint16_t>(place + count);
    if (!page.isListed) m_Listed.push_back(&page);
    page.isListed = true;
    if (!page.IsDirty())
    {
        ++m_DirtyCount;
        page.dirtyStart = start;
        page.dirtyEnd = end;
    }
    page.dirtyStart = std::min(page.dirtyStart, start);
    page.dirtyEnd = std::max(page.dirtyEnd, end);
    std::memcpy(page.bytes + place, bytes, static_cast<std::size_t>(count));
}

std::vector<utl_PageCache::Page*> utl_PageCache::DirtyPages()
{
    std::vector<Page*> pages;
    pages.reserve(static_cast<std::size_t>(m_DirtyCount));
    for (Page* page : m_Listed)
    {
        page->isListed = page->IsDirty();
        if (page->isListed) pages.push_back(page);
    }
    std::sort(pages.begin(), pages.end(), [](const Page* a, const Page* b) { return a->number < b->number; });
    m_Listed = pages;
    return pages;
}

void utl_PageCache::SetClean(Page& page) noexcept
{
    page.dirtyStart = page.dirtyEnd = 0;
    if (--m_DirtyCount > 0) return;
    for (Page* listed : m_Listed) listed->isListed = false;
    m_Listed.clear();
}

void utl_PageCache::Forget() noexcept
{
    ++m_Epoch;
    if (m_DirtyCount == 0) return;
    for (Page* page : m_Listed)
        if (page->IsDirty()) page->epoch = m_Epoch;
}
