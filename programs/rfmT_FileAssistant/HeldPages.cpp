#include "HeldPages.h"

#include <algorithm>

namespace assistant
{
namespace
{
// Pages are read again in pieces that stay in the processor's cache until they are digested.
constexpr int kPieceBytes = 128 * 1024;
// On each side of a page that is wanted.
constexpr int kNearPages = 4;
} // namespace

HeldPages::HeldPages(ServedFile& file, int pageSize, std::size_t mostPages)
    : m_File(file),
      m_PageSize(pageSize),
      m_MostPages(mostPages),
      m_Piece(std::make_unique_for_overwrite<char[]>(kPieceBytes))
{
}

void HeldPages::Sent(std::int64_t start, const char* bytes, int length, std::int64_t mark)
{
    if (length == 0) return;
    m_Digest.Add(bytes, static_cast<std::size_t>(length));
    m_OldestFirst.push_back(start);
    m_Pages[start] = {m_Digest.Take(), length, std::prev(m_OldestFirst.end()), mark};
}

void HeldPages::Drop(std::int64_t start)
{
    const auto page = m_Pages.find(start);
    if (page != m_Pages.end()) Forget(page);
}

void HeldPages::MakeRoom(std::vector<std::int64_t>& changed)
{
    if (m_Pages.size() < m_MostPages) return;
    changed.push_back(m_OldestFirst.front());
    Drop(m_OldestFirst.front());
}

// Answers the page behind it.
HeldPages::Pages::iterator HeldPages::Forget(Pages::iterator page)
{
    m_OldestFirst.erase(page->second.age);
    return m_Pages.erase(page);
}

bool HeldPages::IsAsItWas(std::int64_t start, Page& page, std::int64_t mark)
{
    int length = 0;
    for (int piece = kPieceBytes; piece == kPieceBytes && length < m_PageSize; length += piece)
    {
        piece = m_File.Read(start + length, m_Piece.get(), std::min(kPieceBytes, m_PageSize - length));
        m_Digest.Add(m_Piece.get(), static_cast<std::size_t>(piece));
    }
    page.mark = mark;
    return m_Digest.Take() == page.digest && length == page.length;
}

// Answers the page behind it.
HeldPages::Pages::iterator HeldPages::Check(Pages::iterator page, std::int64_t mark,
                                            std::vector<std::int64_t>& changed)
{
    if (IsAsItWas(page->first, page->second, mark)) return ++page;
    changed.push_back(page->first);
    return Forget(page);
}

std::vector<std::int64_t> HeldPages::TakeChanged()
{
    const std::int64_t mark = m_File.WriteMark();
    std::vector<std::int64_t> changed;
    for (auto page = m_Pages.begin(); page != m_Pages.end();) page = Check(page, mark, changed);
    return changed;
}

std::vector<std::int64_t> HeldPages::TakeChangedNear(std::int64_t start)
{
    const std::int64_t mark = m_File.WriteMark();
    auto page = m_Pages.lower_bound(start);
    int count = kNearPages;
    for (int i = 0; i < kNearPages && page != m_Pages.begin(); ++i, ++count) --page;
    std::vector<std::int64_t> changed;
    for (; count > 0 && page != m_Pages.end(); --count)
    {
        const bool isSettled = mark != ServedFile::kUnsettled && page->second.mark == mark;
        page = isSettled ? std::next(page) : Check(page, mark, changed);
    }
    return changed;
}
} // namespace assistant
