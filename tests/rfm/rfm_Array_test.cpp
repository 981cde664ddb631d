#include "rfm_Array.h"

#include "SpaceBytes.h"
#include "rfm_ArrayRepr.h"
#include "rfm_DatabaseRepr.h"
#include "rfm_StringManager.h"

#include <limits>
#include <numeric>

using namespace SpaceBytes;

namespace
{
using IntArray = rfm_Array<int, rfm_TypeInt>;
using DoubleArray = rfm_Array<double, rfm_TypeDouble>;
using StringArray = rfm_Array<cow_String, rfm_TypeString>;

std::vector<int> Counting(int count, int first = 0)
{
    std::vector<int> values(static_cast<std::size_t>(count));
    std::iota(values.begin(), values.end(), first);
    return values;
}

/// A closed file with one array of ints in rows of `fieldCount`, flushed once.
rfm_Handle StoreInts(const TestFile& file, int fieldCount, const std::vector<int>& values)
{
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(fieldCount, -1, 0);
    array.Write(values.data(), static_cast<int>(values.size()) / fieldCount);
    array.Flush();
    return array.Handle();
}

std::vector<int> AllOf(IntArray array)
{
    array.Seek(0);
    std::vector<int> values(static_cast<std::size_t>(array.Length() * array.FieldCount() + 1));
    values.resize(static_cast<std::size_t>(array.Read(values.data(), array.Length() + 1)));
    return values;
}

std::vector<std::string> AllOf(StringArray array)
{
    array.Seek(0);
    std::vector<cow_String> values(static_cast<std::size_t>(array.Length() * array.FieldCount() + 1));
    const int read = array.Read(values.data(), array.Length() + 1);
    std::vector<std::string> texts;
    for (int i = 0; i < read; ++i) texts.emplace_back(values[static_cast<std::size_t>(i)].View());
    return texts;
}

/// An array of two ints per row, {1, 2, 3, 4}, that a writer holds open while a reader follows.
class WriterAndReader
{
public:
    WriterAndReader() : writer(file.Create()), written(writer.ArrayInt(2, -1, 0))
    {
        const int values[] = {1, 2, 3, 4};
        written.Write(values, 2);
        Publish();
        reader = file.Open();
        followed = reader.ArrayInt(written.Handle(), -1, 0);
    }
    void Publish()
    {
        written.Flush();
        writer.Flush();
    }

    TestFile file;
    rfm_Database writer;
    IntArray written;
    rfm_Database reader;
    IntArray followed;
};
} // namespace

// ---- Bytes ----

TEST(Array, AnArrayOfIntsHoldsItsHeadAndItsRows)
{
    const TestFile file;
    const rfm_Handle handle = StoreInts(file, 2, {1, -2, 0x01020304, 2147483647});
    EXPECT_EQ(Of(file.Open(), handle),
              Bytes({
                  0xEB, 0xEE, 0xFA, 0xFF, // magic
                  1,    0,    0,    0,    // flush count
                  1,    0,    0,    0,    // int
                  2,    0,    0,    0,    // two per row
                  1,    0,    0,    0,    0xFE, 0xFF, 0xFF, 0xFF, 4, 3, 2, 1, 0xFF, 0xFF, 0xFF, 0x7F,
              }));
}

TEST(Array, AnArrayOfFloatsHoldsItsHeadAndItsRows)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_Array<float, rfm_TypeFloat> array = database.ArrayFloat(1, -1, 0);
    const float values[] = {1.0F, -2.5F};
    array.Write(values, 2);
    array.Flush();
    EXPECT_EQ(Of(database, array.Handle()),
              Bytes({
                  0xEB, 0xEE, 0xFA, 0xFF, 1, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0x80, 0x3F, // 1.0
                  0,    0,    0x20, 0xC0,                                                       // -2.5
              }));
    array.Seek(1);
    float value = 0;
    EXPECT_EQ(array.Read(&value, 1), 1);
    EXPECT_EQ(value, -2.5F);
}

TEST(Array, AnArrayOfDoublesHoldsItsHeadAndItsRows)
{
    const TestFile file;
    rfm_Database database = file.Create();
    DoubleArray array = database.ArrayDouble(3, -1, 0);
    const double values[] = {1.0, -2.5, 0.1};
    array.Write(values, 1);
    array.Flush();
    EXPECT_EQ(Of(database, array.Handle()),
              Bytes({
                  0xEB, 0xEE, 0xFA, 0xFF, 1,    0,    0,    0,    4, 0, 0,    0,
                  3,    0,    0,    0,    0,    0,    0,    0,    0, 0, 0xF0, 0x3F, // 1.0
                  0,    0,    0,    0,    0,    0,    0x04, 0xC0,                   // -2.5
                  0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F,                   // 0.1
              }));
    double read[3] = {};
    array.Seek(0);
    EXPECT_EQ(array.Read(read, 1), 3);
    EXPECT_EQ(read[2], 0.1);
}

TEST(Array, AnArrayOfStringsHoldsReferences)
{
    const TestFile file;
    rfm_Database database = file.Create();
    StringArray array = database.ArrayString(1, -1, 0);
    const cow_String values[] = {"one", "", "one"};
    array.Write(values, 3);
    array.Flush();
    EXPECT_EQ(Of(database, array.Handle()), Bytes({
                                                0xEB, 0xEE, 0xFA, 0xFF, 1, 0, 0,    0,    6, 0,    0,    0, 1,
                                                0,    0,    0,    0,    0, 0, 0,    0,    0, 0x10, 0x40, // 4
                                                0,    0,    0,    0,    0, 0, 0x28, 0x40,                // 12
                                                0,    0,    0,    0,    0, 0, 0x10, 0x40,                // 4
                                            }));
    EXPECT_EQ(AllOf(array), (std::vector<std::string>{"one", "", "one"}));
}

TEST(Array, EveryTypeComesBackInTheNextSession)
{
    const TestFile file;
    rfm_Handle ints, floats, doubles, strings;
    {
        rfm_Database database = file.Create();
        IntArray a = database.ArrayInt(1, 64, 0);
        rfm_Array<float, rfm_TypeFloat> b = database.ArrayFloat(1, 64, 0);
        DoubleArray c = database.ArrayDouble(1, 64, 0);
        StringArray d = database.ArrayString(1, 64, 0);
        ints = a.Handle();
        floats = b.Handle();
        doubles = c.Handle();
        strings = d.Handle();
        for (int i = 0; i < 500; ++i)
        {
            const float f = static_cast<float>(i) / 2;
            const double g = i / 4.0;
            const cow_String text = cow_String("text ") + cow_String(i % 50);
            a.Write(&i, 1);
            b.Write(&f, 1);
            c.Write(&g, 1);
            d.Write(&text, 1);
        }
    }
    rfm_Database database = file.Open();
    EXPECT_EQ(AllOf(database.ArrayInt(ints, -1, 0)), Counting(500));
    rfm_Array<float, rfm_TypeFloat> b = database.ArrayFloat(floats, -1, 0);
    DoubleArray c = database.ArrayDouble(doubles, -1, 0);
    const std::vector<std::string> texts = AllOf(database.ArrayString(strings, -1, 0));
    ASSERT_EQ(texts.size(), 500U);
    for (int i = 0; i < 500; ++i)
    {
        float f = -1;
        double g = -1;
        ASSERT_EQ(b.Read(&f, 1) + c.Read(&g, 1), 2);
        ASSERT_EQ(f, static_cast<float>(i) / 2);
        ASSERT_EQ(g, i / 4.0);
        ASSERT_EQ(texts[static_cast<std::size_t>(i)], "text " + std::to_string(i % 50));
    }
    EXPECT_EQ(b.Type(), rfm_TypeFloat);
    EXPECT_EQ(c.RowSize(), 8);
    EXPECT_EQ(database.HandleType(ints), rfm_TypeInt);
    EXPECT_EQ(database.HandleType(strings), rfm_TypeString);
}

// ---- Length and position ----

TEST(Array, ANewArrayIsEmptyAndStandsAtItsStart)
{
    const TestFile file;
    rfm_Database database = file.Create();
    const IntArray array = database.ArrayInt(3, -1, 0);
    EXPECT_EQ(array.Length(), 0);
    EXPECT_EQ(array.Location(), 0);
    EXPECT_EQ(array.FieldCount(), 3);
    EXPECT_EQ(array.Type(), rfm_TypeInt);
    EXPECT_EQ(array.RowSize(), 12);
    EXPECT_EQ(database.ArrayDouble(3, -1, 0).RowSize(), 24);
    EXPECT_EQ(database.ArrayFloat(3, -1, 0).RowSize(), 12);
    EXPECT_EQ(database.ArrayString(3, -1, 0).RowSize(), 24);
}

TEST(Array, ReadAnswersElementsAndWriteAnswersRows)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(3, -1, 0);
    const std::vector<int> values = Counting(6);
    EXPECT_EQ(array.Write(values.data(), 2), 2);
    EXPECT_EQ(array.Length(), 2);
    EXPECT_EQ(array.Location(), 2);
    array.Seek(0);
    std::vector<int> read(12);
    EXPECT_EQ(array.Read(read.data(), 2), 6);
    EXPECT_EQ(array.Location(), 2);
    array.Seek(1);
    EXPECT_EQ(array.Read(read.data(), 4), 3);
    EXPECT_EQ(read[0], 3);
    EXPECT_EQ(array.Read(read.data(), 1), 0);
}

TEST(Array, ARowHalfThereCounts)
{
    const TestFile file;
    const rfm_Handle handle = StoreInts(file, 2, {1, 2, 3, 4});
    Poke(file, handle, 32, Stored(5));
    rfm_Database database = file.Open();
    IntArray array = database.ArrayInt(handle, -1, 0);
    EXPECT_EQ(array.SpaceLength(), 36);
    EXPECT_EQ(array.Length(), 3); // 16 bytes and two and a half rows
    int row[2] = {0, -1};
    array.Seek(2);
    EXPECT_EQ(array.Read(row, 1), 1);
    EXPECT_EQ(row[0], 5);
}

TEST(Array, LessThanHalfARowDoesNotCount)
{
    const TestFile file;
    const rfm_Handle handle = StoreInts(file, 3, {1, 2, 3});
    Poke(file, handle, 28, Stored(4));
    EXPECT_EQ(file.Open().ArrayInt(handle, -1, 0).Length(), 1);
}

TEST(Array, AWriteInTheMiddleWritesOver)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 0);
    array.Write(Counting(5).data(), 5);
    array.Seek(1);
    const int values[] = {70, 80};
    array.Write(values, 2);
    EXPECT_EQ(array.Location(), 3);
    EXPECT_EQ(AllOf(array), (std::vector<int>{0, 70, 80, 3, 4}));
}

TEST(Array, ASeekBeyondTheEndIsTakenForTheLength)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 0);
    array.Write(Counting(3).data(), 3);
    array.Seek(7);
    EXPECT_EQ(array.Location(), 7);
    EXPECT_EQ(array.Length(), 7);
    int value = 0;
    EXPECT_THAT(TextOf([&] { array.Read(&value, 1); }),
                testing::HasSubstr("***ERROR: Invalid seek offset: 44.000000."));
    array.Seek(0);
    EXPECT_EQ(array.Length(), 3);
}

TEST(Array, BadTransfersAreRefusedAndMoveNothing)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 0);
    int value = 5;
    EXPECT_EQ(AssertionOf([&] { array.Read(nullptr, 1); }), "data != NULL");
    EXPECT_EQ(AssertionOf([&] { array.Write(nullptr, 1); }), "data != NULL");
    for (const int count : {0, -1})
    {
        EXPECT_EQ(AssertionOf([&] { array.Read(&value, count); }), "rowCount > 0");
        EXPECT_EQ(AssertionOf([&] { array.Write(&value, count); }), "rowCount > 0");
    }
    EXPECT_EQ(array.Length(), 0);
    EXPECT_EQ(array.Location(), 0);
}

TEST(Array, AnArrayOpenedAsAnotherTypeIsRefused)
{
    const TestFile file;
    const rfm_Handle handle = StoreInts(file, 1, {1});
    rfm_Database database = file.Open();
    EXPECT_EQ(AssertionOf([&] { database.ArrayFloat(handle, -1, 0); }), "repr->Type() == type");
    EXPECT_EQ(AssertionOf([&] { database.ArrayDouble(handle, -1, 0); }), "repr->Type() == type");
    EXPECT_EQ(AssertionOf([&] { database.ArrayString(handle, -1, 0); }), "repr->Type() == type");
}

TEST(Array, StatisticsAreThoseOfItsHandle)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, 64, 0);
    array.Write(Counting(3).data(), 3);
    array.Flush();
    EXPECT_EQ(array.SpaceLength(), 28);
    EXPECT_EQ(array.SpaceAllocation(), 64);
    EXPECT_STREQ(array.GetObjStatistics().ConstGet(0).CString(), "Linkage_Count=1");
}

// ---- Blocks ----

TEST(Array, RowsLargerThanTheBlockGoThroughIt)
{
    const TestFile file;
    rfm_Handle handle;
    {
        rfm_Database database = file.Create();
        for (const int bufferSize : {4, 5, 12, 64})
        {
            IntArray array = database.ArrayInt(100, -1, bufferSize);
            array.Write(Counting(1000).data(), 10);
            array.Write(Counting(100, 1000).data(), 1);
            EXPECT_EQ(AllOf(array), Counting(1100)) << bufferSize;
            handle = array.Handle();
        }
    }
    rfm_Database database = file.Open();
    for (const int bufferSize : {4, 7, 64, 0, -5})
        EXPECT_EQ(AllOf(database.ArrayInt(handle, -1, bufferSize)), Counting(1100)) << bufferSize;
}

TEST(Array, ABlockOfLessThanAnElementWritesNothing)
{
    const TestFile file;
    rfm_Database database = file.Create();
    const char* text = "rfm_IOBuffer::PrepWrite: Quantum is too large for buffer.";
    EXPECT_EQ(TextOf([&] { database.ArrayInt(1, -1, 3); }), text);
    DoubleArray doubles = database.ArrayDouble(1, -1, 7);
    const double value = 1;
    EXPECT_EQ(TextOf([&] { doubles.Write(&value, 1); }), text);
    StringArray strings = database.ArrayString(1, -1, 7);
    const cow_String string("s");
    EXPECT_EQ(TextOf([&] { strings.Write(&string, 1); }), text);
}

TEST(Array, ABlockOfLessThanAnElementReadsNothing)
{
    const TestFile file;
    rfm_Handle handle;
    {
        rfm_Database database = file.Create();
        DoubleArray array = database.ArrayDouble(1, -1, 0);
        handle = array.Handle();
        const double value = 1;
        array.Write(&value, 1);
    }
    rfm_Database database = file.Open();
    DoubleArray array = database.ArrayDouble(handle, -1, 7);
    double value = -1;
    EXPECT_EQ(array.Read(&value, 1), 0);
    EXPECT_EQ(value, -1);
}

TEST(Array, ALargeTransferAmongSmallOnesKeepsTheOrder)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 256);
    int next = 0;
    for (const int count : {1, 63, 64, 65, 5000, 1, 100000, 3})
    {
        array.Write(Counting(count, next).data(), count);
        next += count;
    }
    array.Seek(0);
    int expected = 0;
    for (const int count : {3, 100000, 64, 1, 5000, 65, 63, 1})
    {
        std::vector<int> read(static_cast<std::size_t>(count));
        ASSERT_EQ(array.Read(read.data(), count), count);
        ASSERT_EQ(read, Counting(count, expected));
        expected += count;
    }
}

// ---- Flush and Snap ----

TEST(Array, EveryFlushCountsAndKeepsThePosition)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 0);
    array.Write(Counting(5).data(), 5);
    array.Seek(2);
    EXPECT_EQ(array.Flush(), 1);
    EXPECT_EQ(array.Flush(), 2);
    EXPECT_EQ(array.Location(), 2);
    int value = 0;
    array.Read(&value, 1);
    EXPECT_EQ(value, 2);
    EXPECT_EQ(Of(database, array.Handle()).substr(4, 4), Stored(2));
    EXPECT_EQ(array.Snap(), 0);
    EXPECT_EQ(array.Location(), 3);
}

TEST(Array, TheFlushCountGoesOnInTheNextSessionAndWraps)
{
    const TestFile file;
    const rfm_Handle handle = StoreInts(file, 1, {1});
    {
        rfm_Database database = file.Open(utl_FileAccessUpdate);
        IntArray array = database.ArrayInt(handle, -1, 0);
        EXPECT_EQ(array.Flush(), 2);
    }
    Poke(file, handle, 4, Stored(2147483647));
    rfm_Database database = file.Open(utl_FileAccessUpdate);
    EXPECT_EQ(database.ArrayInt(handle, -1, 0).Flush(), std::numeric_limits<int>::min());
}

TEST(Array, AnArrayLetGoWithoutAFlushHasItsRowsButNotItsCount)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_Handle handle;
    {
        IntArray array = database.ArrayInt(1, -1, 0);
        handle = array.Handle();
        array.Write(Counting(3).data(), 3);
    }
    EXPECT_EQ(Of(database, handle).substr(4, 4), Stored(0));
    EXPECT_EQ(AllOf(database.ArrayInt(handle, -1, 0)), Counting(3));
}

TEST(Array, AReadOnlyArrayRefusesEveryChange)
{
    const TestFile file;
    const rfm_Handle handle = StoreInts(file, 1, {1, 2});
    rfm_Database database = file.Open();
    IntArray array = database.ArrayInt(handle, -1, 0);
    IntArray other = database.ArrayInt(handle, -1, 0);
    const int value = 9;
    EXPECT_EQ(array.Flush(), 0);
    EXPECT_EQ(TextOf([&] { array.Write(&value, 1); }), kReadOnlyText);
    EXPECT_EQ(TextOf([&] { array.Truncate(1); }), "***ERROR: Attempt to truncate read only array.");
    EXPECT_EQ(TextOf([&] { array.Append(other); }),
              "rfm_ArrayRepr::Append - Attempt to append to read only array.");
    EXPECT_EQ(TextOf([&] { database.ArrayInt(1, -1, 0); }), kReadOnlyText);
    EXPECT_EQ(AllOf(array), (std::vector<int>{1, 2}));
}

TEST(Array, AFollowerSeesNewRowsAfterASnap)
{
    WriterAndReader both;
    int row[4] = {};
    EXPECT_EQ(both.followed.Read(row, 1), 2);
    both.written.Write(Counting(2, 5).data(), 1);
    both.Publish();
    EXPECT_EQ(both.followed.Snap(), 0); // the database comes first
    EXPECT_EQ(both.followed.Length(), 2);
    EXPECT_EQ(both.reader.Snap(), 1);
    EXPECT_EQ(both.followed.Snap(), 2);
    EXPECT_EQ(both.followed.Location(), 1);
    EXPECT_EQ(both.followed.Length(), 3);
    EXPECT_EQ(both.followed.Read(row, 2), 4);
    EXPECT_EQ(row[0], 3);
    EXPECT_EQ(row[3], 6);
    EXPECT_EQ(both.followed.Snap(), 0);
    EXPECT_EQ(both.followed.Location(), 3);
}

TEST(Array, AFollowerSeesWhatWasWrittenOverAfterASnap)
{
    WriterAndReader both;
    EXPECT_EQ(AllOf(both.followed), (std::vector<int>{1, 2, 3, 4}));
    both.written.Seek(1);
    both.written.Write(Counting(2, 30).data(), 1);
    both.Publish();
    both.reader.Snap();
    both.followed.Snap();
    EXPECT_EQ(AllOf(both.followed), (std::vector<int>{1, 2, 30, 31}));
}

TEST(Array, ASnapWithoutNewsLeavesThePositionBehindTheCount)
{
    WriterAndReader both;
    both.followed.Seek(1);
    both.writer.Flush(); // the database moves on, the array does not
    EXPECT_EQ(both.reader.Snap(), 1);
    EXPECT_EQ(both.followed.Snap(), 0);
    EXPECT_EQ(both.followed.Location(), 0);
    int read[4] = {};
    EXPECT_EQ(both.followed.Read(read, 2), 4); // inside the head: type and elements per row come first
    EXPECT_EQ(read[0], rfm_TypeInt);
    EXPECT_EQ(read[1], 2);
    EXPECT_EQ(read[2], 1);
    EXPECT_EQ(read[3], 2);
    both.followed.Seek(0);
    EXPECT_EQ(AllOf(both.followed), (std::vector<int>{1, 2, 3, 4}));
}

TEST(Array, ASnapOnAWritableArrayAnswersZeroAndStays)
{
    WriterAndReader both;
    both.written.Seek(1);
    both.writer.Flush();
    EXPECT_EQ(both.written.Snap(), 0);
    EXPECT_EQ(both.written.Location(), 1);
}

// ---- Truncate ----

TEST(Array, ATruncateShortensAndGoesToTheFirstRow)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(2, -1, 0);
    array.Write(Counting(6).data(), 3);
    array.Truncate(1); // with rows that are still in the block
    EXPECT_EQ(array.Location(), 0);
    EXPECT_EQ(array.Length(), 1);
    EXPECT_EQ(AllOf(array), (std::vector<int>{0, 1}));
    array.Truncate(1);
    array.Write(Counting(2, 70).data(), 1);
    EXPECT_EQ(AllOf(array), (std::vector<int>{70, 71}));
}

TEST(Array, ATruncateToMoreChangesNothing)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 0);
    array.Write(Counting(3).data(), 3);
    array.Truncate(7);
    EXPECT_EQ(array.Location(), 0);
    EXPECT_EQ(array.Length(), 3);
}

TEST(Array, ATruncateNeverCutsTheHead)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 0);
    array.Write(Counting(3).data(), 3);
    array.Truncate(-1);
    EXPECT_EQ(array.SpaceLength(), 16);
    array.Write(Counting(2).data(), 2);
    array.Truncate(0);
    EXPECT_EQ(array.SpaceLength(), 16);
}

// ---- Append ----

TEST(Array, CopyAllowedWantsTheSameElementsPerRow)
{
    const TestFile file;
    rfm_Database database = file.Create();
    const IntArray three = database.ArrayInt(3, -1, 0);
    EXPECT_EQ(three.CopyAllowed(database.ArrayInt(3, -1, 0)), 1);
    EXPECT_EQ(three.CopyAllowed(database.ArrayInt(4, -1, 0)), 0);
    const rfm_ArrayRepr floats(database.Repr(), rfm_TypeFloat, 3, -1, 0);
    EXPECT_EQ(three.Repr().CopyAllowed(floats), 0);
    const rfm_ArrayRepr handles(database.Repr(), rfm_TypeHandle, 3, -1, 0);
    EXPECT_EQ(handles.CopyAllowed(handles), 0);
}

TEST(Array, AnAppendAcrossDatabasesAddsAllRowsAndLeavesBothAtTheirEnds)
{
    const TestFile file;
    const TestFile other("other");
    const rfm_Handle handle = StoreInts(other, 2, Counting(2000, 4));
    rfm_Database source = other.Open();
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(2, -1, 64);
    array.Write(Counting(4).data(), 2);
    array.Seek(0);
    IntArray appended = source.ArrayInt(handle, -1, 16);
    array.Append(appended);
    EXPECT_EQ(array.Location(), 1002);
    EXPECT_EQ(appended.Location(), 1000);
    EXPECT_EQ(AllOf(array), Counting(2004));
    EXPECT_EQ(AllOf(appended), Counting(2000, 4));
}

TEST(Array, AnAppendFlushesBothArrays)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray first = database.ArrayInt(1, -1, 0);
    IntArray second = database.ArrayInt(1, -1, 0);
    second.Write(Counting(3).data(), 3);
    first.Append(second);
    EXPECT_EQ(first.Flush(), 2);
    EXPECT_EQ(second.Flush(), 2);
}

TEST(Array, AnArrayAppendedToItselfIsDoubled)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 16);
    array.Write(Counting(1000).data(), 1000);
    array.Append(array);
    EXPECT_EQ(array.Location(), 2000);
    std::vector<int> expected = Counting(1000);
    expected.insert(expected.end(), expected.begin(), expected.begin() + 1000);
    EXPECT_EQ(AllOf(array), expected);
}

TEST(Array, AnArrayAppendedThroughASecondHandleIsDoubled)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 16);
    array.Write(Counting(100).data(), 100);
    array.Flush();
    IntArray same = database.ArrayInt(array.Handle(), -1, 16);
    array.Append(same);
    EXPECT_EQ(array.Length(), 200);
}

TEST(Array, AnEmptyArrayAppendsNothing)
{
    const TestFile file;
    rfm_Database database = file.Create();
    IntArray array = database.ArrayInt(1, -1, 0);
    array.Write(Counting(2).data(), 2);
    IntArray empty = database.ArrayInt(1, -1, 0);
    array.Append(empty);
    EXPECT_EQ(AllOf(array), Counting(2));
    empty.Append(empty);
    EXPECT_EQ(empty.Length(), 0);
}

TEST(Array, AppendedStringsAreEncodedForThePoolOfTheTarget)
{
    const TestFile file;
    const TestFile other("other");
    rfm_Database source = other.Create();
    StringArray appended = source.ArrayString(1, -1, 0);
    std::vector<std::string> expected = {"own"};
    for (int i = 0; i < 35; ++i) // more than twice the sixteen that move at a time
    {
        const cow_String text = cow_String("text ") + cow_String(i);
        appended.Write(&text, 1);
        expected.emplace_back(text.View());
    }
    {
        rfm_Database database = file.Create();
        StringArray array = database.ArrayString(1, -1, 0);
        const cow_String own("own");
        array.Write(&own, 1);
        array.Append(appended);
        EXPECT_EQ(array.Location(), 36);
        EXPECT_EQ(appended.Location(), 35);
        EXPECT_EQ(AllOf(array), expected);
        array.Append(array);
        EXPECT_EQ(array.Length(), 72);
        EXPECT_EQ(Of(database, array.Handle(), 16).substr(8, 8), Stored(12.0)); // behind "own"
    }
    EXPECT_EQ(Of(source, appended.Handle(), 16).substr(0, 8), Stored(4.0));
}

// ---- CreateCopy ----

TEST(Array, ACopyIsTheSameBytesWithACountOfZero)
{
    const TestFile file;
    const TestFile other("other");
    const rfm_Handle handle = StoreInts(other, 2, {1, 2, 3, 4});
    rfm_Database source = other.Open();
    rfm_Database target = file.Create();
    const rfm_Handle copy = IntArray::CreateCopy(target, source, handle);
    EXPECT_EQ(Of(target, copy), Bytes({0xEB, 0xEE, 0xFA, 0xFF, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0,
                                       1,    0,    0,    0,    2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0}));
    EXPECT_EQ(Of(source, handle).substr(4, 4), Stored(1));
}

TEST(Array, ACopyOfAnEmptyArrayIsItsHead)
{
    const TestFile file;
    const rfm_Handle handle = StoreInts(file, 1, {1});
    rfm_Database database = file.Open(utl_FileAccessUpdate);
    database.ArrayInt(handle, -1, 0).Truncate(0);
    const rfm_Handle copy = IntArray::CreateCopy(database, database, handle);
    EXPECT_EQ(Of(database, copy).size(), 16U);
    EXPECT_EQ(database.ArrayInt(copy, -1, 0).Length(), 0);
}

TEST(Array, ACopyLargerThanOneBlockIsWhole)
{
    const TestFile file;
    rfm_Database database = file.Create();
    for (const int elements :
         {131070, 131071, 300000}) // 1 MiB less head, one element more, two blocks and a rest
    {
        DoubleArray array = database.ArrayDouble(1, -1, 0);
        std::vector<double> values(static_cast<std::size_t>(elements));
        std::iota(values.begin(), values.end(), 0.5);
        array.Write(values.data(), elements);
        array.Flush();
        const rfm_Handle copy = DoubleArray::CreateCopy(database, database, array.Handle());
        EXPECT_TRUE(Of(database, copy, 8) == Of(database, array.Handle(), 8)) << elements;
    }
}

TEST(Array, ACopyOfStringsIsRefusedBeforeAnythingIsMade)
{
    const TestFile file;
    rfm_Database database = file.Create();
    StringArray array = database.ArrayString(1, -1, 0);
    const cow_String text("text");
    array.Write(&text, 1);
    array.Flush();
    EXPECT_EQ(AssertionOf([&] { StringArray::CreateCopy(database, database, array.Handle()); }),
              "data != rfm_TypeString");
    EXPECT_EQ(AssertionOf([&] { IntArray::CreateCopy(database, database, array.Handle()); }),
              "data != rfm_TypeString");
    EXPECT_EQ(database.Space(-1).Handle().Value(), array.Handle().Value() + 1);
}

TEST(Array, ACopyOfSomethingElseIsRefused)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    stream.WriteInt(1, 2);
    stream.Flush();
    EXPECT_EQ(TextOf([&] { IntArray::CreateCopy(database, database, stream.Handle()); }),
              "rfm_ArrayRepr::CreateCopy: Handle is not to an Array object in RDX/VDX file.  File may be "
              "unusable.");
    rfm_Space space = database.Space(-1);
    const char* shortText = "rfm_ArrayRepr::CreateCopy: Array read failed. (1)  File may be unusable.";
    EXPECT_EQ(TextOf([&] { IntArray::CreateCopy(database, database, space.Handle()); }), shortText);
    space.Write("fifteen bytes..", 15);
    EXPECT_EQ(TextOf([&] { IntArray::CreateCopy(database, database, space.Handle()); }), shortText);
}

TEST(Array, ACopyIntoAReadOnlyDatabaseIsRefused)
{
    const TestFile file;
    const rfm_Handle handle = StoreInts(file, 1, {1});
    rfm_Database database = file.Open();
    EXPECT_EQ(TextOf([&] { IntArray::CreateCopy(database, database, handle); }), kReadOnlyText);
}

// ---- Damage ----

TEST(Array, AHandleToSomethingElseIsRefused)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_Space space = database.Space(-1);
    space.Write("fifteen bytes..", 15);
    EXPECT_EQ(
        TextOf([&] { database.ArrayInt(space.Handle(), -1, 0); }),
        "rfm_ArrayRepr::rfm_ArrayRepr: Array object in RDX/VDX file is corrupt.  File may be unusable.");
    space.Write("!", 1);
    EXPECT_EQ(TextOf([&] { database.ArrayInt(space.Handle(), -1, 0); }),
              "rfm_ArrayRepr::rfm_ArrayRepr: Handle is not to an Array object in RDX/VDX file.  File may be "
              "unusable.");
    EXPECT_EQ(TextOf([&] { database.ArrayInt(rfm_Handle(400), -1, 0); }),
              "***ERROR: Database is not valid. This may indicate that the database has been corrupted.");
}

TEST(Array, AStoredTypeThatNoArrayHasIsIllegal)
{
    for (const int type : {0, 2, 5, 7, 8, -1, 2147483647})
    {
        const TestFile file;
        const rfm_Handle handle = StoreInts(file, 1, {1, 2});
        Poke(file, handle, 8, Stored(type));
        rfm_Database database = file.Open();
        EXPECT_EQ(AssertionOf([&] { database.ArrayInt(handle, -1, 0); }), "repr->Type() == type");
        rfm_ArrayRepr array(database.Repr(), handle, -1, 0);
        const char* text = "rfm_ArrayRepr::RowSize - illegal array type.";
        EXPECT_EQ(TextOf([&] { array.RowSize(); }), text);
        EXPECT_EQ(TextOf([&] { array.Length(); }), text);
        EXPECT_EQ(TextOf([&] { array.Location(); }), text);
        EXPECT_EQ(TextOf([&] { array.Seek(1); }), text);
    }
}

TEST(Array, ACountOfElementsThatIsNotPositiveGivesALengthOfZero)
{
    for (const int count : {0, -1, std::numeric_limits<int>::min()})
    {
        const TestFile file;
        const rfm_Handle handle = StoreInts(file, 1, {1, 2});
        Poke(file, handle, 12, Stored(count));
        rfm_Database database = file.Open();
        IntArray array = database.ArrayInt(handle, -1, 0);
        EXPECT_EQ(array.FieldCount(), count);
        EXPECT_EQ(array.Length(), 0);
        EXPECT_EQ(array.Location(), 0);
        int value = -1;
        EXPECT_EQ(array.Read(&value, 5), 0);
        EXPECT_EQ(value, -1);
    }
}

TEST(Array, AnAbsurdCountOfElementsOverflowsNothing)
{
    const TestFile file;
    rfm_Handle handle;
    {
        rfm_Database database = file.Create();
        DoubleArray array = database.ArrayDouble(1, -1, 0);
        handle = array.Handle();
        const double value = 1;
        array.Write(&value, 1);
    }
    Poke(file, handle, 12, Stored(2147483647));
    rfm_Database database = file.Open(utl_FileAccessUpdate);
    DoubleArray array = database.ArrayDouble(handle, -1, 0);
    EXPECT_EQ(array.Length(), 0);
    EXPECT_EQ(array.RowSize(), 2147483647);
    double value = -1;
    EXPECT_EQ(TextOf([&] { array.Read(&value, 2); }), "***ERROR: Invalid length when reading array.");
    EXPECT_EQ(TextOf([&] { array.Seek(2147483647); }), CorruptText(file));
    EXPECT_EQ(TextOf([&] { array.Truncate(2147483647); }), CorruptText(file));
    array.Truncate(1);
    EXPECT_EQ(array.SpaceLength(), 24);
}

TEST(Array, AStringReferenceToNoTextIsRefused)
{
    const TestFile file;
    rfm_Database database = file.Create();
    StringArray array = database.ArrayString(1, -1, 0);
    const cow_String text("abcdefgh");
    array.Write(&text, 1);
    array.Flush();
    cow_String read;
    Poke(database, array.Handle(), 16, Stored(8.0));
    EXPECT_EQ(TextOf([&] { database.ArrayString(array.Handle(), -1, 0).Read(&read, 1); }), kNoStringText);
    Poke(database, array.Handle(), 16, Stored(-1.0));
    EXPECT_EQ(TextOf([&] { database.ArrayString(array.Handle(), -1, 0).Read(&read, 1); }), CorruptText(file));
}
