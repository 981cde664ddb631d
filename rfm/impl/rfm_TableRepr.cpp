#include "rfm_TableRepr.h"

#include "atr_Translate.h"
#include "mem_Alloc.h"
#include "nex_Exception.h"
#include "nex_Report.h"
#include "rfm_DatabaseRepr.h"
#include "rfm_Exc.h"
#include "rfm_LinkageFormat.h"
#include "rfm_ObjectFlush.h"
#include "rfm_ObjectFormat.h"
#include "rfm_StringManager.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace
{
constexpr int kBufferBytes = 1024;
constexpr int kDefaultReadAhead = 32;
constexpr std::size_t kMostSpareRows = 4096;

int ReadAheadOf(int wanted) { return wanted < 0 ? kDefaultReadAhead : wanted; }
} // namespace

// ---- Making and opening ----

rfm_TableRepr::rfm_TableRepr(rfm_DatabaseRepr& database, const rfm_TableMetadata& metadata, int quantum,
                             int readAhead)
    : m_Database(database),
      m_Metadata(&metadata),
      m_ReadAhead(ReadAheadOf(readAhead)),
      m_Space(database.NewSpace(quantum)),
      m_Buffer(m_Space.get(), kBufferBytes),
      m_Strings(m_Space->StringManager()),
      m_DbFlushCount(database.GetFlushCount()),
      m_CacheAllowance(m_ReadAhead)
{
    const utl_FileOffset& location = database.Metadata().GetTableMetadataHandle(metadata.Name());
    // The layout is kept by reference: only the pool's own lives as long as the database.
    if (&database.Metadata().GetTableMetadata(location) != &metadata)
        nex_ThrowAssert("&metadata == &Bind(metadata)");
    m_MetadataOffset = location.DiffAsInt32(0);
    SetUp();
    WriteHeader();
}

rfm_TableRepr::rfm_TableRepr(rfm_DatabaseRepr& database, const cow_String& name, int quantum, int readAhead)
    : rfm_TableRepr(database, database.Metadata().GetTableMetadata(name), quantum, readAhead)
{
}

rfm_TableRepr::rfm_TableRepr(rfm_DatabaseRepr& database, rfm_Handle handle, int quantum, int readAhead)
    : m_Database(database),
      m_Metadata(nullptr),
      m_ReadAhead(ReadAheadOf(readAhead)),
      m_Space(database.OpenSpace(handle, quantum)),
      m_Buffer(m_Space.get(), kBufferBytes),
      m_Strings(m_Space->StringManager()),
      m_DbFlushCount(database.GetFlushCount()),
      m_CacheAllowance(m_ReadAhead)
{
    int head[3];
    if (m_Buffer.ReadArray(head, 3) < 3)
        nex_ThrowText(atr_Message(
            "rfm_TableRepr::rfm_TableRepr: MARLEK Database table format is corrupt. This may indicate a "
            "corrupt database, "
            "or it may indicate that the analysis code preprocessor is still writing the database. \n If you "
            "suspect the "
            "latter possibility, please attempt to reopen the database when the preprocessor is complete."));
    if (static_cast<std::uint32_t>(head[0]) != rfm_TableMagic)
        nex_ThrowText(
            atr_Message("rfm_TableRepr::rfm_TableRepr: Handle is not to a table object. This is not a valid "
                        "MARLEK database."));
    m_FlushCount = head[1];
    m_MetadataOffset = head[2];
    m_Metadata = &database.Metadata().GetTableMetadata(utl_FileOffset(m_MetadataOffset));
    SetUp();
    m_Length = m_WrittenRows = rfm_RowsInSpace(m_Buffer.Length().Value(), rfm_TableFirstRowOffset, m_RowSize);
    m_LastRowMayBeCut = true;
}

rfm_TableRepr::~rfm_TableRepr()
{
    try
    {
        Flush();
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
        m_Buffer.Discard();
    }
    for (RowBlock* block : m_Rows) DropRow(block);
    for (RowBlock* block : m_Spare) mem_Free(block);
}

static int BytesOfField(const rfm_FieldMetadata& field, const rfm_TableMetadata& table,
                        rfm_StringManager& strings)
{
    switch (field.type)
    {
    case rfm_TypeInt:
    case rfm_TypeFloat: return 4;
    case rfm_TypeDouble:
    case rfm_TypeHandle: return 8;
    case rfm_TypeString: return strings.ReferenceSize();
    default:
        nex_ThrowText(atr_Message(
            "rfm_TableRepr::Setup: An invalid field type for field '%s' has been specified for table '%s'.",
            field.name, table.Name()));
    }
}

void rfm_TableRepr::SetUp()
{
    const rfm_TableMetadata::FieldMap& fields = m_Metadata->Fields();
    int stored = 0;
    int indices = 0;
    for (const auto& [name, field] : fields)
    {
        stored += field.stored != 0 ? 1 : 0;
        indices = std::max(indices, field.index + 1);
    }
    m_WordCount = (stored + 31) / 32;
    m_RowSize = m_WordCount * 4;
    m_PlacesByIndex.resize(static_cast<std::size_t>(indices));
    for (const auto& [name, field] : fields)
    {
        if (field.stored == 0) continue;
        const int position = static_cast<int>(m_Places.size());
        m_Places.push_back({field.type, position, m_RowSize});
        m_PositionByName.Insert(name, position);
        if (field.index >= 0) m_PlacesByIndex[static_cast<std::size_t>(field.index)] = m_Places.back();
        m_RowSize += BytesOfField(field, *m_Metadata, *m_Strings);
    }
}

void rfm_TableRepr::WriteHeader()
{
    const int head[3] = {static_cast<int>(rfm_TableMagic), 0, m_MetadataOffset};
    m_Buffer.WriteArray(head, 3);
}

const rfm_FieldPlace* rfm_TableRepr::PlaceOf(const rfm_FieldHandle& field) const
{
    if (field.Index() >= 0)
    {
        const std::size_t index = static_cast<std::size_t>(field.Index());
        const bool known = index < m_PlacesByIndex.size() && m_PlacesByIndex[index].position >= 0;
        return known ? &m_PlacesByIndex[index] : nullptr;
    }
    const auto* node = m_PositionByName.Find(field.Name());
    return node != nullptr ? &m_Places[static_cast<std::size_t>(node->value)] : nullptr;
}

// kept: the offset of a row is computed in signed 32 bits, as every reader of the format does. NewRow, Extend and
// Append refuse to go where it would wrap. Test: ARowThatWouldPassTwoGibibytesIsRefused.
std::int64_t rfm_TableRepr::PlaceOf(int row) const noexcept
{
    return static_cast<std::int32_t>(rfm_TableFirstRowOffset +
                                     static_cast<std::uint32_t>(row) * static_cast<std::uint32_t>(m_RowSize));
}

void rfm_TableRepr::RefuseBeyondLimit(std::int64_t rows) const
{
    if (rows <= (INT_MAX - rfm_TableFirstRowOffset) / std::max(m_RowSize, 1)) return;
    nex_ThrowText(atr_Message("***ERROR: Table \"%s\" would pass the limit of 2 GiB for one table.",
                              m_Metadata->Name()));
}

// ---- The row cache ----

rfm_TableRepr::RowBlock::RowBlock(rfm_TableRepr& table, int location)
    : row(table, reinterpret_cast<unsigned*>(this + 1), table.m_WordCount,
          reinterpret_cast<char*>(this + 1) + 4 * table.m_WordCount, table.m_RowSize, location)
{
    impl = &row;
}

rfm_TableRepr::RowBlock* rfm_TableRepr::MakeRow(int location)
{
    void* memory = nullptr;
    if (!m_Spare.empty())
    {
        memory = m_Spare.back();
        m_Spare.pop_back();
    }
    else
    {
        const int bytes = static_cast<int>(sizeof(RowBlock)) + 4 * m_WordCount + m_RowSize;
        memory = mem_Malloc(static_cast<std::size_t>(bytes));
    }
    return new (memory) RowBlock(*this, location);
}

void rfm_TableRepr::Recycle(RowBlock* block) noexcept
{
    if (m_Spare.size() < m_Spare.capacity())
        m_Spare.push_back(block);
    else
        mem_Free(block);
}

// A row that callers hold lives on as a dead block until they let go of it.
void rfm_TableRepr::DropRow(RowBlock* block) noexcept
{
    if (block->m_ReferenceCount < 1)
        mem_Free(block);
    else
        block->impl = nullptr;
}

// Before a row is made, so that nothing can fail between making it and keeping it.
void rfm_TableRepr::MakeRoomInCache()
{
    if (m_Rows.size() == m_Rows.capacity()) m_Rows.reserve(std::max<std::size_t>(2 * m_Rows.size(), 64));
}

// Where the row stands in the cache, or would.
std::size_t rfm_TableRepr::PlaceInCache(int row) const noexcept
{
    const auto before = [](const RowBlock* block, int wanted) { return block->row.Location() < wanted; };
    return static_cast<std::size_t>(std::lower_bound(m_Rows.begin(), m_Rows.end(), row, before) -
                                    m_Rows.begin());
}

rfm_TableRepr::RowBlock* rfm_TableRepr::FindCached(int row) const noexcept
{
    if (m_Rows.empty() || m_Rows.back()->row.Location() < row) return nullptr;
    const std::int64_t guess = std::int64_t{row} - m_Rows.front()->row.Location();
    if (guess < 0) return nullptr;
    if (guess < static_cast<std::int64_t>(m_Rows.size()))
    {
        RowBlock* block = m_Rows[static_cast<std::size_t>(guess)];
        if (block->row.Location() == row) return block;
    }
    const std::size_t place = PlaceInCache(row);
    return place < m_Rows.size() && m_Rows[place]->row.Location() == row ? m_Rows[place] : nullptr;
}

// `end` is where the table's bytes end. What the file lacks reads as a row without data, never as what was in this
// memory before. A follower's table may have been cut beneath it; its read ahead must not stumble over rows that went.
void rfm_TableRepr::ReadImage(RowBlock& block, std::int64_t end)
{
    const std::int64_t place = PlaceOf(block.row.Location());
    int read = 0;
    if (place < end)
    {
        m_Buffer.Seek(place);
        read = m_Buffer.Read(block.row.Data(), m_RowSize);
    }
    if (read < m_RowSize) std::memset(block.row.Data() + read, 0, static_cast<std::size_t>(m_RowSize - read));
    block.row.LoadBits();
}

// Reads up to m_ReadAhead rows; those that are cached already use up a turn too.
void rfm_TableRepr::Fill(int row)
{
    const std::int64_t end = m_Buffer.Length().Value();
    // Rows in sequence come out of whole blocks. Anywhere else only what is asked for is brought in.
    const std::int64_t wanted = std::int64_t{m_ReadAhead} * m_RowSize;
    if (row != m_RowBehindFill && wanted > 0 && wanted < kBufferBytes)
        m_Buffer.ExpectRead(static_cast<int>(wanted));
    m_RowBehindFill = row + std::min(m_ReadAhead, m_Length - row);
    for (int turn = 0; turn < m_ReadAhead && row < m_Length; ++turn, ++row)
    {
        if (FindCached(row) != nullptr) continue;
        MakeRoomInCache();
        RowBlock* block = MakeRow(row);
        try
        {
            ReadImage(*block, end);
        }
        catch (...)
        {
            mem_Free(block);
            throw;
        }
        const bool behindAll = m_Rows.empty() || m_Rows.back()->row.Location() < row;
        const std::size_t place = behindAll ? m_Rows.size() : PlaceInCache(row);
        m_Rows.insert(m_Rows.begin() + static_cast<std::ptrdiff_t>(place), block);
    }
    m_Buffer.ExpectRead(INT_MAX); // whoever loads next has reasons of its own
}

void rfm_TableRepr::Purge()
{
    m_CacheAllowance = m_ReadAhead;
    WriteOut();
    ReleaseUnheld();
}

// Rows that are in the file already go out when they are dirty. Behind them everything up to the last dirty row goes,
// dirty or not, so that the file has no hole; clean rows at the very end wait.
void rfm_TableRepr::WriteOut()
{
    if (m_Rows.empty() || m_Buffer.ReadOnly()) return;
    const std::size_t frontier = PlaceInCache(m_WrittenRows);
    std::size_t end = m_Rows.size();
    while (end > frontier && !m_Rows[end - 1]->row.IsDirty()) --end;
    for (std::size_t i = 0; i < end; ++i)
        if (i >= frontier || m_Rows[i]->row.IsDirty()) WriteRow(*m_Rows[i]);
}

void rfm_TableRepr::WriteRow(RowBlock& block)
{
    block.row.StoreBits();
    m_Buffer.Seek(PlaceOf(block.row.Location()));
    m_Buffer.Write(block.row.Data(), m_RowSize);
    block.row.SetDirty(false);
    m_WrittenRows = std::max(m_WrittenRows, block.row.Location() + 1);
}

// A last row of which at least half is there counts as a row: what it lacks is written as zeros before anything goes
// behind it, where the space could not be positioned otherwise.
void rfm_TableRepr::CompleteLastRow()
{
    const std::int64_t length = m_Buffer.Length().Value();
    const std::int64_t lacking = PlaceOf(m_WrittenRows) - length;
    if (lacking > 0)
    {
        const std::vector<char> zeros(static_cast<std::size_t>(lacking));
        m_Buffer.Seek(length);
        m_Buffer.Write(zeros.data(), static_cast<int>(lacking));
    }
    m_LastRowMayBeCut = false;
}

void rfm_TableRepr::ReleaseUnheld()
{
    m_Spare.reserve(std::min(m_Rows.size() + m_Spare.size(), kMostSpareRows));
    std::size_t held = 0;
    for (RowBlock* block : m_Rows)
    {
        if (block->m_ReferenceCount > 0)
            m_Rows[held++] = block;
        else
            Recycle(block);
    }
    m_Rows.resize(held);
}

// ---- Rows for callers ----

void rfm_TableRepr::ThrowNoRow(const char* message, int row) const
{
    const atr_String text = atr_Message(message, m_Metadata->Name(), row, m_Length);
    std::fprintf(stderr, "%s\n", text.CString());
    nex_ThrowText(text);
}

int rfm_TableRepr::RowExists(int row) const noexcept
{
    const int wanted = row < 0 ? m_Location : row;
    return wanted >= 0 && wanted < m_Length ? 1 : 0;
}

static int RowBehind(int row) noexcept { return row < INT_MAX ? row + 1 : row; }

// A miss purges every time, whatever the allowance says.
rfm_RowRepr* rfm_TableRepr::ReadRow(int row)
{
    const int wanted = row < 0 ? m_Location : row;
    m_Location = RowBehind(wanted);
    RowBlock* block = FindCached(wanted);
    if (block == nullptr)
    {
        --m_CacheAllowance;
        Purge();
        if (wanted >= 0) Fill(wanted);
        block = FindCached(wanted);
    }
    if (block == nullptr)
        ThrowNoRow("rfm_TableRepr::ReadRow - Row does not exist for table '%s', index: %d, len: %d", wanted);
    return block;
}

rfm_RowRepr* rfm_TableRepr::UpdateRow(int row)
{
    m_HeaderDirty = true;
    const int wanted = row < 0 ? m_Location : row;
    if (wanted == m_Length) return NewRow();
    m_Location = RowBehind(wanted);
    RowBlock* block = FindCached(wanted);
    if (block == nullptr)
    {
        if (m_CacheAllowance-- < 1) Purge();
        if (wanted >= 0) Fill(wanted);
        block = FindCached(wanted);
    }
    if (block == nullptr)
        ThrowNoRow("rfm_TableRepr::UpdateRow - Row does not exist for table '%s', index: %d, len: %d",
                   wanted);
    return block;
}

rfm_RowRepr* rfm_TableRepr::NewRow()
{
    m_HeaderDirty = true;
    RefuseBeyondLimit(std::int64_t{m_Length} + 1);
    if (m_LastRowMayBeCut && !m_Buffer.ReadOnly()) CompleteLastRow();
    if (m_CacheAllowance-- < 1) Purge();
    MakeRoomInCache();
    RowBlock* block = MakeRow(m_Length);
    block->row.Clear();
    block->row.SetDirty(true);
    m_Rows.push_back(block);
    m_Location = ++m_Length;
    return block;
}

// ---- Publishing and following ----

int rfm_TableRepr::Flush()
{
    if (!m_HeaderDirty) return m_FlushCount;
    if (m_Buffer.ReadOnly())
    {
        m_HeaderDirty = false;
        return 0;
    }
    WriteOut();
    m_FlushCount = rfm_FlushObject(m_Buffer, m_FlushCount);
    m_HeaderDirty = false; // last: a flush that the file refused is due again
    return m_FlushCount;
}

// kept: the length of a follower only grows. Test: AFollowersLengthNeverShrinks.
int rfm_TableRepr::Snap()
{
    if (!m_Buffer.ReadOnly()) return 0;
    const int databaseCount = m_Database.GetFlushCount();
    if (databaseCount == m_DbFlushCount) return 0;
    m_Buffer.Seek(rfm_ObjectFlushCountOffset);
    const int count = m_Buffer.ReadInt();
    m_Buffer.Flush();
    // After the read: a look that the file refused is due again.
    m_DbFlushCount = databaseCount;
    const std::int64_t length = m_Buffer.Length().Value();
    if (std::exchange(m_CountMayBeAhead, count != m_FlushCount) && count == m_FlushCount)
        return CatchUp(length);
    if (count == m_FlushCount) return 0;
    m_FlushCount = count;
    ReleaseUnheld(); // the rows that nobody holds: the next read sees the new file
    m_Length = std::max(m_Length, rfm_RowsInSpace(length, rfm_TableFirstRowOffset, m_RowSize));
    return m_FlushCount;
}

// The writer raises the table's count before the database's flush shows the rows. A count that was read in between is
// known already when they come; without this second look they would stay unseen until the table's next flush. Whole
// rows only: what lies behind them no flush has spoken for.
int rfm_TableRepr::CatchUp(std::int64_t length)
{
    const std::int64_t rows = m_RowSize < 1 ? 0 : (length - rfm_TableFirstRowOffset) / m_RowSize;
    if (rows <= m_Length) return 0;
    ReleaseUnheld();
    m_Length = static_cast<int>(std::min<std::int64_t>(rows, INT_MAX));
    return m_FlushCount;
}

void rfm_TableRepr::Truncate(int rows)
{
    if (m_Buffer.ReadOnly()) nex_ThrowText(atr_Message("***ERROR: Attempt to truncate read only table."));
    Flush();
    m_Buffer.Flush(); // also when nothing was dirty: no block may outlive the bytes it stands for
    m_Location = 0;
    const std::size_t first = PlaceInCache(rows);
    for (std::size_t i = first; i < m_Rows.size(); ++i) DropRow(m_Rows[i]);
    m_Rows.resize(first);
    m_Length = std::min(m_Length, std::max(rows, 0));
    m_WrittenRows = std::min(m_WrittenRows, std::max(rows, 0));
    m_Space->Truncate(rfm_TableFirstRowOffset + std::int64_t{m_RowSize} * std::max(rows, 0));
    // Away from what was cut: a buffer beyond the end takes its place for the length.
    m_Buffer.Seek(rfm_TableFirstRowOffset);
}

void rfm_TableRepr::Extend(int rows)
{
    if (m_Buffer.ReadOnly()) return;
    if (rows > 0) RefuseBeyondLimit(rows);
    WriteOut();
    m_Buffer.Seek(rfm_TableFirstRowOffset);
    m_Buffer.Extend(std::int64_t{rows} * m_RowSize);
}

cow_1DArrayList<cow_String> rfm_TableRepr::GetObjStatistics() const
{
    return m_Database.GetObjStatistics(Handle());
}

// ---- Append ----

void rfm_TableRepr::Append(rfm_TableRepr& source)
{
    if (source.m_Length == 0) return;
    if (m_Buffer.ReadOnly())
        nex_ThrowText(atr_Message("rfm_TableRepr::Append - Attempt to append to read only table."));
    const int code = m_Metadata->CopyAllowed(*source.m_Metadata);
    if (code < 1)
        nex_ThrowText(atr_Message(
            "rfm_TableRepr::Append - table being appended to \"%s\" does not have compatible metadata.",
            m_Metadata->Name()));
    RefuseBeyondLimit(std::int64_t{m_Length} + source.m_Length);
    if (m_LastRowMayBeCut) CompleteLastRow();
    Flush();
    source.Flush();
    m_Buffer.Flush();
    source.m_Buffer.Flush();
    // The rows move past the count, which says nothing of them yet; without this a follower would never see them.
    m_HeaderDirty = true;
    const utl_FileOffset end = m_Buffer.Length();
    try
    {
        if (code == 1)
            AppendAsBytes(source);
        else
            AppendByFields(source, code == 2);
    }
    catch (...)
    {
        TakeBackTo(end);
        throw;
    }
    m_Length =
        std::max(m_Length, rfm_RowsInSpace(m_Buffer.Length().Value(), rfm_TableFirstRowOffset, m_RowSize));
}

// Rows of an append that could not end must not show up at the next open.
void rfm_TableRepr::TakeBackTo(utl_FileOffset end)
{
    m_Buffer.Discard();
    if (m_Space->Length() > end) m_Space->Truncate(end);
    m_Buffer.Seek(rfm_TableFirstRowOffset);
}

// Bytes of rows that the space holds now: an append to itself stops there instead of reading what it writes.
std::int64_t rfm_TableRepr::BytesOfRows()
{
    return std::max<std::int64_t>(m_Buffer.Length().Value() - rfm_TableFirstRowOffset, 0);
}

void rfm_TableRepr::AppendAsBytes(rfm_TableRepr& source)
{
    const std::int64_t bytes = source.BytesOfRows();
    rfm_IOBuffer reader(source.m_Space.get(), kBufferBytes);
    reader.Seek(rfm_TableFirstRowOffset);
    m_Buffer.Seek(m_Buffer.Length());
    m_Buffer.Append(reader, bytes);
}

std::vector<rfm_TableRepr::FieldMove> rfm_TableRepr::PlanMoves(const rfm_TableRepr& source) const
{
    std::vector<FieldMove> moves;
    for (const auto& [name, field] : m_Metadata->Fields())
    {
        if (field.stored == 0) continue;
        const rfm_FieldPlace& from = *source.PlaceOf(rfm_FieldHandle(name));
        const rfm_FieldPlace& to = *PlaceOf(rfm_FieldHandle(name));
        moves.push_back({field.type, from.position, from.offset, to.position, to.offset});
    }
    return moves;
}

static std::size_t BytesToMove(int type, const cow_String& table)
{
    switch (type)
    {
    case rfm_TypeInt:
    case rfm_TypeFloat: return 4;
    case rfm_TypeDouble: return 8;
    default:
        nex_ThrowText(atr_Message(
            "rfm_TableRepr::Append: An invalid field type has been specified for table '%s'.", table));
    }
}

// kept: the receiving image is not cleared between rows of another layout: behind a clear bit it keeps bytes of an
// earlier row. Test: AFieldWithoutDataKeepsBytesOfAnEarlierRowBehindItsClearBit.
void rfm_TableRepr::AppendByFields(rfm_TableRepr& source, bool sameLayout)
{
    const std::vector<FieldMove> moves = PlanMoves(source);
    std::vector<char> sourceImage(static_cast<std::size_t>(source.m_RowSize));
    std::vector<char> ownImage(sameLayout ? 0 : static_cast<std::size_t>(m_RowSize));
    std::vector<char>& image = sameLayout ? sourceImage : ownImage;
    std::vector<unsigned> sourceBits(static_cast<std::size_t>(source.m_WordCount));
    std::vector<unsigned> bits(static_cast<std::size_t>(m_WordCount));
    rfm_IOBuffer reader(source.m_Space.get(), kBufferBytes);
    reader.Seek(rfm_TableFirstRowOffset);
    std::int64_t left = source.BytesOfRows();
    m_Buffer.Seek(m_Buffer.Length());
    for (; left >= source.m_RowSize && reader.Read(sourceImage.data(), source.m_RowSize) == source.m_RowSize;
         left -= source.m_RowSize)
    {
        rfm_Internalize(sourceImage.data(), sourceBits.data(), source.m_WordCount, Swapped());
        std::fill(bits.begin(), bits.end(), 0U);
        for (const FieldMove& move : moves)
        {
            const auto word = static_cast<std::size_t>(move.sourcePosition / 32);
            if ((sourceBits[word] >> (move.sourcePosition % 32) & 1U) == 0) continue;
            const char* from = sourceImage.data() + move.sourceOffset;
            char* to = image.data() + move.offset;
            if (move.type == rfm_TypeString)
            {
                cow_String text;
                source.m_Strings->Decode(from, &text, 1);
                m_Strings->Encode(to, &text, 1);
            }
            else if (!sameLayout)
            {
                std::memcpy(to, from, BytesToMove(move.type, m_Metadata->Name()));
            }
            bits[static_cast<std::size_t>(move.position / 32)] |= 1U << (move.position % 32);
        }
        if (!sameLayout) rfm_Externalize(bits.data(), image.data(), m_WordCount, Swapped());
        m_Buffer.Write(image.data(), m_RowSize);
    }
}
