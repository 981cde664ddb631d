#include "rfm_BufferedSpace.h"

#include "TestFolder.h"
#include "Thrown.h"
#include "nex_Exception.h"
#include "rfm_Database.h"

#include <gtest/gtest.h>
#include <string>

namespace
{
class rfm_BufferedSpaceTest : public ::testing::Test
{
protected:
    cow_String Name() const { return m_Folder.Path("job.rdx"); }
    rfm_Database Create() const
    {
        return rfm_Database::Create(rfm_File::Open(Name(), utl_FileAccessCreate), "TEST", "", 1);
    }

    TestFolder m_Folder;
};

int Write(rfm_BufferedSpace& space, std::string_view text)
{
    return space.Write(text.data(), static_cast<int>(text.size()));
}

std::string Read(rfm_BufferedSpace& space, int count)
{
    std::string bytes(static_cast<std::size_t>(count), '?');
    bytes.resize(static_cast<std::size_t>(space.Read(bytes.data(), count)));
    return bytes;
}
} // namespace

TEST_F(rfm_BufferedSpaceTest, ItAnswersForItsSpace)
{
    rfm_Database database = Create();
    const rfm_Space space = database.Space(64);
    const rfm_BufferedSpace buffered(space);
    EXPECT_EQ(buffered.Handle(), space.Handle());
    EXPECT_EQ(buffered.Allocation(), space.Allocation());
    EXPECT_FALSE(buffered.ReadOnly());
    EXPECT_EQ(buffered.Length(), 0);
    EXPECT_EQ(buffered.Location(), 0);
}

TEST_F(rfm_BufferedSpaceTest, WhatWasWrittenReachesTheSpaceAtAFlush)
{
    rfm_Database database = Create();
    const rfm_Space space = database.Space(64);
    rfm_BufferedSpace buffered(space);
    EXPECT_EQ(Write(buffered, "abc"), 3);
    EXPECT_EQ(space.Length(), 0);
    EXPECT_EQ(buffered.Length(), 3);
    buffered.Flush();
    EXPECT_EQ(space.Length(), 3);
}

TEST_F(rfm_BufferedSpaceTest, ItsBlockHas2048Bytes)
{
    rfm_Database database = Create();
    const rfm_Space space = database.Space(64);
    rfm_BufferedSpace buffered(space);
    for (int i = 0; i < 2048; ++i) Write(buffered, "x");
    EXPECT_EQ(space.Length(), 0);
    Write(buffered, "y");
    EXPECT_EQ(space.Length(), 2048);
}

TEST_F(rfm_BufferedSpaceTest, CopiesShareSpaceAndBlockAndTheLastOneWritesItOut)
{
    rfm_Database database = Create();
    const rfm_Space space = database.Space(64);
    {
        rfm_BufferedSpace first(space);
        {
            rfm_BufferedSpace second(first);
            Write(second, "abc");
            EXPECT_EQ(first.Location(), 3);
        }
        EXPECT_EQ(space.Length(), 0);
        Write(first, "def");
    }
    EXPECT_EQ(space.Length(), 6);
}

TEST_F(rfm_BufferedSpaceTest, AnAssignmentWritesOutWhatTheTargetHeldLast)
{
    rfm_Database database = Create();
    rfm_BufferedSpace first(database.Space(64));
    rfm_BufferedSpace second(database.Space(64));
    const rfm_Handle overwritten = first.Handle();
    Write(first, "abc");
    first = second;
    EXPECT_EQ(first.Handle(), second.Handle());
    EXPECT_EQ(database.Space(overwritten, -1).Length(), 3);
    const rfm_Handle movedOver = second.Handle();
    Write(second, "defg");
    first = rfm_BufferedSpace(database.Space(64));
    second = rfm_BufferedSpace(database.Space(64));
    EXPECT_EQ(database.Space(movedOver, -1).Length(), 4);
}

TEST_F(rfm_BufferedSpaceTest, ArraysOfNumbersComeBackAfterTheDatabaseWasClosed)
{
    rfm_Handle handle;
    const int ints[3] = {1, -2, 0x01020304};
    const float floats[2] = {0.5F, -1.0F};
    const double doubles[2] = {0.25, -1e300};
    {
        rfm_Database database = Create();
        rfm_BufferedSpace buffered(database.Space(64));
        handle = buffered.Handle();
        buffered.WriteIntArray(ints, 3);
        buffered.WriteFloatArray(floats, 2);
        buffered.WriteDoubleArray(doubles, 2);
    }
    const rfm_Database database = rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessRead), "TEST");
    rfm_BufferedSpace buffered(rfm_Database(database).Space(handle, 64));
    EXPECT_EQ(buffered.Length(), 12 + 8 + 16);
    int readInts[3] = {};
    float readFloats[2] = {};
    double readDoubles[3] = {};
    EXPECT_EQ(buffered.ReadIntArray(readInts, 3), 3);
    EXPECT_EQ(buffered.ReadFloatArray(readFloats, 2), 2);
    EXPECT_EQ(buffered.ReadDoubleArray(readDoubles, 3), 2);
    EXPECT_TRUE(std::equal(ints, ints + 3, readInts));
    EXPECT_TRUE(std::equal(floats, floats + 2, readFloats));
    EXPECT_TRUE(std::equal(doubles, doubles + 2, readDoubles));
    buffered.Seek(0);
    EXPECT_EQ(Read(buffered, 4), std::string("\1\0\0\0", 4));

    EXPECT_TRUE(buffered.ReadOnly());
    const std::string refusal =
        "The output database was opened as read-only. Modification of data is not permitted.";
    EXPECT_EQ(Thrown<nex_TextException>([&] { Write(buffered, "x"); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffered.WriteIntArray(ints, 1); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffered.WriteFloatArray(floats, 1); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffered.WriteDoubleArray(doubles, 1); }), refusal);
}

TEST_F(rfm_BufferedSpaceTest, ExtendReservesBehindTheLocation)
{
    rfm_Database database = Create();
    rfm_BufferedSpace buffered(database.Space(64));
    Write(buffered, "abc");
    buffered.Extend(1000);
    EXPECT_GE(buffered.Allocation(), 1003);
    EXPECT_EQ(buffered.Location(), 3);
    Write(buffered, "d");
    buffered.Flush();
    buffered.Seek(0);
    EXPECT_EQ(Read(buffered, 4), "abcd");
}

TEST_F(rfm_BufferedSpaceTest, ReadingBeyondTheEndIsRefusedByTheSpace)
{
    rfm_Database database = Create();
    rfm_BufferedSpace buffered(database.Space(64));
    Write(buffered, "abc");
    buffered.Flush();
    buffered.Seek(1000);
    EXPECT_EQ(buffered.Length(), 1000);
    char byte = 0;
    EXPECT_THROW(buffered.Read(&byte, 1), nex_TextException);
    buffered.Seek(0);
    EXPECT_EQ(Read(buffered, 9), "abc");
}
