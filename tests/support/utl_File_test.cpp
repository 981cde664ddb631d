#include "utl_File.h"

#include "Forked.h"
#include "RandomSeed.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "utl_FaultPlan.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using ::testing::ElementsAre;
using ::testing::EndsWith;
using Transfer = utl_FaultPlan::Transfer;

namespace
{
constexpr int kBlock = 256 * 1024;
constexpr uid_t kNobody = 65534;

class utl_FileTest : public ::testing::Test
{
protected:
    cow_String Name() const { return m_Folder.Path("data"); }
    cow_String Path(const char* name) const { return m_Folder.Path(name); }
    std::string Stored() const { return BytesOf(Name()); }

    std::string Refusal(const char* action, const char* reason) const
    {
        return std::string("*** ERROR: Can't ") + action + " file:\n  " + Name().CString() + ", reason:\n  " +
               reason + ".";
    }

    static void Write(utl_File& file, std::string_view text)
    {
        ASSERT_EQ(file.Write(text.data(), static_cast<int>(text.size())), static_cast<int>(text.size()));
    }
    static void WriteAt(utl_File& file, std::int64_t position, std::string_view text)
    {
        file.Seek(position);
        Write(file, text);
    }
    static std::string Read(utl_File& file, int count)
    {
        std::string bytes(static_cast<std::size_t>(count), '?');
        bytes.resize(static_cast<std::size_t>(file.Read(bytes.data(), count)));
        return bytes;
    }
    static std::string ReadAt(utl_File& file, std::int64_t position, int count)
    {
        file.Seek(position);
        return Read(file, count);
    }
    /// Bytes that tell their own place.
    static std::string Pattern(std::size_t bytes)
    {
        std::string text(bytes, '\0');
        for (std::size_t i = 0; i < bytes; ++i) text[i] = static_cast<char>('a' + i * 7 / 3 % 26);
        return text;
    }

    TestFolder m_Folder;
};

mode_t ModeOf(const cow_String& path)
{
    struct stat status
    {
    };
    return ::stat(path.CString(), &status) == 0 ? status.st_mode & 07777U : 0;
}

ino_t NodeOf(const cow_String& path)
{
    struct stat status
    {
    };
    return ::stat(path.CString(), &status) == 0 ? status.st_ino : 0;
}
} // namespace

// --- opening

TEST_F(utl_FileTest, AMissingFileIsNoFile)
{
    const std::string expected = Refusal("open", "No such file or directory");
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
    {
        EXPECT_EQ(Thrown<utl_FileExceptionNoFile>([&] { utl_File(Name(), access, 0); }), expected);
        EXPECT_EQ(Stored(), "");
        EXPECT_EQ(NodeOf(Name()), 0U);
    }
}

TEST_F(utl_FileTest, ANameBelowAFileIsNoFile)
{
    PutBytes(Name(), "x");
    EXPECT_THROW(utl_File(Path("data/below"), utl_FileAccessRead, 0), utl_FileExceptionNoFile);
}

TEST_F(utl_FileTest, ARefusalKnowsItsPlaceInTheSource)
{
    try
    {
        const utl_File opened(Name(), utl_FileAccessRead, 0);
        FAIL() << "nothing was thrown";
    }
    catch (const utl_FileException& failure)
    {
        EXPECT_THAT(std::string(failure.SourceName().View()), EndsWith("utl_File.cpp"));
        EXPECT_GT(failure.Line(), 0);
    }
}

TEST_F(utl_FileTest, ADirectoryIsRefusedHoweverItIsOpened)
{
    ASSERT_EQ(::mkdir(Name().CString(), 0777), 0);
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
        EXPECT_EQ(Thrown<utl_FileException>([&] { utl_File(Name(), access, 0); }),
                  Refusal("open", "Is a directory"));
    EXPECT_EQ(Thrown<utl_FileException>([&] { utl_File(Name(), utl_FileAccessCreate, 0); }),
              Refusal("create", "Is a directory"));
}

TEST_F(utl_FileTest, AFifoIsRefusedWithoutWaitingForItsOtherEnd)
{
    ASSERT_EQ(::mkfifo(Name().CString(), 0666), 0);
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
        EXPECT_EQ(Thrown<utl_FileException>([&] { utl_File(Name(), access, 0); }),
                  Refusal("open", "Not a regular file"));
    EXPECT_EQ(Thrown<utl_FileException>([&] { utl_File(Name(), utl_FileAccessCreate, 0); }),
              Refusal("create", "Not a regular file"));
}

TEST_F(utl_FileTest, ANameWithANulIsRefusedAndTheFileInFrontOfItLeftAlone)
{
    PutBytes(Name(), "mine");
    cow_String name = Name();
    name.append("\0.old", 5);
    try
    {
        const utl_File opened(name, utl_FileAccessCreate, 0);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const utl_FileException& failure)
    {
        EXPECT_THAT(std::string(failure.UserReport().View()), EndsWith("reason:\n  Invalid argument."));
    }
    EXPECT_EQ(Stored(), "mine");
}

TEST_F(utl_FileTest, AnyOtherAccessIsAFaultOfTheCaller)
{
    for (const int access : {-1, 3})
        EXPECT_EQ(
            Thrown<nex_AssertException>([&] { utl_File(Name(), static_cast<utl_FileAccess>(access), 0); }),
            "!\"Incorrect file access.\"");
}

TEST_F(utl_FileTest, WithoutTheRightsTheRefusalSaysSo)
{
    PutBytes(Name(), "secret");
    ASSERT_EQ(::chmod(Name().CString(), 0), 0);
    ASSERT_EQ(::chmod(m_Folder.Path().c_str(), 0777), 0);
    const int code = ExitCodeOfForked(
        [&]
        {
            if (::geteuid() == 0 && ::setuid(kNobody) != 0) return 90;
            for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
                if (Thrown<utl_FileException>([&] { utl_File(Name(), access, 0); }) !=
                    Refusal("open", "Permission denied"))
                    return 1;
            const std::string text =
                Thrown<utl_FileException>([&] { utl_File(Name(), utl_FileAccessCreate, 0); });
            return text == Refusal("create", "Permission denied") ? 0 : 2;
        });
    EXPECT_EQ(code, 0);
    ASSERT_EQ(::chmod(Name().CString(), 0600), 0);
    EXPECT_EQ(Stored(), "secret");
}

TEST_F(utl_FileTest, AFileOpenedForReadingRefusesWrites)
{
    PutBytes(Name(), "old");
    utl_File file(Name(), utl_FileAccessRead, 0);
    Write(file, "new");
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Flush(); }), Refusal("write", "Bad file descriptor"));
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Close(); }), Refusal("write", "Bad file descriptor"));
    EXPECT_EQ(Stored(), "old");
}

TEST_F(utl_FileTest, AChildProgramInheritsNoDescriptor)
{
    for (const utl_FileAccess access : {utl_FileAccessCreate, utl_FileAccessCreate, utl_FileAccessUpdate})
    {
        const int lowest = ::dup(0);
        ASSERT_GE(lowest, 0);
        ::close(lowest);
        const utl_File file(Name(), access, 0);
        const int flags = ::fcntl(lowest, F_GETFD);
        ASSERT_GE(flags, 0) << "the file did not take the lowest descriptor";
        EXPECT_NE(flags & FD_CLOEXEC, 0);
    }
}

TEST_F(utl_FileTest, AFileThatIsNotOpenRefusesEverything)
{
    utl_File file;
    EXPECT_FALSE(file.IsOpen());
    char byte = 0;
    EXPECT_THROW(file.Read(&byte, 1), utl_FileException);
    EXPECT_THROW(file.Write("x", 1), utl_FileException);
    EXPECT_THROW(file.FileSize(), utl_FileException);
    EXPECT_THROW(file.Extend(1), utl_FileException);
    file.Flush();
    file.Close();
}

TEST_F(utl_FileTest, AnotherOpenClosesTheFirstFileAndStartsAtZero)
{
    PutBytes(Path("second"), "second");
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "first");
    file.Open(Path("second"), utl_FileAccessRead, 0);
    EXPECT_EQ(Stored(), "first");
    EXPECT_EQ(Read(file, 99), "second");
    file.Close();
    EXPECT_FALSE(file.IsOpen());
}

// --- creating

TEST_F(utl_FileTest, ANewFileIsEmptyAndHasTheRightsThatTheProcessGives)
{
    const mode_t before = ::umask(027);
    {
        const utl_File file(Name(), utl_FileAccessCreate, 0);
        EXPECT_EQ(file.FileSize(), 0);
    }
    ::umask(before);
    EXPECT_EQ(ModeOf(Name()), 0640U);
    EXPECT_EQ(Stored(), "");
}

TEST_F(utl_FileTest, AMissingDirectoryIsToldWithTheFilesName)
{
    EXPECT_EQ(Thrown<utl_FileException>([&] { utl_File(Path("none/data"), utl_FileAccessCreate, 0); }),
              std::string("*** ERROR: Can't create file:\n  ") + Path("none/data").CString() +
                  ", reason:\n  No such file or directory.");
}

TEST_F(utl_FileTest, CreateOverANameLeavesTheOldFileToItsReaders)
{
    PutBytes(Name(), "of the old run");
    utl_File reader(Name(), utl_FileAccessRead, 0);
    utl_File writer(Name(), utl_FileAccessCreate, 0);
    EXPECT_EQ(writer.FileSize(), 0);
    Write(writer, "new");
    writer.Close();
    EXPECT_EQ(Read(reader, 99), "of the old run");
    EXPECT_EQ(Stored(), "new");
}

TEST_F(utl_FileTest, CreateOverANameKeepsItsModeBitsAndLeavesNothingElse)
{
    PutBytes(Name(), "old");
    ASSERT_EQ(::chmod(Name().CString(), 0604), 0);
    const utl_File opened(Name(), utl_FileAccessCreate, 0);
    EXPECT_EQ(ModeOf(Name()), 0604U);
    int names = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(m_Folder.Path())) ++names;
    EXPECT_EQ(names, 1);
}

TEST_F(utl_FileTest, CreateFollowsSymbolicLinksAndKeepsThem)
{
    ASSERT_EQ(::mkdir(Path("elsewhere").CString(), 0777), 0);
    PutBytes(Path("elsewhere/target"), "old");
    ASSERT_EQ(::symlink("elsewhere/target", Name().CString()), 0);
    utl_File reader(Name(), utl_FileAccessRead, 0);
    {
        utl_File file(Name(), utl_FileAccessCreate, 0);
        Write(file, "new");
    }
    EXPECT_TRUE(std::filesystem::is_symlink(Name().CString()));
    EXPECT_EQ(BytesOf(Path("elsewhere/target")), "new");
    EXPECT_EQ(Read(reader, 99), "old");
}

TEST_F(utl_FileTest, CreateThroughALinkToNothingMakesItsTarget)
{
    ASSERT_EQ(::symlink("target", Name().CString()), 0);
    {
        utl_File file(Name(), utl_FileAccessCreate, 0);
        Write(file, "new");
    }
    EXPECT_TRUE(std::filesystem::is_symlink(Name().CString()));
    EXPECT_EQ(BytesOf(Path("target")), "new");
}

TEST_F(utl_FileTest, WhereTheDirectoryTakesNoFileTheOldOneIsEmptiedInPlace)
{
    PutBytes(Name(), "old");
    ASSERT_EQ(::chmod(Name().CString(), 0666), 0);
    ASSERT_EQ(::chmod(m_Folder.Path().c_str(), 0555), 0);
    const ino_t before = NodeOf(Name());
    const int code = ExitCodeOfForked(
        [&]
        {
            if (::geteuid() == 0 && ::setuid(kNobody) != 0) return 90;
            utl_File file(Name(), utl_FileAccessCreate, 0);
            if (file.FileSize() != 0) return 1;
            file.Write("new", 3);
            file.Close();
            return 0;
        });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(Stored(), "new");
    EXPECT_EQ(NodeOf(Name()), before);
    ASSERT_EQ(::chmod(m_Folder.Path().c_str(), 0777), 0);
}

TEST_F(utl_FileTest, ANameOfFullLengthLeavesNoRoomBesideItAndIsEmptiedInPlace)
{
    const cow_String name = Path(std::string(255, 'n').c_str());
    PutBytes(name, "old");
    const ino_t before = NodeOf(name);
    {
        utl_File file(name, utl_FileAccessCreate, 0);
        Write(file, "new");
    }
    EXPECT_EQ(BytesOf(name), "new");
    EXPECT_EQ(NodeOf(name), before);
}

TEST_F(utl_FileTest, ANameLeftBesideByAKilledProcessIsPassedOver)
{
    PutBytes(Name(), "old");
    const cow_String left = Name() + "." + cow_String(static_cast<int>(::getpid())) + ".0";
    PutBytes(left, "left behind");
    const utl_File opened(Name(), utl_FileAccessCreate, 0);
    EXPECT_EQ(Stored(), "");
    EXPECT_EQ(BytesOf(left), "left behind");
}

// --- gathering

TEST_F(utl_FileTest, WritesInSequenceReachTheSystemAsOne)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan;
    for (int i = 0; i < 1000; ++i) Write(file, "0123456789");
    EXPECT_EQ(plan.Writes(), 0);
    file.Flush();
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{0, 10000}));
    EXPECT_EQ(Stored().size(), 10000U);
}

TEST_F(utl_FileTest, WhatIsGatheredCountsInTheSizeWithoutBeingWritten)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan;
    WriteAt(file, 100, "abc");
    EXPECT_EQ(file.FileSize(), 103);
    EXPECT_EQ(plan.Writes(), 0);
}

TEST_F(utl_FileTest, AStepAsideDrains)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "abc");
    file.Seek(3);
    EXPECT_EQ(Stored(), "");
    file.Seek(1);
    EXPECT_EQ(Stored(), "abc");
    Write(file, "B");
    EXPECT_EQ(Stored(), "abc");
    file.Seek(3);
    EXPECT_EQ(Stored(), "aBc");
}

TEST_F(utl_FileTest, AReadDrainsAndSeesWhatWasWritten)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    WriteAt(file, 0, "abcdef");
    file.Seek(0);
    Write(file, "xy");
    EXPECT_EQ(Read(file, 2), "cd");
    EXPECT_EQ(Stored(), "xycdef");
}

TEST_F(utl_FileTest, ExtendFlushAndCloseDrain)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "abc");
    file.Extend(5);
    EXPECT_EQ(Stored(), std::string("abc\0\0", 5));
    Write(file, "d");
    file.Flush();
    EXPECT_EQ(Stored(), std::string("abcd\0", 5));
    Write(file, "e");
    file.Close();
    EXPECT_EQ(Stored(), "abcde");
}

TEST_F(utl_FileTest, TheDestructorDrains)
{
    {
        utl_File file(Name(), utl_FileAccessCreate, 0);
        Write(file, "abc");
    }
    EXPECT_EQ(Stored(), "abc");
}

TEST_F(utl_FileTest, AFullBlockDrainsBeforeTheNextWriteIsGathered)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan;
    const std::string text = Pattern(kBlock - 1);
    Write(file, text);
    Write(file, "y");
    EXPECT_EQ(plan.Writes(), 0);
    Write(file, "z");
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{0, kBlock}));
    file.Flush();
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{0, kBlock}, Transfer{kBlock, 1}));
    EXPECT_EQ(Stored(), text + "yz");
}

TEST_F(utl_FileTest, ABlockfulGoesPastTheBlockBehindWhatWasGathered)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan;
    const std::string text = Pattern(kBlock);
    Write(file, "ab");
    Write(file, text);
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{0, 2}, Transfer{2, kBlock}));
    Write(file, "cd");
    file.Flush();
    EXPECT_EQ(Stored(), "ab" + text + "cd");
}

TEST_F(utl_FileTest, NothingIsWrittenForACountBelowOne)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan;
    EXPECT_EQ(file.Write("abc", 0), 0);
    EXPECT_EQ(file.Write("abc", -1), 0);
    file.Close();
    EXPECT_EQ(plan.Writes(), 0);
}

TEST_F(utl_FileTest, APositionBeyondAllFilesIsRefusedAndTheOldOneStays)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "abc");
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Seek(-1); }), Refusal("seek in", "Invalid argument"));
    Write(file, "d");
    file.Seek(INT64_MAX - 1);
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Write("xy", 2); }), Refusal("write", "File too large"));
    file.Close();
    EXPECT_EQ(Stored(), "abcd");
}

// --- failing writes

TEST_F(utl_FileTest, AFailedWriteStaysGatheredAndIsWrittenLater)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    utl_FaultPlan plan({.failWrite = 1, .error = ENOSPC, .staysBroken = true});
    Write(file, "abc");
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Flush(); }), Refusal("write", "No space left on device"));
    Write(file, "def");
    EXPECT_THROW(file.Flush(), utl_FileException);
    EXPECT_EQ(Stored(), "");
    plan.Repair();
    file.Flush();
    EXPECT_EQ(Stored(), "abcdef");
}

TEST_F(utl_FileTest, OfATornWriteTheRestIsWrittenLater)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan({.failWrite = 2, .mostBytes = 4});
    Write(file, "abcdefghij");
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Flush(); }), Refusal("write", "Input/output error"));
    EXPECT_EQ(Stored(), "abcd");
    Write(file, "kl");
    file.Flush();
    EXPECT_EQ(Stored(), "abcdefghijkl");
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{0, 4}, Transfer{4, 4}, Transfer{8, 4}));
}

TEST_F(utl_FileTest, AStepThatCannotDrainLeavesThePosition)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan({.failWrite = 1});
    Write(file, "abc");
    EXPECT_THROW(file.Seek(0), utl_FileException);
    Write(file, "d");
    file.Close();
    EXPECT_EQ(Stored(), "abcd");
}

TEST_F(utl_FileTest, AWriteThatCannotBeTakenHasNotMoved)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan({.failWrite = 1});
    const std::string text = Pattern(kBlock - 2);
    Write(file, text);
    EXPECT_THROW(file.Write("xyz", 3), utl_FileException);
    Write(file, "12");
    EXPECT_EQ(plan.Writes(), 1);
    file.Close();
    EXPECT_EQ(Stored(), text + "12");
}

TEST_F(utl_FileTest, AFullDiskTakesWhatFitsAndTheRestOnceThereIsRoom)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    utl_FaultPlan plan({.room = 5});
    Write(file, "abcdefgh");
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Flush(); }), Refusal("write", "No space left on device"));
    EXPECT_TRUE(plan.Fired());
    EXPECT_EQ(Stored(), "abcde");
    plan.Repair();
    file.Close();
    EXPECT_EQ(Stored(), "abcdefgh");
}

TEST_F(utl_FileTest, AFileSizeLimitOfTheSystemIsAnOrdinaryRefusal)
{
    const int code = ExitCodeOfForked(
        [&]
        {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{1000, RLIM_INFINITY};
            if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 90;
            utl_File file(Name(), utl_FileAccessCreate, 0);
            file.Write(Pattern(2000).data(), 2000);
            if (Thrown<utl_FileException>([&] { file.Flush(); }) != Refusal("write", "File too large"))
                return 1;
            const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
            if (::setrlimit(RLIMIT_FSIZE, &none) != 0) return 90;
            file.Close();
            return 0;
        });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(Stored(), Pattern(2000));
}

TEST_F(utl_FileTest, ASystemThatTakesNothingWithoutAReasonEndsTheLoop)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    {
        const utl_FaultPlan restoresTheCalls;
        utl_System().write = [](int, const char*, std::size_t, off_t) -> ssize_t { return 0; };
        Write(file, "abc");
        EXPECT_EQ(Thrown<utl_FileException>([&] { file.Flush(); }),
                  Refusal("write", "No space left on device"));
    }
    file.Close();
    EXPECT_EQ(Stored(), "abc");
}

TEST_F(utl_FileTest, InterruptsAndShortTransfersDoNotShow)
{
    const std::string text = Pattern(100000);
    const utl_FaultPlan plan({.mostBytes = 999, .interruptEvery = 3});
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, text);
    file.Extend(100001);
    EXPECT_EQ(ReadAt(file, 0, 100001), text + std::string(1, '\0'));
    file.Extend(10);
    EXPECT_EQ(Stored(), text.substr(0, 10));
}

TEST_F(utl_FileTest, ACloseThatCannotDrainSaysSoAndClosesAllTheSame)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    utl_FaultPlan plan({.failWrite = 1, .staysBroken = true});
    Write(file, "abc");
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Close(); }), Refusal("write", "Input/output error"));
    EXPECT_FALSE(file.IsOpen());
    plan.Repair();
    file.Open(Name(), utl_FileAccessUpdate, 0);
    file.Close();
    EXPECT_EQ(Stored(), "");
}

TEST_F(utl_FileTest, WhatFailsInADestructorIsOneLineOnStandardError)
{
    ::testing::internal::CaptureStderr();
    {
        utl_File file(Name(), utl_FileAccessCreate, 0);
        const utl_FaultPlan plan({.failWrite = 1});
        Write(file, "abc");
        file.~utl_File();
        new (&file) utl_File;
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), std::string("*** ERROR: Can't write file:   ") +
                                                            Name().CString() +
                                                            ", reason:   Input/output error.\n");
}

TEST_F(utl_FileTest, AProcessKilledAtAWriteLeavesWhatItHadDrained)
{
    const int code = ExitCodeOfForked(
        [&]
        {
            utl_File file(Name(), utl_FileAccessCreate, 0);
            const utl_FaultPlan plan({.killAtChange = 3});
            file.Extend(3);
            file.Write("abc", 3);
            file.Flush();
            file.Write("def", 3);
            file.Flush();
            return 0;
        });
    EXPECT_EQ(code, 1000 + SIGKILL);
    EXPECT_EQ(Stored(), "abc");
}

// --- reading

TEST_F(utl_FileTest, AReadIsShortAtTheEndOnly)
{
    PutBytes(Name(), "abcdef");
    utl_File file(Name(), utl_FileAccessRead, 0);
    EXPECT_EQ(Read(file, 4), "abcd");
    EXPECT_EQ(Read(file, 4), "ef");
    EXPECT_EQ(Read(file, 4), "");
    EXPECT_EQ(ReadAt(file, 1000, 4), "");
    EXPECT_EQ(ReadAt(file, 2, 2), "cd");
    char byte = 'x';
    EXPECT_EQ(file.Read(&byte, 0), 0);
    EXPECT_EQ(file.Read(&byte, -1), 0);
    EXPECT_EQ(byte, 'x');
}

TEST_F(utl_FileTest, AReadOfACountBelowOneTouchesNothingThatWasReadAhead)
{
    PutBytes(Name(), Pattern(10000));
    utl_File file(Name(), utl_FileAccessRead, 0);
    for (int i = 0; i < 5; ++i) Read(file, 1000);
    char byte = 'x';
    EXPECT_EQ(file.Read(&byte, -1), 0);
    EXPECT_EQ(Read(file, 1000), Pattern(10000).substr(5000, 1000));
}

TEST_F(utl_FileTest, ALoneReadCostsNoMoreThanItsBytes)
{
    PutBytes(Name(), Pattern(1000000));
    utl_File file(Name(), utl_FileAccessRead, 0);
    const utl_FaultPlan plan;
    ReadAt(file, 500000, 36);
    ReadAt(file, 100, 36);
    ReadAt(file, 700000, 36);
    EXPECT_THAT(plan.ReadLog(), ElementsAre(Transfer{500000, 36}, Transfer{100, 36}, Transfer{700000, 36}));
}

TEST_F(utl_FileTest, ReadingInSequenceReadsAhead)
{
    const std::string text = Pattern(1000000);
    PutBytes(Name(), text);
    utl_File file(Name(), utl_FileAccessRead, 0);
    const utl_FaultPlan plan;
    std::string all;
    for (std::string piece = Read(file, 500); !piece.empty(); piece = Read(file, 500)) all += piece;
    EXPECT_EQ(all, text);
    EXPECT_LT(plan.Reads(), 15);
    EXPECT_THAT(plan.ReadLog()[0], (Transfer{0, 500}));
    for (const Transfer& read : plan.ReadLog()) EXPECT_LE(read.bytes, kBlock);
}

TEST_F(utl_FileTest, ASmallStepBackIsStillReadingInSequence)
{
    const std::string text = Pattern(200000);
    PutBytes(Name(), text);
    utl_File file(Name(), utl_FileAccessRead, 0);
    const utl_FaultPlan plan;
    std::int64_t position = 0;
    for (; position < 150000; position += 2000)
        ASSERT_EQ(ReadAt(file, position, 2048), text.substr(static_cast<std::size_t>(position), 2048));
    EXPECT_LT(plan.Reads(), 12);
}

TEST_F(utl_FileTest, AStepAsideDropsWhatWasReadAhead)
{
    PutBytes(Name(), Pattern(300000));
    utl_File file(Name(), utl_FileAccessRead, 0);
    for (int i = 0; i < 10; ++i) Read(file, 1000);
    utl_File writer(Name(), utl_FileAccessUpdate, 0);
    WriteAt(writer, 12000, "news");
    writer.Flush();
    file.Seek(200000);
    EXPECT_EQ(ReadAt(file, 12000, 4), "news");
}

TEST_F(utl_FileTest, ForgetShowsWhatAnotherProcessHasWrittenSince)
{
    PutBytes(Name(), Pattern(300000));
    utl_File file(Name(), utl_FileAccessRead, 0);
    for (int i = 0; i < 10; ++i) Read(file, 1000);
    utl_File writer(Name(), utl_FileAccessUpdate, 0);
    WriteAt(writer, 10000, "news");
    writer.Flush();
    file.Forget();
    EXPECT_EQ(Read(file, 4), "news");
}

TEST_F(utl_FileTest, AWriteIntoWhatWasReadAheadIsSeenByTheNextRead)
{
    PutBytes(Name(), Pattern(300000));
    utl_File file(Name(), utl_FileAccessUpdate, 0);
    for (int i = 0; i < 10; ++i) Read(file, 1000);
    Write(file, "written");
    EXPECT_EQ(ReadAt(file, 10000, 7), "written");
    EXPECT_EQ(Read(file, 3), Pattern(300000).substr(10007, 3));
}

TEST_F(utl_FileTest, AFailedReadHasNotMoved)
{
    PutBytes(Name(), Pattern(300000));
    utl_File file(Name(), utl_FileAccessRead, 0);
    const utl_FaultPlan plan({.failRead = 1});
    EXPECT_EQ(Thrown<utl_FileException>([&] { Read(file, 10); }), Refusal("read", "Input/output error"));
    EXPECT_EQ(Read(file, 10), Pattern(10));
}

// Every read of the system has its turn to fail, also one whose beginning lay in what was read ahead.
TEST_F(utl_FileTest, AfterAnyFailedReadTheSameReadGivesTheSameBytes)
{
    const std::string text = Pattern(400000);
    PutBytes(Name(), text);
    for (int failAt = 1;; ++failAt)
    {
        utl_File file(Name(), utl_FileAccessRead, 0);
        const utl_FaultPlan plan({.failRead = failAt});
        std::string all;
        int failures = 0;
        while (all.size() < text.size())
        {
            std::string piece;
            const auto read = [&] { piece = Read(file, 1777); };
            if (Thrown<utl_FileException>(read) != "nothing was thrown")
                ++failures;
            else
                ASSERT_FALSE(piece.empty()) << "the end came early after read " << failAt;
            all += piece;
        }
        ASSERT_TRUE(all == text) << "read " << failAt << " failed";
        ASSERT_EQ(failures, plan.Fired() ? 1 : 0);
        if (!plan.Fired()) break;
        ASSERT_LT(failAt, 1000);
    }
}

// --- sizes

TEST_F(utl_FileTest, ExtendSetsTheSizeUpAndDown)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "abc");
    file.Extend(6);
    EXPECT_EQ(file.FileSize(), 6);
    EXPECT_EQ(Stored(), std::string("abc\0\0\0", 6));
    file.Extend(2);
    EXPECT_EQ(file.FileSize(), 2);
    EXPECT_EQ(Stored(), "ab");
    file.Extend(4);
    EXPECT_EQ(Stored(), std::string("ab\0\0", 4));
    file.Extend(0);
    EXPECT_EQ(Stored(), "");
}

TEST_F(utl_FileTest, ExtendToTheSameSizeAsksTheSystemForNothing)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "abc");
    const utl_FaultPlan plan;
    file.Extend(3);
    EXPECT_EQ(plan.Extends(), 0);
    EXPECT_EQ(Stored(), "abc");
}

TEST_F(utl_FileTest, ExtendDropsWhatWasReadAhead)
{
    PutBytes(Name(), Pattern(20000));
    utl_File file(Name(), utl_FileAccessUpdate, 0);
    for (int i = 0; i < 5; ++i) Read(file, 1000);
    file.Extend(5500);
    EXPECT_EQ(Read(file, 1000).size(), 500U);
}

TEST_F(utl_FileTest, GrowthReservesRealBlocks)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan;
    file.Extend(1048576);
    EXPECT_THAT(plan.ExtendLog(), ElementsAre(1048576));
    struct stat status
    {
    };
    ASSERT_EQ(::stat(Name().CString(), &status), 0);
    EXPECT_GE(status.st_blocks * 512, 1048576);
}

TEST_F(utl_FileTest, WithoutReservationTheSizeAloneIsSet)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan({.noReservation = true});
    file.Extend(5);
    EXPECT_EQ(file.FileSize(), 5);
    EXPECT_THAT(plan.ExtendLog(), ElementsAre(5));
}

TEST_F(utl_FileTest, TheLastChangeIsTheOneOfTheSystem)
{
    PutBytes(Name(), "content");
    struct stat status
    {
    };
    ASSERT_EQ(::stat(Name().CString(), &status), 0);
    const utl_File file(Name(), utl_FileAccessRead, 0);
    EXPECT_EQ(file.LastChange(), std::int64_t{status.st_ctim.tv_sec} * 1000000000 + status.st_ctim.tv_nsec);
}

TEST_F(utl_FileTest, WhatIsExpectedNeedNotBeThere)
{
    PutBytes(Name(), "content");
    utl_File file(Name(), utl_FileAccessRead, 0);
    file.Expect(1000000, 1000000);
    char bytes[8] = {};
    EXPECT_EQ(file.Read(bytes, sizeof bytes), 7);
    EXPECT_STREQ(bytes, "content");
}

TEST_F(utl_FileTest, AFullDiskShowsInTheGrowthAndLeavesTheSize)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "abc");
    utl_FaultPlan plan({.room = 1000});
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Extend(1001); }),
              Refusal("extend", "No space left on device"));
    EXPECT_EQ(file.FileSize(), 3);
    plan.Repair();
    file.Extend(1001);
    EXPECT_EQ(file.FileSize(), 1001);
}

TEST_F(utl_FileTest, AGrowthThatGotHalfWayIsTakenBack)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "abc");
    const utl_FaultPlan plan({.failExtend = 1, .error = ENOSPC, .tornAtHalf = true});
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Extend(100003); }),
              Refusal("extend", "No space left on device"));
    EXPECT_EQ(file.FileSize(), 3);
    EXPECT_EQ(Stored(), "abc");
}

TEST_F(utl_FileTest, ARefusedCutIsTold)
{
    utl_File file(Name(), utl_FileAccessCreate, 0);
    Write(file, "abc");
    file.Flush();
    const utl_FaultPlan plan({.failExtend = 1});
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Extend(1); }), Refusal("extend", "Input/output error"));
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.Extend(-1); }), Refusal("extend", "Invalid argument"));
    EXPECT_EQ(Stored(), "abc");
}

// --- random operations against a model

namespace
{
/// A file as a text in memory: what utl_File must look like from above.
struct Model
{
    std::string bytes;
    std::int64_t position = 0;

    std::string Read(int count)
    {
        const auto start = static_cast<std::size_t>(position);
        const std::string read =
            start < bytes.size() ? bytes.substr(start, static_cast<std::size_t>(count)) : std::string();
        position += static_cast<std::int64_t>(read.size());
        return read;
    }
    void Write(const std::string& text)
    {
        if (text.empty()) return; // also beyond the end, where any byte would make the file longer
        const auto start = static_cast<std::size_t>(position);
        if (bytes.size() < start + text.size()) bytes.resize(start + text.size());
        bytes.replace(start, text.size(), text);
        position += static_cast<std::int64_t>(text.size());
    }
};

class RandomUse
{
public:
    RandomUse(utl_File& file, unsigned seed, int largest) : m_File(file), m_Random(seed), m_Largest(largest)
    {
    }

    /// One operation on both; false when the file refused it, and the model stays as it was then.
    bool Step()
    {
        try
        {
            switch (Below(12))
            {
            case 0: Seek(Below(400000)); break;
            case 1: Seek(static_cast<int>(m_Model.position) - Below(2000)); break;
            case 2: SetSize(Below(500000)); break;
            case 3: m_File.Flush(); break;
            case 4: EXPECT_EQ(m_File.FileSize(), static_cast<std::int64_t>(m_Model.bytes.size())); break;
            case 5:
            case 6:
            case 7:
            case 8: Read(Count()); break;
            default: Write(Count()); break;
            }
            return true;
        }
        catch (const utl_FileException&)
        {
            return false;
        }
    }

    const Model& State() const { return m_Model; }
    /// The writes that were taken, those that follow on each other as one.
    const std::vector<Transfer>& Taken() const { return m_Taken; }

private:
    int Below(int bound) { return static_cast<int>(m_Random() % static_cast<unsigned>(bound)); }
    int Count()
    {
        switch (Below(16))
        {
        case 0: return m_Largest;
        case 1: return m_Largest - 1;
        case 2: return Below(m_Largest);
        default: return Below(3000);
        }
    }
    void Seek(int position)
    {
        position = std::max(position, 0);
        m_File.Seek(position);
        m_Model.position = position;
    }
    void SetSize(int size)
    {
        m_File.Extend(size);
        m_Model.bytes.resize(static_cast<std::size_t>(size));
    }
    void Read(int count)
    {
        std::string bytes(static_cast<std::size_t>(count), '?');
        bytes.resize(static_cast<std::size_t>(m_File.Read(bytes.data(), count)));
        EXPECT_TRUE(bytes == m_Model.Read(count)) << "read of " << count;
    }
    void Write(int count)
    {
        std::string text(static_cast<std::size_t>(count), static_cast<char>('a' + Below(26)));
        const std::int64_t start = m_Model.position;
        EXPECT_EQ(m_File.Write(text.data(), count), count);
        m_Model.Write(text);
        if (count == 0) return;
        if (!m_Taken.empty() && m_Taken.back().offset + m_Taken.back().bytes == start)
            m_Taken.back().bytes += count;
        else
            m_Taken.push_back({start, count});
    }

    utl_File& m_File;
    std::mt19937 m_Random;
    int m_Largest;
    Model m_Model;
    std::vector<Transfer> m_Taken;
};

std::vector<Transfer> Joined(const std::vector<Transfer>& transfers)
{
    std::vector<Transfer> joined;
    for (const Transfer& transfer : transfers)
    {
        if (!joined.empty() && joined.back().offset + joined.back().bytes == transfer.offset)
            joined.back().bytes += transfer.bytes;
        else
            joined.push_back(transfer);
    }
    return joined;
}
} // namespace

TEST_F(utl_FileTest, RandomUseLooksLikeAModelAndWritesInTheOrderOfItsCalls)
{
    const unsigned seed = RandomSeed();
    for (unsigned round = 0; round < 8; ++round)
    {
        utl_File file(Name(), utl_FileAccessCreate, 0);
        const utl_FaultPlan plan({.mostBytes = round % 2 == 0 ? 0 : 70001, .interruptEvery = 5});
        RandomUse use(file, seed + round, kBlock + 1);
        for (int step = 0; step < 3000 && !HasFailure(); ++step) ASSERT_TRUE(use.Step()) << "step " << step;
        file.Close();
        ASSERT_TRUE(Stored() == use.State().bytes) << "round " << round;
        ASSERT_EQ(Joined(plan.WriteLog()), use.Taken()) << "round " << round;
    }
}

TEST_F(utl_FileTest, RandomUseOfAFailingFileLosesNothingThatItHasTaken)
{
    const unsigned seed = RandomSeed();
    std::mt19937 random(seed);
    int refused = 0;
    for (unsigned round = 0; round < 40; ++round)
    {
        utl_File file(Name(), utl_FileAccessCreate, 0);
        utl_FaultPlan plan({.failWrite = 1 + static_cast<int>(random() % 60),
                            .failRead = 1 + static_cast<int>(random() % 60),
                            .failExtend = 1 + static_cast<int>(random() % 20),
                            .error = ENOSPC,
                            .tornAtHalf = round % 2 == 0,
                            .staysBroken = round % 2 == 1});
        RandomUse use(file, seed + round, 60000);
        for (int step = 0; step < 500 && !HasFailure(); ++step)
            if (!use.Step()) ++refused;
        plan.Repair();
        for (int step = 0; step < 100 && !HasFailure(); ++step) ASSERT_TRUE(use.Step()) << "step " << step;
        file.Close();
        ASSERT_TRUE(Stored() == use.State().bytes) << "round " << round;
    }
    EXPECT_GT(refused, 100);
}

// --- positioned transfers

TEST_F(utl_FileTest, PositionedTransfersLeaveThePositionAlone)
{
    PutBytes(Name(), "0123456789");
    utl_File file(Name(), utl_FileAccessUpdate, 0);
    EXPECT_EQ(Read(file, 2), "01");
    char bytes[8] = {};
    EXPECT_EQ(file.ReadAt(bytes, 3, 5), 3);
    EXPECT_EQ(std::string(bytes), "567");
    file.WriteAt("ab", 2, 8);
    EXPECT_EQ(Stored(), "01234567ab"); // at once: nothing is gathered
    EXPECT_EQ(Read(file, 3), "234");
}

TEST_F(utl_FileTest, APositionedReadIsShortAtTheEndAndAPositionedWriteMovesIt)
{
    PutBytes(Name(), "0123456789");
    const utl_File file(Name(), utl_FileAccessUpdate, 0);
    char bytes[8] = {};
    EXPECT_EQ(file.ReadAt(bytes, 8, 7), 3);
    EXPECT_EQ(std::string(bytes), "789");
    EXPECT_EQ(file.ReadAt(bytes, 8, 10), 0);
    EXPECT_EQ(file.ReadAt(bytes, 0, 0), 0);
    file.WriteAt("x", 1, 12);
    file.WriteAt("y", 0, 100);
    EXPECT_EQ(Stored(), std::string("0123456789\0\0x", 13));
}

TEST_F(utl_FileTest, PositionedTransfersGoOnUntilAllIsThere)
{
    const utl_File file(Name(), utl_FileAccessCreate, 0);
    const utl_FaultPlan plan({.mostBytes = 2, .interruptEvery = 2});
    file.WriteAt("0123456", 7, 1);
    char bytes[8] = {};
    EXPECT_EQ(file.ReadAt(bytes, 7, 1), 7);
    EXPECT_EQ(std::string(bytes), "0123456");
}

TEST_F(utl_FileTest, WhatTheSystemRefusesAPositionedTransferIsTold)
{
    const utl_File file(Name(), utl_FileAccessCreate, 0);
    char byte = 'x';
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.ReadAt(&byte, 1, -1); }),
              Refusal("read", "Invalid argument"));
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.WriteAt(&byte, 1, -1); }),
              Refusal("write", "Invalid argument"));
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.WriteAt(&byte, 1, INT64_MAX); }),
              Refusal("write", "File too large"));
    const utl_FaultPlan plan({.failWrite = 1, .failRead = 1, .error = EIO});
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.ReadAt(&byte, 1, 0); }),
              Refusal("read", "Input/output error"));
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.WriteAt(&byte, 1, 0); }),
              Refusal("write", "Input/output error"));
}
