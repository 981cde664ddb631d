#pragma once

#include "cls_Uid.h"
#include "rfm_Export.h"

class cls_ReadVisitor;
class cls_WriteVisitor;

/// An object of a model: it is copied without its class being known, and writes itself into a stream. A copy is an
/// object of its own there.
class RFM_EXPORT mdl_Extension
{
public:
    virtual ~mdl_Extension();
    /// A new copy, which the caller owns.
    virtual mdl_Extension* Copy() const = 0;
    /// The object that counts, for writing and for reading: this one, unless a class stands in for another.
    virtual mdl_Extension& GetValue() { return *this; }
    virtual const mdl_Extension& ConstGetValue() const { return *this; }
    virtual int DynTypeId() const = 0;
    virtual void DBWrite(const cls_WriteVisitor& visitor) const = 0;
    /// Makes this another object for every stream.
    virtual void NewUid() = 0;

protected:
    mdl_Extension() noexcept = default;
    mdl_Extension(const mdl_Extension&) noexcept = default;
    mdl_Extension& operator=(const mdl_Extension&) noexcept = default;
};

/// A store of objects by keys. This one is empty; what can be stored is up to the derived classes.
class RFM_EXPORT mdl_Repository : public mdl_Extension
{
public:
    mdl_Repository();
    mdl_Repository(const mdl_Repository&);
    /// What `DBWrite` wrote: nothing but that there is a repository.
    explicit mdl_Repository(const cls_ReadVisitor& reader);
    mdl_Repository& operator=(const mdl_Repository&) = delete;
    ~mdl_Repository() override;

    static int TypeId() noexcept;
    mdl_Repository* Copy() const override;
    int DynTypeId() const override { return TypeId(); }
    void DBWrite(const cls_WriteVisitor& visitor) const override;
    void NewUid() override;
    /// How many entries there are.
    virtual int Size() const { return 0; }
    /// When this object was made, a copy when it was copied: seconds of `omi_gettimecounter`.
    double MadeAt() const noexcept { return m_MadeAt; }

private:
    double m_MadeAt;
    cls_Uid m_Uid;
};
