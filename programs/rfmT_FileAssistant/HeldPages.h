#pragma once

#include "PageDigest.h"
#include "ServedFile.h"

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <vector>

namespace assistant
{
/// The pages that the reader holds, and what they were when they were sent: a digest of each.
///
///                 Sent                        Drop: the reader dropped it, or it is sent anew
///   (unknown) ------------> [ held ] ------------------------------------------------------> (unknown)
///                             |  TakeChanged, TakeChangedNear: its bytes are others now; the reader is told
///                             |  MakeRoom: it was sent longest ago, and the reader is told that it has changed
///                             +----------------------------------------------------------------^
///
/// A page without bytes, behind the end of the file, is not held: nothing in it can become wrong. So there are never
/// more than the file has pages, and never more than `mostPages`, however large the file is.
class HeldPages
{
public:
    HeldPages(ServedFile& file, int pageSize, std::size_t mostPages);

    /// There is room for it, and it is not held. `mark`: ServedFile::WriteMark of before the bytes were read.
    void Sent(std::int64_t start, const char* bytes, int length, std::int64_t mark);
    void Drop(std::int64_t start);
    /// For one page more. What has to go for it is added to `changed`: not watched, it may change unseen.
    void MakeRoom(std::vector<std::int64_t>& changed);
    /// Reads all of them again and answers the starts of those that have changed, which are held no longer.
    std::vector<std::int64_t> TakeChanged();
    /// The same of the few next to `start`, and of these only what may have been written since.
    std::vector<std::int64_t> TakeChangedNear(std::int64_t start);

private:
    struct Page
    {
        PageDigest::Value digest{};
        int length = 0;
        std::list<std::int64_t>::iterator age;      // its place in m_OldestFirst
        std::int64_t mark = ServedFile::kUnsettled; // it was seen to be this under this mark of the file
    };
    using Pages = std::map<std::int64_t, Page>;

    bool IsAsItWas(std::int64_t start, Page& page, std::int64_t mark);
    Pages::iterator Forget(Pages::iterator page);
    Pages::iterator Check(Pages::iterator page, std::int64_t mark, std::vector<std::int64_t>& changed);

    ServedFile& m_File;
    int m_PageSize;
    std::size_t m_MostPages;
    PageDigest m_Digest;
    std::unique_ptr<char[]> m_Piece;
    Pages m_Pages;
    std::list<std::int64_t> m_OldestFirst; // the starts of all of them
};
} // namespace assistant
