#pragma once

#include "cls_Uid.h"
#include "cow_COW.h"
#include "cow_String.h"
#include "omn_FixedString.h"
#include "omu_PrimEnum.h"
#include "rfm_Export.h"

class cls_ReadVisitor;
class cls_WriteVisitor;
class rds_Client;
class uti_SpawnSource;
struct rds_RemoteCommand;

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
///
/// The order of use: `StartRemoteFileServer`, where `StartRemoteServer()` says that the server is this side's to start;
/// `RunRemoteFileService` as often as services are wanted; `KillRemoteFileServer`. Each of them runs one child and waits
/// for it; none tries again. What fails is a nex_TextException in the child's own words where it had some, and leaves no
/// child and no file behind.
///
/// The remote shell is `SshExecPath()`, or "ssh", or "rsh", found on PATH; the relay is External/qlnsrv/qlnsrv below a
/// folder of MRL_PATH. A host name that begins with "-" is refused: it would be an option to them.
/// Threads: a record, and all copies that still share its texts, belong to one thread at a time.
class RFM_EXPORT rds_RemoteConnection final
{
public:
    /// The longest key, in bytes.
    static constexpr int kMostKeyBytes = 255;
    /// The life of a server that nobody gave another one: a day, in seconds.
    static constexpr int kUsualTimeOut = 86400;
    /// How long a child may take to end once it has said everything, in seconds.
    static constexpr int kMostReapSeconds = 90;

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

    /// Logs in to the host and starts a server there. `ConnectPortNumber()` and the key are then what it reported, and
    /// `Transient()` whether the port was left to it; the status stays. With the variable `nrdx_debug` in the
    /// environment, whatever it holds, the server writes a log.
    /// Waits for the report without a limit: a login that says nothing and keeps its output open holds the caller up.
    /// Throws: nex_TextException; the key and the port may have changed then.
    void StartRemoteFileServer();
    /// Connects to a service of the server at `ConnectPortNumber()`, with the key of this record or, where the server is
    /// not this side's to start, with a password that is searched for: in `.marlek_HOST_passwd` and `.marlek_net_passwd`
    /// of the home directory here, then in `.marlek_net_passwd` of the one there. Waits for the service without a limit.
    /// Result: the relay, which the caller owns together with its file, see rds_Client; null where there is no port.
    /// The status is `CONNECTED` in both cases.
    rds_Client* RunRemoteFileService(const cow_String& service);
    /// Ends the server, and the services that run. The status is `DISCONNECTED` then, and as it was after a failure.
    /// Without a key in the record, the password of a server that is not this side's to start is searched for, as for a
    /// service.
    void KillRemoteFileServer();
    /// Returns when the server answers. Otherwise it throws, and the status is `DISCONNECTED`. The password is searched
    /// for as there; a search that fails throws its own text and leaves the status.
    void PingRemoteFileServer();

    /// Takes the length and the key from the lines of a server's report; to its end, without a limit. The key is empty
    /// when the report has none.
    /// Throws: nex_TextException with a line that is marked as an error, and for a key of more than `kMostKeyBytes`.
    void ReadServerKey(uti_SpawnSource& child);

    /// The searches for a password, in their order. True: the search ends here, and the key is what was found; the remote
    /// one answers true even for an empty file, and the key is then as it was. Nothing is trimmed: a line end counts.
    /// The home directory is HOMEDRIVE and HOMEPATH together when both are set, HOME when neither is.
    /// Throws: nex_TextException for a file that others have any right to, that can't be read, or whose password is
    /// shorter than 8 bytes (it is the key all the same) or longer than `kMostKeyBytes`; for a login that fails.
    bool ReadHostPasswordFile();
    bool ReadNetPasswordFile();
    /// `fileName` in the home directory of this host.
    bool ReadPasswordFile(const cow_String& fileName);
    bool ReadRemotePasswordFile();

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
    bool HasKey() const noexcept { return qlnsrvdKey[0] != '\0'; }

    void StartOnFixedPort(const rds_RemoteCommand& command);
    void StartOnAssignedPort(const rds_RemoteCommand& command);
    void ReadServerPort(uti_SpawnSource& child);
    void TakeReportedKey(const char* line, int keyLength);
    rds_Client* ConnectToService(const cow_String& service);
    void FindPassword();

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
