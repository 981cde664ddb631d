#pragma once

#include "rds_RemoteConnectionsRep.h"

#include <string>

namespace rfm_tool
{
/// Where the library's registry of connections stays between runs: $XDG_CONFIG_HOME/rfm/connections, or .config in the home
/// directory for the variable. A stream of objects, as cls_WriteStream makes it, with the registry as its only object. The
/// keys are in it in clear, so it is for its owner alone.
/// Throws: Failure when the environment names neither.
std::string ConnectionFilePath();

/// Fills the registry out of the file; it is empty when there is no file.
/// Throws: Failure for a file that others may read, that is another user's, that can't be read or is damaged.
void LoadConnections();

/// The registry while it is changed: from the constructor to the destructor no other run of the tool changes the file.
class ConnectionChange
{
public:
    /// Makes the folder where there is none, and fills the registry.
    /// Throws: Failure, also when the file could not be replaced.
    ConnectionChange();
    ConnectionChange(const ConnectionChange&) = delete;
    ConnectionChange& operator=(const ConnectionChange&) = delete;
    ~ConnectionChange();

    /// Writes the registry anew. A run that is killed leaves the old file or the new one.
    /// Throws: Failure.
    void Save() const;

private:
    std::string m_Path;
    int m_Folder; // holds the lock
};

/// The connections that are registered, in this process.
rds_RemoteConnections& Connections();
/// Throws: Failure when there is none of that name.
rds_RemoteConnection& ConnectionNamed(const std::string& name);
} // namespace rfm_tool
