// How a remote file is reached, and what its user is told when it can't be.

#include "ChangeReports.h"
#include "RemoteFileScene.h"
#include "rds.h"
#include "rfm_FileReprRemote.h"

#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace
{
constexpr const char* kRelayUrl = "mrkrdb://hpc7:40001//scratch/run/a.rdx";

class rfm_RemoteConnectingTest : public RemoteFileScene
{
protected:
    rfm_RemoteConnectingTest() { Options(1, kNoLimit); }

    static rds_RemoteConnections& Connections()
    {
        return omi_Singleton<rds_RemoteConnectionsRep>::Instance().Connections();
    }
    static void AddConnection(const cow_String& key)
    {
        rds_RemoteConnection connection("box1", "hpc7", "/scratch/run", "rundriver",
                                        rds_RemoteLoginMechanismEnm::SSH, "", 86400, 40000, 40001, true);
        connection.SetqlnsrvdKey(key);
        Connections().Insert("box1", connection);
    }
    template <class Failure> static std::string Opening(const cow_String& url)
    {
        return Thrown<Failure>([&] { rfm_FileReprRemote file(url); });
    }
    static std::string CannotConnect(const cow_String& url, const std::string& reason)
    {
        return std::string("*** ERROR: Can't connect to remote file:\n") + url.CString() + ", reason:\n" +
               reason;
    }
    static std::string Lost(const cow_String& url, const std::string& reason)
    {
        return std::string("*** ERROR: Lost connection to remote file:\n") + url.CString() + ", reason:\n" +
               reason;
    }
    // The steps up to where the size is known: 5 bytes.
    static std::string Handshake(int keyBytes)
    {
        return "take " + std::to_string(1 + keyBytes) +
               "\nsend 0001\ntake 6\ntake 1\nsend 0000 0000000000000005\n";
    }
};

// --- what is said at the start

TEST_F(rfm_RemoteConnectingTest, WithoutAKeyTheHandshakeIsItsLengthOfZeroAlone)
{
    Script(Handshake(0) + "swallow\n");
    const rfm_FileReprRemote file(Url("a.rdx"));
    EXPECT_EQ(Taken(), "00"       // no key
                       "0001"     // version
                       "00000400" // page size
                       "01");     // size request
    EXPECT_EQ(file.Length(), 5);
    EXPECT_EQ(file.LogicalLength(), 5);
    EXPECT_EQ(file.PhysicalLength(), 5);
    EXPECT_EQ(file.FileName(), Url("a.rdx"));
    EXPECT_TRUE(file.ReadOnly());
}

TEST_F(rfm_RemoteConnectingTest, TheKeyIsThatOfTheConnection)
{
    AddConnection("abcdefgh");
    Reports();
    Script(Handshake(8) + "swallow\n");
    {
        const rfm_FileReprRemote file(kRelayUrl);
        EXPECT_EQ(Taken(), "08"
                           "6162636465666768"
                           "0001"
                           "00000400"
                           "01");
    }
    EXPECT_EQ(Reports(), "('Modify', 'box1')\n");
}

TEST_F(rfm_RemoteConnectingTest, AKeyOfFullLengthGoesWhole)
{
    const std::string key(255, 'k');
    AddConnection(cow_String(key));
    Script(Handshake(255) + "swallow\n");
    const rfm_FileReprRemote file(kRelayUrl);
    EXPECT_EQ(Taken(), "ff" + Hex(key) +
                           "0001"
                           "00000400"
                           "01");
}

TEST_F(rfm_RemoteConnectingTest, AConnectionWithoutAKeySendsTheLengthZero)
{
    AddConnection("");
    Script(Handshake(0) + "swallow\n");
    const rfm_FileReprRemote file(kRelayUrl);
    EXPECT_EQ(Taken(), "00"
                       "0001"
                       "00000400"
                       "01");
}

TEST_F(rfm_RemoteConnectingTest, TheLowerVersionIsSpoken)
{
    for (const auto& [theirs, spoken] : {std::pair{"7fff", "0001"}, {"0001", "0001"}, {"0000", "0000"}})
    {
        std::filesystem::remove(Path("taken"));
        Script(std::string("take 1\nsend ") + theirs +
               "\ntake 6\ntake 1\nsend 0000 0000000000000005\nswallow\n");
        const rfm_FileReprRemote file(Url("a.rdx"));
        EXPECT_EQ(Taken(), std::string("00") + spoken +
                               "00000400"
                               "01");
    }
}

TEST_F(rfm_RemoteConnectingTest, ThePageSizeOfTheCacheIsTold)
{
    Options(65537, kNoLimit);
    Script(Handshake(0) + "swallow\n");
    const rfm_FileReprRemote file(Url("a.rdx"));
    EXPECT_EQ(Taken(), "00"
                       "0001"
                       "00200000"
                       "01");
}

// --- which program is run

TEST_F(rfm_RemoteConnectingTest, WithoutAPortTheAssistantIsRunWithThePath)
{
    Script(Handshake(0) + "swallow\n");
    const rfm_FileReprRemote file("mrkrdb://localhost//data/SCRATCHDIR_RHOST/a b.rdx");
    EXPECT_EQ(Words(), "[/data/SCRATCHDIR_RHOST/a b.rdx]");
}

TEST_F(rfm_RemoteConnectingTest, WithAPortTheRelayIsRun)
{
    AddConnection("");
    Script(Handshake(0) + "swallow\n");
    const rfm_FileReprRemote file(kRelayUrl);
    EXPECT_EQ(Words(), "[-cpu] [hpc7] [-private] [-port] [40001] [rfmT_FileAssistant] [/scratch/run/a.rdx]");
}

TEST_F(rfm_RemoteConnectingTest, AScratchPathIsMarkedBehindThePath)
{
    AddConnection("");
    Script(Handshake(0) + "swallow\n");
    const rfm_FileReprRemote file("mrkrdb://hpc7:40001//$SCRATCHDIR_RHOST/a.rdx");
    EXPECT_EQ(Words(), "[-cpu] [hpc7] [-private] [-port] [40001] [rfmT_FileAssistant] "
                       "[/$SCRATCHDIR_RHOST/a.rdx] [-scratch]");
}

TEST_F(rfm_RemoteConnectingTest, ARelayThatIsNotThereOrMayNotBeRunIsTold)
{
    AddConnection("");
    const std::string expected = CannotConnect(kRelayUrl, "Cannot locate qlnsrv executable");
    std::filesystem::remove(Path("mrl/External/qlnsrv/qlnsrv"));
    EXPECT_EQ(Opening<rfm_FileConnectExc>(kRelayUrl), expected);
    Put("mrl/External/qlnsrv/qlnsrv", "#!/bin/sh\n");
    ::chmod(Path("mrl/External/qlnsrv/qlnsrv").c_str(), 0600);
    EXPECT_EQ(Opening<rfm_FileConnectExc>(kRelayUrl), expected);
    const EnvironmentVariable none("MRL_PATH", nullptr);
    EXPECT_EQ(Opening<rfm_FileConnectExc>(kRelayUrl), expected);
}

TEST_F(rfm_RemoteConnectingTest, AnAssistantThatIsNotThereIsTold)
{
    std::filesystem::remove(Path("bin/rfmT_FileAssistant"));
    EXPECT_EQ(Opening<rfm_FileConnectExc>(Url("a.rdx")),
              CannotConnect(Url("a.rdx"), "Cannot locate rfmT_FileAssistant executable"));
}

TEST_F(rfm_RemoteConnectingTest, AHostThatTheRelayWouldTakeForAnOptionIsRefused)
{
    Connections().Insert("bad", rds_RemoteConnection("bad", "-ping", "", "", rds_RemoteLoginMechanismEnm::SSH,
                                                     "", 86400, 40000, 40001, true));
    EXPECT_THAT(Opening<nex_TextException>("mrkrdb://-ping:40001//a.rdx"), HasSubstr("\"-ping\""));
    EXPECT_FALSE(std::filesystem::exists(Path("words")));
}

// --- URLs

TEST_F(rfm_RemoteConnectingTest, AUrlMustHaveAllItsParts)
{
    AddConnection("");
    for (const auto& [url, condition] :
         {std::pair{"/data/a.rdx", "utl_UrlParser::IsUrl(url)"},
          {"mrkrdb:///a.rdx", "utl_UrlParser::HasHost(url)"},
          {"mrkrdb://localhost", "utl_UrlParser::HasPath(url)"},
          {"mrkrdb://localhost/", "utl_UrlParser::HasPath(url)"},
          {"mrkrdb://hpc7/a.rdx", "utl_UrlParser::GetHost(url) == \"localhost\""},
          {"mrkrdb://LOCALHOST/a.rdx", "utl_UrlParser::GetHost(url) == \"localhost\""},
          {"mrkrdb://hpc7:40002/a.rdx", "!\"MapUrlToRemoteConnectionName failed\""},
          {"mrkrdb://localhost:40001/a.rdx", "!\"MapUrlToRemoteConnectionName failed\""}})
        EXPECT_EQ(Opening<nex_AssertException>(url), condition) << url;
    EXPECT_FALSE(std::filesystem::exists(Path("words")));
}

TEST_F(rfm_RemoteConnectingTest, AUrlOpensForReadingOnlyAndWithoutALog)
{
    Script(Handshake(0) + "swallow\n");
    const EnvironmentVariable log("MRK_RFM_LOGIFY", "1");
    ::testing::internal::CaptureStderr();
    const rfm_File file = rfm_File::Open(Url("a.rdx"), utl_FileAccessRead);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(file.FileName(), Url("a.rdx"));
    EXPECT_TRUE(file.ReadOnly());
}

// --- reasons

TEST_F(rfm_RemoteConnectingTest, AChildThatFailsAtTheStartIsQuotedWithItsLastLineThatCounts)
{
    for (const auto& [said, reason] : {
             std::pair{"say assistant, no such file\n", "assistant, no such file\n"},
             {"say qlnsrv, cannot connect\n", "qlnsrv, cannot connect\n"},
             {"say qlnsrvd, there is no service\n", "qlnsrvd, there is no service\n"},
             {"say MARLEK Error: out of order\n", "MARLEK Error: out of order\n"},
             {"say assistant, first\nsay qlnsrv, second\nsay something else\n", "qlnsrv, second\n"},
             {"say  assistant, set in\nsay Assistant, large\nsay *** Error: no\nsay qlnsrvdx\n",
              "Can't be determined"},
             {"", "Can't be determined"},
             {"forget\n", ""},
         })
    {
        Script(std::string("take 1\n") + said + "leave 1\n");
        EXPECT_EQ(Opening<rfm_FileConnectExc>(Url("a.rdx")), CannotConnect(Url("a.rdx"), reason)) << said;
    }
}

TEST_F(rfm_RemoteConnectingTest, ALongLineIsReadInPieces)
{
    // 511 bytes a piece: what follows counts as a line of its own.
    const std::string first = "assistant, " + std::string(500, 'a');
    Script("take 1\nsay " + first + "qlnsrv, behind\nleave 1\n");
    EXPECT_EQ(Opening<rfm_FileConnectExc>(Url("a.rdx")), CannotConnect(Url("a.rdx"), "qlnsrv, behind\n"));
    Script("take 1\nsay " + first + "and more\nleave 1\n");
    EXPECT_EQ(Opening<rfm_FileConnectExc>(Url("a.rdx")), CannotConnect(Url("a.rdx"), first));
}

TEST_F(rfm_RemoteConnectingTest, OfALotThatWasSaidOnlyTheEndIsRead)
{
    // A tebibyte, which nobody could wait for.
    Script("take 1\nsay assistant, first\ngrow 1099511627776\nsay end\nsay assistant, last\nleave 1\n");
    EXPECT_EQ(Opening<rfm_FileConnectExc>(Url("a.rdx")), CannotConnect(Url("a.rdx"), "assistant, last\n"));
    Script("take 1\nsay assistant, first\ngrow 1099511627776\nleave 1\n");
    EXPECT_EQ(Opening<rfm_FileConnectExc>(Url("a.rdx")), CannotConnect(Url("a.rdx"), "Can't be determined"));
}

TEST_F(rfm_RemoteConnectingTest, AnAssistantThatGoesBehindTheHandshakeIsALostConnection)
{
    Script("take 1\nsend 0001\ntake 7\nsay assistant, gone\nleave 1\n");
    EXPECT_EQ(Opening<rfm_FileFailExc>(Url("a.rdx")), Lost(Url("a.rdx"), "assistant, gone\n"));
}

TEST_F(rfm_RemoteConnectingTest, AConnectionThatWasLostStaysLost)
{
    Script(Handshake(0) + "take 1\nsay assistant, gone\nleave 1\n");
    rfm_FileReprRemote file(Url("a.rdx"));
    const std::string expected = Lost(Url("a.rdx"), "assistant, gone\n");
    char byte = 0;
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_EQ(Thrown<rfm_FileFailExc>([&] { file.CheckStatus(); }), expected);
        EXPECT_EQ(Thrown<rfm_FileFailExc>([&] { file.Read(&byte, 1); }), expected);
        EXPECT_EQ(Thrown<rfm_FileFailExc>([&] { file.CheckCache(); }), expected);
        EXPECT_EQ(Thrown<rfm_FileFailExc>([&] { static_cast<void>(file.VerifySizeStamp(0)); }), expected);
    }
    EXPECT_EQ(file.Location(), 0);
    EXPECT_EQ(Taken(), "00"
                       "0001"
                       "00000400"
                       "01"
                       "03");
}

// --- the end

TEST_F(rfm_RemoteConnectingTest, TheAssistantSeesItsInputEndAndIsWaitedFor)
{
    Script(Handshake(0) + "swallow\nmark gone\n");
    {
        const rfm_FileReprRemote file(Url("a.rdx"));
        EXPECT_FALSE(std::filesystem::exists(Path("gone")));
    }
    EXPECT_EQ(Text("gone"), "x");
}

TEST_F(rfm_RemoteConnectingTest, WhatTheAssistantStillSaysAtItsEndIsThrownAway)
{
    Script(Handshake(0) + "swallow\nfill 200000\nmark gone\n");
    {
        const rfm_FileReprRemote file(Url("a.rdx"));
    }
    EXPECT_EQ(Text("gone"), "x");
}

TEST_F(rfm_RemoteConnectingTest, AnAssistantThatLeftTheProtocolIsNotWaitedFor)
{
    // A file of -1 bytes; then it does not look at its input any more. What it was started for ends it.
    Script("take 1\nsend 0001\ntake 7\nsend 0000 ffffffffffffffff\nhang\n");
    EXPECT_EQ(Opening<rfm_FileFailExc>(Url("a.rdx")), Lost(Url("a.rdx"), "Can't be determined"));
}
} // namespace
