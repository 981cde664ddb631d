#include "LaunchScene.h"

#include "Forked.h"

#include <unistd.h>

using ::testing::StartsWith;

namespace
{
constexpr const char* kNet = "home/.marlek_net_passwd";
constexpr const char* kHost = "home/.marlek_hpc7_passwd";
constexpr const char* kNoPassword = "*** Error: Unable to get password or private key. \n";

class ACredential : public LaunchScene
{
protected:
    // Searches in the home directory; true when the search ends there.
    bool Found() { return m_Connection.ReadNetPasswordFile(); }
    std::string Refusal()
    {
        return Failure([this] { m_Connection.ReadNetPasswordFile(); });
    }
    std::string RemoteRefusal()
    {
        return Failure([this] { m_Connection.ReadRemotePasswordFile(); });
    }
    std::string Key() const { return m_Connection.QlnsrvdKey(); }
    std::string TooOpen(const char* name) const
    {
        return "*** Error: Permissions for " + Path(name) +
               " are too open: reason: Your file should not be accessible by everyone. Remove privileges for "
               "everyone and try again \n";
    }

    rds_RemoteConnection m_Connection = Connection(40000, 40001, false);
};
} // namespace

// --- files here ------------------------------------------------------------------------------------------------

TEST_F(ACredential, APasswordHasEightCharactersAtLeastAndALineEndIsOne)
{
    for (const char* password : {"12345678", "1234567\n", "123456789"})
    {
        Put(kNet, password);
        EXPECT_TRUE(Found());
        EXPECT_EQ(Key(), password);
    }
}

TEST_F(ACredential, AShorterPasswordIsRefusedAndStaysInTheKey)
{
    for (const char* password : {"1234567", "1", ""})
    {
        m_Connection.SetqlnsrvdKey("a former key");
        Put(kNet, password);
        EXPECT_EQ(Refusal(), "*** Error: Password from file " + Path(kNet) +
                                 " must be at least eight characters long. \n");
        EXPECT_EQ(Key(), password);
    }
}

TEST_F(ACredential, APasswordMayHave255BytesAndALongerOneIsRefused)
{
    Put(kNet, std::string(255, 'p'));
    EXPECT_TRUE(Found());
    EXPECT_EQ(Key(), std::string(255, 'p'));
    for (const std::size_t length :
         {std::size_t{256}, std::size_t{257}, std::size_t{300}, std::size_t{70000}})
    {
        m_Connection.SetqlnsrvdKey("a former key");
        Put(kNet, std::string(length, 'q'));
        EXPECT_EQ(Refusal(),
                  "*** Error: Password from file " + Path(kNet) + " can't have more than 255 characters. \n");
        EXPECT_EQ(Key(), "a former key");
    }
}

TEST_F(ACredential, APasswordEndsAtItsFirstNul)
{
    Put(kNet, std::string("12345678\0nobody reads this", 26));
    EXPECT_TRUE(Found());
    EXPECT_EQ(Key(), "12345678");
    Put(kNet, std::string("1234\0nobody reads this", 22));
    EXPECT_THAT(Refusal(), StartsWith("*** Error: Password from file "));
}

TEST_F(ACredential, AShorterKeyLeavesNothingOfALongerOne)
{
    m_Connection.SetqlnsrvdKey(cow_String(std::string(255, 'x')));
    Put(kNet, "12345678");
    EXPECT_TRUE(Found());
    for (int i = 8; i < 256; ++i) EXPECT_EQ(m_Connection.QlnsrvdKey()[i], '\0');
}

TEST_F(ACredential, AHostNameStandsInTheFileNameAsItIs)
{
    Put("home/.marlek_HPC7.Example.Org_passwd", "of the host");
    auto connection = Connection(40000, 40001, false, Login::SSH, "", "HPC7.Example.Org");
    EXPECT_TRUE(connection.ReadHostPasswordFile());
    EXPECT_STREQ(connection.QlnsrvdKey(), "of the host");
    for (const char* other : {"hpc7.example.org", "HPC7"})
        EXPECT_FALSE(Connection(40000, 40001, false, Login::SSH, "", other).ReadHostPasswordFile());
}

TEST_F(ACredential, TheHomeDirectoryIsDriveAndPathTogether)
{
    std::filesystem::create_directories(Path("drive/path"));
    Put("drive/path/.marlek_net_passwd", "of the drive");
    Put(kNet, "of the home");
    {
        const EnvironmentVariable drive("HOMEDRIVE", Path("drive").c_str());
        const EnvironmentVariable path("HOMEPATH", "/path");
        EXPECT_TRUE(Found());
        EXPECT_EQ(Key(), "of the drive");
    }
    EXPECT_TRUE(Found());
    EXPECT_EQ(Key(), "of the home");
}

TEST_F(ACredential, WithOneHalfOfTheHomeDirectoryNoFileIsFound)
{
    Put(kNet, "of the home");
    {
        const EnvironmentVariable path("HOMEPATH", Path("home").c_str());
        EXPECT_FALSE(Found());
    }
    const EnvironmentVariable drive("HOMEDRIVE", Path("home").c_str());
    EXPECT_FALSE(Found());
    EXPECT_EQ(Key(), "");
}

TEST_F(ACredential, WithoutAHomeDirectoryNoFileIsFound)
{
    for (const char* home : {static_cast<const char*>(nullptr), ""})
    {
        const EnvironmentVariable without("HOME", home);
        EXPECT_FALSE(Found());
    }
}

TEST_F(ACredential, AMissingFileLeavesTheKey)
{
    m_Connection.SetqlnsrvdKey("a former key");
    EXPECT_FALSE(Found());
    EXPECT_EQ(Key(), "a former key");
}

TEST_F(ACredential, AnyRightOfOthersIsTooMuch)
{
    m_Connection.SetqlnsrvdKey("a former key");
    for (mode_t others = 1; others < 8; ++others)
    {
        Put(kNet, "12345678", 0600 | others);
        EXPECT_EQ(Refusal(), TooOpen(kNet)) << others;
        EXPECT_EQ(Key(), "a former key");
    }
}

TEST_F(ACredential, RightsOfTheOwnerAndHisGroupAreNot)
{
    for (const mode_t mode : {0400U, 0600U, 0700U, 0640U, 0660U, 0770U})
    {
        Put(kNet, "12345678", mode);
        EXPECT_TRUE(Found()) << mode;
    }
}

TEST_F(ACredential, AFileThatMayNotBeReadIsPassedOver)
{
    Put(kNet, "12345678", 0200);
    const auto search = [this]
    {
        if (::geteuid() == 0)
        {
            // The super-user reads everything: look as somebody else whose file it is.
            std::filesystem::permissions(Path(""), std::filesystem::perms(0755));
            if (::chown(Path(kNet).c_str(), 65534, 65534) != 0 || ::setuid(65534) != 0) return 1;
        }
        return Found() ? 2 : 0;
    };
    EXPECT_EQ(ExitCodeOfForked(search), 0);
}

TEST_F(ACredential, ASymbolicLinkStandsForItsFile)
{
    std::filesystem::create_symlink(Path("home/secret"), Path(kNet));
    EXPECT_FALSE(Found()); // it leads nowhere
    Put("home/secret", "12345678");
    EXPECT_TRUE(Found());
    EXPECT_EQ(Key(), "12345678");
    Put("home/secret", "12345678", 0604);
    EXPECT_EQ(Refusal(), TooOpen(kNet));
}

TEST_F(ACredential, ADirectoryIsNoPasswordFile)
{
    std::filesystem::create_directory(Path(kNet));
    ::chmod(Path(kNet).c_str(), 0755);
    EXPECT_EQ(Refusal(), TooOpen(kNet));
    ::chmod(Path(kNet).c_str(), 0700);
    EXPECT_EQ(Refusal(),
              "*** Error: Can't read password from file " + Path(kNet) + ": reason: Is a directory \n");
    EXPECT_EQ(Key(), "");
}

TEST_F(ACredential, AFifoIsRefusedAndHoldsNobodyUp)
{
    ::mkfifo(Path(kNet).c_str(), 0600);
    EXPECT_EQ(Refusal(), "*** Error: Can't read password from file " + Path(kNet) +
                             ": reason: It is no regular file \n");
    EXPECT_EQ(Key(), "");
}

TEST_F(ACredential, AFileThatCannotBeOpenedIsToldWithTheSystemsReason)
{
    // The name of a socket can be seen and never opened.
    ASSERT_EQ(::mknod(Path(kNet).c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_EQ(Refusal(),
              "*** Error: Open failed for file " + Path(kNet) + ": reason: No such device or address \n");
    EXPECT_EQ(Key(), "");
}

// --- the file there --------------------------------------------------------------------------------------------

TEST_F(ACredential, TheRemoteFileIsReadThroughTheRemoteShell)
{
    for (const char* program : {"bin/ssh", "bin/rsh", "bin/plink"}) StandIn(program, "echo 'far away'");
    m_Connection.ReadRemotePasswordFile(); // its port is a fixed one, and the option comes once all the same
    EXPECT_EQ(Words(), "ssh [hpc7] [-o StrictHostKeyChecking=no] [-n] [cat .marlek_net_passwd]");
    Connection(0, 0, false, Login::RSH).ReadRemotePasswordFile();
    EXPECT_EQ(Words(), "rsh [hpc7] [-n] [cat .marlek_net_passwd]");
    Connection(40000, 0, false, Login::SSH, "plink").ReadRemotePasswordFile();
    EXPECT_EQ(Words(), "plink [hpc7] [cat .marlek_net_passwd]");
}

TEST_F(ACredential, OnlyTheFirstLineOfTheRemoteFileCountsAndItsEndIsPartOfIt)
{
    Shell("echo short; echo 'second line'");
    EXPECT_TRUE(m_Connection.ReadRemotePasswordFile()); // however short it is
    EXPECT_EQ(Key(), "short\n");
    Shell("printf 'without an end'");
    EXPECT_TRUE(m_Connection.ReadRemotePasswordFile());
    EXPECT_EQ(Key(), "without an end");
}

TEST_F(ACredential, AnEmptyRemoteFileLeavesTheKeyAndEndsTheSearch)
{
    Shell("");
    m_Connection.SetqlnsrvdKey("a former key");
    EXPECT_TRUE(m_Connection.ReadRemotePasswordFile());
    EXPECT_EQ(Key(), "a former key");
}

TEST_F(ACredential, AFailedRemoteReadIsToldAndKeepsTheLineThatCame)
{
    Shell("echo half a line; echo 'cat: no such file' >&2; exit 1");
    EXPECT_EQ(RemoteRefusal(),
              "*** Error: Can't get password from remote server hpc7:\nreason: cat: no such file\n");
    EXPECT_EQ(Key(), "half a line\n");
    Shell("kill -9 $$");
    EXPECT_EQ(RemoteRefusal(),
              "*** Error: Can't get password from remote server hpc7:\nreason: Can't be determined");
}

TEST_F(ACredential, ARemotePasswordMayHave255BytesAndALongerOneIsRefused)
{
    Put("far", std::string(254, 'p') + "\n");
    Shell("cat far");
    EXPECT_TRUE(m_Connection.ReadRemotePasswordFile());
    EXPECT_EQ(Key(), std::string(254, 'p') + "\n");
    for (const std::size_t length : {std::size_t{256}, std::size_t{300}, std::size_t{100000}})
    {
        Put("far", std::string(length, 'p'));
        EXPECT_EQ(RemoteRefusal(),
                  "*** Error: Password from remote server hpc7 can't have more than 255 characters. \n");
    }
    EXPECT_EQ(Key(), std::string(254, 'p') + "\n") << "a refused one leaves the key";
}

// --- the search ------------------------------------------------------------------------------------------------

namespace
{
class ASearch : public ACredential
{
protected:
    // The relay keeps what it is given, and answers.
    void SetUp() override
    {
        Relay("head -c 1 > length; head -c $(od -An -tu1 length) > key; printf 1; exec cat > rest");
    }
    // The key that the relay got.
    std::string SentKey()
    {
        End(m_Connection.RunRemoteFileService("service"));
        return Text("key");
    }
};
} // namespace

TEST_F(ASearch, TheHostsOwnFileComesFirstThenTheOneOfAllHostsThenTheRemoteOne)
{
    Shell("printf 'the remote one'; touch asked");
    Put(kHost, "of the host");
    Put(kNet, "of all hosts");
    EXPECT_EQ(SentKey(), "of the host");
    std::filesystem::remove(Path(kHost));
    EXPECT_EQ(SentKey(), "of all hosts");
    EXPECT_FALSE(Exists("asked"));
    std::filesystem::remove(Path(kNet));
    EXPECT_EQ(SentKey(), "the remote one");
    EXPECT_EQ(m_Connection.RemoteConnectionStatus(), Status::CONNECTED);
}

TEST_F(ASearch, KillAndPingOfAServerThatIsNotOursSearchWhenThereIsNoKey)
{
    Relay("head -c 1 > length; exec head -c 11 > key");
    Put(kHost, "of the host");
    m_Connection.PingRemoteFileServer();
    EXPECT_EQ(Text("key"), "of the host");
    std::filesystem::remove(Path("key"));
    m_Connection.SetqlnsrvdKey("");
    m_Connection.KillRemoteFileServer();
    EXPECT_EQ(Text("key"), "of the host");
    Put(kHost, "of the host", 0644);
    m_Connection.PingRemoteFileServer(); // with the key that it has
    m_Connection.SetqlnsrvdKey("");
    EXPECT_EQ(Failure([&] { m_Connection.PingRemoteFileServer(); }), TooOpen(kHost));
    EXPECT_EQ(Failure([&] { m_Connection.KillRemoteFileServer(); }), TooOpen(kHost));
}

TEST_F(ASearch, AServerThatIsOursToStartNeedsNone)
{
    Put(kHost, "of the host", 0644); // would be refused
    const auto connection = Running();
    End(connection->RunRemoteFileService("service"));
    EXPECT_EQ(Text("key"), "abcdefgh");
}

TEST_F(ASearch, AFileThatIsTooOpenEndsTheSearchThoughTheNextOneIsFine)
{
    Put(kHost, "of the host", 0644);
    Put(kNet, "of all hosts");
    EXPECT_EQ(RunFailure(m_Connection), TooOpen(kHost));
    EXPECT_EQ(Key(), "");
    EXPECT_EQ(m_Connection.RemoteConnectionStatus(), Status::DISCONNECTED);
}

TEST_F(ASearch, AShortPasswordEndsTheSearchToo)
{
    Put(kHost, "short");
    Put(kNet, "of all hosts");
    EXPECT_EQ(RunFailure(m_Connection),
              "*** Error: Password from file " + Path(kHost) + " must be at least eight characters long. \n");
}

TEST_F(ASearch, WithoutAnyPasswordTheRelayIsEndedAndTheLackIsTold)
{
    Shell("");
    EXPECT_EQ(RunFailure(m_Connection), kNoPassword);
    EXPECT_FALSE(Exists("key") && !Text("key").empty());
    EXPECT_EQ(m_Connection.RemoteConnectionStatus(), Status::DISCONNECTED);
}

TEST_F(ASearch, AnEmptyRemoteFileStillLeavesTheKeyOfTheRecord)
{
    Shell("");
    m_Connection.SetqlnsrvdKey("a former key");
    EXPECT_EQ(SentKey(), "a former key");
}

TEST_F(ASearch, ARemoteReadThatFailsEndsTheRelayToo)
{
    Shell("exit 1");
    EXPECT_THAT(RunFailure(m_Connection),
                StartsWith("*** Error: Can't get password from remote server hpc7"));
}

TEST_F(ASearch, APasswordOf256BytesNeverReachesTheRelay)
{
    Put(kNet, std::string(256, 'p'));
    EXPECT_THAT(RunFailure(m_Connection), StartsWith("*** Error: Password from file "));
    EXPECT_FALSE(Exists("key") && !Text("key").empty());
}
