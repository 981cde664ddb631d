// The assistant as a process, with what it is sent and what it answers written by hand.
#include "Assistant.h"
#include "AssistantReader.h"
#include "EnvironmentVariable.h"
#include "Failure.h"
#include "FarEnd.h"
#include "FileKind.h"
#include "Forked.h"
#include "RandomSeed.h"
#include "TestFolder.h"
#include "rfm.h"
#include "utl_FaultPlan.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::string_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{
class FileAssistant : public ::testing::Test
{
protected:
    using Words = BoundedChild::Words;

    std::string Path(const std::string& name) const { return m_Folder.Path() + "/" + name; }
    std::string Put(const std::string& name, std::string_view bytes) const
    {
        PutBytes(cow_String(Path(name)), bytes);
        return Path(name);
    }
    static Words Serving(const std::string& path) { return {RFM_FILE_ASSISTANT, path}; }
    static ChildResult Run(const Words& words, const std::string& input)
    {
        return BoundedChild(words).Finish(input);
    }
    /// One run with a good handshake for pages of 1 KiB, and then `requests`.
    ChildResult Ask(const std::string& requests) const
    {
        return Run(Serving(m_File), HandshakeBytes("", 1, 1024) + requests);
    }
    static void ExpectRefusal(const ChildResult& result, const std::string& reason)
    {
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.err, "assistant, " + reason + "\n");
    }
    std::string RefusedFile(const Words& words) const
    {
        Words all = words;
        all.insert(all.begin(), RFM_FILE_ASSISTANT);
        const ChildResult result = Run(all, HandshakeBytes("", 1, 1024));
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("assistant, "));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        return result.err;
    }

    TestFolder m_Folder;
    std::string m_File = Put("small.rdx", "hello");
};

std::string GoldenBytes(const char* name) { return BytesOf(cow_String(RFM_TEST_DATA "/") + name); }

// ---- The wire ----

TEST_F(FileAssistant, HandshakeAndRequestsHaveTheBytesOfTheirPicture)
{
    const std::string input = "\x03key"s                // key
                              "\x00\x01"s               // version
                              "\x00\x00\x04\x00"s       // page size
                              "\x01"s                   // size
                              "\x02\x00\x02"s           // page: two are dropped
                              "\0\0\0\0\0\0\x04\0"s     //
                              "\0\0\0\x01\0\0\0\0"s     //
                              "\0\0\0\0\0\0\0\0"s       // the start of the one that is wanted
                              "\x00\x00\x04\x00"s       // page size
                              "\x03"s;                  // status
    const std::string output = "\x00\x01"s              // version
                               "\x00\x00"s              // head
                               "\0\0\0\0\0\0\0\x05"s    // size
                               "\x00\x00"s              // head
                               "\x00\x00\x00\x05hello"s // page
                               "\x00\x00"s;             // head
    const ChildResult result = Run(Serving(m_File), input);
    EXPECT_EQ(result.out, output);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.code, 0);
}

TEST_F(FileAssistant, AKeyMayBeAbsentAndHave255Bytes)
{
    for (const std::size_t length : {0U, 1U, 255U})
    {
        const ChildResult result =
            Run(Serving(m_File), HandshakeBytes(std::string(length, 'k'), 1, 1024) + "\x03");
        EXPECT_EQ(result.out, "\x00\x01\x00\x00"s) << length;
        EXPECT_EQ(result.code, 0) << length;
    }
}

TEST_F(FileAssistant, AFileIsReadPageByPageWithAShortPageAtItsEndAndNothingBehind)
{
    const std::string golden = GoldenBytes("table.rdx");
    ASSERT_EQ(golden.size(), 15676U);
    AssistantReader reader(Serving(RFM_TEST_DATA "/table.rdx"));
    EXPECT_EQ(reader.Version(), 1);
    EXPECT_EQ(reader.Size().size, 15676);
    EXPECT_EQ(reader.Page(14336).page, golden.substr(14336, 1024));
    EXPECT_EQ(reader.Page(15360).page, golden.substr(15360));
    EXPECT_EQ(reader.Page(16384).page, "");
    EXPECT_EQ(reader.Page(std::int64_t{1} << 60).page, "");
    EXPECT_EQ(reader.AllPages(), golden);
    EXPECT_EQ(reader.End().code, 0);
}

TEST_F(FileAssistant, PagesMayHave1KiBTo64MiBAndNeedNotFitTheFile)
{
    const std::string bytes(300000, 'x');
    const std::string path = Put("x.rdx", bytes);
    for (const int pageSize : {1024, 1025, 131072, 131073, 1048576, 64 * 1024 * 1024})
    {
        AssistantReader reader(Serving(path), pageSize);
        EXPECT_EQ(reader.AllPages(), bytes) << pageSize;
        EXPECT_EQ(reader.End().code, 0) << pageSize;
    }
}

// The content of the database, by its own copy into a plain file.
TEST_F(FileAssistant, CompressedAndHdf5FilesReadAsThePlainFileInside)
{
    for (const char* name : {"compressed.rdx", "hdf5.rdx"})
    {
        const std::string source = std::string(RFM_TEST_DATA "/") + name;
        const std::string copy = Path("copy.rdx");
        rfm_File::Open(copy.c_str(), utl_FileAccessCreate)
            .Copy(rfm_File::Open(source.c_str(), utl_FileAccessRead));
        const std::string plain = BytesOf(cow_String(copy));
        ASSERT_THAT(plain, StartsWith("TVNRGOLD"));
        for (const int pageSize : {1024, 5000, 1048576})
        {
            AssistantReader reader(Serving(source), pageSize);
            EXPECT_EQ(reader.Size().size, static_cast<std::int64_t>(plain.size())) << name;
            EXPECT_EQ(reader.AllPages(), plain) << name << " " << pageSize;
            EXPECT_EQ(reader.Page(std::int64_t{pageSize} << 20).page, "");
            EXPECT_EQ(reader.Status().status, 0);
            EXPECT_EQ(reader.End().code, 0);
        }
    }
}

// A compressed file that was copied from a closed plain one and then grew: who reads it as a plain one compares the stamp.
TEST_F(FileAssistant, AStampThatIsWrongInsideACompressedFileSaysNothingToAReader)
{
    const std::string golden = GoldenBytes("table.rdx");
    const std::string path = Path("c.rdx");
    const std::string more(1000, '\0');
    for (const bool grows : {false, true})
    {
        {
            rfm_File file = rfm_File::CreateCompressed(path.c_str());
            file.Copy(rfm_File::Open(RFM_TEST_DATA "/table.rdx", utl_FileAccessRead));
            if (grows) file.Copy(rfm_File::Open(cow_String(Put("more", more)), utl_FileAccessRead));
        }
        std::string expected = golden;
        if (grows) expected.replace(500, 12, std::string(12, '\0')).append(more);
        AssistantReader reader(Serving(path));
        EXPECT_EQ(reader.Size().size, static_cast<std::int64_t>(expected.size()));
        EXPECT_EQ(reader.AllPages(), expected) << grows;
    }
}

// ---- What it is sent ----

TEST_F(FileAssistant, AnyOtherRequestIsRefused)
{
    for (const int code : {0, 4, 127, -1, -128})
        ExpectRefusal(Ask(BigEndian(code, 1)), "there is no request " + std::to_string(code));
}

TEST_F(FileAssistant, AnyOtherVersionIsRefused)
{
    for (const int version : {0, -1, 2, 32767, -32768})
        ExpectRefusal(Run(Serving(m_File), HandshakeBytes("", version, 1024)),
                      "version " + std::to_string(version) + " of the protocol is not spoken here");
}

TEST_F(FileAssistant, PagesOfAnyOtherSizeAreRefused)
{
    for (const std::int64_t size : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1023},
                                    std::int64_t{67108865}, std::int64_t{INT32_MAX}, std::int64_t{INT32_MIN}})
        ExpectRefusal(Run(Serving(m_File), HandshakeBytes("", 1, size)),
                      "pages of " + std::to_string(size) + " bytes: it must be 1 KiB to 64 MiB");
}

TEST_F(FileAssistant, APageOfAnotherSizeThanWasAgreedOnIsRefused)
{
    for (const std::int64_t size :
         {std::int64_t{0}, std::int64_t{-1024}, std::int64_t{2048}, std::int64_t{INT32_MAX}})
        ExpectRefusal(Ask(PageRequestBytes({}, 0, size)),
                      "a page of " + std::to_string(size) + " bytes, where 1024 were agreed on");
}

TEST_F(FileAssistant, APageThatCanNotBeginThereIsRefused)
{
    const std::int64_t last = INT64_MAX / 1024 * 1024; // its end would lie behind the last place of a file
    for (const std::int64_t start : {std::int64_t{-1024}, std::int64_t{INT64_MIN}, std::int64_t{1},
                                     std::int64_t{1023}, std::int64_t{INT64_MAX}, last})
        ExpectRefusal(Ask(PageRequestBytes({}, start, 1024)), "no page begins at " + std::to_string(start));
    EXPECT_EQ(Ask(PageRequestBytes({}, last - 1024, 1024)).code, 0);
}

TEST_F(FileAssistant, ANegativeListIsRefusedAndTheLongestOneIsTaken)
{
    for (const int count : {-1, -32768})
        ExpectRefusal(Ask("\x02" + BigEndian(count, 2)), "a list of " + std::to_string(count) + " pages");
    const std::vector<std::int64_t> unknown(32767, INT64_MIN);
    const ChildResult result = Ask(PageRequestBytes(unknown, 0, 1024));
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, EndsWith("hello"));
}

TEST_F(FileAssistant, AListThatDoesNotComeIsNotWaitedForBeyondTheEnd)
{
    ExpectRefusal(Ask("\x02\x7f\xff" + BigEndian(0, 8)), "the input ended within a message");
}

TEST_F(FileAssistant, AnInputThatIsCutAnywhereEndsItWithAReasonAndBetweenRequestsWithout)
{
    const std::string handshake = HandshakeBytes("key", 1, 1024);
    const std::string page = PageRequestBytes({1024}, 0, 1024);
    const std::string input = handshake + "\x01" + page + "\x03";
    const std::set<std::size_t> ends = {handshake.size(), handshake.size() + 1,
                                        handshake.size() + 1 + page.size(), input.size()};
    const std::string output = Run(Serving(m_File), input).out;
    for (std::size_t cut = 0; cut <= input.size(); ++cut)
    {
        const ChildResult result = Run(Serving(m_File), input.substr(0, cut));
        const bool isWhole = ends.count(cut) > 0;
        EXPECT_EQ(result.code, isWhole ? 0 : 1) << cut;
        EXPECT_EQ(result.err, isWhole ? "" : "assistant, the input ended within a message\n") << cut;
        EXPECT_EQ(result.out, output.substr(0, result.out.size())) << cut;
    }
}

// A file in memory that stands for one end of the wire.
class EndInMemory
{
public:
    explicit EndInMemory(std::string_view bytes = {}) : m_File(::memfd_create("end", MFD_CLOEXEC))
    {
        EXPECT_EQ(::write(m_File.Get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        ::lseek(m_File.Get(), 0, SEEK_SET);
    }
    int Get() const { return m_File.Get(); }
    off_t Size() const { return ::lseek(m_File.Get(), 0, SEEK_END); }
    std::string Bytes() const
    {
        std::string bytes(static_cast<std::size_t>(Size()), '?');
        EXPECT_EQ(::pread(m_File.Get(), bytes.data(), bytes.size(), 0), Size());
        return bytes;
    }

private:
    farend::Descriptor m_File;
};

TEST_F(FileAssistant, AFileThatIsReplacedDuringTheOpenIsServedAnewAndToldAsReplaced)
{
    const auto serve = [this](utl_FaultPlan& plan, const std::string& requests)
    {
        const EndInMemory input(HandshakeBytes("", 1, 1024) + requests);
        const EndInMemory output;
        assistant::Assistant(input.Get(), output.Get()).Serve(cow_String(m_File));
        return std::pair(plan.Reads(), output.Bytes());
    };
    int readsOfOpen = 0; // the last of them is the first look at the count
    {
        utl_FaultPlan plan;
        readsOfOpen = serve(plan, "").first;
    }
    const std::string fresh = Put("fresh.rdx", "the new one");
    utl_FaultPlan plan;
    plan.AtRead(readsOfOpen, [&] { std::filesystem::rename(fresh, m_File); });
    EXPECT_EQ(serve(plan, "\x03" + PageRequestBytes({}, 0, 1024)).second, "\0\x01"s
                                                                          "\0\x01"s
                                                                          "\0\x01\0\0\0\x0b"s
                                                                          "the new one"s);
}

// What is no longer watched may change unseen, so the reader must ask for it again.
TEST_F(FileAssistant, APageBeyondThoseThatMayBeWatchedMakesTheOldestCountAsChanged)
{
    const std::string path = Put("five.rdx", std::string(5 * 1024, 'x'));
    const auto page = [](std::int64_t index, const std::vector<std::int64_t>& dropped = {})
    { return PageRequestBytes(dropped, index * 1024, 1024); };
    const EndInMemory input(HandshakeBytes("", 1, 1024) + page(2) + page(0) + page(1) // room for three
                            + page(3) + page(2) + page(2)                             // 2 is the newest now
                            + page(0)           // it is watched no longer
                            + page(4, {2048})); // makes room itself
    const EndInMemory output;
    assistant::Assistant(input.Get(), output.Get(), 3).Serve(cow_String(path));
    const std::string bytes = BigEndian(1024, 4) + std::string(1024, 'x');
    const std::string plain = "\0\0"s + bytes;
    const auto without = [&](std::int64_t index)
    { return "\0\2"s + BigEndian(1, 4) + BigEndian(index * 1024, 8) + bytes; };
    EXPECT_EQ(output.Bytes(), "\0\1"s + plain + plain + plain       //
                                  + without(2) + without(0) + plain //
                                  + without(1) + plain);
}

TEST_F(FileAssistant, WhateverASessionIsDamagedToItEndsWithAReason)
{
    std::mt19937 random(RandomSeed());
    std::string session = HandshakeBytes("key", 1, 1024);
    std::size_t requests = 0;
    for (; requests < 20; ++requests)
        session += requests % 5 == 0 ? "\x01" : PageRequestBytes({1024, 0}, 1024 * (requests % 3), 1024);
    const std::string path = Put("three.rdx", std::string(2500, 'x'));
    for (int run = 0; run < 1000; ++run)
    {
        std::string damaged = session.substr(0, random() % (session.size() + 1));
        for (std::size_t i = random() % 4; i > 0 && !damaged.empty(); --i)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        const EndInMemory input(damaged);
        const EndInMemory output;
        try
        {
            assistant::Assistant(input.Get(), output.Get()).Serve(cow_String(path));
        }
        catch (const farend::Failure& failure)
        {
            EXPECT_STRNE(failure.what(), "");
        }
        catch (const utl_BinStreamEOF&)
        {
        }
        // No request of this length brings more than its page and a list of the three.
        EXPECT_LE(output.Size(), 2 + static_cast<off_t>(damaged.size()) * (6 + 1024 + 4 + 3 * 8));
    }
}

// ---- The file ----

TEST_F(FileAssistant, WhatIsNoRegularFileIsRefusedBeforeItIsOpened)
{
    const std::string fifo = Path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::filesystem::create_symlink(fifo, Path("link"));
    for (const std::string& path : {fifo, Path("link"), m_Folder.Path(), "/dev/zero"s, "/dev/tty"s})
        EXPECT_EQ(RefusedFile({path}), "assistant, not a regular file: " + path + "\n");
}

TEST_F(FileAssistant, AFileThatIsNotThereIsRefused)
{
    for (const std::string& path : {Path("none"), Path("none/x.rdx"), ""s})
        EXPECT_EQ(RefusedFile({path}), "assistant, no such file: " + path + "\n");
    EXPECT_THAT(RefusedFile({m_File + "/x.rdx"}),
                testing::AnyOf(HasSubstr("no such file: "), HasSubstr("Not a directory: ")));
}

TEST_F(FileAssistant, AFileThatMayNotBeReadIsRefused)
{
    const std::string program = Path("assistant");
    std::filesystem::copy_file(RFM_FILE_ASSISTANT, program); // where the other user can get at it
    std::filesystem::permissions(m_Folder.Path(), std::filesystem::perms(0755));
    std::filesystem::permissions(m_File, std::filesystem::perms::none);
    const int code = ExitCodeOfForked(
        [&]
        {
            constexpr uid_t kNobody = 65534;
            if (::geteuid() == 0 && ::setuid(kNobody) != 0) return 90;
            const ChildResult result = Run({program, m_File}, HandshakeBytes("", 1, 1024));
            return result.code == 1 && result.out.empty() &&
                           result.err == "assistant, *** ERROR: No permission to read: " + m_File + ".\n"
                       ? 0
                       : 91;
        });
    EXPECT_EQ(code, 0);
}

TEST_F(FileAssistant, ANameThatIsTooLongIsRefusedInOneShortLine)
{
    const std::string reason = RefusedFile({"/" + std::string(100000, 'n')});
    EXPECT_THAT(reason, StartsWith("assistant, File name too long: /nnn"));
    EXPECT_THAT(reason, EndsWith("nnn...\n"));
    EXPECT_LE(reason.size(), 511U); // what a reader takes in one piece
}

// What it makes a line of its own would be taken for the reason.
TEST_F(FileAssistant, ANameWithALineEndStaysOneLine)
{
    EXPECT_EQ(RefusedFile({"/no\nassistant, all is well\x1b"}),
              "assistant, no such file: /no assistant, all is well \n");
}

TEST_F(FileAssistant, ANameWithDotsIsTheFileThatTheSystemFindsUnderIt)
{
    std::filesystem::create_directory(Path("sub"));
    AssistantReader reader(Serving(Path("sub/../small.rdx")));
    EXPECT_EQ(reader.Page(0).page, "hello");
}

TEST_F(FileAssistant, AUrlIsNotFollowedToAnotherHost)
{
    EXPECT_EQ(RefusedFile({"mrkrdb://other:1234//x.rdx"}),
              "assistant, not a file of this host: mrkrdb://other:1234//x.rdx\n");
}

TEST_F(FileAssistant, ADamagedCompressedFileEndsItWithTheReason)
{
    EXPECT_EQ(RefusedFile({Put("c.rdx", GoldenBytes("compressed.rdx").substr(0, 3000))}),
              "assistant, ***ERROR: VDX database is corrupt.\n");
}

TEST_F(FileAssistant, AnHdf5FileThatAWriterHasOpenIsRefusedWithTheReason)
{
    const std::string path = Path("h.rdx");
    const rfm_File writer = NewFileOfKind(cow_String(path), "hdf5");
    EXPECT_THAT(RefusedFile({path}), HasSubstr("unable to lock file"));
}

TEST_F(FileAssistant, OtherArgumentsAreRefused)
{
    const std::string usage = "assistant, usage: rfmT_FileAssistant PATH [-scratch]\n";
    for (const Words& words : {Words{}, Words{m_File, "x"}, Words{m_File, "-scratch", "x"}})
        EXPECT_EQ(RefusedFile(words), usage);
}

// ---- The scratch directory ----

TEST_F(FileAssistant, ScratchStandsForTheVariableElseForTmpdirElseForTmp)
{
    std::filesystem::create_directory(Path("own"));
    std::filesystem::create_directory(Path("temporary"));
    Put("own/x.rdx", "own");
    Put("temporary/x.rdx", "temporary");
    const Words words = {RFM_FILE_ASSISTANT, "SCRATCHDIR_RHOST/x.rdx", "-scratch"};
    const EnvironmentVariable temporary("TMPDIR", Path("temporary").c_str());
    {
        const EnvironmentVariable own("SCRATCHDIR_RHOST", Path("own").c_str());
        EXPECT_EQ(AssistantReader(words).Page(0).page, "own");
    }
    for (const char* none : {static_cast<const char*>(nullptr), ""})
    {
        const EnvironmentVariable own("SCRATCHDIR_RHOST", none);
        EXPECT_EQ(AssistantReader(words).Page(0).page, "temporary");
        const EnvironmentVariable noTemporary("TMPDIR", none);
        EXPECT_EQ(RefusedFile({"SCRATCHDIR_RHOST/no/such", "-scratch"}),
                  "assistant, no such file: /tmp/no/such\n");
    }
}

TEST_F(FileAssistant, TheScratchWordComesAsAVariableAndFromThePathOfAUrl)
{
    const EnvironmentVariable own("SCRATCHDIR_RHOST", m_Folder.Path().c_str());
    for (const char* word :
         {"SCRATCHDIR_RHOST", "$SCRATCHDIR_RHOST", "/SCRATCHDIR_RHOST", "/$SCRATCHDIR_RHOST"})
    {
        AssistantReader reader({RFM_FILE_ASSISTANT, std::string(word) + "/small.rdx", "-scratch"});
        EXPECT_EQ(reader.Page(0).page, "hello") << word;
    }
}

TEST_F(FileAssistant, AScratchNameStaysInTheDirectory)
{
    const EnvironmentVariable own("SCRATCHDIR_RHOST", m_Folder.Path().c_str());
    for (const char* name :
         {"SCRATCHDIR_RHOST/../x.rdx", "/$SCRATCHDIR_RHOST/a/../../x", "SCRATCHDIR_RHOST/.."})
        EXPECT_EQ(RefusedFile({name, "-scratch"}),
                  "assistant, a name in the scratch directory must not lead out of it: "s + name + "\n");
    for (const char* name : {"a/SCRATCHDIR_RHOST/x", "/a/SCRATCHDIR_RHOST/x", "$$SCRATCHDIR_RHOST/x",
                             "SCRATCHDIR_RHOST", "SCRATCHDIR_RHOSTS/x", "SCRATCHDIR_RHOST.rdx"})
        EXPECT_EQ(RefusedFile({name, "-scratch"}),
                  "assistant, SCRATCHDIR_RHOST is not the first directory of the name: "s + name + "\n");
    EXPECT_EQ(RefusedFile({m_File, "-scratch"}),
              "assistant, -scratch was given and SCRATCHDIR_RHOST is not in the name: " + m_File + "\n");
}

TEST_F(FileAssistant, WithoutTheOptionTheWordIsAName)
{
    const EnvironmentVariable own("SCRATCHDIR_RHOST", m_Folder.Path().c_str());
    EXPECT_EQ(RefusedFile({"/SCRATCHDIR_RHOST/small.rdx"}),
              "assistant, no such file: /SCRATCHDIR_RHOST/small.rdx\n");
}

// ---- Its end ----

TEST_F(FileAssistant, AReaderThatStopsReadingEndsItQuietly)
{
    const std::string path = Put("x.rdx", std::string(8 * 1024 * 1024, 'x'));
    AssistantReader reader(Serving(path), 8 * 1024 * 1024);
    reader.Child().Write(PageRequestBytes({}, 0, 8 * 1024 * 1024));
    reader.Child().Read(1); // it is at it
    reader.Child().CloseOutput();
    const ChildResult result = reader.End();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(FileAssistant, ClosedStandardDescriptorsAreNotTakenByTheFile)
{
    const Words withoutInput = {"/bin/sh", "-c", "exec \"$0\" \"$@\" <&-", RFM_FILE_ASSISTANT, m_File};
    EXPECT_THAT(Run(withoutInput, "").err, StartsWith("assistant, "));
    const Words withoutOutput = {"/bin/sh", "-c", "exec \"$0\" \"$@\" >&-", RFM_FILE_ASSISTANT, m_File};
    const ChildResult result = Run(withoutOutput, HandshakeBytes("", 1, 1024) + "\x01");
    EXPECT_THAT(result.err, StartsWith("assistant, "));
    EXPECT_EQ(BytesOf(cow_String(m_File)), "hello");
}

// ---- Through relay and daemon ----

class RemoteFileAssistant : public FarEnd
{
protected:
    void SetUp() override
    {
        FarEnd::SetUp();
        std::filesystem::remove(Program(kAssistant));
        std::filesystem::copy_file(RFM_FILE_ASSISTANT, Program(kAssistant));
        Start();
    }
};

TEST_F(RemoteFileAssistant, AFileIsReadThroughRelayAndDaemonAndNothingIsLeftBehind)
{
    const std::string bytes = GoldenBytes("table.rdx");
    {
        AssistantReader reader(RelayWords({kAssistant, RFM_TEST_DATA "/table.rdx"}), 1048576, m_Key);
        EXPECT_EQ(reader.Version(), 1);
        EXPECT_EQ(reader.Size().size, static_cast<std::int64_t>(bytes.size()));
        EXPECT_EQ(reader.AllPages(), bytes);
        EXPECT_EQ(reader.Status().status, 0);
        const ChildResult result = reader.End();
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.err, "");
    }
    EXPECT_TRUE(Eventually([this] { return DaemonsChildren() == 0; }));
}

TEST_F(RemoteFileAssistant, ItsReasonIsTheLastLineOfTheRelay)
{
    const ChildResult result = Relay({kAssistant, Path("none.rdx")});
    EXPECT_NE(result.code, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, EndsWith("assistant, no such file: " + Path("none.rdx") + "\n"));
}

TEST_F(RemoteFileAssistant, ARelayThatIsKilledEndsIt)
{
    AssistantReader reader(RelayWords({kAssistant, RFM_TEST_DATA "/table.rdx"}), 1024, m_Key);
    EXPECT_EQ(reader.Page(0).page.size(), 1024U);
    EXPECT_GT(DaemonsChildren(), 0U);
    ::kill(reader.Child().Process(), SIGKILL);
    EXPECT_TRUE(Eventually([this] { return DaemonsChildren() == 0; }));
}

TEST_F(RemoteFileAssistant, TheScratchOptionReachesIt)
{
    const ChildResult result = Relay({kAssistant, "/$SCRATCHDIR_RHOST/none.rdx", "-scratch"});
    EXPECT_THAT(result.err, HasSubstr("assistant, no such file: "));
    EXPECT_THAT(result.err, EndsWith("/none.rdx\n"));
    EXPECT_THAT(result.err, testing::Not(HasSubstr("SCRATCHDIR")));
}
} // namespace
