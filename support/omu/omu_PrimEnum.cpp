#include "omu_PrimEnum.h"

#include "atr_Translate.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "omu_StoredClasses.h"
#include "omu_ValueErrorException.h"

static constexpr const char* kSourceName = "omu_PrimEnum";

omu_PrimEnumBase::~omu_PrimEnumBase() = default;

// The identity stays out: two values that are set apart later are two objects in a stream.
omu_PrimEnumBase::omu_PrimEnumBase(const omu_PrimEnumBase& source) noexcept
    : omu_Primitive(source),
      m_Table(source.m_Table),
      m_Value(source.m_Value),
      m_Name(source.m_Name)
{
}

omu_PrimEnumBase& omu_PrimEnumBase::operator=(const omu_PrimEnumBase& source) noexcept
{
    m_Table = source.m_Table;
    m_Value = source.m_Value;
    m_Name = source.m_Name;
    return *this;
}

int omu_PrimEnumBase::TypeId() noexcept { return typ_TypeId(omu_LibraryNumber, omu_RowPrimEnum); }

void omu_PrimEnumBase::DBWrite(const cls_WriteVisitor& visitor) const
{
    if (!visitor.StartWrite(TypeId(), m_Uid)) return;
    visitor.WriteString(omu_PrimEnumName, m_Name);
}

cow_Map<cow_String, unsigned> omu_PrimEnumBase::PermissibleValues() const
{
    cow_Map<cow_String, unsigned> values;
    for (const omu_PrimEnumEntry* entry = m_Table; entry->name != nullptr; ++entry)
        values.Insert(entry->name, static_cast<unsigned>(entry->value));
    return values;
}

cow_String omu_PrimEnumBase::PermissibleValuesAsString() const
{
    cow_String names;
    for (const auto [name, value] : PermissibleValues())
    {
        if (!names.IsEmpty()) names.append(", ", 2);
        names.append(name);
    }
    return names;
}

bool omu_PrimEnumBase::SetValue(int value)
{
    for (const omu_PrimEnumEntry* entry = m_Table; entry->name != nullptr; ++entry)
    {
        if (entry->value != value) continue;
        m_Value = value;
        m_Name = entry->name;
        return true;
    }
    return false;
}

bool omu_PrimEnumBase::SetValue(const cow_String& name)
{
    for (const omu_PrimEnumEntry* entry = m_Table; entry->name != nullptr; ++entry)
    {
        if (!(name == entry->name)) continue;
        m_Value = entry->value;
        m_Name = entry->name;
        return true;
    }
    return false;
}

static void Refuse(const atr_String& message, int line)
{
    omu_ValueErrorException(message).Throw(kSourceName, line);
}

void omu_PrimEnumBase::InitFromValue(int value)
{
    if (SetValue(value)) return;
    Refuse(atr_Message("omu_PrimEnum(Enum) - Enum value not allowed: %d  Permissible: %s", value,
                       PermissibleValuesAsString()),
           __LINE__);
}

void omu_PrimEnumBase::InitFromEnum(const omu_PrimEnumBase& source)
{
    if (SetValue(source.AsString())) return;
    Refuse(atr_Message("omu_PrimEnum(const omu_PrimEnumBase&) - str not allowed: %s", source.AsString()),
           __LINE__);
}

void omu_PrimEnumBase::InitFromName(const cow_String& name)
{
    if (SetValue(name)) return;
    Refuse(atr_Message("omu_PrimEnum(const cow_String&) - str not allowed: %s  Permissible: %s", name,
                       PermissibleValuesAsString()),
           __LINE__);
}

void omu_PrimEnumBase::InitFromStream(const cls_ReadVisitor& reader)
{
    const cow_String name = reader.ReadString(omu_PrimEnumName, "");
    if (SetValue(name)) return;
    Refuse(atr_Message("omu_PrimEnum(const cls_ReadVisitor&) - str not allowed: %s  Permissible: %s", name,
                       PermissibleValuesAsString()),
           __LINE__);
}
