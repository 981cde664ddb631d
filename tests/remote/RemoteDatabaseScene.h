#pragma once

// Files of this host, opened by URLs that lead through ssh, the relay, the daemon and the assistant.

#include "FileKind.h"
#include "OverSsh.h"
#include "rfm.h"
#include "rfm_FileReprRemote.h"
#include "utl_CommandLine.h"

#include <sys/stat.h>

#include <future>

class RemoteDatabaseScene : public OverSsh
{
protected:
    void SetUp() override
    {
        OverSsh::SetUp();
        std::filesystem::remove(Program(kAssistant));
        std::filesystem::create_symlink(RFM_FILE_ASSISTANT, Program(kAssistant));
        // The reader meets the relay through a gate.
        std::filesystem::remove(Path("mrl/External/qlnsrv/qlnsrv"));
        std::filesystem::create_symlink(RFM_GATED_RELAY, Path("mrl/External/qlnsrv/qlnsrv"));
        std::filesystem::create_symlink(Program("qlnsrv"), Path("relay"));
        for (const char* name : {"reached", "go"}) ASSERT_EQ(::mkfifo(Path(name).c_str(), 0600), 0);
        m_Folder.emplace("RFM_TEST_FOLDER", Path("").c_str());
        rfm_initialize(m_Count);
        PageSize(64);
    }
    void TearDown() override
    {
        rfm_finalize(m_Count);
        m_Folder.reset();
        OverSsh::TearDown();
    }

    /// Of the cache that is made next.
    static void PageSize(int kibibytes)
    {
        utl_CommandLine::OfProcess().Set("nrdx_page_size", cow_String(kibibytes));
    }
    /// Logs in, starts the server and registers its connection, as a program does.
    void StartServer()
    {
        auto connection = Connection();
        connection.StartRemoteFileServer();
        m_Daemon = TheServer();
        m_Port = connection.ConnectPortNumber();
        Connections().Insert("box1", connection);
    }
    void KillServer()
    {
        Connections().Get("box1").KillRemoteFileServer();
        EXPECT_TRUE(NothingRuns());
    }
    static rds_RemoteConnections& Connections()
    {
        return omi_Singleton<rds_RemoteConnectionsRep>::Instance().Connections();
    }
    cow_String Url(const std::string& name) const
    {
        return cow_String("mrkrdb://127.0.0.1:" + std::to_string(m_Port) + "/" + Path(name));
    }
    std::string Lost(const std::string& name, const std::string& reason) const
    {
        return std::string("*** ERROR: Lost connection to remote file:\n") + Url(name).CString() +
               ", reason:\n" + reason;
    }
    std::string CannotConnect(const std::string& name, const std::string& reason) const
    {
        return std::string("*** ERROR: Can't connect to remote file:\n") + Url(name).CString() +
               ", reason:\n" + reason;
    }
    std::string Put(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return bytes;
    }
    /// Bytes of which no two pages are alike.
    static std::string Content(std::size_t bytes)
    {
        std::string content(bytes, '\0');
        for (std::size_t i = 0; i < bytes; ++i)
            content[i] = static_cast<char>((i * 2654435761U >> 11U) + i / 1024);
        return content;
    }
    static std::string ReadAll(rfm_FileReprRemote& file)
    {
        std::string bytes(static_cast<std::size_t>(file.Length().Value()) + 1, '?');
        file.Seek(0);
        bytes.resize(static_cast<std::size_t>(file.Read(bytes.data(), static_cast<int>(bytes.size()))));
        return bytes;
    }

    // --- the gate

    /// What passed on the wire since the last look. A run is logged when the other side begins, so that all but the
    /// last reply is in it.
    std::vector<std::string> Wire()
    {
        std::vector<std::string> lines;
        std::istringstream log(FileText(Path("wire")));
        for (std::string line; std::getline(log, line);) lines.push_back(line);
        std::vector<std::string> fresh(lines.begin() + static_cast<std::ptrdiff_t>(m_WireSeen), lines.end());
        m_WireSeen = lines.size();
        return fresh;
    }
    /// The next relay stops at this byte, `act` runs, and it goes on. Keep the result until the reader is done.
    template <class Act> [[nodiscard]] std::future<void> AtGate(const std::string& gate, Act act)
    {
        std::ofstream(Path("gate")) << gate << "\n";
        return std::async(std::launch::async,
                          [this, act]
                          {
                              MeetAt("reached", O_RDONLY);
                              act();
                              MeetAt("go", O_WRONLY);
                          });
    }
    void NoGate() const { std::filesystem::remove(Path("gate")); }

    // --- who takes part

    pid_t TheRelay() const { return Only("relay", -1); } // the gate has its usual name
    pid_t TheSession() const { return Only("qlnsrvd", m_Daemon); }
    pid_t TheAssistant() const { return Only("rfmT_FileAssist", -1); }
    static char StateOf(pid_t process)
    {
        for (const SeenProcess& each : AllProcesses())
            if (each.process == process) return each.state;
        return '-';
    }
    static void Stop(pid_t process)
    {
        ::kill(process, SIGSTOP);
        EXPECT_TRUE(Eventually([&] { return StateOf(process) == 'T'; }));
    }
    /// Nothing of the reader's is left, on this side or the other; the server goes on.
    bool ReaderIsGone() const
    {
        return Eventually(
            [this]
            { return Only("qlnsrv", -1) < 0 && TheRelay() < 0 && TheSession() < 0 && TheAssistant() < 0; });
    }

private:
    pid_t TheServer() const
    {
        for (const SeenProcess& each : Descendants())
            if (each.parent == ::getpid() && each.process != Sshd().Process()) return each.process;
        return -1;
    }
    static pid_t Only(const std::string& name, pid_t parent)
    {
        for (const SeenProcess& each : Descendants())
            if ((parent < 0 || each.parent == parent) && each.state != 'Z' &&
                FileText("/proc/" + std::to_string(each.process) + "/comm") == name + "\n")
                return each.process;
        return -1;
    }
    void MeetAt(const char* name, int mode) const
    {
        char byte = 'x';
        const farend::Descriptor fifo(::open(Path(name).c_str(), mode | O_CLOEXEC));
        static_cast<void>(mode == O_WRONLY ? ::write(fifo.Get(), &byte, 1) : ::read(fifo.Get(), &byte, 1));
    }

    std::optional<EnvironmentVariable> m_Folder;
    std::size_t m_WireSeen = 0;
    int m_Count = 0;
};
