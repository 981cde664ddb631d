#include "rfm_RowImpl.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "omi_Swapper.h"
#include "rfm_StringManager.h"
#include "rfm_TableRepr.h"

#include <algorithm>
#include <cstring>

void rfm_RowImpl::Clear() noexcept
{
    std::fill(m_Bits, m_Bits + m_WordCount, 0U);
    std::memset(m_Data, 0, static_cast<std::size_t>(m_DataSize));
}

void rfm_RowImpl::LoadBits() { rfm_Internalize(m_Data, m_Bits, m_WordCount, m_Table.Swapped()); }
void rfm_RowImpl::StoreBits() { rfm_Externalize(m_Bits, m_Data, m_WordCount, m_Table.Swapped()); }

int rfm_RowImpl::FieldIsPresent(const rfm_FieldHandle& field) const
{
    return m_Table.PositionOf(field) >= 0 ? 1 : 0;
}

int rfm_RowImpl::DataIsPresent(const rfm_FieldHandle& field) const
{
    const int position = m_Table.PositionOf(field);
    return position >= 0 && Bit(position) ? 1 : 0;
}

// The stored position of a field that has data here. The first lines are the whole road of a good call by index; the
// rest finds the words for a bad one.
int rfm_RowImpl::PrepReadField(const rfm_FieldHandle& field, rfm_Type type) const
{
    const int quick = m_Table.PositionOfType(field.Index(), type);
    if (quick >= 0 && Bit(quick)) return quick;
    m_Table.TableMetadata().Verify(field, type);
    const int position = m_Table.PositionOf(field);
    if (position < 0 || !Bit(position))
        nex_ThrowText(
            atr_Message("rfm_RowImpl::PrepReadField: Attempt to access absent field data in RDX/VDX file "
                        "(%1$s:%2$s). File may be unreadable.",
                        m_Table.TableMetadata().Name(), field.Name()));
    return position;
}

// kept: a write that is refused leaves the row dirty. Test: ARefusedWriteLeavesTheRowDirty.
int rfm_RowImpl::PrepWriteField(const rfm_FieldHandle& field, rfm_Type type)
{
    m_Dirty = true;
    const int quick = m_Table.PositionOfType(field.Index(), type);
    if (quick >= 0) return quick;
    m_Table.TableMetadata().Verify(field, type);
    const int position = m_Table.PositionOf(field);
    if (position < 0)
        nex_ThrowText(
            atr_Message("rfm_RowImpl::PrepWriteField: Attempt to access absent field in RDX/VDX file "
                        "(%1$s:%2$s).File may be corrupt.",
                        m_Table.TableMetadata().Name(), field.Name()));
    return position;
}

template <class T> T rfm_RowImpl::ReadNumber(const rfm_FieldHandle& field, rfm_Type type) const
{
    return omi_Load<T>(m_Data + m_Table.OffsetOf(PrepReadField(field, type)), m_Table.Swapped());
}

// kept: no look at whether the table is read-only: there the change lives in the cached row alone.
// Test: AWriteToARowOfAReadOnlyTableStaysInTheCache.
template <class T> void rfm_RowImpl::WriteNumber(const rfm_FieldHandle& field, rfm_Type type, T value)
{
    const int position = PrepWriteField(field, type);
    omi_Store(m_Data + m_Table.OffsetOf(position), value, m_Table.Swapped());
    SetBit(position);
}

template int rfm_RowImpl::ReadNumber<int>(const rfm_FieldHandle&, rfm_Type) const;
template float rfm_RowImpl::ReadNumber<float>(const rfm_FieldHandle&, rfm_Type) const;
template double rfm_RowImpl::ReadNumber<double>(const rfm_FieldHandle&, rfm_Type) const;
template void rfm_RowImpl::WriteNumber<int>(const rfm_FieldHandle&, rfm_Type, int);
template void rfm_RowImpl::WriteNumber<float>(const rfm_FieldHandle&, rfm_Type, float);
template void rfm_RowImpl::WriteNumber<double>(const rfm_FieldHandle&, rfm_Type, double);

rfm_Handle rfm_RowImpl::ReadHandle(const rfm_FieldHandle& field) const
{
    return rfm_Handle(static_cast<std::uint32_t>(ReadNumber<int>(field, rfm_TypeHandle)));
}

void rfm_RowImpl::WriteHandle(const rfm_FieldHandle& field, rfm_Handle value)
{
    const int position = PrepWriteField(field, rfm_TypeHandle);
    char* target = m_Data + m_Table.OffsetOf(position);
    omi_Store(target, value.Value(), m_Table.Swapped());
    std::memset(target + 4, 0, 4);
    SetBit(position);
}

cow_String rfm_RowImpl::ReadString(const rfm_FieldHandle& field) const
{
    cow_String text;
    m_Table.StringManager().Decode(m_Data + m_Table.OffsetOf(PrepReadField(field, rfm_TypeString)), &text, 1);
    return text;
}

void rfm_RowImpl::WriteString(const rfm_FieldHandle& field, const cow_String& value)
{
    const int position = PrepWriteField(field, rfm_TypeString);
    m_Table.StringManager().Encode(m_Data + m_Table.OffsetOf(position), &value, 1);
    SetBit(position);
}

void rfm_RowImpl::NeuterString(const rfm_FieldHandle& field, const cow_String& text)
{
    m_Table.StringManager().Neuter(m_Data + m_Table.OffsetOf(PrepReadField(field, rfm_TypeString)), text);
}

void rfm_RowImpl::CopyField(const rfm_RowImpl& source, const rfm_FieldHandle& field)
{
    if (source.DataIsPresent(field) == 0) return;
    const int type = source.m_Table.TableMetadata().GetFieldMD(field).type;
    m_Table.TableMetadata().Verify(field, static_cast<rfm_Type>(type));
    const int position = m_Table.PositionOf(field);
    const char* from = source.m_Data + source.m_Table.OffsetOf(source.m_Table.PositionOf(field));
    char* to = m_Data + m_Table.OffsetOf(position);
    switch (type)
    {
    case rfm_TypeInt:
    case rfm_TypeFloat: std::memmove(to, from, 4); break;
    case rfm_TypeDouble: std::memmove(to, from, 8); break;
    case rfm_TypeHandle:
        nex_ThrowText(atr_Message("rfm_RowImpl::CopyField: Attempt to copy handle type field..  No can do."));
    case rfm_TypeString:
    {
        cow_String text;
        source.m_Table.StringManager().Decode(from, &text, 1);
        m_Table.StringManager().Encode(to, &text, 1);
        break;
    }
    default: nex_ThrowAssert("!\"Invalid field type.\"");
    }
    m_Dirty = true;
    SetBit(position);
}

void rfm_RowImpl::Erase(const rfm_FieldHandle& field)
{
    const int type = m_Table.TableMetadata().GetFieldMD(field).type;
    m_Table.TableMetadata().Verify(field, static_cast<rfm_Type>(type));
    const int position = m_Table.PositionOf(field);
    m_Bits[position / 32] &= ~(1U << (position % 32));
    m_Dirty = true;
}

void rfm_RowImpl::Erase()
{
    std::fill(m_Bits, m_Bits + m_WordCount, 0U);
    m_Dirty = true;
}
