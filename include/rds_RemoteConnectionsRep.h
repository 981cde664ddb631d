#pragma once

#include "cow_COW.h"
#include "cow_String.h"
#include "mdl_MapOfCowsRepository.h"
#include "omi_Singleton.h"
#include "rds_RemoteConnection.h"
#include "rfm_Export.h"

/// The connections by their names. Each change of one is reported to the thread's `omu_ChangeHistory`.
using rds_RemoteConnections = mdl_MapOfCowsRepository<cow_String, rds_RemoteConnection>;
using rds_RemoteConnectionsIT = mdl_MapOfCowsRepositoryIT<cow_String, rds_RemoteConnection>;

template <> RFM_EXPORT int rds_RemoteConnections::TypeId() noexcept;
extern template class mdl_MapOfCowsRepository<cow_String, rds_RemoteConnection>;

class rds_RemoteConnectionsRep;
extern template class RFM_EXPORT omi_SingletonBase<rds_RemoteConnectionsRep>;
extern template class RFM_EXPORT omi_Singleton<rds_RemoteConnectionsRep>;

/// The registry of connections, and the translator between the names of a file on another host:
///
///     connector path    Network connectors/box1/results/a.rdx
///     URL               mrkrdb://hpc7:40001//scratch/run/results/a.rdx
///     path there        /scratch/run/results/a.rdx
///
/// A path that holds "$" or "SCRATCHDIR_RHOST" names a place by a variable of the other host, so the connection's
/// directory is left out. Mappings reach the record for writing, so each one that succeeds reports a "Modify", though
/// it changes nothing. What is not below the virtual root maps to the empty string.
/// Throws: nex_TextException "Network RDX Connector %s not found." for a connection that is not registered.
/// Threads: no lock; the registry and its records belong to one thread at a time. `rds_initialize` makes it.
class RFM_EXPORT rds_RemoteConnectionsRep : public omi_SingletonBase<rds_RemoteConnectionsRep>
{
public:
    /// Holds an empty repository that can't store anything, until `rds_initialize` gives it another.
    rds_RemoteConnectionsRep();

    /// The repository, for writing. It is of class `rds_RemoteConnections` once the library is up: check with
    /// `nex_canDynamicCastRef` before the cast, or use `Connections`.
    mdl_Repository& GetRepository() { return m_Repository.Get(); }
    /// Takes a copy of `repository` in the place of the one that was there.
    void SetRepository(const mdl_Repository& repository);
    /// The repository after that check.
    /// Throws: nex_AssertException when it is of another class.
    rds_RemoteConnections& Connections();

    /// The name in a connector path: what stands between the prefix and the next "/".
    cow_String ExtractRemoteConnectionName(const cow_String& path) const;
    /// What stands behind the name and its "/".
    cow_String ExtractRemotePath(const cow_String& path) const;
    /// The first connection, in the order of names, with the URL's host and port.
    /// Throws: nex_AssertException for a URL without host or port, and when there is no such connection.
    cow_String MapUrlToRemoteConnectionName(const cow_String& url);
    cow_String MapRemotePathToUrl(const cow_String& path);
    /// The path as the other host knows it.
    cow_String MapToAbsRemotePath(const cow_String& path);
    cow_String MapToRemoteMachineName(const cow_String& path);
    /// Turns a URL into a connector path, in place; false for any other text, which stays as it is.
    /// Throws: nex_AssertException as above, and for a URL without a path.
    bool MapUrlToRemotePath(cow_String& urlOrPath);
    /// Whether a path begins with the words of the virtual root, whatever follows them.
    bool isPrefixMyRemoteConnections(const cow_String& path) const;

private:
    rds_RemoteConnection& Registered(const cow_String& path);

    cow_COW<mdl_Repository, cow_Virtual<mdl_Repository>> m_Repository;
};

/// Makes a connection and registers it under its name, in the place of one that has the name. The arguments are those
/// of `rds_RemoteConnection`. Reports "Insert", with a "Remove" in front when one was replaced, and "Modify".
/// Result: the registered record; it holds until the registry changes.
RFM_EXPORT rds_RemoteConnection&
remoteConnectionConstructor(const cow_String& name, const cow_String& hostName, const cow_String& directory,
                            const cow_String& driverName, rds_RemoteLoginMechanismEnm loginMechanism,
                            const cow_String& sshExecPath, int timeOut, int serverPort, int connectPort,
                            bool startRemoteServer);
