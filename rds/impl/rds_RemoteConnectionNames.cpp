#include "rds_RemoteConnection.h"

// The one source of these names.

using Word = omn_FixedString;

Word rds_RemoteConnection::remoteConnectionsCmd() noexcept { return Word("networkDatabaseConnectors"); }
Word rds_RemoteConnection::constructorCmd() noexcept { return Word("NetworkDatabaseConnector"); }

Word rds_RemoteConnection::SetValuesMth() noexcept { return Word("setValues"); }
Word rds_RemoteConnection::SetqlnsrvdKeyMth() noexcept { return Word("_setqlnsrvdKey"); }
Word rds_RemoteConnection::SetConnectionStatusMth() noexcept { return Word("_setConnectionStatus"); }
Word rds_RemoteConnection::StartRemoteFileServerMth() noexcept { return Word("start"); }
Word rds_RemoteConnection::StopRemoteFileServerMth() noexcept { return Word("stop"); }

Word rds_RemoteConnection::GetNameCmd() noexcept { return Word("name"); }
Word rds_RemoteConnection::GetHostNameCmd() noexcept { return Word("hostName"); }
Word rds_RemoteConnection::GetDirectoryNameCmd() noexcept { return Word("directory"); }
Word rds_RemoteConnection::GetServerTimeoutCmd() noexcept { return Word("serverTimeout"); }
Word rds_RemoteConnection::GetServerPortCmd() noexcept { return Word("serverPort"); }
Word rds_RemoteConnection::GetConnectionPortCmd() noexcept { return Word("connectionPort"); }
Word rds_RemoteConnection::GetConnectionStatusCmd() noexcept { return Word("connected"); }
Word rds_RemoteConnection::GetStartServerCmd() noexcept { return Word("allowAutomaticStartup"); }
Word rds_RemoteConnection::GetRemoteMarlekDriverNameCmd() noexcept { return Word("remoteMarlekDriverName"); }
Word rds_RemoteConnection::GetRemoteLoginMechanismCmd() noexcept { return Word("remoteLoginMechanism"); }
Word rds_RemoteConnection::GetsshExecPathCmd() noexcept { return Word("sshPath"); }
Word rds_RemoteConnection::GetqlnsrvdKeyCmd() noexcept { return Word("qlnsrvdKey"); }
