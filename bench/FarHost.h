// Another host, played by this one: the system's sshd on a port of its own, with keys and a configuration made for the
// run, and a file server of ours that was started through it.
#pragma once

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

class rds_RemoteConnection;

namespace bench
{

class FarHost
{
public:
    /// `folder`: for its files; it may exist.
    explicit FarHost(const std::string& folder);
    FarHost(const FarHost&) = delete;
    FarHost& operator=(const FarHost&) = delete;
    ~FarHost();

    /// The words that log in; what runs there follows.
    std::vector<std::string> Login() const;
    /// A program that is called as ssh, and logs in.
    std::string SshProgram() const { return m_Folder + "/ssh"; }

private:
    std::string Path(const std::string& name) const { return m_Folder + "/" + name; }
    void WriteFiles() const;
    void Start();

    std::string m_Folder;
    int m_Port = 0;
    pid_t m_Process = -1;
};

/// A file server on such a host; files are opened by their URLs while it lives.
class FileServer
{
public:
    explicit FileServer(const FarHost& host);
    FileServer(const FileServer&) = delete;
    FileServer& operator=(const FileServer&) = delete;
    ~FileServer();

    std::string Url(const std::string& file) const;

private:
    std::unique_ptr<rds_RemoteConnection> m_Connection;
};

} // namespace bench
