#include "connect.h"

#include "ConnectionFile.h"
#include "ProgramSearch.h"
#include "RemoteDoor.h"
#include "RemoteScratch.h"
#include "Text.h"
#include "nex_Exception.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <csignal>

namespace rfm_tool
{
namespace
{
using Login = rds_RemoteLoginMechanismEnm;

class ConnectCommand : public Command
{
public:
    std::string_view Name() const override { return "connect"; }
    std::string_view Summary() const override { return "connections to other hosts and their servers"; }
    std::string_view Help() const override
    {
        return "ACTION is one of\n"
               "  add NAME HOST   registers a connection; NAME is up to you\n"
               "  list            all connections\n"
               "  start NAME      logs in and starts a server there, unless one answers already\n"
               "  ping NAME       does its server answer?\n"
               "  stop NAME       ends the server and what it runs\n"
               "  remove NAME     forgets the connection\n"
               "Files there are then \"Network connectors/NAME/PATH\" for every command, or a URL.\n"
               "The login is that of ssh, and has to work without asking. Connections and keys are kept in\n"
               "~/.config/rfm/connections, for you alone.\n"
               "\n"
               "examples:\n"
               "  rfm connect add box1 hpc7 --directory /scratch/run --driver /opt/rfm/bin/marlek\n"
               "  rfm connect start box1\n"
               "  rfm info \"Network connectors/box1/job.rdx\"\n";
    }
    void Declare(Options& options) override;
    int Run(Output& output) override;

private:
    void Add(Output& output);
    void List(Output& output);
    void Remove(Output& output);
    void Start(Output& output);
    void Stop(Output& output);
    void Ping(Output& output);

    void RequireWords(const char* wanted, bool hasHost) const;
    rds_RemoteConnection Made() const;
    void Tell(Output& output, const rds_RemoteConnection& connection, std::string_view what) const;

    struct Action
    {
        std::string_view name;
        void (ConnectCommand::*run)(Output&);
    };
    static const std::array<Action, 6> kActions;

    std::string m_Action;
    std::string m_Name;
    std::string m_Host;
    std::string m_Directory;
    std::string m_Driver = "marlek";
    std::string m_Ssh;
    bool m_Rsh = false;
    std::int64_t m_Port = 0;
    std::int64_t m_ServerPort = 0;
    std::int64_t m_Timeout = rds_RemoteConnection::kUsualTimeOut;
    bool m_Force = false;
    StyleOptions m_Style;
};

const std::array<ConnectCommand::Action, 6> ConnectCommand::kActions{{
    {"add", &ConnectCommand::Add},
    {"list", &ConnectCommand::List},
    {"start", &ConnectCommand::Start},
    {"ping", &ConnectCommand::Ping},
    {"stop", &ConnectCommand::Stop},
    {"remove", &ConnectCommand::Remove},
}};

void ConnectCommand::Declare(Options& options)
{
    options.Add("ACTION", m_Action, "add, list, start, ping, stop or remove")
        .Required()
        .ValueName("WORD")
        .Choices({"add", "list", "start", "ping", "stop", "remove"});
    options.Add("NAME", m_Name, "a connection");
    options.Add("HOST", m_Host, "of add: the host, as ssh knows it");
    options.Add("--directory", m_Directory, "add: the folder there that PATH hangs below (/)")
        .ValueName("PATH");
    options.Add("--driver", m_Driver, "add: the program marlek there").ValueName("PATH");
    options.Add("--ssh", m_Ssh, "add: a program in place of ssh, with its words").ValueName("PATH");
    options.Add("--rsh", m_Rsh, "add: log in with rsh").Excludes("--ssh");
    DeclareCount(options, "--port", m_Port, "N", "add: the port of its servers; without it they choose one");
    DeclareCount(options, "--timeout", m_Timeout, "S", "add: a server ends when unused so long (86400)");
    DeclareCount(options, "--server-port", m_ServerPort, "N",
                 "add: a server with a password runs there already");
    options.Add("-f,--force", m_Force, "add: replace; remove: though its server may run");
    m_Style.DeclareAll(options);
}

std::string PlainName(const rds_RemoteConnection& connection) { return OneLine(connection.Name().View()); }

// Whether a server was started that nobody has stopped since. It may have ended by itself.
bool HasServer(const rds_RemoteConnection& connection)
{
    return connection.StartRemoteServer() && connection.ConnectPortNumber() != 0 &&
           connection.QlnsrvdKey()[0] != '\0';
}

rds_RemoteConnection WithoutServer(const rds_RemoteConnection& connection)
{
    return {connection.Name(),
            connection.HostName(),
            connection.Directory(),
            connection.RemoteMarlekDriverName(),
            connection.RemoteLoginMechanism(),
            connection.SshExecPath(),
            connection.TimeOut(),
            connection.ServerPortNumber(),
            connection.StartRemoteServer() ? 0 : connection.ConnectPortNumber(),
            connection.StartRemoteServer()};
}

bool Answers(rds_RemoteConnection& connection)
{
    try
    {
        connection.PingRemoteFileServer();
        return true;
    }
    catch (const nex_TextException& cause)
    {
        // Where nobody could be asked, a second server beside one that runs would be none the wiser.
        if (std::string_view(cause.what()).find("Ping remote server failed") == std::string_view::npos)
            throw RemoteFailure(std::string(connection.Name().View()), cause);
        return false;
    }
}

void ConnectCommand::RequireWords(const char* wanted, bool hasHost) const
{
    const std::string usage = "`rfm connect --help` shows how";
    if (m_Name.empty() || (hasHost && m_Host.empty()))
        throw Failure(ExitUsage, "connect " + m_Action, wanted, usage);
    if (!hasHost && !m_Host.empty())
        throw Failure(ExitUsage, "connect " + m_Action, OneLine(m_Host) + " is one word too many", usage);
}

rds_RemoteConnection ConnectCommand::Made() const
{
    const int timeout = static_cast<int>(m_Timeout);
    return {cow_String(m_Name),
            cow_String(m_Host),
            cow_String(m_Directory),
            cow_String(m_Driver),
            m_Rsh ? Login::RSH : Login::SSH,
            cow_String(m_Ssh),
            timeout,
            static_cast<int>(m_Port),
            static_cast<int>(m_ServerPort),
            m_ServerPort == 0};
}

void RequirePlainWord(const std::string& what, const std::string& word)
{
    const auto isBad = [](char byte) { return static_cast<unsigned char>(byte) <= ' ' || byte == '/'; };
    if (word.starts_with('-') || std::any_of(word.begin(), word.end(), isBad))
        throw Failure(ExitUsage, OneLine(word), fmt::format("is no {}", what),
                      "it has no blank and no / and does not begin with -");
}

void RequireAtMost(const char* option, std::int64_t value, std::int64_t most)
{
    if (value > most)
        throw Failure(ExitUsage, fmt::format("connect add: {} {}", option, value), "is too large",
                      fmt::format("the largest is {}", most));
}

void ConnectCommand::Add(Output& output)
{
    RequireWords("it takes a name and a host", true);
    RequirePlainWord("name for a connection", m_Name);
    RequirePlainWord("name of a host", m_Host);
    RequireAtMost("--port", m_Port, 65535);
    RequireAtMost("--server-port", m_ServerPort, 65535);
    RequireAtMost("--timeout", m_Timeout, INT32_MAX);
    const ConnectionChange change;
    if (!m_Force && Connections().IsMember(cow_String(m_Name)))
        throw Failure(ExitUsage, OneLine(m_Name), "a connection has this name already",
                      "--force replaces it");
    Connections().Insert(cow_String(m_Name), Made());
    change.Save();
    Tell(output, ConnectionNamed(m_Name),
         m_ServerPort == 0 ? "added; `rfm connect start` starts its server" : "added");
}

void ConnectCommand::List(Output& output)
{
    if (!m_Name.empty())
        throw Failure(ExitUsage, "connect list", OneLine(m_Name) + " is one word too many",
                      "`rfm connect --help` shows how");
    LoadConnections();
    Listing listing(output, m_Style.Choose(output),
                    {{"name", "string"},
                     {"host", "string"},
                     {"port", "int", true},
                     {"server", "string"},
                     {"directory", "string"},
                     {"driver", "string"},
                     {"login", "string"},
                     {"timeout", "int", true}},
                    "\"command\":\"connect\",");
    for (rds_RemoteConnectionsIT walk(Connections()); !walk.AtEnd(); walk.Next())
    {
        if (!walk.HasObject()) continue;
        const rds_RemoteConnection& each = walk.Value();
        const int port = each.ConnectPortNumber();
        const bool hasRsh = each.RemoteLoginMechanism() == Login::RSH;
        const std::string_view ssh = each.SshExecPath().IsEmpty() ? "ssh" : each.SshExecPath().View();
        const char* server = !each.StartRemoteServer() ? "password" : port != 0 ? "started" : "none";
        listing.Row({Cell::OfText(each.Name().View()), Cell::OfText(each.HostName().View()),
                     port != 0 ? Cell::OfInt(port) : Cell::Absent(), Cell::OfText(server),
                     Cell::OfText(each.Directory().View()),
                     Cell::OfText(each.RemoteMarlekDriverName().View()), Cell::OfText(hasRsh ? "rsh" : ssh),
                     Cell::OfInt(each.TimeOut())});
    }
    listing.Finish();
}

void ConnectCommand::Remove(Output& output)
{
    RequireWords("it takes the name of a connection", false);
    const ConnectionChange change;
    const rds_RemoteConnection connection = ConnectionNamed(m_Name);
    if (!m_Force && HasServer(connection))
        throw Failure(
            ExitUsage, OneLine(m_Name), "its server may still run, and nobody else has its key",
            fmt::format("`rfm connect stop {}` ends it, --force removes all the same", OneLine(m_Name)));
    Connections().Remove(cow_String(m_Name));
    change.Save();
    Tell(output, WithoutServer(connection), "removed");
}

// While it lives, what would end the tool waits: a server that runs has to be known here, or ended. At a terminal the
// login gets a Ctrl-C as well, and ends by itself.
class SignalsHeld
{
public:
    SignalsHeld()
    {
        sigset_t held;
        ::sigemptyset(&held);
        for (const int number : {SIGINT, SIGTERM, SIGHUP})
            if (!IsIgnored(number)) ::sigaddset(&held, number);
        ::sigprocmask(SIG_BLOCK, &held, &m_Before);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &m_Before, nullptr); }

    static bool HasOneCome()
    {
        sigset_t pending;
        ::sigpending(&pending);
        return ::sigismember(&pending, SIGINT) == 1 || ::sigismember(&pending, SIGTERM) == 1 ||
               ::sigismember(&pending, SIGHUP) == 1;
    }

private:
    // As nohup has it: such a one would wait like the others, and nobody means it.
    static bool IsIgnored(int number)
    {
        struct sigaction now = {};
        ::sigaction(number, nullptr, &now);
        return now.sa_handler == SIG_IGN;
    }

    sigset_t m_Before{};
};

// For a server that nobody else will know. What goes wrong with it is told already, or it ends by itself later.
void EndServer(rds_RemoteConnection& connection)
{
    try
    {
        if (HasServer(connection)) connection.KillRemoteFileServer();
    }
    catch (const nex_TextException&)
    {
        return;
    }
}

// A login that fails may have reported its server before.
void LogIn(rds_RemoteConnection& connection)
{
    try
    {
        connection.StartRemoteFileServer();
    }
    catch (const nex_TextException& cause)
    {
        EndServer(connection);
        throw RemoteFailure(std::string(connection.Name().View()), cause);
    }
}

// The login takes its time, so nothing is locked meanwhile: what it gave goes into the registry as it is by then.
void KeepServer(rds_RemoteConnection& started)
{
    try
    {
        const ConnectionChange change;
        Connections().Insert(started.Name(), started);
        change.Save();
    }
    catch (const Failure&)
    {
        EndServer(started);
        throw;
    }
}

// A server that is started where nothing leads to it could not even be ended again.
void RequireRelay(const std::string& name)
{
    if (!FindRelay())
        throw RemoteFailure(name, nex_TextException(cow_String("Cannot locate qlnsrv executable")));
}

void ConnectCommand::Start(Output& output)
{
    RequireWords("it takes the name of a connection", false);
    {
        const ConnectionChange writable; // before a server runs whose key could not be kept
    }
    rds_RemoteConnection connection(ConnectionNamed(m_Name));
    if (!connection.StartRemoteServer())
        throw Failure(ExitUsage, OneLine(m_Name), "its server is one that somebody else starts",
                      "`rfm connect ping` tells whether it answers");
    RequireRelay(m_Name);
    if (HasServer(connection) && Answers(connection))
        return Tell(output, connection, "the server answers already");
    {
        const SignalsHeld held;
        LogIn(connection);
        if (SignalsHeld::HasOneCome()) return EndServer(connection);
        KeepServer(connection);
    }
    Tell(output, connection, "the server listens");
}

void ConnectCommand::Stop(Output& output)
{
    RequireWords("it takes the name of a connection", false);
    const ConnectionChange change;
    rds_RemoteConnection connection(ConnectionNamed(m_Name));
    if (connection.ConnectPortNumber() == 0)
        throw Failure(ExitNo, OneLine(m_Name), "it has no server", "there is nothing to stop");
    try
    {
        connection.KillRemoteFileServer();
    }
    catch (const nex_TextException& cause)
    {
        throw RemoteFailure(m_Name, cause);
    }
    Connections().Insert(connection.Name(), WithoutServer(connection));
    change.Save();
    Tell(output, WithoutServer(connection), "the server has ended");
}

void ConnectCommand::Ping(Output& output)
{
    RequireWords("it takes the name of a connection", false);
    LoadConnections();
    rds_RemoteConnection connection(ConnectionNamed(m_Name));
    if (connection.ConnectPortNumber() == 0)
        throw Failure(ExitRemote, OneLine(m_Name), "it has no server",
                      fmt::format("`rfm connect start {}` starts one", OneLine(m_Name)));
    try
    {
        connection.PingRemoteFileServer();
    }
    catch (const nex_TextException& cause)
    {
        throw RemoteFailure(m_Name, cause);
    }
    Tell(output, connection, "the server answers");
}

void ConnectCommand::Tell(Output& output, const rds_RemoteConnection& connection, std::string_view what) const
{
    const int port = connection.ConnectPortNumber();
    const std::string_view host = connection.HostName().View();
    if (m_Style.json)
        return output.Line(fmt::format(
            "{{\"rfm\":1,\"command\":\"connect\",\"action\":\"{}\",\"name\":{},\"host\":{},\"port\":{},"
            "\"what\":{}}}",
            m_Action, TextJson(connection.Name().View()), TextJson(host),
            port != 0 ? NumberText(std::int64_t{port}) : "null", TextJson(what)));
    const std::string where = port != 0 ? fmt::format("{} port {}", OneLine(host), port) : OneLine(host);
    output.Line(fmt::format("{}: {} ({})", PlainName(connection), what, where));
}

int ConnectCommand::Run(Output& output)
{
    UseRemoteScratch();
    const auto found = std::find_if(kActions.begin(), kActions.end(),
                                    [this](const Action& each) { return each.name == m_Action; });
    if (found == kActions.end())
    {
        std::vector<std::string_view> names;
        names.reserve(kActions.size());
        for (const Action& each : kActions) names.push_back(each.name);
        const std::string_view near = NearestName(m_Action, names);
        throw Failure(ExitUsage, "connect", OneLine(m_Action) + " is no action",
                      near.empty() ? "`rfm connect --help` shows them"
                                   : fmt::format("did you mean `rfm connect {}`?", near));
    }
    (this->*found->run)(output);
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeConnect() { return std::make_unique<ConnectCommand>(); }
} // namespace rfm_tool
