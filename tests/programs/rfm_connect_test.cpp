// The registry of connections: what is kept, for whom, and what the servers of connections do.
#include "NewFiles.h"
#include "RemoteToolScene.h"

#include <sys/stat.h>

namespace
{
using testing::HasSubstr;
using testing::StartsWith;

class RfmConnect : public RemoteToolScene
{
protected:
    static std::string AddedLine(const std::string& name, const std::string& host)
    {
        return name + ": added; `rfm connect start` starts its server (" + host + ")\n";
    }
    static unsigned Mode(const std::string& path)
    {
        struct stat status = {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }
    /// A connection whose login reports its server, makes the file "reported" and then waits for a word in the pipe "go";
    /// it answers `code`.
    void AddWithSlowLogin(int code)
    {
        ASSERT_EQ(::mkfifo(Path("go").c_str(), 0600), 0);
        WriteFile(Path("slow"), "#!/bin/sh\n\"" + Login() + "\" \"$@\" || exit\n: > \"" + Path("reported") +
                                    "\"\nread word < \"" + Path("go") + "\"\nexit " + std::to_string(code) +
                                    "\n");
        std::filesystem::permissions(Path("slow"), std::filesystem::perms(0700));
        const ChildResult added = Connect(
            {"add", "box1", "127.0.0.1", "--force", "--driver", Program("marlek"), "--ssh", Path("slow")});
        ASSERT_EQ(added.code, 0) << added.err;
    }
    void WaitForReport() const
    {
        ASSERT_TRUE(Eventually([this] { return std::filesystem::exists(Path("reported")); }));
    }
    void ExpectNoServer()
    {
        EXPECT_TRUE(DaemonHasEnded());
        EXPECT_THAT(Connect({"list"}).out, HasSubstr("\t\tnone\t"));
    }
    bool DaemonHasEnded() const
    {
        return Eventually([this] { return ReapAll() && Descendants().empty(); });
    }
};

constexpr const char* kHead = "name\thost\tport\tserver\tdirectory\tdriver\tlogin\ttimeout\n";
} // namespace

TEST_F(RfmConnect, WhatIsAddedIsListedByLaterRuns)
{
    EXPECT_EQ(Connect({"list"}).out, kHead);
    EXPECT_EQ(Connect({"add", "box2", "hpc8", "--rsh", "--timeout", "60", "--port", "40000"}).out,
              AddedLine("box2", "hpc8"));
    EXPECT_EQ(Connect({"add", "box1", "hpc7", "--directory", "/scratch", "--driver", "/opt/marlek", "--ssh",
                       "/usr/local/bin/myssh"})
                  .out,
              AddedLine("box1", "hpc7"));
    EXPECT_EQ(Connect({"add", "box3", "hpc9", "--server-port", "40001"}).out,
              "box3: added (hpc9 port 40001)\n");
    EXPECT_EQ(Connect({"list"}).out,
              std::string(kHead) + "box1\thpc7\t\tnone\t/scratch\t/opt/marlek\t/usr/local/bin/myssh\t86400\n"
                                   "box2\thpc8\t\tnone\t\tmarlek\trsh\t60\n"
                                   "box3\thpc9\t40001\tpassword\t\tmarlek\tssh\t86400\n");
    EXPECT_EQ(Connect({"remove", "box2"}).out, "box2: removed (hpc8)\n");
    EXPECT_EQ(Connect({"list", "--csv"}).out,
              "name,host,port,server,directory,driver,login,timeout\n"
              "box1,hpc7,,none,/scratch,/opt/marlek,/usr/local/bin/myssh,86400\n"
              "box3,hpc9,40001,password,\"\",marlek,ssh,86400\n");
}

TEST_F(RfmConnect, JsonHasTheShapeOfTheManual)
{
    EXPECT_EQ(Connect({"add", "box1", "hpc7", "--json"}).out,
              "{\"rfm\":1,\"command\":\"connect\",\"action\":\"add\",\"name\":\"box1\",\"host\":\"hpc7\","
              "\"port\":null,\"what\":\"added; `rfm connect start` starts its server\"}\n");
    const std::string list = Connect({"list", "--json"}).out;
    EXPECT_THAT(list,
                StartsWith("{\"rfm\":1,\"command\":\"connect\",\"columns\":[{\"name\":\"name\",\"type\":"
                           "\"string\"},{\"name\":\"host\",\"type\":\"string\"},{\"name\":\"port\","));
    EXPECT_THAT(list, HasSubstr("[\"box1\",\"hpc7\",null,\"none\",\"\",\"marlek\",\"ssh\",86400]"));
}

TEST_F(RfmConnect, TheFileIsForItsOwnerAlone)
{
    Add();
    EXPECT_EQ(Mode(ConnectionFile()), 0600U);
    EXPECT_EQ(Mode(Path("config/rfm")), 0700U);
    EXPECT_EQ(NamesIn(Path("config/rfm")), std::vector<std::string>{"connections"});
}

TEST_F(RfmConnect, WithoutTheVariableTheFileIsInTheHomeDirectory)
{
    Set("XDG_CONFIG_HOME", "relative/is/none");
    Add();
    EXPECT_TRUE(std::filesystem::exists(Path("home/.config/rfm/connections")));
    Set("HOME", nullptr);
    ExpectFailure({"connect", "list"}, 3,
                  "connections: neither XDG_CONFIG_HOME nor HOME tells where they are kept; set HOME");
}

TEST_F(RfmConnect, AServerIsStartedAskedUsedAndStopped)
{
    AddAndStart();
    const std::string where = " (127.0.0.1 port " + std::to_string(m_Port) + ")\n";
    EXPECT_EQ(Connect({"ping", "box1"}).out, "box1: the server answers" + where);
    EXPECT_EQ(Connect({"start", "box1"}).out, "box1: the server answers already" + where);
    EXPECT_EQ(TheDaemon(), m_Daemon);
    EXPECT_THAT(Connect({"list"}).out, HasSubstr("\t" + std::to_string(m_Port) + "\tstarted\t"));
    EXPECT_EQ(Run({"hash", Connector()}).out, Run({"hash", kJob()}).out);
    EXPECT_EQ(Run({"hash", Url(kJob())}).out, Run({"hash", kJob()}).out);
    EXPECT_EQ(Connect({"stop", "box1"}).out, "box1: the server has ended (127.0.0.1)\n");
    EXPECT_TRUE(DaemonHasEnded());
    EXPECT_THAT(FileText(ConnectionFile()), testing::Not(HasSubstr(m_Keys.front())));
    ExpectFailure({"connect", "ping", "box1"}, 6,
                  "box1: it has no server; `rfm connect start box1` starts one");
    ExpectFailure({"connect", "stop", "box1"}, 1, "box1: it has no server; there is nothing to stop");
    ExpectFailure({"info", Connector()}, 6,
                  Connector() + ": the connection box1 has no server; `rfm connect start box1` starts one");
}

TEST_F(RfmConnect, AServerThatHasEndedIsStartedAnew)
{
    AddAndStart();
    KillDaemon();
    ExpectFailure({"connect", "ping", "box1"}, 6,
                  "box1: Ping remote server failed; `rfm connect start` starts a server when it has ended");
    ExpectFailure({"connect", "stop", "box1"}, 6,
                  "box1: kill remote server failed; when it has ended already there is nothing to stop");
    const ChildResult again = Connect({"start", "box1"});
    EXPECT_EQ(again.code, 0) << again.err;
    TakeServer(again.out);
    EXPECT_NE(m_Keys[0], m_Keys[1]);
    EXPECT_EQ(Run({"hash", Connector()}).code, 0);
}

TEST_F(RfmConnect, AKeyIsInNoArgumentAndInNoEnvironment)
{
    AddAndStart();
    BoundedChild follow(ToolWords({"follow", Connector(), "--json"}));
    EXPECT_THAT(follow.Read(8), StartsWith("{\"rfm\":1"));
    const std::vector<SeenProcess> all = Descendants();
    EXPECT_GE(all.size(), 4U); // tool, relay, daemon, assistant
    for (const SeenProcess& each : all)
        for (const char* name : {"cmdline", "environ"})
            EXPECT_THAT(FileText("/proc/" + std::to_string(each.process) + "/" + name),
                        testing::Not(HasSubstr(m_Keys.front())));
    ::kill(follow.Process(), SIGINT);
    EXPECT_EQ(follow.Finish().code, 130);
}

TEST_F(RfmConnect, WithoutTheRelayNoServerIsStarted)
{
    Add();
    const std::string line =
        "box1: Cannot locate qlnsrv executable; `export MRL_PATH=PREFIX/libexec/rfm`, where "
        "PREFIX is /usr for the package; `rfm doctor` looks";
    Set("MRL_PATH", nullptr);
    ExpectFailure({"connect", "start", "box1"}, 6, line);
    Set("MRL_PATH", Path("temp").c_str());
    ExpectFailure({"connect", "start", "box1"}, 6, line);
    ExpectNoServer();
}

TEST_F(RfmConnect, AServerWithAPasswordIsUsedWithoutKeepingThePassword)
{
    const std::string password = "a password of nobody";
    const ChildResult daemon = Marlek({"-port", "auto_assigned", "-timeout", "600"}, password);
    ASSERT_EQ(daemon.code, 0) << daemon.out;
    m_Keys.push_back(password);
    WriteFile(Path("home/.marlek_net_passwd"), password);
    std::filesystem::permissions(Path("home/.marlek_net_passwd"), std::filesystem::perms(0600));
    Add({"--server-port", std::to_string(std::stoi(daemon.out))});
    EXPECT_EQ(Connect({"ping", "box1"}).code, 0);
    EXPECT_EQ(Run({"hash", Connector()}).out, Run({"hash", kJob()}).out);
    EXPECT_THAT(Run({"browse", Connector("")}).out, HasSubstr("\tjob.rdx\n"));
    ExpectFailure(
        {"connect", "start", "box1"}, 2,
        "box1: its server is one that somebody else starts; `rfm connect ping` tells whether it answers");
    std::filesystem::permissions(Path("home/.marlek_net_passwd"), std::filesystem::perms(0644));
    EXPECT_THAT(Run({"hash", Connector()}).err, HasSubstr("are too open"));
    std::filesystem::permissions(Path("home/.marlek_net_passwd"), std::filesystem::perms(0600));
    EXPECT_EQ(Connect({"stop", "box1"}).code, 0);
    EXPECT_THAT(FileText(ConnectionFile()), testing::Not(HasSubstr(password)));
    EXPECT_TRUE(DaemonHasEnded());
}

TEST_F(RfmConnect, ChangesAtTheSameMomentAreAllKept)
{
    std::vector<std::unique_ptr<BoundedChild>> runs;
    for (int i = 0; i < 6; ++i)
        runs.push_back(std::make_unique<BoundedChild>(
            ToolWords({"connect", "add", "box" + std::to_string(i), "hpc" + std::to_string(i)})));
    for (const auto& run : runs) EXPECT_EQ(run->Finish().code, 0);
    const std::string list = Connect({"list"}).out;
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 7);
}

TEST_F(RfmConnect, ANameThatIsTakenOrUnknownIsToldOf)
{
    Add();
    ExpectFailure({"connect", "add", "box1", "hpc7"}, 2,
                  "box1: a connection has this name already; --force replaces it");
    EXPECT_EQ(Connect({"add", "box1", "hpc7", "--force"}).out, AddedLine("box1", "hpc7"));
    EXPECT_THAT(Connect({"list"}).out, HasSubstr("box1\thpc7\t"));
    for (const char* action : {"start", "stop", "ping", "remove"})
        ExpectFailure({"connect", action, "bxo1"}, 3,
                      "bxo1: no connection has this name; did you mean box1?");
    ExpectFailure(
        {"info", "Network connectors/weather/job.rdx"}, 3,
        "weather: no connection has this name; `rfm connect list` shows them, `rfm connect add` makes one");
}

TEST_F(RfmConnect, WordsThatCanBeNoConnectionAreRefused)
{
    const std::string remedy = "; it has no blank and no / and does not begin with -";
    ExpectFailure({"connect", "add", "a/b", "hpc7"}, 2, "a/b: is no name for a connection" + remedy);
    ExpectFailure({"connect", "add", "a b", "hpc7"}, 2, "a b: is no name for a connection" + remedy);
    ExpectFailure({"connect", "add", "box1", "a\tb"}, 2, "a\\tb: is no name of a host" + remedy);
    ExpectFailure({"connect", "add", "box1", "--", "-oProxyCommand=x"}, 2,
                  "-oProxyCommand=x: is no name of a host" + remedy);
    ExpectFailure({"connect", "add", "box1"}, 2,
                  "connect add: it takes a name and a host; `rfm connect --help` shows how");
    ExpectFailure({"connect", "start"}, 2,
                  "connect start: it takes the name of a connection; `rfm connect --help` shows how");
    ExpectFailure({"connect", "ping", "box1", "hpc7"}, 2,
                  "connect ping: hpc7 is one word too many; `rfm connect --help` shows how");
    ExpectFailure({"connect", "list", "box1"}, 2,
                  "connect list: box1 is one word too many; `rfm connect --help` shows how");
    ExpectFailure({"connect", "strat", "box1"}, 2,
                  "connect: strat is no action; did you mean `rfm connect start`?");
    ExpectFailure({"connect", "add", "box1", "hpc7", "--port", "65536"}, 2,
                  "connect add: --port 65536: is too large; the largest is 65535");
    EXPECT_FALSE(std::filesystem::exists(ConnectionFile()));
}

TEST_F(RfmConnect, ARunningServerIsNotForgotten)
{
    AddAndStart();
    ExpectFailure(
        {"connect", "remove", "box1"}, 2,
        "box1: its server may still run, and nobody else has its key; `rfm connect stop box1` ends it, "
        "--force removes all the same");
    EXPECT_EQ(Connect({"remove", "box1", "--force"}).out, "box1: removed (127.0.0.1)\n");
    EXPECT_EQ(Connect({"list"}).out, kHead);
}

TEST_F(RfmConnect, ALoginThatFailsIsToldInItsOwnWords)
{
    ASSERT_EQ(Connect({"add", "box1", "127.0.0.1", "--driver", Path("no/marlek"), "--ssh", Login()}).code, 0);
    const ChildResult missing = Connect({"start", "box1"});
    EXPECT_EQ(missing.code, 6);
    EXPECT_THAT(missing.err,
                StartsWith("rfm: box1: ssh to remote host 127.0.0.1 failed after 90 seconds: reason: "));
    EXPECT_THAT(missing.err,
                HasSubstr("not found; --driver of `rfm connect add` is the path of marlek there\n"));
    EXPECT_EQ(std::count(missing.err.begin(), missing.err.end(), '\n'), 1);
}

// --- the file ---

TEST_F(RfmConnect, AFileThatOthersMayReadIsRefused)
{
    Add();
    for (const unsigned mode : {0640U, 0604U, 0620U})
    {
        std::filesystem::permissions(ConnectionFile(), std::filesystem::perms(mode));
        ExpectFailure({"connect", "list"}, 4,
                      ConnectionFile() + ": the keys in it are open to other users; `chmod 600 " +
                          ConnectionFile() + "`, and start the servers anew if they may have been read");
    }
    std::filesystem::permissions(ConnectionFile(), std::filesystem::perms(0400));
    EXPECT_EQ(Connect({"list"}).code, 0);
}

TEST_F(RfmConnect, ADamagedFileIsRefusedAndNeverWrittenOver)
{
    Add();
    const std::string sound = FileText(ConnectionFile());
    for (std::size_t length = 0; length < sound.size(); length += 1 + length / 2)
    {
        WriteFile(ConnectionFile(), sound.substr(0, length));
        for (const Words& words : {Words{"list"}, Words{"add", "box2", "hpc8"}})
        {
            const ChildResult result = Connect(words);
            EXPECT_EQ(result.code, 4) << length;
            EXPECT_THAT(result.err,
                        StartsWith("rfm: " + ConnectionFile() + ": the connections can't be read: "));
            EXPECT_THAT(result.err, testing::EndsWith("; move it away, and add them anew\n"));
        }
        EXPECT_EQ(FileText(ConnectionFile()), sound.substr(0, length));
    }
    EXPECT_THAT(Run({"info", Connector()}).err, HasSubstr("the connections can't be read"));
}

TEST_F(RfmConnect, WhatIsNoFileIsRefused)
{
    std::filesystem::create_directories(ConnectionFile());
    ExpectFailure({"connect", "list"}, 4, ConnectionFile() + ": is no regular file; move it away");
    std::filesystem::remove(ConnectionFile());
    ASSERT_EQ(::mkfifo(ConnectionFile().c_str(), 0600), 0);
    ExpectFailure({"connect", "list"}, 4, ConnectionFile() + ": is no regular file; move it away");
}

TEST_F(RfmConnect, AFileThatCantBeWrittenIsExitCodeSeven)
{
    WriteFile(Path("blocked"), "");
    Set("XDG_CONFIG_HOME", Path("blocked").c_str());
    ExpectFailure({"connect", "add", "box1", "hpc7"}, 7,
                  Path("blocked/rfm") +
                      ": Not a directory; connections are kept there: make it yours to write, or "
                      "set XDG_CONFIG_HOME");
}

TEST_F(RfmConnect, AFullDiskLeavesTheFileAsItWas)
{
    Add();
    const std::string before = FileText(ConnectionFile());
    {
        const FileSizeLimit limit(64);
        ExpectFailure({"connect", "add", "box2", "hpc8"}, 7,
                      ConnectionFile() +
                          ": File too large; make room or write elsewhere; nothing was left there");
    }
    EXPECT_EQ(FileText(ConnectionFile()), before);
    EXPECT_EQ(NamesIn(Path("config/rfm")), std::vector<std::string>{"connections"});
}

TEST_F(RfmConnect, AServerWhoseKeyCantBeKeptIsEnded)
{
    Add();
    {
        const FileSizeLimit limit(64 + FileText(ConnectionFile()).size() / 2);
        EXPECT_EQ(Connect({"start", "box1"}).code, 7);
    }
    EXPECT_TRUE(DaemonHasEnded());
    EXPECT_THAT(Connect({"list"}).out, HasSubstr("\t\tnone\t"));
}

// --- an interrupted start ---

TEST_F(RfmConnect, ASignalDuringTheLoginEndsTheServerThatItHasStarted)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        AddWithSlowLogin(0);
        BoundedChild start(ToolWords({"connect", "start", "box1"}));
        WaitForReport();
        EXPECT_GT(TheDaemon(), 0);
        ::kill(start.Process(), signal);
        WriteFile(Path("go"), "on\n");
        const ChildResult result = start.Finish();
        EXPECT_EQ(result.code, 128 + signal);
        EXPECT_EQ(result.out + result.err, "");
        ExpectNoServer();
        for (const char* name : {"go", "reported"}) std::filesystem::remove(Path(name));
    }
}

TEST_F(RfmConnect, CtrlCAtATerminalEndsTheLoginAndItsServer)
{
    AddWithSlowLogin(0);
    BoundedChild start(ToolWords({"connect", "start", "box1"}));
    WaitForReport();
    ::kill(start.Process(), SIGINT);
    for (const SeenProcess& each : Descendants()) // as a terminal does it: all at the same moment
        if (each.parent == start.Process()) ::kill(each.process, SIGINT);
    EXPECT_EQ(start.Finish().code, 130);
    ExpectNoServer();
}

TEST_F(RfmConnect, AnIgnoredHangUpDoesNotEndAServer)
{
    AddWithSlowLogin(0);
    std::signal(SIGHUP, SIG_IGN);
    BoundedChild start(ToolWords({"connect", "start", "box1"}));
    std::signal(SIGHUP, SIG_DFL);
    WaitForReport();
    ::kill(start.Process(), SIGHUP);
    WriteFile(Path("go"), "on\n");
    const ChildResult result = start.Finish();
    EXPECT_EQ(result.code, 0) << result.err;
    TakeServer(result.out);
}

TEST_F(RfmConnect, ALoginThatFailsBehindItsReportLeavesNoServer)
{
    AddWithSlowLogin(3);
    BoundedChild start(ToolWords({"connect", "start", "box1"}));
    WaitForReport();
    WriteFile(Path("go"), "on\n");
    const ChildResult result = start.Finish();
    EXPECT_EQ(result.code, 6);
    EXPECT_THAT(result.err, StartsWith("rfm: box1: ssh to remote host 127.0.0.1 failed"));
    ExpectNoServer();
}

TEST_F(RfmConnect, AFullOutputIsExitCodeSeven)
{
    Add();
    EXPECT_EQ(Run({"connect", "list"}, "/dev/full").code, 7);
}
