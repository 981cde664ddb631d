#pragma once

// The three programs and two services in a folder of the test's own, and what a test does with them.

#include "BoundedChild.h"
#include "Channel.h"
#include "Key.h"
#include "Socket.h"
#include "TestFolder.h"

#include <sys/prctl.h>

#include <dirent.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

inline std::string FileText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream all;
    all << file.rdbuf();
    return all.str();
}

/// A process as /proc shows it to everyone.
struct SeenProcess
{
    pid_t process = -1;
    pid_t parent = -1;
    char state = '?';
    pid_t session = -1;
    long childrenTicks = 0; // of the processor, used by children that have been waited for
};

inline std::vector<SeenProcess> AllProcesses()
{
    std::vector<SeenProcess> all;
    for (const auto& entry : std::filesystem::directory_iterator("/proc"))
    {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        const std::string stat = FileText(entry.path() / "stat");
        if (stat.rfind(')') == std::string::npos) continue; // gone since
        std::istringstream fields(stat.substr(stat.rfind(')') + 1));
        SeenProcess seen;
        long skipped = 0;
        seen.process = std::stoi(name);
        fields >> seen.state >> seen.parent >> skipped >> seen.session;
        for (int i = 0; i < 9; ++i) fields >> skipped; // up to its own times
        long user = 0;
        long system = 0;
        fields >> user >> system;
        seen.childrenTicks = user + system;
        all.push_back(seen);
    }
    return all;
}

/// All children of this process, their children, and so on.
inline std::vector<SeenProcess> Descendants()
{
    const std::vector<SeenProcess> all = AllProcesses();
    std::set<pid_t> family = {::getpid()};
    std::vector<SeenProcess> descendants;
    for (bool grows = true; grows;)
    {
        grows = false;
        for (const SeenProcess& each : all)
            if (family.count(each.parent) > 0 && family.insert(each.process).second)
            {
                descendants.push_back(each);
                grows = true;
            }
    }
    return descendants;
}

/// Waits until something that is bound to happen has; answers false when it hasn't.
template <class Happened> bool Eventually(Happened happened)
{
    const auto deadline = farend::Deadline::In(BoundedChild::kMostTime);
    while (!happened())
    {
        if (deadline.HasPassed()) return false;
        ::poll(nullptr, 0, 5);
    }
    return true;
}

/// A connection to a port of this host.
inline farend::Descriptor ConnectTo(int port, const std::string& address = "127.0.0.1")
{
    const auto found = farend::FindAddresses(address, std::to_string(port), AI_NUMERICHOST);
    farend::Descriptor socket(::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (::connect(socket.Get(), found->ai_addr, found->ai_addrlen) != 0) socket.Close();
    return socket;
}

/// Up to `count` bytes of it; fewer when the other end stops.
inline std::string Received(const farend::Descriptor& socket, std::size_t count)
{
    std::string bytes(count, '\0');
    const auto deadline = farend::Deadline::In(BoundedChild::kMostTime);
    bytes.resize(farend::ReceiveBy(deadline, socket.Get(), bytes.data(), count));
    return bytes;
}

class FarEnd : public ::testing::Test
{
protected:
    using Words = BoundedChild::Words;
    static constexpr const char* kBrowsing = "rdsT_FileBrowsing";
    static constexpr const char* kAssistant = "rfmT_FileAssistant";

    void SetUp() override
    {
        // Daemons leave their parents; here they become ours instead of the system's, so that their end is seen.
        ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
        std::signal(SIGPIPE, SIG_IGN);
        ::unsetenv("SSH_CONNECTION");
        std::filesystem::create_directory(Path("bin"));
        Put(RFM_MARLEK, "marlek");
        Put(RFM_QLNSRV, "qlnsrv");
        Put(RFM_QLNSRVD, "qlnsrvd");
        Put(RFM_TEST_SERVICE, kBrowsing);
        Put(RFM_TEST_SERVICE, kAssistant);
    }
    void TearDown() override
    {
        for (const SeenProcess& each : Descendants()) ::kill(each.process, SIGKILL);
        EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().empty(); }));
        ::prctl(PR_SET_CHILD_SUBREAPER, 0);
    }

    std::string Path(const std::string& name) const { return m_Folder.Path() + "/" + name; }
    std::string Program(const std::string& name) const { return Path("bin/" + name); }

    // --- the far end ---

    /// `marlek networkDBConnector`, as a login would run it.
    ChildResult Marlek(Words words, const std::string& input = "")
    {
        words.insert(words.begin(), {Program("marlek"), "networkDBConnector"});
        return BoundedChild(words).Finish(input);
    }
    /// Starts a daemon on an assigned port with a key that marlek made.
    void Start(Words words = {})
    {
        words.insert(words.end(), {"-port", "auto_assigned", "-automaticServer"});
        const ChildResult result = Marlek(words);
        ASSERT_EQ(result.code, 0) << result.out;
        std::istringstream report(result.out);
        std::string keyLine;
        int length = 0;
        report >> m_Port >> length >> keyLine;
        ASSERT_EQ(length, 64);
        ASSERT_EQ(keyLine.rfind("qlnsrvd-key:", 0), 0U);
        m_Key = keyLine.substr(12);
        m_Daemon = TheDaemon();
    }
    /// Starts the daemon itself, which has more options.
    void StartDaemon(Words words = {}, const std::string& key = std::string(64, 'a'))
    {
        words.insert(words.begin(), Program("qlnsrvd"));
        const ChildResult result = BoundedChild(words).Finish(KeyMessage(key));
        std::istringstream report(result.out);
        std::string word;
        report >> word >> m_Port >> m_Daemon;
        ASSERT_TRUE(report && word == "listening") << result.err;
        m_Key = key;
    }
    /// `words` under a shell's redirection, such as "2>&-".
    static Words Redirected(const std::string& redirection, const Words& words)
    {
        Words all = {"/bin/sh", "-c", "exec \"$0\" \"$@\" " + redirection};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }
    /// Waits for the daemon's end, and answers its exit code.
    int AwaitDaemon()
    {
        int status = -1;
        const bool ended = Eventually([&] { return ::waitpid(m_Daemon, &status, WNOHANG) == m_Daemon; });
        EXPECT_TRUE(ended);
        return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // --- the relay ---

    static std::string KeyMessage(const std::string& key) { return static_cast<char>(key.size()) + key; }
    Words RelayWords(const Words& words, int port) const
    {
        Words all = {Program("qlnsrv"), "-cpu", "127.0.0.1", "-private", "-port", std::to_string(port)};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }
    Words RelayWords(const Words& words) const { return RelayWords(words, m_Port); }
    /// One run of the relay with the right key.
    ChildResult Relay(const Words& words, const std::string& input = "")
    {
        return BoundedChild(RelayWords(words)).Finish(KeyMessage(m_Key) + input);
    }
    ChildResult RelayWithKey(const std::string& key, const Words& words)
    {
        return BoundedChild(RelayWords(words)).Finish(KeyMessage(key));
    }
    /// A relay whose service runs: the key is given, its answer is read.
    std::unique_ptr<BoundedChild> OpenRelay(const Words& words, int port = 0)
    {
        auto relay = std::make_unique<BoundedChild>(RelayWords(words, port == 0 ? m_Port : port));
        relay->Write(KeyMessage(m_Key));
        EXPECT_EQ(relay->Read(1), "\x01");
        return relay;
    }
    bool DaemonAnswers() { return Relay({"-ping"}).code == 0; }

    /// What a relay does, done by the test itself, so that it can do it wrong.
    std::unique_ptr<farend::Channel> Proved()
    {
        farend::Descriptor socket = ConnectTo(m_Port);
        const farend::Hello hello = farend::DecodeHello(Received(socket, farend::kHelloBytes));
        const farend::SharedSecret secret(farend::Key(m_Key), hello);
        const farend::ProvingTls tls(farend::ProvingTls::End::Relay, secret);
        auto channel = std::make_unique<farend::Channel>(tls, std::move(socket));
        EXPECT_EQ(channel->Prove(Soon()), farend::Channel::Proof::Given);
        return channel;
    }
    static farend::Deadline Soon() { return farend::Deadline::In(BoundedChild::kMostTime); }

    // --- what can be seen of processes ---

    static pid_t TheDaemon()
    {
        for (const SeenProcess& each : Descendants())
            if (each.parent == ::getpid()) return each.process;
        return -1;
    }
    static bool ReapAll()
    {
        while (::waitpid(-1, nullptr, WNOHANG) > 0) continue;
        return true;
    }
    std::size_t DaemonsChildren() const
    {
        const auto all = AllProcesses();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(), [this](const auto& each) { return each.parent == m_Daemon; }));
    }

    int m_Port = 0;
    std::string m_Key;
    pid_t m_Daemon = -1;

private:
    void Put(const char* program, const char* name)
    {
        std::error_code refused; // across file systems
        std::filesystem::create_hard_link(program, Program(name), refused);
        if (refused) std::filesystem::copy_file(program, Program(name));
    }

    TestFolder m_Folder;
};
