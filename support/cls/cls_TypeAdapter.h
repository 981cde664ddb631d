#pragma once

#include "cow_COW.h"

class cls_ReadVisitor;
class cls_WriteVisitor;

/// What metadata can do with the objects of a class without knowing the class.
class cls_Adapter
{
public:
    virtual ~cls_Adapter();
    /// Writes an object of the class.
    virtual void DBWrite(const void* object, const cls_WriteVisitor& visitor) const = 0;
    virtual void Delete(void* object) const = 0;
    /// Deletes a counted handle on the heap, and with the last one its object.
    virtual void DeleteCow(void* handle) const = 0;
    /// A new object, which the caller owns, from what the reader stands on.
    virtual void* Ctor(const cls_ReadVisitor& reader) const = 0;
};

/// The part that a class without a read constructor can have too.
template <class T> class cls_AbsTypeAdapter : public cls_Adapter
{
public:
    void DBWrite(const void* object, const cls_WriteVisitor& visitor) const override
    {
        static_cast<const T*>(object)->DBWrite(visitor);
    }
    void Delete(void* object) const override { delete static_cast<T*>(object); }
};

/// The adapter of a class `T` with a read constructor, whose handles copy through `Copy()`.
template <class T> class cls_TypeAdapter : public cls_AbsTypeAdapter<T>
{
public:
    using Handle = cow_COW<T, cow_Virtual<T>>;

    void DeleteCow(void* handle) const override { delete static_cast<Handle*>(handle); }
    void* Ctor(const cls_ReadVisitor& reader) const override { return new T(reader); }
};
