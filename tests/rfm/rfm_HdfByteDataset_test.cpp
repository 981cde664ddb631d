#include "rfm_HdfByteDataset.h"

#include "HdfFileMaker.h"
#include "TestFolder.h"
#include "hdf_File.h"

#include <gtest/gtest.h>

namespace
{
class rfm_HdfByteDatasetTest : public ::testing::Test
{
protected:
    cow_String Name() const { return m_Folder.Path("bytes.h5"); }
    std::int64_t ChunkOf(const char* dataset) const
    {
        return hdf_File::Open(Name(), 1).DatasetOpen(dataset).GetCreationPropList().GetChunk()[0];
    }
    std::int64_t LengthOnDisk() const
    {
        return hdf_File::Open(Name(), 1).DatasetOpen("a").GetSpace().GetDims()[0];
    }

    TestFolder m_Folder;
};
} // namespace

TEST_F(rfm_HdfByteDatasetTest, AChunkSizeBelowOneIsTakenAs1024)
{
    {
        hdf_File file = hdf_File::Create(Name(), 0);
        rfm_HdfByteDataset::Create(file, "none", 0);
        rfm_HdfByteDataset::Create(file, "negative", -5);
        rfm_HdfByteDataset::Create(file, "one", 1);
        rfm_HdfByteDataset::Create(file, "wanted", 4096);
    }
    EXPECT_EQ(ChunkOf("none"), 1024);
    EXPECT_EQ(ChunkOf("negative"), 1024);
    EXPECT_EQ(ChunkOf("one"), 1);
    EXPECT_EQ(ChunkOf("wanted"), 4096);
}

TEST_F(rfm_HdfByteDatasetTest, ANewOneIsEmptyAndWithoutLimit)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    const rfm_HdfByteDataset bytes = rfm_HdfByteDataset::Create(file, "a", 4096);
    EXPECT_EQ(bytes.Length(), 0);
    EXPECT_FALSE(bytes.ReadOnly());
    EXPECT_EQ(file.DatasetOpen("a").GetSpace().GetDims()[0], 0);
}

TEST_F(rfm_HdfByteDatasetTest, SmallWritesInSequenceReachHdf5AtTheFlush)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    rfm_HdfByteDataset bytes = rfm_HdfByteDataset::Create(file, "a", 4096);
    for (int i = 0; i < 100; ++i) bytes.Write(10 * i, "0123456789", 10);
    EXPECT_EQ(bytes.Length(), 1000);
    EXPECT_EQ(file.DatasetOpen("a").GetSpace().GetDims()[0], 0) << "gathered";
    bytes.Flush();
    EXPECT_EQ(file.DatasetOpen("a").GetSpace().GetDims()[0], 1000);
    EXPECT_EQ(bytes.Length(), 1000);
}

TEST_F(rfm_HdfByteDatasetTest, AWriteElsewhereSendsFirstWhatCameFirst)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    rfm_HdfByteDataset bytes = rfm_HdfByteDataset::Create(file, "a", 4096);
    bytes.Write(0, "first", 5);
    bytes.Write(100, "second", 6);
    EXPECT_EQ(file.DatasetOpen("a").GetSpace().GetDims()[0], 5);
    EXPECT_EQ(bytes.Length(), 106);
}

TEST_F(rfm_HdfByteDatasetTest, WhatIsGatheredIsWrittenAtTheEndOfTheObject)
{
    {
        hdf_File file = hdf_File::Create(Name(), 0);
        rfm_HdfByteDataset bytes = rfm_HdfByteDataset::Create(file, "a", 4096);
        bytes.Write(0, "abc", 3);
    }
    EXPECT_EQ(LengthOnDisk(), 3);
}

// A part that was never written takes no room, so length alone does not say what a file may hold.
TEST_F(rfm_HdfByteDatasetTest, AHoleHasLengthAndNoStoredBytes)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    rfm_HdfByteDataset bytes = rfm_HdfByteDataset::Create(file, "a", 4096);
    bytes.ExtendTo(std::int64_t{1} << 40);
    EXPECT_EQ(bytes.Length(), std::int64_t{1} << 40);
    EXPECT_LT(bytes.MostContent(), 100000);
    char byte = 'x';
    EXPECT_EQ(bytes.Read((std::int64_t{1} << 40) - 1, &byte, 1), 1);
    EXPECT_EQ(byte, '\0');
}

TEST_F(rfm_HdfByteDatasetTest, AReaderInTheSameProcessSeesGrowthAfterARefresh)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    rfm_HdfByteDataset writer = rfm_HdfByteDataset::Create(file, "a", 4096);
    writer.Write(0, std::string(10000, 'a').data(), 10000);
    writer.Flush();
    const hdf_File again = hdf_File::Open(Name(), 1);
    rfm_HdfByteDataset reader = rfm_HdfByteDataset::Open(again, "a");
    EXPECT_TRUE(reader.ReadOnly());
    char bytes[4000];
    EXPECT_EQ(reader.Read(0, bytes, 4000), 4000);
    EXPECT_EQ(reader.Read(4000, bytes, 4000), 4000) << "in sequence: the rest is read ahead";
    writer.Write(9000, std::string(5000, 'b').data(), 5000);
    writer.Flush();
    EXPECT_EQ(reader.Length(), 10000);
    reader.Refresh();
    EXPECT_EQ(reader.Length(), 14000);
    EXPECT_EQ(reader.Read(8999, bytes, 2), 2);
    EXPECT_EQ(std::string(bytes, 2), "ab");
}
