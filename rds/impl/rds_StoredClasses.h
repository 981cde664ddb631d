#pragma once

// The classes of this library as stored objects: the library's number, the rows of its table, and the attributes of a
// connection.

#include "cls_ClassMetadata.h"
#include "typ_ArchCompTable.h"

inline constexpr int rds_LibraryNumber = 845;
inline constexpr int rds_RowRemoteConnection = 1;
inline constexpr int rds_RowConnectionsContainer = 2;
inline constexpr int rds_ClassVersion = 800;

inline constexpr cls_FieldHandle rds_ServerPortNumberField(0, "m_ServerPortNumber");
inline constexpr cls_FieldHandle rds_ConnectPortNumberField(1, "m_ConnectPortNumber");
inline constexpr cls_FieldHandle rds_HostNameField(2, "m_HostName");
inline constexpr cls_FieldHandle rds_DirectoryField(3, "m_Directory");
inline constexpr cls_FieldHandle rds_NameField(4, "m_Name");
inline constexpr cls_FieldHandle rds_RemoteMarlekDriverNameField(5, "m_RemoteMarlekDriverName");
inline constexpr cls_FieldHandle rds_TimeOutField(6, "m_TimeOut");
inline constexpr cls_FieldHandle rds_StartRemoteServerField(7, "m_StartRemoteServer");
inline constexpr cls_FieldHandle rds_RemoteConnectionStatusField(8, "m_RemoteConnectionStatus");
inline constexpr cls_FieldHandle rds_TransientField(9, "m_Transient");
inline constexpr cls_FieldHandle rds_RemoteLoginMechanismField(10, "m_RemoteLoginMechanism");
inline constexpr cls_FieldHandle rds_sshExecPathField(11, "m_sshExecPath");
inline constexpr cls_FieldHandle rds_qlnsrvdKeyField(12, "qlnsrvdKey");

void rds_DefineRemoteConnectionClass();
void rds_DefineConnectionsContainerClass();
