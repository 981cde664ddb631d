#include "rfm_ArrayRepr.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "omi_Swapper.h"
#include "rfm_DatabaseRepr.h"
#include "rfm_Exc.h"
#include "rfm_LinkageFormat.h"
#include "rfm_ObjectFlush.h"
#include "rfm_ObjectFormat.h"
#include "rfm_StringManager.h"

#include <algorithm>
#include <climits>

namespace
{
constexpr std::int64_t kCopyBytes = 0x100000;
constexpr int kStringsAtATime = 16;
} // namespace

rfm_ArrayRepr::rfm_ArrayRepr(rfm_DatabaseRepr& database, rfm_Type type, int fieldCount, int quantum,
                             int bufferSize)
    : m_Database(database),
      m_Space(database.NewSpace(quantum)),
      m_Buffer(m_Space.get(), bufferSize),
      m_Type(type),
      m_FieldCount(fieldCount),
      m_DbFlushCount(database.GetFlushCount())
{
    const int head[4] = {static_cast<int>(rfm_ArrayMagic), 0, type, fieldCount};
    m_Buffer.WriteArray(head, 4);
}

rfm_ArrayRepr::rfm_ArrayRepr(rfm_DatabaseRepr& database, rfm_Handle handle, int quantum, int bufferSize)
    : m_Database(database),
      m_Space(database.OpenSpace(handle, quantum)),
      m_Buffer(m_Space.get(), bufferSize),
      m_DbFlushCount(database.GetFlushCount())
{
    int head[4];
    if (m_Buffer.ReadArray(head, 4) < 4)
        nex_ThrowText(
            atr_Message("rfm_ArrayRepr::rfm_ArrayRepr: Array object in RDX/VDX file is corrupt.  File may be "
                        "unusable."));
    if (static_cast<std::uint32_t>(head[0]) != rfm_ArrayMagic)
        nex_ThrowText(atr_Message(
            "rfm_ArrayRepr::rfm_ArrayRepr: Handle is not to an Array object in RDX/VDX file.  File "
            "may be unusable."));
    m_FlushCount = head[1];
    m_Type = static_cast<rfm_Type>(head[2]);
    m_FieldCount = head[3];
}

// In 64 bits: a stored count of elements may be anything.
std::int64_t rfm_ArrayRepr::RowBytes() const
{
    switch (m_Type)
    {
    case rfm_TypeInt:
    case rfm_TypeFloat: return std::int64_t{m_FieldCount} * 4;
    case rfm_TypeDouble: return std::int64_t{m_FieldCount} * 8;
    case rfm_TypeString: return std::int64_t{m_FieldCount} * m_Space->StringManager()->ReferenceSize();
    default: nex_ThrowText(atr_Message("rfm_ArrayRepr::RowSize - illegal array type."));
    }
}

int rfm_ArrayRepr::RowSize() const
{
    return static_cast<int>(std::clamp<std::int64_t>(RowBytes(), INT_MIN, INT_MAX));
}

int rfm_ArrayRepr::Length() const
{
    return rfm_RowsInSpace(m_Buffer.Length().Value(), rfm_ArrayFirstRowOffset, RowBytes());
}

int rfm_ArrayRepr::Location() const
{
    return rfm_RowsInSpace(m_Buffer.Location().Value(), rfm_ArrayFirstRowOffset, RowBytes());
}

// A stored count of elements may be anything, so the product is checked.
std::int64_t rfm_ArrayRepr::PlaceOf(int row) const
{
    std::int64_t place = 0;
    if (__builtin_mul_overflow(RowBytes(), row, &place)) rfm_ThrowCorrupt(m_Database.FileName());
    return (utl_FileOffset(place) + rfm_ArrayFirstRowOffset).Value();
}

void rfm_ArrayRepr::Seek(int row) { m_Buffer.Seek(PlaceOf(row)); }

int rfm_ArrayRepr::ElementsOf(int rowCount) const
{
    const std::int64_t elements = std::int64_t{rowCount} * m_FieldCount;
    if (elements > INT_MAX) nex_ThrowText(atr_Message("***ERROR: Invalid length when reading array."));
    return static_cast<int>(std::max<std::int64_t>(elements, 0));
}

template <class T> int rfm_ArrayRepr::Read(T* data, int rowCount)
{
    if (data == nullptr) nex_ThrowAssert("data != NULL");
    if (rowCount <= 0) nex_ThrowAssert("rowCount > 0");
    return m_Buffer.ReadArray(data, ElementsOf(rowCount));
}

template <class T> int rfm_ArrayRepr::Write(const T* data, int rowCount)
{
    if (data == nullptr) nex_ThrowAssert("data != NULL");
    if (rowCount <= 0) nex_ThrowAssert("rowCount > 0");
    m_Buffer.WriteArray(data, ElementsOf(rowCount));
    return rowCount;
}

template int rfm_ArrayRepr::Read(int*, int);
template int rfm_ArrayRepr::Read(float*, int);
template int rfm_ArrayRepr::Read(double*, int);
template int rfm_ArrayRepr::Read(cow_String*, int);
template int rfm_ArrayRepr::Write(const int*, int);
template int rfm_ArrayRepr::Write(const float*, int);
template int rfm_ArrayRepr::Write(const double*, int);
template int rfm_ArrayRepr::Write(const cow_String*, int);

int rfm_ArrayRepr::Flush()
{
    if (m_Buffer.ReadOnly()) return 0;
    return m_FlushCount = rfm_FlushObject(m_Buffer, m_FlushCount);
}

int rfm_ArrayRepr::Snap()
{
    if (!m_Buffer.ReadOnly()) return 0;
    const int databaseCount = m_Database.GetFlushCount();
    if (databaseCount == m_DbFlushCount) return 0;
    m_DbFlushCount = databaseCount;
    const utl_FileOffset place = m_Buffer.Location();
    m_Buffer.Seek(rfm_ObjectFlushCountOffset);
    const int count = m_Buffer.ReadInt();
    // kept: without news the position stays behind the count, at byte 8, inside the header, so that Location() answers 0
    // and a Read starts there. Test: ASnapWithoutNewsLeavesThePositionBehindTheCount.
    if (count == m_FlushCount) return 0;
    m_FlushCount = count;
    m_Buffer.Flush();
    m_Buffer.Seek(place);
    return m_FlushCount;
}

void rfm_ArrayRepr::Truncate(int rows)
{
    if (m_Buffer.ReadOnly()) nex_ThrowText(atr_Message("***ERROR: Attempt to truncate read only array."));
    // Never into the header, whatever the stored count of elements says.
    const std::int64_t length = std::max<std::int64_t>(PlaceOf(std::max(rows, 0)), rfm_ArrayFirstRowOffset);
    m_Buffer.Flush();
    m_Buffer.Seek(rfm_ArrayFirstRowOffset);
    m_Space->Truncate(length);
}

cow_1DArrayList<cow_String> rfm_ArrayRepr::GetObjStatistics() const
{
    return m_Database.GetObjStatistics(Handle());
}

int rfm_ArrayRepr::CopyAllowed(const rfm_ArrayRepr& other) const
{
    if (m_Type == rfm_TypeHandle || m_Type != other.m_Type) return 0;
    return m_FieldCount == other.m_FieldCount ? 1 : 0;
}

// The source's length is taken before the first byte moves: an array appended to itself stops there. Both arrays are
// left at their ends.
void rfm_ArrayRepr::Append(rfm_ArrayRepr& source)
{
    if (m_Buffer.ReadOnly())
        nex_ThrowText(atr_Message("rfm_ArrayRepr::Append - Attempt to append to read only array."));
    Flush();
    source.Flush();
    m_Buffer.Flush();
    source.m_Buffer.Flush();
    const utl_FileOffset sourceEnd = source.m_Buffer.Length();
    if (m_Type == rfm_TypeString)
        AppendStrings(source);
    else
        AppendBytes(source);
    if (&source != this) source.m_Buffer.Seek(sourceEnd);
}

void rfm_ArrayRepr::AppendBytes(rfm_ArrayRepr& source)
{
    const std::int64_t bytes = source.m_Buffer.Length().Value() - rfm_ArrayFirstRowOffset;
    rfm_IOBuffer reader(source.m_Space.get(), static_cast<int>(kCopyBytes));
    reader.Seek(rfm_ArrayFirstRowOffset);
    m_Buffer.Seek(m_Buffer.Length());
    m_Buffer.Append(reader, bytes);
}

void rfm_ArrayRepr::AppendStrings(rfm_ArrayRepr& source)
{
    cow_String texts[kStringsAtATime];
    const int size = m_Space->StringManager()->ReferenceSize();
    std::int64_t left = (source.m_Buffer.Length().Value() - rfm_ArrayFirstRowOffset) / size;
    rfm_IOBuffer reader(source.m_Space.get(), 0);
    reader.Seek(rfm_ArrayFirstRowOffset);
    m_Buffer.Seek(m_Buffer.Length());
    while (left > 0)
    {
        const int read =
            reader.ReadArray(texts, static_cast<int>(std::min<std::int64_t>(left, kStringsAtATime)));
        if (read < 1) break;
        m_Buffer.WriteArray(texts, read);
        left -= read;
    }
}

rfm_Handle rfm_ArrayRepr::CreateCopy(rfm_DatabaseRepr& target, rfm_DatabaseRepr& source, rfm_Handle array)
{
    const std::unique_ptr<rfm_SpaceRepr> from(source.OpenSpace(array, -1));
    std::int64_t remaining = from->Length().Value();
    const int blockBytes = static_cast<int>(std::min(kCopyBytes, remaining));
    if (blockBytes < rfm_ArrayFirstRowOffset)
        nex_ThrowText(
            atr_Message("rfm_ArrayRepr::CreateCopy: Array read failed. (1)  File may be unusable."));
    const auto block = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(blockBytes));
    if (from->Read(block.get(), blockBytes) < blockBytes)
        nex_ThrowText(
            atr_Message("rfm_ArrayRepr::CreateCopy: Array read failed. (1)  File may be unusable."));
    remaining -= blockBytes;
    if (omi_Load<std::uint32_t>(block.get(), from->Swapped()) != rfm_ArrayMagic)
        nex_ThrowText(atr_Message(
            "rfm_ArrayRepr::CreateCopy: Handle is not to an Array object in RDX/VDX file.  File may "
            "be unusable."));
    // The copy starts with a flush count of 0.
    omi_Store(block.get() + rfm_ObjectFlushCountOffset, 0, false);
    if (omi_Load<int>(block.get() + 8, from->Swapped()) == rfm_TypeString)
        nex_ThrowAssert("data != rfm_TypeString"); // references into the source's pool can't travel as bytes
    const std::unique_ptr<rfm_SpaceRepr> to(target.NewSpace(-1));
    to->Write(block.get(), blockBytes);
    while (remaining > 0)
    {
        const int wanted = static_cast<int>(std::min<std::int64_t>(blockBytes, remaining));
        if (from->Read(block.get(), wanted) < wanted)
            nex_ThrowText(
                atr_Message("rfm_ArrayRepr::CreateCopy: Array read failed. (2)  File may be unusable."));
        to->Write(block.get(), wanted);
        remaining -= wanted;
    }
    return to->Handle();
}
