#include "omu_StoredClasses.h"

#include "cls_ClassMetadata.h"
#include "cls_TypeAdapter.h"
#include "nex_StoredException.h"
#include "omu_PrimEnum.h"
#include "omu_ValueErrorException.h"

static constexpr int kClassVersion = 1;

void omu_DefineClasses()
{
    cls_ClassRegistrar::AddClassMD(std::make_unique<cls_ClassMetadata>("omu_PrimEnum",
                                                                       omu_PrimEnumBase::TypeId(),
                                                                       kClassVersion, nullptr, typ_NoBase))
        .AddAttribute(omu_PrimEnumName, cls_AttributeEnumeration, 1, 0);
    static const cls_TypeAdapter<omu_ValueErrorException> s_ValueError;
    nex_AddStoredAttributes(cls_ClassRegistrar::AddClassMD(
        std::make_unique<cls_ClassMetadata>("omu_ValueErrorException", omu_ValueErrorException::TypeId(),
                                            kClassVersion, &s_ValueError, nex_CommandException::TypeId())));
}
