#include "rds_Library.h"

#include "mem_Library.h"
#include "rds_RemoteConnectionsRep.h"
#include "rds_StoredClasses.h"

#include <iterator>

static mem_LibraryCalls s_Calls;

static void InsertTypes()
{
    const typ_Entry rows[] = {
        {typ_KindNone, typ_NoBase, nullptr},
        {typ_KindClass, typ_NoBase, "rds_RemoteConnection"},
        {typ_KindClass, mdl_Repository::TypeId(), "rds_RemoteConnectionsContainer"},
    };
    typ_ArchCompTable::InsertEntry(rds_LibraryNumber, typ_ArchCompEntry(rows, std::size(rows)));
}

void rds_initialize(int& count)
{
    if (!s_Calls.Enter(count)) return;
    InsertTypes();
    omi_Singleton<rds_RemoteConnectionsRep>::Instance().SetRepository(rds_RemoteConnections());
    cls_MetadataRegistrar& registrar = omi_Singleton<cls_MetadataRegistrar>::Instance();
    registrar.initClassMetadata(rds_DefineRemoteConnectionClass, cls_RegistrationForm);
    registrar.initClassMetadata(rds_DefineConnectionsContainerClass, cls_RegistrationForm);
}

void rds_finalize(int& count)
{
    if (s_Calls.Leave(count)) rds_RemoteConnectionsRep::DeleteInstance();
}
