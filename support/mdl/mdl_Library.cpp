#include "mdl_Library.h"

#include "cls_ClassMetadata.h"
#include "mdl_StoredClasses.h"
#include "mem_Library.h"
#include "omi_Singleton.h"

#include <iterator>

static mem_LibraryCalls s_Calls;

void mdl_initialize(int& count)
{
    if (!s_Calls.Enter(count)) return;
    const typ_Entry rows[] = {
        {typ_KindNone, typ_NoBase, nullptr},
        {typ_KindClass, typ_NoBase, "mdl_Repository"},
    };
    typ_ArchCompTable::InsertEntry(mdl_LibraryNumber, typ_ArchCompEntry(rows, std::size(rows)));
    omi_Singleton<cls_MetadataRegistrar>::Instance().initClassMetadata(mdl_DefineClasses,
                                                                       cls_RegistrationForm);
}

void mdl_finalize(int& count) { s_Calls.Leave(count); }
