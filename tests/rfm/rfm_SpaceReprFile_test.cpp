#include "rfm_SpaceReprFile.h"

#include "rfm_DatabaseReprFile.h"
#include "rfm_File.h"
#include "rfm_TestFile.h"
#include "utl_FileException.h"
#include "utl_System.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{
constexpr const char* kReadOnly =
    "The output database was opened as read-only. Modification of data is not permitted.";

std::string SeekText(const std::string& offset)
{
    return "***ERROR: Invalid seek offset: " + offset +
           ".  This is usually caused by depletion of free space on the filesystem on which the RDX file is "
           "being "
           "built.";
}

using Space = std::unique_ptr<rfm_SpaceRepr>;

void Write(rfm_SpaceRepr& space, const std::string& bytes)
{
    ASSERT_EQ(space.Write(bytes.data(), static_cast<int>(bytes.size())), static_cast<int>(bytes.size()));
}
std::string Read(rfm_SpaceRepr& space, std::size_t count)
{
    std::string bytes(count, '?');
    bytes.resize(static_cast<std::size_t>(space.Read(bytes.data(), static_cast<int>(count))));
    return bytes;
}
std::string ReadAll(rfm_SpaceRepr& space)
{
    space.Seek(0);
    return Read(space, static_cast<std::size_t>(space.Length().Value()) + 1);
}

class rfm_SpaceReprFileTest : public testing::Test
{
protected:
    rfm_SpaceReprFileTest() { Create(); }

    void Create()
    {
        m_Database =
            std::make_unique<rfm_DatabaseReprFile>(rfm_File::Open(m_File.Name(), utl_FileAccessCreate));
        m_Database->Create("TEST", "demo", 1);
    }
    void Reopen(utl_FileAccess access)
    {
        m_Database.reset();
        m_Database = std::make_unique<rfm_DatabaseReprFile>(rfm_File::Open(m_File.Name(), access));
        m_Database->Open("TEST");
    }
    Space New(int quantum = -1) const { return Space(m_Database->NewSpace(quantum)); }
    Space Open(rfm_Handle handle, int quantum = -1) const
    {
        return Space(m_Database->OpenSpace(handle, quantum));
    }
    Space Open(const Space& other) const { return Open(other->Handle()); }

    // The extents of a space as "offset:length/allocation", without an extent as "-".
    std::string Chain(const Space& space) const
    {
        std::string text;
        for (std::uint32_t handle = space->Handle().Value(); handle != 0;)
        {
            const rfm_LinkageEntry& entry = m_Database->EntryOf(handle);
            if (!text.empty()) text += ' ';
            text += entry.HasExtent() ? std::to_string(entry.offset) + ":" + std::to_string(entry.length) +
                                            "/" + std::to_string(entry.allocation)
                                      : "-";
            handle = entry.next;
        }
        return text;
    }
    // Takes 4 bytes behind everything, so that no other extent can grow in place.
    void Block() const { New()->WriteInt(0); }
    // A space of extents with these bytes, each full.
    Space Chained(const std::vector<std::string>& parts) const
    {
        Space space = New();
        for (const std::string& part : parts)
        {
            Write(*space, part);
            Block();
        }
        return space;
    }

    rfm_TestFile m_File;
    std::unique_ptr<rfm_DatabaseReprFile> m_Database;
};
} // namespace

// ---- Allocation ----

TEST_F(rfm_SpaceReprFileTest, ANewSpaceIsEmpty)
{
    const Space space = New();
    EXPECT_EQ(space->Length(), 0);
    EXPECT_EQ(space->Allocation(), 0);
    EXPECT_EQ(space->Location(), 0);
    EXPECT_EQ(Read(*space, 10), "");
    EXPECT_FALSE(space->ReadOnly());
    EXPECT_EQ(Chain(space), "-");
    EXPECT_EQ(m_Database->EntryOf(space->Handle().Value()).offset, 1) << "valid, without an extent";
    EXPECT_EQ(space->StringManager(), &m_Database->Strings());
}

TEST_F(rfm_SpaceReprFileTest, TheFirstIntMakesAnExtentOfFourBytesAtTheEndOfTheFile)
{
    for (const int quantum : {-1, 0, 3, 4})
    {
        const std::int64_t end = m_Database->FileLength().Value();
        const Space space = New(quantum);
        space->WriteInt(7);
        EXPECT_EQ(Chain(space), std::to_string(end) + ":4/4") << quantum;
        EXPECT_EQ(m_Database->FileLength(), end + 4);
    }
}

TEST_F(rfm_SpaceReprFileTest, WithNothingBehindItTheSameExtentGrows)
{
    const Space space = New();
    space->WriteInt(1);
    space->WriteInt(2);
    EXPECT_EQ(Chain(space), "15368:8/8");
    EXPECT_EQ(space->Allocation(), 8);
}

TEST_F(rfm_SpaceReprFileTest, SpacesWrittenInTurnTakeAnEntryPerTurn)
{
    const Space a = New();
    const Space b = New();
    for (int turn = 0; turn < 3; ++turn)
    {
        a->WriteInt(turn);
        b->WriteInt(turn);
    }
    EXPECT_EQ(Chain(a), "15368:4/4 15376:4/4 15384:4/4");
    EXPECT_EQ(Chain(b), "15372:4/4 15380:4/4 15388:4/4");
}

TEST_F(rfm_SpaceReprFileTest, RoomComesInStepsOfTheQuantum)
{
    const Space space = New(8);
    Write(*space, "0123456789");
    EXPECT_EQ(Chain(space), "15368:10/16");
    EXPECT_EQ(space->Length(), 10);
    EXPECT_EQ(space->Allocation(), 16);
    const Space odd = New(7);
    Write(*odd, "01234567");
    EXPECT_EQ(Chain(odd), "15384:8/14") << "extents need no alignment";
}

TEST_F(rfm_SpaceReprFileTest, TheQuantumIsThatOfEachOpen)
{
    const Space small = New(4);
    small->WriteInt(1);
    const Space large = Open(small->Handle(), 100);
    large->Seek(4);
    large->WriteInt(2);
    EXPECT_EQ(Chain(large), "15368:8/100");
}

TEST_F(rfm_SpaceReprFileTest, AnExtendWithinTheRoomDoesNothingAndMarksNothing)
{
    const Space space = New(16);
    Write(*space, "0123");
    Block();
    m_Database->Flush();
    const std::string before = m_File.Bytes();
    const std::int64_t end = m_Database->FileLength().Value();
    space->Extend(1);
    space->Extend(12);
    EXPECT_EQ(Chain(space), "15368:4/16");
    EXPECT_EQ(m_Database->FileLength(), end);
    m_File.Patch(1024, std::string(14336, '\x11'));
    m_Database->Flush();
    EXPECT_EQ(m_File.Bytes(1024, 14336), std::string(14336, '\x11'))
        << "a block marked dirty would be written";
    m_File.Patch(1024, before.substr(1024, 14336));
}

TEST_F(rfm_SpaceReprFileTest, AnExtendTakesTheRoomBehindThePositionIntoAccount)
{
    const Space space = New(4);
    Write(*space, "01234567");
    space->Seek(2);
    space->Extend(10);
    EXPECT_EQ(Chain(space), "15368:8/12");
    EXPECT_EQ(space->Length(), 8) << "room is no length";
    EXPECT_EQ(space->Allocation(), 12);
    Block();
    space->Extend(11);
    EXPECT_EQ(Chain(space), "15368:8/12 15384:0/4");
    EXPECT_EQ(space->Allocation(), 16);
}

TEST_F(rfm_SpaceReprFileTest, AnExtendOfNothingIsRefused)
{
    const Space space = New();
    for (const int amount : {0, -1})
        EXPECT_EQ(rfm_TextOfFailure([&] { space->Extend(amount); }),
                  "rfm_SpaceReprFile::Extend: Invalid file extend increment specified.");
    EXPECT_EQ(Chain(space), "-");
}

TEST_F(rfm_SpaceReprFileTest, AnExtendBeyondEverySizeIsRefusedAndChangesNothing)
{
    const Space space = New(16);
    Write(*space, "data");
    EXPECT_THROW(space->Extend(INT64_MAX), nex_TextException);
    EXPECT_THROW(space->Extend(std::int64_t{1} << 62), nex_Exception);
    EXPECT_EQ(Chain(space), "15368:4/16");
    Write(*space, "more");
    EXPECT_EQ(ReadAll(*space), "datamore");
}

// ---- Seek ----

TEST_F(rfm_SpaceReprFileTest, ASeekGoesUpToTheLengthAndNoFurther)
{
    const Space space = New(16);
    Write(*space, "0123456789");
    space->Seek(0);
    space->Seek(10);
    EXPECT_EQ(space->Location(), 10);
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Seek(11); }), SeekText("11.000000"));
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Seek(-1); }), SeekText("-1.000000"));
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Seek(std::int64_t{1} << 40); }),
              SeekText("1099511627776.000000"));
    EXPECT_EQ(rfm_TextOfFailure([&] { New()->Seek(1); }), SeekText("1.000000"));
}

TEST_F(rfm_SpaceReprFileTest, AFailedSeekKeepsThePosition)
{
    const Space space = Chained({"aaaa", "bbbb", "cccc"});
    space->Seek(6);
    EXPECT_THROW(space->Seek(13), nex_TextException);
    EXPECT_EQ(space->Location(), 6);
    space->Seek(6);
    EXPECT_EQ(Read(*space, 3), "bbc") << "also after a seek back to the same place, which returns at once";
    EXPECT_THROW(space->Seek(-1), nex_TextException);
    EXPECT_EQ(Read(*space, 3), "ccc");
}

TEST_F(rfm_SpaceReprFileTest, ASeekToTheBoundaryOfAnExtentUsesUpItsRoomFirst)
{
    const Space space = New(8);
    Write(*space, "aaaaa");
    Block();
    space->Extend(8);
    EXPECT_EQ(Chain(space), "15368:5/8 15380:0/8");
    space->Seek(0);
    space->Seek(5);
    Write(*space, "bbbb");
    EXPECT_EQ(Chain(space), "15368:8/8 15380:1/8");
    EXPECT_EQ(ReadAll(*space), "aaaaabbbb");
}

TEST_F(rfm_SpaceReprFileTest, ASeekToABoundaryOverwritesTheNextExtentWhenTheFirstIsFull)
{
    const Space space = Chained({"aaaa", "bbbb"});
    space->Seek(4);
    Write(*space, "XY");
    EXPECT_EQ(ReadAll(*space), "aaaaXYbb");
}

TEST_F(rfm_SpaceReprFileTest, EverySeekInAChainReadsTheByteThatIsThere)
{
    std::vector<std::string> parts;
    std::string all;
    for (int i = 0; i < 60; ++i)
    {
        parts.emplace_back(static_cast<std::size_t>(1 + i * 7 % 11), static_cast<char>('A' + i % 50));
        all += parts.back();
    }
    const Space space = Chained(parts);
    for (std::size_t i = all.size() + 1; i-- > 0;)
    {
        space->Seek(static_cast<std::int64_t>(i));
        ASSERT_EQ(Read(*space, 3), all.substr(i, 3)) << i;
    }
}

// ---- Read and Write ----

TEST_F(rfm_SpaceReprFileTest, BadArgumentsOfReadAndWriteAreRefused)
{
    const Space space = New();
    char byte = 'x';
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Write(nullptr, 1); }),
              "***ERROR: Invalid data buffer pointer when writing space.");
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Read(nullptr, 1); }),
              "***ERROR: Invalid data buffer pointer when reading space.");
    for (const int count : {0, -1})
    {
        EXPECT_EQ(rfm_TextOfFailure([&] { space->Write(&byte, count); }),
                  "***ERROR: Invalid length when writing space.");
        EXPECT_EQ(rfm_TextOfFailure([&] { space->Read(&byte, count); }),
                  "***ERROR: Invalid length when reading space.");
    }
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Write(nullptr, 0); }),
              "***ERROR: Invalid data buffer pointer when writing space.");
    EXPECT_EQ(Chain(space), "-");
}

TEST_F(rfm_SpaceReprFileTest, AReadIsShortAtTheEndAndNothingBehindIt)
{
    const Space space = Chained({"aaaa", "bbbb"});
    space->Seek(2);
    EXPECT_EQ(Read(*space, 100), "aabbbb");
    EXPECT_EQ(space->Location(), 8);
    EXPECT_EQ(Read(*space, 1), "");
}

TEST_F(rfm_SpaceReprFileTest, AStepOverAnEmptyExtentIsNotTheEndOfTheData)
{
    const Space space = Chained({"aaaa", "bbbb", "cccc", "dddd", "eeee"});
    for (const std::uint32_t index : {1U, 2U})
    {
        std::uint32_t handle = space->Handle().Value();
        for (std::uint32_t i = 0; i < index; ++i) handle = m_Database->EntryOf(handle).next;
        m_Database->EntryOf(handle).length = 0;
        m_Database->MarkDirty(handle);
    }
    Reopen(utl_FileAccessRead);
    const Space read = Open(rfm_Handle(4));
    EXPECT_EQ(read->Length(), 12);
    EXPECT_EQ(ReadAll(*read), "aaaaddddeeee");
    for (std::int64_t i = 12; i >= 0; --i)
    {
        read->Seek(i);
        ASSERT_EQ(Read(*read, 20), std::string("aaaaddddeeee").substr(static_cast<std::size_t>(i))) << i;
    }
    EXPECT_THROW(read->Seek(13), nex_TextException);
}

TEST_F(rfm_SpaceReprFileTest, AnEmptyFirstExtentIsSteppedOverToo)
{
    const Space space = Chained({"aaaa", "bbbb"});
    m_Database->EntryOf(space->Handle().Value()).length = 0;
    m_Database->Reshape();
    const Space read = Open(space);
    EXPECT_EQ(Read(*read, 10), "bbbb");
    read->Seek(0);
    EXPECT_EQ(Read(*read, 10), "bbbb");
    read->Seek(1);
    EXPECT_EQ(Read(*read, 10), "bbb");
}

TEST_F(rfm_SpaceReprFileTest, AReadAtTheEndLeavesTheRoomOfItsExtentToTheNextWrite)
{
    const Space space = New(16);
    Write(*space, "0123456789");
    Block();
    space->Extend(20);
    EXPECT_EQ(Chain(space), "15368:10/16 15388:0/16");
    EXPECT_EQ(Read(*space, 5), "");
    Write(*space, std::string(22, 'x'));
    EXPECT_EQ(Chain(space), "15368:16/16 15388:16/16") << "no hole in mid-chain";
    Write(*space, "y");
    EXPECT_EQ(ReadAll(*space), "0123456789" + std::string(22, 'x') + "y");
}

TEST_F(rfm_SpaceReprFileTest, AFollowerAtTheEndFindsWhatIsWrittenIntoTheRoomOfItsExtent)
{
    const Space written = New(16);
    Write(*written, "0123456789");
    Block();
    written->Extend(20);
    m_Database->Flush();
    rfm_DatabaseReprFile reader(rfm_File::Open(m_File.Name(), utl_FileAccessRead));
    reader.Open("TEST");
    const Space followed(reader.OpenSpace(written->Handle(), -1));
    EXPECT_EQ(Read(*followed, 100), "0123456789");
    EXPECT_EQ(Read(*followed, 100), "");
    Write(*written, "abcdefghij");
    m_Database->Flush();
    ASSERT_TRUE(reader.Snap());
    EXPECT_EQ(Read(*followed, 100), "abcdefghij");
}

TEST_F(rfm_SpaceReprFileTest, AChainWithAHoleGrowsAtItsEnd)
{
    const Space made = New(16);
    Write(*made, "0123456789");
    Block();
    Write(*made, std::string(16, 'x')); // 6 fill the first extent, 10 of 16 lie in the second
    EXPECT_EQ(Chain(made), "15368:16/16 15388:10/16");
    m_Database->EntryOf(made->Handle().Value()).length = 10; // another writer's hole
    m_Database->Reshape();
    Block();
    const Space space = Open(made);
    ASSERT_EQ(space->Length(), 20);
    space->Seek(20);
    Write(*space,
          std::string(6, 'y')); // the second extent is full, and the sums say that 6 bytes of room are left
    Write(*space, "z");
    EXPECT_EQ(ReadAll(*space), "0123456789" + std::string(10, 'x') + std::string(6, 'y') + "z");
}

TEST_F(rfm_SpaceReprFileTest, AWriteInTheMiddleKeepsTheLength)
{
    const Space space = Chained({"aaaa", "bbbb", "cccc"});
    space->Seek(3);
    Write(*space, "XXXXXX");
    EXPECT_EQ(space->Length(), 12);
    EXPECT_EQ(ReadAll(*space), "aaaXXXXXXccc");
}

TEST_F(rfm_SpaceReprFileTest, BytesReservedAndNeverWrittenAreZero)
{
    const Space space = New(16);
    Write(*space, "ab");
    m_Database->EntryOf(space->Handle().Value()).length = 16;
    m_Database->Reshape();
    EXPECT_EQ(ReadAll(*Open(space)), "ab" + std::string(14, '\0'));
}

TEST_F(rfm_SpaceReprFileTest, AWriteOnAFullDiskCountsWhatWasWrittenAndGoesOnLater)
{
    const Space space = New();
    Write(*space, "kept");
    const utl_SystemCalls saved = utl_System();
    utl_System().allocate = [](int, off_t, off_t)
    {
        errno = ENOSPC;
        return -1;
    };
    const std::string large(2000000, 'x');
    EXPECT_THROW(space->Write(large.data(), static_cast<int>(large.size())), utl_FileException);
    utl_System() = saved;
    EXPECT_EQ(space->Length(), 4);
    EXPECT_EQ(space->Location(), 4);
    Write(*space, large);
    EXPECT_EQ(ReadAll(*space), "kept" + large);
    Reopen(utl_FileAccessRead);
    EXPECT_EQ(ReadAll(*Open(rfm_Handle(4))), "kept" + large);
}

TEST_F(rfm_SpaceReprFileTest, ALengthThatMovedBeforeAFailureIsTold)
{
    const Space space = New(16);
    Write(*space, "0123456789");
    const utl_SystemCalls saved = utl_System();
    utl_System().allocate = [](int, off_t, off_t)
    {
        errno = ENOSPC;
        return -1;
    };
    const std::string large(2000000, 'x');
    EXPECT_THROW(space->Write(large.data(), static_cast<int>(large.size())), utl_FileException);
    utl_System() = saved;
    EXPECT_EQ(space->Location(), 16);
    EXPECT_EQ(space->Length(), 16);
}

// ---- Truncate ----

TEST_F(rfm_SpaceReprFileTest, ATruncateShortensLengthsAndGivesNothingBack)
{
    const Space space = Chained({"aaaa", "bbbb", "cccc"});
    space->Truncate(6);
    EXPECT_EQ(space->Location(), 0);
    EXPECT_EQ(space->Length(), 6);
    EXPECT_EQ(space->Allocation(), 12);
    EXPECT_EQ(Chain(space), "15368:4/4 15376:2/4 15384:0/4");
    EXPECT_EQ(ReadAll(*space), "aaaabb");
    space->Seek(6);
    Write(*space, "XYZ");
    EXPECT_EQ(Chain(space), "15368:4/4 15376:4/4 15384:1/4");
    EXPECT_EQ(ReadAll(*space), "aaaabbXYZ");
}

TEST_F(rfm_SpaceReprFileTest, AfterATruncateToNothingAWriteUsesTheFirstExtentAgain)
{
    const Space space = Chained({"aaaa", "bbbb"});
    space->Truncate(0);
    EXPECT_EQ(space->Length(), 0);
    EXPECT_EQ(space->Allocation(), 8);
    EXPECT_EQ(Read(*space, 4), "");
    Write(*space, "XY");
    EXPECT_EQ(Chain(space), "15368:2/4 15376:0/4");
    EXPECT_EQ(ReadAll(*space), "XY");
}

TEST_F(rfm_SpaceReprFileTest, ATruncateToTheLengthOrMoreChangesNothingButThePosition)
{
    const Space space = Chained({"aaaa", "bbbb"});
    for (const int length : {8, 9, 1000})
    {
        space->Seek(5);
        space->Truncate(length);
        EXPECT_EQ(space->Location(), 0);
        EXPECT_EQ(Chain(space), "15368:4/4 15376:4/4");
    }
    space->Truncate(-1);
    EXPECT_EQ(space->Length(), 0);
}

TEST_F(rfm_SpaceReprFileTest, ATruncateOnAReadOnlyDatabaseStaysInMemory)
{
    Chained({"aaaa", "bbbb"});
    Reopen(utl_FileAccessRead);
    const std::string before = m_File.Bytes();
    {
        const Space space = Open(rfm_Handle(4));
        EXPECT_NO_THROW(space->Truncate(3));
        EXPECT_EQ(space->Length(), 3);
        EXPECT_EQ(ReadAll(*space), "aaa");
    }
    m_Database.reset();
    EXPECT_EQ(m_File.Bytes(), before);
}

// ---- Life ----

TEST_F(rfm_SpaceReprFileTest, OnAReadOnlyDatabaseNothingIsWritten)
{
    Chained({"aaaa"});
    Reopen(utl_FileAccessRead);
    const Space space = Open(rfm_Handle(4));
    EXPECT_TRUE(space->ReadOnly());
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Write("x", 1); }), kReadOnly);
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Write(nullptr, 0); }), kReadOnly);
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Extend(1); }), kReadOnly);
    EXPECT_EQ(rfm_TextOfFailure([&] { space->Extend(0); }), kReadOnly);
    EXPECT_EQ(ReadAll(*space), "aaaa");
}

TEST_F(rfm_SpaceReprFileTest, AHandleWithoutSpaceIsRefused)
{
    for (const std::uint32_t handle : {0U, 4U, 511U, 512U, 513U, 0xFFFFFFFFU})
        EXPECT_EQ(rfm_TextOfFailure([&] { Open(rfm_Handle(handle)); }),
                  "***ERROR: Database is not valid. This may indicate that the database has been corrupted.");
}

TEST_F(rfm_SpaceReprFileTest, ASpaceWithoutExtentCanBeOpenedAndWritten)
{
    const Space made = New();
    const Space space = Open(made);
    EXPECT_EQ(space->Length(), 0);
    Write(*space, "late");
    EXPECT_EQ(Chain(made), "15368:4/4");
}

TEST_F(rfm_SpaceReprFileTest, TheFlushOfASpaceWritesNothing)
{
    const Space space = New();
    m_Database->Flush();
    const std::string before = m_File.Bytes();
    space->Flush();
    EXPECT_EQ(m_File.Bytes(), before);
}

TEST_F(rfm_SpaceReprFileTest, TwoObjectsOnOneHandleSeeTheSameBytes)
{
    const Space a = Chained({"aaaa", "bbbb"});
    const Space b = Open(a);
    b->Seek(8);
    for (int i = 0; i < 3; ++i)
    {
        Write(*b, "cccc");
        Block();
    }
    a->Seek(20);
    a->Seek(6);
    EXPECT_EQ(Read(*a, 100), "bbcccccccccccc");
    a->Seek(7);
    Write(*a, "XX");
    b->Seek(6);
    EXPECT_EQ(Read(*b, 4), "bXXc");
    m_Database->Flush();
    EXPECT_EQ(a->Length(), 20) << "a flush refreshes what the other object wrote";
    EXPECT_EQ(a->Allocation(), b->Allocation());
}

TEST_F(rfm_SpaceReprFileTest, ALengthThatAnotherObjectChangedIsSeenAtTheNextFlush)
{
    const Space a = Chained({"aaaa"});
    const Space b = Open(a);
    b->Seek(4);
    Write(*b, "bb");
    EXPECT_EQ(a->Length(), 4) << "cached until the flush count moves";
    m_Database->Flush();
    EXPECT_EQ(a->Length(), 6);
}

// ---- Damage ----

TEST_F(rfm_SpaceReprFileTest, ChainsThatNoWriterMakesAreRefused)
{
    const Space space = Chained({"aaaa", "bbbb"});
    const std::uint32_t head = space->Handle().Value();
    const std::uint32_t second = m_Database->EntryOf(head).next;
    const rfm_LinkageEntry sound = m_Database->EntryOf(second);
    const std::string corrupt =
        "***ERROR: Unable to procede.  MARLEK database file is corrupt:\n  " + std::string(m_File.Name());
    const auto opens = [&](const rfm_LinkageEntry& damaged)
    {
        m_Database->EntryOf(second) = damaged;
        const std::string text = rfm_TextOfFailure([&] { Open(space); });
        m_Database->EntryOf(second) = sound;
        return text;
    };
    EXPECT_EQ(opens({.allocation = 4, .length = 4, .offset = 15376, .next = head}), corrupt) << "a loop";
    EXPECT_EQ(opens({.allocation = 4, .length = 4, .offset = 15376, .next = second}), corrupt)
        << "a loop of one";
    EXPECT_EQ(opens({.allocation = 4, .length = 4, .offset = 15376, .next = 100}), corrupt)
        << "out of the table";
    EXPECT_EQ(opens({.allocation = 4, .length = 4, .offset = 15376, .next = 512}), corrupt)
        << "no such block";
    EXPECT_EQ(opens({.allocation = 4, .length = 5, .offset = 15376}), corrupt) << "more than it has";
    EXPECT_EQ(opens({.allocation = 4, .length = 4, .offset = 1}), corrupt) << "room without an extent";
    EXPECT_EQ(opens({.allocation = 4, .length = 0, .offset = 1023}), corrupt) << "an extent over the header";
    EXPECT_EQ(ReadAll(*Open(space)), "aaaabbbb");
}

TEST_F(rfm_SpaceReprFileTest, AChainThroughTheSlotThatChainsBlocksIsRefused)
{
    for (int i = 0; i < 600; ++i) New();
    const Space space = New();
    Write(*space, "data");
    m_Database->EntryOf(space->Handle().Value()).next = 512;
    EXPECT_EQ(rfm_TextOfFailure([&] { Open(space); }),
              "***ERROR: Unable to procede.  MARLEK database file is corrupt:\n  " +
                  std::string(m_File.Name()));
}

TEST_F(rfm_SpaceReprFileTest, ALoopThatAppearsWhileASpaceIsOpenEndsEveryWalk)
{
    const Space space = Chained({"aaaa", "bbbb", "cccc"});
    const std::uint32_t head = space->Handle().Value();
    std::uint32_t last = head;
    while (m_Database->EntryOf(last).next != 0) last = m_Database->EntryOf(last).next;
    m_Database->EntryOf(last).next = head;
    m_Database->Reshape();
    EXPECT_THROW(space->Seek(1000), nex_TextException);
    EXPECT_THROW(space->Truncate(2), nex_TextException);
    EXPECT_THROW(space->Extend(1000), nex_TextException);
    EXPECT_THROW(m_Database->GetObjStatistics(space->Handle()), nex_TextException);
    m_Database->EntryOf(last).next = 0;
}

// ---- Against a naive model ----

namespace
{
// What a space holds, and the objects on it: a row of bytes and positions.
struct ModelSpace
{
    std::string bytes;
    std::vector<Space> objects;
    std::vector<std::size_t> places;
};

class ModelRun
{
public:
    ModelRun(const rfm_TestFile& file, unsigned seed) : m_File(file), m_Random(seed)
    {
        m_Writer = std::make_unique<rfm_DatabaseReprFile>(rfm_File::Open(file.Name(), utl_FileAccessCreate));
        m_Writer->Create("TEST", "demo", 1);
        for (const int quantum : {-1, 5, 16, 64, 1000}) Add(quantum, 1);
        for (const int quantum : {-1, 16}) Add(quantum, 2);
        Publish();
        m_Reader = std::make_unique<rfm_DatabaseReprFile>(rfm_File::Open(file.Name(), utl_FileAccessRead));
        m_Reader->Open("TEST");
        for (const ModelSpace& space : m_Spaces)
            m_Followed.emplace_back(m_Reader->OpenSpace(space.objects[0]->Handle(), -1));
    }

    void Step()
    {
        ModelSpace& space = m_Spaces[Pick(m_Spaces.size())];
        const std::size_t object = Pick(space.objects.size());
        const std::size_t kind = Pick(100);
        if (kind < 40)
            WriteSome(space, object);
        else if (kind < 60)
            ReadSome(space, object);
        else if (kind < 80)
            SeekSomewhere(space, object);
        else if (kind < 90)
            space.objects[object]->Extend(static_cast<std::int64_t>(1 + Pick(300)));
        else if (kind < 93)
            TruncateSomewhere(space, object);
        else if (kind < 98)
            SeekPastTheEnd(space, object);
        else
            FlushAndFollow();
    }

    void ReopenAndCompare()
    {
        std::vector<rfm_Handle> handles;
        for (ModelSpace& space : m_Spaces)
        {
            handles.push_back(space.objects[0]->Handle());
            space.objects.clear();
        }
        m_Followed.clear();
        m_Reader.reset();
        m_Writer->Close();
        rfm_DatabaseReprFile again(rfm_File::Open(m_File.Name(), utl_FileAccessRead));
        again.Open("TEST");
        for (std::size_t i = 0; i < handles.size(); ++i)
            ASSERT_EQ(ReadAll(*Space(again.OpenSpace(handles[i], -1))), m_Spaces[i].bytes) << i;
    }

private:
    std::size_t Pick(std::size_t below)
    {
        return std::uniform_int_distribution<std::size_t>(0, below - 1)(m_Random);
    }

    void Add(int quantum, int objects)
    {
        ModelSpace& space = m_Spaces.emplace_back();
        space.objects.emplace_back(m_Writer->NewSpace(quantum));
        while (static_cast<int>(space.objects.size()) < objects)
            space.objects.emplace_back(m_Writer->OpenSpace(space.objects[0]->Handle(), quantum));
        space.places.resize(space.objects.size());
    }

    void WriteSome(ModelSpace& space, std::size_t object)
    {
        std::string bytes(1 + Pick(Pick(10) == 0 ? 400 : 12), '\0');
        for (char& c : bytes) c = static_cast<char>(Pick(256));
        const std::size_t place = space.places[object];
        if (space.bytes.size() < place + bytes.size()) space.bytes.resize(place + bytes.size());
        space.bytes.replace(place, bytes.size(), bytes);
        Write(*space.objects[object], bytes);
        space.places[object] += bytes.size();
        ASSERT_EQ(space.objects[object]->Location(), static_cast<std::int64_t>(space.places[object]));
    }

    void ReadSome(ModelSpace& space, std::size_t object)
    {
        const std::size_t count = 1 + Pick(Pick(10) == 0 ? 1000 : 20);
        const std::string expected = space.bytes.substr(space.places[object], count);
        ASSERT_EQ(Read(*space.objects[object], count), expected);
        space.places[object] += expected.size();
    }

    void SeekSomewhere(ModelSpace& space, std::size_t object)
    {
        const std::size_t place = Pick(4) == 0 ? space.bytes.size() : Pick(space.bytes.size() + 1);
        space.objects[object]->Seek(static_cast<std::int64_t>(place));
        space.places[object] = place;
    }

    void SeekPastTheEnd(ModelSpace& space, std::size_t object)
    {
        const auto place = static_cast<std::int64_t>(space.bytes.size() + 1 + Pick(50));
        ASSERT_THROW(space.objects[object]->Seek(place), nex_TextException);
    }

    // The other objects of the space must move away from what is cut: their places may not be there any more.
    void TruncateSomewhere(ModelSpace& space, std::size_t object)
    {
        const std::size_t length = Pick(space.bytes.size() + 20);
        for (const Space& other : space.objects) other->Seek(0);
        space.objects[object]->Truncate(static_cast<std::int64_t>(length));
        if (length < space.bytes.size()) space.bytes.resize(length);
        std::fill(space.places.begin(), space.places.end(), 0);
    }

    void Publish()
    {
        m_Writer->Flush();
        for (const ModelSpace& space : m_Spaces)
            for (const Space& object : space.objects)
            {
                ASSERT_EQ(object->Length(), static_cast<std::int64_t>(space.bytes.size()));
                ASSERT_GE(object->Allocation(), object->Length());
            }
    }

    void FlushAndFollow()
    {
        Publish();
        ASSERT_TRUE(m_Reader->Snap());
        for (std::size_t i = 0; i < m_Spaces.size(); ++i)
        {
            rfm_SpaceRepr& followed = *m_Followed[i];
            const std::string& bytes = m_Spaces[i].bytes;
            ASSERT_EQ(followed.Length(), static_cast<std::int64_t>(bytes.size()));
            const std::size_t place = Pick(bytes.size() + 1);
            followed.Seek(0);
            followed.Seek(static_cast<std::int64_t>(place));
            ASSERT_EQ(Read(followed, bytes.size() + 1), bytes.substr(place)) << i;
        }
    }

    const rfm_TestFile& m_File;
    std::mt19937 m_Random;
    std::unique_ptr<rfm_DatabaseReprFile> m_Writer;
    std::unique_ptr<rfm_DatabaseReprFile> m_Reader;
    std::vector<ModelSpace> m_Spaces;
    std::vector<Space> m_Followed;
};

// A failed run prints its seed; RFM_TEST_SEED replays it.
unsigned Seed()
{
    const char* given = std::getenv("RFM_TEST_SEED");
    return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                            : std::random_device()();
}
} // namespace

TEST(rfm_SpaceModel, RandomOperationsOnManySpacesAgreeWithRowsOfBytes)
{
    const unsigned seed = Seed();
    for (unsigned round = 0; round < 8; ++round)
    {
        SCOPED_TRACE("RFM_TEST_SEED=" + std::to_string(seed + round));
        const rfm_TestFile file;
        ModelRun run(file, seed + round);
        for (int step = 0; step < 3000; ++step)
        {
            ASSERT_NO_THROW(run.Step()) << "step " << step;
            ASSERT_FALSE(testing::Test::HasFatalFailure()) << "step " << step;
        }
        run.ReopenAndCompare();
        ASSERT_FALSE(testing::Test::HasFatalFailure());
    }
}
