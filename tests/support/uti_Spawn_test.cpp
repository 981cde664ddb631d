#include "uti_SpawnSourceWithSink.h"

#include "Descriptors.h"
#include "EnvironmentVariable.h"
#include "Forked.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "thr_GlobalSingleton.h"
#include "uti_LeftChildren.h"
#include "uti_Library.h"
#include "utl_BinIStream.h"
#include "utl_BinOStream.h"
#include "utl_FileException.h"
#include "utl_TempFile.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

using ::testing::HasSubstr;

namespace
{
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

const cow_Map<cow_String, cow_String> kSameEnvironment;
const cow_String kShell = "/bin/sh";
// More than any end of a child may take, less than the patience of the one who looks at the tests.
constexpr seconds kBounded{8};
constexpr int kLong = 60;

cow_1DArrayList<cow_String> Words(std::initializer_list<const char*> words)
{
    cow_1DArrayList<cow_String> list;
    for (const char* word : words) list.Append(word);
    return list;
}

cow_1DArrayList<cow_String> Script(const char* script) { return Words({"-c", script}); }

class uti_SpawnTest : public ::testing::Test
{
protected:
    // Every test leaves nothing behind: no zombie, no running child, no descriptor.
    ~uti_SpawnTest() override
    {
        EXPECT_TRUE(HasNoChildren());
        EXPECT_EQ(OpenDescriptorCount(), m_DescriptorsBefore);
    }

    std::unique_ptr<uti_SpawnSource> Source(const char* script)
    {
        return std::make_unique<uti_SpawnSource>(kShell, Script(script), m_NoRedirection, kSameEnvironment);
    }
    std::unique_ptr<uti_SpawnSourceWithSink> WithSink(const char* script)
    {
        return std::make_unique<uti_SpawnSourceWithSink>(kShell, Script(script), m_NoRedirection,
                                                         kSameEnvironment);
    }
    static std::string Line(uti_SpawnSource& child, int size = 512)
    {
        std::vector<char> buffer(static_cast<std::size_t>(size), '?');
        const int length = child.GetLine(buffer.data(), size);
        EXPECT_EQ(buffer[static_cast<std::size_t>(length)], '\0');
        return {buffer.data(), static_cast<std::size_t>(length)};
    }
    // A child that says "up" and then overruns: it is asked to end, and can still tidy up.
    static void ExpectTidiesUp(const char* script)
    {
        utl_TempFile told("");
        uti_Redirection redirection("2>", told.Name());
        uti_SpawnSource child(kShell, Script(script), redirection, kSameEnvironment);
        EXPECT_EQ(Line(child), "up\n");
        EXPECT_EQ(child.Reap(1), -1);
        EXPECT_EQ(BytesOf(told.Name()), "tidy\n");
    }
    static std::string AllLines(uti_SpawnSource& child)
    {
        std::string all;
        for (std::string line = Line(child); !line.empty(); line = Line(child)) all += line;
        return all;
    }
    static void Tell(uti_SpawnSourceWithSink& child, std::string_view text)
    {
        utl_BinOStream(child.SinkDescriptor(), omi_Swapper::Pipe)
            .Write(text.data(), static_cast<int>(text.size()));
    }
    /// The end of a process that is no child of this one, seen by the pipe that it keeps open.
    static bool EndsSoon(int watchedPipe)
    {
        pollfd watched{watchedPipe, POLLIN, 0};
        char byte = 0;
        return ::poll(&watched, 1, 30000) == 1 && ::read(watchedPipe, &byte, 1) == 0;
    }

    int m_DescriptorsBefore = OpenDescriptorCount();
    uti_Redirection m_NoRedirection;
};

struct TakesLessThan
{
    explicit TakesLessThan(seconds most) : m_End(Clock::now() + most) {}
    TakesLessThan(const TakesLessThan&) = delete;
    TakesLessThan& operator=(const TakesLessThan&) = delete;
    ~TakesLessThan() { EXPECT_LT(Clock::now(), m_End); }
    Clock::time_point m_End;
};
} // namespace

// --- lines

TEST_F(uti_SpawnTest, LinesComeWithTheirEndsUntilTheOutputEnds)
{
    const auto child = Source("printf 'one\\n\\ntwo\\nlast'");
    EXPECT_EQ(Line(*child), "one\n");
    EXPECT_EQ(Line(*child), "\n");
    EXPECT_EQ(Line(*child), "two\n");
    EXPECT_EQ(Line(*child), "last");
    EXPECT_EQ(Line(*child), "");
    EXPECT_EQ(Line(*child), "");
    EXPECT_EQ(child->Reap(kLong), 0);
}

TEST_F(uti_SpawnTest, ALongLineComesInPiecesThatFitWithTheirNul)
{
    const auto child = Source("printf 'abcdefg\\nhi\\n'");
    EXPECT_EQ(Line(*child, 4), "abc");
    EXPECT_EQ(Line(*child, 4), "def");
    EXPECT_EQ(Line(*child, 4), "g\n");
    EXPECT_EQ(Line(*child, 4), "hi\n");
    EXPECT_EQ(Line(*child, 4), "");
}

TEST_F(uti_SpawnTest, ALineMayHoldNulBytesWhichTheLengthTells)
{
    const auto child = Source("printf 'a\\0b\\nc\\n'");
    EXPECT_EQ(Line(*child), std::string("a\0b\n", 4));
    EXPECT_EQ(Line(*child), "c\n");
}

TEST_F(uti_SpawnTest, ALineLongerThanAnyBlockComesWhole)
{
    const auto child = Source("head -c 100000 /dev/zero | tr '\\0' x; echo");
    EXPECT_EQ(Line(*child, 200000), std::string(100000, 'x') + "\n");
}

TEST_F(uti_SpawnTest, ALineThatComesInPiecesIsWaitedFor)
{
    const auto child = WithSink("printf be; read go; printf 'gin\\n'");
    char first[2];
    utl_BinIStream(child->SourceDescriptor(), omi_Swapper::Pipe).Read(first, 2);
    Tell(*child, "go\n");
    EXPECT_EQ(Line(*child), "gin\n");
}

TEST_F(uti_SpawnTest, AnOutputWithoutABytesHasNoLine)
{
    const auto child = Source("exit 0");
    EXPECT_EQ(Line(*child), "");
}

TEST_F(uti_SpawnTest, ABufferWithoutRoomForALetterIsRefused)
{
    const auto child = Source("echo x");
    char buffer[2];
    EXPECT_EQ(Thrown<nex_AssertException>([&] { child->GetLine(nullptr, 10); }), "buffer != nullptr");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { child->GetLine(buffer, 1); }), "size > 1");
    EXPECT_EQ(Line(*child, 2), "x");
}

// --- what the child is given

TEST_F(uti_SpawnTest, ArgumentsArriveWordByWordAsTheyStand)
{
    uti_SpawnSource child(kShell,
                          Words({"-c", "printf '<%s>' \"$@\"", "name", "a b", "", "$HOME", "-n", "'"}),
                          m_NoRedirection, kSameEnvironment);
    EXPECT_EQ(Line(child), "<a b><><$HOME><-n><'>");
}

TEST_F(uti_SpawnTest, WithoutASinkTheInputIsEmpty)
{
    const auto child = Source("cat; readlink /proc/self/fd/0");
    EXPECT_EQ(AllLines(*child), "/dev/null\n");
}

TEST_F(uti_SpawnTest, ThePipesLeadBothWays)
{
    const auto child = WithSink("cat");
    utl_BinOStream out(child->SinkDescriptor(), omi_Swapper::Pipe);
    utl_BinIStream in(child->SourceDescriptor(), omi_Swapper::Pipe);
    for (int i = 0; i < 100; ++i)
    {
        out.WriteInt(i);
        EXPECT_EQ(in.ReadInt(), i);
    }
    EXPECT_TRUE(child->IsRunning());
    child->CloseSink();
    EXPECT_EQ(child->SinkDescriptor(), -1);
    EXPECT_THROW(in.ReadSchar(), utl_BinStreamEOF);
    EXPECT_EQ(child->Reap(kLong), 0);
    EXPECT_FALSE(child->IsRunning());
}

TEST_F(uti_SpawnTest, TheErrorOutputGoesToTheFileAlsoAfterTheRedirectionHasGone)
{
    utl_TempFile errors("");
    PutBytes(errors.Name(), "old words");
    std::optional<uti_Redirection> redirection;
    redirection.emplace("2>", errors.Name());
    uti_SpawnSourceWithSink child(kShell, Script("echo first >&2; read go; echo second >&2"), *redirection,
                                  kSameEnvironment);
    redirection.reset();
    Tell(child, "go\n");
    EXPECT_EQ(child.Reap(kLong), 0);
    EXPECT_EQ(BytesOf(errors.Name()), "first\nsecond\n");
}

TEST_F(uti_SpawnTest, ARedirectionThatCantBeIsRefused)
{
    const TestFolder folder;
    EXPECT_EQ(Thrown<nex_AssertException>([&] { uti_Redirection(">", folder.Path("x")); }),
              "stream == \"2>\"");
    EXPECT_EQ(Thrown<utl_FileException>([&] { uti_Redirection("2>", folder.Path("none/x")); }),
              "*** ERROR: Can't open file:\n  " + folder.Path() +
                  "/none/x, reason:\n  No such file or directory.");
}

TEST_F(uti_SpawnTest, AnEmptyMapLeavesTheEnvironmentAndAnotherAddsAndReplaces)
{
    const EnvironmentVariable kept("RFM_KEPT", "kept");
    const EnvironmentVariable changed("RFM_CHANGED", "old");
    const EnvironmentVariable similar("RFM_CHANGED_TOO", "similar");
    const char* script = "echo $RFM_KEPT,$RFM_CHANGED,$RFM_CHANGED_TOO,${RFM_NEW-unset},${RFM_EMPTY-unset}";
    EXPECT_EQ(Line(*Source(script)), "kept,old,similar,unset,unset\n");

    cow_Map<cow_String, cow_String> changes;
    changes.Insert("RFM_CHANGED", "new");
    changes.Insert("RFM_NEW", "a=b c");
    changes.Insert("RFM_EMPTY", "");
    uti_SpawnSource child(kShell, Script(script), m_NoRedirection, changes);
    EXPECT_EQ(Line(child), "kept,new,similar,a=b c,\n");
    EXPECT_STREQ(std::getenv("RFM_CHANGED"), "old");
}

TEST_F(uti_SpawnTest, TextsThatTheSystemWouldCutAreRefused)
{
    const std::string refusal = "*** ERROR: Can't start program:\n  /bin/sh, reason:\n  Invalid argument.";
    const cow_String cut("a\0b", 3);
    cow_1DArrayList<cow_String> words = Words({"-c"});
    words.Append(cut);
    EXPECT_EQ(
        Thrown<nex_TextException>([&] { uti_SpawnSource(kShell, words, m_NoRedirection, kSameEnvironment); }),
        refusal);
    for (const auto& [name, value] :
         {std::pair<cow_String, cow_String>{"A", cut}, {cut, "A"}, {"", "A"}, {"A=B", "C"}})
    {
        cow_Map<cow_String, cow_String> changes;
        changes.Insert(name, value);
        EXPECT_EQ(Thrown<nex_TextException>(
                      [&] { uti_SpawnSource(kShell, Script("exit"), m_NoRedirection, changes); }),
                  refusal);
    }
}

TEST_F(uti_SpawnTest, TheChildHasTheThreeStandardDescriptorsAndNoOther)
{
    const int leaky = ::open("/dev/null", O_RDONLY); // without close-on-exec, as careless programs have them
    const auto other = WithSink("cat");
    utl_TempFile errors("");
    uti_Redirection redirection("2>", errors.Name());
    uti_SpawnSourceWithSink child(kShell, Script("cd /proc/self/fd && echo *"), redirection,
                                  kSameEnvironment);
    // The shell's own walk through the directory has the fourth.
    EXPECT_EQ(Line(child), "0 1 2 3\n");
    ::close(leaky);
}

TEST_F(uti_SpawnTest, WhatTheProgramHoldsIsClosedInEveryOtherProgramThatItStarts)
{
    utl_TempFile errors("");
    const uti_Redirection redirection("2>", errors.Name());
    const auto child = WithSink("cat");
    for (const int held : {child->SinkDescriptor(), child->SourceDescriptor(), redirection.ErrorDescriptor()})
        EXPECT_EQ(::fcntl(held, F_GETFD), FD_CLOEXEC);
}

TEST_F(uti_SpawnTest, AChildWithoutTheProgramsDescriptorsLetsTheOthersEnd)
{
    const auto first = WithSink("cat");
    const auto second = WithSink("cat");
    // The second one holds no end of the first one's pipes: closing the sink ends the first.
    first->CloseSink();
    EXPECT_EQ(first->Reap(kLong), 0);
    EXPECT_TRUE(second->IsRunning());
}

TEST_F(uti_SpawnTest, TheChildHasNoBlockedSignalAndDiesOfAPipeThatNobodyReads)
{
    sigset_t all;
    sigfillset(&all);
    sigset_t before;
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &all, &before), 0);
    const auto ignoring = ::signal(SIGPIPE, SIG_IGN);
    // No shell between: some of them clear the mask themselves.
    uti_SpawnSource child("grep", Words({"-E", "SigBlk|SigIgn", "/proc/self/status"}), m_NoRedirection,
                          kSameEnvironment);
    const std::string masks = AllLines(child);
    ::signal(SIGPIPE, ignoring);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_THAT(masks, HasSubstr("SigBlk:\t0000000000000000"));
    const std::size_t ignored = masks.find("SigIgn:\t") + 8;
    EXPECT_EQ(std::stoull(masks.substr(ignored), nullptr, 16) & (1ULL << (SIGPIPE - 1)), 0U) << masks;
}

TEST_F(uti_SpawnTest, AProgramWithoutStandardDescriptorsStartsChildrenAllTheSame)
{
    const TestFolder folder;
    const int answer = ExitCodeOfForked(
        [&]
        {
            for (const int standard : {0, 1, 2}) ::close(standard);
            uti_Redirection redirection("2>", folder.Path("errors"));
            uti_SpawnSourceWithSink child(kShell, Script("read word; echo got $word; echo bad >&2"),
                                          redirection, kSameEnvironment);
            if (child.SinkDescriptor() < 3 || child.SourceDescriptor() < 3) return 1;
            Tell(child, "it\n");
            if (Line(child) != "got it\n") return 2;
            return child.Reap(kLong);
        });
    EXPECT_EQ(answer, 0);
    EXPECT_EQ(BytesOf(folder.Path("errors")), "bad\n");
}

// --- what can't be started

TEST_F(uti_SpawnTest, AProgramThatCantBeStartedIsAnExceptionInTheSystemsWords)
{
    const TestFolder folder;
    PutBytes(folder.Path("plain"), "x");
    PutBytes(folder.Path("garbage"), "\1\2\3");
    ASSERT_EQ(::chmod(folder.Path("garbage").CString(), 0755), 0);
    const auto refusal = [&](const cow_String& program)
    {
        return Thrown<nex_TextException>(
            [&] { uti_SpawnSourceWithSink(program, {}, m_NoRedirection, kSameEnvironment); });
    };
    const auto text = [&](const char* name, const char* reason)
    {
        return std::string("*** ERROR: Can't start program:\n  ") + folder.Path(name).CString() +
               ", reason:\n  " + reason + ".";
    };
    EXPECT_EQ(refusal(folder.Path("none")), text("none", "No such file or directory"));
    EXPECT_EQ(refusal(folder.Path("plain")), text("plain", "Permission denied"));
    EXPECT_EQ(refusal(folder.Path("garbage")), text("garbage", "Exec format error"));
    EXPECT_EQ(refusal(folder.Path(".")), text(".", "Permission denied"));
    EXPECT_EQ(Thrown<nex_TextException>(
                  [&] { uti_SpawnSource(folder.Path("plain"), {}, m_NoRedirection, kSameEnvironment); }),
              text("plain", "Permission denied"));
}

TEST_F(uti_SpawnTest, ACommandIsFoundOnTheSearchPathAndNeverInTheCurrentDirectory)
{
    const TestFolder folder;
    PutBytes(folder.Path("rfm_word"), "#!/bin/sh\necho found\n");
    ASSERT_EQ(::chmod(folder.Path("rfm_word").CString(), 0755), 0);
    {
        const EnvironmentVariable path("PATH", ("/none:" + folder.Path() + ":/bin").c_str());
        EXPECT_EQ(uti_Spawn::FindCommand("rfm_word"), folder.Path("rfm_word"));
        EXPECT_EQ(Line(*std::make_unique<uti_SpawnSource>("rfm_word", Words({}), m_NoRedirection,
                                                          kSameEnvironment)),
                  "found\n");
        EXPECT_EQ(uti_Spawn::FindCommand("rfm_no_word").View(), "");
    }
    EXPECT_EQ(uti_Spawn::FindCommand(folder.Path("rfm_word")), folder.Path("rfm_word"));
    EXPECT_EQ(uti_Spawn::FindCommand(folder.Path("none")).View(), "");

    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    EXPECT_EQ(Thrown<nex_TextException>(
                  [&] { uti_SpawnSource("rfm_word", {}, m_NoRedirection, kSameEnvironment); }),
              "*** ERROR: Can't start program:\n  rfm_word, reason:\n  No such file or directory.");
    std::filesystem::current_path(before);
}

TEST_F(uti_SpawnTest, AShortageOfDescriptorsAnywhereLeavesNothingBehind)
{
    const int answer = ExitCodeOfForked(
        []
        {
            const int before = OpenDescriptorCount();
            const int lowest = ::open("/dev/null", O_RDONLY);
            ::close(lowest);
            uti_Redirection none;
            // A sanitizer takes descriptors itself when it meets a class for the first time: now, not in the shortage.
            for (const char* program : {"/bin/cat", "/none"})
                Thrown<nex_TextException>([&]
                                          { uti_SpawnSourceWithSink(program, {}, none, kSameEnvironment); });
            int refused = 0;
            // Each turn the system has one descriptor more.
            for (int room = 0;; ++room)
            {
                const rlimit limit{static_cast<rlim_t>(lowest + room), 1024};
                ::setrlimit(RLIMIT_NOFILE, &limit);
                bool started = false;
                try
                {
                    uti_SpawnSourceWithSink child("/bin/cat", {}, none, kSameEnvironment);
                    started = true;
                }
                catch (const nex_TextException&)
                {
                    ++refused;
                }
                const rlimit plenty{1024, 1024};
                ::setrlimit(RLIMIT_NOFILE, &plenty);
                if (OpenDescriptorCount() != before) return 1;
                if (!HasNoChildren()) return 2;
                if (started) return refused >= 4 ? 0 : 3;
            }
        });
    EXPECT_EQ(answer, 0);
}

// --- the end of a child

TEST_F(uti_SpawnTest, TheStatusTellsHowTheChildEnded)
{
    EXPECT_EQ(Source("exit 0")->Reap(kLong), 0);
    EXPECT_EQ(Source("exit 3")->Reap(kLong), 3);
    EXPECT_EQ(Source("exit 255")->Reap(kLong), 255);
    EXPECT_EQ(Source("kill -KILL $$")->Reap(kLong), 128 + SIGKILL);
}

TEST_F(uti_SpawnTest, TheStatusCanBeAskedForAgain)
{
    const auto child = Source("exit 7");
    EXPECT_EQ(child->Reap(kLong), 7);
    EXPECT_EQ(child->Reap(kLong), 7);
    EXPECT_EQ(child->Reap(0), 7);
    EXPECT_FALSE(child->IsRunning());
}

TEST_F(uti_SpawnTest, AQuestionThatSawTheEndKeepsTheStatus)
{
    const auto child = Source("exit 7");
    EXPECT_EQ(Line(*child), "");
    while (child->IsRunning()) ::sched_yield();
    EXPECT_EQ(child->Reap(0), 7);
}

TEST_F(uti_SpawnTest, ANegativeTimeIsRefused)
{
    const auto child = Source("exit 0");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { child->Reap(-1); }), "seconds >= 0");
}

TEST_F(uti_SpawnTest, NoSecondsOnlyLookAndTheConversationGoesOn)
{
    const auto child = WithSink("while read word; do echo $word; done");
    EXPECT_EQ(child->Reap(0), -1);
    Tell(*child, "still here\n");
    EXPECT_EQ(Line(*child), "still here\n");
    EXPECT_EQ(child->Reap(0), -1);
    EXPECT_TRUE(child->IsRunning());
}

TEST_F(uti_SpawnTest, WaitingEndsTheInputFirst)
{
    const auto child = WithSink("cat; exit 5");
    const TakesLessThan bounded(kBounded);
    EXPECT_EQ(child->Reap(kLong), 5);
    EXPECT_EQ(child->SinkDescriptor(), -1);
    EXPECT_EQ(child->SourceDescriptor(), -1);
    EXPECT_EQ(Line(*child), "");
}

TEST_F(uti_SpawnTest, WaitingTakesTheOutputThatNobodyReadSoThatTheChildEndsCleanly)
{
    const TakesLessThan bounded(seconds(30));
    const auto child = Source("head -c 1000000 /dev/zero || exit 9");
    EXPECT_EQ(child->Reap(kLong), 0);
}

TEST_F(uti_SpawnTest, OnlyTheFirstLineCountsAndTheRestDoesNotFailTheChild)
{
    const auto child = Source("echo secret; echo more; head -c 200000 /dev/zero || exit 9");
    EXPECT_EQ(Line(*child), "secret\n");
    EXPECT_EQ(child->Reap(kLong), 0);
}

TEST_F(uti_SpawnTest, AChildThatOverrunsIsEndedPolitelyAndHasFailed)
{
    const auto child = WithSink("trap 'exit 0' TERM; echo up; while :; do :; done");
    EXPECT_EQ(Line(*child), "up\n");
    const TakesLessThan bounded(kBounded);
    EXPECT_EQ(child->Reap(1), -1) << "a clean exit too late is none";
    EXPECT_EQ(child->Reap(0), -1);
    EXPECT_FALSE(child->IsRunning());
}

TEST_F(uti_SpawnTest, PolitenessLetsTheChildTidyUp)
{
    ExpectTidiesUp("trap 'echo tidy >&2; exit 0' TERM; echo up; while :; do :; done");
}

TEST_F(uti_SpawnTest, AChildThatIgnoresPolitenessIsEndedAllTheSame)
{
    const auto child = Source("trap '' TERM; echo up; while :; do :; done");
    EXPECT_EQ(Line(*child), "up\n");
    const TakesLessThan bounded(kBounded);
    EXPECT_EQ(child->Reap(1), -1);
    EXPECT_FALSE(child->IsRunning());
}

TEST_F(uti_SpawnTest, AStoppedChildIsEndedPolitely)
{
    ExpectTidiesUp("trap 'echo tidy >&2; exit 0' TERM; echo up; kill -STOP $$; exit 1");
}

TEST_F(uti_SpawnTest, AChildThatPrintsForEverIsEndedInTime)
{
    const auto child = Source("trap '' TERM; exec cat /dev/zero");
    const TakesLessThan bounded(kBounded);
    EXPECT_EQ(child->Reap(1), -1);
}

TEST_F(uti_SpawnTest, AChildThatClosedItsOutputAndLivesOnIsWaitedForByItself)
{
    const auto child = WithSink("exec >&-; read go; exit 4");
    EXPECT_EQ(Line(*child), "");
    EXPECT_TRUE(child->IsRunning());
    EXPECT_EQ(child->Reap(0), -1);
    Tell(*child, "go\n");
    EXPECT_EQ(child->Reap(kLong), 4);
}

TEST_F(uti_SpawnTest, ThePipeThatAGrandchildKeepsHoldsNobodyUp)
{
    // The grandchild has the child's output and a pipe of ours by which it is seen to live, and to end.
    const TestFolder folder;
    const cow_String fifo = folder.Path("life");
    ASSERT_EQ(::mkfifo(fifo.CString(), 0600), 0);
    const int life = ::open(fifo.CString(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const EnvironmentVariable named("RFM_FIFO", fifo.CString());
    {
        const auto child = Source("sh -c 'echo $$; exec sleep 600' 3>$RFM_FIFO & read x < /dev/null; exit 6");
        const int grandchild = std::stoi(Line(*child));
        const TakesLessThan bounded(kBounded);
        EXPECT_EQ(child->Reap(kLong), 6);
        pollfd watched{life, POLLIN, 0};
        EXPECT_EQ(::poll(&watched, 1, 0), 0) << "it still lives";
        ASSERT_EQ(::kill(grandchild, SIGKILL), 0);
    }
    EXPECT_TRUE(EndsSoon(life));
    {
        auto child = Source("sh -c 'echo $$; exec sleep 600' 3>$RFM_FIFO & wait");
        const int grandchild = std::stoi(Line(*child));
        {
            const TakesLessThan bounded(kBounded);
            child.reset();
        }
        ASSERT_EQ(::kill(grandchild, SIGKILL), 0);
    }
    EXPECT_TRUE(EndsSoon(life));
    ::close(life);
}

// --- the end of the object

TEST_F(uti_SpawnTest, AChildThatWaitsForInputLeavesWithTheObject)
{
    utl_TempFile told("");
    uti_Redirection redirection("2>", told.Name());
    {
        uti_SpawnSourceWithSink child(kShell, Script("cat; echo left by itself >&2"), redirection,
                                      kSameEnvironment);
        EXPECT_EQ(child.Reap(0), -1);
    }
    EXPECT_EQ(BytesOf(told.Name()), "left by itself\n");
}

TEST_F(uti_SpawnTest, AChildStuckOnAFullPipeLeavesWithTheObject)
{
    const TakesLessThan bounded(kBounded);
    const auto child = Source("cat /dev/zero");
    char byte = 0;
    utl_BinIStream(child->SourceDescriptor(), omi_Swapper::Pipe).Read(&byte, 1);
}

TEST_F(uti_SpawnTest, AChildThatHeedsNothingGoesWithTheObject)
{
    const TakesLessThan bounded(kBounded);
    const auto child = WithSink("trap '' TERM PIPE; echo up; while :; do :; done");
    EXPECT_EQ(Line(*child), "up\n");
    EXPECT_EQ(child->Reap(0), -1);
}

TEST_F(uti_SpawnTest, AChildThatEndedLongAgoLeavesNoZombie)
{
    const auto child = Source("exit 0");
    EXPECT_EQ(Line(*child), "");
    EXPECT_NE(child->SourceDescriptor(), -1);
}

TEST_F(uti_SpawnTest, TwoHundredRoundsOfEveryKindLeaveNothing)
{
    const TakesLessThan bounded(seconds(120));
    for (int round = 0; round < 200; ++round)
    {
        const auto talk = WithSink("read word; echo $word");
        Tell(*talk, "word\n");
        ASSERT_EQ(Line(*talk), "word\n");
        if (round % 2 == 0)
        {
            EXPECT_EQ(talk->Reap(kLong), 0);
        }
        const auto idle = std::make_unique<uti_SpawnSourceWithSink>("/bin/cat", Words({}), m_NoRedirection,
                                                                    kSameEnvironment);
        if (round % 2 == 0)
        {
            EXPECT_EQ(idle->Reap(0), -1);
        }
        ASSERT_THROW(uti_SpawnSource("/none", {}, m_NoRedirection, kSameEnvironment), nex_TextException);
    }
}

// --- letting go

TEST_F(uti_SpawnTest, ADetachedChildRunsOnAndIsForgottenOnceItHasEnded)
{
    uti_LeftChildren& left = thr_GlobalSingleton<uti_LeftChildren>::Instance();
    const TestFolder folder;
    const cow_String fifo = folder.Path("go");
    ASSERT_EQ(::mkfifo(fifo.CString(), 0600), 0);
    const EnvironmentVariable named("RFM_FIFO", fifo.CString());
    int process = 0;
    {
        const auto child = WithSink("exec 3<$RFM_FIFO; echo $$; exec >&-; read go <&3");
        const int go = ::open(fifo.CString(), O_WRONLY | O_CLOEXEC);
        process = std::stoi(Line(*child));
        child->Detach();
        EXPECT_FALSE(child->IsRunning());
        EXPECT_EQ(child->Reap(kLong), -1);
        EXPECT_EQ(child->SinkDescriptor(), -1);
        EXPECT_EQ(child->SourceDescriptor(), -1);
        child->Detach();
        ASSERT_EQ(left.Count(), 1);
        ::close(go);
    }
    // Wait for its end without asking for it.
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(ended.si_code, CLD_EXITED) << "nobody ended it";
    EXPECT_EQ(left.Count(), 1);
    EXPECT_EQ(Source("exit 0")->Reap(kLong), 0);
    EXPECT_EQ(left.Count(), 0) << "the next child is the occasion";
}

TEST_F(uti_SpawnTest, TheEndOfTheLibraryForgetsDetachedChildrenToo)
{
    uti_LeftChildren& left = thr_GlobalSingleton<uti_LeftChildren>::Instance();
    int count = 0;
    uti_initialize(count);
    {
        const auto child = Source("echo $$; exit 0");
        const int process = std::stoi(Line(*child));
        child->Detach();
        siginfo_t ended{};
        ::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT);
    }
    uti_finalize(count);
    EXPECT_EQ(left.Count(), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(uti_SpawnTest, DetachingAnEndedChildLeavesNothing)
{
    const auto child = Source("exit 0");
    EXPECT_EQ(child->Reap(kLong), 0);
    child->Detach();
    EXPECT_EQ(thr_GlobalSingleton<uti_LeftChildren>::Instance().Count(), 0);
}

// --- programs with habits of their own

TEST_F(uti_SpawnTest, AProgramThatTakesTheStatusAwayGetsAFailureAndNoHang)
{
    const TakesLessThan bounded(kBounded);
    const int answer = ExitCodeOfForked(
        [&]
        {
            ::signal(SIGCHLD, SIG_IGN);
            const auto child = WithSink("cat");
            return child->Reap(kLong) == -1 && !child->IsRunning() ? 0 : 1;
        });
    EXPECT_EQ(answer, 0);
}

// Such a child may be gone without a trace before anything but its number is known; its words are there all the same.
TEST_F(uti_SpawnTest, AProgramThatTakesTheStatusAwayHearsEvenTheShortestChild)
{
    const TestFolder folder;
    const int answer = ExitCodeOfForked(
        [&]
        {
            ::signal(SIGCHLD, SIG_IGN);
            for (int round = 0; round < 200; ++round)
            {
                uti_Redirection redirection("2>", folder.Path("errors"));
                uti_SpawnSource child("/bin/sh", Script("echo out; echo bad >&2"), redirection,
                                      kSameEnvironment);
                if (Line(child) != "out\n" || !Line(child).empty() || child.Reap(kLong) != -1) return 1;
                uti_SpawnSource silent("/bin/true", Words({}), m_NoRedirection, kSameEnvironment);
                if (!Line(silent).empty() || silent.Reap(kLong) != -1 || silent.IsRunning()) return 2;
                if (BytesOf(folder.Path("errors")) != "bad\n") return 3;
            }
            return 0;
        });
    EXPECT_EQ(answer, 0);
}

TEST_F(uti_SpawnTest, AForkOfTheProgramDoesNotEndTheChild)
{
    auto child = WithSink("cat");
    EXPECT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      child.reset();
                      return 0;
                  }),
              0);
    Tell(*child, "alive\n");
    EXPECT_EQ(Line(*child), "alive\n");
}

TEST_F(uti_SpawnTest, ThreadsThatStartChildrenAtOnceHoldNobodyElsesPipes)
{
    std::vector<std::thread> threads;
    std::atomic<int> ended = 0;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&]
            {
                uti_Redirection none;
                for (int round = 0; round < 25; ++round)
                {
                    uti_SpawnSourceWithSink child("/bin/cat", {}, none, kSameEnvironment);
                    // A copy of the sink in another child would keep this one from its end.
                    if (child.Reap(kLong) == 0) ++ended;
                }
            });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(ended, 100);
}
