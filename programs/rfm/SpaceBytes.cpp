#include "SpaceBytes.h"

#include "DatabaseFile.h"
#include "Failure.h"
#include "FileMark.h"
#include "RemoteDoor.h"
#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_File.h"
#include "rfm_FileRepr.h"
#include "rfm_HeaderFormat.h"

#include <algorithm>
#include <limits>

namespace rfm_tool
{
namespace
{
// The number of the range behind the end of the file, which is no segment.
constexpr std::int64_t kBehindTheEnd = std::numeric_limits<std::int64_t>::max();
constexpr bool kStoredAsIs = omi_Swapper(omi_Swapper::Stored);

rfm_File OpenAnyFile(const std::string& path)
{
    if (IsRemotePath(path)) return OpenForReading(path);
    try
    {
        return rfm_File::Open(path.c_str(), utl_FileAccessRead);
    }
    catch (const nex_Exception& cause)
    {
        RequireReadableFile(path); // it may have gone since it was open
        throw Failure(ExitUnreadable, OneLine(path), PlainMessage(cause.what()), RemedyForUnopened(path));
    }
}

/// A file that the library opens.
class LibraryBytes : public ByteSource
{
public:
    explicit LibraryBytes(const std::string& path) : m_File(OpenAnyFile(path)) {}

    std::int64_t Size() const override { return m_File.Repr().MediumSize().Value(); }
    int Read(std::int64_t offset, char* bytes, int count) override
    {
        m_File.Repr().Seek(offset);
        const int read = m_File.Repr().ReadUpToEnd(bytes, count);
        std::fill(bytes + read, bytes + count, '\0');
        return read;
    }
    void Refresh() override { m_File.Repr().Refresh(); }

private:
    rfm_File m_File;
};
} // namespace

FileImage::FileImage(const std::string& path) : FileImage(std::make_unique<LibraryBytes>(path)) {}

FileImage::FileImage(std::unique_ptr<ByteSource> source)
    : m_Source(std::move(source)),
      m_Size(m_Source->Size())
{
}

int FileImage::Read(std::int64_t offset, char* bytes, int count)
{
    if (!m_FillsHoles) return m_Source->Read(offset, bytes, count);
    const std::int64_t end = offset + count;
    for (std::int64_t place = offset; place < end;)
    {
        const Range* hole = RangeBehind(place);
        const std::int64_t there = hole == nullptr ? end : std::clamp(hole->start, place, end);
        if (there > place) m_Source->Read(place, bytes + (place - offset), static_cast<int>(there - place));
        if (there == end) break;
        place = std::min(hole->end, end);
        std::fill(bytes + (there - offset), bytes + (place - offset), '\0');
    }
    return static_cast<int>(TrimmedCount(offset, count));
}

void FileImage::FillHoles()
{
    m_FillsHoles = true;
    m_Unreadable.push_back({kBehindTheEnd, m_Size, std::numeric_limits<std::int64_t>::max()});
}

// The first range that ends behind `place`.
const FileImage::Range* FileImage::RangeBehind(std::int64_t place) const
{
    const auto range =
        std::upper_bound(m_Unreadable.begin(), m_Unreadable.end(), place,
                         [](std::int64_t each, const Range& other) { return each < other.end; });
    return range == m_Unreadable.end() ? nullptr : &*range;
}

std::int64_t FileImage::TrimmedCount(std::int64_t start, std::int64_t count) const
{
    while (count > 0)
    {
        const Range* hole = RangeBehind(start + count - 1);
        if (hole == nullptr || hole->start >= start + count) break;
        count = std::max<std::int64_t>(hole->start - start, 0);
    }
    return count;
}

std::uint32_t FileImage::FlushCountNow()
{
    char bytes[4];
    m_Source->Refresh();
    Read(rfm_FlushCountOffset, bytes, sizeof bytes);
    return omi_Load<std::uint32_t>(bytes, kStoredAsIs);
}

std::int64_t FileImage::UnreadableSegment(std::int64_t start, std::int64_t count) const
{
    const Range* range = RangeBehind(start);
    return range != nullptr && range->start < start + count ? range->segment : -1;
}

SpaceBytes::SpaceBytes(FileImage& image, std::vector<Extent> extents)
    : m_Image(image),
      m_Extents(std::move(extents))
{
    for (const Extent& extent : m_Extents)
    {
        m_Starts.push_back(m_Length);
        m_Length += extent.length;
    }
}

std::size_t SpaceBytes::ExtentOf(std::int64_t place) const
{
    const auto behind = std::upper_bound(m_Starts.begin(), m_Starts.end(), place);
    return behind == m_Starts.begin() ? 0 : static_cast<std::size_t>(behind - m_Starts.begin()) - 1;
}

bool SpaceBytes::IsReadable(std::int64_t place, std::int64_t count) const
{
    if (place < 0 || count > m_Length - place) return false;
    for (std::size_t i = ExtentOf(place); count > 0; ++i)
    {
        const std::int64_t skipped = place - m_Starts[i];
        const std::int64_t here = std::min(m_Extents[i].length - skipped, count);
        if (here > 0 && m_Image.UnreadableSegment(m_Extents[i].offset + skipped, here) >= 0) return false;
        place += std::max<std::int64_t>(here, 0);
        count -= std::max<std::int64_t>(here, 0);
    }
    return true;
}

std::int64_t SpaceBytes::FileOffset(std::int64_t place) const
{
    if (m_Extents.empty()) return 0;
    const std::size_t extent = ExtentOf(place);
    return m_Extents[extent].offset + (place - m_Starts[extent]);
}

void SpaceBytes::Load(std::int64_t place)
{
    m_Window.assign(kWindowBytes, '\0');
    m_WindowStart = m_WindowEnd = place;
    const std::int64_t end = std::min(m_Length, place + kWindowBytes);
    for (std::size_t i = ExtentOf(place); m_WindowEnd < end; ++i)
    {
        const std::int64_t skipped = m_WindowEnd - m_Starts[i];
        const std::int64_t count = std::min(m_Extents[i].length - skipped, end - m_WindowEnd);
        if (count < 1) continue;
        m_Image.Read(m_Extents[i].offset + skipped, m_Window.data() + (m_WindowEnd - m_WindowStart),
                     static_cast<int>(count));
        m_WindowEnd += count;
    }
    m_WindowEnd = place + kWindowBytes; // behind the end of the space stand zeros
}

const char* SpaceBytes::At(std::int64_t place, std::int64_t count)
{
    if (place < m_WindowStart || place + count > m_WindowEnd) Load(place);
    return m_Window.data() + (place - m_WindowStart);
}

std::int32_t SpaceBytes::Int(std::int64_t place) { return omi_Load<std::int32_t>(At(place, 4), kStoredAsIs); }
double SpaceBytes::Double(std::int64_t place) { return omi_Load<double>(At(place, 8), kStoredAsIs); }

std::string SpaceBytes::Text(std::int64_t place, std::int64_t count)
{
    const std::int64_t there = std::clamp<std::int64_t>(std::min(count, m_Length - place), 0, kWindowBytes);
    if (there == 0) return {};
    return {At(place, there), static_cast<std::size_t>(there)};
}
} // namespace rfm_tool
