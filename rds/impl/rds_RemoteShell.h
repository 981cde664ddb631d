#pragma once

#include "rds_RemoteConnection.h"
#include "uti_SpawnSource.h"
#include "utl_TempFile.h"

/// A program and its arguments, none of which a shell of this host sees.
struct rds_RemoteCommand
{
    cow_String program;
    cow_1DArrayList<cow_String> arguments;
};

/// Whether the port of the server is given or left to it: the secure shell's options differ.
enum class rds_PortChoice
{
    Fixed,
    Assigned,
};

/// The remote shell of the connection up to its options: what is appended next is run on the host.
/// Throws: as `rds_RefuseOption`.
rds_RemoteCommand rds_LoginCommand(const rds_RemoteConnection& connection, rds_PortChoice port);

/// Refuses a host name, or whatever else stands where a program would take "-..." for an option of its own: records come
/// from files and URLs that others made, and an option of ssh can run any program here.
/// Throws: nex_TextException; `what` says in its text what it is.
void rds_RefuseOption(const char* what, const cow_String& word);

/// A running remote shell, and the file of its standard error. Its end takes the child first, then the file.
class rds_RemoteShell
{
public:
    /// Throws: as uti_SpawnSource.
    explicit rds_RemoteShell(const rds_RemoteCommand& command);

    uti_SpawnSource& Child() noexcept { return m_Child; }
    /// What it said on its standard error.
    cow_String Reason();

private:
    utl_TempFile m_ErrorFile{""};
    uti_Redirection m_Redirection;
    uti_SpawnSource m_Child;
};
