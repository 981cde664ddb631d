// The browser, the relay, the daemon and the service together, over this host's loopback.

#include "Descriptors.h"
#include "EnvironmentVariable.h"
#include "FarEnd.h"
#include "Thrown.h"
#include "nex_Exception.h"
#include "rds.h"

namespace
{
using List = std::unique_ptr<cow_List<rds_DirectoryEntity>>;
using Entity = std::unique_ptr<rds_DirectoryEntity>;

constexpr const char* kLostConnection = "*** Error: Lost connection to remote server";

struct EndClient
{
    void operator()(rds_Client* client) const
    {
        client->Reap(0);
        const std::unique_ptr<utl_TempFile> errors(client->StdErrFile()); // goes behind its client
        delete client;
    }
};

class FileBrowsingOverRelay : public FarEnd
{
protected:
    void SetUp() override
    {
        FarEnd::SetUp();
        std::filesystem::remove(Program(kBrowsing));
        std::filesystem::create_symlink(RFM_FILE_BROWSING, Program(kBrowsing));
        for (const char* name : {"temp", "data/sub", "mrl/External/qlnsrv"})
            std::filesystem::create_directories(Path(name));
        std::filesystem::create_symlink(Program("qlnsrv"), Path("mrl/External/qlnsrv/qlnsrv"));
        m_RelayPath.emplace("MRL_PATH", Path("mrl").c_str());
        m_Temp.emplace("TMPDIR", Path("temp").c_str());
        std::ofstream(Path("data/one.rdx")) << "bytes";
        std::ofstream(Path("data/two.txt")) << "more bytes";
        StartDaemon();
        m_DescriptorsBefore = OpenDescriptorCount();
    }
    void TearDown() override
    {
        EXPECT_EQ(OpenDescriptorCount(), m_DescriptorsBefore);
        EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
        FarEnd::TearDown();
    }

    std::unique_ptr<rds_CFileBrowsing> Browser() const
    {
        rds_RemoteConnection connection("box1", "127.0.0.1", "/", "marlek", rds_RemoteLoginMechanismEnm::SSH,
                                        "", 600, 0, m_Port, true);
        connection.SetqlnsrvdKey(cow_String(m_Key));
        std::unique_ptr<rds_Client, EndClient> client(connection.RunRemoteFileService(kBrowsing));
        auto browser = std::make_unique<rds_CFileBrowsing>(client.get());
        static_cast<void>(client.release()); // the browser's from here on
        return browser;
    }
    cow_String Data(const std::string& name = "") const { return cow_String(Path("data/" + name)); }
    std::string Listed(rds_CFileBrowsing& browser, rdb_FileFilterID filter) const
    {
        const List list(browser.ListDir(Data(), filter, rds_CFileBrowsing::AllAttributes));
        std::string listed;
        for (const rds_DirectoryEntity& entity : *list)
            listed += std::string(entity.m_Name.View()) + ":" + std::to_string(entity.m_Large) + " ";
        return listed;
    }
    bool NoServiceRuns() const
    {
        return Eventually([this] { return DaemonsChildren() == 0; });
    }

private:
    std::optional<EnvironmentVariable> m_RelayPath;
    std::optional<EnvironmentVariable> m_Temp;
    int m_DescriptorsBefore = 0;
};
} // namespace

TEST_F(FileBrowsingOverRelay, AllQuestionsOfAFileDialogAreAnswered)
{
    auto browser = Browser();
    EXPECT_EQ(Listed(*browser, rdb_FileFilterID::All), "two.txt:10 sub:0 one.rdx:5 ");
    EXPECT_EQ(Listed(*browser, rdb_FileFilterID::Databases), "sub:0 one.rdx:5 ");
    EXPECT_NE(browser->IsRemoteDir(Data("sub")), 0);
    EXPECT_EQ(browser->IsRemoteDir(Data("one.rdx")), 0);
    EXPECT_NE(browser->IsRemoteFile(Data("one.rdx")), 0);
    EXPECT_EQ(Entity(browser->StatCall(Data("two.txt")))->m_Large, 10U);
    browser->Exit();
    browser.reset();
    EXPECT_TRUE(NoServiceRuns());
}

TEST_F(FileBrowsingOverRelay, ARefusalOfTheOtherHostComesInItsWordsAndTheBrowserGoesOn)
{
    const auto browser = Browser();
    EXPECT_EQ(Thrown<nex_TextException>([&] { Entity(browser->StatCall(Data("missing"))); }),
              "*** Error: Can't get the attributes of " + Path("data/missing") +
                  ", reason:\n  No such file or directory.");
    EXPECT_EQ(Listed(*browser, rdb_FileFilterID::Directories), "sub:0 ");
}

TEST_F(FileBrowsingOverRelay, AServiceThatIsNoneLeavesNothingBehind)
{
    std::filesystem::remove(Program(kBrowsing));
    std::filesystem::create_symlink("/bin/true", Program(kBrowsing));
    EXPECT_THROW(Browser(), nex_Exception);
    EXPECT_TRUE(NoServiceRuns());
}

TEST_F(FileBrowsingOverRelay, ADirectoryOfManyEntriesComesWhole)
{
    for (int i = 0; i < 3000; ++i) std::ofstream(Path("data/sub/file" + std::to_string(10000 + i)));
    const auto browser = Browser();
    const List list(browser->ListDir(Data("sub"), rdb_FileFilterID::All, rds_CFileBrowsing::AllAttributes));
    ASSERT_EQ(list->Count(), 3000);
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(list->ConstGet(i).m_Name.View(), "file" + std::to_string(12999 - i));
}

TEST_F(FileBrowsingOverRelay, ABrowserThatGoesWithoutAWordLeavesNothingBehind)
{
    Browser().reset();
    EXPECT_TRUE(NoServiceRuns());
    EXPECT_TRUE(DaemonAnswers());
}

TEST_F(FileBrowsingOverRelay, TwoBrowsersOfOneServerDoNotMeet)
{
    const auto first = Browser();
    const auto second = Browser();
    EXPECT_EQ(Listed(*first, rdb_FileFilterID::Directories), Listed(*second, rdb_FileFilterID::Directories));
    first->Exit();
    EXPECT_EQ(Listed(*second, rdb_FileFilterID::Directories), "sub:0 ");
}

TEST_F(FileBrowsingOverRelay, AServiceADaemonOrARelayThatIsKilledIsALostConnection)
{
    for (const std::string victim : {"rdsT_FileBrowsing", "qlnsrv", "qlnsrvd"})
    {
        const auto browser = Browser();
        for (const SeenProcess& each : Descendants())
            if (std::filesystem::path(FileText("/proc/" + std::to_string(each.process) + "/cmdline").c_str())
                    .filename() == victim)
                ::kill(each.process, SIGKILL);
        // The reading half alone: whether a write still finds the relay is a matter of luck.
        EXPECT_EQ(Thrown<nex_TextException>([&] { browser->IsRemoteDirReply(); }), kLostConnection) << victim;
    }
}
