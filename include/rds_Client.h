#pragma once

#include "uti_SpawnSourceWithSink.h"
#include "utl_TempFile.h"

/// A running relay: its two pipes lead to a service on another host. `SinkDescriptor()` is the service's input,
/// `SourceDescriptor()` its output.
/// Ownership: the file with the relay's standard error is not the client's. Whoever ends the client takes the pointer,
/// deletes the client, and then the file:
///
///     client->Reap(0);
///     const std::unique_ptr<utl_TempFile> errors(client->StdErrFile());
///     delete client;   // closes the pipes; a relay that still runs has a second to leave
///
/// Threads: one at a time.
class RFM_EXPORT rds_Client final : public uti_SpawnSourceWithSink
{
public:
    /// Starts the relay, `program` being its absolute path; its environment is this process's. `stdErrFile` is the file that
    /// `redirection` leads to; only the start needs the latter.
    /// Throws: as uti_SpawnSourceWithSink.
    rds_Client(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
               utl_TempFile* stdErrFile, uti_Redirection& redirection);
    /// Ends the relay. The file stays.
    ~rds_Client() override;

    /// What the relay and the service write to their standard error. It is not the client's, see above.
    utl_TempFile* StdErrFile() const noexcept { return m_StdErrFile; }

private:
    utl_TempFile* m_StdErrFile;
};
