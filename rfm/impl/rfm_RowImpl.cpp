#include "rfm_RowImpl.h"

#include "atr_Translate.h"
#include "mem_Alloc.h"
#include "nex_Exception.h"
#include "omi_Swapper.h"
#include "rfm_Row.h"
#include "rfm_StringManager.h"
#include "rfm_TableRepr.h"

#include <algorithm>
#include <cstring>

// The handle and the row stand in one source, so that an access is one call from the program into the library with
// nothing called inside it.

namespace
{
constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);
}

// ---- The row ----

void rfm_RowImpl::Clear() noexcept
{
    std::fill(m_Bits, m_Bits + m_WordCount, 0U);
    std::memset(m_Data, 0, static_cast<std::size_t>(m_DataSize));
}

void rfm_RowImpl::LoadBits()
{
    for (int i = 0; i < m_WordCount; ++i) m_Bits[i] = omi_Load<unsigned>(m_Data + 4 * i, kSwapped);
}

void rfm_RowImpl::StoreBits()
{
    for (int i = 0; i < m_WordCount; ++i) omi_Store(m_Data + 4 * i, m_Bits[i], kSwapped);
}

int rfm_RowImpl::FieldIsPresent(const rfm_FieldHandle& field) const
{
    return m_Table.PlaceOf(field) != nullptr ? 1 : 0;
}

int rfm_RowImpl::DataIsPresent(const rfm_FieldHandle& field) const
{
    const rfm_FieldPlace* place = m_Table.PlaceOf(field);
    return place != nullptr && Bit(place->position) ? 1 : 0;
}

// The place of a field that has data here. The first lines are the whole road of a good call by index; the rest finds
// the words for a bad one.
inline const rfm_FieldPlace& rfm_RowImpl::PrepReadField(const rfm_FieldHandle& field, rfm_Type type) const
{
    const rfm_FieldPlace* quick = m_Table.PlaceOfType(field.Index(), type);
    if (quick != nullptr && Bit(quick->position)) return *quick;
    return PrepReadSlowly(field, type);
}

const rfm_FieldPlace& rfm_RowImpl::PrepReadSlowly(const rfm_FieldHandle& field, rfm_Type type) const
{
    m_Table.TableMetadata().Verify(field, type);
    const rfm_FieldPlace* place = m_Table.PlaceOf(field);
    if (place == nullptr || !Bit(place->position))
        nex_ThrowText(
            atr_Message("rfm_RowImpl::PrepReadField: Attempt to access absent field data in RDX/VDX file "
                        "(%1$s:%2$s). File may be unreadable.",
                        m_Table.TableMetadata().Name(), field.Name()));
    return *place;
}

// kept: a write that is refused leaves the row dirty. Test: ARefusedWriteLeavesTheRowDirty.
inline const rfm_FieldPlace& rfm_RowImpl::PrepWriteField(const rfm_FieldHandle& field, rfm_Type type)
{
    m_Dirty = true;
    const rfm_FieldPlace* quick = m_Table.PlaceOfType(field.Index(), type);
    return quick != nullptr ? *quick : PrepWriteSlowly(field, type);
}

const rfm_FieldPlace& rfm_RowImpl::PrepWriteSlowly(const rfm_FieldHandle& field, rfm_Type type) const
{
    m_Table.TableMetadata().Verify(field, type);
    const rfm_FieldPlace* place = m_Table.PlaceOf(field);
    if (place == nullptr)
        nex_ThrowText(
            atr_Message("rfm_RowImpl::PrepWriteField: Attempt to access absent field in RDX/VDX file "
                        "(%1$s:%2$s).File may be corrupt.",
                        m_Table.TableMetadata().Name(), field.Name()));
    return *place;
}

template <class T> T rfm_RowImpl::ReadNumber(const rfm_FieldHandle& field, rfm_Type type) const
{
    return omi_Load<T>(m_Data + PrepReadField(field, type).offset, kSwapped);
}

// kept: no look at whether the table is read-only: there the change lives in the cached row alone.
// Test: AWriteToARowOfAReadOnlyTableStaysInTheCache.
template <class T> void rfm_RowImpl::WriteNumber(const rfm_FieldHandle& field, rfm_Type type, T value)
{
    const rfm_FieldPlace& place = PrepWriteField(field, type);
    omi_Store(m_Data + place.offset, value, kSwapped);
    SetBit(place.position);
}

rfm_Handle rfm_RowImpl::ReadHandle(const rfm_FieldHandle& field) const
{
    return rfm_Handle(static_cast<std::uint32_t>(ReadNumber<int>(field, rfm_TypeHandle)));
}

void rfm_RowImpl::WriteHandle(const rfm_FieldHandle& field, rfm_Handle value)
{
    const rfm_FieldPlace& place = PrepWriteField(field, rfm_TypeHandle);
    omi_Store(m_Data + place.offset, value.Value(), kSwapped);
    std::memset(m_Data + place.offset + 4, 0, 4);
    SetBit(place.position);
}

cow_String rfm_RowImpl::ReadString(const rfm_FieldHandle& field) const
{
    cow_String text;
    m_Table.StringManager().Decode(m_Data + PrepReadField(field, rfm_TypeString).offset, &text, 1);
    return text;
}

void rfm_RowImpl::WriteString(const rfm_FieldHandle& field, const cow_String& value)
{
    const rfm_FieldPlace& place = PrepWriteField(field, rfm_TypeString);
    m_Table.StringManager().Encode(m_Data + place.offset, &value, 1);
    SetBit(place.position);
}

void rfm_RowImpl::NeuterString(const rfm_FieldHandle& field, const cow_String& text)
{
    m_Table.StringManager().Neuter(m_Data + PrepReadField(field, rfm_TypeString).offset, text);
}

void rfm_RowImpl::CopyField(const rfm_RowImpl& source, const rfm_FieldHandle& field)
{
    if (source.DataIsPresent(field) == 0) return;
    const int type = source.m_Table.TableMetadata().GetFieldMD(field).type;
    m_Table.TableMetadata().Verify(field, static_cast<rfm_Type>(type));
    const rfm_FieldPlace& place = *m_Table.PlaceOf(field);
    const char* from = source.m_Data + source.m_Table.PlaceOf(field)->offset;
    char* to = m_Data + place.offset;
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
    SetBit(place.position);
}

void rfm_RowImpl::Erase(const rfm_FieldHandle& field)
{
    const int type = m_Table.TableMetadata().GetFieldMD(field).type;
    m_Table.TableMetadata().Verify(field, static_cast<rfm_Type>(type));
    const int position = m_Table.PlaceOf(field)->position;
    m_Bits[position / 32] &= ~(1U << (position % 32));
    m_Dirty = true;
}

void rfm_RowImpl::Erase()
{
    std::fill(m_Bits, m_Bits + m_WordCount, 0U);
    m_Dirty = true;
}

// ---- The handle ----

namespace
{
void Acquire(rfm_RowRepr* repr)
{
    if (repr->m_ReferenceCount < 0) nex_ThrowAssert("m_Repr->m_ReferenceCount >= 0");
    ++repr->m_ReferenceCount;
}

// The control block stays in the table's cache for the next reader, unless the table has dropped the row before.
void Release(rfm_RowRepr* repr)
{
    if (repr == nullptr) return;
    if (repr->m_ReferenceCount < 0) nex_ThrowAssert("m_Repr->m_ReferenceCount >= 0");
    if (--repr->m_ReferenceCount == 0 && repr->impl == nullptr) mem_Free(repr);
}
} // namespace

rfm_Row::rfm_Row(rfm_RowRepr* repr) noexcept : m_Repr(repr) { ++m_Repr->m_ReferenceCount; }
rfm_Row::rfm_Row(const rfm_Row& source) : m_Repr(source.m_Repr) { Acquire(m_Repr); }

rfm_Row& rfm_Row::operator=(const rfm_Row& source)
{
    if (this == &source) return *this;
    Acquire(source.m_Repr);
    Release(m_Repr);
    m_Repr = source.m_Repr;
    return *this;
}

rfm_Row& rfm_Row::operator=(rfm_Row&& source) noexcept
{
    std::swap(m_Repr, source.m_Repr);
    return *this;
}

rfm_Row::~rfm_Row()
{
    if (m_Repr != nullptr && --m_Repr->m_ReferenceCount == 0 && m_Repr->impl == nullptr) mem_Free(m_Repr);
}

void rfm_Row::Nullify()
{
    Release(m_Repr);
    m_Repr = nullptr;
}

int rfm_Row::FieldIsPresent(const rfm_FieldHandle& field) const
{
    return m_Repr->impl->FieldIsPresent(field);
}
int rfm_Row::DataIsPresent(const rfm_FieldHandle& field) const { return m_Repr->impl->DataIsPresent(field); }

int rfm_Row::ReadFieldInt(const rfm_FieldHandle& field) const
{
    return m_Repr->impl->ReadNumber<int>(field, rfm_TypeInt);
}

float rfm_Row::ReadFieldFloat(const rfm_FieldHandle& field) const
{
    return m_Repr->impl->ReadNumber<float>(field, rfm_TypeFloat);
}

double rfm_Row::ReadFieldDouble(const rfm_FieldHandle& field) const
{
    return m_Repr->impl->ReadNumber<double>(field, rfm_TypeDouble);
}

rfm_Handle rfm_Row::ReadFieldHandle(const rfm_FieldHandle& field) const
{
    return m_Repr->impl->ReadHandle(field);
}
cow_String rfm_Row::ReadFieldString(const rfm_FieldHandle& field) const
{
    return m_Repr->impl->ReadString(field);
}

void rfm_Row::WriteFieldInt(const rfm_FieldHandle& field, int value)
{
    m_Repr->impl->WriteNumber(field, rfm_TypeInt, value);
}

void rfm_Row::WriteFieldFloat(const rfm_FieldHandle& field, float value)
{
    m_Repr->impl->WriteNumber(field, rfm_TypeFloat, value);
}

void rfm_Row::WriteFieldDouble(const rfm_FieldHandle& field, double value)
{
    m_Repr->impl->WriteNumber(field, rfm_TypeDouble, value);
}

void rfm_Row::WriteFieldHandle(const rfm_FieldHandle& field, rfm_Handle value)
{
    m_Repr->impl->WriteHandle(field, value);
}

void rfm_Row::WriteFieldString(const rfm_FieldHandle& field, const cow_String& value)
{
    m_Repr->impl->WriteString(field, value);
}

void rfm_Row::NeuterFieldString(const rfm_FieldHandle& field, const cow_String& text)
{
    m_Repr->impl->NeuterString(field, text);
}

void rfm_Row::CopyField(const rfm_Row& source, const rfm_FieldHandle& field)
{
    m_Repr->impl->CopyField(*source.m_Repr->impl, field);
}

void rfm_Row::Erase(const rfm_FieldHandle& field) { m_Repr->impl->Erase(field); }
void rfm_Row::Erase() { m_Repr->impl->Erase(); }
int rfm_Row::Location() const { return m_Repr->impl->Location(); }

const rfm_TableMetadata::FieldMap& rfm_Row::FieldMetadataMap() const
{
    return m_Repr->impl->Table().TableMetadata().Fields();
}
