#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

/// Pages of a file in memory, for reads and overwrites that are small and jump about. It does no transfers itself:
/// `utl_File` loads its pages and writes them out.
///
///                    Touch, Touch, Load              a write that lies inside
///   (in the file) ------------------> [ kept, clean ] ------------------> [ kept, dirty ]
///        ^                                  |  ^                               |
///        +---- Forget, Drop, another page ---+  +---------- written out --------+
///
/// A page has one place, its number modulo the places, so a lookup is one compare and a file of up to 64 MiB never loses
/// a page to another one. Only the second touch keeps a page: one that is read once costs the bytes that were wanted,
/// and never drives out one that is read often.
class utl_PageCache
{
public:
    static constexpr int kPageBytes = 4096;

    struct Page
    {
        std::int64_t number; // in the file
        char* bytes;         // null until the place is first used
        std::uint64_t epoch; // of its load; another one than the cache's: forgotten
        std::uint16_t valid; // bytes that the file had there
        std::uint16_t dirtyStart;
        std::uint16_t dirtyEnd; // above dirtyStart while it is dirty
        bool isListed;          // among those that are or were dirty

        bool IsDirty() const noexcept { return dirtyEnd > dirtyStart; }
    };

    utl_PageCache();

    /// Null when the page isn't kept.
    Page* Find(std::int64_t number) noexcept
    {
        Page& place = PlaceOf(number);
        return place.epoch == m_Epoch && place.number == number ? &place : nullptr;
    }
    /// Notes that a page was wanted which isn't kept; true when it was wanted before.
    bool Touch(std::int64_t number) noexcept;
    /// The place that the page will take: empty, or with another page in it that must not be dirty.
    Page& PlaceOf(std::int64_t number) noexcept
    {
        return m_Places[static_cast<std::size_t>(number) & kPlaceMask];
    }
    /// Gives a place its memory; false when there is none to be had.
    bool Provide(Page& place) noexcept;
    /// The page's bytes have been loaded.
    void Keep(Page& place, std::int64_t number, int valid) noexcept;
    void Drop(Page& page) noexcept { page.epoch = 0; }
    /// Copies a write into the page, whose bytes it lies within.
    void Overwrite(Page& page, int place, const char* bytes, int count);
    void SetClean(Page& page) noexcept;
    bool HasDirty() const noexcept { return m_DirtyCount > 0; }
    /// In ascending order of their numbers.
    std::vector<Page*> DirtyPages();
    /// Drops all but the dirty pages, whose bytes nobody else has, and all touches.
    void Forget() noexcept;

private:
    static constexpr std::size_t kPlaces = 16384; // 64 MiB of pages
    static constexpr std::size_t kPlaceMask = kPlaces - 1;

    struct Freer
    {
        void operator()(void* memory) const noexcept { std::free(memory); }
    };
    template <class T> using Memory = std::unique_ptr<T[], Freer>;

    std::uint32_t MarkOf(std::int64_t number) const noexcept;
    bool AddChunk() noexcept;

    // From calloc: what is never used of them is never backed by memory.
    Memory<Page> m_Places;
    Memory<std::uint32_t> m_Touched; // marks of pages that were wanted once
    std::uint64_t m_Epoch = 1;
    std::vector<Page*> m_Listed; // pages that were written out one by one stay in it until all are
    int m_DirtyCount = 0;
    std::vector<Memory<char>> m_Chunks;
    char* m_Free = nullptr;
    std::size_t m_FreeBytes = 0;
};
