#include "DamagedFile.h"

#include "Failure.h"
#include "Recovery.h"
#include "RemoteDoor.h"
#include "SegmentSearch.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace rfm_tool
{
namespace
{
// No more of a database is read than this for each byte of its file, the most that zlib packs into one, and the room
// that a table may have: a file that claims more would be read for ever.
constexpr std::int64_t kMostBytesOfOne = 1032;
// Of HDF5, which stores the bytes of a database in chunks, as the library makes them.
constexpr std::int64_t kChunkBytes = 4096;
constexpr std::int64_t kTriedBytes = 16 * kChunkBytes;

constexpr const char* kRestore = "restore it from a copy";

bool CanRead(FileImage& image, std::int64_t offset, std::int64_t count)
{
    char bytes[kTriedBytes];
    try
    {
        image.Read(offset, bytes, static_cast<int>(count));
        return true;
    }
    catch (const nex_Exception&)
    {
        return false; // told where the bytes are lost
    }
}

bool HoldsDatabase(FileImage& image)
{
    char start[4];
    image.Read(0, start, sizeof start);
    return std::string_view(start, sizeof start) == "TVNR" || LooksLikeDatabase(image);
}
} // namespace

DamagedFile::DamagedFile(const std::string& path, LossList& losses)
    : m_Path(path),
      m_Losses(losses),
      m_Kind(KindOfFile(path)),
      m_Stamp(StampOf(path))
{
    switch (m_Kind)
    {
    case FileKind::Plain: OpenPlain(); break;
    case FileKind::Hdf5: OpenHdf5(); break;
    case FileKind::Compressed: OpenCompressed(); break;
    }
    if (m_Image == nullptr || !HoldsDatabase(*m_Image))
        throw Failure(ExitUnreadable, OneLine(m_Path),
                      m_Kind == FileKind::Compressed
                          ? "no database: none of its segments begins as one"
                          : "not a database: nothing in it leads to texts or layouts",
                      kRestore);
}

void DamagedFile::RequireRest() const
{
    if (m_Watch) return m_Watch->RequireRest();
    if (StampOf(m_Path) != m_Stamp)
        throw Failure(ExitBusy, OneLine(m_Path), "it was written while it was read",
                      "try again when the writer rests");
}

// A compressed file whose magic is damaged passes for a plain one.
void DamagedFile::OpenPlain()
{
    m_Image = std::make_unique<FileImage>(m_Path);
    m_Image->FillHoles();
    m_Watch.emplace(m_Path);
    if (HoldsDatabase(*m_Image) || IsRemotePath(m_Path)) return;
    m_Image.reset();
    m_Watch.reset();
    OpenCompressed();
    if (m_Image != nullptr) m_Kind = FileKind::Compressed;
}

void DamagedFile::OpenHdf5()
{
    try
    {
        m_Image = std::make_unique<FileImage>(m_Path);
    }
    catch (const Failure& cause)
    {
        const std::string name = OneLine(m_Path);
        throw Failure(ExitUnreadable, name,
                      "only HDF5 can tell where in it the database lies, and refuses it: " +
                          std::string(cause.what()).substr(name.size() + 2),
                      kRestore);
    }
    m_Image->CutAt(kMostBytesOfOne * BytesOnDisk(m_Path) + kMostReserve);
    MarkHurtBytes();
    if (m_Image->UnreadableSegment(0, rfm_FirstLinkageBlockOffset + rfm_LinkageBlockBytes) >= 0)
        throw Failure(ExitUnreadable, OneLine(m_Path),
                      "HDF5 can't read the start of the database, which tells where all else in it lies",
                      kRestore);
    m_Image->FillHoles();
}

// What of the bytes HDF5 can't read, when its index of the chunks is damaged, is a hole in the database.
void DamagedFile::MarkHurtBytes()
{
    const std::int64_t size = m_Image->Size();
    std::int64_t start = -1;
    for (std::int64_t place = 0; place < size; place += kTriedBytes)
    {
        const std::int64_t end = std::min(place + kTriedBytes, size);
        const bool isWhole = CanRead(*m_Image, place, end - place);
        for (std::int64_t chunk = place; chunk < end; chunk += kChunkBytes)
        {
            const bool isReadable = isWhole || CanRead(*m_Image, chunk, std::min(kChunkBytes, end - chunk));
            if (isReadable && start >= 0) LoseBytes(start, chunk);
            if (isReadable)
                start = -1;
            else if (start < 0)
                start = chunk;
        }
    }
    if (start >= 0) LoseBytes(start, size);
}

void DamagedFile::LoseBytes(std::int64_t start, std::int64_t end)
{
    m_Image->SetUnreadable(start / kChunkBytes, start, end);
    m_Losses.Add({0, start, fmt::format("bytes up to {}", end), "HDF5 can't read them"});
}

void DamagedFile::OpenCompressed()
{
    SegmentMap map = SegmentSearch(m_Path, m_Losses).Run();
    const StoredStream* first = map.Find(0);
    if (first == nullptr) return;
    if (!first->isWhole)
        throw Failure(ExitUnreadable, OneLine(m_Path),
                      "segment 0, which tells where all else in the database lies, can't be read", kRestore);
    m_Image = std::make_unique<FileImage>(std::make_unique<SegmentBytes>(m_Path, map));
    m_Image->CutAt(kMostBytesOfOne * BytesOnDisk(m_Path) + kMostReserve);
    for (const auto& [segment, stream] : map.streams)
        if (const std::int64_t start = segment * map.segmentSize; !stream.isWhole && start < map.end)
            m_Image->SetUnreadable(segment, start, std::min(start + map.segmentSize, map.end));
    m_Image->FillHoles();
}
} // namespace rfm_tool
