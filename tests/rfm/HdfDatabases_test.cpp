// Databases in HDF5 files: what is on the disk as another program sees it, writers that are killed, and disks that are
// full.
#include "EnvironmentVariable.h"
#include "Forked.h"
#include "HdfFileMaker.h"
#include "ScriptedRun.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "hdf_Exception.h"
#include "hdf_File.h"
#include "rfm_GoldenFiles.h"

#include <rfm.h>

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/resource.h>

using ::testing::HasSubstr;

namespace
{
const cow_String kGolden(RFM_TEST_DATA "/hdf5.rdx");

/// What h5dump says, on one line with single spaces.
std::string H5Dump(std::vector<std::string> words, const cow_String& name)
{
    const TestFolder folder;
    const cow_String said = folder.Path("said");
    words.insert(words.begin(), RFM_H5DUMP);
    words.emplace_back(name.CString());
    const int code = ExitCodeOfForked(
        [&]
        {
            std::vector<char*> arguments;
            for (std::string& word : words) arguments.push_back(word.data());
            arguments.push_back(nullptr);
            const int output = ::open(said.CString(), O_CREAT | O_WRONLY, 0600);
            ::dup2(output, STDOUT_FILENO);
            ::dup2(output, STDERR_FILENO);
            ::execvp(arguments[0], arguments.data());
            return 98;
        });
    EXPECT_EQ(code, 0);
    std::istringstream all(BytesOf(said));
    std::string line;
    for (std::string word; all >> word;) line += word + " ";
    return line;
}

/// The content of the dataset as h5dump writes it into a file.
std::string DumpedBytes(const TestFolder& folder, const cow_String& name)
{
    const cow_String bytes = folder.Path("dumped");
    H5Dump({"-d", "/rfm", "-b", "LE", "-o", bytes.CString()}, name);
    return BytesOf(bytes);
}

class HdfDatabases : public ::testing::Test
{
protected:
    ~HdfDatabases() override { EXPECT_EQ(HdfFileMaker::OpenObjects(), 0) << "something stayed open"; }

    cow_String Name() const { return m_Folder.Path("job.rdx"); }
    std::string Path() const { return Name().CString(); }
    rfm_Database OpenForReading() const
    {
        return rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessRead), "TEST");
    }
    void ExpectIncrements(int count) const
    {
        rfm_Database database = OpenForReading();
        ScriptedRun::ExpectAtLeast(database, count);
    }

    TestFolder m_Folder;
    EnvironmentVariable m_Hdf{"MRK_HDF_RDX", ""};
};

constexpr const char* kShape = "DATASET \"rfm\" { DATATYPE H5T_STD_I8LE DATASPACE SIMPLE { ( %SIZE% ) / ( "
                               "H5S_UNLIMITED ) } STORAGE_LAYOUT { CHUNKED ( 4096 ) ";

std::string Shape(std::size_t size)
{
    std::string shape = kShape;
    return shape.replace(shape.find("%SIZE%"), 6, std::to_string(size));
}

void ExpectShape(const cow_String& name, std::size_t size)
{
    const std::string said = H5Dump({"-B", "-p", "-H"}, name);
    EXPECT_THAT(said, HasSubstr("SUPERBLOCK_VERSION 0 "));
    EXPECT_THAT(said, HasSubstr("GROUP \"/\" { " + Shape(size)));
    EXPECT_THAT(said, HasSubstr("FILTERS { NONE } FILLVALUE { FILL_TIME H5D_FILL_TIME_IFSET VALUE "
                                "H5D_FILL_VALUE_DEFAULT }"));
    EXPECT_EQ(said.find("DATASET \""), said.rfind("DATASET \"")) << "nothing else is in the file";
}
} // namespace

// --- what others see

TEST_F(HdfDatabases, AFreshFileHasItsShapeForH5Dump)
{
    rfm_File::Open(Name(), utl_FileAccessCreate);
    ExpectShape(Name(), 0);
}

TEST_F(HdfDatabases, TheGoldenFileHasItsShapeForH5Dump) { ExpectShape(kGolden, 15676); }

TEST_F(HdfDatabases, TheBytesInItAreThoseOfAPlainFile)
{
    const std::string plain = BytesOf(RFM_TEST_DATA "/table.rdx");
    std::string inside = DumpedBytes(m_Folder, kGolden);
    ASSERT_EQ(inside.size(), plain.size());
    // But for the size stamp: the size of an HDF5 file says nothing.
    EXPECT_EQ(inside.substr(500, 12), std::string(12, '\0'));
    inside.replace(500, 12, plain.substr(500, 12));
    EXPECT_TRUE(inside == plain);
}

TEST_F(HdfDatabases, TheGoldenFileIsWhatTheLibraryWritesToday)
{
    WriteHdf5Golden(Name());
    EXPECT_TRUE(DumpedBytes(m_Folder, Name()) == DumpedBytes(m_Folder, kGolden));
    ExpectShape(Name(), 15676);
}

TEST_F(HdfDatabases, TheGoldenFileReads)
{
    rfm_Database database = rfm_Database::Open(rfm_File::Open(kGolden, utl_FileAccessRead), "GOLD");
    database.Bind();
    rfm_Table table = database.Table(rfm_Handle(5), -1, -1);
    ASSERT_EQ(table.Length(), 2);
    EXPECT_EQ(table.ReadRow(0).ReadFieldInt("id"), -1);
    EXPECT_EQ(table.ReadRow(1).ReadFieldString("name"), "right");
}

// --- a database's life

TEST_F(HdfDatabases, AScriptedRunReadsBackAfterEveryReopen)
{
    {
        ScriptedRun::Writer writer(Path());
        writer.SetUp();
        for (int n = 1; n <= 9; ++n)
        {
            writer.WriteIncrement(n);
            writer.Flush();
        }
        writer.Close();
    }
    ExpectIncrements(9);
    {
        rfm_Database database = rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessUpdate), "TEST");
        auto more = database.ArrayInt(1, -1, 0);
        const int value = 42;
        more.Write(&value, 1);
        more.Flush();
        database.Close();
    }
    ExpectIncrements(9);
}

TEST_F(HdfDatabases, NothingIsPrinted)
{
    ::testing::internal::CaptureStderr();
    {
        ScriptedRun::Writer writer(Path());
        writer.SetUp();
        writer.WriteIncrement(1);
        writer.Flush();
        writer.Close();
    }
    ExpectIncrements(1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// The status says nothing of a writer's flushes.
TEST_F(HdfDatabases, TheStatusIsAlwaysUnchanged)
{
    ScriptedRun::Writer writer(Path());
    writer.SetUp();
    writer.WriteIncrement(1);
    writer.Flush();
    rfm_Database reader = OpenForReading(); // in one process, HDF5 shares the file
    writer.WriteIncrement(2);
    writer.Flush();
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUnchanged);
    writer.Close();
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUnchanged);
}

TEST_F(HdfDatabases, ANewFileLeavesTheOldOneToItsReaders)
{
    {
        ScriptedRun::Writer writer(Path());
        writer.SetUp();
        writer.WriteIncrement(1);
        writer.Flush();
        writer.Close();
    }
    rfm_Database reader = OpenForReading();
    const rfm_Database fresh =
        rfm_Database::Create(rfm_File::Open(Name(), utl_FileAccessCreate), "TEST", "fresh", 2);
    ScriptedRun::ExpectAtLeast(reader, 1);
    EXPECT_EQ(reader.Description().View(), "scripted");
}

// An extent that was reserved counts as taken, though the dataset may end before it: other writers don't extend it.
TEST_F(HdfDatabases, WhatWasReservedIsNotGivenAgain)
{
    rfm_Handle first;
    {
        rfm_Database database =
            rfm_Database::Create(rfm_File::Open(Name(), utl_FileAccessCreate), "TEST", "reserved", 1);
        rfm_Space space = database.Space(8192);
        space.Write("first", 5);
        first = space.Handle();
        database.Close();
    }
    {
        const hid_t file = HdfFileMaker::Checked(H5Fopen(Path().c_str(), H5F_ACC_RDWR, H5P_DEFAULT));
        const hid_t dataset = HdfFileMaker::Checked(H5Dopen2(file, "rfm", H5P_DEFAULT));
        const hsize_t shorter = 15368 + 5;
        HdfFileMaker::Checked(H5Dset_extent(dataset, &shorter));
        H5Dclose(dataset);
        H5Fclose(file);
    }
    rfm_Handle second;
    {
        rfm_Database database = rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessUpdate), "TEST");
        rfm_Space space = database.Space(4);
        space.Write("second", 6);
        second = space.Handle();
        rfm_Space grown = database.Space(first, 8192);
        grown.Seek(5);
        grown.Write(std::string(8000, 'g').data(), 8000);
        database.Close();
    }
    rfm_Database database = OpenForReading();
    char bytes[8] = {};
    EXPECT_EQ(database.Space(second, -1).Read(bytes, 8), 6);
    EXPECT_STREQ(bytes, "second");
    rfm_Space space = database.Space(first, -1);
    EXPECT_EQ(space.Read(bytes, 8), 8);
    EXPECT_EQ(std::string(bytes, 8), "firstggg");
}

// --- writers that die

class HdfKilledWriter : public HdfDatabases, public ::testing::WithParamInterface<int>
{
};

// After the flush with increment n, at a moment that differs from case to case: nothing else of it may matter.
TEST_P(HdfKilledWriter, LeavesAFileThatOpensAtItsLastFlush)
{
    const int flushed = GetParam();
    EXPECT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      ScriptedRun::Writer writer(Path());
                      writer.SetUp();
                      for (int n = 1; n <= flushed; ++n)
                      {
                          writer.WriteIncrement(n);
                          writer.Flush();
                      }
                      // New objects, past every buffer on the way: their bytes are in the file, their names are not.
                      const std::vector<int> values(static_cast<std::size_t>(400000 * (flushed % 4)), 1);
                      auto unflushed = writer.Database().ArrayInt(1, -1, 0);
                      if (!values.empty()) unflushed.Write(values.data(), static_cast<int>(values.size()));
                      ::raise(SIGKILL);
                      return 0;
                  }),
              1000 + SIGKILL);
    ExpectIncrements(flushed);
    {
        rfm_Database database = rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessUpdate), "TEST");
        auto more = database.ArrayInt(1, -1, 0);
        const std::vector<int> values(5000, 42);
        more.Write(values.data(), 5000);
        more.Flush();
        database.Close();
    }
    ExpectIncrements(flushed);
    EXPECT_THAT(H5Dump({"-H"}, Name()), HasSubstr("DATASET \"rfm\""));
}

INSTANTIATE_TEST_SUITE_P(AfterFlush, HdfKilledWriter, ::testing::Values(1, 2, 3, 4, 7));

// --- disks that are full

// A limit on the size of files stands for the disk: HDF5 gets an error from the same call.
TEST_F(HdfDatabases, AFullDiskIsToldAndTheSameHandleWorksOnceThereIsRoom)
{
    constexpr int kValues = 200000;
    const int bigHandle = ExitCodeOfForked(
        [&]
        {
            ::signal(SIGXFSZ, SIG_IGN);
            ScriptedRun::Writer writer(Path());
            writer.SetUp();
            writer.WriteIncrement(1);
            writer.Flush();
            auto big = writer.Database().ArrayInt(1, -1, 0);
            const std::vector<int> values(kValues, 7);
            rlimit before{};
            ::getrlimit(RLIMIT_FSIZE, &before);
            rlimit full = before;
            full.rlim_cur = std::filesystem::file_size(Path()) + 10000;
            ::setrlimit(RLIMIT_FSIZE, &full);
            const std::string text = Thrown<hdf_Exception>([&] { big.Write(values.data(), kValues); });
            ::setrlimit(RLIMIT_FSIZE, &before);
            if (!text.starts_with("*** ERROR: HDF5 can't write file:\n  " + Path())) return 1;
            big.Seek(0);
            big.Write(values.data(), kValues);
            big.Flush();
            const int handle = static_cast<int>(big.Handle().Value());
            big = {};
            writer.WriteIncrement(2);
            writer.Flush();
            writer.Close();
            return handle;
        });
    ASSERT_GT(bigHandle, 6);
    ExpectIncrements(2);
    rfm_Database database = OpenForReading();
    auto big = database.ArrayInt(rfm_Handle(static_cast<std::uint32_t>(bigHandle)), -1, 0);
    ASSERT_EQ(big.Length(), kValues);
    std::vector<int> values(kValues);
    ASSERT_EQ(big.Read(values.data(), kValues), kValues);
    EXPECT_THAT(values, ::testing::Each(7));
}
