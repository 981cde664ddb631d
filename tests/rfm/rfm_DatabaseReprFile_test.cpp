#include "rfm_DatabaseReprFile.h"

#include "rfm.h"
#include "rfm_SpaceRepr.h"
#include "rfm_TestFile.h"
#include "utl_FileException.h"
#include "utl_System.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{
using testing::ElementsAre;

constexpr long long kTime = 0x65432100;
constexpr const char* kNotValid =
    "***ERROR: Database is not valid. This may indicate that the database has been corrupted.";
constexpr const char* kBadStamp =
    "***ERROR: The MARLEK database file is corrupt. If this file was transferred from another machine using "
    "FTP or "
    "equivalent, ensure that the file was copied using the binary mode instead of ASCII mode.";

std::string CorruptText(const rfm_TestFile& file)
{
    return "***ERROR: Unable to procede.  MARLEK database file is corrupt:\n  " + std::string(file.Name());
}

rfm_File OpenFile(const rfm_TestFile& file, utl_FileAccess access)
{
    return rfm_File::Open(file.Name(), access);
}

std::unique_ptr<rfm_DatabaseReprFile> CreateIn(const rfm_TestFile& file, const cow_String& magic = "TEST",
                                               const cow_String& description = "demo", long long time = kTime)
{
    auto database = std::make_unique<rfm_DatabaseReprFile>(OpenFile(file, utl_FileAccessCreate));
    database->Create(magic, description, time);
    return database;
}

std::unique_ptr<rfm_DatabaseReprFile> OpenIn(const rfm_TestFile& file, utl_FileAccess access,
                                             const cow_String& magic = "TEST")
{
    auto database = std::make_unique<rfm_DatabaseReprFile>(OpenFile(file, access));
    database->Open(magic);
    return database;
}

std::string OpenFailure(const rfm_TestFile& file, const cow_String& magic = "TEST",
                        utl_FileAccess access = utl_FileAccessRead)
{
    return rfm_TextOfFailure([&] { OpenIn(file, access, magic); });
}

using Space = std::unique_ptr<rfm_SpaceRepr>;
Space NewSpace(rfm_DatabaseReprFile& database, int quantum = -1) { return Space(database.NewSpace(quantum)); }
Space OpenSpace(rfm_DatabaseReprFile& database, std::uint32_t handle)
{
    return Space(database.OpenSpace(rfm_Handle(handle), -1));
}
void Write(rfm_SpaceRepr& space, const std::string& bytes)
{
    space.Write(bytes.data(), static_cast<int>(bytes.size()));
}
std::string ReadAll(rfm_SpaceRepr& space)
{
    std::string bytes(static_cast<std::size_t>(space.Length().Value()) + 1, '?');
    space.Seek(0);
    bytes.resize(static_cast<std::size_t>(space.Read(bytes.data(), static_cast<int>(bytes.size()))));
    return bytes;
}

std::string Entry(double allocation, double length, double offset, std::uint32_t next = 0)
{
    return rfm_DoubleBytes(allocation) + rfm_DoubleBytes(length) + rfm_DoubleBytes(offset) +
           rfm_IntBytes(next);
}
std::size_t EntryPlace(std::uint32_t slot) { return 1024 + 28 * std::size_t{slot}; }

// A process that ends without closing anything, as a killed one does.
void InAKilledProcess(const std::function<void()>& steps)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        int result = 0;
        try
        {
            steps();
        }
        catch (const std::exception&)
        {
            result = 1;
        }
        ::_exit(result);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
}

// Stands between the library and the operating system, and puts it back at its end.
class SystemHook
{
public:
    SystemHook() : m_Saved(utl_System()) { s_Hook = this; }
    ~SystemHook()
    {
        utl_System() = m_Saved;
        s_Hook = nullptr;
    }
    SystemHook(const SystemHook&) = delete;
    SystemHook& operator=(const SystemHook&) = delete;

    // The calls that change the file, as "w OFFSET+BYTES" and "size N".
    void Record()
    {
        utl_System().write = [](int descriptor, const char* buffer, size_t bytes, off_t offset)
        {
            s_Hook->m_Calls.push_back("w " + std::to_string(offset) + "+" + std::to_string(bytes));
            return s_Hook->m_Saved.write(descriptor, buffer, bytes, offset);
        };
        utl_System().allocate = [](int descriptor, off_t offset, off_t bytes)
        {
            s_Hook->m_Calls.push_back("size " + std::to_string(offset + bytes));
            return s_Hook->m_Saved.allocate(descriptor, offset, bytes);
        };
        utl_System().truncate = [](int descriptor, off_t size)
        {
            s_Hook->m_Calls.push_back("size " + std::to_string(size));
            return s_Hook->m_Saved.truncate(descriptor, size);
        };
    }
    std::vector<std::string> TakeCalls() { return std::exchange(m_Calls, {}); }

    // Runs `step` behind each read that starts at `offset`; the step may change what was read.
    void BehindReadAt(off_t offset, std::function<void(char* bytes)> step)
    {
        m_Offset = offset;
        m_Step = std::move(step);
        utl_System().read = [](int descriptor, char* buffer, size_t bytes, off_t at)
        {
            const ssize_t moved = s_Hook->m_Saved.read(descriptor, buffer, bytes, at);
            if (at == s_Hook->m_Offset) s_Hook->m_Step(buffer);
            return moved;
        };
    }
    int reads = 0;
    void CountReads()
    {
        utl_System().read = [](int descriptor, char* buffer, size_t bytes, off_t at)
        {
            ++s_Hook->reads;
            return s_Hook->m_Saved.read(descriptor, buffer, bytes, at);
        };
    }

private:
    static SystemHook* s_Hook;
    utl_SystemCalls m_Saved;
    std::vector<std::string> m_Calls;
    off_t m_Offset = 0;
    std::function<void(char*)> m_Step;
};
SystemHook* SystemHook::s_Hook = nullptr;
} // namespace

// ---- Bytes ----

TEST(rfm_DatabaseReprFile, ANewDatabaseClosedAtOnceHasExactlyTheseBytes)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();

    std::string expected(15368, '\0');
    expected.replace(0, 8, "TVNRTEST");
    expected.replace(8, 4, std::string("\x0C\0\0\0", 4));
    expected.replace(12, 4, "demo");
    expected.replace(500, 12, std::string("\0\0\0\0\0\0\0\0\0\x04\xCE\x40", 12));
    expected.replace(512, 4, std::string("\x01\0\0\0", 4));
    expected.replace(516, 4, std::string("\x00\x21\x43\x65", 4));
    // Entry 1, the string pool: allocation 4, length 4, offset 15360.
    expected.replace(1052, 24,
                     std::string("\0\0\0\0\0\0\x10\x40\0\0\0\0\0\0\x10\x40\0\0\0\0\0\0\xCE\x40", 24));
    // Entry 2, taken and dropped: offset 1 and nothing else.
    expected.replace(1096, 8, std::string("\0\0\0\0\0\0\xF0\x3F", 8));
    // Entry 3, the pool of layouts: 4, 4, 15364.
    expected.replace(1108, 24,
                     std::string("\0\0\0\0\0\0\x10\x40\0\0\0\0\0\0\x10\x40\0\0\0\0\0\x02\xCE\x40", 24));
    expected.replace(15360, 8, std::string("\xEE\xBB\xFF\xAA\xBB\xEB\xAA\xFA", 8));

    const std::string bytes = file.Bytes();
    ASSERT_EQ(bytes.size(), 15368U);
    for (std::size_t i = 0; i < bytes.size(); ++i) ASSERT_EQ(bytes[i], expected[i]) << "at offset " << i;
}

TEST(rfm_DatabaseReprFile, ADatabaseNeverFlushedIsAMebibyteAndNotValid)
{
    const rfm_TestFile file;
    InAKilledProcess(
        [&]
        {
            static_cast<void>(CreateIn(file).release()); // the process ends without a flush
        });
    EXPECT_EQ(file.Size(), 1048576U);
    EXPECT_EQ(OpenFailure(file), kNotValid);
}

TEST(rfm_DatabaseReprFile, TheMagicTakesAtMostFourCharacters)
{
    const rfm_TestFile file;
    CreateIn(file, "LONGER")->Close();
    EXPECT_EQ(file.Bytes(0, 12), std::string("TVNRLONG\x0C\0\0\0", 12));
    CreateIn(file, "AB")->Close();
    EXPECT_EQ(file.Bytes(0, 8), std::string("TVNRAB\0\0", 8));
    CreateIn(file, "")->Close();
    EXPECT_EQ(file.Bytes(0, 8), std::string("TVNR\0\0\0\0", 8));
}

TEST(rfm_DatabaseReprFile, ADescriptionIsCutAt484BytesAndThenHasNoTerminator)
{
    const rfm_TestFile file;
    const std::string text = std::string(483, 'd') + "Xcut off";
    CreateIn(file, "TEST", text.c_str())->Close();
    EXPECT_EQ(file.Bytes(12, 488), text.substr(0, 484) + std::string(4, '\0'));
    EXPECT_EQ(OpenIn(file, utl_FileAccessRead)->Description(), cow_String(text.substr(0, 484)));
}

TEST(rfm_DatabaseReprFile, ADescriptionEndsAtItsFirstNulAndIsReadAtEachCall)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    const auto database = OpenIn(file, utl_FileAccessRead);
    EXPECT_EQ(database->Description(), cow_String("demo"));
    file.Patch(12, std::string("ab\0cd", 5));
    EXPECT_EQ(database->Description(), cow_String("ab"));
    file.Patch(12, std::string("\0", 1));
    EXPECT_EQ(database->Description(), cow_String(""));
}

TEST(rfm_DatabaseReprFile, TheReservedWordIsZeroAgainAfterEachClose)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    file.Patch(496, rfm_IntBytes(0x77777777));
    OpenIn(file, utl_FileAccessRead)->Close();
    EXPECT_EQ(file.Bytes(496, 4), rfm_IntBytes(0x77777777)) << "a reader writes nothing";
    OpenIn(file, utl_FileAccessUpdate)->Close();
    EXPECT_EQ(file.Bytes(496, 4), rfm_IntBytes(0));
}

TEST(rfm_DatabaseReprFile, TheStampHoldsTheSizeAfterClose)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        Write(*NewSpace(*database), std::string(1500000, 'x'));
    }
    ASSERT_EQ(file.Size(), 15368U + 1500000U);
    EXPECT_EQ(file.Bytes(500, 12), std::string(4, '\0') + rfm_DoubleBytes(1515368));
}

TEST(rfm_DatabaseReprFile, AnUnflushedFileThatGrewIsStampedWithItsSteps)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    database->Flush();
    EXPECT_EQ(file.Bytes(500, 12), std::string(12, '\0')) << "the header wipes the first stamp";
    Write(*NewSpace(*database), std::string(1048576, 'x'));
    database->Flush();
    EXPECT_EQ(file.Size(), 2097152U);
    EXPECT_EQ(file.Bytes(500, 12), std::string(4, '\0') + rfm_DoubleBytes(2097152));
}

// ---- Order of writes ----

TEST(rfm_DatabaseReprFile, CreateMakesRoomThenTheHeader)
{
    const rfm_TestFile file;
    SystemHook hook;
    hook.Record();
    const auto database = CreateIn(file);
    database->Flush();
    // The stamp says nothing, the room is there, the stamp says it; then the header wipes the stamp. The pools' magics
    // lie side by side. Last the table, and behind it the count.
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 500+12", "size 1048576", "w 500+12", "w 0+1024", "w 0+520",
                                              "w 15360+8", "w 1024+14336", "w 512+4"));
}

TEST(rfm_DatabaseReprFile, AFlushWritesDataThenTheTableThenTheCount)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    database->Flush();
    const Space space = NewSpace(*database);
    SystemHook hook;
    hook.Record();
    Write(*space, "data");
    database->Flush();
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 15368+4", "w 1136+28", "w 512+4"))
        << "of the table the one entry that changed";
    database->Flush();
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 512+4")) << "clean blocks are not written";
    space->Seek(0);
    Write(*space, "DATA");
    database->Flush();
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 15368+4", "w 512+4")) << "no length changed";
}

TEST(rfm_DatabaseReprFile, OnlyDirtyBlocksAreWrittenInTheOrderOfTheList)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    std::vector<Space> spaces;
    spaces.reserve(600);
    for (int i = 0; i < 600; ++i) spaces.push_back(NewSpace(*database));
    database->Flush();
    SystemHook hook;
    hook.Record();
    Write(*spaces[599], "last");
    database->Flush();
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 29704+4", "w 17944+28", "w 512+4"));
    Write(*spaces[598], "b1");
    Write(*spaces[0], "b0");
    database->Flush();
    EXPECT_THAT(hook.TakeCalls(),
                ElementsAre("w 29708+2", "w 29712+2", "w 1136+28", "w 17916+28", "w 512+4"));
}

TEST(rfm_DatabaseReprFile, AnEntryThatMarkedNothingGoesOutWithItsBlock)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    const Space first = NewSpace(*database);
    Write(*first, "a");
    database->Flush();
    const Space untouched = NewSpace(*database);
    SystemHook hook;
    hook.Record();
    database->Flush();
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 512+4"));
    Write(*first, "b");
    database->Flush();
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 15369+1", "w 1136+56", "w 512+4"));
    EXPECT_EQ(file.Bytes().substr(1164 + 16, 8), rfm_DoubleBytes(1)) << "the mark of a space without extent";
}

TEST(rfm_DatabaseReprFile, CloseWipesTheStampBeforeTheSizeChangesAndWritesItLast)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    database->Flush();
    SystemHook hook;
    hook.Record();
    database->Close();
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 496+4", "w 512+4", "w 500+12", "size 15368", "w 500+12"));
}

TEST(rfm_DatabaseReprFile, GrowthWipesTheStampBeforeTheSizeChanges)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    database->Flush();
    const Space space = NewSpace(*database);
    SystemHook hook;
    hook.Record();
    space->Extend(1048576);
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 500+12", "size 2097152", "w 500+12"));
    database->Flush();
    EXPECT_THAT(hook.TakeCalls(), ElementsAre("w 1136+28", "w 512+4"));
}

TEST(rfm_DatabaseReprFile, AReaderWritesNothingWhateverItDoes)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    const std::string before = file.Bytes();
    SystemHook hook;
    hook.Record();
    {
        const auto database = OpenIn(file, utl_FileAccessRead);
        EXPECT_TRUE(database->ReadOnly());
        database->Flush();
        EXPECT_EQ(database->GetFlushCount(), 1);
        database->Snap();
        database->ReaderSemaphoreSet();
        database->ReaderSemaphoreClear();
        database->GetDBStatistics();
    }
    EXPECT_TRUE(hook.TakeCalls().empty());
    EXPECT_EQ(file.Bytes(), before);
}

// ---- Open ----

TEST(rfm_DatabaseReprFile, TheOldFormatIsRefused)
{
    const rfm_TestFile file;
    file.Write("TVNDFMxy and more");
    EXPECT_EQ(OpenFailure(file),
              "***ERROR: \"" + std::string(file.Name()) +
                  "\"\nis an old format MARLEK database file.\ndatabase files generated with an "
                  "MARLEK analysis \nversion prior to 6.1-1 cannot be opened with \nthe current "
                  "version of MARLEK/Viewer. \nPlease rerun the analysis using the current "
                  "\nMARLEK analysis version.");
    EXPECT_FALSE(rfm_DatabaseReprFile::IsMagic(OpenFile(file, utl_FileAccessRead), ""));
}

TEST(rfm_DatabaseReprFile, AFileWithoutTheFirstFourBytesIsNoDatabase)
{
    const rfm_TestFile file;
    const std::string text =
        "***ERROR: \"" + std::string(file.Name()) + "\"  is not an MARLEK database file.";
    for (const std::string_view bytes :
         {"", "T", "TVN", "TVND", "TVNDF", "tvnrTEST", "VNRTTEST", " TVNRTEST"})
    {
        file.Write(bytes);
        EXPECT_EQ(OpenFailure(file), text) << bytes;
    }
}

TEST(rfm_DatabaseReprFile, AnotherApplicationsMagicIsRefused)
{
    const rfm_TestFile file;
    const std::string text =
        "***ERROR: Incorrect magic number in file: \"" + std::string(file.Name()) + "\"  .";
    CreateIn(file, "ABC")->Close();
    for (const char* const other : {"A", "AB", "ABD", "ABCD", "abc", "ABCDE"})
        EXPECT_EQ(OpenFailure(file, other), text) << other;
    EXPECT_NO_THROW(OpenIn(file, utl_FileAccessRead, "ABC"));
    EXPECT_NO_THROW(OpenIn(file, utl_FileAccessRead, "")) << "an empty one accepts any";
    CreateIn(file, "")->Close();
    EXPECT_EQ(OpenFailure(file, "A"), text);
    EXPECT_NO_THROW(OpenIn(file, utl_FileAccessRead, ""));
}

TEST(rfm_DatabaseReprFile, OfALongerExpectedMagicFourCharactersCount)
{
    const rfm_TestFile file;
    CreateIn(file, "TEST")->Close();
    EXPECT_NO_THROW(OpenIn(file, utl_FileAccessRead, "TESTAMENT"));
    EXPECT_FALSE(OpenFailure(file, "TESLAMENT").empty());
}

TEST(rfm_DatabaseReprFile, VersionsBelow11AreRefusedAndThereIsNoUpperLimit)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    for (const int version : {10, 0, -1, INT_MIN})
    {
        file.Patch(8, rfm_IntBytes(static_cast<std::uint32_t>(version)));
        EXPECT_EQ(OpenFailure(file), "***ERROR: Wrong MARLEK database file version, " +
                                         std::to_string(version) + ";  Expected version 12.");
    }
    for (const std::uint32_t version : {11U, 12U, 13U, 0x7FFFFFFFU})
    {
        file.Patch(8, rfm_IntBytes(version));
        EXPECT_NO_THROW(OpenIn(file, utl_FileAccessRead)) << version;
    }
}

TEST(rfm_DatabaseReprFile, AFileOfAnotherSizeThanItsStampIsRefused)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    const std::string sound = file.Bytes();
    file.Write(sound + "\n");
    EXPECT_EQ(OpenFailure(file), kBadStamp);
    file.Write(sound.substr(0, sound.size() - 1));
    EXPECT_EQ(OpenFailure(file), kBadStamp);
}

TEST(rfm_DatabaseReprFile, PoolsThatDontStartWithTheirMagicsAreRefused)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    file.Patch(15364, std::string(4, '\0'));
    EXPECT_EQ(OpenFailure(file), "***ERROR: Metadata table object is not where it belongs.");
    file.Patch(15360, std::string(4, '\0'));
    EXPECT_EQ(OpenFailure(file), "***ERROR: String space object is not where it belongs.");
    file.Patch(15360, std::string("\xEE\xBB\xFF\xAA\xBB\xEB\xAA\xFA", 8));
    EXPECT_NO_THROW(OpenIn(file, utl_FileAccessRead));
}

TEST(rfm_DatabaseReprFile, APoolWithoutHandleOrContentIsRefused)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    file.Patch(EntryPlace(3), Entry(0, 0, 1));
    EXPECT_EQ(OpenFailure(file), "***ERROR: Metadata table object is not where it belongs.");
    file.Patch(EntryPlace(3), Entry(0, 0, 0));
    EXPECT_EQ(OpenFailure(file), kNotValid);
    file.Patch(EntryPlace(1), Entry(0, 0, 1));
    EXPECT_EQ(OpenFailure(file), "***ERROR: String space object is not where it belongs.");
    file.Patch(EntryPlace(1), Entry(4, 3, 15360));
    EXPECT_EQ(OpenFailure(file), "***ERROR: String space object is not where it belongs.");
}

TEST(rfm_DatabaseReprFile, AFailedOpenChangesNothingAndLeavesNoTrace)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    const std::string sound = file.Bytes();
    const rfm_File kept = OpenFile(file, utl_FileAccessUpdate);
    file.Patch(15364, std::string(4, '\0'));
    const std::string damaged = file.Bytes();
    for (const char* const magic : {"TEST", "NONE"})
    {
        EXPECT_FALSE(OpenFailure(file, magic, utl_FileAccessUpdate).empty());
        EXPECT_EQ(file.Bytes(), damaged);
    }
    file.Write(sound);
    rfm_DatabaseReprFile database(kept);
    EXPECT_NO_THROW(database.Open("TEST")) << "the same file may be opened again";
}

// ---- What can be asked without opening ----

TEST(rfm_DatabaseReprFile, IsMagicComparesAsOpenDoesAndNeverThrows)
{
    const rfm_TestFile file;
    const auto isMagic = [&](const cow_String& magic)
    { return rfm_DatabaseReprFile::IsMagic(OpenFile(file, utl_FileAccessRead), magic); };
    CreateIn(file, "ABC")->Close();
    EXPECT_TRUE(isMagic(""));
    EXPECT_TRUE(isMagic("ABC"));
    EXPECT_FALSE(isMagic("AB"));
    EXPECT_FALSE(isMagic("ABCD"));
    CreateIn(file, "TEST")->Close();
    EXPECT_TRUE(isMagic("TESTING"));
    file.Write("nonsense and more");
    EXPECT_FALSE(isMagic(""));
    file.Write("TVNDFM and more");
    EXPECT_FALSE(isMagic(""));
}

TEST(rfm_DatabaseReprFile, AFileBelowEightBytesHasNoMagic)
{
    const rfm_TestFile file;
    const std::string bytes("TVNR\0\0\0\0", 8);
    for (std::size_t size = 0; size < 8; ++size)
    {
        file.Write(bytes.substr(0, size));
        EXPECT_FALSE(rfm_DatabaseReprFile::IsMagic(OpenFile(file, utl_FileAccessRead), "")) << size;
    }
    file.Write(bytes);
    EXPECT_TRUE(rfm_DatabaseReprFile::IsMagic(OpenFile(file, utl_FileAccessRead), ""));
}

TEST(rfm_DatabaseReprFile, TheCreationTimeIsCutTo32BitsAndSignExtended)
{
    const rfm_TestFile file;
    const auto stored = [&](long long time)
    {
        CreateIn(file, "TEST", "demo", time)->Close();
        return rfm_DatabaseReprFile::GetCreationTime(OpenFile(file, utl_FileAccessRead));
    };
    EXPECT_EQ(stored(0x65432100), 0x65432100);
    EXPECT_EQ(stored(0x123456789LL), 0x23456789);
    EXPECT_EQ(stored(0x80000000LL), -2147483648LL);
    EXPECT_EQ(stored(-5), -5);
    EXPECT_EQ(stored(0), 0);
}

TEST(rfm_DatabaseReprFile, AFileOfVersion11HasNoCreationTime)
{
    const rfm_TestFile file;
    const auto time = [&]
    { return rfm_DatabaseReprFile::GetCreationTime(OpenFile(file, utl_FileAccessRead)); };
    CreateIn(file)->Close();
    file.Patch(8, rfm_IntBytes(11));
    EXPECT_EQ(time(), 0);
    EXPECT_NO_THROW(OpenIn(file, utl_FileAccessRead));
    file.Patch(8, rfm_IntBytes(13));
    EXPECT_EQ(time(), kTime);
}

TEST(rfm_DatabaseReprFile, OfAShortFileTheCreationTimeIsZeroWhereBytesAreMissing)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    const std::string bytes = file.Bytes();
    for (const std::size_t size : {0U, 8U, 11U, 12U, 516U})
    {
        file.Write(bytes.substr(0, size));
        EXPECT_EQ(rfm_DatabaseReprFile::GetCreationTime(OpenFile(file, utl_FileAccessRead)), 0) << size;
    }
    file.Write(bytes.substr(0, 518));
    EXPECT_EQ(rfm_DatabaseReprFile::GetCreationTime(OpenFile(file, utl_FileAccessRead)), 0x2100);
}

TEST(rfm_DatabaseReprFile, TheCreationTimeCanBeSetInAnyVersionButNotByAReader)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    file.Patch(8, rfm_IntBytes(11));
    {
        const auto database = OpenIn(file, utl_FileAccessUpdate);
        database->SetCreationTime(0x711223344LL);
    }
    EXPECT_EQ(file.Bytes(516, 4), std::string("\x44\x33\x22\x11"));
    const auto reader = OpenIn(file, utl_FileAccessRead);
    EXPECT_THROW(reader->SetCreationTime(1), rfm_FileReadOnlyExc);
}

// ---- Flush counts ----

TEST(rfm_DatabaseReprFile, NFlushesAndACloseGiveNPlusOne)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        EXPECT_EQ(database->GetFlushCount(), 0);
        for (int i = 1; i <= 5; ++i)
        {
            database->Flush();
            EXPECT_EQ(database->GetFlushCount(), i);
            EXPECT_EQ(file.Bytes(512, 4), rfm_IntBytes(static_cast<std::uint32_t>(i)));
        }
    }
    EXPECT_EQ(file.Bytes(512, 4), rfm_IntBytes(6));
    {
        const auto database = OpenIn(file, utl_FileAccessUpdate);
        EXPECT_EQ(database->GetFlushCount(), 6) << "the whole life of the file counts";
        database->Flush();
    }
    EXPECT_EQ(file.Bytes(512, 4), rfm_IntBytes(8));
    EXPECT_EQ(OpenIn(file, utl_FileAccessRead)->GetFlushCount(), 8);
    EXPECT_EQ(file.Bytes(512, 4), rfm_IntBytes(8)) << "a reader's close is no flush";
}

TEST(rfm_DatabaseReprFile, TheFlushCountWrapsAsItsBitsDo)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    file.Patch(512, rfm_IntBytes(0x7FFFFFFF));
    const auto database = OpenIn(file, utl_FileAccessUpdate);
    database->Flush();
    EXPECT_EQ(database->GetFlushCount(), INT_MIN);
    EXPECT_EQ(file.Bytes(512, 4), rfm_IntBytes(0x80000000));
}

TEST(rfm_DatabaseReprFile, AnUnclosedFileOpensAtItsLastFlush)
{
    const rfm_TestFile file;
    InAKilledProcess(
        [&]
        {
            auto database = CreateIn(file);
            const Space space = NewSpace(*database);
            Write(*space, "kept");
            database->Flush();
            Write(*space, "lost");
            Write(*NewSpace(*database), "lost too");
            static_cast<void>(database.release()); // the process ends without a close
        });
    EXPECT_EQ(file.Size(), 1048576U);
    const auto reader = OpenIn(file, utl_FileAccessRead);
    EXPECT_EQ(reader->GetFlushCount(), 1);
    EXPECT_EQ(ReadAll(*OpenSpace(*reader, 4)), "kept");
    EXPECT_FALSE(reader->IsValidHandle(5));
}

TEST(rfm_DatabaseReprFile, AnUnclosedFileOpenedForUpdateKeepsItsTailAsAHole)
{
    const rfm_TestFile file;
    InAKilledProcess(
        [&]
        {
            auto database = CreateIn(file);
            database->Flush();
            static_cast<void>(database.release()); // the process ends without a close
        });
    {
        const auto database = OpenIn(file, utl_FileAccessUpdate);
        Write(*NewSpace(*database), "behind the hole");
        EXPECT_EQ(database->EntryOf(4).offset, 1048576);
    }
    EXPECT_EQ(file.Size(), 1048576U + 16U);
    EXPECT_EQ(ReadAll(*OpenSpace(*OpenIn(file, utl_FileAccessRead), 4)), "behind the hole");
}

// ---- Handles ----

TEST(rfm_DatabaseReprFile, ANewDatabaseHasTheThreeReservedHandles)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    EXPECT_TRUE(database->IsValidHandle(1));
    EXPECT_TRUE(database->IsValidHandle(2));
    EXPECT_TRUE(database->IsValidHandle(3));
    EXPECT_FALSE(database->IsValidHandle(4));
    EXPECT_EQ(database->EntryOf(2).offset, 1);
    EXPECT_EQ(database->RootTableHandle(), rfm_Handle(4)) << "whether or not it is there";
    EXPECT_EQ(database->RootTableHandle2(), rfm_Handle(5));
    EXPECT_EQ(NewSpace(*database)->Handle(), rfm_Handle(4));
    EXPECT_EQ(NewSpace(*database)->Handle(), rfm_Handle(5));
}

TEST(rfm_DatabaseReprFile, BehindTheReservedThree508SpacesFillTheFirstBlockAndTheNextHandleIs513)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        for (std::uint32_t handle = 4; handle <= 511; ++handle)
            ASSERT_EQ(NewSpace(*database)->Handle(), rfm_Handle(handle));
        EXPECT_EQ(database->FileLength(), 15368);
        const Space next = NewSpace(*database);
        EXPECT_EQ(next->Handle(), rfm_Handle(513));
        EXPECT_EQ(database->FileLength(), 15368 + 14336) << "the block takes its place where the file ends";
        Write(*next, "next");
    }
    EXPECT_EQ(file.Bytes(EntryPlace(0), 28), Entry(0, 0, 15368, 0x200));
    EXPECT_EQ(file.Bytes(EntryPlace(511), 28), Entry(0, 0, 1));
    EXPECT_EQ(file.Bytes(15368, 28), Entry(0, 0, 0, 0));
    EXPECT_EQ(file.Bytes(15368 + 28, 28), Entry(4, 4, 15368 + 14336));
    const auto reader = OpenIn(file, utl_FileAccessRead);
    EXPECT_EQ(ReadAll(*OpenSpace(*reader, 513)), "next");
    EXPECT_FALSE(reader->IsValidHandle(512));
    EXPECT_FALSE(reader->IsValidHandle(514));
}

TEST(rfm_DatabaseReprFile, AFullBlockThatWasFlushedIsWrittenAgainWithItsLinkToTheNext)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        for (int i = 0; i < 508; ++i) NewSpace(*database);
        database->Flush();
        Write(*NewSpace(*database), "next");
    }
    EXPECT_EQ(ReadAll(*OpenSpace(*OpenIn(file, utl_FileAccessRead), 513)), "next");
}

TEST(rfm_DatabaseReprFile, AChainThatGoesOnInAnotherBlockIsStoredInBoth)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        const Space space = NewSpace(*database);
        Write(*space, "four");
        for (int i = 0; i < 508; ++i) Write(*NewSpace(*database), "xxxx");
        database->Flush();
        Write(*space, " and more");
    }
    EXPECT_EQ(ReadAll(*OpenSpace(*OpenIn(file, utl_FileAccessRead), 4)), "four and more");
}

TEST(rfm_DatabaseReprFile, ASpaceMadeAfterAFlushAndNeverWrittenLeavesNoTrace)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        database->Flush();
        EXPECT_EQ(NewSpace(*database)->Handle(), rfm_Handle(4));
    }
    EXPECT_EQ(file.Bytes(EntryPlace(4), 28), std::string(28, '\0'));
    const auto database = OpenIn(file, utl_FileAccessUpdate);
    EXPECT_FALSE(database->IsValidHandle(4));
    EXPECT_EQ(NewSpace(*database)->Handle(), rfm_Handle(4)) << "the handle is given out again";
}

TEST(rfm_DatabaseReprFile, ANeverWrittenSpaceIsStoredWhenSomethingElseDirtiesItsBlock)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        database->Flush();
        const Space unwritten = NewSpace(*database);
        Write(*NewSpace(*database), "five");
    }
    EXPECT_EQ(file.Bytes(EntryPlace(4), 56), Entry(0, 0, 1) + Entry(4, 4, 15368));
}

TEST(rfm_DatabaseReprFile, TheLookupOfAHandleChecksBlockAndSlot)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    EXPECT_EQ(database->EntryOf(0).offset, 0) << "slot 0 is given without complaint";
    for (const std::uint32_t handle : {4U, 511U, 512U, 513U, 0x80000001U, 0xFFFFFFFFU})
        EXPECT_EQ(rfm_TextOfFailure([&] { database->EntryOf(handle); }), CorruptText(file)) << handle;
}

TEST(rfm_DatabaseReprFile, AFileWithTenThousandObjects)
{
    constexpr int kObjects = 10000;
    const rfm_TestFile file;
    std::vector<rfm_Handle> handles;
    handles.reserve(kObjects);
    {
        const auto database = CreateIn(file);
        for (int i = 0; i < kObjects; ++i)
        {
            const Space space = NewSpace(*database);
            space->WriteInt(i * 7);
            handles.push_back(space->Handle());
        }
    }
    const auto reader = OpenIn(file, utl_FileAccessRead);
    for (int i = 0; i < kObjects; ++i)
    {
        const Space space(reader->OpenSpace(handles[static_cast<std::size_t>(i)], -1));
        ASSERT_EQ(space->ReadInt(), i * 7);
        ASSERT_EQ(space->Length(), 4);
    }
    // 10003 entries at 511 to a block.
    EXPECT_EQ(reader->GetDBStatistics().ConstGet(1),
              cow_String("Total Linkage Usage (bytes)=              286720"));
    EXPECT_EQ(file.Size(), 1024U + 20U * 14336U + 8U + 4U * kObjects);
}

// ---- Statistics and reports ----

TEST(rfm_DatabaseReprFile, TheStatisticsOfAnEmptyDatabase)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    const auto reader = OpenIn(file, utl_FileAccessRead);
    const cow_1DArrayList<cow_String> lines = reader->GetDBStatistics();
    ASSERT_EQ(lines.Count(), 6);
    EXPECT_EQ(lines.ConstGet(0), cow_String("Block 0 Size (bytes)=1024"));
    EXPECT_EQ(lines.ConstGet(1), cow_String("Total Linkage Usage (bytes)=               14336"));
    EXPECT_EQ(lines.ConstGet(2), cow_String("Metadata Pool Size (bytes)=                   4"));
    EXPECT_EQ(lines.ConstGet(3), cow_String("String Pool Size (bytes)=                   4"));
    EXPECT_EQ(lines.ConstGet(4), cow_String("String Pool Count (number of strings)=0"));
    EXPECT_EQ(lines.ConstGet(5), cow_String("String Pool Linkage_Count=1"));
}

TEST(rfm_DatabaseReprFile, StatisticsOfStringsCountThePendingOnes)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    const Space space = NewSpace(*database);
    space->WriteString("abcde"); // a record of 4 + 5, rounded up to 12
    space->WriteString("");      // a record of 4
    space->WriteString("abcde");
    const cow_1DArrayList<cow_String> lines = database->GetDBStatistics();
    EXPECT_EQ(lines.ConstGet(3), cow_String("String Pool Size (bytes)=                  20"));
    EXPECT_EQ(lines.ConstGet(4), cow_String("String Pool Count (number of strings)=2"));
    database->Flush();
    EXPECT_EQ(database->GetDBStatistics().ConstGet(5), cow_String("String Pool Linkage_Count=2"))
        << "the other space lies behind the pool's first extent";
}

TEST(rfm_DatabaseReprFile, ObjectStatisticsCountTheEntriesOfTheChain)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    const Space a = NewSpace(*database);
    const Space b = NewSpace(*database);
    for (int i = 0; i < 3; ++i)
    {
        Write(*a, "aaaa");
        Write(*b, "bbbb");
    }
    const auto line = [&](std::uint32_t handle)
    {
        const cow_1DArrayList<cow_String> lines = database->GetObjStatistics(rfm_Handle(handle));
        return lines.Count() == 1 ? std::string(lines.ConstGet(0).CString()) : std::to_string(lines.Count());
    };
    EXPECT_EQ(line(1), "Linkage_Count=1");
    EXPECT_EQ(line(4), "Linkage_Count=3");
    EXPECT_EQ(line(2), "Linkage_Count=1");
    EXPECT_EQ(line(0), "0") << "no line for a handle that is none";
    EXPECT_EQ(line(512), "0");
    EXPECT_EQ(line(4000), "0");
}

TEST(rfm_DatabaseReprFile, TheLocationReportNamesTheHeadAndThePlaceInTheObject)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    const Space a = NewSpace(*database, 8);
    const Space b = NewSpace(*database, 8);
    Write(*a, "aaaaaa");  // 15368, 6 of 8
    Write(*b, "bbbbbbb"); // 15376, 7 of 8
    Write(*a, "AAAA");    // 2 more at 15374, 2 at 15384
    const auto report = [&](std::int64_t offset)
    { return std::string(database->GetObjectLocationReport(offset).CString()); };
    EXPECT_EQ(report(15360), "Object: 00000001 - Offset:                    0");
    EXPECT_EQ(report(15367), "Object: 00000003 - Offset:                    3");
    EXPECT_EQ(report(15368), "Object: 00000004 - Offset:                    0");
    EXPECT_EQ(report(15375), "Object: 00000004 - Offset:                    7");
    EXPECT_EQ(report(15376), "Object: 00000005 - Offset:                    0");
    EXPECT_EQ(report(15382), "Object: 00000005 - Offset:                    6");
    EXPECT_EQ(report(15384), "Object: 00000004 - Offset:                    8");
    EXPECT_EQ(report(15385), "Object: 00000004 - Offset:                    9");
    constexpr const char* kNotFound = "Object not found.";
    EXPECT_EQ(report(15383), kNotFound) << "the unused tail of an extent";
    EXPECT_EQ(report(15386), kNotFound);
    EXPECT_EQ(report(0), kNotFound) << "Block 0";
    EXPECT_EQ(report(1), kNotFound) << "where the entry of handle 2 says it begins";
    EXPECT_EQ(report(1023), kNotFound);
    EXPECT_EQ(report(1024), kNotFound) << "the linkage block";
    EXPECT_EQ(report(15359), kNotFound);
    EXPECT_EQ(report(-1), kNotFound);
    EXPECT_EQ(report(INT64_MAX), kNotFound);
}

TEST(rfm_DatabaseReprFile, TheLocationReportTakesHeadsAloneForObjects)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    const Space tail = NewSpace(*database);
    const Space head = NewSpace(*database);
    Write(*tail, "tail");
    Write(*head, "head");
    database->EntryOf(5).next = 4;
    EXPECT_EQ(database->GetObjectLocationReport(15369),
              cow_String("Object: 00000005 - Offset:                    5"));
}

TEST(rfm_DatabaseReprFile, TheLocationReportFindsObjectsOfLaterBlocks)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    for (int i = 4; i <= 511; ++i) NewSpace(*database);
    const Space a = NewSpace(*database);
    Write(*a, "aaaa");
    const std::int64_t place = 15368 + 14336;
    EXPECT_EQ(database->GetObjectLocationReport(place + 2),
              cow_String("Object: 00000201 - Offset:                    2"));
    EXPECT_EQ(database->GetObjectLocationReport(15368), cow_String("Object not found."))
        << "the second block";
}

TEST(rfm_DatabaseReprFile, TheLocationReportWalksEachEntryOnceHoweverManyChainsRunIntoIt)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    constexpr int kTail = 50000;
    constexpr int kHeads = 50000;
    std::vector<std::uint32_t> handles;
    for (int i = 0; i < kTail + kHeads; ++i) handles.push_back(NewSpace(*database)->Handle().Value());
    for (int i = 0; i < kTail; ++i)
        database->EntryOf(handles[static_cast<std::size_t>(i)]).next =
            i + 1 < kTail ? handles[static_cast<std::size_t>(i) + 1] : 0;
    for (int i = kTail; i < kTail + kHeads; ++i)
        database->EntryOf(handles[static_cast<std::size_t>(i)]).next = handles[0];
    EXPECT_EQ(database->GetObjectLocationReport(3), cow_String("Object not found."));
    rfm_LinkageEntry& last = database->EntryOf(handles[kTail - 1]);
    last.offset = last.allocation = last.length = 1 << 30;
    EXPECT_EQ(database->GetObjectLocationReport((1 << 30) + 7).View().substr(16),
              " - Offset:                    7");
}

TEST(rfm_DatabaseReprFile, TheBaseKnowsNoLocations)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    EXPECT_EQ(database->rfm_DatabaseRepr::GetObjectLocationReport(0),
              cow_String("Object location report not supported for this rfm database type."));
}

TEST(rfm_DatabaseReprFile, TheTypeOfAHandleIsToldByTheFirstWords)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    const auto typeOf = [&](std::uint32_t first, std::uint32_t third)
    {
        const Space space = NewSpace(*database);
        Write(*space, rfm_IntBytes(first) + rfm_IntBytes(77) + rfm_IntBytes(third));
        return static_cast<int>(database->HandleType(space->Handle()));
    };
    EXPECT_EQ(typeOf(0xAAAFBBBE, 99), 8);
    EXPECT_EQ(typeOf(0xFAAFEBBE, 99), 9);
    EXPECT_EQ(typeOf(0xFFFAEEEB, 1), 1);
    EXPECT_EQ(typeOf(0xFFFAEEEB, 3), 3);
    EXPECT_EQ(typeOf(0xFFFAEEEB, 4), 4);
    EXPECT_EQ(typeOf(0xFFFAEEEB, 6), 6);
    EXPECT_EQ(typeOf(0x12345678, 4), 10);
    EXPECT_EQ(static_cast<int>(database->HandleType(rfm_Handle(1))), 10) << "a pool";
    EXPECT_EQ(static_cast<int>(database->HandleType(rfm_Handle(2))), 10) << "a space without content";
}

TEST(rfm_DatabaseReprFile, ASpaceBelowTwelveBytesIsOfUnknownType)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    const std::string array = rfm_IntBytes(0xFFFAEEEB) + rfm_IntBytes(0) + rfm_IntBytes(0x04040404);
    for (std::size_t size = 1; size < 12; ++size)
    {
        const Space space = NewSpace(*database);
        Write(*space, array.substr(0, size));
        EXPECT_EQ(database->HandleType(space->Handle()), rfm_TypeUnknown) << size;
    }
    for (std::size_t size = 1; size < 4; ++size)
    {
        const Space space = NewSpace(*database);
        Write(*space, rfm_IntBytes(0xAAAFBBBE).substr(0, size));
        EXPECT_EQ(database->HandleType(space->Handle()), rfm_TypeUnknown) << size;
    }
}

TEST(rfm_DatabaseReprFile, TheTypeOfAHandleWithoutObjectIsAFailure)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    for (const std::uint32_t handle : {0U, 4U, 512U, 0xFFFFFFFFU})
        EXPECT_EQ(rfm_TextOfFailure([&] { database->HandleType(rfm_Handle(handle)); }), kNotValid) << handle;
}

// ---- Snap ----

TEST(rfm_DatabaseReprFile, AWriterNeverSnapsAndTouchesNoFileForIt)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    database->Flush();
    file.Patch(512, rfm_IntBytes(9));
    SystemHook hook;
    hook.CountReads();
    hook.Record();
    EXPECT_FALSE(database->Snap());
    EXPECT_EQ(hook.reads, 0);
    EXPECT_TRUE(hook.TakeCalls().empty());
    EXPECT_EQ(database->GetFlushCount(), 1);
}

TEST(rfm_DatabaseReprFile, ASnapMovesOnOncePerFlush)
{
    const rfm_TestFile file;
    const auto writer = CreateIn(file);
    const Space written = NewSpace(*writer);
    Write(*written, "one ");
    writer->Flush();
    const auto reader = OpenIn(file, utl_FileAccessRead);
    const Space seen = OpenSpace(*reader, 4);
    EXPECT_FALSE(reader->Snap()) << "nothing came since the open";
    for (int i = 0; i < 3; ++i)
    {
        Write(*written, "more");
        EXPECT_FALSE(reader->Snap()) << "not flushed";
        const std::string before = ReadAll(*seen);
        writer->Flush();
        EXPECT_EQ(ReadAll(*seen), before) << "the view stays until the snap";
        EXPECT_TRUE(reader->Snap());
        EXPECT_EQ(reader->GetFlushCount(), writer->GetFlushCount());
        EXPECT_FALSE(reader->Snap());
        EXPECT_EQ(ReadAll(*seen), before + "more");
    }
}

TEST(rfm_DatabaseReprFile, ASnapLearnsNewSpacesAndNewLinkageBlocks)
{
    const rfm_TestFile file;
    const auto writer = CreateIn(file);
    writer->Flush();
    const auto reader = OpenIn(file, utl_FileAccessRead);
    for (int i = 0; i < 600; ++i) Write(*NewSpace(*writer), "ab" + std::to_string(i));
    writer->Flush();
    EXPECT_FALSE(reader->IsValidHandle(4));
    ASSERT_TRUE(reader->Snap());
    EXPECT_EQ(ReadAll(*OpenSpace(*reader, 4)), "ab0");
    EXPECT_EQ(ReadAll(*OpenSpace(*reader, 513)), "ab508");
}

TEST(rfm_DatabaseReprFile, ASnapRefusesWhileAWriterHoldsTheSemaphore)
{
    const rfm_TestFile file;
    const auto writer = CreateIn(file);
    writer->Flush();
    const auto reader = OpenIn(file, utl_FileAccessRead);
    writer->ReaderSemaphoreSet();
    writer->Flush();
    EXPECT_EQ(reader->FileStatus(), rfm_FileStatus::RfmFileInTransaction);
    EXPECT_FALSE(reader->Snap());
    EXPECT_EQ(reader->GetFlushCount(), 1);
    writer->ReaderSemaphoreClear();
    EXPECT_TRUE(reader->Snap());
    EXPECT_EQ(reader->GetFlushCount(), 2);
}

TEST(rfm_DatabaseReprFile, ASnapDoesNotLearnLayoutsThatCameAfterTheOpen)
{
    const rfm_TestFile file;
    rfm_Database writer = rfm_Database::Create(OpenFile(file, utl_FileAccessCreate), "TEST", "demo", kTime);
    rfm_TableMetadata first("FIRST", 1);
    first.DefineIntField("a");
    writer.Bind(first);
    writer.Flush();
    rfm_Database reader = rfm_Database::Open(OpenFile(file, utl_FileAccessRead), "TEST");
    ASSERT_TRUE(reader.HasTable("FIRST"));
    rfm_TableMetadata second("SECOND", 1);
    second.DefineIntField("b");
    writer.Bind(second);
    writer.Flush();
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_FALSE(reader.HasTable("SECOND"));
    EXPECT_TRUE(rfm_Database::Open(OpenFile(file, utl_FileAccessRead), "TEST").HasTable("SECOND"));
}

TEST(rfm_DatabaseReprFile, NorDoesASnapDuringWhichTheWriterPublishes)
{
    const rfm_TestFile file;
    rfm_Database writer = rfm_Database::Create(OpenFile(file, utl_FileAccessCreate), "TEST", "demo", kTime);
    writer.Flush();
    rfm_Database reader = rfm_Database::Open(OpenFile(file, utl_FileAccessRead), "TEST");
    writer.Flush();
    rfm_TableMetadata late("LATE", 1);
    late.DefineIntField("a");
    bool armed = true;
    SystemHook hook;
    hook.BehindReadAt(1024,
                      [&](char*)
                      {
                          if (!std::exchange(armed, false)) return;
                          writer.Bind(late);
                          writer.Flush();
                      });
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_FALSE(armed);
    EXPECT_EQ(reader.GetFlushCount(), 3);
    EXPECT_FALSE(reader.HasTable("LATE"));
    EXPECT_EQ(reader.Snap(), 0);
}

TEST(rfm_DatabaseReprFile, AFlushWhileTheTableIsReadMakesTheReaderTakeItAgain)
{
    const rfm_TestFile file;
    const auto writer = CreateIn(file);
    const Space written = NewSpace(*writer);
    Write(*written, "old ");
    writer->Flush();
    const auto reader = OpenIn(file, utl_FileAccessRead);
    const Space seen = OpenSpace(*reader, 4);
    writer->Flush();
    bool armed = true;
    SystemHook hook;
    hook.BehindReadAt(1024,
                      [&](char*)
                      {
                          if (!std::exchange(armed, false)) return;
                          Write(*written, "new");
                          writer->Flush();
                      });
    EXPECT_TRUE(reader->Snap());
    EXPECT_FALSE(armed);
    EXPECT_EQ(reader->GetFlushCount(), 3);
    EXPECT_EQ(ReadAll(*seen), "old new");
    EXPECT_FALSE(reader->Snap());
}

TEST(rfm_DatabaseReprFile, AWriterThatPublishesForEverDoesNotHoldAReaderForEver)
{
    const rfm_TestFile file;
    const auto writer = CreateIn(file);
    writer->Flush();
    int flushes = 0;
    SystemHook hook;
    hook.BehindReadAt(1024,
                      [&](char*)
                      {
                          ++flushes;
                          writer->Flush();
                      });
    const auto reader = OpenIn(file, utl_FileAccessRead);
    EXPECT_GT(flushes, 1);
    EXPECT_LE(flushes, 1000);
    EXPECT_EQ(reader->GetFlushCount(), writer->GetFlushCount());
}

TEST(rfm_DatabaseReprFile, ATableCaughtHalfWrittenGetsASecondLook)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    int looks = 0;
    SystemHook hook;
    hook.BehindReadAt(1024,
                      [&](char* bytes)
                      {
                          if (++looks == 1) std::fill(bytes, bytes + 100, '\xFF');
                      });
    EXPECT_NO_THROW(OpenIn(file, utl_FileAccessRead));
    EXPECT_EQ(looks, 2);
}

TEST(rfm_DatabaseReprFile, ASnapThatFailsLeavesTheViewAndTheNextOneTriesAgain)
{
    const rfm_TestFile file;
    const auto writer = CreateIn(file);
    const Space written = NewSpace(*writer);
    Write(*written, "old");
    writer->Flush();
    const auto reader = OpenIn(file, utl_FileAccessRead);
    const Space seen = OpenSpace(*reader, 4);
    Write(*written, " new");
    writer->Flush();
    {
        SystemHook hook;
        hook.BehindReadAt(1024, [&](char* bytes) { std::fill(bytes, bytes + 100, '\xFF'); });
        EXPECT_EQ(rfm_TextOfFailure([&] { reader->Snap(); }), CorruptText(file));
    }
    EXPECT_EQ(reader->GetFlushCount(), 1);
    EXPECT_EQ(ReadAll(*seen), "old");
    EXPECT_TRUE(reader->Snap());
    EXPECT_EQ(ReadAll(*seen), "old new");
}

// ---- Close ----

TEST(rfm_DatabaseReprFile, AfterCloseEverythingThatNeedsTheFileIsRefusedWithWords)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    const Space space = NewSpace(*database);
    Write(*space, "data");
    database->Close();
    const std::string closed = file.Bytes();
    const std::string text = "***ERROR: The database is closed:\n  " + std::string(file.Name());
    EXPECT_EQ(rfm_TextOfFailure([&] { database->Flush(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { database->Description(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { database->SetCreationTime(1); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { database->FileStatus(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { database->CheckNRDXCache(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { database->ReaderSemaphoreSet(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { database->ReaderSemaphoreClear(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { database->GetDBStatistics(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { database->Metadata(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { NewSpace(*database); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { ReadAll(*space); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { Write(*space, "more"); }), text);
    EXPECT_EQ(database->FileName(), cow_String(file.Name()));
    EXPECT_EQ(database->GetFlushCount(), 1);
    EXPECT_FALSE(database->Snap());
    EXPECT_NO_THROW(database->Close()) << "a second close has nothing to do";
    EXPECT_EQ(file.Bytes(), closed);
}

TEST(rfm_DatabaseReprFile, AfterCloseAReadersSnapIsRefusedWithWords)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    const auto reader = OpenIn(file, utl_FileAccessRead);
    reader->Close();
    EXPECT_EQ(rfm_TextOfFailure([&] { reader->Snap(); }),
              "***ERROR: The database is closed:\n  " + std::string(file.Name()));
}

TEST(rfm_DatabaseReprFile, ACloseThatFailsCanBeTriedAgain)
{
    const rfm_TestFile file;
    const auto database = CreateIn(file);
    Write(*NewSpace(*database), "data");
    {
        SystemHook hook;
        utl_System().write = [](int, const char*, size_t, off_t) -> ssize_t
        {
            errno = ENOSPC;
            return -1;
        };
        EXPECT_THROW(database->Close(), utl_FileException);
    }
    database->Close();
    EXPECT_EQ(file.Size(), 15372U);
    EXPECT_EQ(ReadAll(*OpenSpace(*OpenIn(file, utl_FileAccessRead), 4)), "data");
}

TEST(rfm_DatabaseReprFile, AFailureInTheDestructorIsOneLineOnStandardError)
{
    const rfm_TestFile file;
    auto database = CreateIn(file);
    testing::internal::CaptureStderr();
    {
        SystemHook hook;
        utl_System().write = [](int, const char*, size_t, off_t) -> ssize_t
        {
            errno = ENOSPC;
            return -1;
        };
        EXPECT_NO_THROW(database.reset());
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find(file.Name()), std::string::npos) << said;
}

// ---- Damage ----

namespace
{
// Three objects, of which the first has two extents: a space, an array of doubles, a space.
void WriteSample(const rfm_TestFile& file)
{
    rfm_Database database = rfm_Database::Create(OpenFile(file, utl_FileAccessCreate), "TEST", "demo", kTime);
    rfm_TableMetadata layout("LAYOUT", 1);
    layout.DefineIntField("a");
    layout.DefineStringField("s");
    {
        rfm_Table table = database.Table(database.Bind(layout), -1, -1);
        for (int i = 0; i < 5; ++i)
        {
            rfm_Row row = table.NewRow();
            row.WriteFieldInt(0, i);
            row.WriteFieldString("s", cow_String(i));
        }
        table.Flush();
        database.Flush();
        auto array = database.ArrayDouble(2, -1, 0);
        const double values[] = {1, 2, 3, 4};
        array.Write(values, 2);
        array.Flush();
        table.NewRow().WriteFieldInt(0, 5);
        table.Flush();
    }
    database.Close();
}

// Uses all that a database has, as a program would that knows nothing of damage.
void UseAll(const rfm_TestFile& file, utl_FileAccess access)
{
    rfm_Database database = rfm_Database::Open(OpenFile(file, access), "");
    database.Description();
    database.GetDBStatistics();
    database.GetObjectLocationReport(15360);
    database.Bind();
    for (std::uint32_t handle = 1; handle < 16; ++handle)
    {
        const rfm_Handle object(handle);
        database.GetObjStatistics(object);
        if (!database.Repr().GetObjStatistics(object).Count()) continue;
        database.HandleType(object);
        rfm_Space space = database.Space(object, -1);
        std::string bytes(65536, '\0');
        for (int i = 0; i < 16 && space.Read(bytes.data(), 65536) > 0;) ++i;
        space.Seek(space.Length());
        space.Seek(space.Length().Value() / 2);
    }
    rfm_Table table = database.Table(rfm_Handle(4), -1, -1);
    if (table.Length() > 0) table.ReadRow(0).ReadFieldString("s");
    if (access == utl_FileAccessRead) return;
    table.NewRow().WriteFieldInt(0, 1);
    table.Flush();
    rfm_Space fresh = database.Space(64);
    fresh.Write("fresh", 5);
    database.Flush();
    database.Close();
}

// How a use of a damaged file ended: "sound", or the class of the words. Anything but words of the library is a failure.
std::string Ending(const rfm_TestFile& file, utl_FileAccess access)
{
    try
    {
        UseAll(file, access);
        return "sound";
    }
    catch (const utl_FileException& failure)
    {
        EXPECT_THAT(failure.what(), testing::HasSubstr(file.Name()));
        return "file";
    }
    catch (const nex_TextException& failure)
    {
        std::string text = failure.what();
        if (text == CorruptText(file)) return "corrupt";
        if (text == kNotValid) return "not valid";
        if (text == kBadStamp) return "stamp";
        EXPECT_TRUE(text.starts_with("***ERROR: ") || text.starts_with("rfm_")) << text;
        return text;
    }
}

std::vector<double> EdgeNumbers()
{
    const double infinity = std::numeric_limits<double>::infinity();
    return {0,
            1,
            2,
            1023,
            1024,
            15360,
            15364,
            -1,
            std::nan(""),
            infinity,
            -infinity,
            1e6,
            1LL << 40,
            9007199254740992.0,
            9007199254740994.0,
            1e300,
            5e-324,
            -0.0};
}

bool NoWriterStores(double number) { return !(number >= 0 && number <= 9007199254740992.0); }
} // namespace

TEST(rfm_DatabaseDamage, TheSampleItselfIsSound)
{
    const rfm_TestFile file;
    WriteSample(file);
    EXPECT_EQ(Ending(file, utl_FileAccessRead), "sound");
    EXPECT_EQ(Ending(file, utl_FileAccessUpdate), "sound");
}

TEST(rfm_DatabaseDamage, EveryNumberOfEveryLinkageEntryAtEveryEdge)
{
    const rfm_TestFile file;
    WriteSample(file);
    const std::string sound = file.Bytes();
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
        for (std::uint32_t slot = 0; slot < 9; ++slot)
            for (const std::size_t field : {0U, 8U, 16U})
                for (const double number : EdgeNumbers())
                {
                    SCOPED_TRACE(testing::Message() << "slot " << slot << ", field " << field << ", "
                                                    << number << ", access " << access);
                    file.Write(sound);
                    file.Patch(EntryPlace(slot) + field, rfm_DoubleBytes(number));
                    const std::string ending = Ending(file, access);
                    if (NoWriterStores(number))
                    {
                        EXPECT_EQ(ending, "corrupt");
                    }
                    if (slot != 0) continue;
                    // Of entry 0 only the place of the next block counts.
                    if (field < 16 && !NoWriterStores(number))
                    {
                        EXPECT_EQ(ending, "sound");
                    }
                    if (field == 16 && number >= 1)
                    {
                        EXPECT_EQ(ending, "corrupt");
                    }
                }
}

TEST(rfm_DatabaseDamage, EveryNextHandleAtEveryEdge)
{
    const rfm_TestFile file;
    WriteSample(file);
    const std::string sound = file.Bytes();
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
        for (std::uint32_t slot = 0; slot < 9; ++slot)
            for (const std::uint32_t next : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 100U, 511U, 512U, 513U,
                                             0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
            {
                SCOPED_TRACE(testing::Message()
                             << "slot " << slot << ", next " << next << ", access " << access);
                file.Write(sound);
                file.Patch(EntryPlace(slot) + 24, rfm_IntBytes(next));
                const std::string ending = Ending(file, access);
                const bool inUse = slot >= 1 && slot <= 6;
                if (inUse && (next >= 100 || next == slot))
                {
                    EXPECT_EQ(ending, "corrupt");
                }
            }
}

TEST(rfm_DatabaseDamage, EveryNumberOfTheHeaderAtEveryEdge)
{
    const rfm_TestFile file;
    WriteSample(file);
    const std::string sound = file.Bytes();
    for (const std::size_t place : {8U, 496U, 500U, 504U, 508U, 512U, 516U, 520U, 1020U})
        for (const std::uint32_t number : {0U, 1U, 11U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
        {
            SCOPED_TRACE(testing::Message() << "place " << place << ", " << number);
            file.Write(sound);
            file.Patch(place, rfm_IntBytes(number));
            const std::string ending = Ending(file, utl_FileAccessRead);
            if (place >= 512)
            {
                EXPECT_EQ(ending, "sound");
            }
            file.Write(sound);
            file.Patch(place, rfm_IntBytes(number));
            EXPECT_EQ(Ending(file, utl_FileAccessUpdate), ending);
        }
    for (const double number : EdgeNumbers())
    {
        file.Write(sound);
        file.Patch(504, rfm_DoubleBytes(number));
        const bool saysNothing = number >= 0 && number < 0.5;
        EXPECT_EQ(Ending(file, utl_FileAccessRead), saysNothing ? "sound" : "stamp") << number;
    }
}

TEST(rfm_DatabaseDamage, EveryByteOfTheMagic)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    const std::string sound = file.Bytes();
    for (std::size_t i = 0; i < 8; ++i)
    {
        file.Write(sound);
        file.Patch(i, "\xFF");
        const std::string text = OpenFailure(file);
        EXPECT_THAT(text,
                    testing::HasSubstr(i < 4 ? "is not an MARLEK database file." : "Incorrect magic number"));
    }
}

TEST(rfm_DatabaseDamage, AFileCutAnywhereWithoutStampEndsInWords)
{
    const rfm_TestFile file;
    WriteSample(file);
    std::string sound = file.Bytes();
    sound.replace(500, 12, std::string(12, '\0'));
    for (std::size_t size = 0; size < sound.size(); size += size < 1024 || size > 15300 ? 3 : 517)
    {
        SCOPED_TRACE(size);
        file.Write(std::string_view(sound).substr(0, size));
        const std::string ending = Ending(file, utl_FileAccessRead);
        if (size < 15360)
        {
            EXPECT_NE(ending, "sound");
        }
    }
}

TEST(rfm_DatabaseDamage, LinkageBlocksInALoopOverEachOtherOrOutsideTheFileAreRefused)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        for (int i = 0; i < 1600; ++i) Write(*NewSpace(*database), "abcd");
    }
    const std::string sound = file.Bytes();
    const auto blockOffset = [&](std::uint64_t index)
    {
        double next = 1024;
        for (std::uint64_t i = 0; i < index; ++i)
            std::memcpy(&next, sound.data() + static_cast<std::size_t>(next) + 16, 8);
        return next;
    };
    const std::vector<double> blocks{1024, blockOffset(1), blockOffset(2), blockOffset(3)};
    const double size = static_cast<double>(sound.size());
    for (const double block : blocks)
        for (const double next : {1.0, 1023.0, 1024.0, 1025.0, blocks[1], blocks[1] + 1, blocks[1] - 14335,
                                  blocks[2], blocks[3], size - 14335, size, size + 14336, 1e15})
        {
            const bool asItWas = (block == blocks[0] && next == blocks[1]) ||
                                 (block == blocks[1] && next == blocks[2]) ||
                                 (block == blocks[2] && next == blocks[3]);
            // A step over blocks makes a shorter table, which is sound; a block read from data may decode as one.
            const bool skips = next > block && (next == blocks[2] || next == blocks[3]);
            const bool onlyOtherData = block == blocks[0] && next == blocks[1] + 1;
            if (asItWas || skips || onlyOtherData) continue;
            file.Write(sound);
            file.Patch(static_cast<std::size_t>(block) + 16, rfm_DoubleBytes(next));
            EXPECT_EQ(OpenFailure(file), CorruptText(file)) << block << " -> " << next;
        }
}

TEST(rfm_DatabaseDamage, ALoopOfBlocksInALargeFileIsReadOnceRound)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    file.Patch(1024 + 16, rfm_DoubleBytes(1024));
    file.Patch(500, std::string(12, '\0'));
    std::filesystem::resize_file(file.Name(), std::uintmax_t{1} << 36);
    SystemHook hook;
    hook.CountReads();
    EXPECT_EQ(OpenFailure(file, "TEST", utl_FileAccessUpdate), CorruptText(file));
    EXPECT_LT(hook.reads, 20);
}

TEST(rfm_DatabaseDamage, AFreeSlotThatClaimsRoomGivesANewSpaceNone)
{
    const rfm_TestFile file;
    CreateIn(file)->Close();
    file.Patch(EntryPlace(4), Entry(100, 100, 0, 1));
    {
        const auto database = OpenIn(file, utl_FileAccessUpdate);
        const Space space = NewSpace(*database);
        EXPECT_EQ(space->Handle(), rfm_Handle(4));
        EXPECT_EQ(space->Length(), 0);
        Write(*space, "data");
    }
    EXPECT_EQ(file.Bytes(0, 8), "TVNRTEST") << "the room would lie over the header";
    EXPECT_EQ(file.Bytes(EntryPlace(4), 28), Entry(4, 4, 15368));
}

TEST(rfm_DatabaseDamage, AnObjectBehindAHoleInTheTableIsNotTakenForFree)
{
    const rfm_TestFile file;
    {
        const auto database = CreateIn(file);
        Write(*NewSpace(*database), "four");
        Write(*NewSpace(*database), "five");
    }
    file.Patch(EntryPlace(4), Entry(0, 0, 0));
    const auto database = OpenIn(file, utl_FileAccessUpdate);
    EXPECT_EQ(NewSpace(*database)->Handle(), rfm_Handle(4));
    EXPECT_EQ(rfm_TextOfFailure([&] { NewSpace(*database); }), CorruptText(file));
    database->Close();
    EXPECT_EQ(file.Bytes(EntryPlace(5), 28), Entry(4, 4, 15372));
}

TEST(rfm_DatabaseDamage, MemoryStaysBoundedWhateverTheLengthsClaim)
{
    constexpr long kMostKilobytes = 100 * 1024;
    const rfm_TestFile file;
    WriteSample(file);
    const std::string sound = file.Bytes();
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
        for (std::uint32_t slot = 1; slot < 7; ++slot)
            for (const double claim : {9007199254740992.0, 1e12, 3e9})
            {
                SCOPED_TRACE(testing::Message()
                             << "slot " << slot << ", claim " << claim << ", access " << access);
                file.Write(sound);
                file.Patch(EntryPlace(slot), rfm_DoubleBytes(claim) + rfm_DoubleBytes(claim));
                struct rusage before
                {
                };
                ::getrusage(RUSAGE_SELF, &before);
                const pid_t child = ::fork();
                if (child == 0)
                {
                    Ending(file, access);
                    ::_exit(testing::Test::HasFailure() ? 1 : 0);
                }
                int status = -1;
                struct rusage used
                {
                };
                ASSERT_EQ(::wait4(child, &status, 0, &used), child);
                EXPECT_TRUE(WIFEXITED(status));
                EXPECT_EQ(WEXITSTATUS(status), 0);
                EXPECT_LT(used.ru_maxrss - before.ru_maxrss, kMostKilobytes);
            }
}
