#pragma once

#include "utl_BinIStream.h"
#include "utl_FileOffset.h"

#include <cstdint>
#include <map>
#include <vector>

class rfm_FileCache;
class rfm_FilePage;

/// The pages of one remote file by where they start. A start without a page is one that the cache took away and the
/// assistant has not been told of yet. Everything in it belongs to rfm_FileCache, under its mutex.
class rfm_FilePageMap
{
public:
    rfm_FilePageMap() = default;
    rfm_FilePageMap(const rfm_FilePageMap&) = delete;
    rfm_FilePageMap& operator=(const rfm_FilePageMap&) = delete;

private:
    friend class rfm_FileCache;
    friend class rfm_FilePage;

    const rfm_FileCache* m_Cache = nullptr; // from its first page on
    std::map<std::int64_t, rfm_FilePage*> m_Pages;
    // The starts that lost their page, so that nobody walks the map for them at each request. One whose page came back
    // meanwhile is passed over.
    std::vector<std::int64_t> m_Dropped;
};

/// The record of one page: which part of which file lies where in the cache's temporary file. It stands in one of the
/// cache's lists, or heads one; only whoever got it from rfm_FileCache::GetPage may use it, until he releases it.
///
/// A slot is as long as a page, in whole pieces of 4096 bytes. It is always written in full, so that the space for a page
/// is there or refused when the page comes, never later; behind the end of a short page it holds anything.
class rfm_FilePage
{
public:
    static constexpr int kPieceBytes = 4096;
    static constexpr std::int64_t SlotBytes(int pageSize)
    {
        return (std::int64_t{pageSize} + kPieceBytes - 1) / kPieceBytes * kPieceBytes;
    }

    rfm_FilePage() noexcept = default;
    explicit rfm_FilePage(std::int64_t slot) noexcept : m_Slot(slot) {}
    rfm_FilePage(const rfm_FilePage&) = delete;
    rfm_FilePage& operator=(const rfm_FilePage&) = delete;

    /// Valid bytes, 0 when nothing is loaded; fewer than a page at the end of a file.
    int Length() const noexcept { return m_Length; }

    /// Copies what the page has from `position` on, `remaining` bytes at most, and moves all four by what it copied.
    /// Throws: utl_FileException; nothing has moved then.
    void ReadPage(int& total, char*& target, int& remaining, utl_FileOffset& position) const;

    /// Takes the page from the stream: its length, then its bytes.
    /// Throws: utl_BinStreamEOF, also for a length that no page can have; what else the stream throws; utl_FileException
    /// when the temporary file takes nothing more: all bytes of the page have been taken off the stream then. After a
    /// failure behind the length the page is empty.
    void LoadPage(utl_BinIStream& source);

private:
    friend class rfm_FileCache;

    bool IsAlone() const noexcept { return m_Next == this; }
    void Unlink() noexcept;
    void MoveBehind(rfm_FilePage& head) noexcept;
    const rfm_FileCache& Cache() const noexcept { return *m_Owner->m_Cache; }
    void TakeBytes(utl_BinIStream& source, int length) const;

    rfm_FilePage* m_Next = this;
    rfm_FilePage* m_Previous = this;
    std::int64_t m_Start = 0;
    std::int64_t m_Slot = 0;
    int m_Length = 0;
    rfm_FilePageMap* m_Owner = nullptr;
};
