#include "rfm_TaggedStreamRepr.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "omi_Swapper.h"
#include "rfm_DatabaseRepr.h"
#include "rfm_Exc.h"
#include "rfm_LinkageFormat.h"
#include "rfm_ObjectFlush.h"
#include "rfm_ObjectFormat.h"
#include "rfm_StringManager.h"
#include "rfm_StringPoolFormat.h"

#include <string>

namespace
{
constexpr int kItemHeadBytes = 8;
constexpr int kHandleBytes = 8;
} // namespace

rfm_TaggedStreamRepr::rfm_TaggedStreamRepr(rfm_DatabaseRepr& database, int bufferSize)
    : m_Database(database),
      m_Space(database.NewSpace(-1)),
      m_Buffer(m_Space.get(), bufferSize),
      m_DbFlushCount(database.GetFlushCount())
{
    const int head[2] = {static_cast<int>(rfm_TaggedStreamMagic), 0};
    m_Buffer.WriteArray(head, 2);
}

rfm_TaggedStreamRepr::rfm_TaggedStreamRepr(rfm_DatabaseRepr& database, rfm_Handle handle, int bufferSize)
    : m_Database(database),
      m_Space(database.OpenSpace(handle, -1)),
      m_Buffer(m_Space.get(), bufferSize),
      m_DbFlushCount(database.GetFlushCount())
{
    int head[2];
    if (m_Buffer.ReadArray(head, 2) < 2)
        nex_ThrowText(atr_Message(
            "rfm_TaggedStreamRepr::rfm_TaggedStreamRepr: Tagged stream object format is corrupt in "
            "RDX/VDX.  File may be unusable."));
    if (static_cast<std::uint32_t>(head[0]) != rfm_TaggedStreamMagic)
        nex_ThrowText(atr_Message(
            "rfm_TaggedStreamRepr::rfm_TaggedStreamRepr: Handle is not to a Tagged Stream object in "
            "RDX/VDX file.  File may be unusable."));
    m_FlushCount = head[1];
}

// ---- Writing: the item just written is the current one ----

// An item goes to the buffer in one piece: one that a full disk refuses leaves no half behind, and may be written again.
// `item` has room for the head in front of the value.
void rfm_TaggedStreamRepr::WriteItem(rfm_Type type, int id, char* item, int bytes)
{
    omi_Store<int>(item, type, m_Buffer.Swapped());
    omi_Store(item + 4, id, m_Buffer.Swapped());
    m_Buffer.Write(item, bytes);
    m_CurrentType = type;
    m_CurrentID = id;
}

template <class T> void rfm_TaggedStreamRepr::WriteNumber(rfm_Type type, int id, T value)
{
    char item[kItemHeadBytes + sizeof(T)];
    omi_Store(item + kItemHeadBytes, value, m_Buffer.Swapped());
    WriteItem(type, id, item, sizeof item);
}

void rfm_TaggedStreamRepr::WriteInt(int id, int value)
{
    WriteNumber(rfm_TypeInt, id, value);
    m_IntValue = value;
}

void rfm_TaggedStreamRepr::WriteFloat(int id, float value)
{
    WriteNumber(rfm_TypeFloat, id, value);
    m_FloatValue = value;
}

void rfm_TaggedStreamRepr::WriteDouble(int id, double value)
{
    WriteNumber(rfm_TypeDouble, id, value);
    m_DoubleValue = value;
}

void rfm_TaggedStreamRepr::WriteHandle(int id, rfm_Handle value)
{
    char item[kItemHeadBytes + kHandleBytes] = {};
    omi_Store(item + kItemHeadBytes, value.Value(), m_Buffer.Swapped());
    WriteItem(rfm_TypeHandle, id, item, sizeof item);
    m_HandleValue = value;
}

void rfm_TaggedStreamRepr::WriteString(int id, const cow_String& value)
{
    if (m_Buffer.ReadOnly()) rfm_ThrowReadOnlyDatabase(); // before the pool takes the text
    char item[kItemHeadBytes + rfm_StringReferenceBytes];
    m_Buffer.StringManager()->Encode(item + kItemHeadBytes, &value, 1);
    WriteItem(rfm_TypeString, id, item, sizeof item);
    m_StringValue = value;
}

// kept: no length is written, while Next takes the first four characters for one. A text ends at its first NUL.
// Test: AFixedStringIsReadBackByTheLengthInItsFirstFourCharacters.
void rfm_TaggedStreamRepr::WriteFixedString(int id, const cow_String& value)
{
    std::string item = std::string(kItemHeadBytes, '\0') + value.CString();
    const int padded = (value.Length() + 3) & ~3;
    item.resize(static_cast<std::size_t>(kItemHeadBytes) + static_cast<std::size_t>(padded));
    WriteItem(rfm_TypeFixedString, id, item.data(), static_cast<int>(item.size()));
    m_StringValue = value;
}

// ---- Walking ----

void rfm_TaggedStreamRepr::ClearValues()
{
    m_IntValue = 0;
    m_FloatValue = 0;
    m_DoubleValue = 0;
    m_HandleValue = rfm_Handle();
    m_StringValue = cow_String();
}

rfm_Handle rfm_TaggedStreamRepr::ReadHandleValue()
{
    char stored[kHandleBytes];
    if (m_Buffer.Read(stored, kHandleBytes) < kHandleBytes) rfm_ThrowEndOfFile();
    return rfm_Handle(omi_Load<std::uint32_t>(stored, m_Buffer.Swapped()));
}

bool rfm_TaggedStreamRepr::Next()
{
    if (m_Buffer.Location() >= m_Buffer.Length()) return false;
    m_CurrentType = m_Buffer.ReadInt();
    m_CurrentID = m_Buffer.ReadInt();
    ClearValues();
    switch (m_CurrentType)
    {
    case rfm_TypeInt: m_IntValue = m_Buffer.ReadInt(); break;
    case rfm_TypeHandle: m_HandleValue = ReadHandleValue(); break;
    case rfm_TypeFloat: m_FloatValue = m_Buffer.ReadFloat(); break;
    case rfm_TypeDouble: m_DoubleValue = m_Buffer.ReadDouble(); break;
    case rfm_TypeString: m_StringValue = m_Buffer.ReadString(); break;
    case rfm_TypeFixedString: m_StringValue = m_Buffer.ReadFixedString(m_Buffer.ReadInt()); break;
    default: nex_ThrowAssert("!\"rfm_TaggedStreamRepr::Next: Bad type from Tagged Stream.\"");
    }
    return true;
}

// ---- Publishing and following ----

int rfm_TaggedStreamRepr::Flush()
{
    if (m_Buffer.ReadOnly()) return 0;
    return m_FlushCount = rfm_FlushObject(m_Buffer, m_FlushCount);
}

int rfm_TaggedStreamRepr::Snap()
{
    if (!m_Buffer.ReadOnly()) return 0;
    const int databaseCount = m_Database.GetFlushCount();
    if (databaseCount == m_DbFlushCount) return 0;
    m_DbFlushCount = databaseCount;
    const utl_FileOffset place = m_Buffer.Location();
    m_Buffer.Seek(rfm_ObjectFlushCountOffset);
    const int count = m_Buffer.ReadInt();
    // kept: without news the position stays at the first item, and the walk starts over.
    // Test: ASnapWithoutNewsStartsTheWalkOver.
    if (count == m_FlushCount) return 0;
    m_FlushCount = count;
    m_Buffer.Flush();
    m_Buffer.Seek(place);
    return m_FlushCount;
}

cow_1DArrayList<cow_String> rfm_TaggedStreamRepr::GetObjStatistics() const
{
    return m_Database.GetObjStatistics(Handle());
}
