#include "hdf_File.h"

#include "Forked.h"
#include "HdfFileMaker.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "hdf_Exception.h"
#include "utl_FileException.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace
{
class hdf_FileTest : public ::testing::Test
{
protected:
    ~hdf_FileTest() override { EXPECT_EQ(HdfFileMaker::OpenObjects(), 0) << "something stayed open"; }

    cow_String Name() const { return m_Folder.Path("a.h5"); }
    std::string Text(const char* action) const
    {
        return std::string("*** ERROR: HDF5 can't ") + action + " file:\n  " + Name().CString() +
               ", reason:\n  ";
    }
    static hdf_Dataset AddBytes(hdf_File& file, std::int64_t count)
    {
        hdf_PropListDatasetCreation layout;
        layout.SetLayout(2);
        layout.SetChunk({16});
        return file.DatasetCreate("bytes", hdf_Datatype::STD_I8LE, hdf_Dataspace::CreateSimple({count}, {-1}),
                                  layout);
    }

    TestFolder m_Folder;
};

hdf_Dataspace Elements(std::int64_t of, std::int64_t start, std::int64_t count)
{
    hdf_Dataspace space = hdf_Dataspace::CreateSimple({of}, {});
    space.SelectHyperslab(hdf_Dataspace::Replace, {start}, {}, {1}, {count});
    return space;
}
} // namespace

TEST_F(hdf_FileTest, AnHdf5FileIsTold)
{
    PutBytes(Name(), "");
    EXPECT_FALSE(hdf_File::IsHdf5(Name()));
    PutBytes(Name(), "\x89HDF\r\n");
    EXPECT_FALSE(hdf_File::IsHdf5(Name()));
    PutBytes(Name(), std::string(3000, 'x'));
    EXPECT_FALSE(hdf_File::IsHdf5(Name()));
    hdf_File::Create(Name(), 0);
    EXPECT_TRUE(hdf_File::IsHdf5(Name()));
}

TEST_F(hdf_FileTest, TheSelectedElementsMoveBothWays)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    hdf_Dataset dataset = AddBytes(file, 40);
    dataset.Write(hdf_Datatype::NATIVE_CHAR, hdf_Dataspace::CreateSimple({3}, {}), Elements(40, 15, 3),
                  "abc");
    char bytes[5] = {};
    dataset.Read(hdf_Datatype::NATIVE_CHAR, hdf_Dataspace::CreateSimple({5}, {}), Elements(40, 14, 5), bytes);
    EXPECT_EQ(std::string(bytes, 5), std::string("\0abc\0", 5));
}

TEST_F(hdf_FileTest, AnEmptyMaximumMeansTheSameAsNow)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    hdf_PropListDatasetCreation layout;
    layout.SetLayout(2);
    layout.SetChunk({16});
    hdf_Dataset fixed =
        file.DatasetCreate("fixed", hdf_Datatype::STD_I8LE, hdf_Dataspace::CreateSimple({40}, {}), layout);
    EXPECT_THAT(Thrown<hdf_Exception>([&] { fixed.Extend({41}); }), StartsWith(Text("extend a dataset of")));
    EXPECT_EQ(fixed.GetSpace().GetDims()[0], 40);
}

TEST_F(hdf_FileTest, AnExtensionNeverShrinks)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    hdf_Dataset dataset = AddBytes(file, 40);
    dataset.Extend({50});
    EXPECT_EQ(dataset.GetSpace().GetDims()[0], 50);
    dataset.Extend({20});
    EXPECT_EQ(dataset.GetSpace().GetDims()[0], 50);
}

TEST_F(hdf_FileTest, AStrideLeavesElementsOut)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    hdf_Dataset dataset = AddBytes(file, 9);
    hdf_Dataspace everyThird = hdf_Dataspace::CreateSimple({9}, {});
    everyThird.SelectHyperslab(hdf_Dataspace::Replace, {0}, {3}, {3}, {});
    dataset.Write(hdf_Datatype::NATIVE_CHAR, hdf_Dataspace::CreateSimple({3}, {}), everyThird, "abc");
    char bytes[9];
    dataset.Read(hdf_Datatype::NATIVE_CHAR, hdf_Dataspace::CreateSimple({9}, {}), Elements(9, 0, 9), bytes);
    EXPECT_EQ(std::string(bytes, 9), std::string("a\0\0b\0\0c\0\0", 9));
}

TEST_F(hdf_FileTest, MoreDimensionsThanHdf5KnowsAreAFaultOfTheCaller)
{
    hdf_DimSpaceInput dims;
    for (int i = 0; i < 32; ++i) dims.Append(1);
    EXPECT_THROW(dims.Append(1), nex_AssertException);
    EXPECT_EQ(dims.Rank(), 32);
}

TEST_F(hdf_FileTest, ADatasetKnowsHowItsFileWasOpenedAndKeepsItOpen)
{
    {
        hdf_File file = hdf_File::Create(Name(), 0);
        EXPECT_FALSE(AddBytes(file, 40).ReadOnly());
    }
    EXPECT_FALSE(hdf_File::Open(Name(), 0).DatasetOpen("bytes").ReadOnly());
    hdf_Dataset dataset = hdf_File::Open(Name(), 1).DatasetOpen("bytes");
    EXPECT_TRUE(dataset.ReadOnly());
    EXPECT_EQ(dataset.FileName(), Name());
    EXPECT_EQ(HdfFileMaker::OpenObjects(), 1) << "the dataset alone";
    char byte = 'x';
    dataset.Read(hdf_Datatype::NATIVE_CHAR, hdf_Dataspace::CreateSimple({1}, {}), Elements(40, 0, 1), &byte);
    EXPECT_EQ(byte, '\0');
    EXPECT_THROW(dataset.Write(hdf_Datatype::NATIVE_CHAR, hdf_Dataspace::CreateSimple({1}, {}),
                               Elements(40, 0, 1), "a"),
                 hdf_Exception);
}

// --- failures

TEST_F(hdf_FileTest, AFailureHasTheNameAndHdf5sAccountFromTheCauseToTheCall)
{
    const std::string text = Thrown<hdf_Exception>([&] { hdf_File::Open(Name(), 1); });
    EXPECT_THAT(text, StartsWith(Text("open")));
    EXPECT_THAT(text, HasSubstr("No such file or directory"));
    EXPECT_LT(text.find("No such file or directory"), text.find("H5Fopen(): "));
    EXPECT_THAT(text, ::testing::EndsWith("."));
}

TEST_F(hdf_FileTest, AFailureIsATextExceptionThatCanBeCopied)
{
    const hdf_Exception failure("open", "f", "because");
    const std::unique_ptr<nex_Exception> copy(failure.Copy());
    EXPECT_STREQ(copy->what(), "*** ERROR: HDF5 can't open file:\n  f, reason:\n  because.");
    EXPECT_EQ(copy->AsString().View(),
              "hdf_Exception: *** ERROR: HDF5 can't open file:\n  f, reason:\n  because.");
    EXPECT_THROW(copy->Propagate(), hdf_Exception);
}

TEST_F(hdf_FileTest, NothingIsPrintedAndTheProgramsOwnErrorsAreLeftAlone)
{
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(hdf_File::Open(Name(), 1), hdf_Exception);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    // HDF5 prints for this program as it did before.
    ::testing::internal::CaptureStderr();
    EXPECT_LT(H5Fopen(Name().CString(), H5F_ACC_RDONLY, H5P_DEFAULT), 0);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("HDF5-DIAG"));
}

static int s_Printed = 0;

TEST_F(hdf_FileTest, AFunctionThatTheProgramHasSetForErrorsIsPutBackInEitherForm)
{
    H5E_auto2_t before = nullptr;
    void* data = nullptr;
    ASSERT_GE(H5Eget_auto2(H5E_DEFAULT, &before, &data), 0);

    H5Eset_auto2(
        H5E_DEFAULT, [](hid_t, void*) { return ++s_Printed; }, nullptr);
    EXPECT_THROW(hdf_File::Open(Name(), 1), hdf_Exception);
    EXPECT_EQ(s_Printed, 0);
    EXPECT_LT(H5Fopen(Name().CString(), H5F_ACC_RDONLY, H5P_DEFAULT), 0);
    EXPECT_EQ(s_Printed, 1);

    H5Eset_auto1([](void*) { return ++s_Printed; }, nullptr);
    EXPECT_THROW(hdf_File::Open(Name(), 1), hdf_Exception);
    EXPECT_EQ(s_Printed, 1);
    EXPECT_LT(H5Fopen(Name().CString(), H5F_ACC_RDONLY, H5P_DEFAULT), 0);
    EXPECT_EQ(s_Printed, 2);

    H5Eset_auto2(H5E_DEFAULT, before, data);
}

// --- create

TEST_F(hdf_FileTest, FlagsForANewFileAreNone)
{
    EXPECT_THROW(hdf_File::Create(Name(), 1), nex_AssertException);
    EXPECT_FALSE(std::filesystem::exists(Name().CString()));
}

TEST_F(hdf_FileTest, CreateLeavesAnOlderFileToItsReadersAndKeepsTheRights)
{
    {
        hdf_File file = hdf_File::Create(Name(), 0);
        AddBytes(file, 40);
    }
    ASSERT_EQ(::chmod(Name().CString(), 0640), 0);
    const hdf_File reader = hdf_File::Open(Name(), 1);
    const hdf_File fresh = hdf_File::Create(Name(), 0);
    EXPECT_FALSE(fresh.HasOwn("bytes"));
    EXPECT_EQ(reader.DatasetOpen("bytes").GetSpace().GetDims()[0], 40);
    struct stat status
    {
    };
    ASSERT_EQ(::stat(Name().CString(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(hdf_FileTest, CreateFollowsASymbolicLink)
{
    const cow_String link = m_Folder.Path("link.h5");
    PutBytes(Name(), "older");
    ASSERT_EQ(::symlink(Name().CString(), link.CString()), 0);
    hdf_File::Create(link, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link.CString()));
    EXPECT_TRUE(hdf_File::IsHdf5(Name()));
}

TEST_F(hdf_FileTest, AFolderIsTheSystemsRefusal)
{
    const cow_String folder(std::string_view(m_Folder.Path()));
    EXPECT_THAT(Thrown<utl_FileException>([&] { hdf_File::Create(folder, 0); }), HasSubstr("Is a directory"));
}

TEST_F(hdf_FileTest, ChildrenDoNotInheritTheFile)
{
    const hdf_File file = hdf_File::Create(Name(), 0);
    const auto name = std::filesystem::canonical(Name().CString());
    int open = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) != name) continue;
        ++open;
        EXPECT_NE(::fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(open, 1);
}

// --- who else has the file

// Opens the name for nothing but HDF5's lock; who is asked has never seen the file.
static std::string RefusalInAnotherProcess(const cow_String& name, int flags)
{
    int ends[2];
    if (::pipe(ends) != 0) return "no pipe";
    ExitCodeOfForked(
        [&]
        {
            const std::string text = Thrown<hdf_Exception>([&] { hdf_File::Open(name, flags); });
            return ::write(ends[1], text.data(), text.size()) > 0 ? 0 : 1;
        });
    ::close(ends[1]);
    std::string text(8192, '\0');
    const ssize_t read = ::read(ends[0], text.data(), text.size());
    ::close(ends[0]);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(read, 0)));
    return text;
}

/// Another process that has a file open, until it is let go.
class OtherProcess
{
public:
    OtherProcess(const cow_String& name, int flags)
    {
        int ready[2];
        int end[2];
        if (::pipe(ready) != 0 || ::pipe(end) != 0) throw std::runtime_error("pipe");
        m_Process = ::fork();
        if (m_Process == 0)
        {
            ::close(end[1]);
            const hdf_File file = hdf_File::Open(name, flags);
            char byte = file.ReadOnly() ? 'r' : 'w';
            if (::write(ready[1], &byte, 1) == 1) static_cast<void>(!::read(end[0], &byte, 1));
            ::_exit(0);
        }
        ::close(ready[1]);
        ::close(end[0]);
        char byte = 0;
        m_IsReady = ::read(ready[0], &byte, 1) == 1;
        ::close(ready[0]);
        m_End = end[1];
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    ~OtherProcess()
    {
        ::close(m_End);
        ::waitpid(m_Process, nullptr, 0);
    }
    bool IsReady() const { return m_IsReady; }

private:
    pid_t m_Process = -1;
    int m_End = -1;
    bool m_IsReady = false;
};

TEST_F(hdf_FileTest, AFileThatAnotherProcessWritesCannotBeOpened)
{
    hdf_File::Create(Name(), 0);
    const OtherProcess writer(Name(), 0);
    ASSERT_TRUE(writer.IsReady());
    for (const int flags : {0, 1})
    {
        const std::string text = RefusalInAnotherProcess(Name(), flags);
        EXPECT_THAT(text, StartsWith(Text("open")));
        EXPECT_THAT(text, HasSubstr("unable to lock file"));
    }
    EXPECT_TRUE(hdf_File::IsHdf5(Name())) << "what kind of file it is can be told all the same";
}

TEST_F(hdf_FileTest, AFileThatAnotherProcessReadsCanBeReadAndNotUpdated)
{
    hdf_File::Create(Name(), 0);
    const OtherProcess reader(Name(), 1);
    ASSERT_TRUE(reader.IsReady());
    EXPECT_EQ(RefusalInAnotherProcess(Name(), 1), "nothing was thrown");
    EXPECT_THAT(RefusalInAnotherProcess(Name(), 0), HasSubstr("unable to lock file"));
}

TEST_F(hdf_FileTest, TwoFilesInTwoThreadsDoNotMeet)
{
    const auto work = [this](const char* name)
    {
        for (int round = 0; round < 50; ++round)
        {
            hdf_File file = hdf_File::Create(m_Folder.Path(name), 0);
            hdf_Dataset dataset = AddBytes(file, 4000);
            const std::string bytes(4000, name[0]);
            dataset.Write(hdf_Datatype::NATIVE_CHAR, hdf_Dataspace::CreateSimple({4000}, {}),
                          Elements(4000, 0, 4000), bytes.data());
            EXPECT_THROW(file.DatasetOpen("none"), hdf_Exception);
            std::string read(4000, '?');
            dataset.Read(hdf_Datatype::NATIVE_CHAR, hdf_Dataspace::CreateSimple({4000}, {}),
                         Elements(4000, 0, 4000), read.data());
            EXPECT_TRUE(read == bytes);
        }
    };
    std::thread other([&] { work("b.h5"); });
    work("c.h5");
    other.join();
}
