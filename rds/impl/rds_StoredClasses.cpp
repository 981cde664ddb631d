#include "rds_StoredClasses.h"

#include "cls_TypeAdapter.h"
#include "rds_RemoteConnection.h"
#include "rds_RemoteConnectionsRep.h"

void rds_DefineRemoteConnectionClass()
{
    static const cls_TypeAdapter<rds_RemoteConnection> s_Adapter;
    cls_ClassRegistrar::AddClassMD(
        std::make_unique<cls_ClassMetadata>("rds_RemoteConnection", rds_RemoteConnection::TypeId(),
                                            rds_ClassVersion, &s_Adapter, typ_NoBase))
        .AddDtor([](void* handle) { s_Adapter.DeleteCow(handle); })
        .AddAttribute(rds_ServerPortNumberField, cls_AttributeInteger, 1, 0)
        .AddAttribute(rds_ConnectPortNumberField, cls_AttributeInteger, 1, 0)
        .AddAttribute(rds_HostNameField, cls_AttributeString, 1, 0)
        .AddAttribute(rds_DirectoryField, cls_AttributeString, 1, 0)
        .AddAttribute(rds_NameField, cls_AttributeString, 1, 0)
        .AddAttribute(rds_RemoteMarlekDriverNameField, cls_AttributeString, 1, 0)
        .AddAttribute(rds_TimeOutField, cls_AttributeInteger, 1, 0)
        .AddAttribute(rds_StartRemoteServerField, cls_AttributeBoolean, 1, 0)
        .AddAttribute(rds_RemoteConnectionStatusField, cls_AttributeEnumeration, 1, 0)
        .AddAttribute(rds_TransientField, cls_AttributeBoolean, 1, 0)
        .AddAttribute(rds_RemoteLoginMechanismField, cls_AttributeEnumeration, 1, 0)
        .AddAttribute(rds_sshExecPathField, cls_AttributeString, 1, 0)
        .AddAttribute(rds_qlnsrvdKeyField, cls_AttributeString, 1, 0);
}

void rds_DefineConnectionsContainerClass()
{
    static const cls_TypeAdapter<rds_RemoteConnections> s_Adapter;
    cls_ClassRegistrar::AddClassMD(
        std::make_unique<cls_ClassMetadata>("rds_RemoteConnectionsContainer", rds_RemoteConnections::TypeId(),
                                            rds_ClassVersion, &s_Adapter, mdl_Repository::TypeId()))
        .AddAttribute(mdl_MapField, cls_AttributeObject, mdl_MapTypeId, mdl_MapCollectionType);
}
