#include "Descriptors.h"
#include "Forked.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "nex_Exception.h"
#include "rds_BrowsingFormat.h"
#include "rds_HostFiles.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string>
#include <vector>

namespace
{
using Entity = rds_DirectoryEntity;
constexpr int kAll = static_cast<int>(rdb_FileFilterID::All);
constexpr int kVisible = static_cast<int>(rdb_FileFilterID::Visible);
constexpr int kDirectories = static_cast<int>(rdb_FileFilterID::Directories);
constexpr int kDatabases = static_cast<int>(rdb_FileFilterID::Databases);
constexpr char kLong = rds_CFileBrowsing::AllAttributes;
constexpr char kShort = rds_CFileBrowsing::ShortForm;

class HostFiles : public ::testing::Test
{
protected:
    HostFiles() { std::filesystem::create_directory(Path("d")); }
    ~HostFiles() override { EXPECT_EQ(OpenDescriptorCount(), m_DescriptorsBefore); }

    std::string Path(const std::string& name) const { return m_Folder.Path() + "/" + name; }
    cow_String Text(const std::string& name) const { return cow_String(Path(name)); }
    void File(const std::string& name, const std::string& bytes = "") const
    {
        std::ofstream(Path(name), std::ios::binary) << bytes;
    }
    void Folder(const std::string& name) const { std::filesystem::create_directory(Path(name)); }
    void Link(const std::string& target, const std::string& name) const
    {
        std::filesystem::create_symlink(target, Path(name));
    }
    void Fifo(const std::string& name) const { ASSERT_EQ(::mkfifo(Path(name).c_str(), 0600), 0); }

    // The names of a listing of "d", each with its kind.
    std::string Listed(int filter) const
    {
        std::string listed;
        for (const Entity& entity : rds_ListHostDirectory(Text("d"), filter, kLong))
            listed += std::string(entity.m_Name.View()) + ":" + std::to_string(entity.m_Kind) + " ";
        return listed;
    }
    Entity Stat(const std::string& name) const { return rds_HostEntity(Text(name)); }
    std::string ListFailure(const cow_String& path, int filter = kAll) const
    {
        return Thrown<nex_TextException>([&] { rds_ListHostDirectory(path, filter, kLong); });
    }
    static std::string StatFailure(const cow_String& path)
    {
        return Thrown<nex_TextException>([&] { rds_HostEntity(path); });
    }
    std::string CannotList(const std::string& name, const std::string& reason) const
    {
        return "*** Error: Can't list directory " + Path(name) + ", reason:\n  " + reason + ".";
    }

    void FillWithEverything() const
    {
        for (const char* name : {"d/b.rdx", "d/a.txt", "d/.hidden.rdx", "d/c.rdx.bak", "d/Z.rdx", "d/D.RDX"})
            File(name);
        for (const char* name : {"d/sub", "d/.git", "d/folder.rdx"}) Folder(name);
        Fifo("d/pipe.rdx");
        Link("sub", "d/to_sub");
        Link("b.rdx", "d/to_b.rdx");
        Link("nowhere", "d/lost.rdx");
    }

private:
    int m_DescriptorsBefore = OpenDescriptorCount();
    TestFolder m_Folder;
};

std::string OwnUser() { return ::getpwuid(::geteuid())->pw_name; }
std::string OwnGroup(gid_t group) { return ::getgrgid(group)->gr_name; }
} // namespace

// --- listings ---

TEST_F(HostFiles, AnEmptyDirectoryHasNoEntries) { EXPECT_EQ(Listed(kAll), ""); }

TEST_F(HostFiles, AListingIsInTheByteOrderOfItsNames)
{
    for (const char* name : {"d/b", "d/a", "d/B", "d/\xC3\xA4", "d/a.b", "d/a b", "d/\xFF"}) File(name);
    EXPECT_EQ(Listed(kAll), "B:1 a:1 a b:1 a.b:1 b:1 \xC3\xA4:1 \xFF:1 ");
}

TEST_F(HostFiles, AFilterLetsThroughWhatItIsNamedFor)
{
    FillWithEverything();
    EXPECT_EQ(Listed(kAll), ".git:2 .hidden.rdx:1 D.RDX:1 Z.rdx:1 a.txt:1 b.rdx:1 c.rdx.bak:1 folder.rdx:2 "
                            "lost.rdx:4 pipe.rdx:3 sub:2 to_b.rdx:1 to_sub:2 ");
    EXPECT_EQ(Listed(kVisible), "D.RDX:1 Z.rdx:1 a.txt:1 b.rdx:1 c.rdx.bak:1 folder.rdx:2 lost.rdx:4 "
                                "pipe.rdx:3 sub:2 to_b.rdx:1 to_sub:2 ");
    EXPECT_EQ(Listed(kDirectories), "folder.rdx:2 sub:2 to_sub:2 ");
    EXPECT_EQ(Listed(kDatabases), "Z.rdx:1 b.rdx:1 folder.rdx:2 sub:2 to_b.rdx:1 to_sub:2 ");
}

TEST_F(HostFiles, TheNumbersOfFiltersAndKindsAreThoseOnTheWire)
{
    EXPECT_EQ((std::vector{kAll, kVisible, kDirectories, kDatabases}), (std::vector{0, 1, 2, 3}));
    EXPECT_EQ((std::vector<int>{Entity::Unknown, Entity::File, Entity::Directory, Entity::Special,
                                Entity::DanglingLink}),
              (std::vector{0, 1, 2, 3, 4}));
}

TEST_F(HostFiles, AFilterThatIsNoneIsRefused)
{
    EXPECT_EQ(ListFailure(Text("d"), 4), CannotList("d", "There is no filter 4"));
    EXPECT_EQ(ListFailure(Text("d"), -1), CannotList("d", "There is no filter -1"));
}

TEST_F(HostFiles, WhatIsNoDirectoryIsRefusedInTheSystemsWords)
{
    File("file");
    Fifo("fifo");
    EXPECT_EQ(ListFailure(Text("file")), CannotList("file", "Not a directory"));
    EXPECT_EQ(ListFailure(Text("fifo")),
              CannotList("fifo", "Not a directory")); // and nobody waits for its writer
    EXPECT_EQ(ListFailure("/dev/null"),
              "*** Error: Can't list directory /dev/null, reason:\n  Not a directory.");
    EXPECT_EQ(ListFailure(Text("missing")), CannotList("missing", "No such file or directory"));
    EXPECT_EQ(ListFailure(""), "*** Error: Can't list directory , reason:\n  No such file or directory.");
}

TEST_F(HostFiles, NamesWithDotsAreResolvedAsTheSystemDoesIt)
{
    Folder("d/sub");
    EXPECT_EQ(rds_ListHostDirectory(Text("d/sub/.."), kAll, kLong).ConstGet(0).m_Name, "sub");
    EXPECT_TRUE(rds_IsHostDirectory("/.."));
    EXPECT_FALSE(rds_IsHostDirectory(Text("missing/..")));
}

TEST_F(HostFiles, ALinkToADirectoryIsListedAsThatDirectory)
{
    Link("d", "to_d");
    File("d/file");
    EXPECT_EQ(rds_ListHostDirectory(Text("to_d"), kAll, kLong).ConstGet(0).m_Name, "file");
}

// Who may read a directory and not search it sees names that can't be looked at.
TEST_F(HostFiles, AnEntryThatCannotBeLookedAtKeepsItsPlaceWithoutAttributes)
{
    File("d/one", "bytes");
    File("d/two", "bytes");
    const auto listUnsearchable = [this]
    {
        if (::chdir(Path("").c_str()) != 0 || ::chmod(".", 0755) != 0 || ::chmod("d", 0444) != 0) return 1;
        if (::geteuid() == 0 && ::seteuid(65534) != 0) return 2;
        const auto list = rds_ListHostDirectory("d", kAll, kLong);
        if (list.Count() != 2 || list.ConstGet(0).m_Name != "one" || list.ConstGet(1).m_Name != "two")
            return 3;
        const Entity& entity = list.ConstGet(1);
        return entity.m_Kind == Entity::Unknown && entity.m_Text1.IsEmpty() && entity.m_Large == 0 ? 0 : 4;
    };
    EXPECT_EQ(ExitCodeOfForked(listUnsearchable), 0);
    ::chmod(Path("d").c_str(), 0755);
}

// Where the link leads is behind a directory that may not be searched: that is not nowhere.
TEST_F(HostFiles, ALinkWhoseTargetMayNotBeLookedAtIsNotADanglingOne)
{
    Folder("closed");
    File("closed/file");
    Link("../closed/file", "d/link");
    const auto lookAtLink = [this]
    {
        if (::chdir(Path("").c_str()) != 0 || ::chmod(".", 0755) != 0 || ::chmod("closed", 0600) != 0)
            return 1;
        if (::geteuid() == 0 && ::seteuid(65534) != 0) return 2;
        const Entity listed = rds_ListHostDirectory("d", kAll, kLong).ConstGet(0);
        if (listed.m_Name != "link" || listed.m_Kind != Entity::Unknown || !listed.m_Text1.IsEmpty())
            return 3;
        return StatFailure("d/link") ==
                       "*** Error: Can't get the attributes of d/link, reason:\n  Permission denied."
                   ? 0
                   : 4;
    };
    EXPECT_EQ(ExitCodeOfForked(lookAtLink), 0);
    ::chmod(Path("closed").c_str(), 0755);
}

TEST_F(HostFiles, ADirectoryThatMayNotBeReadIsRefused)
{
    const auto listUnreadable = [this]
    {
        if (::chdir(Path("").c_str()) != 0 || ::chmod(".", 0755) != 0 || ::chmod("d", 0311) != 0) return 1;
        if (::geteuid() == 0 && ::seteuid(65534) != 0) return 2;
        return ListFailure("d") == "*** Error: Can't list directory d, reason:\n  Permission denied." ? 0 : 3;
    };
    EXPECT_EQ(ExitCodeOfForked(listUnreadable), 0);
    ::chmod(Path("d").c_str(), 0755);
}

TEST_F(HostFiles, TheShortFormHasNameAndKindAndAsksNobodyForOwners)
{
    File("d/file", "bytes");
    Link("nowhere", "d/lost");
    const auto list = rds_ListHostDirectory(Text("d"), kAll, kShort);
    ASSERT_EQ(list.Count(), 2);
    EXPECT_EQ(list.ConstGet(0).m_Name, "file");
    EXPECT_EQ(list.ConstGet(0).m_Kind, Entity::File);
    EXPECT_EQ(list.ConstGet(1).m_Kind, Entity::DanglingLink);
    for (const Entity& entity : list)
    {
        EXPECT_TRUE(entity.m_Text1.IsEmpty() && entity.m_Text2.IsEmpty());
        EXPECT_EQ(entity.m_Word1, 0U);
    }
}

TEST_F(HostFiles, OnlyWhatTheFilterLetsThroughNeedsRoom)
{
    for (const char* name : {"d/a.rdx", "d/b.rdx", "d/c.txt", "d/d.txt", "d/.hidden"}) File(name);
    const auto listed = [this](int filter, rds_ListingRoom room)
    { return rds_ListHostDirectory(Text("d"), filter, kShort, room).Count(); };
    EXPECT_EQ(listed(kDatabases, {2, 100}), 2);
    EXPECT_EQ(listed(kVisible, {4, 100}), 4);
    EXPECT_EQ(listed(kAll, {5, 100}), 5);
    const std::string refusal = CannotList("d", "It holds more than a listing can carry");
    EXPECT_EQ(Thrown<nex_TextException>([&] { listed(kDatabases, {1, 100}); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { listed(kAll, {4, 100}); }), refusal);
    EXPECT_EQ(listed(kDatabases, {2, 10}), 2); // bytes of the names
    EXPECT_EQ(Thrown<nex_TextException>([&] { listed(kDatabases, {2, 9}); }), refusal);
}

// --- is it a directory, is it a file ---

TEST_F(HostFiles, OnlyRegularFilesAreFilesAndOnlyDirectoriesDirectories)
{
    File("file");
    Fifo("fifo");
    Link("file", "to_file");
    Link("d", "to_d");
    Link("nowhere", "lost");
    const auto both = [this](const std::string& name)
    {
        return std::string(rds_IsHostDirectory(Text(name)) ? "d" : "-") +
               (rds_IsHostFile(Text(name)) ? "f" : "-");
    };
    EXPECT_EQ(both("d"), "d-");
    EXPECT_EQ(both("to_d"), "d-");
    EXPECT_EQ(both("file"), "-f");
    EXPECT_EQ(both("to_file"), "-f");
    EXPECT_EQ(both("fifo"), "--");
    EXPECT_EQ(both("lost"), "--");
    EXPECT_EQ(both("missing"), "--");
    EXPECT_EQ(both("file/below"), "--");
    EXPECT_FALSE(rds_IsHostFile("/dev/null"));
    EXPECT_FALSE(rds_IsHostFile(""));
}

TEST_F(HostFiles, AQuestionThatTheSystemCannotAnswerIsRefused)
{
    Link("loop", "loop");
    const std::string refusal = "*** Error: Can't get the attributes of " + Path("loop") +
                                ", reason:\n  Too many levels of symbolic links.";
    EXPECT_EQ(Thrown<nex_TextException>([&] { rds_IsHostDirectory(Text("loop")); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { rds_IsHostFile(Text("loop")); }), refusal);
}

// --- attributes ---

TEST_F(HostFiles, AttributesAreMappedFieldByField)
{
    File("file", "seven b");
    ::chmod(Path("file").c_str(), 04640);
    const timespec times[] = {{1000000001, 999}, {2000000002, 999}}; // access, modification
    ASSERT_EQ(::utimensat(AT_FDCWD, Path("file").c_str(), times, 0), 0);
    struct stat status
    {
    };
    ASSERT_EQ(::stat(Path("file").c_str(), &status), 0);
    const Entity entity = Stat("file");
    EXPECT_EQ(entity.m_Name, Text("file"));
    EXPECT_EQ(entity.m_Kind, Entity::File);
    EXPECT_EQ(entity.m_Text1.View(), OwnUser());
    EXPECT_EQ(entity.m_Text2.View(), OwnGroup(status.st_gid));
    EXPECT_EQ(entity.m_Short1, 04640);
    EXPECT_EQ(entity.m_Short2, 0);
    EXPECT_EQ(entity.m_Word1, 2000000002U);
    EXPECT_EQ(entity.m_Word2, 1000000001U);
    EXPECT_EQ(entity.m_Word3, static_cast<unsigned>(status.st_ctim.tv_sec));
    EXPECT_EQ(entity.m_Large, 7U);
}

TEST_F(HostFiles, SizesBeyondFourGigabytesAreWhole)
{
    File("file");
    std::filesystem::resize_file(Path("file"), 5368709121);
    EXPECT_EQ(Stat("file").m_Large, 5368709121U);
}

TEST_F(HostFiles, OnlyRegularFilesHaveASize)
{
    for (int i = 0; i < 10; ++i) File("d/file" + std::to_string(i));
    EXPECT_EQ(Stat("d").m_Large, 0U);
    EXPECT_EQ(Stat("d").m_Kind, Entity::Directory);
    EXPECT_EQ(rds_HostEntity("/dev/null").m_Kind, Entity::Special);
    EXPECT_EQ(rds_HostEntity("/dev/null").m_Large, 0U);
}

TEST_F(HostFiles, TimesBeforeTheCountBeginsAreZero)
{
    File("file");
    const timespec times[] = {{-5, 0}, {-1000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, Path("file").c_str(), times, 0), 0);
    EXPECT_EQ(Stat("file").m_Word1, 0U);
    EXPECT_EQ(Stat("file").m_Word2, 0U);
}

TEST_F(HostFiles, ALinkHasTheAttributesOfWhatItLeadsToAndTellsThatItIsOne)
{
    File("file", "bytes");
    Link("file", "link");
    EXPECT_EQ(Stat("link").m_Kind, Entity::File);
    EXPECT_EQ(Stat("link").m_Large, 5U);
    EXPECT_EQ(Stat("link").m_Short2, 1);
}

TEST_F(HostFiles, ALinkThatLeadsNowhereIsAKindOfItsOwn)
{
    Link("nowhere", "lost");
    Link("loop", "loop");
    for (const char* name : {"lost", "loop"})
    {
        EXPECT_EQ(Stat(name).m_Kind, Entity::DanglingLink);
        EXPECT_EQ(Stat(name).m_Short2, 1);
        EXPECT_EQ(Stat(name).m_Large, 0U);
    }
}

TEST_F(HostFiles, AnOwnerWithoutANameIsANumber)
{
    File("file");
    const bool isGiven = ::chown(Path("file").c_str(), 3999999997U, 3999999998U) == 0; // only root may
    EXPECT_EQ(Stat("file").m_Text1.View(), isGiven ? "3999999997" : OwnUser());
    EXPECT_EQ(isGiven ? Stat("file").m_Text2 : "3999999998", "3999999998");
}

TEST_F(HostFiles, AttributesOfWhatIsNotThereAreRefusedInTheSystemsWords)
{
    EXPECT_EQ(StatFailure(Text("missing")), "*** Error: Can't get the attributes of " + Path("missing") +
                                                ", reason:\n  No such file or directory.");
}

// --- paths that lie ---

TEST_F(HostFiles, APathWithANulIsRefusedAndNotCutThere)
{
    File("file");
    const cow_String path(Path("file") + std::string("\0tail", 5));
    const std::string shown = Path("file") + "?tail, reason:\n  The path holds a NUL byte.";
    const std::string refusal = "*** Error: Can't get the attributes of " + shown;
    EXPECT_EQ(StatFailure(path), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { rds_IsHostFile(path); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { rds_IsHostDirectory(path); }), refusal);
    EXPECT_EQ(ListFailure(path), "*** Error: Can't list directory " + shown);
    rds_RemoveHostFile(path);
    EXPECT_TRUE(std::filesystem::exists(Path("file")));
}

TEST_F(HostFiles, APathOfAMebibyteIsRefusedAndShortened)
{
    const cow_String path(std::string(1024UL * 1024, 'x'));
    const std::string shown = std::string(1024, 'x') + "..., reason:\n  File name too long.";
    EXPECT_EQ(ListFailure(path), "*** Error: Can't list directory " + shown);
    EXPECT_EQ(StatFailure(path), "*** Error: Can't get the attributes of " + shown);
    EXPECT_EQ(Thrown<nex_TextException>([&] { rds_IsHostFile(path); }),
              "*** Error: Can't get the attributes of " + shown);
}

TEST_F(HostFiles, TheLongestNameOfTheSystemPasses)
{
    const std::string name(255, 'n');
    File("d/" + name, "bytes");
    EXPECT_EQ(Listed(kAll), name + ":1 ");
    EXPECT_EQ(Stat("d/" + name).m_Large, 5U);
}

// --- removal ---

TEST_F(HostFiles, ARemovalTakesAwayFilesAndLinksAndNothingElse)
{
    File("file");
    Link("d", "link");
    for (const char* name : {"file", "link", "d", "missing"}) rds_RemoveHostFile(Text(name));
    EXPECT_FALSE(std::filesystem::exists(Path("file")));
    EXPECT_FALSE(std::filesystem::is_symlink(Path("link")));
    EXPECT_TRUE(std::filesystem::is_directory(Path("d")));
}
