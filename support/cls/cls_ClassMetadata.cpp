#include "cls_ClassMetadata.h"

#include "cls_TypeAdapter.h"
#include "nex_Exception.h"
#include "omi_Singleton.h"

#include <algorithm>
#include <cstring>
#include <map>

cls_Adapter::~cls_Adapter() = default;

cls_ClassMetadata::cls_ClassMetadata(const char* name, int typeId, int versionNumber,
                                     const cls_Adapter* constructor, int baseType)
    : m_Name(name),
      m_TypeId(typeId),
      m_VersionNumber(versionNumber),
      m_Constructor(constructor),
      m_BaseType(baseType)
{
}

cls_ClassMetadata::~cls_ClassMetadata() = default;

cls_ClassMetadata& cls_ClassMetadata::AddAttribute(const cls_FieldHandle& handle,
                                                   cls_AttributeType attributeType, int number,
                                                   int collectionType)
{
    if (FindAttribute(handle.Name()) != nullptr) nex_ThrowAssert("FindAttribute(handle.Name()) == nullptr");
    m_Attributes.push_back({handle, attributeType, number, collectionType});
    return *this;
}

cls_ClassMetadata& cls_ClassMetadata::AddDtor(void (*function)(void* handle))
{
    m_Dtor = function;
    return *this;
}

void* cls_ClassMetadata::Ctor(const cls_ReadVisitor& reader) const
{
    if (m_Constructor == nullptr) nex_ThrowAssert("m_Constructor != nullptr");
    return m_Constructor->Ctor(reader);
}

void cls_ClassMetadata::DeleteCow(void* handle) const
{
    if (m_Dtor == nullptr) nex_ThrowAssert("m_Dtor != nullptr");
    m_Dtor(handle);
}

const cls_Attribute* cls_ClassMetadata::FindAttribute(const char* name) const
{
    const auto found = std::find_if(m_Attributes.begin(), m_Attributes.end(),
                                    [name](const cls_Attribute& attribute)
                                    { return std::strcmp(attribute.handle.Name(), name) == 0; });
    return found != m_Attributes.end() ? &*found : nullptr;
}

namespace
{
struct Store
{
    std::map<int, std::unique_ptr<cls_ClassMetadata>> classes;
};
} // namespace

cls_ClassMetadata& cls_ClassRegistrar::AddClassMD(std::unique_ptr<cls_ClassMetadata> metadata)
{
    const int typeId = metadata->TypeId();
    const auto [place, added] =
        omi_Singleton<Store>::Instance().classes.try_emplace(typeId, std::move(metadata));
    if (!added) nex_ThrowAssert("FindClassMD(metadata->TypeId()) == nullptr");
    return *place->second;
}

const cls_ClassMetadata* cls_ClassRegistrar::FindClassMD(int typeId)
{
    const auto& classes = omi_Singleton<Store>::Instance().classes;
    const auto found = classes.find(typeId);
    return found != classes.end() ? found->second.get() : nullptr;
}

void cls_MetadataRegistrar::initClassMetadata(void (*function)(), int form)
{
    if (form != cls_RegistrationForm) nex_ThrowAssert("form == cls_RegistrationForm");
    if (std::find(m_Done.begin(), m_Done.end(), function) != m_Done.end()) return;
    function();
    m_Done.push_back(function);
}
