#include "BoundedChild.h"
#include "FromHex.h"
#include "RandomSeed.h"
#include "TestFolder.h"
#include "rds.h"
#include "rds_HostFiles.h"
#include "rds_SFileBrowsing.h"
#include "utl_BinOStream.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace
{
constexpr const char* kNormalExit = "SFileBrowsing: client terminated. Normal exit.\n";
const std::string kVersionRequest = FromHex("00000004");
const std::string kVersion = FromHex("00000002");

std::string Int(std::size_t number)
{
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(number >> shift & 0xFFU);
    return bytes;
}
std::string String(const std::string& text) { return Int(text.size()) + text; }

// As long as it lives, a descriptor of this process leads to a file.
class StandsFor
{
public:
    StandsFor(int descriptor, const std::string& path, int flags)
        : m_Descriptor(descriptor),
          m_Before(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3))
    {
        std::fflush(nullptr); // what this process has printed before goes where it belongs
        const farend::Descriptor file(::open(path.c_str(), flags | O_CLOEXEC, 0600));
        ::dup2(file.Get(), descriptor);
    }
    StandsFor(const StandsFor&) = delete;
    StandsFor& operator=(const StandsFor&) = delete;
    ~StandsFor() { ::dup2(m_Before.Get(), m_Descriptor); }

private:
    int m_Descriptor;
    farend::Descriptor m_Before;
};

// A folder with "d", in which a file of known attributes, a folder and a FIFO lie.
class BrowsingService : public ::testing::Test
{
protected:
    BrowsingService()
    {
        std::signal(SIGPIPE, SIG_IGN);
        std::filesystem::create_directories(Path("d/sub"));
        std::ofstream(Path("d/job.rdx")) << "seven b";
        Dress("d/job.rdx", 0640, 1);
        Dress("d/sub", 0750, 0x11);
        // Which names the host gives its users is not the test's to know; rds_HostFiles_test.cpp looks at them.
        const rds_DirectoryEntity entity = rds_HostEntity(cow_String(Path("d/job.rdx")));
        m_Owner = entity.m_Text1.View();
        m_Group = entity.m_Text2.View();
    }

    std::string Path(const std::string& name) const { return m_Folder.Path() + "/" + name; }
    std::string PathString(const std::string& name) const { return String(Path(name)); }

    // The program, with this input.
    static ChildResult Run(std::string_view input) { return BoundedChild({RFM_FILE_BROWSING}).Finish(input); }
    // What it answers in a session that ends as sessions do.
    static std::string Reply(const std::string& request)
    {
        const ChildResult result = Run(request);
        EXPECT_EQ(result.err, kNormalExit);
        EXPECT_EQ(result.code, 0);
        return result.out;
    }
    // ProcessRequest itself, in this process: its answer is the code.
    ChildResult Process(const std::string& input) const
    {
        PutBytes(cow_String(Path("in")), input);
        ChildResult result;
        {
            const StandsFor in(STDIN_FILENO, Path("in"), O_RDONLY);
            const StandsFor out(STDOUT_FILENO, Path("out"), O_WRONLY | O_CREAT | O_TRUNC);
            const StandsFor err(STDERR_FILENO, Path("err"), O_WRONLY | O_CREAT | O_TRUNC);
            result.code = ProcessRequest();
        }
        result.out = BytesOf(cow_String(Path("out")));
        result.err = BytesOf(cow_String(Path("err")));
        return result;
    }

    std::string ListRequest(const std::string& name, char flag, const char* filter = "00000000") const
    {
        return FromHex("00000000") + PathString(name) + FromHex(filter) + flag;
    }
    std::string Texts() const { return String(m_Group) + String(m_Owner); }
    // The attributes of job.rdx, in front of and behind its third word.
    static std::string JobWords() { return FromHex("01A0 0000 00000001 00000002"); }
    std::string JobEnd() const { return Texts() + FromHex("0000000000000007"); }
    std::string LongListing() const
    {
        return FromHex("00000001") + "A" + FromHex("00000002") +                               //
               FromHex("00000001 00000007") + "job.rdx" + JobWords() + JobEnd() +              //
               FromHex("00000002 00000003") + "sub" + FromHex("01E8 0000 00000011 00000012") + //
               Texts() + FromHex("0000000000000000");
    }
    static std::string ShortListing(const std::string& flag)
    {
        return FromHex("00000001") + flag + FromHex("00000002") + FromHex("00000001 00000007") + "job.rdx" +
               FromHex("00000002 00000003") + "sub";
    }
    static std::string Refusal(const std::string& words) { return FromHex("00000000") + String(words); }

    // A session of all requests but that for the end, and what it is answered.
    std::string AllRequests() const
    {
        return FromHex("00000005 00000004") + ListRequest("d", 'A') + ListRequest("d", 'S') +  //
               FromHex("00000001") + PathString("d") + FromHex("00000002") + PathString("d") + //
               FromHex("00000007") + PathString("missing") +                                   //
               FromHex("00000009") + ListRequest("missing", 'A') + kVersionRequest;
    }
    std::string AllReplies() const
    {
        return FromHex("00000005") + "linux" + kVersion + LongListing() + ShortListing("S") +
               FromHex("00000001 00000001") + FromHex("00000001 00000000") +
               Refusal("*** Error: Can't list directory " + Path("missing") +
                       ", reason:\n  No such file or directory.") +
               kVersion;
    }
    // A session that breaks off is a client that has gone, whose answers up to there were sent.
    void ExpectCleanEnd(std::size_t length) const
    {
        const ChildResult result = Process(AllRequests().substr(0, length));
        ASSERT_EQ(result.code, 0) << length;
        ASSERT_EQ(result.err, kNormalExit) << length;
        ASSERT_THAT(AllReplies(), StartsWith(result.out)) << length;
    }

private:
    // Modified at `second`, looked at one second later.
    void Dress(const char* name, mode_t mode, long second) const
    {
        const timespec times[] = {{second + 1, 0}, {second, 0}};
        ::chmod(Path(name).c_str(), mode);
        ::utimensat(AT_FDCWD, Path(name).c_str(), times, 0);
    }

    TestFolder m_Folder;
    std::string m_Owner;
    std::string m_Group;
};
} // namespace

// --- the loop ---

TEST_F(BrowsingService, AClientThatGoesBetweenRequestsIsANormalExit)
{
    for (const std::string& before : {std::string(), kVersionRequest})
    {
        const ChildResult result = Run(before);
        EXPECT_EQ(result.err, kNormalExit);
        EXPECT_EQ(result.code, 0);
    }
}

TEST_F(BrowsingService, ACodeThatIsNoneIsPassedOver)
{
    EXPECT_EQ(Reply(FromHex("00000008 FFFFFFFF 7FFFFFFF 80000000") + kVersionRequest), kVersion);
}

TEST_F(BrowsingService, ExitEndsTheProcessWithoutAWord)
{
    BoundedChild service({RFM_FILE_BROWSING}); // its input stays open
    service.Write(kVersionRequest + FromHex("00000006") + kVersionRequest);
    EXPECT_EQ(service.Read(5), kVersion);
    const ChildResult result = service.Reap();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(BrowsingService, PlatformAndVersionAreAnsweredAlways)
{
    EXPECT_EQ(Reply(FromHex("00000005 00000004 00000004 00000005")),
              FromHex("00000005") + "linux" + kVersion + kVersion + FromHex("00000005") + "linux");
}

TEST_F(BrowsingService, ProcessRequestAnswersZeroForAClientThatHasGoneAndOneForATextException)
{
    EXPECT_EQ(Process("").code, 0);
    const ChildResult result = Process(FromHex("00000001 01000001"));
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "SFileBrowsing: utl_BinStreamReadError: *** ERROR: Can't read stream, reason:\n"
                          "  A text claims to be longer than 16 MiB. \n");
}

TEST_F(BrowsingService, ATextExceptionIsTheProgramsResultToo)
{
    const ChildResult result = Run(kVersionRequest + FromHex("00000000 FFFFFFFF") + kVersionRequest);
    EXPECT_EQ(result.out, kVersion);
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, StartsWith("SFileBrowsing: utl_BinStreamReadError: "));
}

TEST_F(BrowsingService, AnyOtherExceptionIsTwoAndItsWords)
{
    const ChildResult result = BoundedChild({RFM_FAILING_BROWSING}).Finish("");
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "rdsT_FileBrowsing, no memory\n");
}

TEST_F(BrowsingService, AClientThatTakesNoRepliesIsANormalExit)
{
    BoundedChild service({RFM_FILE_BROWSING});
    service.CloseOutput();
    service.Write(kVersionRequest);
    const ChildResult result = service.Finish();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, kNormalExit);
}

TEST_F(BrowsingService, ADaemonThatTakesNoLastWordsDoesNotEndTheProgramBySignal)
{
    farend::Pipe nobody;
    nobody.read.Close();
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
        ::dup2(nobody.write.Get(), STDERR_FILENO);
        std::signal(SIGPIPE, SIG_DFL);
        ::execl(RFM_FILE_BROWSING, "rdsT_FileBrowsing", nullptr);
        ::_exit(126);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

// --- replies ---

TEST_F(BrowsingService, AListingWithAllAttributesHasTheBytesOfItsPicture)
{
    EXPECT_EQ(Reply(ListRequest("d", 'A')), LongListing());
}

TEST_F(BrowsingService, AListingInTheShortFormEndsBehindEachName)
{
    EXPECT_EQ(Reply(ListRequest("d", 'S')), ShortListing("S"));
}

TEST_F(BrowsingService, AFlagThatIsNoneIsAnsweredInTheShortFormWithThatFlag)
{
    EXPECT_EQ(Reply(ListRequest("d", 'X')), ShortListing("X"));
    EXPECT_EQ(Reply(ListRequest("d", '\xFF')), ShortListing("\xFF"));
}

TEST_F(BrowsingService, AnEmptyDirectoryIsAnsweredWithACountOfZero)
{
    EXPECT_EQ(Reply(ListRequest("d/sub", 'A')), FromHex("00000001") + "A" + FromHex("00000000"));
}

TEST_F(BrowsingService, TheFilterOfARequestCounts)
{
    EXPECT_EQ(Reply(ListRequest("d", 'S', "00000002")),
              FromHex("00000001") + "S" + FromHex("00000001 00000002 00000003") + "sub");
    EXPECT_THAT(Reply(ListRequest("d", 'S', "00000063")), HasSubstr("There is no filter 99."));
}

TEST_F(BrowsingService, AttributesHaveTheBytesOfTheirPictureWithTheThirdWord)
{
    const std::string head = FromHex("00000001 00000001") + PathString("d/job.rdx") + JobWords();
    const std::string reply = Reply(FromHex("00000003") + PathString("d/job.rdx"));
    ASSERT_EQ(reply.size(), head.size() + 4 + JobEnd().size());
    EXPECT_EQ(reply.substr(0, head.size()), head);
    struct stat status
    {
    };
    ASSERT_EQ(::stat(Path("d/job.rdx").c_str(), &status), 0);
    EXPECT_EQ(reply.substr(head.size(), 4), Int(static_cast<std::size_t>(status.st_ctim.tv_sec)));
    EXPECT_EQ(reply.substr(head.size() + 4), JobEnd());
}

TEST_F(BrowsingService, WhetherItIsADirectoryOrAFileIsAnsweredBehindTheStatus)
{
    const auto isDir = [this](const char* name) { return Reply(FromHex("00000001") + PathString(name)); };
    const auto isFile = [this](const char* name) { return Reply(FromHex("00000002") + PathString(name)); };
    const std::string yes = FromHex("00000001 00000001");
    const std::string no = FromHex("00000001 00000000");
    EXPECT_EQ(isDir("d"), yes);
    EXPECT_EQ(isDir("d/job.rdx"), no);
    EXPECT_EQ(isFile("d/job.rdx"), yes);
    EXPECT_EQ(isFile("d"), no);
    EXPECT_EQ(isFile("missing"), no);
}

TEST_F(BrowsingService, ARefusalIsStatusZeroAndWords)
{
    EXPECT_EQ(
        Reply(ListRequest("d/job.rdx", 'A') + kVersionRequest),
        Refusal("*** Error: Can't list directory " + Path("d/job.rdx") + ", reason:\n  Not a directory.") +
            kVersion);
    EXPECT_EQ(Reply(FromHex("00000003") + PathString("%s") + kVersionRequest),
              Refusal("*** Error: Can't get the attributes of " + Path("%s") +
                      ", reason:\n  No such file or directory.") +
                  kVersion);
}

TEST_F(BrowsingService, ARemovalTakesTheFileAwayAndIsNotAnswered)
{
    EXPECT_EQ(Reply(FromHex("00000007") + PathString("d/job.rdx") + kVersionRequest), kVersion);
    EXPECT_FALSE(std::filesystem::exists(Path("d/job.rdx")));
}

TEST_F(BrowsingService, ARemovalOfWhatIsNotThereChangesNothingAndIsNotAnswered)
{
    EXPECT_EQ(Reply(FromHex("00000007") + PathString("missing") + kVersionRequest), kVersion);
    EXPECT_EQ(Reply(FromHex("00000007") + PathString("d") + kVersionRequest), kVersion);
    EXPECT_EQ(Reply(ListRequest("d", 'S')), ShortListing("S"));
}

TEST(rds_BrowsingFormat, TheTextsTravelInReverseOrder)
{
    farend::Pipe pipe;
    utl_BinOStream out(pipe.write.Get(), omi_Swapper::Pipe);
    rds_DirectoryEntity entity("n", "one", "two", 1, 2, 3, 4, 5, 7);
    entity.m_Word3 = 6;
    rds_WriteAttributes(out, entity);
    rds_WriteListed(out, entity, 'A');
    rds_WriteListed(out, entity, 'S');
    pipe.write.Close();
    std::string bytes(256, '\0');
    bytes.resize(
        static_cast<std::size_t>(std::max(::read(pipe.read.Get(), bytes.data(), bytes.size()), ssize_t{0})));
    const std::string name = FromHex("00000001 00000001") + "n";
    const std::string words = FromHex("0002 0003 00000004 00000005");
    const std::string end =
        FromHex("00000003") + "two" + FromHex("00000003") + "one" + FromHex("0000000000000007");
    EXPECT_EQ(bytes, name + words + FromHex("00000006") + end + name + words + end + name);
}

// --- requests that lie ---

TEST_F(BrowsingService, PathsThatLieAreRefusedAndTheServiceGoesOn)
{
    ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
    const std::string isFile = FromHex("00000002");
    const std::string refused = FromHex("00000000");
    const std::string no = FromHex("00000001 00000000");
    const std::string nul = Path("d/job.rdx") + '\0';
    EXPECT_THAT(Reply(isFile + String(nul)), StartsWith(refused));
    EXPECT_THAT(Reply(isFile + String(std::string(1024UL * 1024, 'x'))), StartsWith(refused));
    EXPECT_THAT(Reply(isFile + String(std::string(16UL * 1024 * 1024, 'x'))), StartsWith(refused));
    EXPECT_EQ(Reply(isFile + PathString("fifo") + isFile + String("/dev/zero")), no + no);
    EXPECT_THAT(Reply(ListRequest("fifo", 'A')), StartsWith(refused));
    EXPECT_EQ(Reply(isFile + PathString("d/sub/../job.rdx")), FromHex("00000001 00000001"));
}

TEST_F(BrowsingService, ASessionThatIsCutAtAnyByteEndsCleanly)
{
    const std::size_t whole = AllRequests().size();
    for (std::size_t length = 0; length <= whole; ++length) ExpectCleanEnd(length);
    EXPECT_EQ(Process(AllRequests()).out, AllReplies());
}

// Bytes that nobody chose: it answers, ends cleanly or says why, and nothing else. Code 7 is left out.
TEST_F(BrowsingService, ASessionWithDamageEndsCleanlyOrSaysWhy)
{
    std::mt19937 random(RandomSeed());
    const std::string requests = FromHex("00000005 00000004") + ListRequest("d", 'A') + //
                                 FromHex("00000001") + PathString("d") + FromHex("00000003") +
                                 PathString("d");
    for (int round = 0; round < 500; ++round)
    {
        std::string damaged = requests.substr(0, random() % (requests.size() + 1));
        if (round % 2 == 1 && !damaged.empty())
        {
            char& byte = damaged[random() % damaged.size()];
            byte = static_cast<char>(byte ^ 0x10); // makes no removal and no exit of the other codes
        }
        const ChildResult result = Process(damaged);
        ASSERT_TRUE(result.code == 0 || result.code == 1) << round;
        ASSERT_THAT(result.err, StartsWith("SFileBrowsing: ")) << round;
    }
    EXPECT_TRUE(std::filesystem::exists(Path("d/job.rdx")));
}
