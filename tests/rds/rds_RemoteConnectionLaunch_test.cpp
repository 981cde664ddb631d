#include "LaunchScene.h"
#include "rds_KeyExchange.h"
#include "utl_FileException.h"

#include <csignal>
#include <fcntl.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace
{
class ALaunch : public LaunchScene
{
};

const std::string kReport = "40001\\n8\\nqlnsrvd-key:abcdefgh\\n"; // as printf takes it
const std::string kFixedReport = "8\\nqlnsrvd-key:abcdefgh\\n";
const char* const kErrorPrefixes[] = {"MARLEK Error:", "*** Error:", "***Error:", "***ERROR:", "*** ERROR:"};
} // namespace

// --- command lines ---------------------------------------------------------------------------------------------

TEST_F(ALaunch, EveryCommandLineHasItsWords)
{
    using enum rds_RemoteLoginMechanismEnm;
    const struct
    {
        Login login;
        int port;
        const char* program;
        bool debug;
        const char* words;
    } rows[] = {
        {RSH, 40000, "", false,
         "rsh [hpc7] [-n] [rundriver] [networkDBConnector] [-port] [40000] [-timeout] [86400] "
         "[-automaticServer]"},
        {RSH, 0, "", false,
         "rsh [hpc7] [-n] [rundriver] [networkDBConnector] [-port] [auto_assigned] [-timeout] [86400] "
         "[-automaticServer]"},
        {SSH, 0, "", false,
         "ssh [hpc7] [-o StrictHostKeyChecking=no] [-n] [rundriver] [networkDBConnector] [-port] "
         "[auto_assigned] [-timeout] [86400] [-automaticServer]"},
        {SSH, 40000, "", false,
         "ssh [hpc7] [-o StrictHostKeyChecking=no] [-o StrictHostKeyChecking=no] [-n] [rundriver] "
         "[networkDBConnector] [-port] [40000] [-timeout] [86400] [-automaticServer]"},
        {SSH, 0, "plink", true,
         "plink [hpc7] [rundriver] [networkDBConnector] [-port] [auto_assigned] [-timeout] [86400] "
         "[-error nrdxError] [-automaticServer]"},
        {SSH, 40000, "plink", false,
         "plink [hpc7] [-o StrictHostKeyChecking=no] [rundriver] [networkDBConnector] [-port] [40000] "
         "[-timeout] [86400] [-automaticServer]"},
        {SSH, 0, "Plink", false, // the search heeds the case
         "Plink [hpc7] [-o StrictHostKeyChecking=no] [-n] [rundriver] [networkDBConnector] [-port] "
         "[auto_assigned] [-timeout] [86400] [-automaticServer]"},
        {RSH, 0, "plink", true, // the path of a secure shell is nothing to the other mechanism
         "rsh [hpc7] [-n] [rundriver] [networkDBConnector] [-port] [auto_assigned] [-timeout] [86400] "
         "[-error nrdxError] [-automaticServer]"},
    };
    for (const auto& row : rows)
    {
        for (const char* program : {"ssh", "rsh", "plink", "Plink"})
            StandIn(std::string("bin/") + program, Print(row.port != 0 ? kFixedReport : kReport));
        const EnvironmentVariable debug("nrdx_debug", row.debug ? "1" : nullptr);
        Connection(row.port, 0, true, row.login, row.program).StartRemoteFileServer();
        EXPECT_EQ(Words(), row.words);
    }
}

TEST_F(ALaunch, AnEmptyDebugVariableAsksForTheLogToo)
{
    Shell(Print(kReport));
    const EnvironmentVariable debug("nrdx_debug", "");
    Connection(0).StartRemoteFileServer();
    EXPECT_THAT(Words(), HasSubstr(" [86400] [-error nrdxError] [-automaticServer]"));
}

TEST_F(ALaunch, AFolderOfThatNameMakesItsProgramsCountAsPlink)
{
    std::filesystem::create_directory(Path("myplinks"));
    StandIn("myplinks/ssh", Print(kReport));
    Connection(0, 0, true, Login::SSH, cow_String(Path("myplinks/ssh"))).StartRemoteFileServer();
    EXPECT_THAT(Words(), StartsWith("ssh [hpc7] [rundriver] "));
}

TEST_F(ALaunch, AHostNameThatWouldBeAnOptionIsRefusedBeforeAnythingIsStarted)
{
    Shell(Print(kReport));
    Relay("printf 1");
    const std::string refusal =
        "*** Error: The host name \"-oProxyCommand=x\" begins with \"-\" and would be "
        "taken for an option.";
    for (const Login login : {Login::SSH, Login::RSH})
        for (const int port : {0, 40000})
        {
            auto connection = Connection(port, 40001, true, login, "", "-oProxyCommand=x");
            EXPECT_EQ(StartFailure(connection), refusal);
            EXPECT_EQ(RunFailure(connection), refusal);
            EXPECT_EQ(Failure([&] { connection.KillRemoteFileServer(); }), refusal);
            EXPECT_EQ(Failure([&] { connection.PingRemoteFileServer(); }), refusal);
            EXPECT_EQ(Failure([&] { connection.ReadRemotePasswordFile(); }), refusal);
        }
    EXPECT_FALSE(Exists("words"));
}

TEST_F(ALaunch, ADriverNameAndAServiceThatWouldBeOptionsAreRefusedToo)
{
    Shell(Print(kReport));
    Relay("printf 1");
    rds_RemoteConnection driver("box1", "hpc7", "", "-oProxyCommand=x", Login::SSH, "", true);
    EXPECT_EQ(StartFailure(driver), "*** Error: The driver name \"-oProxyCommand=x\" begins with \"-\" and "
                                    "would be taken for an option.");
    EXPECT_EQ(Failure([] { End(Running()->RunRemoteFileService("-kill")); }),
              "*** Error: The service \"-kill\" begins with \"-\" and would be taken for an option.");
    EXPECT_FALSE(Exists("words"));
}

TEST_F(ALaunch, AShellThatIsNotThereIsToldAndChangesNeitherKeyNorPort)
{
    const EnvironmentVariable path("PATH", Path("bin").c_str());
    auto connection = Connection(0, 40001);
    connection.SetqlnsrvdKey("abcdefgh");
    EXPECT_THAT(StartFailure(connection), HasSubstr("ssh"));
    EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh");
    EXPECT_EQ(connection.ConnectPortNumber(), 40001);
}

// --- start: what it leaves -------------------------------------------------------------------------------------

TEST_F(ALaunch, AStartOnAFixedPortTakesTheKeyAndConnectsToThatPort)
{
    Shell(Print(kFixedReport));
    auto connection = Connection(40000);
    connection.SetConnectionStatus(Status::CONNECTED);
    connection.SetqlnsrvdKey("another key that is longer");
    connection.StartRemoteFileServer();
    EXPECT_EQ(connection.ConnectPortNumber(), 40000);
    EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh");
    EXPECT_FALSE(connection.Transient());
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::CONNECTED);
}

TEST_F(ALaunch, AStartOnAnAssignedPortTakesThePortAndTheKey)
{
    Shell(Print(kReport));
    auto connection = Connection(0);
    connection.StartRemoteFileServer();
    EXPECT_EQ(connection.ConnectPortNumber(), 40001);
    EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh");
    EXPECT_TRUE(connection.Transient());
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::DISCONNECTED);
}

TEST_F(ALaunch, AStartDoesNotAskWhetherItIsWanted)
{
    Shell(Print(kReport));
    auto connection = Connection(0, 0, false);
    connection.StartRemoteFileServer();
    EXPECT_EQ(connection.ConnectPortNumber(), 40001);
}

TEST_F(ALaunch, WhatALoginShellSaysFirstIsPassedOver)
{
    Shell(Print("Welcome to hpc7\\n\\n0\\nLast login: today\\n40001\\nno number\\n8\\nnoise\\n"
                "qlnsrvd-key:abcdefgh\\nbye\\n"));
    auto connection = Connection(0);
    connection.StartRemoteFileServer();
    EXPECT_EQ(connection.ConnectPortNumber(), 40001);
    EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh");
}

TEST_F(ALaunch, ASilentLoginIsWaitedFor)
{
    ::mkfifo(Path("speak").c_str(), 0600);
    Shell("read word < speak\n" + Print(kReport));
    // Opening the FIFO waits until the login has come that far: nothing has been said by then.
    std::thread silence(
        [&]
        {
            const utl_Descriptor fifo(::open(Path("speak").c_str(), O_WRONLY | O_CLOEXEC));
            EXPECT_EQ(::write(fifo.Get(), "go\n", 3), 3);
        });
    auto connection = Connection(0);
    connection.StartRemoteFileServer();
    silence.join();
    EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh");
}

// --- start: the key --------------------------------------------------------------------------------------------

TEST_F(ALaunch, TheKeyIsAsLongAsItsLengthLineSays)
{
    Shell(Print("4\\nqlnsrvd-key:abcdefgh\\n"));
    auto connection = Connection(40000);
    connection.StartRemoteFileServer();
    EXPECT_STREQ(connection.QlnsrvdKey(), "abcd");
}

TEST_F(ALaunch, AKeyShorterThanItsLengthLineSaysIsTakenWithoutItsLineEnd)
{
    Shell(Print("20\\nqlnsrvd-key:abcdefgh\\n"));
    auto connection = Connection(40000);
    connection.StartRemoteFileServer();
    EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh");
}

TEST_F(ALaunch, ALengthBeyondTheRecordTakesTheKeyThatIsThere)
{
    for (const char* length : {"300", "2147483647", "99999999999999999999"})
    {
        Shell(Print(length + std::string("\\nqlnsrvd-key:abcdefgh\\n")));
        auto connection = Connection(40000);
        connection.StartRemoteFileServer();
        EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh");
    }
}

TEST_F(ALaunch, ALengthBelowZeroIsNoKey)
{
    Shell(Print("-8\\nqlnsrvd-key:abcdefgh\\n"));
    auto connection = Connection(40000);
    EXPECT_EQ(StartFailure(connection), "*** Error: Unable to get private key.  \n");
}

TEST_F(ALaunch, AKeyMayHave255BytesAndNoMore)
{
    for (const std::size_t length : {std::size_t{1}, std::size_t{7}, std::size_t{255}})
    {
        const std::string key(length, 'k');
        Shell(Print(std::to_string(length) + "\\nqlnsrvd-key:" + key + "\\n"));
        auto connection = Connection(40000);
        connection.StartRemoteFileServer();
        EXPECT_EQ(connection.QlnsrvdKey(), key);
    }
    for (const std::size_t length : {std::size_t{256}, std::size_t{300}, std::size_t{900}})
    {
        Shell(Print(std::to_string(length) + "\\nqlnsrvd-key:" + std::string(length, 'k') + "\\n"));
        auto connection = Connection(40000);
        EXPECT_EQ(StartFailure(connection),
                  "*** Error: The key of a connection can't have more than 255 characters.");
        EXPECT_STREQ(connection.QlnsrvdKey(), "");
        EXPECT_EQ(connection.ConnectPortNumber(), 0);
    }
}

TEST_F(ALaunch, AKeyLineBeforeItsLengthIsPassedOver)
{
    Shell(Print("qlnsrvd-key:first\\n8\\nqlnsrvd-key:abcdefgh\\n"));
    auto connection = Connection(40000);
    connection.StartRemoteFileServer();
    EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh");
}

// --- start: failures -------------------------------------------------------------------------------------------

TEST_F(ALaunch, WithAFixedPortAMissingKeyIsToldFirst)
{
    Shell("echo 'no such driver' >&2; exit 1");
    auto connection = Connection(40000, 40001);
    connection.SetqlnsrvdKey("abcdefgh");
    EXPECT_EQ(StartFailure(connection), "*** Error: Unable to get private key.  \n");
    EXPECT_STREQ(connection.QlnsrvdKey(), ""); // the former one is gone
    EXPECT_EQ(connection.ConnectPortNumber(), 40001);
}

TEST_F(ALaunch, WithAFixedPortAFailedLoginIsCalledRshWhateverItWas)
{
    Shell(Print(kFixedReport) + "echo 'cannot listen' >&2; exit 1");
    for (const Login login : {Login::SSH, Login::RSH})
    {
        auto connection = Connection(40000, 0, true, login);
        EXPECT_EQ(StartFailure(connection),
                  "*** Error: rsh to remote host hpc7 failed after 90 seconds: :\nreason: cannot listen\n");
        EXPECT_STREQ(connection.QlnsrvdKey(), "abcdefgh"); // what was taken stays
        EXPECT_EQ(connection.ConnectPortNumber(), 0);
    }
}

TEST_F(ALaunch, WithAnAssignedPortTheExitStatusIsToldFirst)
{
    Shell("echo 'no such driver' >&2; exit 255");
    auto secure = Connection(0);
    EXPECT_EQ(StartFailure(secure),
              "*** Error: ssh to remote host hpc7 failed after 90 seconds: :\nreason: no such driver\n");
    auto plain = Connection(0, 0, true, Login::RSH);
    EXPECT_EQ(StartFailure(plain),
              "*** Error: rsh to remote host hpc7 failed after 90 seconds: :\nreason: no such driver\n");
}

TEST_F(ALaunch, AFailureWithoutWordsSaysThatTheReasonCannotBeDetermined)
{
    Shell("kill -9 $$");
    auto connection = Connection(0);
    EXPECT_EQ(StartFailure(connection), "*** Error: ssh to remote host hpc7 failed after 90 seconds: :\n"
                                        "reason: Can't be determined");
}

TEST_F(ALaunch, AMissingPortIsToldBeforeAMissingKey)
{
    Shell("echo 'in German here' >&2");
    auto connection = Connection(0);
    EXPECT_EQ(StartFailure(connection),
              "*** Error: Unable to get connection port:\nreason: in German here\n");
    Shell("");
    EXPECT_EQ(StartFailure(connection),
              "*** Error: Unable to get connection port:\nreason: Can't be determined");
}

TEST_F(ALaunch, AnOutputThatEndsAtOnceLeavesAnEarlierPortAndOnlyTheKeyIsMissed)
{
    Shell("");
    auto connection = Connection(0, 40001);
    connection.SetqlnsrvdKey("abcdefgh");
    EXPECT_EQ(StartFailure(connection), "*** Error: Unable to get private key. \n");
    EXPECT_EQ(connection.ConnectPortNumber(), 40001);
    EXPECT_STREQ(connection.QlnsrvdKey(), "");
}

TEST_F(ALaunch, AFailedStartKeepsThePortThatItHasRead)
{
    Shell(Print("40002\\n"));
    auto connection = Connection(0, 40001);
    EXPECT_EQ(StartFailure(connection), "*** Error: Unable to get private key. \n");
    EXPECT_EQ(connection.ConnectPortNumber(), 40002);
    EXPECT_TRUE(connection.Transient());
}

TEST_F(ALaunch, AFailedStartOnAFixedPortIsNoLongerTransient)
{
    Shell("");
    auto connection = Connection(40000);
    ASSERT_TRUE(connection.Transient());
    EXPECT_EQ(StartFailure(connection), "*** Error: Unable to get private key.  \n");
    EXPECT_FALSE(connection.Transient());
}

TEST_F(ALaunch, AnErrorLineBecomesTheMessageAsItStands)
{
    for (const std::string prefix : kErrorPrefixes)
    {
        const std::string line = prefix + "100% of %s, and\tmore";
        Put("line", line + "\n");
        // Where a port is looked for; where a length is; where a key is. The exit status is not asked for any more.
        for (const char* before : {"", "printf '40001\\n'; ", "printf '40001\\n8\\n'; "})
        {
            Shell(before + std::string("cat line; exit 3"));
            auto assigned = Connection(0);
            EXPECT_EQ(StartFailure(assigned), line + "\n");
            auto fixed = Connection(40000);
            EXPECT_EQ(StartFailure(fixed), line + "\n");
        }
    }
}

TEST_F(ALaunch, AnErrorBehindOtherTextIsNoErrorLine)
{
    Shell(Print(" *** Error: no\\n" + kReport + "said: ***ERROR: no\\n"));
    auto connection = Connection(0);
    EXPECT_EQ(StartFailure(connection), kNothingThrown);
}

TEST_F(ALaunch, AnErrorEndsTheWaitForALoginThatGoesOn)
{
    Shell("echo '*** Error: stop'; exec sleep 600");
    auto connection = Connection(0);
    EXPECT_EQ(StartFailure(connection), "*** Error: stop\n");
}

TEST_F(ALaunch, FailuresSayThatTheyComeFromTheConnection)
{
    Shell("");
    auto connection = Connection(0);
    try
    {
        connection.StartRemoteFileServer();
        FAIL();
    }
    catch (const nex_TextException& failure)
    {
        EXPECT_EQ(failure.SourceName(), cow_String("rds_RemoteConnection"));
    }
}

TEST_F(ALaunch, ALoginThatDiesAfterAnyByteOfItsReportIsAFailure)
{
    const std::size_t whole = Text("report").size();
    for (std::size_t count = 0; count <= whole; ++count)
    {
        Shell("head -c " + std::to_string(count) + " report; kill -9 $$");
        auto assigned = Connection(0);
        EXPECT_THAT(StartFailure(assigned), StartsWith("*** Error: ssh to remote host hpc7 failed"));
        auto fixed = Connection(40000);
        EXPECT_THAT(StartFailure(fixed), StartsWith("*** Error: "));
        EXPECT_EQ(fixed.ConnectPortNumber(), 0);
    }
}

TEST_F(ALaunch, GarbageIsNoReport)
{
    std::string garbage;
    for (int i = 0; i < 20000; ++i) garbage += static_cast<char>((i * 7919 % 251 + 128) % 256);
    for (char& byte : garbage)
        if (byte >= '0' && byte <= '9') byte = '\0';
    Put("garbage", garbage);
    Shell("cat garbage");
    auto assigned = Connection(0);
    EXPECT_EQ(StartFailure(assigned),
              "*** Error: Unable to get connection port:\nreason: Can't be determined");
    auto fixed = Connection(40000);
    EXPECT_EQ(StartFailure(fixed), "*** Error: Unable to get private key.  \n");
}

// --- running a service -----------------------------------------------------------------------------------------

// The stand-in for the relay keeps length and key of this length, and answers with `answer`.
static std::string TakeKey(int keyLength, const char* answer = "printf '\\000'")
{
    return "head -c " + std::to_string(keyLength + 1) + " > key\n" + answer + "\n";
}

TEST_F(ALaunch, AServiceIsReachedThroughTheRelayWithLengthAndKey)
{
    Relay(TakeKey(8) + "exec cat");
    const auto connection = Running();
    rds_Client* client = connection->RunRemoteFileService("rdsT_FileBrowsing");
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(Words(), "qlnsrv [-cpu] [hpc7] [-private] [-port] [40001] [rdsT_FileBrowsing]");
    EXPECT_EQ(Text("key"), std::string("\x08") + "abcdefgh");
    EXPECT_EQ(connection->RemoteConnectionStatus(), Status::CONNECTED);

    ASSERT_EQ(::write(client->SinkDescriptor(), "ping", 4), 4);
    char answer[4] = {};
    ASSERT_EQ(::read(client->SourceDescriptor(), answer, 4), 4);
    EXPECT_EQ(std::string(answer, 4), "ping");
    EXPECT_TRUE(client->IsRunning());
    End(client);
}

TEST_F(ALaunch, EveryByteWillDoAsTheAnswerAndOneAloneIsTaken)
{
    for (const char* answer : {"printf '\\000x'", "printf '\\377x'", "printf '1x'"})
    {
        Relay(TakeKey(8, answer) + "exec cat");
        rds_Client* client = Running()->RunRemoteFileService("service");
        char next = '\0';
        EXPECT_EQ(::read(client->SourceDescriptor(), &next, 1), 1);
        EXPECT_EQ(next, 'x');
        End(client);
    }
}

TEST_F(ALaunch, KeysOfEveryLengthGoOutWithTheirLength)
{
    for (const int length : {0, 7, 8, 255})
    {
        Relay(TakeKey(length));
        const std::string key(static_cast<std::size_t>(length), 'k');
        const auto connection = Running(cow_String(key));
        End(connection->RunRemoteFileService("service"));
        EXPECT_EQ(Text("key"), static_cast<char>(length) + key);
        connection->KillRemoteFileServer();
        EXPECT_EQ(Text("key"), static_cast<char>(length) + key);
    }
    for (const int length : {256, 300})
        EXPECT_EQ(Failure([&] { Running(cow_String(std::string(static_cast<std::size_t>(length), 'k'))); }),
                  "*** Error: The key of a connection can't have more than 255 characters.");
}

TEST_F(ALaunch, WithoutAPortNothingIsRunAndTheStatusSaysConnected)
{
    Relay("printf 1");
    auto connection = Connection(40000, 0, false, Login::SSH, "", "-would be refused");
    EXPECT_EQ(connection.RunRemoteFileService("service"), nullptr);
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::CONNECTED);
    EXPECT_FALSE(Exists("words"));
}

TEST_F(ALaunch, WhatTheRelaySaysIsInTheFileOfItsClient)
{
    Relay("echo 'qlnsrv, hello' >&2\n" + TakeKey(8));
    rds_Client* client = Running()->RunRemoteFileService("service");
    const std::unique_ptr<utl_TempFile> errors(client->StdErrFile());
    delete client;
    EXPECT_TRUE(std::filesystem::exists(errors->Name().CString())); // not the client's
    EXPECT_EQ(rds_InterpretStdErr(*errors), cow_String("qlnsrv, hello\n"));
}

TEST_F(ALaunch, ARelayThatExitsBeforeItReadsTheKeyIsToldWithItsReason)
{
    // The remote shell of the password search comes back only when the relay has closed its input.
    ::mkfifo(Path("gone").c_str(), 0600);
    Shell("cat gone; echo 'a long password'");
    auto connection = Connection(40000, 40001, false);
    Relay("exec 0<&-; echo 'qlnsrv, no route' >&2; : > gone");
    EXPECT_EQ(RunFailure(connection), "*** Error: \nreason: qlnsrv, no route\n");
    Relay("exec 0<&-; : > gone");
    EXPECT_EQ(RunFailure(connection), "*** Error: \nreason: Can't be determined");
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::DISCONNECTED);
}

TEST_F(ALaunch, ARefusedWriteOfTheKeyIsToldWithTheOtherText)
{
    Relay("echo 'qlnsrv, hello' >&2; cat > rest");
    utl_TempFile errors("");
    uti_Redirection redirection("2>", errors.Name());
    rds_Client client(cow_String(Path("mrl/External/qlnsrv/qlnsrv")), {}, &errors, redirection);
    client.CloseSink(); // no descriptor is left to write to, which is no end of the stream
    ASSERT_EQ(client.Reap(30), 0);
    EXPECT_EQ(Failure([&] { rds_ExchangeKey(client, "abcdefgh", errors); }),
              "*** Error:\nreason: qlnsrv, hello\n");
}

TEST_F(ALaunch, ARelayThatAnswersNothingIsToldWithItsReason)
{
    Relay("head -c 9 > key; echo 'qlnsrvd, there is no service' >&2; exit 1");
    EXPECT_EQ(RunFailure(*Running()), "*** Error: Can't establish connection to remote server:\n"
                                      "reason: qlnsrvd, there is no service\n");
    Relay("head -c 9 > key");
    EXPECT_EQ(RunFailure(*Running()), "*** Error: Can't establish connection to remote server:\n"
                                      "reason: Can't be determined");
    Relay("head -c 9 > key; exec 1>&-; exec sleep 600"); // says nothing and goes on
    EXPECT_THAT(RunFailure(*Running()), StartsWith("*** Error: Can't establish connection"));
}

TEST_F(ALaunch, ARefusedReadOfTheAnswerIsToldAsACutConnection)
{
    // Its output is a directory, which can be opened and not read.
    class Odd : public uti_SpawnSourceWithSink
    {
    public:
        using uti_SpawnSourceWithSink::uti_SpawnSourceWithSink;
    };
    Relay("cat > key");
    utl_TempFile errors("");
    uti_Redirection redirection("2>", errors.Name());
    Odd relay(cow_String(Path("mrl/External/qlnsrv/qlnsrv")), {}, redirection, {});
    const utl_Descriptor folder(::open(Path("home").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(::dup3(folder.Get(), relay.SourceDescriptor(), O_CLOEXEC), relay.SourceDescriptor());
    EXPECT_EQ(Failure([&] { rds_ExchangeKey(relay, "abcdefgh", errors); }),
              "*** Error: Can't establish connection to remote server:\nreason: Can't be determined");
}

TEST_F(ALaunch, ARelayThatIsNotThereOrCannotBeRunIsNotLocated)
{
    EXPECT_EQ(RunFailure(*Running()), "*** Error: Cannot locate qlnsrv executable");
    Put("mrl/External/qlnsrv/qlnsrv", "#!/bin/sh\n", 0600);
    EXPECT_EQ(RunFailure(*Running()), "*** Error: Cannot locate qlnsrv executable");
}

TEST_F(ALaunch, ARelayBelowARelativeFolderIsRunFromItsAbsolutePath)
{
    Relay("printf '%s' \"$0\" > path\n" + TakeKey(8));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(Path("home"));
    const EnvironmentVariable relay("MRL_PATH", "../mrl");
    End(Running()->RunRemoteFileService("service"));
    std::filesystem::current_path(before);
    EXPECT_EQ(Text("path"), Path("home") + "/../mrl/External/qlnsrv/qlnsrv");
}

TEST_F(ALaunch, NeitherCommandLinesNorEnvironmentsHoldTheKey)
{
    const std::string look = "cat /proc/$$/cmdline /proc/$$/environ >> seen\n";
    Shell(look + "echo 'a long password'");
    Relay(look + "head -c 17 > key; printf 1");
    auto connection = Connection(40000, 40001, false);
    End(connection.RunRemoteFileService("service"));
    ASSERT_EQ(Text("key"), std::string("\x10") + "a long password\n");
    connection.KillRemoteFileServer();
    connection.PingRemoteFileServer();
    EXPECT_THAT(Text("seen"), HasSubstr("-ping"));
    EXPECT_THAT(Text("seen"), HasSubstr("StrictHostKeyChecking"));
    EXPECT_THAT(Text("seen"), Not(HasSubstr("a long password")));
}

TEST_F(ALaunch, WhatCannotBeStartedLeavesNothingBehind)
{
    for (const char* path : {"bin/ssh", "mrl/External/qlnsrv/qlnsrv"}) Put(path, "#!/no/such/shell\n", 0700);
    auto connection = Connection(0, 40001);
    const std::string reason = "No such file or directory";
    EXPECT_THAT(StartFailure(connection), HasSubstr(reason));
    EXPECT_THAT(RunFailure(connection), HasSubstr(reason));
    EXPECT_THAT(Failure([&] { connection.KillRemoteFileServer(); }), HasSubstr(reason));
    EXPECT_THAT(Failure([&] { connection.PingRemoteFileServer(); }), HasSubstr(reason));
    EXPECT_THAT(Failure([&] { connection.ReadRemotePasswordFile(); }), HasSubstr(reason));
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::DISCONNECTED);
}

TEST_F(ALaunch, WithoutRoomForTheErrorTextNothingIsStarted)
{
    Shell(Print(kReport));
    Relay("printf 1");
    const EnvironmentVariable temp("TMPDIR", Path("nowhere").c_str());
    auto connection = Connection(0, 40001);
    const std::string missing = "No such file or directory";
    EXPECT_THAT(Thrown<utl_FileException>([&] { connection.StartRemoteFileServer(); }), HasSubstr(missing));
    EXPECT_THAT(Thrown<utl_FileException>([&] { End(connection.RunRemoteFileService("service")); }),
                HasSubstr(missing));
    EXPECT_FALSE(Exists("words"));
}

// --- kill and ping ---------------------------------------------------------------------------------------------

TEST_F(ALaunch, AKillGivesTheRelayTheKeyAndDisconnects)
{
    Relay("cat > key");
    const auto connection = Running();
    connection->SetConnectionStatus(Status::CONNECTED);
    connection->KillRemoteFileServer();
    EXPECT_EQ(Words(), "qlnsrv [-cpu] [hpc7] [-port] [40001] [-kill]");
    EXPECT_EQ(Text("key"), std::string("\x08") + "abcdefgh");
    EXPECT_EQ(connection->RemoteConnectionStatus(), Status::DISCONNECTED);
    EXPECT_EQ(connection->ConnectPortNumber(), 40001);
    EXPECT_STREQ(connection->QlnsrvdKey(), "abcdefgh");
}

TEST_F(ALaunch, AFailedKillLeavesTheStatus)
{
    Relay("echo 'qlnsrv, wrong key' >&2; exit 1");
    const auto connection = Running();
    connection->SetConnectionStatus(Status::CONNECTED);
    EXPECT_EQ(Failure([&] { connection->KillRemoteFileServer(); }), "*** Error: kill remote server failed");
    EXPECT_EQ(connection->RemoteConnectionStatus(), Status::CONNECTED);
    Relay("kill -9 $$");
    EXPECT_EQ(Failure([&] { connection->KillRemoteFileServer(); }), "*** Error: kill remote server failed");
}

TEST_F(ALaunch, APingGivesTheRelayTheKeyAndLeavesTheStatus)
{
    Relay("cat > key");
    for (const Status status : {Status::CONNECTED, Status::DISCONNECTED})
    {
        const auto connection = Running();
        connection->SetConnectionStatus(status);
        connection->PingRemoteFileServer();
        EXPECT_EQ(Words(), "qlnsrv [-cpu] [hpc7] [-port] [40001] [-ping]");
        EXPECT_EQ(Text("key"), std::string("\x08") + "abcdefgh");
        EXPECT_EQ(connection->RemoteConnectionStatus(), status);
    }
}

TEST_F(ALaunch, AFailedPingDisconnects)
{
    Relay("exit 1");
    const auto connection = Running();
    connection->SetConnectionStatus(Status::CONNECTED);
    EXPECT_EQ(Failure([&] { connection->PingRemoteFileServer(); }), "*** Error: Ping remote server failed.");
    EXPECT_EQ(connection->RemoteConnectionStatus(), Status::DISCONNECTED);
    EXPECT_EQ(connection->ConnectPortNumber(), 40001);
    EXPECT_STREQ(connection->QlnsrvdKey(), "abcdefgh");
}

TEST_F(ALaunch, KillAndPingTellAMissingRelayFromOneThatCannotBeRun)
{
    const auto connection = Running();
    connection->SetConnectionStatus(Status::CONNECTED);
    const auto kill = [&] { connection->KillRemoteFileServer(); };
    const auto ping = [&] { connection->PingRemoteFileServer(); };
    EXPECT_EQ(Failure(kill), "*** Error: Can't locate qlnsrv executable");
    EXPECT_EQ(Failure(ping), "*** Error: Can't locate qlnsrv executable.");
    Put("mrl/External/qlnsrv/qlnsrv", "#!/bin/sh\n", 0600);
    EXPECT_EQ(Failure(kill), "*** Error: Can't execute qlnsrv executable");
    EXPECT_EQ(Failure(ping), "*** Error: Can't execute qlnsrv executable.");
    EXPECT_EQ(connection->RemoteConnectionStatus(), Status::CONNECTED);
}

TEST_F(ALaunch, ARelayThatHeedsNoKeyIsJudgedByItsStatusAlone)
{
    Relay("exec 0<&-; exit 0");
    EXPECT_EQ(Failure([] { Running()->KillRemoteFileServer(); }), kNothingThrown);
    EXPECT_EQ(Failure([] { Running()->PingRemoteFileServer(); }), kNothingThrown);
}

// --- the client ------------------------------------------------------------------------------------------------

TEST_F(ALaunch, AClientIsARelayWithPipesBothWays)
{
    static_assert(std::is_base_of_v<uti_SpawnSourceWithSink, rds_Client> && std::is_final_v<rds_Client>);
    Relay("exec cat");
    utl_TempFile errors("");
    uti_Redirection redirection("2>", errors.Name());
    const auto client = std::make_unique<rds_Client>(cow_String(Path("mrl/External/qlnsrv/qlnsrv")),
                                                     cow_1DArrayList<cow_String>(), &errors, redirection);
    EXPECT_EQ(client->StdErrFile(), &errors);
    EXPECT_TRUE(client->IsRunning());
    EXPECT_EQ(client->Reap(0), -1); // it waits for its input, and nobody for it
    EXPECT_TRUE(client->IsRunning());
    client->CloseSink();
    EXPECT_EQ(client->Reap(30), 0);
    EXPECT_FALSE(client->IsRunning());
}
