#include "cls_ReadStreamRepr.h"

#include <algorithm>

cls_ReadStreamRepr::cls_ReadStreamRepr(std::string_view stream)
{
    cls_BodyCursor cursor(cls_UnwrapBody(stream));
    while (!cursor.AtEnd()) m_Top.push_back(TakeObject(cursor, 0, 0));
    for (const int object : m_Numbered) Owner(object).uid.NewUid();
}

cls_ReadStreamRepr::Place cls_ReadStreamRepr::TakeObject(cls_BodyCursor& cursor, int collectionType,
                                                         int depth)
{
    const std::uint32_t mark = cursor.TakeNumber();
    if (mark == cls_ObjectNone) return {-1, ClassAt(TakeClass(cursor)).typeId};
    if (mark != cls_ObjectNew) return Reference(mark - cls_ObjectNew, collectionType);
    const int object = TakeContent(cursor, collectionType, depth, false);
    return {object, ClassOf(ObjectAt(object)).typeId};
}

// An object can be referred to once it has ended: one that held itself could never be made.
cls_ReadStreamRepr::Place cls_ReadStreamRepr::Reference(std::uint32_t number, int collectionType) const
{
    if (number > m_Numbered.size()) cls_ThrowDamaged("it refers to an object that it does not hold");
    const int index = m_Numbered[number - 1];
    const Object& object = ObjectAt(index);
    if (!object.ended) cls_ThrowDamaged("an object lies inside itself");
    if (object.collectionType != collectionType)
        cls_ThrowDamaged("it refers to a collection of another type");
    return {index, ClassOf(object).typeId};
}

int cls_ReadStreamRepr::TakeContent(cls_BodyCursor& cursor, int collectionType, int depth, bool isPart)
{
    if (depth >= cls_DeepestObject) cls_ThrowDamaged("its objects lie too deep in each other");
    const int owner = static_cast<int>(m_Objects.size());
    m_Objects.push_back({.itsClass = 0,
                         .collectionType = collectionType,
                         .ended = false,
                         .base = -1,
                         .values = {},
                         .elements = {},
                         .uid = {}});
    if (!isPart) m_Numbered.push_back(owner);
    Owner(owner).itsClass = TakeClass(cursor);
    AttributeSet met;
    for (std::uint32_t item = cursor.TakeNumber(); item != cls_ItemEnd; item = cursor.TakeNumber())
    {
        if (item == cls_ItemBase)
            TakeBase(cursor, owner, depth);
        else if (item == cls_ItemElement)
            TakeElement(cursor, owner, depth);
        else
            TakeAttribute(cursor, owner, met, item - cls_ItemFirstAttribute, depth);
    }
    Owner(owner).ended = true;
    return owner;
}

int cls_ReadStreamRepr::TakeClass(cls_BodyCursor& cursor)
{
    const std::uint32_t number = cursor.TakeNumber();
    if (number < m_Classes.size()) return static_cast<int>(number);
    if (number > m_Classes.size()) cls_ThrowDamaged("it refers to a class that it does not describe");
    const int typeId = static_cast<int>(cursor.TakeNumber());
    const int versionNumber = static_cast<int>(cursor.TakeNumber());
    cursor.TakeText(); // the name is for whoever looks into the stream
    if (!m_ClassNumbers.try_emplace(typeId, static_cast<int>(number)).second)
        cls_ThrowDamaged("it describes a class twice");
    m_Classes.push_back({typeId, versionNumber, {}, {}});
    return static_cast<int>(number);
}

void cls_ReadStreamRepr::TakeBase(cls_BodyCursor& cursor, int owner, int depth)
{
    if (Owner(owner).base >= 0) cls_ThrowDamaged("an object has two parts of a base class");
    const int base = TakeContent(cursor, 0, depth + 1, true);
    Owner(owner).base = base;
}

void cls_ReadStreamRepr::TakeElement(cls_BodyCursor& cursor, int owner, int depth)
{
    if (Owner(owner).collectionType == 0) cls_ThrowDamaged("an object that is no collection has elements");
    const cow_String key(cursor.TakeText());
    const Place place = TakeObject(cursor, 0, depth + 1);
    Owner(owner).elements.push_back({key, place});
}

void cls_ReadStreamRepr::TakeAttribute(cls_BodyCursor& cursor, int owner, AttributeSet& met,
                                       std::uint32_t number, int depth)
{
    if (Owner(owner).collectionType != 0) cls_ThrowDamaged("a collection has attributes");
    Class& itsClass = m_Classes[static_cast<std::size_t>(Owner(owner).itsClass)];
    if (number > itsClass.attributes.size())
        cls_ThrowDamaged("it refers to an attribute that it does not name");
    if (number == itsClass.attributes.size()) TakeAttributeName(cursor, itsClass);
    if (!met.insert(number).second) cls_ThrowDamaged("an object has an attribute twice");
    const Attribute attribute =
        itsClass.attributes[number]; // what follows may bring new classes and so move this one
    Value value = TakeValue(cursor, attribute, depth);
    value.attribute = static_cast<int>(number);
    Owner(owner).values.push_back(std::move(value));
}

void cls_ReadStreamRepr::TakeAttributeName(cls_BodyCursor& cursor, Class& itsClass)
{
    const cow_String name(cursor.TakeText());
    const auto kind = static_cast<cls_StreamKind>(cursor.TakeByte());
    if (kind < cls_StreamKind::Integer || kind > cls_StreamKind::Collection)
        cls_ThrowDamaged("an attribute is of an unknown kind");
    int collectionType = 0;
    if (kind == cls_StreamKind::Collection) collectionType = static_cast<int>(cursor.TakeNumber());
    if ((kind == cls_StreamKind::Collection) != (collectionType != 0))
        cls_ThrowDamaged("a collection has no type");
    const int next = static_cast<int>(itsClass.attributes.size());
    if (!itsClass.attributeNumbers.try_emplace(name, next).second)
        cls_ThrowDamaged("a class has two attributes of one name");
    itsClass.attributes.push_back({kind, collectionType});
}

cls_ReadStreamRepr::Value cls_ReadStreamRepr::TakeValue(cls_BodyCursor& cursor, const Attribute& attribute,
                                                        int depth)
{
    Value value{.attribute = 0, .number = 0, .place = {-1, 0}, .text = {}};
    switch (attribute.kind)
    {
    case cls_StreamKind::Integer: value.number = cls_Unfolded(cursor.TakeNumber()); break;
    case cls_StreamKind::Boolean:
        value.number = cursor.TakeByte();
        if (value.number > 1) cls_ThrowDamaged("a boolean is neither 0 nor 1");
        break;
    case cls_StreamKind::Text: value.text = cow_String(cursor.TakeText()); break;
    case cls_StreamKind::Object:
    case cls_StreamKind::Collection:
        value.place = TakeObject(cursor, attribute.collectionType, depth + 1);
        break;
    }
    return value;
}

const cls_ReadStreamRepr::Value* cls_ReadStreamRepr::Find(const Object& object, const char* name,
                                                          cls_StreamKind kind) const
{
    const Class& itsClass = ClassOf(object);
    const auto number = itsClass.attributeNumbers.find(name);
    if (number == itsClass.attributeNumbers.end()) return nullptr;
    const auto value =
        std::find_if(object.values.begin(), object.values.end(),
                     [&](const Value& candidate) { return candidate.attribute == number->second; });
    if (value == object.values.end()) return nullptr;
    const cls_StreamKind stored = itsClass.attributes[static_cast<std::size_t>(number->second)].kind;
    if ((stored == cls_StreamKind::Collection ? cls_StreamKind::Object : stored) != kind)
        cls_ThrowDamaged("an attribute is of another kind than its class has it");
    return &*value;
}
