#include "FarEnd.h"

using ::testing::StartsWith;

class RelayProgram : public FarEnd
{
protected:
    void SetUp() override
    {
        FarEnd::SetUp();
        StartDaemon();
    }
    ChildResult Run(Words words, const std::string& input = "")
    {
        words.insert(words.begin(), Program("qlnsrv"));
        return BoundedChild(words).Finish(input);
    }
    static void ExpectFailure(const ChildResult& result, const std::string& line)
    {
        EXPECT_EQ(result.err, line + "\n");
        EXPECT_NE(result.code, 0);
        EXPECT_EQ(result.out, "");
    }
    static std::string Noise(std::size_t count)
    {
        std::string bytes(count, '\0');
        unsigned state = 1;
        for (char& byte : bytes)
        {
            state = state * 1664525U + 1013904223U;
            byte = static_cast<char>(state >> 24U);
        }
        return bytes;
    }
};

TEST_F(RelayProgram, OneByteTellsThatTheServiceRunsAndThenTheServiceSpeaks)
{
    const ChildResult result = Relay({kBrowsing, "echo"}, "hello");
    EXPECT_EQ(result.out, "\x01hello");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.code, 0);
}

TEST_F(RelayProgram, TheByteComesBeforeAnythingIsSentToTheService)
{
    const auto relay = OpenRelay({kBrowsing, "echo"});
    relay->Write("one");
    EXPECT_EQ(relay->Read(3), "one");
    relay->Write("two");
    EXPECT_EQ(relay->Read(3), "two");
    EXPECT_EQ(relay->Finish().code, 0);
}

TEST_F(RelayProgram, TheFileAssistantAnswersForItselfAndGetsTheKeyFromTheDaemon)
{
    const ChildResult result = Relay({kAssistant, "echo"}, "request");
    EXPECT_EQ(result.out, KeyMessage(m_Key) + "request");
    EXPECT_EQ(result.code, 0);
}

TEST_F(RelayProgram, WhatStandsBehindTheServiceIsTheServicesEvenWithADash)
{
    EXPECT_EQ(Relay({kBrowsing, "arguments", "/a b/$HOME;*", "-scratch", "", "-kill"}).out,
              std::string("\x01[") + kBrowsing + "][arguments][/a b/$HOME;*][-scratch][][-kill]");
}

TEST_F(RelayProgram, MegabytesGoBothWaysAtOnceAndArriveAsTheyWere)
{
    const std::string bytes = Noise(8 << 20);
    const ChildResult result = Relay({kBrowsing, "echo"}, bytes);
    EXPECT_EQ(result.out.size(), bytes.size() + 1);
    EXPECT_TRUE(result.out == "\x01" + bytes);
    EXPECT_EQ(result.code, 0);
}

TEST_F(RelayProgram, PiecesAroundTheSizeOfAFrameArriveAsTheyWere)
{
    const auto relay = OpenRelay({kBrowsing, "echo"});
    for (const std::size_t size :
         {1U, 4096U, 16380U, 16381U, 16382U, 16384U, 32762U, 65537U, 131047U, 131048U, 131049U, 262145U})
    {
        const std::string bytes = Noise(size);
        relay->Write(bytes);
        EXPECT_TRUE(relay->Read(size) == bytes) << size;
    }
    EXPECT_EQ(relay->Finish().code, 0);
}

TEST_F(RelayProgram, TheEndOfTheInputReachesTheServiceWhileItsOutputStillComes)
{
    const ChildResult result = Relay({kBrowsing, "count"}, Noise(100000));
    EXPECT_EQ(result.out, "\x01"
                          "100000");
    EXPECT_EQ(result.code, 0);
}

TEST_F(RelayProgram, WaitingForALateServiceWithoutInputCostsNoProcessorTime)
{
    const ChildResult result = Relay({kBrowsing, "late", "1500"});
    EXPECT_EQ(result.out, "\x01late");
    EXPECT_LT(result.processorTime, std::chrono::milliseconds(700));
    ASSERT_TRUE(Eventually([this] { return DaemonsChildren() == 0; }));
    const auto all = Descendants();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_LT(all[0].childrenTicks, ::sysconf(_SC_CLK_TCK) * 7 / 10);
}

TEST_F(RelayProgram, AServiceThatFailsWithoutAWordIsToldWithItsCode)
{
    const ChildResult result = Relay({kBrowsing, "exit", "7"});
    EXPECT_EQ(result.err, "qlnsrvd, the service rdsT_FileBrowsing ended with exit code 7\n");
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(Relay({kBrowsing, "raise", "9"}).err,
              "qlnsrvd, the service rdsT_FileBrowsing ended with signal 9\n");
}

TEST_F(RelayProgram, WhatAFailingServiceSaysIsTheLastLine)
{
    const ChildResult result = Relay({kAssistant, "complain", "cannot open it"});
    EXPECT_EQ(result.err, "assistant, cannot open it\n");
    EXPECT_EQ(result.code, 1);
}

TEST_F(RelayProgram, WhatAServiceSaysOfErrorsIsKeptUpToABound)
{
    EXPECT_EQ(Relay({kBrowsing, "chatter", "65536"}).err, std::string(65536, 'c'));
    const ChildResult result = Relay({kBrowsing, "chatter", "1000000"}, "");
    EXPECT_EQ(result.err, std::string(65536, 'c'));
    EXPECT_EQ(result.out, "\x01");
    EXPECT_EQ(result.code, 0);
}

TEST_F(RelayProgram, WhatAServiceSaysOfErrorsIsNoCommandToTheTerminal)
{
    EXPECT_EQ(Relay({kAssistant, "complain", "\x1b[2Jgone\x07\r\tA\x7f\x9b"}).err,
              "assistant, ?[2Jgone??\tA??\n");
}

TEST_F(RelayProgram, AClosedStandardDescriptorIsNotTakenForTheConnection)
{
    const auto relay = [this](const std::string& redirection, const Words& words)
    { return BoundedChild(Redirected(redirection, RelayWords(words))).Finish(KeyMessage(m_Key)); };
    ExpectFailure(relay("<&-", {kBrowsing, "echo"}), "qlnsrv, cannot read the key: Bad file descriptor");
    ExpectFailure(relay(">&-", {kBrowsing, "echo"}), "qlnsrv, nobody reads the standard output any more");
    const ChildResult result = relay("2>&-", {kBrowsing, "count"});
    EXPECT_EQ(result.out, "\x01"
                          "0");
    EXPECT_EQ(result.code, 0);
}

TEST_F(RelayProgram, AServiceThatLeavesAChildWithItsOutputStillEndsTheRelay)
{
    const ChildResult result = Relay({kBrowsing, "leave"});
    EXPECT_EQ(result.out, "\x01left");
    EXPECT_EQ(result.code, 0);
    EXPECT_TRUE(Eventually(
        [] { return ReapAll() && Descendants().size() == 1; })); // the daemon; the child left behind is ended
}

TEST_F(RelayProgram, AServiceThatReadsNothingIsStillEndedByTheRelaysEnd)
{
    auto relay = OpenRelay({kBrowsing, "deaf"});
    EXPECT_EQ(relay->Read(4), "deaf");
    relay->Write(Noise(1 << 20));
    relay.reset();
    EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().size() == 1; }));
}

TEST_F(RelayProgram, ARelayWhoseOutputNobodyReadsEndsAndItsServiceToo)
{
    const auto relay = OpenRelay({kBrowsing, "late", "600000"});
    relay->CloseOutput();
    const ChildResult result = relay->Reap();
    EXPECT_NE(result.code, 0);
    EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().size() == 1; }));
}

TEST_F(RelayProgram, PingTellsWhetherTheDaemonAnswers)
{
    const ChildResult result = Relay({"-ping"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST_F(RelayProgram, KillEndsTheDaemonAndFreesItsPortBeforeItAnswers)
{
    EXPECT_EQ(Relay({"-kill"}).code, 0);
    EXPECT_FALSE(ConnectTo(m_Port).IsOpen());
    EXPECT_EQ(AwaitDaemon(), 0);
    ExpectFailure(Relay({"-ping"}), "qlnsrv, cannot connect to 127.0.0.1 port " + std::to_string(m_Port) +
                                        ": Connection refused");
}

TEST_F(RelayProgram, TheLibrarysOrderOfArgumentsForKillAndPingWorks)
{
    const std::string port = std::to_string(m_Port);
    EXPECT_EQ(Run({"-cpu", "127.0.0.1", "-port", port, "-ping"}, KeyMessage(m_Key)).code, 0);
    EXPECT_EQ(Run({"-cpu", "127.0.0.1", "-port", port, "-kill"}, KeyMessage(m_Key)).code, 0);
}

TEST_F(RelayProgram, AWrongKeyIsRefusedForEverything)
{
    for (const Words& words : {Words{kBrowsing, "echo"}, Words{"-ping"}, Words{"-kill"}})
        ExpectFailure(RelayWithKey(std::string(64, 'b'), words),
                      "qlnsrv, the key is not the one of the qlnsrvd there");
    EXPECT_TRUE(DaemonAnswers());
}

TEST_F(RelayProgram, WithoutAKeyNothingIsDone)
{
    for (const Words& words : {Words{kBrowsing, "echo"}, Words{"-ping"}, Words{"-kill"}})
    {
        ExpectFailure(BoundedChild(RelayWords(words)).Finish(),
                      "qlnsrv, the standard input ended before the key");
        ExpectFailure(RelayWithKey("", words), "qlnsrv, a key has at least 8 bytes, this one has 0");
        ExpectFailure(RelayWithKey("7 chars", words), "qlnsrv, a key has at least 8 bytes, this one has 7");
    }
    ExpectFailure(BoundedChild(RelayWords({"-ping"})).Finish("\x40half"),
                  "qlnsrv, the standard input ended inside the key");
    EXPECT_TRUE(DaemonAnswers());
}

TEST_F(RelayProgram, ADaemonThatDiesIsTold)
{
    const auto relay = OpenRelay({kBrowsing, "late", "600000"});
    ::kill(m_Daemon, SIGKILL);
    const ChildResult result = relay->Finish();
    EXPECT_EQ(result.err, "qlnsrv, the connection was lost\n");
    EXPECT_NE(result.code, 0);
    EXPECT_TRUE(Eventually([] { return ReapAll() && Descendants().empty(); }));
}

TEST_F(RelayProgram, HostsThatBeginWithADashAreRefused)
{
    ExpectFailure(Run({"-cpu", "-oProxyCommand=x", "-port", "1", "-ping"}),
                  "qlnsrv, a host cannot begin with a dash: -oProxyCommand=x");
}

TEST_F(RelayProgram, WhatIsWrongInTheArgumentsIsTold)
{
    ExpectFailure(Run({}), "qlnsrv, there is no host: use -cpu HOST");
    ExpectFailure(Run({"-cpu", "h"}), "qlnsrv, there is no port: use -port PORT");
    ExpectFailure(Run({"-cpu", "h", "-port", "1"}),
                  "qlnsrv, there is nothing to do: use SERVICE, -kill or -ping");
    ExpectFailure(Run({"-cpu", "h", "-port", "1", "-kill", "-ping"}),
                  "qlnsrv, use one of SERVICE, -kill and -ping");
    ExpectFailure(Run({"-cpu", "h", "-port", "1", "-kill", "s"}),
                  "qlnsrv, use one of SERVICE, -kill and -ping");
    ExpectFailure(Run({"-port", "1", "-cpu"}), "qlnsrv, -cpu wants a value behind it");
    ExpectFailure(Run({"-cpu", "h", "-verbose"}), "qlnsrv, there is no option -verbose");
    for (const std::string port : {"0", "65536", "x", "22;ls"})
        ExpectFailure(Run({"-cpu", "h", "-port", port, "-ping"}),
                      "qlnsrv, -port wants a whole number from 1 to 65535, not \"" + port + "\"");
}

TEST_F(RelayProgram, AHostThatIsNotThereIsTold)
{
    EXPECT_THAT(Run({"-cpu", "no.such.host.invalid", "-port", "1", "-ping"}, KeyMessage(m_Key)).err,
                StartsWith("qlnsrv, cannot find the address of no.such.host.invalid: "));
}

TEST_F(RelayProgram, ArgumentsThatAreTooLongAreRefused)
{
    ExpectFailure(Relay({kBrowsing, std::string(20000, 'x')}),
                  "qlnsrv, the arguments of the service are too long");
    EXPECT_TRUE(DaemonAnswers());
}
