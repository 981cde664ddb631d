#include "FarEnd.h"
#include "ServiceProcess.h"

using namespace farend;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

class DaemonProgram : public FarEnd
{
protected:
    // A connection on which nothing has been proved, behind its hello.
    Descriptor Stranger()
    {
        Descriptor socket = ConnectTo(m_Port);
        EXPECT_EQ(Received(socket, kHelloBytes).size(), kHelloBytes);
        return socket;
    }
    static void Send(const Descriptor& socket, const std::string& bytes)
    {
        ::send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    // Whether the daemon ends the connection; what it sends before counts for nothing.
    static bool IsEnded(const Descriptor& socket)
    {
        const Deadline deadline = Soon();
        for (char bytes[4096]; !deadline.HasPassed();)
        {
            pollfd readable = {socket.Get(), POLLIN, 0};
            ::poll(&readable, 1, deadline.MillisecondsLeft());
            const ssize_t got = ::recv(socket.Get(), bytes, sizeof bytes, MSG_DONTWAIT);
            if (got == 0 || (got < 0 && errno != EAGAIN)) return true;
        }
        return false;
    }
    HelloStatus StatusOfNewConnection()
    {
        return DecodeHello(Received(ConnectTo(m_Port), kHelloBytes)).status;
    }
    // Sends frames of the test's making after a right proof, and waits for the connection's end.
    void ExpectEndAfter(FrameType type, const std::string& payload)
    {
        const auto channel = Proved();
        channel->Send(type, payload);
        channel->FlushBy(Soon());
        EXPECT_FALSE(channel->NextBy(Soon()).has_value());
        EXPECT_TRUE(channel->HasEnded());
        EXPECT_TRUE(DaemonAnswers());
    }
    std::string LogText() const { return FileText(Path("log")); }
};

TEST_F(DaemonProgram, ServicesThatAreNotInItsTableAreRefused)
{
    StartDaemon();
    for (const std::string name :
         {"sh", "/bin/sh", "../bin/rdsT_FileBrowsing", "./rdsT_FileBrowsing", "qlnsrvd", "rdst_filebrowsing"})
    {
        const ChildResult result = Relay({name});
        EXPECT_EQ(result.err, "qlnsrvd, there is no service " + name + "\n");
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.code, 0);
    }
}

TEST_F(DaemonProgram, AServiceThatCannotBeStartedIsTold)
{
    std::filesystem::remove(Program(kBrowsing));
    StartDaemon();
    const ChildResult result = Relay({kBrowsing});
    EXPECT_EQ(result.err, "qlnsrvd, cannot start rdsT_FileBrowsing: No such file or directory\n");
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.code, 0);
    EXPECT_TRUE(DaemonAnswers());
}

TEST_F(DaemonProgram, AServiceForWhichThereAreNoPipesCannotBeStarted)
{
    const auto refusalAmong = [this](rlim_t descriptors)
    {
        rlimit limit = {};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit low = {descriptors, limit.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &low);
        std::string text;
        try
        {
            const qlnsrvd::ServiceProcess process(Program("nothing"), {kBrowsing});
        }
        catch (const qlnsrvd::CannotStart& failure)
        {
            text = failure.what();
        }
        ::setrlimit(RLIMIT_NOFILE, &limit);
        return text;
    };
    // A sanitizer takes a descriptor for its first look at each class of exceptions.
    EXPECT_STREQ(Failure("x", EMFILE).what(), "x: Too many open files");
    EXPECT_EQ(refusalAmong(100), "cannot start rdsT_FileBrowsing: No such file or directory");
    EXPECT_EQ(refusalAmong(3), "cannot start rdsT_FileBrowsing: cannot make a pipe: Too many open files");
}

// Without a standard error nothing is missing but words; without the other two it can't begin.
TEST_F(DaemonProgram, AClosedStandardDescriptorIsNotTakenForTheListener)
{
    const auto start = [this](const std::string& redirection)
    {
        return BoundedChild(Redirected(redirection, {Program("qlnsrvd")}))
            .Finish(KeyMessage(std::string(64, 'a')));
    };
    EXPECT_EQ(start("<&-").err, "qlnsrvd, cannot read the key: Bad file descriptor\n");
    EXPECT_EQ(start(">&-").code, 1);
    EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().empty(); }));
    std::istringstream report(start("2>&-").out);
    std::string word;
    report >> word >> m_Port >> m_Daemon;
    ASSERT_EQ(word, "listening");
    m_Key = std::string(64, 'a');
    EXPECT_TRUE(DaemonAnswers());
    EXPECT_EQ(Relay({kBrowsing, "descriptors"}).out, "\x01"
                                                     "0 1 2 ");
}

TEST_F(DaemonProgram, ADaemonOfWhichNobodyCouldBeToldEnds)
{
    const ChildResult result =
        BoundedChild({Program("qlnsrvd")}, "/dev/full").Finish(KeyMessage(std::string(64, 'a')));
    EXPECT_EQ(result.code, 1);
    EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().empty(); }));
}

TEST_F(DaemonProgram, AServiceHasItsThreeStandardDescriptorsAndNoOther)
{
    StartDaemon({"-error", Path("log")});
    const auto other = OpenRelay({kBrowsing, "echo"});
    EXPECT_EQ(Relay({kBrowsing, "descriptors"}).out, "\x01"
                                                     "0 1 2 ");
}

TEST_F(DaemonProgram, ManyRelaysAtOnceEachHaveTheirOwnService)
{
    StartDaemon();
    std::vector<std::unique_ptr<BoundedChild>> relays;
    for (int i = 0; i < 8; ++i) relays.push_back(OpenRelay({kBrowsing, "echo"}));
    for (std::size_t i = 0; i < relays.size(); ++i) relays[i]->Write("relay " + std::to_string(i));
    for (std::size_t i = relays.size(); i-- > 0;) EXPECT_EQ(relays[i]->Read(7), "relay " + std::to_string(i));
    for (const auto& relay : relays) EXPECT_EQ(relay->Finish().code, 0);
}

TEST_F(DaemonProgram, GarbageEndsItsOwnConnectionAndNothingElse)
{
    StartDaemon();
    const auto relay = OpenRelay({kBrowsing, "echo"});
    for (const std::string& garbage :
         {std::string("GET / HTTP/1.1\r\n\r\n"), std::string(100000, '\0'), std::string(300, '\xFF'),
          std::string("\x16\x03\x01\xFF\xFF", 5) + std::string(70000, 'x')})
    {
        const Descriptor stranger = Stranger();
        Send(stranger, garbage);
        EXPECT_TRUE(IsEnded(stranger));
    }
    relay->Write("still here");
    EXPECT_EQ(relay->Read(10), "still here");
    EXPECT_TRUE(DaemonAnswers());
}

TEST_F(DaemonProgram, FramesOutOfPlaceEndTheConnection)
{
    StartDaemon();
    ExpectEndAfter(FrameType::Data, "data before a request");
    ExpectEndAfter(FrameType::Request, "");
    ExpectEndAfter(FrameType::Request, std::string("\x01\0\0", 3));
    ExpectEndAfter(FrameType::Request, std::string("\x01\0\1\0\3a\0b", 8));
    ExpectEndAfter(static_cast<FrameType>(9), "a type that there is not");
}

TEST_F(DaemonProgram, ARelayThatBreaksTheRulesWhileItsServiceRunsIsEndedWithIt)
{
    StartDaemon();
    for (const FrameType type : {FrameType::Request, FrameType::Closed, FrameType::Error})
    {
        const auto channel = Proved();
        channel->Send(FrameType::Request, EncodeRequest({Action::Run, {kBrowsing, "echo"}}));
        channel->FlushBy(Soon());
        ASSERT_TRUE(channel->NextBy(Soon()).has_value());
        channel->Send(type, "x");
        channel->FlushBy(Soon());
        EXPECT_FALSE(channel->NextBy(Soon()).has_value());
    }
    auto channel = Proved();
    channel->Send(FrameType::Request, EncodeRequest({Action::Run, {kBrowsing, "late", "600000"}}));
    channel->Send(FrameType::End, "");
    channel->Send(FrameType::Data, "after the end");
    channel->FlushBy(Soon());
    ASSERT_TRUE(channel->NextBy(Soon()).has_value());
    EXPECT_FALSE(channel->NextBy(Soon()).has_value());
    channel.reset();
    EXPECT_TRUE(Eventually([this] { return DaemonsChildren() == 0; }));
}

TEST_F(DaemonProgram, WhoSaysNothingIsCutWhenItsTimeIsUp)
{
    StartDaemon({"-prove", "100", "-error", Path("log")});
    EXPECT_TRUE(IsEnded(Stranger()));
    EXPECT_THAT(LogText(), HasSubstr(" 127.0.0.1: refused: too slow to prove the key\n"));
    EXPECT_TRUE(Eventually([this] { return DaemonsChildren() == 0; }));
}

TEST_F(DaemonProgram, WhoSaysItByteByByteIsCutToo)
{
    StartDaemon({"-prove", "100"});
    const Descriptor stranger = Stranger();
    Send(stranger, std::string("\x16\x03\x01\x10\x00", 5)); // a record of 4096 bytes follows
    EXPECT_TRUE(Eventually(
        [&]
        {
            Send(stranger, "x");
            char byte = 0;
            const ssize_t got = ::recv(stranger.Get(), &byte, 1, MSG_DONTWAIT);
            return got == 0 || (got < 0 && errno != EAGAIN);
        }));
    EXPECT_TRUE(Eventually([this] { return DaemonsChildren() == 0; }));
}

TEST_F(DaemonProgram, WhoProvesTheKeyAndAsksNothingIsCutToo)
{
    StartDaemon({"-prove", "1000"});
    const auto channel = Proved();
    EXPECT_FALSE(channel->NextBy(Soon()).has_value());
    EXPECT_TRUE(channel->HasEnded());
}

TEST_F(DaemonProgram, StrangersHaveSixteenPlacesAndTheNextIsTurnedAway)
{
    StartDaemon();
    std::vector<Descriptor> strangers;
    for (int i = 0; i < 16; ++i) strangers.push_back(Stranger());
    EXPECT_EQ(StatusOfNewConnection(), HelloStatus::Full);
    const ChildResult result = Relay({"-ping"});
    EXPECT_EQ(result.err, "qlnsrvd, as many connections are open as there may be; try again later\n");
    EXPECT_NE(result.code, 0);
    strangers.clear();
    EXPECT_TRUE(Eventually([this] { return DaemonAnswers(); }));
}

TEST_F(DaemonProgram, AsManyServicesRunAsThereMayBe)
{
    StartDaemon({"-connections", "2"});
    const auto first = OpenRelay({kBrowsing, "echo"});
    const auto second = OpenRelay({kBrowsing, "echo"});
    EXPECT_EQ(Relay({kBrowsing, "echo"}).err,
              "qlnsrvd, as many connections are open as there may be; try again later\n");
    EXPECT_EQ(first->Finish().code, 0);
    EXPECT_TRUE(Eventually([this] { return Relay({kBrowsing, "echo"}).code == 0; }));
}

TEST_F(DaemonProgram, ADaemonWhoseServicesAreAllTakenAnswersAndEndsAllTheSame)
{
    StartDaemon({"-connections", "1", "-error", Path("log")});
    const auto relay = OpenRelay({kBrowsing, "echo"});
    EXPECT_EQ(Relay({kBrowsing, "echo"}).err,
              "qlnsrvd, as many connections are open as there may be; try again later\n");
    EXPECT_THAT(
        LogText(),
        HasSubstr(" 127.0.0.1: refused: as many connections are open as there may be; try again later\n"));
    EXPECT_EQ(Relay({"-ping"}).code, 0);
    EXPECT_EQ(Relay({"-kill"}).code, 0);
    EXPECT_EQ(AwaitDaemon(), 0);
    EXPECT_NE(relay->Finish().code, 0);
}

TEST_F(DaemonProgram, ManyWrongKeysMakeTheirHostWaitEvenWithTheRightOne)
{
    StartDaemon({"-error", Path("log")});
    const auto before = OpenRelay({kBrowsing, "echo"});
    const auto wrongKeys = [this]
    {
        const std::string text = LogText();
        std::size_t count = 0;
        for (auto at = text.find("wrong key, or"); at != std::string::npos;
             at = text.find("wrong key, or", at + 1))
            ++count;
        return count;
    };
    // All are let in before the first is counted; the wait is two seconds then.
    std::vector<Descriptor> sockets;
    for (int i = 0; i < 6; ++i)
    {
        sockets.push_back(ConnectTo(m_Port));
        ASSERT_TRUE(Eventually([&] { return DaemonsChildren() == static_cast<std::size_t>(i) + 2; }));
    }
    for (Descriptor& socket : sockets)
    {
        const Hello hello = DecodeHello(Received(socket, kHelloBytes));
        const SharedSecret wrong(Key(std::string(64, 'b')), hello);
        const ProvingTls tls(ProvingTls::End::Relay, wrong);
        EXPECT_EQ(Channel(tls, std::move(socket)).Prove(Soon()), Channel::Proof::Refused);
    }
    ASSERT_TRUE(Eventually([&] { return wrongKeys() == 6 && DaemonsChildren() == 1; })); // one: who is in
    EXPECT_EQ(StatusOfNewConnection(), HelloStatus::Waiting);
    EXPECT_EQ(Relay({"-ping"}).err,
              "qlnsrvd, too many wrong keys came from this host; try again in a few minutes\n");
    before->Write("who is in stays in");
    EXPECT_EQ(before->Read(18), "who is in stays in");
    EXPECT_TRUE(Eventually([this] { return DaemonAnswers(); }));
    RelayWithKey(std::string(64, 'b'), {"-ping"});
    EXPECT_TRUE(DaemonAnswers()); // the right key has cleared the count
}

TEST_F(DaemonProgram, ItEndsWhenNobodyHasComeForTheTimeout)
{
    StartDaemon({"-timeout", "1", "-error", Path("log")});
    const Descriptor stranger = Stranger(); // who has proved nothing keeps nothing alive
    EXPECT_EQ(AwaitDaemon(), 0);
    EXPECT_THAT(LogText(), HasSubstr(" daemon: ends: nobody came for the timeout\n"));
}

TEST_F(DaemonProgram, AServiceKeepsItAliveBeyondTheTimeoutWhichCountsFromItsEnd)
{
    StartDaemon({"-timeout", "1"});
    EXPECT_EQ(Relay({kBrowsing, "late", "1500"}).out, "\x01late");
    EXPECT_TRUE(DaemonAnswers());
    EXPECT_EQ(AwaitDaemon(), 0);
}

TEST_F(DaemonProgram, KillEndsServicesToo)
{
    StartDaemon();
    const auto relay = OpenRelay({kBrowsing, "late", "600000"});
    EXPECT_EQ(Relay({"-kill"}).code, 0);
    EXPECT_EQ(AwaitDaemon(), 0);
    EXPECT_NE(relay->Finish().code, 0);
    EXPECT_TRUE(Descendants().empty());
}

TEST_F(DaemonProgram, KillEndsEvenServicesThatDoNotWantTo)
{
    StartDaemon();
    const auto relay = OpenRelay({kBrowsing, "stubborn"});
    EXPECT_EQ(relay->Read(5), "ready");
    EXPECT_EQ(Relay({"-kill"}).code, 0);
    EXPECT_EQ(AwaitDaemon(), 0);
    EXPECT_NE(relay->Finish().code, 0);
    EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().empty(); }));
}

TEST_F(DaemonProgram, ASignalEndsItInGoodOrder)
{
    StartDaemon({"-error", Path("log")});
    const auto relay = OpenRelay({kBrowsing, "echo"});
    ::kill(m_Daemon, SIGTERM);
    EXPECT_EQ(AwaitDaemon(), 0);
    EXPECT_THAT(LogText(), HasSubstr(" daemon: has ended\n"));
    EXPECT_NE(relay->Finish().code, 0);
}

TEST_F(DaemonProgram, RoundsOfStartRunAndKillLeaveNothingBehind)
{
    for (int i = 0; i < 10; ++i)
    {
        Start();
        EXPECT_EQ(Relay({kBrowsing, "echo"}, "round").out, "\x01round");
        EXPECT_EQ(Relay({"-kill"}).code, 0);
        EXPECT_EQ(AwaitDaemon(), 0);
        EXPECT_TRUE(Descendants().empty());
    }
}

TEST_F(DaemonProgram, ManyConnectionsLeaveNoZombiesAndNoDescriptors)
{
    StartDaemon();
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(DaemonAnswers());
    EXPECT_TRUE(Eventually([this] { return DaemonsChildren() == 0; }));
    std::error_code refused;
    const std::filesystem::directory_iterator descriptors("/proc/" + std::to_string(m_Daemon) + "/fd",
                                                          refused);
    if (::geteuid() == 0)
        EXPECT_EQ(std::distance(begin(descriptors), end(descriptors)), 5);
    else
        EXPECT_EQ(refused, std::errc::permission_denied);
}

TEST_F(DaemonProgram, TheLogTellsEachEventInALineAndNeverTheKey)
{
    StartDaemon({"-error", Path("log")});
    EXPECT_EQ(Relay({kAssistant, "echo"}, "content").code, 0);
    RelayWithKey(std::string(64, 'b'), {"-ping"});
    EXPECT_EQ(Relay({"no\nsuch"}).code, 1);
    EXPECT_EQ(Relay({"-ping"}).code, 0);
    EXPECT_EQ(Relay({"-kill"}).code, 0);
    EXPECT_EQ(AwaitDaemon(), 0);
    const std::string log = LogText();
    for (const char* event :
         {"daemon: listens on 127.0.0.1 port ", "127.0.0.1: proved the key\n",
          "127.0.0.1: runs rfmT_FileAssistant\n", "127.0.0.1: rfmT_FileAssistant has ended\n",
          "127.0.0.1: refused: a wrong key, or no relay\n",
          "127.0.0.1: refused: there is no service no?such\n", "127.0.0.1: ping\n", "127.0.0.1: kill\n",
          "daemon: ends: a relay asked for the end\n", "daemon: has ended\n"})
        EXPECT_THAT(log, HasSubstr(event));
    EXPECT_EQ(log.find(m_Key), std::string::npos);
    EXPECT_EQ(log.find("content"), std::string::npos);
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
        EXPECT_THAT(
            line, ::testing::MatchesRegex("[0-9-]+ [0-9:]+ UTC qlnsrvd\\[[0-9]+\\] (daemon|127.0.0.1): .+"));
    EXPECT_EQ(std::filesystem::status(Path("log")).permissions(), std::filesystem::perms(0600));
}

TEST_F(DaemonProgram, WhatIsWrongInTheArgumentsIsTold)
{
    const auto refusal = [this](const Words& words, const std::string& key)
    {
        Words all = {Program("qlnsrvd")};
        all.insert(all.end(), words.begin(), words.end());
        const ChildResult result = BoundedChild(all).Finish(key);
        EXPECT_NE(result.code, 0);
        EXPECT_EQ(result.out, "");
        return result.err;
    };
    const std::string key = KeyMessage(std::string(64, 'a'));
    EXPECT_EQ(refusal({"-verbose"}, key), "qlnsrvd, there is no option -verbose\n");
    EXPECT_EQ(refusal({"-port"}, key), "qlnsrvd, -port wants a value behind it\n");
    EXPECT_EQ(refusal({"-connections", "0"}, key),
              "qlnsrvd, -connections wants a whole number from 1 to 1000, not \"0\"\n");
    EXPECT_EQ(refusal({}, ""), "qlnsrvd, the standard input ended before the key\n");
    EXPECT_EQ(refusal({}, KeyMessage("7 chars")), "qlnsrvd, a key has at least 8 bytes, this one has 7\n");
}
