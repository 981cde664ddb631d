#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace rfm_tool
{
/// Where the bytes of a database come from.
class ByteSource
{
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    virtual std::int64_t Size() const = 0;
    /// Bytes read: fewer at the end of the file; the rest of `bytes` is zero then.
    virtual int Read(std::int64_t offset, char* bytes, int count) = 0;
    /// What was kept may be old.
    virtual void Refresh() = 0;
};

/// The bytes of a file that may be damaged, read and never believed.
class FileImage
{
public:
    /// As the library opens it. Throws: Failure.
    explicit FileImage(const std::string& path);
    explicit FileImage(std::unique_ptr<ByteSource> source);

    std::int64_t Size() const noexcept { return m_Size; }
    /// Bytes read: fewer at the end of the file; the rest of `bytes` is zero then.
    int Read(std::int64_t offset, char* bytes, int count);
    /// The flush count as the file has it now.
    std::uint32_t FlushCountNow();

    /// Bytes that reading would be refused: those of segment `segment` of a compressed file.
    void SetUnreadable(std::int64_t segment, std::int64_t start, std::int64_t end)
    {
        m_Unreadable.push_back({segment, start, end});
    }
    /// The first segment under these bytes that can't be read, -1 when they can.
    std::int64_t UnreadableSegment(std::int64_t start, std::int64_t count) const;

    /// What lies behind `end` is left out.
    void CutAt(std::int64_t end) { m_Size = std::min(m_Size, end); }
    /// From now on what can't be read reads as zero, and what lies behind the end of the file counts as unreadable.
    void FillHoles();
    /// Bytes of `count` from `start` on that are left when those at their end that can't be read are taken away.
    std::int64_t TrimmedCount(std::int64_t start, std::int64_t count) const;

private:
    struct Range
    {
        std::int64_t segment;
        std::int64_t start;
        std::int64_t end;
    };

    const Range* RangeBehind(std::int64_t place) const;

    std::unique_ptr<ByteSource> m_Source;
    std::int64_t m_Size;
    std::vector<Range> m_Unreadable; // ascending
    bool m_FillsHoles = false;
};

/// One contiguous piece of a space.
struct Extent
{
    std::int64_t offset = 0; // in the file
    std::int64_t length = 0; // bytes in use
};

/// The bytes of a space, over its extents, and where they lie in the file. Numbers come out of a window of 64 KiB, so
/// that reading in sequence costs a call of the system per window.
class SpaceBytes
{
public:
    SpaceBytes(FileImage& image, std::vector<Extent> extents);

    std::int64_t Length() const noexcept { return m_Length; }
    /// What lies behind the end reads as zero.
    std::int32_t Int(std::int64_t place);
    double Double(std::int64_t place);
    /// At most kWindowBytes of them.
    std::string Text(std::int64_t place, std::int64_t count);
    /// Whether all these bytes are there and can be read.
    bool IsReadable(std::int64_t place, std::int64_t count) const;
    /// Where the byte at `place` lies in the file; behind the end, where it would.
    std::int64_t FileOffset(std::int64_t place) const;

    static constexpr std::int64_t kWindowBytes = 65536;

private:
    const char* At(std::int64_t place, std::int64_t count);
    void Load(std::int64_t place);
    std::size_t ExtentOf(std::int64_t place) const;

    FileImage& m_Image;
    std::vector<Extent> m_Extents;
    std::vector<std::int64_t> m_Starts; // of each extent, in the space
    std::int64_t m_Length = 0;
    std::vector<char> m_Window;
    std::int64_t m_WindowStart = 0;
    std::int64_t m_WindowEnd = 0;
};
} // namespace rfm_tool
