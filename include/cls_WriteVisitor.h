#pragma once

#include "cls_FieldHandle.h"
#include "cls_Uid.h"
#include "cow_String.h"
#include "rfm_Export.h"

#include <iosfwd>
#include <memory>

class cls_WriteStreamRepr;

/// The writer of one object, handed by value to whatever writes a part of it. An object writes itself like this:
///
///     if (!visitor.StartWrite(TypeId(), m_Uid)) return;     // it is in the stream already
///     visitor.WriteInt(kSize, m_Size);
///     m_Map.DBWrite(visitor.Field(kMap));                   // an object inside this one
///
/// A part ends when the next one begins at its own level or above; nothing has to be closed.
/// Throws: nex_AssertException for an attribute that the class's metadata doesn't have, or has with another type, for
/// one that is written twice, and for an object inside itself. The stream is of no use then.
/// Threads: belongs to the thread that made the stream. It must not outlive the stream.
class RFM_EXPORT cls_WriteVisitor
{
public:
    /// Begins an object of the given class. False when the object with this identity was written already: the stream
    /// then refers to it, and nothing more is to be written for it. An empty `uid` gets its number here.
    /// Throws: nex_AssertException for a class without metadata.
    bool StartWrite(int typeId, const cls_Uid& uid) const;
    /// Says that there is no object of the class here.
    void WriteNone(int typeId) const;

    void WriteInt(const cls_FieldHandle& handle, int value) const;
    void WriteBool(const cls_FieldHandle& handle, bool value) const;
    /// A string, or the name of an enumeration's value.
    void WriteString(const cls_FieldHandle& handle, const cow_String& value) const;

    /// The writer of the part that the base class `typeId` has in this object.
    cls_WriteVisitor Base(int typeId) const;
    /// The writer of the object or collection that is this attribute.
    cls_WriteVisitor Field(const cls_FieldHandle& handle) const;
    /// The writer of the element with this key, in a collection.
    cls_WriteVisitor Element(const cow_String& key) const;
    /// Throws: nex_AssertException when what was begun last is no collection of this type.
    void CheckCollectionType(int collectionType) const;

private:
    friend class cls_WriteStream;
    enum class Place : unsigned char
    {
        Top,
        Base,
        Field,
        Element,
    };
    cls_WriteVisitor(cls_WriteStreamRepr& stream, int depth, Place place) noexcept
        : m_Stream(&stream),
          m_Depth(depth),
          m_Place(place)
    {
    }
    // For what lies one level deeper: base class's part, field or element.
    cls_WriteVisitor Inner(Place place) const noexcept { return {*m_Stream, m_Depth + 1, place}; }
    int EnterPlace(int typeId) const;

    cls_WriteStreamRepr* m_Stream;
    int m_Depth; // how many objects are around the one that this visitor writes
    Place m_Place;
    int m_TypeId = 0;                    // of a base class's part
    cls_FieldHandle m_Handle = {-1, ""}; // of a field
    cow_String m_Key;                    // of an element
};

/// A stream of objects in the making. Everything is gathered in memory; `Bytes` gives the stream.
/// Threads: belongs to one thread.
class RFM_EXPORT cls_WriteStream
{
public:
    cls_WriteStream();
    ~cls_WriteStream();
    cls_WriteStream(const cls_WriteStream&) = delete;
    cls_WriteStream& operator=(const cls_WriteStream&) = delete;

    /// The writer of the objects of the stream, one after the other.
    cls_WriteVisitor Visitor();
    /// Ends what is still open, and gives the whole stream.
    cow_String Bytes();
    /// The same into `target`.
    /// Throws: nex_TextException when it doesn't take them.
    void WriteTo(std::ostream& target);

private:
    std::unique_ptr<cls_WriteStreamRepr> m_Repr;
};
