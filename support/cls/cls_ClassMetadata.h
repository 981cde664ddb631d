#pragma once

#include "cls_FieldHandle.h"
#include "cow_String.h"

#include <memory>
#include <vector>

class cls_Adapter;
class cls_ReadVisitor;

/// What an attribute holds.
enum cls_AttributeType : int
{
    cls_AttributeInteger = 5,
    cls_AttributeString = 11,
    cls_AttributeBoolean = 13,
    cls_AttributeEnumeration = 14, ///< stored as the name of the value, a string
    cls_AttributeObject = 15,      ///< an object, or a collection of objects
};

/// One attribute of a persistent class.
struct cls_Attribute
{
    cls_FieldHandle handle;
    cls_AttributeType type;
    int number;         ///< 1 for a plain value; the type id of the collection for a collection
    int collectionType; ///< 0 for no collection
};

/// One persistent class: its name, type id and version, how its objects are made from a stream, and its attributes.
/// A writer refuses what is not described here, so a stream never holds what its classes don't tell.
class cls_ClassMetadata
{
public:
    /// `constructor` makes the objects of the class and lives to the end of the process; null for a class whose objects
    /// are only made by derived ones. `baseType` is 1 for a class without a base.
    cls_ClassMetadata(const char* name, int typeId, int versionNumber, const cls_Adapter* constructor,
                      int baseType);
    virtual ~cls_ClassMetadata();
    cls_ClassMetadata(const cls_ClassMetadata&) = delete;
    cls_ClassMetadata& operator=(const cls_ClassMetadata&) = delete;

    cls_ClassMetadata& AddAttribute(const cls_FieldHandle& handle, cls_AttributeType attributeType,
                                    int number, int collectionType);
    /// `function` releases a counted handle on the heap that holds an object of this class.
    cls_ClassMetadata& AddDtor(void (*function)(void* handle));

    /// A new object from what `reader` stands on; the caller owns it.
    /// Throws: nex_AssertException for a class whose objects can't be made.
    virtual void* Ctor(const cls_ReadVisitor& reader) const;
    /// Releases a counted handle with the function of `AddDtor`.
    /// Throws: nex_AssertException when there is none.
    virtual void DeleteCow(void* handle) const;

    const cow_String& Name() const noexcept { return m_Name; }
    int TypeId() const noexcept { return m_TypeId; }
    int VersionNumber() const noexcept { return m_VersionNumber; }
    int BaseType() const noexcept { return m_BaseType; }
    const std::vector<cls_Attribute>& Attributes() const noexcept { return m_Attributes; }
    /// The attribute of this name; null when the class has none.
    const cls_Attribute* FindAttribute(const char* name) const;

private:
    cow_String m_Name;
    int m_TypeId;
    int m_VersionNumber;
    const cls_Adapter* m_Constructor;
    int m_BaseType;
    void (*m_Dtor)(void* handle) = nullptr;
    std::vector<cls_Attribute> m_Attributes;
};

/// The persistent classes of the process, by type id.
/// Threads: classes are registered while the library starts, and only read from then on.
class cls_ClassRegistrar
{
public:
    /// Registers a class and answers it for the calls that add its attributes.
    /// Throws: nex_AssertException when its type id is taken.
    static cls_ClassMetadata& AddClassMD(std::unique_ptr<cls_ClassMetadata> metadata);
    /// The class of a type id; null when nobody registered it.
    static const cls_ClassMetadata* FindClassMD(int typeId);
};

/// The form of registration functions that this library calls: no arguments, all work through `cls_ClassRegistrar`.
inline constexpr int cls_RegistrationForm = 2;

/// Runs the registration functions of the libraries, each one once in the life of the process however often its
/// library is started. Reached through `omi_Singleton`.
class cls_MetadataRegistrar
{
public:
    /// Throws: nex_AssertException for another form than `cls_RegistrationForm`.
    void initClassMetadata(void (*function)(), int form);

private:
    std::vector<void (*)()> m_Done;
};
