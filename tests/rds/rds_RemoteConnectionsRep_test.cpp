#include "rds_RemoteConnectionsRep.h"

#include "DamagedStream.h"
#include "RemoteScene.h"
#include "Thrown.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace
{
class ARegistry : public RemoteScene
{
protected:
    static std::string Url(const char* path)
    {
        return std::string(Registry().MapRemotePathToUrl(path).View());
    }
    static std::string There(const char* path)
    {
        return std::string(Registry().MapToAbsRemotePath(path).View());
    }
    static std::string Host(const char* path)
    {
        return std::string(Registry().MapToRemoteMachineName(path).View());
    }
    static std::string NameIn(const char* path)
    {
        return std::string(Registry().ExtractRemoteConnectionName(path).View());
    }
    static std::string PathIn(const char* path)
    {
        return std::string(Registry().ExtractRemotePath(path).View());
    }
    static std::string NameOf(const char* url)
    {
        return std::string(Registry().MapUrlToRemoteConnectionName(url).View());
    }
    // What a text becomes in place; the answer must say whether it was a URL.
    static std::string Mapped(const char* urlOrPath, bool isUrl = true)
    {
        cow_String text(urlOrPath);
        EXPECT_EQ(Registry().MapUrlToRemotePath(text), isUrl);
        return std::string(text.View());
    }
    template <class Action> static void ExpectNotFound(const std::string& name, Action action)
    {
        try
        {
            action();
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const nex_TextException& failure)
        {
            EXPECT_EQ(failure.what(), "Network RDX Connector " + name + " not found.");
            EXPECT_EQ(failure.SourceName().View(), "rds_RemoteConnectionsRep");
        }
    }
    template <class Action> static void ExpectAssertion(const char* condition, Action action)
    {
        try
        {
            action();
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const nex_AssertException& failure)
        {
            EXPECT_STREQ(failure.what(), condition);
            EXPECT_EQ(failure.SourceName().View(), "rds_RemoteConnectionsRep");
        }
    }
};
} // namespace

TEST_F(ARegistry, TheExamplesOfAConnection)
{
    AddBox1();
    EXPECT_EQ(NameIn("Network connectors/box1/results/a.rdx"), "box1");
    EXPECT_EQ(PathIn("Network connectors/box1/results/a.rdx"), "results/a.rdx");
    EXPECT_EQ(PathIn("Network connectors/box1"), "");
    EXPECT_EQ(Url("Network connectors/box1/results/a.rdx"), "mrkrdb://hpc7:40001//scratch/run/results/a.rdx");
    EXPECT_EQ(Url("Network connectors/box1/$SCRATCHDIR_RHOST/a.rdx"),
              "mrkrdb://hpc7:40001//$SCRATCHDIR_RHOST/a.rdx");
    EXPECT_EQ(There("Network connectors/box1/results/a.rdx"), "/scratch/run/results/a.rdx");
    EXPECT_EQ(There("Network connectors/box1/$SCRATCHDIR_RHOST/a.rdx"), "$SCRATCHDIR_RHOST/a.rdx");
    EXPECT_EQ(Host("Network connectors/box1/a.rdx"), "hpc7");
    EXPECT_EQ(Url("/local/a.rdx"), "");
}

TEST_F(ARegistry, AUrlAndItsConnectorPathMapToEachOther)
{
    AddBox1();
    EXPECT_EQ(Mapped("mrkrdb://hpc7:40001//scratch/run/results/a.rdx"),
              "Network connectors/box1/results/a.rdx");
    EXPECT_EQ(Mapped("mrkrdb://hpc7:40001//$SCRATCHDIR_RHOST/a.rdx"),
              "Network connectors/box1/$SCRATCHDIR_RHOST/a.rdx");
    EXPECT_EQ(NameOf("mrkrdb://hpc7:40001//scratch/run/results/a.rdx"), "box1");
}

TEST_F(ARegistry, AConnectorPathIsSplitBehindItsPrefix)
{
    EXPECT_EQ(NameIn("Network connectors/box1"), "box1");
    EXPECT_EQ(NameIn("Network connectors/box1/"), "box1");
    EXPECT_EQ(PathIn("Network connectors/box1/"), "");
    EXPECT_EQ(NameIn("Network connectors/"), "");
    EXPECT_EQ(PathIn("Network connectors/"), "");
    EXPECT_EQ(NameIn("Network connectors//a"), "");
    EXPECT_EQ(PathIn("Network connectors//a"), "a");
    EXPECT_EQ(NameIn("network connectors/box1"), "");
    EXPECT_EQ(NameIn("/Network connectors/box1"), "");
    EXPECT_EQ(NameIn(""), "");
    EXPECT_EQ(PathIn("/local/a.rdx"), "");
    EXPECT_EQ(NameIn("/local/a.rdx"), "");
}

TEST_F(ARegistry, TheRootWithoutASlashIsBelowItselfAndMapsToNothing)
{
    AddBox1();
    EXPECT_TRUE(Registry().isPrefixMyRemoteConnections("Network connectors"));
    EXPECT_EQ(NameIn("Network connectors"), "");
    EXPECT_EQ(PathIn("Network connectors"), "");
    EXPECT_EQ(Url("Network connectors"), "");
    EXPECT_EQ(There("Network connectors"), "");
    EXPECT_EQ(Host("Network connectors"), "");
    EXPECT_EQ(Mapped("Network connectors", false), "Network connectors");
    EXPECT_EQ(Reports(), "");
}

TEST_F(ARegistry, TheRootWithNothingBehindItsSlashIsAnEmptyName)
{
    AddBox1();
    ExpectNotFound("", [] { Url("Network connectors/"); });
    ExpectNotFound("", [] { There("Network connectors/"); });
    ExpectNotFound("", [] { Host("Network connectors/"); });
    EXPECT_EQ(Reports(), "");
}

TEST_F(ARegistry, APathThatMerelyContinuesTheWordsCountsAsBelowTheRoot)
{
    EXPECT_TRUE(Registry().isPrefixMyRemoteConnections("Network connectors2"));
    EXPECT_TRUE(Registry().isPrefixMyRemoteConnections("Network connectors/"));
    EXPECT_TRUE(Registry().isPrefixMyRemoteConnections("Network connectors/box1/a"));
    EXPECT_FALSE(Registry().isPrefixMyRemoteConnections("Network connector"));
    EXPECT_FALSE(Registry().isPrefixMyRemoteConnections("/Network connectors"));
    EXPECT_FALSE(Registry().isPrefixMyRemoteConnections(""));
    EXPECT_EQ(Url("Network connectors2/a"), "") << "but no mapping takes it";
}

TEST_F(ARegistry, AnUnknownNameIsNamedInTheRefusal)
{
    AddBox1();
    ExpectNotFound("box2", [] { Url("Network connectors/box2/a"); });
    ExpectNotFound("box2", [] { There("Network connectors/box2/a"); });
    ExpectNotFound("box2", [] { Host("Network connectors/box2"); });
    EXPECT_EQ(Connections().Size(), 1);
    EXPECT_EQ(Reports(), "");
}

TEST_F(ARegistry, EachMappingLeavesOneModify)
{
    AddBox1();
    Url("Network connectors/box1/a");
    EXPECT_EQ(Reports(), "('Modify', 'box1')\n");
    There("Network connectors/box1/a");
    EXPECT_EQ(Reports(), "('Modify', 'box1')\n");
    Host("Network connectors/box1/a");
    EXPECT_EQ(Reports(), "('Modify', 'box1')\n");
    Mapped("mrkrdb://hpc7:40001//scratch/run/a");
    EXPECT_EQ(Reports(), "('Modify', 'box1')\n");
    NameOf("mrkrdb://hpc7:40001//scratch/run/a");
    NameIn("Network connectors/box1/a");
    EXPECT_EQ(Reports(), "") << "finding a name changes nothing";
}

TEST_F(ARegistry, AScratchPathIsToldByADollarOrTheVariableAnywhere)
{
    AddBox1();
    EXPECT_EQ(There("Network connectors/box1/a/b$c"), "a/b$c");
    EXPECT_EQ(There("Network connectors/box1/a/SCRATCHDIR_RHOST/c"), "a/SCRATCHDIR_RHOST/c");
    EXPECT_EQ(Url("Network connectors/box1/a/b$c"), "mrkrdb://hpc7:40001//a/b$c");
    EXPECT_EQ(There("Network connectors/box1/scratchdir_rhost"), "/scratch/run/scratchdir_rhost");
    EXPECT_EQ(Mapped("mrkrdb://hpc7:40001//scratch/run/b$c"), "Network connectors/box1/scratch/run/b$c");
}

TEST_F(ARegistry, ADollarInTheNameOfTheConnectionMakesAScratchPathToo)
{
    Connections().Insert("b$1", Connection("b$1", "hpc7", 40001, "/scratch/run"));
    EXPECT_EQ(There("Network connectors/b$1/a"), "a");
    EXPECT_EQ(Url("Network connectors/b$1/a"), "mrkrdb://hpc7:40001//a");
}

TEST_F(ARegistry, AConnectionWithoutAPathMapsToItsDirectory)
{
    AddBox1();
    EXPECT_EQ(Url("Network connectors/box1"), "mrkrdb://hpc7:40001//scratch/run/");
    EXPECT_EQ(There("Network connectors/box1"), "/scratch/run/");
}

TEST_F(ARegistry, TheDirectoryGoesWhereItStandsFirst)
{
    AddBox1();
    EXPECT_EQ(Mapped("mrkrdb://hpc7:40001//data/scratch/run/a"), "Network connectors/box1/data/a");
    EXPECT_EQ(Mapped("mrkrdb://hpc7:40001//scratch/run/scratch/run/a"),
              "Network connectors/box1/scratch/run/a");
    EXPECT_EQ(Mapped("mrkrdb://hpc7:40001//elsewhere/a"), "Network connectors/box1/elsewhere/a");
}

TEST_F(ARegistry, AnEmptyDirectoryLeavesThePathAsItIs)
{
    Connections().Insert("bare", Connection("bare", "hpc9", 7, ""));
    EXPECT_EQ(Mapped("mrkrdb://hpc9:7//data/a"), "Network connectors/bare/data/a");
    EXPECT_EQ(Mapped("mrkrdb://hpc9:7/a"), "Network connectors/barea")
        << "nothing is put between name and path";
    EXPECT_EQ(Url("Network connectors/bare/a"), "mrkrdb://hpc9:7//a");
    EXPECT_EQ(There("Network connectors/bare/a"), "/a");
}

TEST_F(ARegistry, ATextThatIsNoUrlIsLeftAlone)
{
    AddBox1();
    EXPECT_EQ(Mapped("/local/a.rdx", false), "/local/a.rdx");
    EXPECT_EQ(Mapped("Network connectors/box1/a", false), "Network connectors/box1/a");
    EXPECT_EQ(Mapped("", false), "");
    EXPECT_EQ(Reports(), "");
}

TEST_F(ARegistry, AUrlIsFoundByHostAndConnectPortExactly)
{
    AddBox1();
    const char* nobody = "!\"MapUrlToRemoteConnectionName failed\"";
    ExpectAssertion(nobody, [] { NameOf("mrkrdb://hpc8:40001/a"); });
    ExpectAssertion(nobody, [] { NameOf("mrkrdb://HPC7:40001/a"); });
    ExpectAssertion(nobody, [] { NameOf("mrkrdb://hpc7:40002/a"); });
    ExpectAssertion(nobody,
                    [] { NameOf("mrkrdb://hpc7:40000/a"); }); // the port of the server, not of the clients
    ExpectAssertion(nobody, [] { Mapped("mrkrdb://hpc8:40001/a"); });
    EXPECT_EQ(NameOf("mrkrdb://hpc7:40001"), "box1");
}

TEST_F(ARegistry, OfTwoConnectionsToOneServerTheFirstNameCounts)
{
    Connections().Insert("zeta", Connection("zeta", "hpc7", 1, "/z"));
    Connections().Insert("alpha", Connection("alpha", "hpc7", 1, "/a"));
    Connections().Insert("beta", Connection("beta", "hpc6", 1, "/b"));
    EXPECT_EQ(NameOf("mrkrdb://hpc7:1/x"), "alpha");
    Connections().Remove("alpha");
    EXPECT_EQ(NameOf("mrkrdb://hpc7:1/x"), "zeta");
}

TEST_F(ARegistry, AConnectionWithoutAServerMatchesPortZeroOnly)
{
    Connections().Insert("new", Connection("new", "hpc7", 0, ""));
    EXPECT_EQ(NameOf("mrkrdb://hpc7:0/a"), "new");
    ExpectAssertion("!\"MapUrlToRemoteConnectionName failed\"", [] { NameOf("mrkrdb://hpc7:00/a"); });
    ExpectAssertion("!\"MapUrlToRemoteConnectionName failed\"", [] { NameOf("mrkrdb://hpc7:40000/a"); });
}

TEST_F(ARegistry, AUrlThatLacksAPieceIsAnAssertion)
{
    AddBox1();
    ExpectAssertion("utl_UrlParser::HasHost(url)", [] { NameOf("mrkrdb://:40001/a"); });
    ExpectAssertion("utl_UrlParser::HasHost(url)", [] { NameOf("/local"); });
    ExpectAssertion("utl_UrlParser::HasPort(url)", [] { NameOf("mrkrdb://hpc7/a"); });
    ExpectAssertion("utl_UrlParser::HasPort(url)", [] { Mapped("mrkrdb://hpc7:port/a"); });
    EXPECT_EQ(Reports(), "");
    ExpectAssertion("utl_UrlParser::HasPath(url)", [] { Mapped("mrkrdb://hpc7:40001"); });
    EXPECT_EQ(Reports(), "('Modify', 'box1')\n") << "the record was reached before the path was missed";
}

TEST_F(ARegistry, ARefusedUrlStaysAsItIs)
{
    AddBox1();
    cow_String url("mrkrdb://hpc7:40001");
    EXPECT_THROW(Registry().MapUrlToRemotePath(url), nex_AssertException);
    EXPECT_EQ(url.View(), "mrkrdb://hpc7:40001");
}

TEST_F(ARegistry, ARecordUnderAnotherNameThanItsOwnIsFoundByItsOwn)
{
    Connections().Insert("key", Connection("name", "hpc7", 1, ""));
    EXPECT_EQ(NameOf("mrkrdb://hpc7:1/a"), "name");
    ExpectAssertion("rcContainer.IsMember(remoteConnectionName)", [] { Mapped("mrkrdb://hpc7:1/a"); });
}

TEST_F(ARegistry, ANameWithoutARecordIsPassedOver)
{
    AddBox1();
    Connections().GetMap().InsertUnlessMember("a", rds_RemoteConnections::Entry());
    EXPECT_EQ(NameOf("mrkrdb://hpc7:40001/a"), "box1");
    EXPECT_EQ(Thrown<nex_AssertException>([] { Url("Network connectors/a/x"); }), "!IsNull()");
}

TEST_F(ARegistry, TheConstructorFunctionReportsInsertAndModify)
{
    rds_RemoteConnection& made = remoteConnectionConstructor(
        "box1", "hpc7", "/scratch", "driver", rds_RemoteLoginMechanismEnm::RSH, "/opt/ssh", 60, 4, 5, false);
    EXPECT_EQ(Reports(), "('Insert', 'box1', -99)\n('Modify', 'box1')\n");
    EXPECT_EQ(&made, &Connections().ConstGet("box1"));
    EXPECT_EQ(made.Name().View(), "box1");
    EXPECT_EQ(made.HostName().View(), "hpc7");
    EXPECT_EQ(made.Directory().View(), "/scratch");
    EXPECT_EQ(made.RemoteMarlekDriverName().View(), "driver");
    EXPECT_EQ(made.RemoteLoginMechanism(), rds_RemoteLoginMechanismEnm::RSH);
    EXPECT_EQ(made.SshExecPath().View(), "/opt/ssh");
    EXPECT_EQ(made.TimeOut(), 60);
    EXPECT_EQ(made.ServerPortNumber(), 4);
    EXPECT_EQ(made.ConnectPortNumber(), 5);
    EXPECT_FALSE(made.StartRemoteServer());

    made.SetqlnsrvdKey("secret");
    EXPECT_STREQ(Connections().ConstGet("box1").QlnsrvdKey(), "secret") << "it is the registered record";
    remoteConnectionConstructor("box1", "hpc8", "", "", rds_RemoteLoginMechanismEnm::SSH, "", 60, 0, 0, true);
    EXPECT_EQ(Reports(), "('Remove', 'box1')\n('Insert', 'box1', -99)\n('Modify', 'box1')\n");
    EXPECT_EQ(Connections().Size(), 1);
    EXPECT_STREQ(Connections().ConstGet("box1").QlnsrvdKey(), "");
}

TEST_F(ARegistry, AnInsertReportsOnceForANewNameAndTwiceForAKnownOne)
{
    Connections().Insert("box1", Connection("box1", "hpc7", 1, ""));
    EXPECT_EQ(History().Changes().Count(), 1);
    Reports();
    Connections().Insert("box1", new rds_RemoteConnection(Connection("box1", "hpc8", 1, "")));
    EXPECT_EQ(History().Changes().Count(), 2);
    EXPECT_EQ(Connections().Size(), 1);
    EXPECT_EQ(Connections().ConstGet("box1").HostName().View(), "hpc8");
    Reports();
    EXPECT_FALSE(Connections().Remove("box2"));
    EXPECT_EQ(Reports(), "");
}

namespace
{
cow_String Written(const mdl_Repository& repository)
{
    cls_WriteStream written;
    repository.DBWrite(written.Visitor());
    return written.Bytes();
}

void ReadConnections(const cow_String& bytes)
{
    const cls_ReadStream stream(bytes);
    const cls_ReadVisitor reader = stream.Visitor(0);
    reader.CheckType(rds_RemoteConnections::TypeId());
    const rds_RemoteConnections connections(reader);
}
} // namespace

TEST_F(ARegistry, TheConnectionsOutliveTheProcessInAStream)
{
    AddBox1();
    Connections().Insert("a", Connection("a", "hpc8", 2, ""));
    Connections().Get("a").SetqlnsrvdKey("secret");
    Connections().GetMap().InsertUnlessMember("none", rds_RemoteConnections::Entry());
    const cow_String bytes = Written(Registry().GetRepository());
    Connections().Remove("a");
    Connections().Remove("box1");

    const cls_ReadStream stream(bytes);
    ASSERT_EQ(stream.Count(), 1);
    EXPECT_EQ(stream.Visitor(0).TypeId(), 55377922);
    EXPECT_EQ(stream.Visitor(0).VersionNumber(), 800);
    EXPECT_EQ(stream.Visitor(0).Base(655361).TypeId(), 655361);
    EXPECT_FALSE(stream.Visitor(0).Base(655361).IsNone());
    const cls_ReadVisitor map = stream.Visitor(0).Field(mdl_MapField);
    EXPECT_EQ(map.TypeId(), 2293762);
    ASSERT_EQ(map.ElementCount(), 3);
    EXPECT_EQ(map.ElementKey(0).View(), "a");
    EXPECT_EQ(map.ElementKey(1).View(), "box1");
    EXPECT_TRUE(map.Element(2).IsNone());
    EXPECT_EQ(map.Element(2).TypeId(), 55377921);

    Registry().SetRepository(rds_RemoteConnections(stream.Visitor(0)));
    EXPECT_EQ(Connections().Size(), 3);
    EXPECT_EQ(Connections().Keys().ConstGet(1).View(), "box1");
    EXPECT_EQ(NameOf("mrkrdb://hpc8:2/x"), "a");
    EXPECT_STREQ(Connections().ConstGet("a").QlnsrvdKey(), "secret");
    EXPECT_EQ(There("Network connectors/box1/x"), "/scratch/run/x");
}

TEST_F(ARegistry, ItsMetadataMakesTheRepository)
{
    AddBox1();
    const cls_ReadStream stream(Written(Registry().GetRepository()));
    const cls_ClassMetadata* metadata = cls_ClassRegistrar::FindClassMD(stream.Visitor(0).TypeId());
    ASSERT_NE(metadata, nullptr);
    const std::unique_ptr<rds_RemoteConnections> made(
        static_cast<rds_RemoteConnections*>(metadata->Ctor(stream.Visitor(0))));
    EXPECT_EQ(made->ConstGet("box1").HostName().View(), "hpc7");
}

TEST_F(ARegistry, StoredConnectionsCutOrChangedAnywhereAreRefused)
{
    AddBox1();
    Connections().GetMap().InsertUnlessMember("box2", Connections().ConstGetMap().ConstGet("box1"));
    Connections().GetMap().InsertUnlessMember("none", rds_RemoteConnections::Entry());
    const cow_String whole = Written(Registry().GetRepository());
    ExpectEveryCutIsRefused(whole, ReadConnections);
    ExpectEveryChangedByteIsRefused(whole, ReadConnections);
    ExpectEveryShortBodyIsRefused(whole, ReadConnections);
    EXPECT_GT(CountRefusedChanges(whole, ReadConnections), 0);
}
