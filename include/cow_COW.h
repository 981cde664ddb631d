#pragma once

#include "cow_CountedHld.h"
#include "nex_Exception.h"

#include <cassert>

/// Copies by the copy constructor of `T`.
template <class T> struct cow_Direct
{
    static T* Copy(const T& source) { return new T(source); }
};

/// Copies by the virtual `Copy()` of `T`, which gives a new object that the caller owns.
template <class T> struct cow_Virtual
{
    static T* Copy(const T& source) { return source.Copy(); }
};

/// A counted handle whose object is copied when one of several sharers writes. It is never empty, unless it
/// was made from a null pointer or moved from; such a handle may only be assigned to, tested and destroyed.
template <class T, class Policy = cow_Direct<T>> class cow_COW : public cow_CountedHld<T>
{
public:
    /// Takes ownership of `object`.
    explicit cow_COW(T* object) : cow_CountedHld<T>(object) {}
    /// Holds a copy of `value`.
    explicit cow_COW(const T& value) : cow_CountedHld<T>(Policy::Copy(value)) {}

    /// The object for writing: when it is shared, this handle first gets a copy of its own.
    /// Throws: nex_AssertException for an empty handle.
    T& Get()
    {
        if (this->Count() != 1) CopyObject();
        return *this->m_Object;
    }
    /// The object for reading; the handle must not be empty.
    const T& ConstGet() const noexcept
    {
        assert(!this->IsNull());
        return *this->m_Object;
    }

protected:
    cow_COW() noexcept = default;

private:
    void CopyObject()
    {
        if (this->IsNull()) nex_ThrowAssert("!IsNull()");
        cow_CountedHld<T>::operator=(cow_CountedHld<T>(Policy::Copy(*this->m_Object)));
    }
};

/// A `cow_COW` that can be empty, for containers.
template <class T, class Policy = cow_Direct<T>> class cow_ArrayCOW : public cow_COW<T, Policy>
{
public:
    cow_ArrayCOW() noexcept = default;
    using cow_COW<T, Policy>::cow_COW;
    cow_ArrayCOW(const cow_COW<T, Policy>& source) : cow_COW<T, Policy>(source) {}
};
