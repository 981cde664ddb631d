#include "rds_RemoteShell.h"

#include "rds_Failure.h"
#include "rds_InterpretStdErr.h"
#include "utl_Platform.h"

void rds_RefuseOption(const char* what, const cow_String& word)
{
    if (word.View().starts_with('-'))
        rds_Fail("*** Error: The %s \"%s\" begins with \"-\" and would be taken for an option.", what, word);
}

static cow_String SecureShell(const rds_RemoteConnection& connection)
{
    return connection.SshExecPath().IsEmpty() ? secureShellCommand() : connection.SshExecPath();
}

// kept: the word counts anywhere in the path, so a folder of that name makes its programs count too.
// Test: AFolderOfThatNameMakesItsProgramsCountAsPlink.
static bool IsPlink(const cow_String& program)
{
    return program.View().find("plink") != std::string_view::npos;
}

static void AppendSecureOptions(rds_RemoteCommand& command, rds_PortChoice port)
{
    const cow_String acceptHost = "-o StrictHostKeyChecking=no";
    // kept: with a fixed port the option comes once more, for plink too, which knows no such option.
    // Test: EveryCommandLineHasItsWords.
    if (port == rds_PortChoice::Fixed) command.arguments.Append(acceptHost);
    if (IsPlink(command.program)) return;
    command.arguments.Append(acceptHost);
    command.arguments.Append("-n");
}

rds_RemoteCommand rds_LoginCommand(const rds_RemoteConnection& connection, rds_PortChoice port)
{
    rds_RefuseOption("host name", connection.HostName());
    rds_RemoteCommand command;
    command.arguments.Append(connection.HostName());
    if (connection.RemoteLoginMechanism() == rds_RemoteLoginMechanismEnm::RSH)
    {
        command.program = remoteShellCommand();
        command.arguments.Append("-n");
        return command;
    }
    command.program = SecureShell(connection);
    AppendSecureOptions(command, port);
    return command;
}

rds_RemoteShell::rds_RemoteShell(const rds_RemoteCommand& command)
    : m_Redirection("2>", m_ErrorFile.Name()),
      m_Child(command.program, command.arguments, m_Redirection, {})
{
}

cow_String rds_RemoteShell::Reason() { return rds_InterpretStdErr(m_ErrorFile); }
