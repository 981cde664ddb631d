#pragma once

#include "cls_Uid.h"
#include "cow_COW.h"
#include "cow_String.h"
#include "omn_FixedString.h"
#include "omu_PrimEnum.h"
#include "rfm_Export.h"

class cls_ReadVisitor;
class cls_WriteVisitor;

/// Whether a service of the connection's server is in use, as far as this process knows.
enum class rds_RemoteConnectionStatusEnm
{
    DISCONNECTED = 0,
    CONNECTED = 1,
};

/// How the host is reached.
enum class rds_RemoteLoginMechanismEnm
{
    RSH = 0,
    SSH = 1,
};

template <> RFM_EXPORT const omu_PrimEnumEntry omu_PrimEnum<rds_RemoteConnectionStatusEnm, 1>::table[];
template <> RFM_EXPORT const omu_PrimEnumEntry omu_PrimEnum<rds_RemoteLoginMechanismEnm, 1>::table[];

/// One named connection to a file server on another host: the host, the ports, the directory that relative paths hang
/// below, how to log in, how long the server lives, and the key that opens it. A value: it is handed around in counted
/// handles and kept by name in `rds_RemoteConnectionsRep`.
/// Threads: a record, and all copies that still share its texts, belong to one thread at a time.
class RFM_EXPORT rds_RemoteConnection final
{
public:
    /// The longest key, in bytes.
    static constexpr int kMostKeyBytes = 255;
    /// The life of a server that nobody gave another one: a day, in seconds.
    static constexpr int kUsualTimeOut = 86400;

    /// A connection whose ports are not known yet.
    rds_RemoteConnection(const cow_String& name, const cow_String& hostName, const cow_String& directory,
                         const cow_String& driverName, rds_RemoteLoginMechanismEnm loginMechanism,
                         const cow_String& sshExecPath, bool startRemoteServer);
    /// `timeOut` in seconds. A `serverPort` of 0 lets the server choose; a `connectPort` of 0 says that there is no
    /// server yet.
    rds_RemoteConnection(const cow_String& name, const cow_String& hostName, const cow_String& directory,
                         const cow_String& driverName, rds_RemoteLoginMechanismEnm loginMechanism,
                         const cow_String& sshExecPath, int timeOut, int serverPort, int connectPort,
                         bool startRemoteServer);
    /// A copy is transient whatever its source is, and a stored object of its own.
    rds_RemoteConnection(const rds_RemoteConnection& source);
    /// What `DBWrite` wrote.
    /// Throws: omu_ValueErrorException for a status or a login mechanism that is none; nex_TextException for an
    /// attribute of another kind.
    explicit rds_RemoteConnection(const cls_ReadVisitor& reader);
    rds_RemoteConnection& operator=(const rds_RemoteConnection&) = delete;
    ~rds_RemoteConnection();

    static int TypeId() noexcept;
    virtual int DynTypeId() const;
    /// Writes the record, its key in clear.
    virtual void DBWrite(const cls_WriteVisitor& visitor) const;
    /// A new copy, which the caller owns.
    rds_RemoteConnection* Copy() const;

    int ServerPortNumber() const noexcept { return m_ServerPortNumber; }
    int ConnectPortNumber() const noexcept { return m_ConnectPortNumber; }
    const cow_String& HostName() const noexcept { return m_HostName; }
    const cow_String& Directory() const noexcept { return m_Directory; }
    const cow_String& Name() const noexcept { return m_Name; }
    const cow_String& RemoteMarlekDriverName() const noexcept { return m_RemoteMarlekDriverName; }
    int TimeOut() const noexcept { return m_TimeOut; }
    bool StartRemoteServer() const noexcept { return m_StartRemoteServer; }
    rds_RemoteConnectionStatusEnm RemoteConnectionStatus() const noexcept { return m_RemoteConnectionStatus; }
    /// Whether the server's port was assigned at run time.
    bool Transient() const noexcept { return m_Transient; }
    rds_RemoteLoginMechanismEnm RemoteLoginMechanism() const noexcept { return m_RemoteLoginMechanism; }
    /// Path of the secure shell program; empty for the platform's own.
    const cow_String& SshExecPath() const noexcept { return m_sshExecPath; }
    /// The key of the server; empty when there is none. It holds until the key changes.
    const char* QlnsrvdKey() const noexcept { return qlnsrvdKey; }

    /// Throws: nex_TextException for a key of more than `kMostKeyBytes`; the key is as it was then.
    void SetqlnsrvdKey(const cow_String& key);
    void SetConnectionStatus(rds_RemoteConnectionStatusEnm status) noexcept
    {
        m_RemoteConnectionStatus = status;
    }

    // The names under which a scripting layer reaches connections: commands and attributes, and methods.
    static omn_FixedString remoteConnectionsCmd() noexcept;
    static omn_FixedString constructorCmd() noexcept;
    static omn_FixedString SetValuesMth() noexcept;
    static omn_FixedString SetqlnsrvdKeyMth() noexcept;
    static omn_FixedString SetConnectionStatusMth() noexcept;
    static omn_FixedString StartRemoteFileServerMth() noexcept;
    static omn_FixedString StopRemoteFileServerMth() noexcept;
    static omn_FixedString GetNameCmd() noexcept;
    static omn_FixedString GetHostNameCmd() noexcept;
    static omn_FixedString GetDirectoryNameCmd() noexcept;
    static omn_FixedString GetServerTimeoutCmd() noexcept;
    static omn_FixedString GetServerPortCmd() noexcept;
    static omn_FixedString GetConnectionPortCmd() noexcept;
    static omn_FixedString GetConnectionStatusCmd() noexcept;
    static omn_FixedString GetStartServerCmd() noexcept;
    static omn_FixedString GetRemoteMarlekDriverNameCmd() noexcept;
    static omn_FixedString GetRemoteLoginMechanismCmd() noexcept;
    static omn_FixedString GetsshExecPathCmd() noexcept;
    static omn_FixedString GetqlnsrvdKeyCmd() noexcept;

private:
    // Keeps as much of `key` as there is room for, and clears the rest.
    void StoreKey(const char* key) noexcept;

    int m_ServerPortNumber;
    int m_ConnectPortNumber;
    cow_String m_HostName;
    cow_String m_Directory;
    cow_String m_Name;
    cow_String m_RemoteMarlekDriverName;
    int m_TimeOut;
    bool m_StartRemoteServer;
    rds_RemoteConnectionStatusEnm m_RemoteConnectionStatus;
    bool m_Transient;
    rds_RemoteLoginMechanismEnm m_RemoteLoginMechanism;
    cow_String m_sshExecPath;
    char qlnsrvdKey[kMostKeyBytes + 1]; // a text; its last byte is always 0
    cls_Uid m_Uid;
};
