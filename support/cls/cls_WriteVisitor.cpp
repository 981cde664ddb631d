#include "cls_WriteVisitor.h"

#include "atr_Translate.h"
#include "cls_ClassMetadata.h"
#include "cls_StreamFormat.h"
#include "nex_Exception.h"

#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

// The body of a stream in the making. The objects that were begun and have not ended lie on a stack, the outermost
// first: m_Open[d] is inside d others.
class cls_WriteStreamRepr
{
public:
    void EndDeeperThan(int depth)
    {
        for (; std::ssize(m_Open) > depth; m_Open.pop_back()) Append(cls_ItemEnd);
    }

    // Ends what lies deeper than the object at `depth`, and checks that this one was begun.
    void ReturnTo(int depth)
    {
        EndDeeperThan(depth + 1);
        if (std::ssize(m_Open) != depth + 1) nex_ThrowAssert("StartWrite(typeId, uid)");
    }

    void Append(std::uint32_t number) { cls_AppendNumber(m_Body, number); }
    void AppendText(std::string_view text) { cls_AppendText(m_Body, text); }

    const cls_Attribute& AppendAttribute(const cls_FieldHandle& handle, bool (*fits)(cls_AttributeType));
    void AppendClass(int typeId, const cls_ClassMetadata* metadata);
    bool AppendReference(const cls_Uid& uid);
    void Begin(int typeId, int collectionType, const cls_Uid& uid);
    int CollectionType() const { return m_Open.back().collectionType; }
    const std::string& Body() const noexcept { return m_Body; }

private:
    struct Class
    {
        std::uint32_t number;
        const cls_ClassMetadata* metadata; // null for the type of a collection
        std::map<std::string_view, std::uint32_t> attributes;
    };
    struct Open
    {
        Class* itsClass;
        int collectionType; // 0 for a single object
        cls_Uid uid;
        std::set<std::uint32_t> written;
    };

    std::string m_Body;
    std::map<int, Class> m_Classes; // a node's address stays
    std::map<cls_Uid, std::uint32_t> m_Objects;
    std::vector<Open> m_Open;
};

static cls_StreamKind KindOf(const cls_Attribute& attribute)
{
    switch (attribute.type)
    {
    case cls_AttributeInteger: return cls_StreamKind::Integer;
    case cls_AttributeBoolean: return cls_StreamKind::Boolean;
    case cls_AttributeString:
    case cls_AttributeEnumeration: return cls_StreamKind::Text;
    case cls_AttributeObject: break;
    }
    return attribute.collectionType == 0 ? cls_StreamKind::Object : cls_StreamKind::Collection;
}

// The tag of an attribute of the innermost open object, and its name and kind when the class had none of it yet.
const cls_Attribute& cls_WriteStreamRepr::AppendAttribute(const cls_FieldHandle& handle,
                                                          bool (*fits)(cls_AttributeType))
{
    Open& open = m_Open.back();
    if (open.itsClass->metadata == nullptr) nex_ThrowAssert("CollectionType() == 0");
    const cls_Attribute* attribute = open.itsClass->metadata->FindAttribute(handle.Name());
    if (attribute == nullptr) nex_ThrowAssert("metadata->FindAttribute(handle.Name()) != nullptr");
    if (!fits(attribute->type)) nex_ThrowAssert("fits(attribute->type)");
    const auto next = static_cast<std::uint32_t>(open.itsClass->attributes.size());
    const auto [known, isNew] = open.itsClass->attributes.try_emplace(attribute->handle.Name(), next);
    if (!open.written.insert(known->second).second) nex_ThrowAssert("written.insert(attribute).second");
    Append(known->second + cls_ItemFirstAttribute);
    if (!isNew) return *attribute;
    AppendText(handle.Name());
    const cls_StreamKind kind = KindOf(*attribute);
    m_Body += static_cast<char>(kind);
    if (kind == cls_StreamKind::Collection) Append(static_cast<std::uint32_t>(attribute->collectionType));
    return *attribute;
}

void cls_WriteStreamRepr::AppendClass(int typeId, const cls_ClassMetadata* metadata)
{
    const auto next = static_cast<std::uint32_t>(m_Classes.size());
    const auto [known, isNew] = m_Classes.try_emplace(typeId, Class{next, metadata, {}});
    Append(known->second.number);
    if (!isNew) return;
    Append(static_cast<std::uint32_t>(typeId));
    Append(metadata != nullptr ? static_cast<std::uint32_t>(metadata->VersionNumber()) : 0);
    AppendText(metadata != nullptr ? metadata->Name().View() : std::string_view());
}

// False when the object was not written yet.
bool cls_WriteStreamRepr::AppendReference(const cls_Uid& uid)
{
    const auto known = m_Objects.find(uid);
    if (known == m_Objects.end()) return false;
    for (const Open& open : m_Open)
        if (open.uid == uid) nex_ThrowAssert("open.uid != uid"); // a reader could not make it
    Append(known->second + cls_ObjectNew);
    return true;
}

// An object that shares nothing, such as a base class's part, has an empty identity.
void cls_WriteStreamRepr::Begin(int typeId, int collectionType, const cls_Uid& uid)
{
    if (std::ssize(m_Open) >= cls_DeepestObject) nex_ThrowAssert("depth < cls_DeepestObject");
    const cls_ClassMetadata* metadata = nullptr;
    if (collectionType == 0)
    {
        metadata = cls_ClassRegistrar::FindClassMD(typeId);
        if (metadata == nullptr) nex_ThrowAssert("cls_ClassRegistrar::FindClassMD(typeId) != nullptr");
    }
    if (!uid.IsEmpty())
    {
        Append(cls_ObjectNew);
        m_Objects.emplace(uid, static_cast<std::uint32_t>(m_Objects.size() + 1));
    }
    AppendClass(typeId, metadata);
    m_Open.push_back({&m_Classes.at(typeId), collectionType, uid, {}});
}

// Everything in front of the object itself; answers its type of collection.
int cls_WriteVisitor::EnterPlace(int typeId) const
{
    if (m_Place == Place::Top)
    {
        m_Stream->EndDeeperThan(0);
        return 0;
    }
    m_Stream->ReturnTo(m_Depth - 1);
    if (m_Place == Place::Base)
    {
        if (m_TypeId != typeId) nex_ThrowAssert("m_TypeId == typeId");
        m_Stream->Append(cls_ItemBase);
        return 0;
    }
    if (m_Place == Place::Element)
    {
        if (m_Stream->CollectionType() == 0) nex_ThrowAssert("CollectionType() != 0");
        m_Stream->Append(cls_ItemElement);
        m_Stream->AppendText(m_Key.View());
        return 0;
    }
    const cls_Attribute& attribute = m_Stream->AppendAttribute(m_Handle, [](cls_AttributeType type)
                                                               { return type == cls_AttributeObject; });
    if (attribute.number != typeId) nex_ThrowAssert("attribute.number == typeId");
    return attribute.collectionType;
}

bool cls_WriteVisitor::StartWrite(int typeId, const cls_Uid& uid) const
{
    const int collectionType = EnterPlace(typeId);
    if (m_Place == Place::Base)
    {
        m_Stream->Begin(typeId, collectionType, cls_Uid());
        return true;
    }
    uid.AllocateUid();
    if (m_Stream->AppendReference(uid)) return false;
    m_Stream->Begin(typeId, collectionType, uid);
    return true;
}

void cls_WriteVisitor::WriteNone(int typeId) const
{
    EnterPlace(typeId);
    m_Stream->Append(cls_ObjectNone);
    m_Stream->AppendClass(typeId, cls_ClassRegistrar::FindClassMD(typeId));
}

void cls_WriteVisitor::WriteInt(const cls_FieldHandle& handle, int value) const
{
    m_Stream->ReturnTo(m_Depth);
    m_Stream->AppendAttribute(handle, [](cls_AttributeType type) { return type == cls_AttributeInteger; });
    m_Stream->Append(cls_Folded(value));
}

void cls_WriteVisitor::WriteBool(const cls_FieldHandle& handle, bool value) const
{
    m_Stream->ReturnTo(m_Depth);
    m_Stream->AppendAttribute(handle, [](cls_AttributeType type) { return type == cls_AttributeBoolean; });
    m_Stream->Append(value ? 1 : 0);
}

void cls_WriteVisitor::WriteString(const cls_FieldHandle& handle, const cow_String& value) const
{
    m_Stream->ReturnTo(m_Depth);
    m_Stream->AppendAttribute(handle, [](cls_AttributeType type)
                              { return type == cls_AttributeString || type == cls_AttributeEnumeration; });
    m_Stream->AppendText(value.View());
}

cls_WriteVisitor cls_WriteVisitor::Base(int typeId) const
{
    cls_WriteVisitor base = Inner(Place::Base);
    base.m_TypeId = typeId;
    return base;
}

cls_WriteVisitor cls_WriteVisitor::Field(const cls_FieldHandle& handle) const
{
    cls_WriteVisitor field = Inner(Place::Field);
    field.m_Handle = handle;
    return field;
}

cls_WriteVisitor cls_WriteVisitor::Element(const cow_String& key) const
{
    cls_WriteVisitor element = Inner(Place::Element);
    element.m_Key = key;
    return element;
}

void cls_WriteVisitor::CheckCollectionType(int collectionType) const
{
    m_Stream->ReturnTo(m_Depth);
    if (m_Stream->CollectionType() != collectionType) nex_ThrowAssert("CollectionType() == collectionType");
}

cls_WriteStream::cls_WriteStream() : m_Repr(std::make_unique<cls_WriteStreamRepr>()) {}
cls_WriteStream::~cls_WriteStream() = default;

cls_WriteVisitor cls_WriteStream::Visitor() { return {*m_Repr, 0, cls_WriteVisitor::Place::Top}; }

cow_String cls_WriteStream::Bytes()
{
    m_Repr->EndDeeperThan(0);
    return cow_String(std::string_view(cls_WrapBody(m_Repr->Body())));
}

void cls_WriteStream::WriteTo(std::ostream& target)
{
    const cow_String bytes = Bytes();
    target.write(bytes.CString(), bytes.Length());
    if (!target) nex_ThrowText(atr_Message("*** Error: The stream of objects can't be written."));
}
