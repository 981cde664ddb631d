#pragma once

// The system's sshd on a port of its own, with keys and configuration made for the run in a folder of the test's, and a
// program "ssh" there that reaches it.

#include "FarEnd.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <filesystem>
#include <fstream>

/// A port of this host that nobody listens on now.
inline int FreePort()
{
    const farend::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t bytes = sizeof address;
    auto* const bound = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket.Get(), bound, bytes) != 0 || ::getsockname(socket.Get(), bound, &bytes) != 0)
        throw std::runtime_error("bind");
    return ntohs(address.sin_port);
}

class OwnSshd
{
public:
    /// Logins stand in `home` and first print the file "noise" of `folder`.
    OwnSshd(const std::string& folder, const std::string& home) : m_Folder(folder)
    {
        std::filesystem::create_directories(folder);
        if (::geteuid() == 0) std::filesystem::create_directories("/run/sshd"); // it drops its rights there
        for (const char* key : {"host_key", "user_key", "other_key"}) MakeKey(key);
        Put("noise", "");
        Put("ssh", "#!/bin/sh\nexec /usr/bin/ssh -F '" + Path("ssh_config") + "' \"$@\"\n");
        std::filesystem::permissions(Path("ssh"), std::filesystem::perms(0700));
        for (int tries = 0; m_Process < 0; ++tries) // another one may take the port in between
        {
            if (tries == 5) throw std::runtime_error("sshd: " + FileText(Path("sshd_log")));
            StartOnSomePort(home);
        }
        UseKey("user_key");
    }
    OwnSshd(const OwnSshd&) = delete;
    OwnSshd& operator=(const OwnSshd&) = delete;
    ~OwnSshd() { Stop(); }

    void Stop()
    {
        if (m_Process < 0) return;
        ::kill(m_Process, SIGTERM);
        ::waitpid(m_Process, nullptr, 0);
        m_Process = -1;
    }
    pid_t Process() const { return m_Process; }
    int Port() const { return m_Port; }
    std::string Path(const std::string& name) const { return m_Folder + "/" + name; }
    /// What logins say before anything else.
    void SetNoise(const std::string& noise) const { Put("noise", noise); }
    /// Whether logins are let in: by "user_key" they are, by "other_key" not.
    void UseKey(const std::string& key) const
    {
        Put("ssh_config", "Port " + std::to_string(m_Port) + "\nIdentityFile " + Path(key) +
                              "\nIdentitiesOnly yes\nBatchMode yes\nLogLevel ERROR\nUserKnownHostsFile " +
                              Path("known_hosts") + "\n");
    }

private:
    void Put(const std::string& name, const std::string& text) const
    {
        std::ofstream(Path(name), std::ios::binary | std::ios::trunc) << text;
    }
    void MakeKey(const std::string& name) const
    {
        BoundedChild({"/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", Path(name)}).Finish();
    }
    void StartOnSomePort(const std::string& home)
    {
        m_Port = FreePort();
        Put("sshd_config", "Port " + std::to_string(m_Port) + "\nListenAddress 127.0.0.1\nHostKey " +
                               Path("host_key") + "\nAuthorizedKeysFile " + Path("user_key.pub") +
                               "\nPidFile none\nStrictModes no\nUsePAM no\nPasswordAuthentication no\n"
                               "KbdInteractiveAuthentication no\nPermitRootLogin prohibit-password\n"
                               "ForceCommand cd '" +
                               home + "' && cat '" + Path("noise") + "' && eval \"$SSH_ORIGINAL_COMMAND\"\n");
        const std::string config = Path("sshd_config");
        const std::string log = Path("sshd_log");
        m_Process = ::fork();
        if (m_Process == 0)
        {
            ::execl(RFM_SSHD, RFM_SSHD, "-D", "-E", log.c_str(), "-f", config.c_str(), nullptr);
            ::_exit(126);
        }
        AwaitStart();
    }
    // It listens, or it has ended, and then there is no process any more.
    void AwaitStart()
    {
        const bool isSettled = Eventually(
            [this]
            {
                if (::waitpid(m_Process, nullptr, WNOHANG) == m_Process) m_Process = -1;
                return m_Process < 0 || ConnectTo(m_Port).IsOpen();
            });
        if (!isSettled) throw std::runtime_error("sshd does not come up");
    }

    std::string m_Folder;
    int m_Port = 0;
    pid_t m_Process = -1;
};
