#include "omu_Library.h"

#include "cls_ClassMetadata.h"
#include "mem_Library.h"
#include "nex_Exception.h"
#include "omi_Singleton.h"
#include "omu_StoredClasses.h"

#include <iterator>

static mem_LibraryCalls s_Calls;

void omu_initialize(int& count)
{
    if (!s_Calls.Enter(count)) return;
    const typ_Entry rows[] = {
        {typ_KindNone, typ_NoBase, nullptr},
        {typ_KindClass, typ_NoBase, "omu_PrimEnum"},
        {typ_KindClass, nex_CommandException::TypeId(), "omu_ValueErrorException"},
    };
    typ_ArchCompTable::InsertEntry(omu_LibraryNumber, typ_ArchCompEntry(rows, std::size(rows)));
    omi_Singleton<cls_MetadataRegistrar>::Instance().initClassMetadata(omu_DefineClasses,
                                                                       cls_RegistrationForm);
}

void omu_finalize(int& count) { s_Calls.Leave(count); }
