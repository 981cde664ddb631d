#include "mdl_StoredClasses.h"

#include "cls_ClassMetadata.h"
#include "cls_TypeAdapter.h"
#include "mdl_Repository.h"

static constexpr int kClassVersion = 1;

void mdl_DefineClasses()
{
    static const cls_TypeAdapter<mdl_Repository> s_Repository;
    cls_ClassRegistrar::AddClassMD(std::make_unique<cls_ClassMetadata>(
        "mdl_Repository", mdl_Repository::TypeId(), kClassVersion, &s_Repository, typ_NoBase));
}
