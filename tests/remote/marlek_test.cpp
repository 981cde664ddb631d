#include "FarEnd.h"

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class MarlekProgram : public FarEnd
{
protected:
    // A port that is free now.
    static int FreePort()
    {
        const farend::Descriptor socket = Listening();
        return PortOf(socket);
    }
    static std::string LinesFrom(const farend::Descriptor& socket, int count)
    {
        std::string lines;
        while (std::count(lines.begin(), lines.end(), '\n') < count)
        {
            const std::string byte = Received(socket, 1);
            if (byte.empty()) break;
            lines += byte;
        }
        return lines;
    }
    static farend::Descriptor Listening(const std::string& host = "127.0.0.1")
    {
        const auto address = farend::FindAddresses(host, "0", AI_NUMERICHOST);
        farend::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::bind(socket.Get(), address->ai_addr, address->ai_addrlen) != 0 ||
            ::listen(socket.Get(), 1) != 0)
            throw std::runtime_error("listen");
        return socket;
    }
    static int PortOf(const farend::Descriptor& socket)
    {
        sockaddr_storage address = {};
        socklen_t bytes = sizeof address;
        ::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &bytes);
        char port[NI_MAXSERV] = {};
        ::getnameinfo(reinterpret_cast<sockaddr*>(&address), bytes, nullptr, 0, port, sizeof port,
                      NI_NUMERICSERV);
        return std::stoi(port);
    }
    // The daemon reports first and writes its log then.
    bool ListensInLog(const std::string& name) const
    {
        const std::string line = " daemon: listens on 127.0.0.1 port " + std::to_string(m_Port);
        return Eventually([&] { return FileText(Path(name)).find(line) != std::string::npos; });
    }
    static std::multiset<std::string> TargetsOf(const std::string& folder)
    {
        std::multiset<std::string> targets;
        std::error_code gone; // between the listing and the look
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            targets.insert(std::filesystem::read_symlink(entry, gone).string().substr(0, 6));
        return targets;
    }
    void ExpectFailure(const ChildResult& result, const std::string& text)
    {
        EXPECT_EQ(result.out, "*** Error: " + text + "\n");
        EXPECT_NE(result.code, 0);
        EXPECT_TRUE(Descendants().empty());
    }
};

TEST_F(MarlekProgram, WithAnAssignedPortTheReportIsThePortThenTheLengthThenTheKey)
{
    const ChildResult result = Marlek({"-port", "auto_assigned", "-timeout", "60", "-automaticServer"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, MatchesRegex("[1-9][0-9]+\n64\nqlnsrvd-key:[0-9a-f]+\n"));
    EXPECT_EQ(result.out.size() - result.out.find("key:"), 4 + 64 + 1U);
    EXPECT_EQ(result.err, "");
}

TEST_F(MarlekProgram, WithAFixedPortTheReportIsTheLengthThenTheKey)
{
    m_Port = FreePort();
    const ChildResult result =
        Marlek({"-port", std::to_string(m_Port), "-timeout", "60", "-automaticServer"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, MatchesRegex("64\nqlnsrvd-key:[0-9a-f]+\n"));
    m_Key = result.out.substr(result.out.find(':') + 1, 64);
    EXPECT_TRUE(DaemonAnswers());
}

TEST_F(MarlekProgram, KeysOfTwoStartsDiffer)
{
    Start();
    const std::string first = m_Key;
    Start();
    EXPECT_NE(m_Key, first);
}

TEST_F(MarlekProgram, APortInUseIsToldWithTheReasonAndNothingStays)
{
    const farend::Descriptor other = Listening();
    const std::string port = std::to_string(PortOf(other));
    ExpectFailure(Marlek({"-port", port, "-timeout", "60", "-automaticServer"}),
                  "qlnsrvd, cannot listen on 127.0.0.1 port " + port + ": Address already in use");
}

TEST_F(MarlekProgram, ValuesThatMakeNoSenseAreRefused)
{
    ExpectFailure(Marlek({"-port", "0", "-automaticServer"}),
                  "qlnsrvd, -port wants a whole number from 1 to 65535, not \"0\"");
    ExpectFailure(Marlek({"-port", "65536", "-automaticServer"}),
                  "qlnsrvd, -port wants a whole number from 1 to 65535, not \"65536\"");
    ExpectFailure(Marlek({"-port", "any", "-automaticServer"}),
                  "qlnsrvd, -port wants a whole number from 1 to 65535, not \"any\"");
    ExpectFailure(Marlek({"-timeout", "0", "-automaticServer"}),
                  "qlnsrvd, -timeout wants a whole number from 1 to 2147483647, not \"0\"");
    ExpectFailure(Marlek({"-timeout", "-5", "-automaticServer"}),
                  "qlnsrvd, -timeout wants a whole number from 1 to 2147483647, not \"-5\"");
    ExpectFailure(Marlek({"-automaticServer", "-timeout"}), "-timeout wants a value behind it");
    ExpectFailure(Marlek({"-automatic"}), "networkDBConnector has no option -automatic");
    ExpectFailure(Marlek({"-listen", "no-address", "-automaticServer"}),
                  "qlnsrvd, cannot find the address of no-address: Name or service not known");
}

TEST_F(MarlekProgram, AWordThatItDoesNotKnowIsRefused)
{
    ExpectFailure(BoundedChild({Program("marlek")}).Finish(),
                  "there is nothing to do: use marlek networkDBConnector");
    ExpectFailure(BoundedChild({Program("marlek"), "netDBConnector"}).Finish(),
                  "there is no word netDBConnector");
}

TEST_F(MarlekProgram, ADaemonThatIsMissingIsTold)
{
    std::filesystem::remove(Program("qlnsrvd"));
    ExpectFailure(Marlek({"-automaticServer"}),
                  "cannot start " + Program("qlnsrvd") + ": No such file or directory");
}

TEST_F(MarlekProgram, AReportThatCannotBeWrittenLeavesNoDaemon)
{
    const Words words = {Program("marlek"), "networkDBConnector", "-automaticServer"};
    EXPECT_NE(BoundedChild(words, "/dev/full").Finish().code, 0);
    EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().empty(); }));
}

TEST_F(MarlekProgram, TheErrorOptionComesAsOneWordOrAsTwoAndNamesTheLog)
{
    Start({"-error", Path("two")});
    EXPECT_TRUE(ListensInLog("two")) << FileText(Path("two"));
    Start({"-error " + Path("one")});
    EXPECT_TRUE(ListensInLog("one")) << FileText(Path("one"));
}

TEST_F(MarlekProgram, TheLogLiesWhereTheServerWasStarted)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(Path(""));
    Start({"-error nrdxError"});
    std::filesystem::current_path(before);
    EXPECT_TRUE(std::filesystem::exists(Path("nrdxError")));
}

TEST_F(MarlekProgram, ALogThatCannotBeWrittenIsTold)
{
    std::filesystem::create_symlink(Path("elsewhere"), Path("link"));
    ExpectFailure(Marlek({"-error", Path("link"), "-automaticServer"}),
                  "qlnsrvd, cannot write the log " + Path("link") + ": Too many levels of symbolic links");
    EXPECT_FALSE(std::filesystem::exists(Path("elsewhere")));
}

// Whoever waits for the end of the output, as ssh does, is let go: Start() has waited for it.
TEST_F(MarlekProgram, TheDaemonLeavesTheSessionAndKeepsNothingOfItsStart)
{
    Start();
    const auto all = Descendants();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].process, m_Daemon);
    EXPECT_NE(all[0].session, ::getsid(0));
    EXPECT_NE(all[0].session, m_Daemon); // not its leader either: it can't get a terminal
}

// As an ordinary user one is refused even the look at it, and that is meant: it holds a key.
TEST_F(MarlekProgram, TheDaemonHoldsTheDescriptorsThatItNeedsAndNoMore)
{
    Start();
    const std::string folder = "/proc/" + std::to_string(m_Daemon) + "/fd";
    if (::geteuid() != 0)
    {
        std::error_code refused;
        std::filesystem::directory_iterator(folder, refused);
        EXPECT_EQ(refused, std::errc::permission_denied);
        return;
    }
    // What it was started through goes right after its report.
    const std::multiset<std::string> wanted = {"/dev/n", "/dev/n", "/dev/n", "anon_i", "socket"};
    EXPECT_TRUE(Eventually([&] { return TargetsOf(folder) == wanted; }))
        << testing::PrintToString(TargetsOf(folder));
}

TEST_F(MarlekProgram, WithoutAutomaticServerTheKeyIsAPasswordFromStandardInput)
{
    for (const std::string& password : {std::string("8 chars."), std::string(255, 'p')})
    {
        const ChildResult result = Marlek({"-port", "auto_assigned", "-timeout", "60"}, password);
        EXPECT_EQ(result.code, 0);
        EXPECT_THAT(result.out, MatchesRegex("[1-9][0-9]+\n")); // and not the password
        m_Port = std::stoi(result.out);
        m_Key = password;
        EXPECT_TRUE(DaemonAnswers());
        EXPECT_EQ(RelayWithKey("8 chars!", {"-ping"}).err,
                  "qlnsrv, the key is not the one of the qlnsrvd there\n");
    }
}

TEST_F(MarlekProgram, APasswordThatIsTooShortOrTooLongIsRefused)
{
    ExpectFailure(Marlek({}, ""), "a key has at least 8 bytes, this one has 0");
    ExpectFailure(Marlek({}, "7 chars"), "a key has at least 8 bytes, this one has 7");
    ExpectFailure(Marlek({}, std::string(256, 'p')), "a key has at most 255 bytes, this one has more");
}

TEST_F(MarlekProgram, TheDaemonListensOnTheAddressOnWhichTheLoginCameIn)
{
    ::setenv("SSH_CONNECTION", "127.0.0.9 50000 127.0.0.2 22", 1);
    Start();
    EXPECT_FALSE(ConnectTo(m_Port, "127.0.0.1").IsOpen());
    EXPECT_TRUE(ConnectTo(m_Port, "127.0.0.2").IsOpen());
}

// As a remote shell without encryption starts it: there is no SSH_CONNECTION, and the connection itself is the input.
TEST_F(MarlekProgram, TheDaemonListensOnTheAddressOfTheConnectionThatIsTheInputOrOutput)
{
    const farend::Descriptor listener = Listening("127.0.0.2");
    const farend::Descriptor client = ConnectTo(PortOf(listener), "127.0.0.2");
    const farend::Descriptor login(::accept(listener.Get(), nullptr, nullptr));
    const std::string number = std::to_string(login.Get());
    ASSERT_LT(login.Get(), 10); // a shell's redirection takes one digit
    for (const std::string& redirection : {"<&" + number, ">&" + number})
    {
        const Words words = {Program("marlek"), "networkDBConnector", "-automaticServer"};
        const ChildResult result = BoundedChild(Redirected(redirection, words)).Finish();
        ASSERT_EQ(result.code, 0) << result.out;
        const std::string out = redirection[0] == '>' ? LinesFrom(client, 3) : result.out;
        const int port = std::stoi(out);
        EXPECT_FALSE(ConnectTo(port, "127.0.0.1").IsOpen());
        EXPECT_TRUE(ConnectTo(port, "127.0.0.2").IsOpen());
    }
    ::setenv("SSH_CONNECTION", "127.0.0.9 50000 127.0.0.3 22", 1);
    const ChildResult result =
        BoundedChild(Redirected("<&" + number, {Program("marlek"), "networkDBConnector", "-automaticServer"}))
            .Finish();
    EXPECT_TRUE(ConnectTo(std::stoi(result.out), "127.0.0.3").IsOpen());
}

TEST_F(MarlekProgram, OptionsOfTheDaemonReachIt)
{
    ExpectFailure(Marlek({"-connections", "0", "-automaticServer"}),
                  "qlnsrvd, -connections wants a whole number from 1 to 1000, not \"0\"");
    ExpectFailure(Marlek({"-prove", "0", "-automaticServer"}),
                  "qlnsrvd, -prove wants a whole number from 1 to 2147483647, not \"0\"");
    Start({"-connections", "1", "-prove", "9000"});
    const auto relay = OpenRelay({kBrowsing, "echo"});
    EXPECT_EQ(Relay({kBrowsing, "echo"}).err,
              "qlnsrvd, as many connections are open as there may be; try again later\n");
}

TEST_F(MarlekProgram, WithoutStandardDescriptorsItWorksOrLeavesNothing)
{
    const Words words = {Program("marlek"), "networkDBConnector", "-port", "auto_assigned",
                         "-automaticServer"};
    for (const std::string redirection : {"<&-", "2>&-"})
    {
        const ChildResult result = BoundedChild(Redirected(redirection, words)).Finish();
        EXPECT_EQ(result.code, 0);
        ASSERT_THAT(result.out, MatchesRegex("[1-9][0-9]+\n64\nqlnsrvd-key:[0-9a-f]+\n"));
        m_Port = std::stoi(result.out);
        m_Key = result.out.substr(result.out.find(':') + 1, 64);
        EXPECT_EQ(Relay({"-kill"}).code, 0);
        EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().empty(); }));
    }
    EXPECT_EQ(BoundedChild(Redirected(">&-", words)).Finish().code, 1);
    EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().empty(); }));
    ExpectFailure(BoundedChild(Redirected("<&-", {Program("marlek"), "networkDBConnector"})).Finish(),
                  "cannot read the key: Bad file descriptor");
}

TEST_F(MarlekProgram, AnAddressThatIsNamedWinsOverThatOfTheLogin)
{
    ::setenv("SSH_CONNECTION", "127.0.0.9 50000 127.0.0.2 22", 1);
    Start({"-listen", "127.0.0.3"});
    EXPECT_FALSE(ConnectTo(m_Port, "127.0.0.2").IsOpen());
    EXPECT_TRUE(ConnectTo(m_Port, "127.0.0.3").IsOpen());
}

TEST_F(MarlekProgram, ALoginThatDoesNotSayWhereItCameInIsRefused)
{
    for (const char* connection : {"", "127.0.0.1", "127.0.0.1 50000", "127.0.0.1 50000 127.0.0.1"})
    {
        ::setenv("SSH_CONNECTION", connection, 1);
        ExpectFailure(Marlek({"-automaticServer"}),
                      "qlnsrvd, cannot tell from SSH_CONNECTION where to listen; use -listen ADDRESS");
    }
}
