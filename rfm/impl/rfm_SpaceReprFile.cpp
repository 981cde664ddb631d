#include "rfm_SpaceReprFile.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "rfm_DatabaseReprFile.h"
#include "rfm_Exc.h"
#include "rfm_FileRepr.h"
#include "rfm_ObjectFormat.h"

#include <algorithm>
#include <cstring>

namespace
{
constexpr int kLeastQuantum = 4;

[[noreturn]] void ThrowInvalidSeek(std::int64_t offset)
{
    nex_ThrowText(atr_Message(
        "***ERROR: Invalid seek offset: %f.  This is usually caused by depletion of free space on "
        "the filesystem on which the RDX file is being built.",
        static_cast<double>(offset)));
}

void CheckTransfer(const void* buffer, int count, const char* noBuffer, const char* noLength)
{
    if (buffer == nullptr) nex_ThrowText(atr_Message(noBuffer));
    if (count < 1) nex_ThrowText(atr_Message(noLength));
}
} // namespace

rfm_SpaceReprFile::rfm_SpaceReprFile(rfm_DatabaseReprFile& database, int quantum)
    : m_Database(database),
      m_Head(database.AllocateHandle()),
      m_Quantum(std::max(quantum, kLeastQuantum)),
      m_Current(m_Head)
{
    // Valid, without an extent. The block isn't marked: a space that is never written leaves no trace.
    EntryOf(m_Head).offset = rfm_NoExtentOffset;
}

rfm_SpaceReprFile::rfm_SpaceReprFile(rfm_DatabaseReprFile& database, rfm_Handle handle, int quantum)
    : m_Database(database),
      m_Head(handle.Value()),
      m_Quantum(std::max(quantum, kLeastQuantum)),
      m_Current(m_Head)
{
    if (!database.IsValidHandle(m_Head))
        nex_ThrowText(atr_Message(
            "***ERROR: Database is not valid. This may indicate that the database has been corrupted."));
    Measure();
}

rfm_LinkageEntry& rfm_SpaceReprFile::EntryOf(std::uint32_t handle) const
{
    return m_Database.EntryOf(handle);
}
bool rfm_SpaceReprFile::ReadOnly() const { return m_Database.ReadOnly(); }
void rfm_SpaceReprFile::Flush() { m_Database.OrderWrites(); }
rfm_StringManager* rfm_SpaceReprFile::StringManager() { return &m_Database.Strings(); }

// Walks the chain and judges it: a loop, a way out of the table, or an extent that claims more than it has is damage.
void rfm_SpaceReprFile::Measure() const
{
    std::int64_t length = 0;
    std::int64_t allocation = 0;
    std::int64_t steps = 0;
    for (std::uint32_t handle = m_Head; handle != 0;)
    {
        const rfm_LinkageEntry& entry = EntryOf(handle);
        // Slot 0 chains the blocks: as an extent of a space it would lead a write into the table.
        const bool chainsBlocks = (handle & rfm_SlotMask) == 0;
        const bool claims = entry.length > entry.allocation || (entry.allocation > 0 && !entry.HasExtent());
        if (chainsBlocks || claims || ++steps > m_Database.MostEntries())
            rfm_ThrowCorrupt(m_Database.FileName());
        if (__builtin_add_overflow(length, entry.length, &length) ||
            __builtin_add_overflow(allocation, entry.allocation, &allocation))
            rfm_ThrowCorrupt(m_Database.FileName());
        handle = entry.next;
    }
    m_Length = length;
    m_Allocation = allocation;
}

utl_FileOffset rfm_SpaceReprFile::Length() const
{
    const int flushCount = m_Database.GetFlushCount();
    if (flushCount != m_SeenFlushCount)
    {
        m_SeenFlushCount = flushCount;
        Measure();
    }
    return m_Length;
}

utl_FileOffset rfm_SpaceReprFile::Allocation() const
{
    static_cast<void>(Length()); // for its refresh
    return m_Allocation;
}

// Brings the running sums up to the end of the chain. All but the last extent are as long as they will be.
void rfm_SpaceReprFile::ExtendMap() const
{
    if (m_MapShape != m_Database.Shape())
    {
        m_Map.clear();
        m_MapShape = m_Database.Shape();
    }
    if (m_Map.empty()) m_Map.push_back({m_Head, 0});
    while (true)
    {
        const rfm_LinkageEntry& last = EntryOf(m_Map.back().handle);
        if (last.next == 0) return;
        if (static_cast<std::int64_t>(m_Map.size()) > m_Database.MostEntries())
            rfm_ThrowCorrupt(m_Database.FileName());
        std::int64_t start = 0;
        if (__builtin_add_overflow(m_Map.back().start, last.length, &start))
            rfm_ThrowCorrupt(m_Database.FileName());
        m_Map.push_back({last.next, start});
    }
}

// The first extent in which `offset` lies, its end counted in: a position at the very end of an extent stays there and
// uses up the rest of its allocation.
bool rfm_SpaceReprFile::FindExtent(std::int64_t offset, std::uint32_t& handle, std::int64_t& place) const
{
    if (offset < 0) return false;
    const rfm_LinkageEntry& head = EntryOf(m_Head);
    if (offset <= head.length)
    {
        handle = m_Head;
        place = offset;
        return true;
    }
    if (head.next == 0) return false;
    ExtendMap();
    // An extent ends where the next one starts, so the one before the first start at or past the offset holds it.
    const auto behind =
        std::lower_bound(m_Map.begin() + 1, m_Map.end(), offset,
                         [](const Extent& extent, std::int64_t wanted) { return extent.start < wanted; });
    const Extent& extent = *(behind - 1);
    handle = extent.handle;
    place = offset - extent.start;
    return place <= EntryOf(handle).length;
}

void rfm_SpaceReprFile::Seek(utl_FileOffset offset)
{
    if (offset == m_Location) return;
    std::uint32_t handle = 0;
    std::int64_t place = 0;
    // Refused before anything has moved: the space stays where it was.
    if (!FindExtent(offset.Value(), handle, place)) ThrowInvalidSeek(offset.Value());
    m_Current = handle;
    m_ExtentOffset = place;
    m_Location = offset.Value();
}

std::uint32_t rfm_SpaceReprFile::LastOfChain() const
{
    if (EntryOf(m_Head).next == 0) return m_Head;
    ExtendMap();
    return m_Map.back().handle;
}

void rfm_SpaceReprFile::Extend(utl_FileOffset amount)
{
    if (ReadOnly()) rfm_ThrowReadOnlyDatabase();
    if (amount <= 0)
        nex_ThrowText(atr_Message("rfm_SpaceReprFile::Extend: Invalid file extend increment specified."));
    const std::int64_t room = m_Allocation - m_Location;
    if (amount > room) Grow((amount - room).Value());
}

// `need` bytes more behind the last extent: in place while nothing else lies behind it, else as one more entry.
void rfm_SpaceReprFile::Grow(std::int64_t need)
{
    std::uint32_t handle = LastOfChain();
    const rfm_LinkageEntry last = EntryOf(handle);
    const bool somethingBehind =
        last.HasExtent() && last.offset + last.allocation < m_Database.FileLength().Value();
    const std::int64_t oldAllocation = somethingBehind ? 0 : last.allocation;
    const std::int64_t newAllocation =
        ((utl_FileOffset(oldAllocation) + need + (m_Quantum - 1)).Value() / m_Quantum) * m_Quantum;
    if (somethingBehind)
    {
        const std::uint32_t added = m_Database.AllocateHandle();
        m_Database.MarkDirty(handle);
        EntryOf(handle).next = added;
        handle = added;
    }
    if (!EntryOf(handle).HasExtent()) EntryOf(handle).offset = m_Database.FileLength().Value();

    // The room in the file comes before the table says so: a full disk leaves the table as it was, but for an entry
    // without extent.
    m_Database.Reserve(newAllocation - oldAllocation);
    m_Database.MarkDirty(handle);
    EntryOf(handle).allocation = newAllocation;
    m_Allocation += newAllocation - oldAllocation;
}

void rfm_SpaceReprFile::StepTo(std::uint32_t handle)
{
    m_Current = handle;
    m_ExtentOffset = 0;
}

// The next extent of the chain that holds data, 0 when none does.
std::uint32_t rfm_SpaceReprFile::NextWithData(std::uint32_t handle) const
{
    std::int64_t steps = 0;
    do
    {
        handle = EntryOf(handle).next;
        if (++steps > m_Database.MostEntries()) rfm_ThrowCorrupt(m_Database.FileName());
    } while (handle != 0 && EntryOf(handle).length == 0);
    return handle;
}

// How far a write may go in the current extent. Behind the last data that is all of its allocation; before, its length:
// bytes put into the unused tail of an extent with data behind it would push that data on instead of overwriting it.
std::int64_t rfm_SpaceReprFile::WritableEnd() const
{
    const rfm_LinkageEntry& entry = EntryOf(m_Current);
    const bool dataBehind = entry.length < entry.allocation && NextWithData(m_Current) != 0;
    return dataBehind ? entry.length : entry.allocation;
}

// Leaves the position where at least one byte can be written.
void rfm_SpaceReprFile::MoveIntoRoom(int count)
{
    for (std::int64_t steps = 0; WritableEnd() <= m_ExtentOffset; ++steps)
    {
        // Not through Extend: what that takes for room behind the position may be the unused tail of an earlier extent.
        // What m_Allocation lacks of the position, another object on this space has reserved.
        if (EntryOf(m_Current).next == 0) Grow(count + std::max<std::int64_t>(m_Location - m_Allocation, 0));
        const std::uint32_t next = EntryOf(m_Current).next;
        if (next != 0) StepTo(next);
        if (steps > m_Database.MostEntries()) rfm_ThrowCorrupt(m_Database.FileName());
    }
}

int rfm_SpaceReprFile::Write(const char* buffer, int count)
{
    if (ReadOnly()) rfm_ThrowReadOnlyDatabase();
    CheckTransfer(buffer, count, "***ERROR: Invalid data buffer pointer when writing space.",
                  "***ERROR: Invalid length when writing space.");
    int written = 0;
    while (written < count)
    {
        MoveIntoRoom(count - written);
        const int moved =
            static_cast<int>(std::min<std::int64_t>(WritableEnd() - m_ExtentOffset, count - written));
        m_Database.WriteAt(EntryOf(m_Current).offset + m_ExtentOffset, buffer + written, moved);
        written += moved;
        m_ExtentOffset += moved;
        m_Location += moved;
        m_Database.Lengthen(m_Current, m_ExtentOffset);
        m_Length = std::max(m_Length, m_Location);
    }
    return written;
}

// At the end of the data the position stays in the last extent that holds some, so that a write goes on there and not
// in an empty extent behind it.
int rfm_SpaceReprFile::Read(char* buffer, int count)
{
    CheckTransfer(buffer, count, "***ERROR: Invalid data buffer pointer when reading space.",
                  "***ERROR: Invalid length when reading space.");
    // The head of an object says how new its rows are. Rows that were kept before it was read may be older than it says.
    if (m_Location <= rfm_ObjectFlushCountOffset && ReadOnly()) m_Database.ForgetKept();
    int done = 0;
    while (done < count)
    {
        const rfm_LinkageEntry& entry = EntryOf(m_Current);
        const std::int64_t available = entry.length - m_ExtentOffset;
        if (available <= 0)
        {
            const std::uint32_t next = NextWithData(m_Current);
            if (next == 0) break;
            StepTo(next);
            continue;
        }
        const int moved = static_cast<int>(std::min<std::int64_t>(available, count - done));
        m_Database.ReadAt(entry.offset + m_ExtentOffset, buffer + done, moved);
        done += moved;
        m_ExtentOffset += moved;
        m_Location += moved;
    }
    return done;
}

void rfm_SpaceReprFile::Truncate(utl_FileOffset length)
{
    Seek(0);
    std::int64_t remaining = length.Value();
    std::int64_t steps = 0;
    for (std::uint32_t handle = m_Head; handle != 0 && steps <= m_Database.MostEntries(); ++steps)
    {
        rfm_LinkageEntry& entry = EntryOf(handle);
        const std::int64_t before = entry.length;
        if (remaining <= before)
        {
            entry.length = std::max<std::int64_t>(remaining, 0);
            m_Database.MarkDirty(handle);
        }
        remaining -= before;
        handle = entry.next;
    }
    m_Database.Reshape();
    Measure();
}
