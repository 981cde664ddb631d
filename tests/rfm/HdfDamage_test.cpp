// HDF5 files that are no database of ours, or were damaged: what another hand put into a file must end in an exception
// with the file's name, and nothing outside the file is touched.
#include "EnvironmentVariable.h"
#include "Forked.h"
#include "HdfFileMaker.h"
#include "TestFolder.h"
#include "Thrown.h"

#include "rfm_FileRepr.h"

#include <rfm.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <unistd.h>

using HdfFileMaker::Dataset;

namespace
{
constexpr unsigned kMostSeconds = 60; // a file that takes longer hangs

class HdfDamage : public ::testing::Test
{
protected:
    ~HdfDamage() override { EXPECT_EQ(HdfFileMaker::OpenObjects(), 0) << "something stayed open"; }

    cow_String Name() const { return m_Folder.Path("job.rdx"); }
    std::string NoDatabase(const char* reason) const
    {
        return std::string("*** ERROR: The HDF5 file holds no database:\n  ") + Name().CString() +
               ", reason:\n  " + reason + ".";
    }
    void ExpectRefused(const char* reason) const
    {
        for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
            EXPECT_EQ(Thrown<rfm_FileException>([&] { rfm_File::Open(Name(), access); }), NoDatabase(reason));
    }
    void ExpectRefused(const Dataset& dataset, const char* reason) const
    {
        HdfFileMaker::Make(Name(), dataset);
        ExpectRefused(reason);
    }
    /// A database of 20 rows in an HDF5 file.
    void PutDatabase() const
    {
        const EnvironmentVariable hdf("MRK_HDF_RDX", "");
        rfm_Database database =
            rfm_Database::Create(rfm_File::Open(Name(), utl_FileAccessCreate), "TEST", "damaged", 1);
        rfm_TableMetadata layout("T", 1);
        layout.DefineIntField("number");
        layout.DefineStringField("name");
        {
            rfm_Table table = database.Table(database.Bind(layout), -1, 4);
            for (int i = 0; i < 20; ++i)
            {
                rfm_Row row = table.NewRow();
                row.WriteFieldInt(0, i);
                row.WriteFieldString(1, cow_String("row ") + cow_String(i));
            }
            table.Flush();
        }
        database.Close();
    }
    /// Reads all that PutDatabase wrote; whatever is wrong is one of our exceptions.
    int Walk() const
    {
        try
        {
            rfm_Database database = rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessRead), "TEST");
            database.Bind();
            rfm_Table table = database.Table(rfm_Handle(4), -1, 4);
            int right = 0;
            for (int i = 0; i < table.Length() && i < 20; ++i)
                right += table.ReadRow(i).ReadFieldInt("number") == i ? 1 : 0;
            return right;
        }
        catch (const nex_Exception&)
        {
            return -1;
        }
    }

    TestFolder m_Folder;
};
} // namespace

// --- files of others

TEST_F(HdfDamage, AFileAsItShouldBeIsTaken)
{
    HdfFileMaker::Make(Name(), Dataset{.bytes = "abc"});
    const rfm_File file = rfm_File::Open(Name(), utl_FileAccessUpdate);
    EXPECT_EQ(file.Repr().Length(), 16384);
    EXPECT_EQ(file.Repr().ReadFixedString(3).View(), "abc");
}

TEST_F(HdfDamage, WithoutTheDatasetItIsRefused)
{
    HdfFileMaker::Make(Name(), [](hid_t) {});
    ExpectRefused("it has no dataset of that name");
    ExpectRefused(Dataset{.name = "RFM"}, "it has no dataset of that name");
}

TEST_F(HdfDamage, AGroupOfThatNameIsRefusedByHdf5)
{
    HdfFileMaker::Make(Name(), [](hid_t file)
                       { H5Gclose(H5Gcreate2(file, "rfm", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)); });
    EXPECT_THAT(Thrown<nex_TextException>([&] { rfm_File::Open(Name(), utl_FileAccessRead); }),
                ::testing::StartsWith(std::string("*** ERROR: HDF5 can't open a dataset of file:\n  ") +
                                      Name().CString()));
}

TEST_F(HdfDamage, AnotherShapeIsRefused)
{
    ExpectRefused(Dataset{.dims = {100, 100}, .maxDims = {H5S_UNLIMITED, H5S_UNLIMITED}, .chunk = 64},
                  "it is no array of one dimension");
    ExpectRefused(Dataset{.type = H5T_STD_U8LE}, "its elements are no bytes");
    ExpectRefused(Dataset{.type = H5T_STD_I16LE}, "its elements are no bytes");
    ExpectRefused(Dataset{.type = H5T_IEEE_F64LE}, "its elements are no bytes");
}

TEST_F(HdfDamage, AnotherLayoutIsRefused)
{
    ExpectRefused(Dataset{.layout = H5D_CONTIGUOUS}, "its bytes are not in chunks");
    ExpectRefused(Dataset{.layout = H5D_COMPACT}, "its bytes are not in chunks");
    ExpectRefused(Dataset{.deflated = true}, "its bytes pass through filters");
    ExpectRefused(Dataset{.chunk = 63}, "the size of its chunks");
    ExpectRefused(Dataset{.chunk = 16 * 1024 * 1024 + 1}, "the size of its chunks");
}

TEST_F(HdfDamage, BytesInAnotherFileAreNotTouched)
{
    const cow_String other = m_Folder.Path("other");
    PutBytes(other, std::string(16384, 'x'));
    ExpectRefused(Dataset{.layout = H5D_CONTIGUOUS, .external = other.CString()},
                  "its bytes are not in chunks");
    EXPECT_TRUE(BytesOf(other) == std::string(16384, 'x'));
}

TEST_F(HdfDamage, ADatasetMadeOfOthersIsRefused)
{
    const cow_String other = m_Folder.Path("other.h5");
    HdfFileMaker::Make(other, Dataset{.bytes = "secret"});
    HdfFileMaker::Make(Name(),
                       [&](hid_t file)
                       {
                           const hsize_t count = 16384;
                           const hid_t space = H5Screate_simple(1, &count, nullptr);
                           const hid_t layout = H5Pcreate(H5P_DATASET_CREATE);
                           H5Pset_virtual(layout, space, other.CString(), "rfm", space);
                           H5Dclose(HdfFileMaker::Checked(H5Dcreate2(file, "rfm", H5T_STD_I8LE, space,
                                                                     H5P_DEFAULT, layout, H5P_DEFAULT)));
                           H5Pclose(layout);
                           H5Sclose(space);
                       });
    ExpectRefused("its bytes are not in chunks");
}

TEST_F(HdfDamage, ALinkOfThatNameIsNotFollowed)
{
    const cow_String other = m_Folder.Path("other.h5");
    HdfFileMaker::Make(other, Dataset{.bytes = "secret"});
    HdfFileMaker::Make(Name(),
                       [&](hid_t file)
                       {
                           HdfFileMaker::Checked(H5Lcreate_external(other.CString(), "/rfm", file, "rfm",
                                                                    H5P_DEFAULT, H5P_DEFAULT));
                       });
    ExpectRefused("it has no dataset of that name");
    HdfFileMaker::Make(Name(),
                       [&](hid_t file)
                       {
                           HdfFileMaker::Add(file, Dataset{.name = "true"});
                           HdfFileMaker::Checked(
                               H5Lcreate_soft("/true", file, "rfm", H5P_DEFAULT, H5P_DEFAULT));
                       });
    ExpectRefused("it has no dataset of that name");
}

TEST_F(HdfDamage, ASizeBeyondWhatADatabaseCanNameIsRefused)
{
    ExpectRefused(Dataset{.dims = {(hsize_t{1} << 53) + 1}}, "its size");
    ExpectRefused(Dataset{.dims = {hsize_t{1} << 60}}, "its size");
    ExpectRefused(Dataset{.dims = {hsize_t{1} << 62}}, "its size");
}

// What a writer puts behind such an end could never be stored.
TEST_F(HdfDamage, ADatasetThatCannotGrowIsReadAndRefusedForUpdate)
{
    for (const hsize_t most : {hsize_t{16384}, hsize_t{1} << 40})
    {
        HdfFileMaker::Make(Name(), Dataset{.maxDims = {most}, .bytes = "abc"});
        EXPECT_EQ(rfm_File::Open(Name(), utl_FileAccessRead).Repr().ReadFixedString(3).View(), "abc");
        EXPECT_EQ(Thrown<rfm_FileException>([&] { rfm_File::Open(Name(), utl_FileAccessUpdate); }),
                  NoDatabase("it can't grow without limit"));
    }
}

TEST_F(HdfDamage, AShapeOfNoDimensionUnderItsChunksIsRefused)
{
    HdfFileMaker::Make(Name(), Dataset{});
    const std::string whole = BytesOf(Name());
    // The version of the shape, its rank, that it has limits, and the first length.
    const std::size_t shape = whole.find(std::string("\x01\x01\x01\0\0\0\0\0\0\x40", 10));
    ASSERT_NE(shape, std::string::npos);
    std::string bytes = whole;
    bytes[shape + 1] = 0;
    PutBytes(Name(), bytes);
    ExpectRefused("it is no array of one dimension");
}

// --- claims

// Nearly everything that such a file claims to have was never written. It reads as zeros, and takes no memory.
TEST_F(HdfDamage, AHugeSizeCostsNothing)
{
    PutDatabase();
    {
        const hid_t file = HdfFileMaker::Checked(H5Fopen(Name().CString(), H5F_ACC_RDWR, H5P_DEFAULT));
        const hid_t dataset = HdfFileMaker::Checked(H5Dopen2(file, "rfm", H5P_DEFAULT));
        const hsize_t size = hsize_t{1} << 53;
        HdfFileMaker::Checked(H5Dset_extent(dataset, &size));
        H5Dclose(dataset);
        H5Fclose(file);
    }
    EXPECT_EQ(Walk(), 20);
    // The pool of strings claims to reach over the hole.
    {
        const rfm_File file = rfm_File::Open(Name(), utl_FileAccessUpdate);
        const double claim = 1024.0 * 1024 * 1024;
        for (const int field : {1024 + 28, 1024 + 28 + 8})
        {
            file.Repr().Seek(field);
            file.Repr().WriteDouble(claim);
        }
        file.Repr().Flush();
    }
    EXPECT_EQ(Thrown<nex_TextException>(
                  [&] { rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessRead), "TEST"); }),
              std::string("***ERROR: Unable to procede.  MARLEK database file is corrupt:\n  ") +
                  Name().CString());
}

TEST_F(HdfDamage, AnEmptyDatasetIsNoDatabase)
{
    HdfFileMaker::Make(Name(), Dataset{.dims = {0}});
    const rfm_File file = rfm_File::Open(Name(), utl_FileAccessRead);
    EXPECT_EQ(Thrown<nex_TextException>([&] { rfm_Database::Open(file, ""); }),
              std::string("***ERROR: \"") + Name().CString() + "\"  is not an MARLEK database file.");
    EXPECT_FALSE(rfm_Database::IsMagic(file, ""));
    EXPECT_EQ(rfm_Database::GetCreationTime(file), 0);
}

// --- damage

// Each of a run of files is walked in one child, so that whatever HDF5 itself makes of it shows as what it is; the one
// at which the child ended is still there.
TEST_F(HdfDamage, AFileCutAnywhereIsRefused)
{
    PutDatabase();
    EXPECT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      for (auto size = BytesOf(Name()).size() - 1; size > 61; size -= size < 4096 ? 61 : 997)
                      {
                          ::alarm(kMostSeconds);
                          std::filesystem::resize_file(Name().CString(), size);
                          if (Walk() != -1) return 1;
                      }
                      return 0;
                  }),
              0)
        << "cut to " << BytesOf(Name()).size();
}

TEST_F(HdfDamage, AChangedByteOfHdf5sStructuresNeverCrashesOrHangs)
{
    PutDatabase();
    const std::string whole = BytesOf(Name());
    const auto walkDamaged = [&](std::size_t place, int value)
    {
        ::alarm(kMostSeconds);
        std::fstream file(Name().CString(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(place)).put(static_cast<char>(value)).flush();
        const int right = Walk();
        file.seekp(static_cast<std::streamoff>(place)).put(whole[place]);
        return right;
    };
    EXPECT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      int readable = 0;
                      int refused = 0;
                      for (std::size_t place = 0; place < 3000; place += 3)
                          for (const int value : {0x00, 0x01, 0x7F, 0xFF})
                              ++(walkDamaged(place, value) < 0 ? refused : readable);
                      return readable > 0 && refused > 0 ? 0 : 1;
                  }),
              0)
        << "at byte "
        << std::mismatch(whole.begin(), whole.end(), BytesOf(Name()).begin()).first - whole.begin();
}
