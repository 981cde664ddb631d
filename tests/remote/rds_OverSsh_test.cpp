#include "OverSsh.h"

#include <cstdlib>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace
{
using Login = rds_RemoteLoginMechanismEnm;
using Status = rds_RemoteConnectionStatusEnm;

constexpr const char* kCannotConnect = "*** Error: Can't establish connection to remote server:\nreason: ";
} // namespace

TEST_F(OverSsh, BothMechanismsStartAServerOnAPortThatItChooses)
{
    for (const Login login : {Login::SSH, Login::RSH})
    {
        auto connection = Connection(0, login);
        connection.StartRemoteFileServer();
        EXPECT_GT(connection.ConnectPortNumber(), 0);
        EXPECT_EQ(std::string_view(connection.QlnsrvdKey()).size(), 64U);
        connection.PingRemoteFileServer();
        ExpectService(connection);
        connection.KillRemoteFileServer();
        EXPECT_EQ(connection.RemoteConnectionStatus(), Status::DISCONNECTED);
        EXPECT_TRUE(NothingRuns());
    }
}

TEST_F(OverSsh, BothMechanismsStartAServerOnAFixedPort)
{
    for (const Login login : {Login::SSH, Login::RSH})
    {
        auto connection = Connection(FreePort(), login);
        connection.StartRemoteFileServer();
        EXPECT_EQ(connection.ConnectPortNumber(), connection.ServerPortNumber());
        ExpectService(connection);
        connection.KillRemoteFileServer();
        EXPECT_TRUE(NothingRuns());
    }
}

TEST_F(OverSsh, SeveralServicesOfOneServerRunAtOnce)
{
    auto connection = Connection();
    connection.StartRemoteFileServer();
    rds_Client* first = connection.RunRemoteFileService(kBrowsing);
    rds_Client* second = connection.RunRemoteFileService(kBrowsing);
    ExpectEcho(*second);
    ExpectEcho(*first);
    End(first);
    ExpectEcho(*second);
    End(second);
    connection.KillRemoteFileServer();
    EXPECT_TRUE(NothingRuns());
}

TEST_F(OverSsh, TheDebugVariableMakesTheServerWriteALogWhereTheLoginStands)
{
    const EnvironmentVariable debug("nrdx_debug", "");
    auto connection = Connection();
    connection.StartRemoteFileServer();
    // The daemon writes the line behind its report.
    EXPECT_TRUE(Eventually(
        [this] {
            return FileText(Path("far/nrdxError")).find("daemon: listens on 127.0.0.1 port ") !=
                   std::string::npos;
        }));
    connection.KillRemoteFileServer();
}

TEST_F(OverSsh, WhatTheLoginShellSaysIsPassedOver)
{
    Sshd().SetNoise("Welcome to this host!\n\nNo mail.\n");
    auto connection = Connection();
    connection.StartRemoteFileServer();
    ExpectService(connection);
    connection.KillRemoteFileServer();
}

TEST_F(OverSsh, AWrongKeyIsToldAndDoesNoHarm)
{
    auto connection = Connection();
    connection.StartRemoteFileServer();
    const cow_String key = connection.QlnsrvdKey();
    connection.SetqlnsrvdKey(cow_String(std::string(64, '0')));
    EXPECT_EQ(RunFailure(connection),
              std::string(kCannotConnect) + "qlnsrv, the key is not the one of the qlnsrvd there\n");
    EXPECT_EQ(Failure([&] { connection.KillRemoteFileServer(); }), "*** Error: kill remote server failed");
    EXPECT_EQ(Failure([&] { connection.PingRemoteFileServer(); }), "*** Error: Ping remote server failed.");
    connection.SetqlnsrvdKey(key);
    ExpectService(connection);
    connection.KillRemoteFileServer();
}

TEST_F(OverSsh, AServiceThatTheServerDoesNotHaveIsToldByTheServer)
{
    auto connection = Connection();
    connection.StartRemoteFileServer();
    EXPECT_EQ(Failure([&] { End(connection.RunRemoteFileService("sh")); }),
              std::string(kCannotConnect) + "qlnsrvd, there is no service sh\n");
    connection.KillRemoteFileServer();
}

TEST_F(OverSsh, AServerThatHasGoneIsTold)
{
    auto connection = Connection();
    connection.StartRemoteFileServer();
    connection.KillRemoteFileServer();
    ASSERT_TRUE(NothingRuns());
    connection.SetConnectionStatus(Status::CONNECTED);
    EXPECT_EQ(RunFailure(connection),
              std::string(kCannotConnect) + "qlnsrv, cannot connect to 127.0.0.1 port " +
                  std::to_string(connection.ConnectPortNumber()) + ": Connection refused\n");
    EXPECT_EQ(Failure([&] { connection.PingRemoteFileServer(); }), "*** Error: Ping remote server failed.");
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::DISCONNECTED);
    EXPECT_EQ(Failure([&] { connection.KillRemoteFileServer(); }), "*** Error: kill remote server failed");
}

TEST_F(OverSsh, APortThatIsTakenIsToldInTheDriversWords)
{
    auto connection = Connection(Sshd().Port());
    EXPECT_EQ(StartFailure(connection), "*** Error: qlnsrvd, cannot listen on 127.0.0.1 port " +
                                            std::to_string(Sshd().Port()) + ": Address already in use\n");
    EXPECT_TRUE(NothingRuns());
}

TEST_F(OverSsh, ADriverThatIsNotThereIsToldInTheLoginShellsWords)
{
    rds_RemoteConnection connection("box1", "127.0.0.1", "/", "no_such_driver", Login::SSH,
                                    cow_String(Sshd().Path("ssh")), true);
    const std::string failure = StartFailure(connection);
    EXPECT_THAT(failure, StartsWith("*** Error: ssh to remote host 127.0.0.1 failed after 90 seconds: :\n"));
    EXPECT_THAT(failure, HasSubstr("no_such_driver"));
}

TEST_F(OverSsh, ALoginThatIsRefusedIsToldInTheSecureShellsWords)
{
    Sshd().UseKey("other_key");
    auto connection = Connection();
    EXPECT_THAT(StartFailure(connection), HasSubstr("Permission denied (publickey)"));
    Sshd().Stop();
    EXPECT_THAT(StartFailure(connection), HasSubstr("Connection refused"));
}

TEST_F(OverSsh, APasswordIsFoundHereOrThere)
{
    const std::string password = "a password of this test\n";
    auto connection = WithPassword(password);
    EXPECT_THAT(RunFailure(connection),
                HasSubstr("*** Error: Can't get password from remote server 127.0.0.1:"));
    for (const char* place :
         {"far/.marlek_net_passwd", "home/.marlek_net_passwd", "home/.marlek_127.0.0.1_passwd"})
    {
        std::ofstream(Path(place)) << password;
        std::filesystem::permissions(Path(place), std::filesystem::perms(0600));
        ExpectService(connection);
        EXPECT_EQ(connection.QlnsrvdKey(), password);
        std::filesystem::remove(Path(place));
    }
    connection.KillRemoteFileServer();
    EXPECT_TRUE(NothingRuns());
}

TEST_F(OverSsh, WhileAServiceRunsNoProcessShowsTheKey)
{
    auto connection = Connection();
    connection.StartRemoteFileServer();
    rds_Client* client = connection.RunRemoteFileService(kBrowsing);
    ExpectEcho(*client);
    std::string seen;
    for (const SeenProcess& each : Descendants())
        for (const char* part : {"/cmdline", "/environ"})
            seen += FileText("/proc/" + std::to_string(each.process) + part);
    EXPECT_THAT(seen, HasSubstr("-private")); // the relay was among them
    EXPECT_THAT(seen, ::testing::Not(HasSubstr(connection.QlnsrvdKey())));
    End(client);
    connection.KillRemoteFileServer();
}

// RFM_SSH_ROUNDS asks for more of them.
TEST_F(OverSsh, RoundsOfStartRunAndKillLeaveNothingBehind)
{
    const char* asked = std::getenv("RFM_SSH_ROUNDS");
    const int rounds = asked != nullptr ? std::stoi(asked) : 10;
    const int descriptors = OpenDescriptorCount();
    for (int round = 0; round < rounds; ++round)
    {
        auto connection = Connection(0, round % 2 == 0 ? Login::SSH : Login::RSH);
        connection.StartRemoteFileServer();
        ExpectService(connection);
        connection.KillRemoteFileServer();
        ASSERT_TRUE(NothingRuns()) << round;
        ASSERT_EQ(OpenDescriptorCount(), descriptors) << round;
        ASSERT_TRUE(std::filesystem::is_empty(Path("temp"))) << round;
    }
    EXPECT_TRUE(std::filesystem::is_empty(Path("far")));
}
