#pragma once

#include "Failure.h"
#include "rds_CFileBrowsing.h"
#include "rfm_File.h"

#include <exception>
#include <memory>
#include <string>

namespace rfm_tool
{
/// Whether a word leads to another host, or into the hands of another program of this one: a URL, or a path below
/// "Network connectors". Nothing is looked at.
bool IsRemotePath(const std::string& path);

/// What such a word means, once the connections are known.
struct RemotePlace
{
    std::string url;
    std::string connection; // its name; empty for a URL of this host, which needs none
    std::string path;       // as the other host knows it
};
/// Looks the connection up.
/// Throws: Failure for a word that names no place, or no server.
RemotePlace FindRemotePlace(const std::string& path);

/// Throws: Failure.
rfm_File OpenRemoteFile(const std::string& path);
/// A browser on the host of that place; a service of this host when it has no connection.
/// Throws: Failure.
std::unique_ptr<rds_CFileBrowsing> OpenBrowser(const std::string& path, const RemotePlace& place);

/// Whether an exception of the library tells that another host could not be reached, or was lost.
bool IsRemoteFailure(const std::exception& cause);
/// Throws such an exception on as a failure of ours; does nothing for others.
void ThrowIfRemote(const std::string& path, const std::exception& cause);
/// What the library said of `what`, as a failure of ours with what to do next.
Failure RemoteFailure(const std::string& what, const std::exception& cause);
} // namespace rfm_tool
