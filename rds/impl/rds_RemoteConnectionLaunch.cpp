#include "rds_RemoteConnection.h"

#include "rds_Client.h"
#include "rds_ErrorLine.h"
#include "rds_Failure.h"
#include "rds_KeyExchange.h"
#include "rds_RemoteShell.h"
#include "utl_BinStreamException.h"
#include "utl_FilePath.h"
#include "utl_PathFinder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

// Children and files belong to objects of the calls below, so that no failure leaves one behind, wherever it comes from.
// A child that a failure takes along gets its pipes closed and a second to leave.

static constexpr int kReapSeconds = rds_RemoteConnection::kMostReapSeconds;

// The number that a line begins with; 0 when it begins with none.
static int LeadingNumber(const char* line)
{
    constexpr long kLeast = std::numeric_limits<int>::min();
    constexpr long kMost = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(std::strtol(line, nullptr, 10), kLeast, kMost));
}

static void FailOnErrorLine(const char* line)
{
    if (rds_IsErrorLine(line)) rds_Fail("%s", line);
}

// --- start --------------------------------------------------------------------------------------------------------

static rds_RemoteCommand StartCommand(const rds_RemoteConnection& connection)
{
    const int port = connection.ServerPortNumber();
    rds_RefuseOption("driver name", connection.RemoteMarlekDriverName());
    rds_RemoteCommand command =
        rds_LoginCommand(connection, port != 0 ? rds_PortChoice::Fixed : rds_PortChoice::Assigned);
    cow_1DArrayList<cow_String>& arguments = command.arguments;
    arguments.Append(connection.RemoteMarlekDriverName());
    arguments.Append("networkDBConnector");
    arguments.Append("-port");
    arguments.Append(port != 0 ? cow_String(port) : cow_String("auto_assigned"));
    arguments.Append("-timeout");
    arguments.Append(cow_String(connection.TimeOut()));
    // kept: one argument of two words; the shell of the host parts them. Test: EveryCommandLineHasItsWords.
    if (std::getenv("nrdx_debug") != nullptr) arguments.Append("-error nrdxError");
    arguments.Append("-automaticServer");
    return command;
}

void rds_RemoteConnection::StartRemoteFileServer()
{
    const rds_RemoteCommand command = StartCommand(*this);
    m_Transient = m_ServerPortNumber == 0;
    if (m_Transient)
        StartOnAssignedPort(command);
    else
        StartOnFixedPort(command);
}

// kept: here the key is looked at before the exit status, with an assigned port after it; the texts for a missing key
// differ by a blank; and this one says "rsh" for both mechanisms. Tests: WithAFixedPortAMissingKeyIsToldFirst,
// WithAnAssignedPortTheExitStatusIsToldFirst.
void rds_RemoteConnection::StartOnFixedPort(const rds_RemoteCommand& command)
{
    rds_RemoteShell shell(command);
    ReadServerKey(shell.Child());
    const int status = shell.Child().Reap(kReapSeconds);
    if (!HasKey()) rds_Fail("*** Error: Unable to get private key.  \n");
    if (status != 0)
        rds_Fail("*** Error: rsh to remote host %s failed after %d seconds: :\nreason: %s", m_HostName,
                 kReapSeconds, shell.Reason());
    m_ConnectPortNumber = m_ServerPortNumber;
}

void rds_RemoteConnection::StartOnAssignedPort(const rds_RemoteCommand& command)
{
    const char* mechanism = m_RemoteLoginMechanism == rds_RemoteLoginMechanismEnm::SSH ? "ssh" : "rsh";
    rds_RemoteShell shell(command);
    ReadServerPort(shell.Child());
    ReadServerKey(shell.Child());
    const int status = shell.Child().Reap(kReapSeconds);
    if (status != 0)
        rds_Fail("*** Error: %s to remote host %s failed after %d seconds: :\nreason: %s", mechanism,
                 m_HostName, kReapSeconds, shell.Reason());
    if (m_ConnectPortNumber == 0)
        rds_Fail("*** Error: Unable to get connection port:\nreason: %s", shell.Reason());
    if (!HasKey()) rds_Fail("*** Error: Unable to get private key. \n");
}

// kept: when the output ends without a port, an earlier start's stays.
// Test: AnOutputThatEndsAtOnceLeavesAnEarlierPortAndOnlyTheKeyIsMissed.
void rds_RemoteConnection::ReadServerPort(uti_SpawnSource& child)
{
    char line[512] = {};
    // No limit: a child that says nothing and keeps its output open holds its caller up for as long as it lives.
    while (child.GetLine(line, sizeof line) != 0)
    {
        FailOnErrorLine(line);
        const int port = LeadingNumber(line); // a login shell may have said something first; 0 is no port
        if (port == 0) continue;
        m_ConnectPortNumber = port;
        return;
    }
}

void rds_RemoteConnection::ReadServerKey(uti_SpawnSource& child)
{
    StoreKey("");
    int keyLength = 0;
    char line[524] = {};
    while (child.GetLine(line, sizeof line) != 0)
    {
        FailOnErrorLine(line);
        if (keyLength == 0)
            keyLength = LeadingNumber(line);
        else
            TakeReportedKey(line, keyLength);
    }
}

void rds_RemoteConnection::TakeReportedKey(const char* line, int keyLength)
{
    static constexpr std::string_view kMark = "qlnsrvd-key:";
    if (std::strncmp(line, kMark.data(), kMark.size()) != 0) return;
    const char* text = line + kMark.size();
    const int textLength = static_cast<int>(std::strcspn(text, "\n")); // a line end is none of the key
    SetqlnsrvdKey(cow_String(text, std::min(keyLength, textLength)));
}

// --- the relay ----------------------------------------------------------------------------------------------------

static cow_String FindRelay()
{
    return utl_PathFinder::getSubDirPath("MRL_PATH", "External/qlnsrv", "qlnsrv", false, false, false);
}

// The texts for a relay that is not there, and for one that can't be run.
static utl_FilePath RequireRelay(const char* cannotLocate, const char* cannotExecute)
{
    const cow_String found = FindRelay();
    if (found.IsEmpty()) rds_Fail(cannotLocate);
    utl_FilePath program(found, "");
    if (!program.IsExecutable()) rds_Fail(cannotExecute);
    return program;
}

static cow_1DArrayList<cow_String> Words(std::initializer_list<cow_String> words)
{
    cow_1DArrayList<cow_String> list;
    for (const cow_String& word : words) list.Append(word);
    return list;
}

static cow_1DArrayList<cow_String> ServiceArguments(const rds_RemoteConnection& connection,
                                                    const cow_String& service)
{
    rds_RefuseOption("host name", connection.HostName());
    rds_RefuseOption("service", service);
    return Words({"-cpu", connection.HostName(), "-private", "-port",
                  cow_String(connection.ConnectPortNumber()), service});
}

static cow_1DArrayList<cow_String> RequestArguments(const rds_RemoteConnection& connection,
                                                    const cow_String& request)
{
    rds_RefuseOption("host name", connection.HostName());
    return Words(
        {"-cpu", connection.HostName(), "-port", cow_String(connection.ConnectPortNumber()), request});
}

rds_Client* rds_RemoteConnection::RunRemoteFileService(const cow_String& service)
{
    rds_Client* client = m_ConnectPortNumber != 0 ? ConnectToService(service) : nullptr;
    m_RemoteConnectionStatus = rds_RemoteConnectionStatusEnm::CONNECTED;
    return client;
}

rds_Client* rds_RemoteConnection::ConnectToService(const cow_String& service)
{
    constexpr const char* kNoRelay = "*** Error: Cannot locate qlnsrv executable";
    const cow_String program = RequireRelay(kNoRelay, kNoRelay).AbsolutePathName();
    const cow_1DArrayList<cow_String> arguments = ServiceArguments(*this, service);

    auto errorFile = std::make_unique<utl_TempFile>("");
    std::unique_ptr<rds_Client> client; // behind the file: a failure ends the relay first
    {
        uti_Redirection redirection("2>", errorFile->Name());
        client = std::make_unique<rds_Client>(program, arguments, errorFile.get(), redirection);
    }
    if (!m_StartRemoteServer) FindPassword();
    rds_ExchangeKey(*client, qlnsrvdKey, *errorFile);
    static_cast<void>(errorFile.release()); // the client knows it, and whoever ends the client deletes it
    return client.release();
}

void rds_RemoteConnection::FindPassword()
{
    if (!ReadHostPasswordFile() && !ReadNetPasswordFile()) ReadRemotePasswordFile();
    if (!HasKey()) rds_Fail("*** Error: Unable to get password or private key. \n");
}

// Runs the relay with a request to the server itself and answers its exit status.
static int AskServer(const cow_String& program, const rds_RemoteConnection& connection,
                     const cow_String& request)
{
    const cow_1DArrayList<cow_String> arguments = RequestArguments(connection, request);
    const utl_TempFile errorFile("");
    uti_Redirection redirection("2>", errorFile.Name());
    uti_SpawnSourceWithSink relay(program, arguments, redirection, {});
    try
    {
        rds_SendKey(relay, connection.QlnsrvdKey()); // the server does nothing for who has no key
    }
    catch (const utl_BinStreamException&)
    {
        // A relay that has gone without it says why by its exit status.
    }
    return relay.Reap(kReapSeconds);
}

void rds_RemoteConnection::KillRemoteFileServer()
{
    const utl_FilePath relay = RequireRelay("*** Error: Can't locate qlnsrv executable",
                                            "*** Error: Can't execute qlnsrv executable");
    if (!m_StartRemoteServer && !HasKey()) FindPassword();
    if (AskServer(relay.Path(), *this, "-kill") != 0) rds_Fail("*** Error: kill remote server failed");
    m_RemoteConnectionStatus = rds_RemoteConnectionStatusEnm::DISCONNECTED;
}

void rds_RemoteConnection::PingRemoteFileServer()
{
    const utl_FilePath relay = RequireRelay("*** Error: Can't locate qlnsrv executable.",
                                            "*** Error: Can't execute qlnsrv executable.");
    if (!m_StartRemoteServer && !HasKey()) FindPassword();
    if (AskServer(relay.Path(), *this, "-ping") == 0) return;
    m_RemoteConnectionStatus = rds_RemoteConnectionStatusEnm::DISCONNECTED;
    rds_Fail("*** Error: Ping remote server failed.");
}
