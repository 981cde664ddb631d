#pragma once

#include "cow_COW.h"
#include "cow_String.h"
#include "rfm_Export.h"

#include <variant>
#include <vector>

/// A value of the command layer.
class RFM_EXPORT omu_Primitive
{
public:
    virtual ~omu_Primitive();
    /// A new copy, which the caller owns.
    virtual omu_Primitive* Copy() const = 0;
    /// The value as a text for people.
    virtual cow_String AsString() const = 0;

protected:
    omu_Primitive() noexcept = default;
    omu_Primitive(const omu_Primitive&) noexcept = default;
    omu_Primitive& operator=(const omu_Primitive&) noexcept = default;
};

/// A row of values, each an integer, a floating number, a boolean, a text or any value of the command layer.
/// Throws: nex_AssertException for an index out of range, and for a `Get` into another type than was put; the target
/// is as it was then.
class RFM_EXPORT omu_PrimSequence : public omu_Primitive
{
public:
    omu_PrimSequence() noexcept : omu_PrimSequence('[') {}
    ~omu_PrimSequence() override;
    omu_PrimSequence* Copy() const override;
    /// Such as "['Insert', -99]"; texts in quotes.
    cow_String AsString() const override;

    int Count() const noexcept { return static_cast<int>(m_Values.size()); }
    void Put(int value) { PutValue(value); }
    void Put(double value) { PutValue(value); }
    void Put(bool value) { PutValue(value); }
    void Put(const char* value) { PutValue(cow_String(value)); }
    void Put(const cow_String& value) { PutValue(value); }
    /// Puts a copy.
    void Put(const omu_Primitive& value) { PutValue(Nested(value)); }

    void Get(int index, int& value) const { value = ValueAt<int>(index); }
    void Get(int index, double& value) const { value = ValueAt<double>(index); }
    void Get(int index, bool& value) const { value = ValueAt<bool>(index); }
    void Get(int index, cow_String& value) const { value = ValueAt<cow_String>(index); }
    /// The value at `index`, which stays the sequence's.
    const omu_Primitive& GetPrimitive(int index) const { return ValueAt<Nested>(index).ConstGet(); }

protected:
    /// `delimiter` is the opening one of the text: '[', '(' or '{'.
    explicit omu_PrimSequence(char delimiter) noexcept : m_Delimiter(delimiter) {}

private:
    using Nested = cow_ArrayCOW<omu_Primitive, cow_Virtual<omu_Primitive>>;
    using Value = std::variant<int, double, bool, cow_String, Nested>;

    virtual void CheckRoom() const;
    void PutValue(const Value& value);
    const Value& At(int index) const;
    template <class T> const T& ValueAt(int index) const
    {
        const T* value = std::get_if<T>(&At(index));
        if (value == nullptr) nex_ThrowAssert("std::holds_alternative<T>(m_Values[index])");
        return *value;
    }
    static cow_String Text(const Value& value);

    char m_Delimiter;
    std::vector<Value> m_Values;
};

/// A sequence with room for so many values and no more.
/// Throws: nex_AssertException for a value beyond the capacity.
class RFM_EXPORT omu_PrimTuple : public omu_PrimSequence
{
public:
    omu_PrimTuple(int capacity, char delimiter) noexcept : omu_PrimSequence(delimiter), m_Capacity(capacity)
    {
    }
    ~omu_PrimTuple() override;
    omu_PrimTuple* Copy() const override;
    int Capacity() const noexcept { return m_Capacity; }

private:
    void CheckRoom() const override;
    int m_Capacity;
};
