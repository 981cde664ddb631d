#include "rfm_Row.h"

#include "mem_Alloc.h"
#include "nex_Exception.h"
#include "rfm_RowImpl.h"
#include "rfm_TableRepr.h"

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
