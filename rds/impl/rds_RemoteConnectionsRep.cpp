#include "rds_RemoteConnectionsRep.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "rds_StoredClasses.h"
#include "utl_UrlParser.h"

template class mdl_MapOfCowsRepository<cow_String, rds_RemoteConnection>;
template class omi_SingletonBase<rds_RemoteConnectionsRep>;
template class omi_Singleton<rds_RemoteConnectionsRep>;

static constexpr const char* kSourceName = "rds_RemoteConnectionsRep";
static constexpr const char* kRoot = "Network connectors";
static constexpr const char* kRootAndSlash = "Network connectors/";
static constexpr const char* kScheme = "mrkrdb://";

template <> int rds_RemoteConnections::TypeId() noexcept
{
    return typ_TypeId(rds_LibraryNumber, rds_RowConnectionsContainer);
}

static void Require(bool condition, const char* text, int line = __builtin_LINE())
{
    if (!condition) nex_ThrowAssert(text, kSourceName, line);
}

// The length of `prefix`, in the current language or else as it stands, when `path` begins with it; 0 when not.
static int PrefixLength(const cow_String& path, const char* prefix)
{
    for (const cow_String& form : {cow_String(atr_translate(prefix).Result()), cow_String(prefix)})
        if (path.View().starts_with(form.View())) return form.Length();
    return 0;
}

static bool IsConnectorPath(const cow_String& path) { return PrefixLength(path, kRootAndSlash) > 0; }

static bool Holds(const cow_String& text, const char* what) { return text.Find(what) < text.Length(); }

// Whether a path names its place by a variable of the other host.
static bool IsScratchPath(const cow_String& path)
{
    return Holds(path, "$") || Holds(path, "SCRATCHDIR_RHOST");
}

rds_RemoteConnectionsRep::rds_RemoteConnectionsRep() : m_Repository(new mdl_Repository) {}

void rds_RemoteConnectionsRep::SetRepository(const mdl_Repository& repository)
{
    m_Repository = cow_COW<mdl_Repository, cow_Virtual<mdl_Repository>>(repository);
}

rds_RemoteConnections& rds_RemoteConnectionsRep::Connections()
{
    mdl_Repository& repository = GetRepository();
    nex_canDynamicCastRef(rds_RemoteConnections::TypeId(), repository.DynTypeId(), kSourceName, __LINE__);
    return static_cast<rds_RemoteConnections&>(repository);
}

cow_String rds_RemoteConnectionsRep::ExtractRemoteConnectionName(const cow_String& path) const
{
    const int prefix = PrefixLength(path, kRootAndSlash);
    if (prefix == 0) return {};
    const cow_String rest = path.Substr(prefix);
    return rest.Substr(0, rest.Find("/"));
}

cow_String rds_RemoteConnectionsRep::ExtractRemotePath(const cow_String& path) const
{
    const int prefix = PrefixLength(path, kRootAndSlash);
    if (prefix == 0) return {};
    const cow_String rest = path.Substr(prefix);
    return rest.Substr(rest.Find("/") + 1);
}

cow_String rds_RemoteConnectionsRep::MapUrlToRemoteConnectionName(const cow_String& url)
{
    Require(utl_UrlParser::HasHost(url), "utl_UrlParser::HasHost(url)");
    Require(utl_UrlParser::HasPort(url), "utl_UrlParser::HasPort(url)");
    const cow_String host = utl_UrlParser::GetHost(url);
    const cow_String port = utl_UrlParser::GetPort(url);
    for (rds_RemoteConnectionsIT walk(Connections()); !walk.AtEnd(); walk.Next())
    {
        if (!walk.HasObject()) continue;
        const rds_RemoteConnection& connection = walk.Value();
        if (connection.HostName() == host && cow_String(connection.ConnectPortNumber()) == port)
            return connection.Name();
    }
    nex_ThrowAssert("!\"MapUrlToRemoteConnectionName failed\"", kSourceName, __LINE__);
}

// kept: the record is reached for writing, so that a "Modify" is reported. Test: EachMappingLeavesOneModify.
rds_RemoteConnection& rds_RemoteConnectionsRep::Registered(const cow_String& path)
{
    const cow_String name = ExtractRemoteConnectionName(path);
    rds_RemoteConnections& connections = Connections();
    if (!connections.IsMember(name))
        nex_ThrowText(atr_Message("Network RDX Connector %s not found.", name), kSourceName, __LINE__);
    return connections.Get(name);
}

// kept: a directory from the root gives two slashes behind the port. Test: TheExamplesOfAConnection.
cow_String rds_RemoteConnectionsRep::MapRemotePathToUrl(const cow_String& path)
{
    if (!IsConnectorPath(path)) return {};
    const rds_RemoteConnection& connection = Registered(path);
    cow_String url =
        cow_String(kScheme) + connection.HostName() + ":" + cow_String(connection.ConnectPortNumber()) + "/";
    if (!IsScratchPath(path)) url.append(connection.Directory());
    return url + "/" + ExtractRemotePath(path);
}

cow_String rds_RemoteConnectionsRep::MapToAbsRemotePath(const cow_String& path)
{
    if (!IsConnectorPath(path)) return {};
    const rds_RemoteConnection& connection = Registered(path);
    const cow_String rest = ExtractRemotePath(path);
    return IsScratchPath(path) ? rest : connection.Directory() + "/" + rest;
}

cow_String rds_RemoteConnectionsRep::MapToRemoteMachineName(const cow_String& path)
{
    if (!IsConnectorPath(path)) return {};
    return Registered(path).HostName();
}

// kept: the directory goes where it stands first, also in the middle of the path.
// Test: TheDirectoryGoesWhereItStandsFirst.
bool rds_RemoteConnectionsRep::MapUrlToRemotePath(cow_String& urlOrPath)
{
    const cow_String url(urlOrPath);
    if (!utl_UrlParser::IsUrl(url)) return false;
    const cow_String remoteConnectionName = MapUrlToRemoteConnectionName(url);
    rds_RemoteConnections& rcContainer = Connections();
    Require(rcContainer.IsMember(remoteConnectionName), "rcContainer.IsMember(remoteConnectionName)");
    const cow_String directory = rcContainer.Get(remoteConnectionName).Directory();
    Require(utl_UrlParser::HasPath(url), "utl_UrlParser::HasPath(url)");
    cow_String path = utl_UrlParser::GetPath(url);
    if (!IsScratchPath(path)) path.Substitute(directory, "", 1);
    urlOrPath = cow_String(kRootAndSlash) + remoteConnectionName + path;
    return true;
}

// kept: words that only begin like the root count too. Test: APathThatMerelyContinuesTheWordsCountsAsBelowTheRoot.
bool rds_RemoteConnectionsRep::isPrefixMyRemoteConnections(const cow_String& path) const
{
    return IsConnectorPath(path) || PrefixLength(path, kRoot) > 0;
}

rds_RemoteConnection& remoteConnectionConstructor(const cow_String& name, const cow_String& hostName,
                                                  const cow_String& directory, const cow_String& driverName,
                                                  rds_RemoteLoginMechanismEnm loginMechanism,
                                                  const cow_String& sshExecPath, int timeOut, int serverPort,
                                                  int connectPort, bool startRemoteServer)
{
    rds_RemoteConnections& connections = omi_Singleton<rds_RemoteConnectionsRep>::Instance().Connections();
    connections.Insert(name, rds_RemoteConnection(name, hostName, directory, driverName, loginMechanism,
                                                  sshExecPath, timeOut, serverPort, connectPort,
                                                  startRemoteServer));
    return connections.Get(name);
}
