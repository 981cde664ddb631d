#pragma once

#include "cls_FieldHandle.h"
#include "cls_Uid.h"
#include "cow_String.h"
#include "rfm_Export.h"

#include <iosfwd>
#include <memory>

class cls_ReadStreamRepr;

/// Stands on one object of a stream, or on none, and reads its attributes by name, in any order. An attribute that the
/// stored object lacks has the default that the call gives; attributes that nobody asks for are passed over.
/// Throws: nex_TextException when an attribute is stored as something else than asked for.
/// Threads: belongs to the thread that made the stream. It must not outlive the stream.
class RFM_EXPORT cls_ReadVisitor
{
public:
    bool IsNone() const noexcept { return m_Object < 0; }
    /// The type id of the object, or that of the object that could be here.
    int TypeId() const;
    /// The version of its class as it was stored; 0 for none.
    int VersionNumber() const;
    /// The object's identity in this process: the same one however often, and from wherever, the object is reached,
    /// so that a reader can make it once. Not the identity with which it was written. Empty for none.
    cls_Uid GetUid() const;

    int ReadInt(const cls_FieldHandle& handle, int absent) const;
    bool ReadBool(const cls_FieldHandle& handle, bool absent) const;
    /// A string, or the name of an enumeration's value. All reads of one stored text share it.
    cow_String ReadString(const cls_FieldHandle& handle, const cow_String& absent) const;

    /// On the part that the base class `typeId` has in this object.
    cls_ReadVisitor Base(int typeId) const;
    /// On the object or collection that is this attribute.
    cls_ReadVisitor Field(const cls_FieldHandle& handle) const;
    /// How many elements the collection has, and each one's key and object.
    int ElementCount() const;
    cow_String ElementKey(int index) const;
    cls_ReadVisitor Element(int index) const;
    /// Throws: nex_TextException when this is another type, or none.
    void CheckType(int typeId) const;
    /// Throws: nex_TextException when this is no collection of this type.
    void CheckCollectionType(int collectionType) const;

private:
    friend class cls_ReadStream;
    cls_ReadVisitor(const cls_ReadStreamRepr& stream, int object, int typeId) noexcept
        : m_Stream(&stream),
          m_Object(object),
          m_TypeId(typeId)
    {
    }

    const cls_ReadStreamRepr* m_Stream;
    int m_Object; // index in the stream; -1 for none
    int m_TypeId;
};

/// A stream of objects. It is read and judged whole before anything of it is handed out; it may hold anything.
/// Memory: a small multiple of the stream's length, whatever its numbers say.
/// Throws: nex_TextException for what is no stream of objects, is cut or changed, or of a later version.
/// Threads: belongs to one thread.
class RFM_EXPORT cls_ReadStream
{
public:
    explicit cls_ReadStream(const cow_String& bytes);
    /// Reads one stream from where `source` stands, and leaves what follows it.
    explicit cls_ReadStream(std::istream& source);
    ~cls_ReadStream();
    cls_ReadStream(const cls_ReadStream&) = delete;
    cls_ReadStream& operator=(const cls_ReadStream&) = delete;

    /// How many objects the stream holds, those inside others not counted.
    int Count() const noexcept;
    cls_ReadVisitor Visitor(int index) const;

private:
    std::unique_ptr<const cls_ReadStreamRepr> m_Repr;
};
