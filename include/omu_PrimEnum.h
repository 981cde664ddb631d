#pragma once

#include "cls_Uid.h"
#include "cow_Map.h"
#include "omu_Primitive.h"

class cls_ReadVisitor;
class cls_WriteVisitor;

/// One permissible value of an enumeration, in a table that ends with a null name.
struct omu_PrimEnumEntry
{
    const char* name;
    int value;
};

/// A value of an enumeration with its name. Names compare exactly, as they stand.
class RFM_EXPORT omu_PrimEnumBase : public omu_Primitive
{
public:
    ~omu_PrimEnumBase() override;
    omu_PrimEnumBase* Copy() const override = 0;
    /// The name of the value.
    cow_String AsString() const override { return m_Name; }
    int Value() const noexcept { return m_Value; }

    static int TypeId() noexcept;
    /// Writes the name.
    void DBWrite(const cls_WriteVisitor& visitor) const;

    /// The names and their values.
    cow_Map<cow_String, unsigned> PermissibleValues() const;
    /// The names in their order, such as "RSH, SSH".
    cow_String PermissibleValuesAsString() const;
    /// Changes the value; false, with nothing changed, when the table has no such value or name.
    bool SetValue(int value);
    bool SetValue(const cow_String& name);

    /// Equal when value and name are.
    friend bool operator==(const omu_PrimEnumBase& left, const omu_PrimEnumBase& right) noexcept
    {
        return left.m_Value == right.m_Value && left.m_Name == right.m_Name;
    }

protected:
    explicit omu_PrimEnumBase(const omu_PrimEnumEntry* table) noexcept : m_Table(table) {}
    /// A copy holds the same value and is a stored object of its own.
    omu_PrimEnumBase(const omu_PrimEnumBase& source) noexcept;
    omu_PrimEnumBase& operator=(const omu_PrimEnumBase& source) noexcept;

    // What the constructors of all enumerations do.
    // Throws: omu_ValueErrorException for what the table does not have.
    void InitFromValue(int value);
    void InitFromEnum(const omu_PrimEnumBase& source);
    void InitFromName(const cow_String& name);
    void InitFromStream(const cls_ReadVisitor& reader);

private:
    const omu_PrimEnumEntry* m_Table;
    int m_Value = 0;
    cow_String m_Name;
    cls_Uid m_Uid;
};

/// A value of the enumeration `E`, whose names are in `table`, which whoever declares the enumeration defines. `N` tells
/// apart tables of one enumeration.
/// Throws: omu_ValueErrorException from each constructor, for what the table doesn't have.
template <class E, int N> class omu_PrimEnum : public omu_PrimEnumBase
{
public:
    static const omu_PrimEnumEntry table[];

    explicit omu_PrimEnum(E value) : omu_PrimEnumBase(table) { InitFromValue(static_cast<int>(value)); }
    explicit omu_PrimEnum(const omu_PrimEnumBase& source) : omu_PrimEnumBase(table) { InitFromEnum(source); }
    explicit omu_PrimEnum(const cow_String& name) : omu_PrimEnumBase(table) { InitFromName(name); }
    /// What `DBWrite` wrote.
    explicit omu_PrimEnum(const cls_ReadVisitor& reader) : omu_PrimEnumBase(table) { InitFromStream(reader); }
    omu_PrimEnum(const omu_PrimEnum&) = default;
    omu_PrimEnum& operator=(const omu_PrimEnum&) = default;
    ~omu_PrimEnum() override = default;

    omu_PrimEnum* Copy() const override { return new omu_PrimEnum(*this); }
    E AsEnum() const noexcept { return static_cast<E>(Value()); }
};
