#include "mdl_Repository.h"

#include "cls_WriteVisitor.h"
#include "mdl_StoredClasses.h"
#include "omi_TimeCounter.h"

mdl_Extension::~mdl_Extension() = default;
mdl_Repository::~mdl_Repository() = default;

mdl_Repository::mdl_Repository() : m_MadeAt(omi_gettimecounter()) {}
mdl_Repository::mdl_Repository(const mdl_Repository& source)
    : mdl_Extension(source),
      m_MadeAt(omi_gettimecounter())
{
}
mdl_Repository::mdl_Repository(const cls_ReadVisitor&) : mdl_Repository() {}

int mdl_Repository::TypeId() noexcept { return typ_TypeId(mdl_LibraryNumber, mdl_RowRepository); }
mdl_Repository* mdl_Repository::Copy() const { return new mdl_Repository(*this); }
void mdl_Repository::DBWrite(const cls_WriteVisitor& visitor) const { visitor.StartWrite(TypeId(), m_Uid); }
void mdl_Repository::NewUid() { m_Uid.NewUid(); }
