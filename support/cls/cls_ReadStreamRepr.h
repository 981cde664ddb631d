#pragma once

#include "cls_StreamFormat.h"
#include "cls_Uid.h"
#include "cow_String.h"

#include <deque>
#include <map>
#include <set>
#include <string_view>
#include <vector>

/// A stream of objects taken apart: all that it holds, in tables. Objects name each other by index, -1 is none.
class cls_ReadStreamRepr
{
public:
    /// Where an object could be.
    struct Place
    {
        int object; // -1 for none
        int typeId;
    };
    struct Attribute
    {
        cls_StreamKind kind;
        int collectionType;
    };
    struct Class
    {
        int typeId;
        int versionNumber;
        std::vector<Attribute> attributes;
        std::map<cow_String, int> attributeNumbers;
    };
    struct Value
    {
        int attribute;
        int number; // integer or boolean
        Place place;
        cow_String text;
    };
    struct Element
    {
        cow_String key;
        Place place;
    };
    struct Object
    {
        int itsClass;
        int collectionType;
        bool ended;
        int base; // the part of the base class; -1 for none
        std::vector<Value> values;
        std::vector<Element> elements;
        cls_Uid uid;
    };

    /// Throws: nex_TextException for a damaged stream.
    explicit cls_ReadStreamRepr(std::string_view stream);

    const std::vector<Place>& Top() const noexcept { return m_Top; }
    const Object& ObjectAt(int index) const { return m_Objects[static_cast<std::size_t>(index)]; }
    const Class& ClassOf(const Object& object) const { return ClassAt(object.itsClass); }
    /// The value of an attribute of this name and kind; null when the object has none of the name. A collection counts as
    /// an object.
    /// Throws: nex_TextException when it has one of another kind.
    const Value* Find(const Object& object, const char* name, cls_StreamKind kind) const;

private:
    using AttributeSet = std::set<std::uint32_t>; // of one object, by number

    const Class& ClassAt(int index) const { return m_Classes[static_cast<std::size_t>(index)]; }

    Place TakeObject(cls_BodyCursor& cursor, int collectionType, int depth);
    int TakeContent(cls_BodyCursor& cursor, int collectionType, int depth, bool isPart);
    int TakeClass(cls_BodyCursor& cursor);
    void TakeBase(cls_BodyCursor& cursor, int owner, int depth);
    void TakeElement(cls_BodyCursor& cursor, int owner, int depth);
    void TakeAttribute(cls_BodyCursor& cursor, int owner, AttributeSet& met, std::uint32_t number, int depth);
    void TakeAttributeName(cls_BodyCursor& cursor, Class& itsClass);
    Value TakeValue(cls_BodyCursor& cursor, const Attribute& attribute, int depth);
    Place Reference(std::uint32_t number, int collectionType) const;
    Object& Owner(int index) { return m_Objects[static_cast<std::size_t>(index)]; }

    std::vector<Class> m_Classes;
    std::map<int, int> m_ClassNumbers; // by type id
    std::deque<Object> m_Objects;      // parts of base classes among them; never copied to a larger place
    std::vector<int> m_Numbered;       // the objects that can be referred to
    std::vector<Place> m_Top;
};
