#include "RemoteDoor.h"

#include "ConnectionFile.h"
#include "RemoteScratch.h"
#include "Text.h"
#include "rds_Client.h"
#include "rds_InterpretStdErr.h"
#include "utl_UrlParser.h"

#include <fmt/format.h>

#include <string_view>

namespace rfm_tool
{
namespace
{
constexpr const char* kBrowsing = "rdsT_FileBrowsing";

rds_RemoteConnectionsRep& Registry() { return omi_Singleton<rds_RemoteConnectionsRep>::Instance(); }

// The name in a connector path; empty for other words, and where there is no registry.
std::string ConnectorName(const std::string& path)
{
    if (rds_RemoteConnectionsRep::InstancePointer() == nullptr) return {};
    return std::string(Registry().ExtractRemoteConnectionName(cow_String(path)).View());
}

void RequireServer(const std::string& path, const rds_RemoteConnection& connection)
{
    if (connection.ConnectPortNumber() != 0) return;
    const std::string name = OneLine(connection.Name().View());
    throw Failure(ExitRemote, OneLine(path), fmt::format("the connection {} has no server", name),
                  fmt::format("`rfm connect start {}` starts one", name));
}

RemotePlace PlaceOfConnector(const std::string& path)
{
    LoadConnections();
    RemotePlace place;
    place.connection = ConnectorName(path);
    RequireServer(path, ConnectionNamed(place.connection));
    place.url = Registry().MapRemotePathToUrl(cow_String(path)).View();
    place.path = Registry().MapToAbsRemotePath(cow_String(path)).View();
    return place;
}

// The connection of a URL is the first that has its host and port.
std::string ConnectionOfUrl(const std::string& url)
{
    LoadConnections();
    const cow_String host = utl_UrlParser::GetHost(cow_String(url));
    const cow_String port = utl_UrlParser::GetPort(cow_String(url));
    for (rds_RemoteConnectionsIT walk(Connections()); !walk.AtEnd(); walk.Next())
        if (walk.HasObject() && walk.Value().HostName() == host &&
            cow_String(walk.Value().ConnectPortNumber()) == port)
            return std::string(walk.Key().View());
    throw Failure(
        ExitRemote, OneLine(url),
        fmt::format("no connection has the host {} and the port {}", OneLine(host.View()), port.View()),
        "`rfm connect list` shows the connections, `rfm connect start` starts a server");
}

RemotePlace PlaceOfUrl(const std::string& url)
{
    const cow_String text(url);
    if (!utl_UrlParser::HasHost(text) || !utl_UrlParser::HasPath(text))
        throw Failure(ExitUsage, OneLine(url), "a URL has a host and a path",
                      "it is written mrkrdb://HOST:PORT//folder/job.rdx");
    RemotePlace place;
    place.url = url;
    place.path = utl_UrlParser::GetPath(text).View();
    if (utl_UrlParser::HasPort(text))
        place.connection = ConnectionOfUrl(url);
    else if (!(utl_UrlParser::GetHost(text) == "localhost"))
        throw Failure(ExitUsage, OneLine(url), "only a URL of localhost has no port",
                      "`rfm connect list` shows the ports of servers");
    return place;
}

// A server that somebody else started has a password, which is in files that the library knows.
void FindPassword(rds_RemoteConnection& connection)
{
    if (connection.StartRemoteServer() || connection.QlnsrvdKey()[0] != '\0') return;
    if (!connection.ReadHostPasswordFile() && !connection.ReadNetPasswordFile())
        connection.ReadRemotePasswordFile();
}

// What to do about words that one of the programs in between says.
struct Hint
{
    std::string_view words;
    const char* remedy;
};
constexpr Hint kHints[] = {
    {"qlnsrv executable",
     "`export MRL_PATH=PREFIX/libexec/rfm`, where PREFIX is /usr for the package; `rfm doctor` looks"},
    {"rfmT_FileAssistant executable", "put the folder of rfmT_FileAssistant into PATH"},
    {"rdsT_FileBrowsing executable", "put the folder of rdsT_FileBrowsing into PATH"},
    {"assistant, no such file", "`rfm browse` lists what is there"},
    {"assistant, not a regular file", "`rfm browse` lists a folder"},
    {"is corrupt", "`rfm check` on that host tells what is damaged, `rfm recover` there saves what is sound"},
    {"No permission to read", "the server has the rights of the user who started it"},
    {"qlnsrv, cannot connect", "`rfm connect start` starts a server; a firewall may want a --port"},
    {"the key is not the one", "another server has the port: `rfm connect start` starts one of your own"},
    {"what answers there is no qlnsrvd", "another program has the port: `rfm connect start` anew"},
    {"Ping remote server failed", "`rfm connect start` starts a server when it has ended"},
    {"kill remote server failed", "when it has ended already there is nothing to stop"},
    {"Permission denied (", "ssh has to log in without asking: give the host a key of ssh's"},
    {"not found", "--driver of `rfm connect add` is the path of marlek there"},
    {"Unable to get", "--driver of `rfm connect add` is the path of marlek there"},
    {"Not a directory", "`rfm info` looks at a database"},
    {"No such file or directory", "`rfm browse` on the folder above lists what is there"},
    {"are too open", "take the rights of others away with `chmod 600`"},
    {"Cache Space Exausted", "make room in the folder of temporary files, or set TMPDIR"},
};

std::string RemedyFor(std::string_view words)
{
    for (const Hint& hint : kHints)
        if (words.find(hint.words) != std::string_view::npos) return hint.remedy;
    return "`rfm help remote` tells what it takes";
}

// On one line, without the marks, and without the URL: what the user wrote stands in front of it anyway.
std::string PlainWords(const std::exception& cause)
{
    std::string words = PlainMessage(cause.what());
    const std::size_t url = words.find(": mrkrdb://");
    const std::size_t reason = words.find(", reason: ", url == std::string::npos ? words.size() : url);
    if (reason != std::string::npos) words.erase(url, reason - url);
    if (const std::size_t twice = words.find(": :"); twice != std::string::npos) words.erase(twice, 2);
    return words;
}

// A service of this host, on pipes, with nothing between.
rds_Client* StartLocalBrowsing()
{
    const cow_String program = uti_Spawn::FindCommand(kBrowsing);
    if (program.IsEmpty()) nex_ThrowText("Cannot locate rdsT_FileBrowsing executable");
    auto errors = std::make_unique<utl_TempFile>("");
    uti_Redirection redirection("2>", errors->Name());
    auto client =
        std::make_unique<rds_Client>(program, cow_1DArrayList<cow_String>(), errors.get(), redirection);
    static_cast<void>(errors.release()); // whoever ends the client deletes it
    return client.release();
}

// The browser takes the client over, or the client ends here, and says why.
std::unique_ptr<rds_CFileBrowsing> BrowserOn(rds_Client* started)
{
    std::unique_ptr<utl_TempFile> errors(started->StdErrFile());
    std::unique_ptr<rds_Client> client(started); // goes before its file
    try
    {
        auto browser = std::make_unique<rds_CFileBrowsing>(client.get());
        static_cast<void>(client.release());
        static_cast<void>(errors.release());
        return browser;
    }
    catch (const nex_Exception& cause)
    {
        nex_ThrowText(cow_String(cause.what()) + ", reason: " + rds_InterpretStdErr(*errors));
    }
}
} // namespace

bool IsRemotePath(const std::string& path)
{
    return utl_UrlParser::IsUrl(cow_String(path)) || !ConnectorName(path).empty();
}

RemotePlace FindRemotePlace(const std::string& path)
{
    return utl_UrlParser::IsUrl(cow_String(path)) ? PlaceOfUrl(path) : PlaceOfConnector(path);
}

rfm_File OpenRemoteFile(const std::string& path)
{
    UseRemoteScratch();
    const RemotePlace place = FindRemotePlace(path);
    try
    {
        if (!place.connection.empty()) FindPassword(ConnectionNamed(place.connection));
        return rfm_File::Open(cow_String(place.url), utl_FileAccessRead);
    }
    catch (const nex_Exception& cause)
    {
        throw RemoteFailure(path, cause);
    }
}

std::unique_ptr<rds_CFileBrowsing> OpenBrowser(const std::string& path, const RemotePlace& place)
{
    UseRemoteScratch();
    try
    {
        return BrowserOn(place.connection.empty()
                             ? StartLocalBrowsing()
                             : ConnectionNamed(place.connection).RunRemoteFileService(kBrowsing));
    }
    catch (const nex_Exception& cause)
    {
        throw RemoteFailure(path, cause);
    }
}

bool IsRemoteFailure(const std::exception& cause)
{
    return dynamic_cast<const rfm_FileFailExc*>(&cause) != nullptr ||
           dynamic_cast<const rfm_FileConnectExc*>(&cause) != nullptr ||
           dynamic_cast<const rfm_FileCacheExc*>(&cause) != nullptr;
}

void ThrowIfRemote(const std::string& path, const std::exception& cause)
{
    if (IsRemoteFailure(cause)) throw RemoteFailure(path, cause);
}

Failure RemoteFailure(const std::string& what, const std::exception& cause)
{
    const std::string words = PlainWords(cause);
    return {ExitRemote, OneLine(what), words, RemedyFor(words)};
}
} // namespace rfm_tool
