#include "rfm_HdfByteDataset.h"

#include "atr_Translate.h"
#include "hdf_Exception.h"
#include "nex_Report.h"
#include "rfm_FileException.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace
{
constexpr int kDefaultChunkBytes = 1024;
// HDF5 makes an object of some 700 bytes for each chunk of a transfer. Larger transfers go in pieces, and an array
// of tiny chunks is not ours.
constexpr int kPieceBytes = 1024 * 1024;
constexpr std::int64_t kLeastChunkBytes = 64;
constexpr std::int64_t kMostChunkBytes = 16 * 1024 * 1024;
// Behind it, the offsets that a database stores are not exact.
constexpr std::int64_t kMostLength = std::int64_t{1} << 53;

// As in utl_File: 256 KiB make the cost of a call vanish against that of its bytes, and reading ahead starts when this
// much came in sequence.
constexpr int kBlockBytes = 256 * 1024;
constexpr std::int64_t kRunBeforeAhead = 2048;
constexpr std::int64_t kLeastAhead = 64 * 1024;

hdf_PropListDatasetAccess WithoutCache()
{
    hdf_PropListDatasetAccess access;
    // A chunk that HDF5 keeps and can't write later is lost; one that goes through is refused in the call that brings
    // it.
    access.SetChunkCache(0);
    return access;
}

[[noreturn]] void Refuse(const cow_String& fileName, const char* reason)
{
    rfm_FileException(
        atr_Message("*** ERROR: The HDF5 file holds no database:\n  %s, reason:\n  %s.", fileName, reason))
        .Throw(__FILE__, __LINE__);
}

// Nothing that lies in another file or passes through other code is followed: a file is data.
void CheckLayout(const hdf_Dataset& dataset)
{
    const cow_String& file = dataset.FileName();
    const hdf_PropListDatasetCreation layout = dataset.GetCreationPropList();
    if (layout.GetLayout() != hdf_PropListDatasetCreation::kChunked)
        Refuse(file, "its bytes are not in chunks");
    if (layout.FilterCount() > 0) Refuse(file, "its bytes pass through filters");
    if (!dataset.GetType().IsSameAs(hdf_Datatype::STD_I8LE)) Refuse(file, "its elements are no bytes");
    const hdf_DimSpaceInput chunk = layout.GetChunk();
    const hdf_Dataspace space = dataset.GetSpace();
    const hdf_DimSpaceInput dims = space.GetDims();
    if (chunk.Rank() != 1 || dims.Rank() != 1) Refuse(file, "it is no array of one dimension");
    if (chunk[0] < kLeastChunkBytes || chunk[0] > kMostChunkBytes) Refuse(file, "the size of its chunks");
    if (dims[0] > kMostLength) Refuse(file, "its size");
    // Else a writer would find out at the end of what it took in.
    if (!dataset.ReadOnly() && space.GetMaxDims()[0] != hdf_DimSpaceInput::kUnlimited)
        Refuse(file, "it can't grow without limit");
}
} // namespace

rfm_HdfByteDataset rfm_HdfByteDataset::Create(hdf_Group& group, const cow_String& name, int chunkBytes)
{
    hdf_PropListDatasetCreation layout;
    layout.SetLayout(hdf_PropListDatasetCreation::kChunked);
    layout.SetChunk({chunkBytes < 1 ? kDefaultChunkBytes : chunkBytes});
    const hdf_Dataspace empty = hdf_Dataspace::CreateSimple({0}, {hdf_DimSpaceInput::kUnlimited});
    return rfm_HdfByteDataset(
        group.DatasetCreate(name, hdf_Datatype::STD_I8LE, empty, layout, WithoutCache()));
}

rfm_HdfByteDataset rfm_HdfByteDataset::Open(const hdf_Group& group, const cow_String& name)
{
    if (!group.HasOwn(name)) Refuse(group.FileName(), "it has no dataset of that name");
    hdf_Dataset dataset = group.DatasetOpen(name, WithoutCache());
    CheckLayout(dataset);
    return rfm_HdfByteDataset(std::move(dataset));
}

rfm_HdfByteDataset::rfm_HdfByteDataset(hdf_Dataset dataset)
    : m_Dataset(std::move(dataset)),
      m_MemoryType(hdf_Datatype::NATIVE_CHAR),
      m_FileSpace(m_Dataset.GetSpace()),
      m_MemorySpace(hdf_Dataspace::CreateSimple({1}, {})),
      m_Dimension(m_FileSpace.GetDims()[0])
{
}

rfm_HdfByteDataset::~rfm_HdfByteDataset()
{
    try
    {
        Drain();
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
}

std::int64_t rfm_HdfByteDataset::Length() const noexcept
{
    return m_Mode == Mode::Gathering ? std::max(m_Dimension, m_BlockStart + m_BlockCount) : m_Dimension;
}

std::int64_t rfm_HdfByteDataset::MostContent() const
{
    return std::min(Length(), m_Dataset.FileSize() + (m_Mode == Mode::Gathering ? m_BlockCount : 0));
}

char* rfm_HdfByteDataset::Block()
{
    if (m_Block == nullptr) m_Block = std::make_unique_for_overwrite<char[]>(kBlockBytes);
    return m_Block.get();
}

// ---- Reading ----

int rfm_HdfByteDataset::Read(std::int64_t position, char* buffer, int count)
{
    Drain();
    if (position >= m_Dimension) return 0;
    const int wanted = static_cast<int>(std::min<std::int64_t>(count, m_Dimension - position));
    const int taken = TakeFromBlock(position, buffer, wanted);
    const bool sequential = taken > 0 || (position > m_LastStart && position <= m_LastEnd);
    m_RunBytes = sequential ? m_RunBytes + wanted : 0;
    if (taken < wanted) ReadRest(position + taken, buffer + taken, wanted - taken);
    m_LastStart = position;
    m_LastEnd = position + wanted;
    return wanted;
}

int rfm_HdfByteDataset::TakeFromBlock(std::int64_t position, char* buffer, int count) noexcept
{
    const std::int64_t place = position - m_BlockStart;
    if (m_Mode != Mode::Ahead || place < 0 || place >= m_BlockCount) return 0;
    const int taken = std::min(count, m_BlockCount - static_cast<int>(place));
    std::memcpy(buffer, m_Block.get() + place, static_cast<std::size_t>(taken));
    return taken;
}

// What the block did not hold.
int rfm_HdfByteDataset::ReadRest(std::int64_t position, char* buffer, int count)
{
    if (m_RunBytes >= kRunBeforeAhead && count < kLeastAhead && ReadAhead(position))
        return TakeFromBlock(position, buffer, count);
    Forget();
    ReadThrough(position, buffer, count);
    return count;
}

// The window grows with the run: 64 KiB at first, four times what came in sequence, at most the block. False when HDF5
// refuses it: who reads up to some damage should not stumble over what lies behind.
bool rfm_HdfByteDataset::ReadAhead(std::int64_t position)
{
    const std::int64_t window =
        std::min(std::clamp<std::int64_t>(m_RunBytes * 4, kLeastAhead, kBlockBytes), m_Dimension - position);
    Forget();
    try
    {
        ReadThrough(position, Block(), static_cast<int>(window));
    }
    catch (const hdf_Exception&)
    {
        m_RunBytes = 0;
        return false;
    }
    m_BlockCount = static_cast<int>(window);
    m_BlockStart = position;
    m_Mode = Mode::Ahead;
    return true;
}

void rfm_HdfByteDataset::Forget() noexcept
{
    if (m_Mode != Mode::Ahead) return;
    m_Mode = Mode::Idle;
    m_BlockCount = 0;
}

void rfm_HdfByteDataset::ReadThrough(std::int64_t position, char* buffer, int count)
{
    for (int done = 0; done < count;)
    {
        const int piece = std::min(count - done, kPieceBytes);
        Select(position + done, piece);
        m_Dataset.Read(m_MemoryType, m_MemorySpace, m_FileSpace, buffer + done);
        done += piece;
    }
}

void rfm_HdfByteDataset::Refresh()
{
    Forget();
    if (!ReadOnly()) return;
    const std::int64_t dimension = m_Dataset.GetSpace().GetDims()[0];
    if (dimension == m_Dimension) return;
    m_FileSpace.SetDims({dimension});
    m_Dimension = dimension;
}

// ---- Writing ----

void rfm_HdfByteDataset::Write(std::int64_t position, const char* buffer, int count)
{
    if (count == 0)
    {
        if (position > Length()) ExtendTo(position);
        return;
    }
    Forget();
    const bool follows = m_Mode == Mode::Gathering && position == m_BlockStart + m_BlockCount;
    if (!follows || count > kBlockBytes - m_BlockCount) Drain();
    if (count >= kBlockBytes) return WriteThrough(position, buffer, count);
    char* const block = Block(); // first: without memory for it nothing has begun
    if (m_Mode == Mode::Idle)
    {
        m_Mode = Mode::Gathering;
        m_BlockStart = position;
        m_BlockCount = 0;
    }
    std::memcpy(block + m_BlockCount, buffer, static_cast<std::size_t>(count));
    m_BlockCount += count;
}

// A refusal leaves the block as it is, for the next try.
void rfm_HdfByteDataset::Drain()
{
    if (m_Mode != Mode::Gathering) return;
    WriteThrough(m_BlockStart, m_Block.get(), m_BlockCount);
    m_Mode = Mode::Idle;
    m_BlockCount = 0;
}

void rfm_HdfByteDataset::WriteThrough(std::int64_t position, const char* buffer, int count)
{
    Grow(position + count);
    for (int done = 0; done < count;)
    {
        const int piece = std::min(count - done, kPieceBytes);
        Select(position + done, piece);
        m_Dataset.Write(m_MemoryType, m_MemorySpace, m_FileSpace, buffer + done);
        done += piece;
    }
}

void rfm_HdfByteDataset::Grow(std::int64_t length)
{
    if (length <= m_Dimension) return;
    m_Dataset.Extend({length});
    m_FileSpace.SetDims({length});
    m_Dimension = length;
}

void rfm_HdfByteDataset::Select(std::int64_t position, int count)
{
    if (count != m_MemoryCount)
    {
        m_MemorySpace.SetDims({count});
        m_MemoryCount = count;
    }
    m_FileSpace.SelectHyperslab(hdf_Dataspace::Replace, {position}, {}, {1}, {count});
}

void rfm_HdfByteDataset::ExtendTo(std::int64_t length)
{
    Drain();
    Grow(length);
}

void rfm_HdfByteDataset::Flush()
{
    Drain();
    m_Dataset.Flush();
}
