#pragma once

#include "PageDigest.h"
#include "ServedFile.h"

#include <cstdint>
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
///                             +----------------------------------------------------------------^
///
/// A page without bytes, behind the end of the file, is not held: nothing in it can become wrong. So there are never
/// more than the file has pages.
class HeldPages
{
public:
    HeldPages(ServedFile& file, int pageSize);

    /// `mark`: ServedFile::WriteMark of before the bytes were read.
    /// Throws: farend::Failure when there are too many.
    void Sent(std::int64_t start, const char* bytes, int length, std::int64_t mark);
    void Drop(std::int64_t start) { m_Pages.erase(start); }
    /// Reads all of them again and answers the starts of those that have changed, which are held no longer.
    std::vector<std::int64_t> TakeChanged();
    /// The same of the few next to `start`, and of these only what may have been written since.
    std::vector<std::int64_t> TakeChangedNear(std::int64_t start);

private:
    struct Page
    {
        PageDigest::Value digest{};
        int length = 0;
        std::int64_t mark = ServedFile::kUnsettled; // it was seen to be this under this mark of the file
    };
    using Pages = std::map<std::int64_t, Page>;

    bool IsAsItWas(std::int64_t start, Page& page, std::int64_t mark);
    Pages::iterator Check(Pages::iterator page, std::int64_t mark, std::vector<std::int64_t>& changed);

    ServedFile& m_File;
    int m_PageSize;
    PageDigest m_Digest;
    std::unique_ptr<char[]> m_Piece;
    Pages m_Pages;
};
} // namespace assistant
