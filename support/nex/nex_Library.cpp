#include "nex_Library.h"

#include "cls_ClassMetadata.h"
#include "mem_Library.h"
#include "nex_Exception.h"
#include "nex_StoredException.h"
#include "omi_Singleton.h"

#include <iterator>

static mem_LibraryCalls s_Calls;

void nex_initialize(int& count)
{
    if (!s_Calls.Enter(count)) return;
    const typ_Entry rows[] = {
        {typ_KindNone, typ_NoBase, nullptr},
        {typ_KindClass, typ_NoBase, "nex_Exception"},
        {typ_KindClass, nex_Exception::TypeId(), "nex_TextException"},
        {typ_KindClass, nex_Exception::TypeId(), "nex_AssertException"},
        {typ_KindClass, nex_Exception::TypeId(), "nex_CommandException"},
    };
    typ_ArchCompTable::InsertEntry(nex_LibraryNumber, typ_ArchCompEntry(rows, std::size(rows)));
    omi_Singleton<cls_MetadataRegistrar>::Instance().initClassMetadata(nex_DefineExceptionClasses,
                                                                       cls_RegistrationForm);
}

void nex_finalize(int& count) { s_Calls.Leave(count); }
