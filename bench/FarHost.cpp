#include "FarHost.h"

#include "PipedChild.h"

#include <arpa/inet.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <omi_Singleton.h>
#include <poll.h>
#include <rds.h>
#include <rfm.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench
{

namespace
{

constexpr const char* kAddress = "127.0.0.1";

sockaddr_in AddressOf(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    return address;
}

/// A port that nobody listens on now.
int FreePort()
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = AddressOf(0);
    auto* const bound = reinterpret_cast<sockaddr*>(&address);
    socklen_t bytes = sizeof address;
    const bool isBound = ::bind(socket, bound, bytes) == 0 && ::getsockname(socket, bound, &bytes) == 0;
    ::close(socket);
    if (!isBound) throw std::runtime_error("no port for sshd");
    return ntohs(address.sin_port);
}

bool Listens(int port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = AddressOf(port);
    const bool connects =
        ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return connects;
}

} // namespace

FarHost::FarHost(const std::string& folder) : m_Folder(folder), m_Port(FreePort())
{
    std::filesystem::create_directories(folder);
    if (::geteuid() == 0) std::filesystem::create_directories("/run/sshd"); // it drops its rights there
    for (const char* key : {"host_key", "user_key"})
        if (!std::filesystem::exists(Path(key)))
            RunToEnd({"/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", Path(key)});
    WriteFiles();
    Start();
}

FarHost::~FarHost()
{
    ::kill(m_Process, SIGTERM);
    ::waitpid(m_Process, nullptr, 0);
}

void FarHost::WriteFiles() const
{
    const std::string port = "Port " + std::to_string(m_Port) + "\n";
    std::ofstream(Path("sshd_config"))
        << port << "ListenAddress " << kAddress << "\nHostKey " << Path("host_key") << "\nAuthorizedKeysFile "
        << Path("user_key.pub")
        << "\nPidFile none\nStrictModes no\nUsePAM no\nPasswordAuthentication no\n"
           "KbdInteractiveAuthentication no\nPermitRootLogin prohibit-password\nSubsystem sftp internal-sftp\n";
    std::ofstream(Path("ssh_config")) << port << "IdentityFile " << Path("user_key")
                                      << "\nIdentitiesOnly yes\nBatchMode yes\nLogLevel ERROR\n"
                                         "StrictHostKeyChecking no\nUserKnownHostsFile "
                                      << Path("known_hosts") << "\n";
    std::ofstream(SshProgram()) << "#!/bin/sh\nexec /usr/bin/ssh -F '" << Path("ssh_config") << "' \"$@\"\n";
    std::filesystem::permissions(SshProgram(), std::filesystem::perms(0700));
}

void FarHost::Start()
{
    const std::string config = Path("sshd_config");
    const std::string log = Path("sshd_log");
    m_Process = ::fork();
    if (m_Process == 0)
    {
        ::execl(RFM_BENCH_SSHD, RFM_BENCH_SSHD, "-D", "-E", log.c_str(), "-f", config.c_str(), nullptr);
        ::_exit(127);
    }
    for (int tries = 0; !Listens(m_Port); ++tries)
    {
        if (tries == 1000 || ::waitpid(m_Process, nullptr, WNOHANG) == m_Process)
            throw std::runtime_error("sshd does not come up, see " + log);
        ::poll(nullptr, 0, 10);
    }
}

std::vector<std::string> FarHost::Login() const { return {SshProgram(), kAddress}; }

FileServer::FileServer(const FarHost& host)
{
    ::setenv("MRL_PATH", RFM_BENCH_RELAY_FOLDER, 1);
    static int s_Count = 0;
    const cow_String name = cow_String("bench") + cow_String(++s_Count);
    m_Connection = std::make_unique<rds_RemoteConnection>(name, kAddress, "/", RFM_BENCH_MARLEK,
                                                          rds_RemoteLoginMechanismEnm::SSH,
                                                          cow_String(host.SshProgram()), true);
    m_Connection->StartRemoteFileServer();
    omi_Singleton<rds_RemoteConnectionsRep>::Instance().Connections().Insert(name, *m_Connection);
}

FileServer::~FileServer()
{
    try
    {
        m_Connection->KillRemoteFileServer();
    }
    catch (const nex_Exception&)
    {
        // It ends by itself a day later.
    }
}

std::string FileServer::Url(const std::string& file) const
{
    return std::string("mrkrdb://") + kAddress + ":" + std::to_string(m_Connection->ConnectPortNumber()) + "/" +
           file;
}

} // namespace bench
