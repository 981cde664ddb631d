#include "cls_ReadVisitor.h"

#include "cls_ReadStreamRepr.h"
#include "nex_Exception.h"

#include <algorithm>
#include <istream>
#include <string>

int cls_ReadVisitor::TypeId() const { return m_TypeId; }

int cls_ReadVisitor::VersionNumber() const
{
    return IsNone() ? 0 : m_Stream->ClassOf(m_Stream->ObjectAt(m_Object)).versionNumber;
}

cls_Uid cls_ReadVisitor::GetUid() const { return IsNone() ? cls_Uid() : m_Stream->ObjectAt(m_Object).uid; }

int cls_ReadVisitor::ReadInt(const cls_FieldHandle& handle, int absent) const
{
    if (IsNone()) return absent;
    const auto* value = m_Stream->Find(m_Stream->ObjectAt(m_Object), handle.Name(), cls_StreamKind::Integer);
    return value != nullptr ? value->number : absent;
}

bool cls_ReadVisitor::ReadBool(const cls_FieldHandle& handle, bool absent) const
{
    if (IsNone()) return absent;
    const auto* value = m_Stream->Find(m_Stream->ObjectAt(m_Object), handle.Name(), cls_StreamKind::Boolean);
    return value != nullptr ? value->number != 0 : absent;
}

cow_String cls_ReadVisitor::ReadString(const cls_FieldHandle& handle, const cow_String& absent) const
{
    if (IsNone()) return absent;
    const auto* value = m_Stream->Find(m_Stream->ObjectAt(m_Object), handle.Name(), cls_StreamKind::Text);
    return value != nullptr ? value->text : absent;
}

cls_ReadVisitor cls_ReadVisitor::Base(int typeId) const
{
    if (IsNone()) return {*m_Stream, -1, typeId};
    const int base = m_Stream->ObjectAt(m_Object).base;
    if (base < 0 || m_Stream->ClassOf(m_Stream->ObjectAt(base)).typeId != typeId)
        return {*m_Stream, -1, typeId};
    return {*m_Stream, base, typeId};
}

cls_ReadVisitor cls_ReadVisitor::Field(const cls_FieldHandle& handle) const
{
    if (IsNone()) return {*m_Stream, -1, 0};
    const auto* value = m_Stream->Find(m_Stream->ObjectAt(m_Object), handle.Name(), cls_StreamKind::Object);
    return value != nullptr ? cls_ReadVisitor(*m_Stream, value->place.object, value->place.typeId)
                            : cls_ReadVisitor(*m_Stream, -1, 0);
}

int cls_ReadVisitor::ElementCount() const
{
    return IsNone() ? 0 : static_cast<int>(m_Stream->ObjectAt(m_Object).elements.size());
}

cow_String cls_ReadVisitor::ElementKey(int index) const
{
    if (index < 0 || index >= ElementCount()) nex_ThrowAssert("index >= 0 && index < ElementCount()");
    return m_Stream->ObjectAt(m_Object).elements[static_cast<std::size_t>(index)].key;
}

cls_ReadVisitor cls_ReadVisitor::Element(int index) const
{
    if (index < 0 || index >= ElementCount()) nex_ThrowAssert("index >= 0 && index < ElementCount()");
    const auto& place = m_Stream->ObjectAt(m_Object).elements[static_cast<std::size_t>(index)].place;
    return {*m_Stream, place.object, place.typeId};
}

void cls_ReadVisitor::CheckType(int typeId) const
{
    if (IsNone() || m_TypeId != typeId) cls_ThrowDamaged("an object is of another class than expected");
}

void cls_ReadVisitor::CheckCollectionType(int collectionType) const
{
    if (IsNone() || m_Stream->ObjectAt(m_Object).collectionType != collectionType)
        cls_ThrowDamaged("a collection is of another type than expected");
}

// What the source gives of `wanted` bytes. A length is only believed as far as there are bytes: no step asks for more
// memory than was read before, or than a small block.
static void Append(std::istream& source, std::uint64_t wanted, std::string& bytes)
{
    constexpr std::uint64_t kBlock = 65536;
    while (wanted > 0)
    {
        const auto step = static_cast<std::size_t>(std::min(wanted, kBlock));
        const std::size_t before = bytes.size();
        bytes.resize(before + step);
        source.read(bytes.data() + before, static_cast<std::streamsize>(step));
        const auto got = static_cast<std::size_t>(source.gcount());
        if (got < step) cls_ThrowDamaged("it ends before its end");
        wanted -= step;
    }
}

static std::string OneStream(std::istream& source)
{
    std::string bytes;
    Append(source, cls_StreamHeadBytes, bytes);
    Append(source, cls_StreamLength(bytes) - cls_StreamHeadBytes, bytes);
    return bytes;
}

cls_ReadStream::cls_ReadStream(const cow_String& bytes)
    : m_Repr(std::make_unique<cls_ReadStreamRepr>(bytes.View()))
{
}

cls_ReadStream::cls_ReadStream(std::istream& source)
    : m_Repr(std::make_unique<cls_ReadStreamRepr>(OneStream(source)))
{
}

cls_ReadStream::~cls_ReadStream() = default;

int cls_ReadStream::Count() const noexcept { return static_cast<int>(m_Repr->Top().size()); }

cls_ReadVisitor cls_ReadStream::Visitor(int index) const
{
    if (index < 0 || index >= Count()) nex_ThrowAssert("index >= 0 && index < Count()");
    const auto& place = m_Repr->Top()[static_cast<std::size_t>(index)];
    return {*m_Repr, place.object, place.typeId};
}
