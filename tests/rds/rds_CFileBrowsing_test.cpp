#include "BrowsingScene.h"
#include "RandomSeed.h"
#include "rds_BrowsingFormat.h"
#include "utl_BinIStream.h"
#include "utl_BinOStream.h"

#include <functional>
#include <vector>

using ::testing::HasSubstr;

namespace
{
constexpr char kAll = rds_CFileBrowsing::AllAttributes;
constexpr char kShort = rds_CFileBrowsing::ShortForm;
constexpr const char* kNothingThrown = "nothing was thrown";

// The handshake's two requests, which stand in front of all others.
std::string AskedBefore() { return FromHex("00000005 00000004"); }

std::string Refusal(const std::string& message)
{
    return FromHex("00000000 000000") + static_cast<char>(message.size()) + message;
}

// The attributes of job.rdx behind its name, up to the words; "cd" and "ab" are the second and the first text.
std::string ShortsAndWords() { return FromHex("01A4 FFFF 00000011 80000012"); }
std::string TextsAndLarge()
{
    return FromHex("00000002") + "cd" + FromHex("00000002") + "ab" + FromHex("0102030405060708");
}
std::string KindAndName() { return FromHex("00000001 00000007") + "job.rdx"; }
std::string AttributesReply()
{
    return FromHex("00000001") + KindAndName() + ShortsAndWords() + FromHex("77777777") + TextsAndLarge();
}
std::string LongListing()
{
    return FromHex("00000001") + "A" + FromHex("00000001") + KindAndName() + ShortsAndWords() +
           TextsAndLarge();
}
std::string ShortListing(const std::string& flag = "S")
{
    return FromHex("00000001") + flag + FromHex("00000003") + FromHex("00000001 00000001") + "X" +
           FromHex("00000002 00000001") + "Y" + FromHex("00000003 00000001") + "Z";
}

void ExpectJob(const rds_DirectoryEntity& entity)
{
    EXPECT_EQ(entity.m_Name, "job.rdx");
    EXPECT_EQ(entity.m_Kind, 1);
    EXPECT_EQ(entity.m_Text1, "ab");
    EXPECT_EQ(entity.m_Text2, "cd");
    EXPECT_EQ(entity.m_Short1, 0x1A4);
    EXPECT_EQ(entity.m_Short2, -1);
    EXPECT_EQ(entity.m_Word1, 0x11U);
    EXPECT_EQ(entity.m_Word2, 0x80000012U);
    EXPECT_EQ(entity.m_Word3, 0U);
    EXPECT_EQ(entity.m_Large, 0x0102030405060708U);
}

using List = std::unique_ptr<EntityList>;
using Entity = std::unique_ptr<rds_DirectoryEntity>;

class FileBrowsing : public BrowsingScene
{
protected:
    static List Listed(rds_CFileBrowsing& browser, char flag = kAll)
    {
        return List(browser.ListDir("/data", rdb_FileFilterID::Visible, flag));
    }
    template <class Action> static std::string SourceOf(Action action)
    {
        try
        {
            action();
        }
        catch (const nex_TextException& failure)
        {
            return failure.SourceName().CString();
        }
        return kNothingThrown;
    }
    std::string ListingFailure(const std::string& replies) const
    {
        const auto browser = Browser(replies);
        return Failure([&] { Listed(*browser); });
    }
    // What a browser says that has to be made first.
    std::string MakingFailure(std::string_view replies) const
    {
        return Failure([&] { Owning(Scripted(replies)); });
    }
};

// Every request that has a reply, with one.
struct Asked
{
    const char* name;
    std::string reply;
    std::function<void(rds_CFileBrowsing&)> ask;
};
std::vector<Asked> AllAsked()
{
    return {
        {"ListDir A", LongListing(),
         [](auto& browser) { List(browser.ListDir("/data", rdb_FileFilterID::All, kAll)); }},
        {"ListDir S", ShortListing(),
         [](auto& browser) { List(browser.ListDir("/data", rdb_FileFilterID::All, kShort)); }},
        {"StatCall", AttributesReply(), [](auto& browser) { Entity(browser.StatCall("/data")); }},
        {"IsRemoteDir", FromHex("00000001 00000001"), [](auto& browser) { browser.IsRemoteDir("/data"); }},
        {"IsRemoteFile", FromHex("00000001 00000000"), [](auto& browser) { browser.IsRemoteFile("/data"); }},
    };
}
} // namespace

// --- the handshake ---

TEST_F(FileBrowsing, TheHandshakeAsksForThePlatformAndThenForTheVersion)
{
    Browser("").reset();
    EXPECT_EQ(Requests(), FromHex("00000005 00000004"));
}

TEST_F(FileBrowsing, APlatformWithoutAServiceIsRefusedBeforeItsVersionIsAskedFor)
{
    EXPECT_EQ(
        MakingFailure(FromHex("00000002") + "nt"),
        "*** Error: Network RDX connector is not supported when the server is running on the NT platform.");
    EXPECT_EQ(Requests(), FromHex("00000005"));
}

TEST_F(FileBrowsing, OnlyTheWholeWordIsThatPlatform)
{
    for (const char* word : {"NT", "nt4", "n"})
    {
        const std::string length(1, static_cast<char>(std::string_view(word).size()));
        Owning(Scripted(FromHex("000000") + length + word + FromHex("00000002"))).reset();
        EXPECT_EQ(Requests(), AskedBefore()) << word;
    }
}

TEST_F(FileBrowsing, AnotherVersionIsRefused)
{
    for (const char* version : {"00000001", "00000003", "02000000", "FFFFFFFF"})
        EXPECT_EQ(MakingFailure(FromHex("00000005") + "linux" + FromHex(version)),
                  "*** Error: Network RDX connector Client and Server are running different verions.");
}

TEST_F(FileBrowsing, AClientOfWhomNoBrowserCouldBeMadeStaysTheCallers)
{
    rds_Client* client = Patient(FromHex("00000002") + "nt");
    EXPECT_THROW(rds_CFileBrowsing browser(client), nex_TextException);
    EXPECT_TRUE(client->IsRunning());
    EndClient(client);
}

TEST_F(FileBrowsing, AHandshakeThatIsCutAnywhereIsALostConnection)
{
    for (std::size_t length = 0; length < Handshake().size(); ++length)
        EXPECT_EQ(MakingFailure(Handshake().substr(0, length)), kLostConnection) << length;
}

TEST_F(FileBrowsing, AWriteOfTheHandshakeThatFailsPassesTheStreamsOwnException)
{
    Put("platform", FromHex("00000005") + "linux");
    for (const char* script : {"exec <&-; printf x; cat replies", // takes nothing
                               "printf x; head -c 4 >requests; exec <&-; cat platform"})
    {
        rds_Client* client = Client(script);
        EXPECT_EQ(utl_BinIStream(client->SourceDescriptor(), omi_Swapper::Pipe).ReadSchar(), 'x');
        EXPECT_EQ(Thrown<utl_BinStreamEOF>([&] { rds_CFileBrowsing browser(client); }),
                  "*** ERROR: Can't write stream, reason:\n  Broken pipe.")
            << script;
        EndClient(client);
    }
}

TEST_F(FileBrowsing, ABrowserWithoutAClientIsNone)
{
    EXPECT_EQ(Thrown<nex_AssertException>([] { rds_CFileBrowsing browser(nullptr); }), "client != nullptr");
}

TEST_F(FileBrowsing, AnEmptyBrowserTouchesNoChildAndTakesNoRequest)
{
    rds_Client* other = Client("exec cat");
    {
        rds_CFileBrowsing browser;
        EXPECT_THROW(browser.Exit(), nex_AssertException);
        EXPECT_THROW(browser.IsRemoteDirReply(), nex_AssertException);
    }
    EXPECT_TRUE(other->IsRunning());
    utl_BinOStream(other->SinkDescriptor(), omi_Swapper::Pipe).WriteSchar('x');
    EXPECT_EQ(utl_BinIStream(other->SourceDescriptor(), omi_Swapper::Pipe).ReadSchar(), 'x');
    EndClient(other);
}

// --- requests and replies ---

TEST_F(FileBrowsing, EveryRequestHasTheBytesOfItsPicture)
{
    auto browser = Browser(LongListing() + ShortListing() + FromHex("00000001 00000001") +
                           FromHex("00000001 00000000") + AttributesReply());
    List(browser->ListDir("/data", rdb_FileFilterID::Databases, kAll));
    List(browser->ListDir("", rdb_FileFilterID::All, kShort));
    EXPECT_EQ(browser->IsRemoteDir("/a"), 1);
    EXPECT_EQ(browser->IsRemoteFile("/b"), 0);
    Entity(browser->StatCall("/c"));
    browser->Exit();
    browser.reset();
    EXPECT_EQ(Requests(), AskedBefore() +                                                          //
                              FromHex("00000000 00000005") + "/data" + FromHex("00000003") + "A" + //
                              FromHex("00000000 00000000 00000000") + "S" +                        //
                              FromHex("00000001 00000002") + "/a" +                                //
                              FromHex("00000002 00000002") + "/b" +                                //
                              FromHex("00000003 00000002") + "/c" +                                //
                              FromHex("00000006"));
}

TEST_F(FileBrowsing, AListingWithAllAttributesGivesThemAllButTheThirdWord)
{
    const auto browser = Browser(LongListing());
    const List list = Listed(*browser);
    ASSERT_EQ(list->Count(), 1);
    ExpectJob(list->ConstGet(0));
}

TEST_F(FileBrowsing, TheThirdWordOfAnAttributesReplyIsDropped)
{
    const auto browser = Browser(AttributesReply());
    ExpectJob(*Entity(browser->StatCall("job.rdx")));
}

TEST_F(FileBrowsing, AListingOfXAndYAndZGivesZAndYAndX)
{
    const auto browser = Browser(ShortListing());
    EXPECT_EQ(NamesOf(*Listed(*browser, kShort)), "Z Y X ");
}

TEST_F(FileBrowsing, TheShortFormLeavesTextsEmptyAndNumbersZero)
{
    const auto browser = Browser(ShortListing());
    const List list = Listed(*browser, kShort);
    for (const rds_DirectoryEntity& entity : *list)
    {
        EXPECT_TRUE(entity.m_Text1.IsEmpty() && entity.m_Text2.IsEmpty());
        EXPECT_EQ(entity.m_Short1, 0);
        EXPECT_EQ(entity.m_Short2, 0);
        EXPECT_EQ(entity.m_Word1 | entity.m_Word2 | entity.m_Word3, 0U);
        EXPECT_EQ(entity.m_Large, 0U);
    }
    EXPECT_EQ(list->ConstGet(0).m_Kind, 3);
    EXPECT_EQ(list->ConstGet(2).m_Kind, 1);
}

TEST_F(FileBrowsing, TheFlagOfTheReplyCountsAndNotThatOfTheRequest)
{
    const auto browser = Browser(ShortListing());
    EXPECT_EQ(NamesOf(*Listed(*browser, kAll)), "Z Y X ");
}

TEST_F(FileBrowsing, AnEmptyDirectoryGivesAnEmptyListAndNotNull)
{
    const auto browser = Browser(FromHex("00000001") + "A" + FromHex("00000000"));
    const List list = Listed(*browser);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->Count(), 0);
}

TEST_F(FileBrowsing, EveryStatusButZeroIsASuccess)
{
    for (const char* status : {"00000001", "00000002", "FFFFFFFF", "80000000", "01000000"})
    {
        const auto browser =
            Browser(FromHex(status) + FromHex("00000007") + FromHex(status) + "A" + FromHex("00000000"));
        EXPECT_EQ(browser->IsRemoteDir("/"), 7) << status;
        EXPECT_EQ(Listed(*browser)->Count(), 0) << status;
    }
}

TEST_F(FileBrowsing, AnAnswerIsHandedOnAsItIs)
{
    const auto browser = Browser(FromHex("00000001 00000000 00000001 FFFFFFFE 00000001 00000001"));
    EXPECT_EQ(browser->IsRemoteDir("/"), 0);
    EXPECT_EQ(browser->IsRemoteFile("/"), -2);
    EXPECT_EQ(browser->IsRemoteDir("/"), 1);
}

TEST_F(FileBrowsing, NamesPassAsBytes)
{
    const auto browser =
        Browser(FromHex("00000001") + "S" + FromHex("00000001 00000001 00000005 FF00C3280A"));
    const List list = Listed(*browser, kShort);
    EXPECT_EQ(list->ConstGet(0).m_Name.View(), FromHex("FF00C3280A"));
}

TEST_F(FileBrowsing, TheReadingHalvesReadWhatIsOnTheWay)
{
    const auto browser = Browser(ShortListing() + AttributesReply() + FromHex("00000001 00000003") +
                                 FromHex("00000001 00000004"));
    EXPECT_EQ(List(browser->ListDirReply())->Count(), 3);
    ExpectJob(*Entity(browser->StatCallReply()));
    EXPECT_EQ(browser->IsRemoteDirReply(), 3);
    EXPECT_EQ(browser->IsRemoteFileReply(), 4);
}

TEST_F(FileBrowsing, RemoveFileSendsItsCodeAlone)
{
    auto browser = Browser("");
    browser->RemoveFile();
    browser.reset();
    EXPECT_EQ(Requests(), AskedBefore() + FromHex("00000007"));
}

TEST_F(FileBrowsing, TheEndOfABrowserSendsNothing)
{
    Browser("").reset();
    EXPECT_EQ(Requests(), AskedBefore());
}

// --- refusals ---

TEST_F(FileBrowsing, ARefusalComesInTheServicesWordsAndTheBrowserGoesOn)
{
    for (const Asked& asked : AllAsked())
    {
        const auto browser = Browser(Refusal("no such thing") + asked.reply);
        EXPECT_EQ(Failure([&] { asked.ask(*browser); }), "no such thing") << asked.name;
        EXPECT_EQ(Failure([&] { asked.ask(*browser); }), kNothingThrown) << asked.name;
    }
}

TEST_F(FileBrowsing, APercentSignInTheServicesWordsStaysOne)
{
    EXPECT_EQ(ListingFailure(Refusal("100% of %s, %%, %d and %n")), "100% of %s, %%, %d and %n");
}

TEST_F(FileBrowsing, ExceptionsNameTheBrowserAsTheirSource)
{
    const auto browser = Browser(Refusal("no"));
    EXPECT_EQ(SourceOf([&] { browser->IsRemoteDir("/"); }), "rds_CFileBrowsing"); // refused
    EXPECT_EQ(SourceOf([&] { browser->IsRemoteDir("/"); }), "rds_CFileBrowsing"); // lost
    const auto flagged = Browser(ShortListing("X"));
    EXPECT_EQ(SourceOf([&] { Listed(*flagged); }), "rds_CFileBrowsing");
    const auto asked = Browser("");
    EXPECT_EQ(SourceOf([&] { Listed(*asked, 'X'); }), "rds_CFileBrowsing");
}

TEST_F(FileBrowsing, ExceptionsOfTheHandshakeNameItToo)
{
    for (const std::string& replies : {FromHex("00000002") + "nt",                          // platform
                                       FromHex("00000005") + "linux" + FromHex("00000003"), // version
                                       std::string()})                                      // lost
        EXPECT_EQ(SourceOf([&] { Owning(Scripted(replies)); }), "rds_CFileBrowsing");
}

// Once for each request that has a path; the one behind it is answered as if nothing had been.
TEST_F(FileBrowsing, APathThatNoStreamCarriesIsRefusedBeforeItsCodeGoesOutAndTheBrowserGoesOn)
{
    const cow_String path(std::string(16UL * 1024 * 1024 + 1, 'x'));
    const auto ask = {
        std::function<void(rds_CFileBrowsing&)>(
            [&](auto& browser) { List(browser.ListDir(path, rdb_FileFilterID::All, kAll)); }),
        std::function<void(rds_CFileBrowsing&)>([&](auto& browser) { browser.IsRemoteDir(path); }),
        std::function<void(rds_CFileBrowsing&)>([&](auto& browser) { browser.IsRemoteFile(path); }),
        std::function<void(rds_CFileBrowsing&)>([&](auto& browser) { Entity(browser.StatCall(path)); })};
    for (const auto& each : ask)
    {
        auto browser = Browser(FromHex("00000001 00000001"));
        EXPECT_EQ(Thrown<utl_BinStreamReadError>([&] { each(*browser); }),
                  "*** ERROR: Can't write stream, reason:\n  The text is longer than 16 MiB.");
        EXPECT_EQ(browser->IsRemoteDir("/a"), 1);
        browser.reset();
        EXPECT_EQ(Requests(), AskedBefore() + FromHex("00000001 00000002") + "/a");
    }
}

TEST_F(FileBrowsing, AFlagThatIsNotValidIsFoundOnlyBehindTheRestOfTheRequest)
{
    auto browser = Browser("");
    EXPECT_EQ(Failure([&] { Listed(*browser, 'X'); }),
              "*** Error: rds_CFileBrowsing::ListDir flag option 88 not valid");
    browser.reset();
    EXPECT_EQ(Requests(), AskedBefore() + FromHex("00000000 00000005") + "/data" + FromHex("00000001"));
}

TEST_F(FileBrowsing, BehindAFlagThatIsNotValidNothingSucceeds)
{
    const std::string answer = FromHex("00000001 00000001");
    const auto asked = Browser(answer);
    EXPECT_NE(Failure([&] { Listed(*asked, 'X'); }), kNothingThrown);
    EXPECT_EQ(Failure([&] { asked->IsRemoteDir("/"); }), kLostConnection);
    // What is left of the reply must not pass for the next one.
    const auto answered = Browser(ShortListing("X") + answer);
    EXPECT_NE(Failure([&] { Listed(*answered); }), kNothingThrown);
    EXPECT_EQ(Failure([&] { answered->IsRemoteDir("/"); }), kLostConnection);
}

TEST_F(FileBrowsing, AFlagIsToldByItsCode)
{
    for (const auto& [flag, code] : {std::pair{'\0', "0"}, {'a', "97"}, {'\x7F', "127"}, {'\xFF', "-1"}})
    {
        const auto browser = Browser("");
        EXPECT_EQ(Failure([&, given = flag] { Listed(*browser, given); }),
                  std::string("*** Error: rds_CFileBrowsing::ListDir flag option ") + code + " not valid");
    }
}

TEST_F(FileBrowsing, AFlagOfAReplyThatIsNotValidIsTold)
{
    EXPECT_EQ(ListingFailure(ShortListing("X")),
              "*** Error: rds_CFileBrowsing::ListDirReply flag option 88 not valid");
    EXPECT_EQ(ListingFailure(ShortListing("\xFF")),
              "*** Error: rds_CFileBrowsing::ListDirReply flag option -1 not valid");
}

TEST_F(FileBrowsing, AReplyWithoutEntriesMayHaveAnyFlag)
{
    const auto browser = Browser(FromHex("00000001") + "X" + FromHex("00000000"));
    EXPECT_EQ(Listed(*browser)->Count(), 0);
}

// --- lost connections ---

TEST_F(FileBrowsing, EveryReplyThatIsCutAnywhereIsALostConnection)
{
    for (const Asked& asked : AllAsked())
        for (std::size_t length = 0; length < asked.reply.size(); ++length)
        {
            const auto browser = Browser(asked.reply.substr(0, length));
            EXPECT_EQ(Failure([&] { asked.ask(*browser); }), kLostConnection) << asked.name << " " << length;
        }
}

TEST_F(FileBrowsing, ARefusalThatIsCutIsALostConnection)
{
    for (std::size_t length = 0; length < Refusal("no").size(); ++length)
        EXPECT_EQ(ListingFailure(Refusal("no").substr(0, length)), kLostConnection) << length;
}

TEST_F(FileBrowsing, BehindALostConnectionNothingSucceeds)
{
    const auto browser = Browser("");
    for (const Asked& asked : AllAsked())
        EXPECT_EQ(Failure([&] { asked.ask(*browser); }), kLostConnection) << asked.name;
}

TEST_F(FileBrowsing, ExitToAServiceThatHasGonePassesTheStreamsOwnException)
{
    Put("platform", FromHex("00000005") + "linux");
    Put("version", FromHex("00000002"));
    const auto browser = Owning(Client("cat platform; head -c 8 >requests; exec <&-; cat version"));
    EXPECT_EQ(Thrown<utl_BinStreamEOF>([&] { browser->Exit(); }),
              "*** ERROR: Can't write stream, reason:\n  Broken pipe.");
    EXPECT_THROW(browser->IsRemoteDir("/"), utl_BinStreamEOF);
}

// A session of every request, as a service wrote it, cut at 500 places.
TEST_F(FileBrowsing, ASessionThatIsCutAnywhereEndsInACleanException)
{
    std::string replies = Handshake();
    for (const Asked& asked : AllAsked()) replies += asked.reply;
    std::mt19937 random(RandomSeed());
    for (int cut = 0; cut < 500; ++cut)
    {
        const std::size_t length = random() % (replies.size() + 1);
        const std::string failure = Failure(
            [&]
            {
                const auto browser = Owning(Scripted(replies.substr(0, length)));
                for (const Asked& asked : AllAsked()) asked.ask(*browser);
            });
        ASSERT_EQ(failure, length < replies.size() ? kLostConnection : kNothingThrown) << length;
    }
}

// --- replies that lie ---

TEST_F(FileBrowsing, ACountThatNoServiceClaimsIsALostConnectionAtOnce)
{
    for (const char* count : {"7FFFFFFF", "00100001", "FFFFFFFF", "80000000"})
    {
        // It stays on the line, so nobody may wait for an entry.
        const auto browser = Owning(Patient(Handshake() + FromHex("00000001") + "S" + FromHex(count)));
        EXPECT_EQ(Failure([&] { Listed(*browser); }), kLostConnection) << count;
        // The service is still there, and says nothing more.
        EXPECT_EQ(Failure([&] { browser->IsRemoteDir("/"); }), kLostConnection) << count;
    }
}

TEST_F(FileBrowsing, TheLargestCountIsReadEntryByEntry)
{
    const std::string entry = FromHex("00000001 00000000");
    EXPECT_EQ(ListingFailure(FromHex("00000001") + "S" + FromHex("00100000") + entry + entry),
              kLostConnection);
}

TEST_F(FileBrowsing, ATextThatClaimsMoreThanAStreamCarriesIsALostConnection)
{
    for (const char* length : {"01000001", "7FFFFFFF", "FFFFFFFF"})
    {
        const auto browser = Owning(Patient(Handshake() + FromHex("00000000") + FromHex(length)));
        EXPECT_EQ(Failure([&] { browser->IsRemoteDir("/"); }), kLostConnection) << length;
    }
}

TEST_F(FileBrowsing, EntriesThatNeverEndAreALostConnectionBeforeMemoryIs)
{
    Put("replies", Handshake() + FromHex("00000001") + "S" + FromHex("00100000"));
    Put("entry", FromHex("00000001 01000000") + std::string(16UL * 1024 * 1024, 'x'));
    const auto browser = Owning(Client("cat replies; while cat entry 2>/dev/null; do :; done"));
    EXPECT_EQ(Failure([&] { Listed(*browser, kShort); }), kLostConnection);
}

TEST(rds_ListingRoom, TakesAsManyEntriesAsAListingMayHave)
{
    rds_ListingRoom room;
    const rds_DirectoryEntity entity("name");
    for (int taken = 0; taken < 1048576; ++taken) ASSERT_TRUE(room.Take(entity)) << taken;
    EXPECT_FALSE(room.Take(entity));
}

TEST(rds_ListingRoom, TakesAsManyBytesOfAllTextsAsAListingMayHave)
{
    const cow_String text(std::string(32UL * 1024 * 1024, 'x'));
    const rds_DirectoryEntity two(text, text, "", 0, 0, 0, 0, 0, 0);
    rds_ListingRoom room;
    for (int taken = 0; taken < 3; ++taken) EXPECT_TRUE(room.Take(two));
    EXPECT_TRUE(room.Take({text, "", "", 0, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(room.Take({text, "", "x", 0, 0, 0, 0, 0, 0})); // 32 MiB are left
    EXPECT_TRUE(room.Take({"", "", text, 0, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(room.Take({"x", 0}));
    EXPECT_TRUE(room.Take({"", 0}));
}
