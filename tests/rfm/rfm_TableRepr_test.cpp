#include "rfm_ObjectFormat.h"
#include "rfm_TableRepr.h"
#include "rfm_TableScene.h"
#include "utl_FaultPlan.h"

#include <climits>
#include <optional>
#include <vector>

namespace
{
class rfm_TableReprTest : public rfm_TableScene
{
protected:
    rfm_TableReprTest() : m_Db(Create(m_Path)) {}

    /// A table of rows of 8 bytes: one int, index 0.
    rfm_Table Narrow(int readAhead)
    {
        rfm_TableMetadata layout("NARROW", 1);
        layout.DefineIntField("n");
        return m_Db.Table(m_Db.Bind(layout), 1024, readAhead);
    }

    /// Rows of 1060 bytes, wider than the table's block, so that each read and write of one reaches the file: 130
    /// doubles, of which index 0 is used.
    rfm_Table Wide(int readAhead)
    {
        rfm_TableMetadata layout("WIDE", 1);
        for (int i = 0; i < 130; ++i) layout.DefineDoubleField(cow_String("f") + cow_String(100 + i));
        return m_Db.Table(m_Db.Bind(layout), 1024, readAhead);
    }

    static void AddInts(rfm_Table& table, int first, int count)
    {
        for (int i = 0; i < count; ++i) table.NewRow().WriteFieldInt(0, first + i);
    }

    /// A wide table with rows 0 to count - 1 in the file, each holding its number, opened with `readAhead`.
    rfm_Table WideWithRows(int count, int readAhead)
    {
        rfm_Table table = Wide(32);
        for (int i = 0; i < count; ++i) table.NewRow().WriteFieldDouble(0, i);
        table.Flush();
        const rfm_Handle handle = table.Handle();
        table = rfm_Table();
        return m_Db.Table(handle, 1024, readAhead);
    }

    /// Changes the value of a row in the file beneath its table.
    void Tamper(const rfm_Table& table, int row, double value)
    {
        rfm_Space space = m_Db.Space(table.Handle(), -1);
        space.Seek(12 + row * table.RowSize() + 20);
        space.Write(reinterpret_cast<const char*>(&value), 8);
    }

    /// Whether the row is answered from the cache: its bytes in the file say -1 meanwhile.
    bool IsCached(rfm_Table& table, int row)
    {
        Tamper(table, row, -1);
        const bool cached = table.UpdateRow(row).ReadFieldDouble(0) != -1;
        Tamper(table, row, row);
        return cached;
    }

    rfm_Database m_Db;
};

bool IsDirty(const rfm_Row& row) { return row.Repr()->impl->IsDirty(); }
void MakeClean(const rfm_Row& row) { row.Repr()->impl->SetDirty(false); }
} // namespace

// ---- Header, length, damage ----

TEST_F(rfm_TableReprTest, ATableThatWasNeverFlushedHasItsHeaderNevertheless)
{
    rfm_Table table = Narrow(4);
    const rfm_Handle handle = table.Handle();
    table = rfm_Table();
    EXPECT_EQ(rfm_InHex(Content(m_Db, handle)), "bebbafaa 00000000 04000000");
    table = m_Db.Table(handle, -1, 4);
    EXPECT_EQ(table.Length(), 0);
    EXPECT_EQ(table.GetFlushCount(), 0);
}

TEST_F(rfm_TableReprTest, TheBytesOfATableAreHeaderAndRows)
{
    rfm_Table table = Narrow(4);
    AddInts(table, 1, 2);
    table.NewRow();
    table.Flush();
    table.UpdateRow(2).WriteFieldInt(0, 3);
    table.Flush();
    EXPECT_EQ(rfm_InHex(Content(m_Db, table.Handle())),
              "bebbafaa 02000000 04000000 01000000 01000000 01000000 02000000 01000000 03000000");
}

TEST_F(rfm_TableReprTest, TheLengthOfTheSpaceGivesTheRowsRoundedToTheNearest)
{
    EXPECT_EQ(rfm_RowsInSpace(12, 12, 20), 0);
    EXPECT_EQ(rfm_RowsInSpace(12 + 9, 12, 20), 0);
    EXPECT_EQ(rfm_RowsInSpace(12 + 10, 12, 20), 1);
    EXPECT_EQ(rfm_RowsInSpace(12 + 48, 12, 20), 2);
    EXPECT_EQ(rfm_RowsInSpace(12 + 50, 12, 20), 3);
    EXPECT_EQ(rfm_RowsInSpace(12 + 60, 12, 20), 3);
    EXPECT_EQ(rfm_RowsInSpace(0, 12, 20), 0);
    EXPECT_EQ(rfm_RowsInSpace(1000, 12, 0), 0);
    EXPECT_EQ(rfm_RowsInSpace(1000, 12, -8), 0);
    EXPECT_EQ(rfm_RowsInSpace(std::int64_t{1} << 50, 12, 4), INT_MAX);
}

TEST_F(rfm_TableReprTest, ALastRowOfWhichHalfIsThereCountsAndItsRestReadsAsZero)
{
    rfm_TableMetadata layout("TWO", 1);
    layout.DefineDoubleField("a");
    layout.DefineDoubleField("b");
    rfm_Table table = m_Db.Table(m_Db.Bind(layout), 1024, 4);
    for (int i = 0; i < 3; ++i)
    {
        rfm_Row row = table.NewRow();
        row.WriteFieldDouble("a", 0x1.1111111111111p0);
        row.WriteFieldDouble("b", 7);
    }
    ASSERT_EQ(table.RowSize(), 20);
    const rfm_Handle handle = table.Handle();
    table = rfm_Table();
    for (const auto& [bytes, rows] : {std::pair{50, 3}, std::pair{48, 2}})
    {
        m_Db.Space(handle, -1).Truncate(12 + bytes);
        table = m_Db.Table(handle, -1, 4);
        EXPECT_EQ(table.Length(), rows);
        if (rows == 3)
        {
            const rfm_Row half = table.ReadRow(2);
            EXPECT_EQ(rfm_InHex({half.Repr()->impl->Data(), 20}),
                      "03000000 11111111 11110000 00000000 00000000");
        }
        table = rfm_Table();
    }
}

TEST_F(rfm_TableReprTest, RowsBehindALastRowOfWhichHalfIsThereCompleteItWithZeros)
{
    rfm_Table table = Narrow(4);
    AddInts(table, 1, 3);
    table.Flush();
    const rfm_Handle handle = table.Handle();
    rfm_TableMetadata source("SOURCE", 1);
    source.DefineIntField("n");
    rfm_Table more = m_Db.Table(m_Db.Bind(source), 1024, 4);
    AddInts(more, 9, 1);
    for (const bool appended : {false, true})
    {
        table = rfm_Table();
        m_Db.Space(handle, -1).Truncate(12 + 20);
        table = m_Db.Table(handle, -1, 4);
        ASSERT_EQ(table.Length(), 3);
        if (appended)
            table.Append(more);
        else
            AddInts(table, 9, 1);
        table.Flush();
        EXPECT_EQ(table.Length(), 4);
        EXPECT_EQ(rfm_InHex(Content(m_Db, handle)).substr(27),
                  "01000000 01000000 01000000 02000000 01000000 00000000 01000000 09000000")
            << appended;
    }
}

TEST_F(rfm_TableReprTest, ALayoutWithoutFieldsHasNoLength)
{
    rfm_Table table = m_Db.Table(m_Db.Bind(rfm_TableMetadata("EMPTY", 1)), 1024, 4);
    EXPECT_EQ(table.RowSize(), 0);
    rfm_Row row = table.NewRow();
    row.Erase();
    EXPECT_EQ(row.DataIsPresent(0), 0);
    EXPECT_EQ(table.Length(), 1);
    EXPECT_EQ(table.Flush(), 1);
    const rfm_Handle handle = table.Handle();
    table = rfm_Table();
    table = m_Db.Table(handle, -1, 4);
    EXPECT_EQ(table.Length(), 0);
}

TEST_F(rfm_TableReprTest, AHeaderThatIsTooShortIsRefused)
{
    for (const int bytes : {0, 1, 8, 11})
    {
        rfm_Space space = m_Db.Space(-1);
        if (bytes > 0) space.Write("\xbe\xbb\xaf\xaa\0\0\0\0\4\0\0\0", bytes);
        EXPECT_EQ(
            rfm_TextOf([&] { m_Db.Table(space.Handle(), -1, 4); }),
            "rfm_TableRepr::rfm_TableRepr: MARLEK Database table format is corrupt. This may indicate a "
            "corrupt database, or it may indicate that the analysis code preprocessor is still writing "
            "the database. \n If you suspect the latter possibility, please attempt to reopen the "
            "database when the preprocessor is complete.")
            << bytes;
    }
}

TEST_F(rfm_TableReprTest, AnObjectOfAnotherKindIsRefused)
{
    rfm_Space space = m_Db.Space(-1);
    for (int i = 0; i < 3; ++i) space.WriteInt(4);
    EXPECT_EQ(rfm_TextOf([&] { m_Db.Table(space.Handle(), -1, 4); }),
              "rfm_TableRepr::rfm_TableRepr: Handle is not to a table object. This is not a valid MARLEK "
              "database.");
}

TEST_F(rfm_TableReprTest, ATableWhoseLayoutIsNotBoundIsRefused)
{
    rfm_Table table = Narrow(4);
    AddInts(table, 0, 1);
    Publish(m_Db, table);
    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    EXPECT_EQ(rfm_TextOf([&] { reader.Table(table.Handle(), -1, 4); }),
              "***ERROR: Can't find metadata with handle.");
    EXPECT_EQ(rfm_TextOf([&] { reader.Table("NARROW", -1, 4); }),
              "***ERROR: Can't find metadata with handle.");
    EXPECT_EQ(rfm_TextOf([&] { m_Db.Table("NOWHERE", -1, 4); }),
              "***ERROR: Can't find table metadata, \"NOWHERE\" in MARLEK database file.");
}

TEST_F(rfm_TableReprTest, ALayoutThatIsNotTheBoundOneIsAnAssertion)
{
    rfm_TableMetadata layout("NARROW", 1);
    layout.DefineIntField("n");
    m_Db.Bind(layout);
    EXPECT_THROW(m_Db.Table(layout, -1, 4), nex_AssertException);
}

TEST_F(rfm_TableReprTest, AFieldOfATypeThatRowsCannotHoldIsRefused)
{
    rfm_Table table = Narrow(4);
    const rfm_Handle handle = table.Handle();
    table = rfm_Table();
    m_Db.Flush();
    rfm_Space layouts = m_Db.Space(rfm_Handle(3), -1);
    layouts.Seek(4 + 12);
    layouts.WriteInt(rfm_TypeFixedString);
    layouts = rfm_Space();
    m_Db.Close();
    m_Db = Updater();
    EXPECT_EQ(rfm_TextOf([&] { m_Db.Table(handle, -1, 4); }),
              "rfm_TableRepr::Setup: An invalid field type for field 'n' has been specified for table "
              "'NARROW'.");
    EXPECT_EQ(rfm_TextOf([&] { m_Db.Table("NARROW", -1, 4); }),
              "rfm_TableRepr::Setup: An invalid field type for field 'n' has been specified for table "
              "'NARROW'.");
}

// ---- Write-out ----

namespace
{
/// Rows 0 to 4 in the file, rows 5, 6 and 7 new and held; which of those are dirty is up to the test.
class rfm_TableWriteOutTest : public rfm_TableReprTest
{
protected:
    rfm_TableWriteOutTest() : m_Table(Narrow(32))
    {
        AddInts(m_Table, 0, 5);
        m_Table.Flush();
        for (int i = 5; i < 8; ++i)
        {
            m_Rows.push_back(m_Table.NewRow());
            m_Rows.back().WriteFieldInt(0, i);
        }
    }

    /// The int of each row in the file.
    std::vector<int> Stored()
    {
        const std::string bytes = Content(m_Db, m_Table.Handle());
        std::vector<int> values;
        for (std::size_t place = 12; place < bytes.size(); place += 8)
            values.push_back(static_cast<unsigned char>(bytes[place + 4]));
        return values;
    }

    rfm_Table m_Table;
    std::vector<rfm_Row> m_Rows;
};
} // namespace

TEST_F(rfm_TableWriteOutTest, WithOnlyTheLastDirtyTheCleanOnesBeforeItGoOutToo)
{
    MakeClean(m_Rows[0]);
    MakeClean(m_Rows[1]);
    m_Table.Flush();
    EXPECT_EQ(Stored(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(rfm_TableWriteOutTest, WithOnlyTheFirstDirtyTheOthersStayBack)
{
    MakeClean(m_Rows[1]);
    MakeClean(m_Rows[2]);
    m_Table.Flush();
    EXPECT_EQ(Stored(), (std::vector<int>{0, 1, 2, 3, 4, 5}));
    m_Rows[2].WriteFieldInt(0, 7);
    m_Table.UpdateRow(7);
    m_Table.Flush();
    EXPECT_EQ(Stored(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(rfm_TableWriteOutTest, WithOnlyTheMiddleDirtyTheRunEndsThere)
{
    MakeClean(m_Rows[0]);
    MakeClean(m_Rows[2]);
    m_Table.Flush();
    EXPECT_EQ(Stored(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6}));
}

TEST_F(rfm_TableWriteOutTest, WithNoneDirtyNoneGoesOut)
{
    for (const rfm_Row& row : m_Rows) MakeClean(row);
    m_Table.Flush();
    EXPECT_EQ(Stored(), (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(rfm_TableWriteOutTest, BelowTheFrontierOnlyDirtyRowsAreWritten)
{
    m_Table.Flush();
    rfm_Space space = m_Db.Space(m_Table.Handle(), -1);
    for (const int row : {1, 2, 3})
    {
        space.Seek(12 + 8 * row + 4);
        space.WriteInt(100 + row);
    }
    m_Table.UpdateRow(2).WriteFieldInt(0, 50);
    m_Table.Flush();
    EXPECT_EQ(Stored(), (std::vector<int>{0, 101, 50, 103, 4, 5, 6, 7}));
}

TEST_F(rfm_TableWriteOutTest, WhatWasWrittenIsClean)
{
    m_Table.Flush();
    for (const rfm_Row& row : m_Rows) EXPECT_FALSE(IsDirty(row));
}

// ---- The cache ----

TEST_F(rfm_TableReprTest, AReadMissLoadsAsManyRowsAsTheReadAheadSays)
{
    rfm_Table table = WideWithRows(10, 3);
    table.ReadRow(2);
    EXPECT_TRUE(IsCached(table, 2));
    EXPECT_TRUE(IsCached(table, 3));
    EXPECT_TRUE(IsCached(table, 4));
    EXPECT_FALSE(IsCached(table, 5));
    EXPECT_FALSE(IsCached(table, 1));
}

TEST_F(rfm_TableReprTest, ANegativeReadAheadMeans32)
{
    rfm_Table table = WideWithRows(40, -1);
    table.ReadRow(0);
    EXPECT_TRUE(IsCached(table, 31));
    EXPECT_FALSE(IsCached(table, 32));
}

TEST_F(rfm_TableReprTest, EveryReadMissPurges)
{
    rfm_Table table = WideWithRows(10, 3);
    table.ReadRow(0);
    table.ReadRow(5);
    EXPECT_FALSE(IsCached(table, 2));
}

TEST_F(rfm_TableReprTest, AnUpdateMissPurgesOnlyWhenTheAllowanceIsUsedUp)
{
    rfm_Table table = WideWithRows(40, 2);
    table.UpdateRow(0);  // allowance 2, then 1
    table.UpdateRow(10); // 1, then 0
    EXPECT_TRUE(IsCached(table, 0));
    EXPECT_TRUE(IsCached(table, 11));
    table.UpdateRow(20); // 0: a purge
    EXPECT_TRUE(IsCached(table, 20));
    EXPECT_FALSE(IsCached(table, 10));
}

TEST_F(rfm_TableReprTest, ANewRowPurgesOnlyWhenTheAllowanceIsUsedUp)
{
    rfm_Table table = Narrow(2);
    const rfm_Row first = table.NewRow();
    const rfm_Row second = table.NewRow();
    EXPECT_TRUE(IsDirty(first));
    EXPECT_TRUE(IsDirty(second));
    const rfm_Row third = table.NewRow();
    EXPECT_FALSE(IsDirty(first));
    EXPECT_FALSE(IsDirty(second));
    EXPECT_TRUE(IsDirty(third));
}

TEST_F(rfm_TableReprTest, RowsThatAreCachedUseUpATurnOfTheReadAhead)
{
    rfm_Table table = WideWithRows(30, 3);
    const rfm_Row held = table.ReadRow(5);
    table.ReadRow(20); // the purge leaves row 5 alone
    table.ReadRow(4);  // loads 4 and 6; 5 is there
    EXPECT_TRUE(IsCached(table, 6));
    EXPECT_FALSE(IsCached(table, 7));
}

TEST_F(rfm_TableReprTest, AHeldRowStaysCachedHoweverManyPurgesCome)
{
    rfm_Table table = WideWithRows(30, 1);
    const rfm_Row held = table.ReadRow(3);
    for (int i = 0; i < 30; ++i) table.ReadRow(i);
    EXPECT_EQ(table.ReadRow(3).Repr(), held.Repr());
    EXPECT_TRUE(IsCached(table, 3));
}

TEST_F(rfm_TableReprTest, ManyHeldRowsStayHoweverSmallTheReadAheadIs)
{
    rfm_Table table = Narrow(1);
    std::vector<rfm_Row> rows;
    for (int i = 0; i < 500; ++i)
    {
        rows.push_back(table.NewRow());
        rows.back().WriteFieldInt(0, i);
    }
    table.Flush();
    for (int i = 499; i >= 0; i -= 7)
        EXPECT_EQ(table.ReadRow(i).Repr(), rows[static_cast<std::size_t>(i)].Repr());
}

TEST_F(rfm_TableReprTest, WithoutReadAheadNewRowsWorkAndUncachedOnesDoNotExist)
{
    rfm_Table table = Narrow(0);
    const rfm_Row held = table.NewRow();
    rfm_Row(held).WriteFieldInt(0, 7);
    AddInts(table, 1, 3);
    EXPECT_EQ(table.Length(), 4);
    EXPECT_EQ(table.ReadRow(0).ReadFieldInt(0), 7);
    const std::string words =
        "rfm_TableRepr::ReadRow - Row does not exist for table 'NARROW', index: 2, len: 4";
    const rfm_Outcome outcome = rfm_OutcomeOf([&] { table.ReadRow(2); });
    EXPECT_EQ(outcome.text, words);
    EXPECT_EQ(outcome.standardError, words + "\n");
    EXPECT_NE(rfm_OutcomeOf([&] { table.UpdateRow(2); }).text, "");
    table.Flush();
    EXPECT_EQ(Content(m_Db, table.Handle()).size(), 12U + 4 * 8);
}

TEST_F(rfm_TableReprTest, ARowReadBehindBytesThatWaitInTheBlockIsTheRightOne)
{
    rfm_Table table = Narrow(1); // each new row puts its forerunner into the block, which holds 126 of them
    AddInts(table, 0, 50);
    for (const int row : {10, 49, 0, 25}) EXPECT_EQ(table.ReadRow(row).ReadFieldInt(0), row);
}

// ---- Flush ----

TEST_F(rfm_TableReprTest, AFlushWithoutNewsAnswersTheSameCountAndWritesNothing)
{
    rfm_Table table = Narrow(4);
    AddInts(table, 0, 3);
    EXPECT_EQ(table.Flush(), 1);
    const utl_FaultPlan plan;
    EXPECT_EQ(table.Flush(), 1);
    EXPECT_EQ(table.GetFlushCount(), 1);
    EXPECT_EQ(plan.Writes(), 0);
}

TEST_F(rfm_TableReprTest, AnUpdateWithoutAWriteCountsAsAChange)
{
    rfm_Table table = Narrow(4);
    AddInts(table, 0, 3);
    table.Flush();
    table.UpdateRow(0);
    EXPECT_EQ(table.Flush(), 2);
}

TEST_F(rfm_TableReprTest, AWriteThroughARowForReadingWaitsForAPurge)
{
    rfm_Table table = WideWithRows(10, 1);
    table.ReadRow(0).WriteFieldDouble(0, 50);
    EXPECT_EQ(table.Flush(), 1);
    const auto stored = [&]
    {
        const std::string bytes = Content(m_Db, table.Handle());
        double value = 0;
        std::copy_n(bytes.data() + 12 + 20, 8, reinterpret_cast<char*>(&value));
        return value;
    };
    EXPECT_EQ(stored(), 0);
    table.ReadRow(5);
    EXPECT_EQ(stored(), 50);
    EXPECT_EQ(table.GetFlushCount(), 1);
    table.ReadRow(1).WriteFieldDouble(0, 60);
    const rfm_Handle handle = table.Handle();
    table = rfm_Table();
    table = m_Db.Table(handle, -1, 1);
    EXPECT_EQ(table.ReadRow(1).ReadFieldDouble(0), 1); // nor does the end of the table write it
}

TEST_F(rfm_TableReprTest, TheEndOfATableFlushesIt)
{
    rfm_Table table = Narrow(4);
    AddInts(table, 5, 1);
    const rfm_Handle handle = table.Handle();
    table = rfm_Table();
    EXPECT_EQ(rfm_InHex(Content(m_Db, handle)), "bebbafaa 01000000 04000000 01000000 05000000");
}

// ---- The ceiling ----

namespace
{
/// A table with a length that nobody has to write: its space has room in a sparse file and is said to be in use.
class rfm_TableCeilingTest : public rfm_TableReprTest
{
protected:
    rfm_Table NarrowOfBytes(std::int64_t bytes)
    {
        rfm_Table table = Narrow(1);
        AddInts(table, 100, 10);
        table.Flush();
        const rfm_Handle handle = table.Handle();
        table = rfm_Table();
        m_Db.Space(handle, -1).Extend(bytes);
        static_cast<rfm_DatabaseReprFile&>(m_Db.Repr()).Lengthen(handle.Value(), bytes);
        return m_Db.Table(handle, -1, 1);
    }

    utl_FaultPlan m_Sparse{utl_Faults{.noReservation = true}};
    static constexpr int kMostRows = (INT_MAX - 12) / 8;
    const std::string m_Limit = "***ERROR: Table \"NARROW\" would pass the limit of 2 GiB for one table.";
};
} // namespace

TEST_F(rfm_TableCeilingTest, ARowThatWouldPassTwoGibibytesIsRefused)
{
    rfm_Table table = NarrowOfBytes(12 + 8 * std::int64_t{kMostRows - 1});
    ASSERT_EQ(table.Length(), kMostRows - 1);
    table.NewRow().WriteFieldInt(0, 42); // the last that fits
    EXPECT_EQ(rfm_TextOf([&] { table.NewRow(); }), m_Limit);
    EXPECT_EQ(rfm_TextOf([&] { table.UpdateRow(kMostRows); }), m_Limit);
    EXPECT_EQ(table.Length(), kMostRows);
    table.Flush();
    EXPECT_EQ(table.SpaceLength().Value(), 12 + 8 * std::int64_t{kMostRows});
    EXPECT_EQ(table.ReadRow(3).ReadFieldInt(0), 103);
    EXPECT_EQ(table.ReadRow(kMostRows - 1).ReadFieldInt(0), 42);
}

TEST_F(rfm_TableCeilingTest, AnAppendPastTwoGibibytesIsRefusedAndChangesNothing)
{
    rfm_Table table = NarrowOfBytes(12 + 8 * std::int64_t{kMostRows - 4});
    rfm_Table source = m_Db.Table("NARROW", -1, 4);
    AddInts(source, 0, 5);
    EXPECT_EQ(rfm_TextOf([&] { table.Append(source); }), m_Limit);
    EXPECT_EQ(table.Length(), kMostRows - 4);
    EXPECT_EQ(table.SpaceLength().Value(), 12 + 8 * std::int64_t{kMostRows - 4});
    source.Truncate(4);
    table.Append(source);
    EXPECT_EQ(table.Length(), kMostRows);
}

TEST_F(rfm_TableCeilingTest, ARoomPastTwoGibibytesIsRefused)
{
    rfm_Table table = Narrow(4);
    const std::string before = Content(m_Db, table.Handle());
    EXPECT_EQ(rfm_TextOf([&] { table.Extend(kMostRows + 1); }), m_Limit);
    EXPECT_EQ(rfm_TextOf([&] { table.Extend(INT_MAX); }), m_Limit);
    EXPECT_EQ(Content(m_Db, table.Handle()), before);
    table.Extend(kMostRows);
    EXPECT_GE(table.SpaceAllocation().Value(), 12 + 8 * std::int64_t{kMostRows});
    EXPECT_EQ(table.Length(), 0);
}

// A file from elsewhere may have gone past the ceiling. Its rows lie where 32 bits say.
TEST_F(rfm_TableCeilingTest, OffsetsPastTheCeilingWrap)
{
    constexpr int kWholeTurn = 1 << 29; // rows of 8 bytes in 4 GiB
    rfm_Table table = NarrowOfBytes(12 + 8 * std::int64_t{kWholeTurn + 10});
    ASSERT_EQ(table.Length(), kWholeTurn + 10);
    EXPECT_EQ(table.ReadRow(kWholeTurn + 3).ReadFieldInt(0), 103);
    // At 4: count and place of the layout, taken for a row.
    EXPECT_EQ(table.ReadRow(kWholeTurn - 1).ReadFieldInt(0), 4);
    EXPECT_EQ(
        rfm_TextOf([&] { table.ReadRow(kMostRows + 1); }),
        "***ERROR: Invalid seek offset: -2147483644.000000.  This is usually caused by depletion of free "
        "space on the filesystem on which the RDX file is being built.");
    EXPECT_EQ(table.ReadRow(5).ReadFieldInt(0), 105);
    EXPECT_EQ(rfm_TextOf([&] { table.NewRow(); }), m_Limit);
}

// ---- Failures ----

// A refused write stays with the file and is tried again; the row behind it has not been written at all.
TEST_F(rfm_TableReprTest, ARefusedFlushLeavesRowsDirtyAndTheCountAsItWas)
{
    rfm_Table table = WideWithRows(5, 8);
    m_Db.Flush();
    rfm_Row first = table.UpdateRow(1);
    rfm_Row second = table.UpdateRow(3);
    first.WriteFieldDouble(0, 50);
    second.WriteFieldDouble(0, 60);
    {
        const utl_FaultPlan plan({.failWrite = 1, .error = ENOSPC});
        EXPECT_NE(rfm_TextOf([&] { table.Flush(); }), "");
        EXPECT_TRUE(plan.Fired());
    }
    EXPECT_TRUE(IsDirty(second));
    EXPECT_EQ(table.GetFlushCount(), 1);
    EXPECT_EQ(first.ReadFieldDouble(0), 50);
    EXPECT_EQ(second.ReadFieldDouble(0), 60);
    EXPECT_EQ(table.Flush(), 2);
    EXPECT_FALSE(IsDirty(first));
    EXPECT_FALSE(IsDirty(second));
    rfm_Table again = m_Db.Table(table.Handle(), -1, 8);
    EXPECT_EQ(again.GetFlushCount(), 2);
    EXPECT_EQ(again.ReadRow(1).ReadFieldDouble(0), 50);
    EXPECT_EQ(again.ReadRow(3).ReadFieldDouble(0), 60);
}

namespace
{
/// A piece of work against a table with three rows, each step of which may be refused once and is then done again.
class rfm_TableFailureTest : public rfm_TableReprTest, public testing::WithParamInterface<int>
{
protected:
    template <class Step> void Insist(utl_FaultPlan& plan, Step step)
    {
        try
        {
            step();
        }
        catch (const nex_Exception&)
        {
            ++m_Refusals;
            plan.Repair();
            step();
        }
    }

    void Work(utl_FaultPlan& plan, rfm_Table& table)
    {
        for (int i = 3; i < 400; ++i)
        {
            std::optional<rfm_Row> row;
            Insist(plan, [&] { row = table.NewRow(); });
            row->WriteFieldInt(0, i);
            row.reset();
            if (i % 100 != 0) continue;
            Insist(plan, [&] { row = table.UpdateRow(i / 3); });
            row->WriteFieldInt(0, -i);
            row.reset();
            Insist(plan, [&] { table.Flush(); });
            Insist(plan, [&] { m_Db.Flush(); });
        }
        Insist(plan, [&] { Publish(m_Db, table); });
    }

    void ExpectTheWorkDone(rfm_Handle handle)
    {
        rfm_Database reader = Reader();
        rfm_Table table = reader.Table(handle, -1, -1);
        ASSERT_EQ(table.Length(), 400);
        for (int i = 0; i < 400; ++i)
        {
            const bool updated = i == 33 || i == 66 || i == 100;
            const int expected = !updated ? i : i == 100 ? -300 : i == 33 ? -100 : -200;
            ASSERT_EQ(table.ReadRow(i).ReadFieldInt(0), expected) << i;
        }
    }

    int m_Refusals = 0;
};
} // namespace

TEST_P(rfm_TableFailureTest, EveryWriteMayFailOnceAndNothingIsLost)
{
    int failAt = 1;
    for (;; ++failAt)
    {
        m_Db = Create(m_Path);
        rfm_Table table = Narrow(GetParam());
        AddInts(table, 0, 3);
        Publish(m_Db, table);
        m_Refusals = 0;
        utl_FaultPlan plan({.failWrite = failAt, .tornAtHalf = failAt % 2 == 0});
        Work(plan, table);
        EXPECT_EQ(m_Refusals, plan.Fired() ? 1 : 0) << failAt;
        ExpectTheWorkDone(table.Handle());
        if (!plan.Fired() || HasFatalFailure()) break;
    }
    EXPECT_GT(failAt, 15);
}

TEST_P(rfm_TableFailureTest, EveryChangeOfSizeMayFailOnceAndNothingIsLost)
{
    int failAt = 1;
    for (;; ++failAt)
    {
        m_Db = Create(m_Path);
        // Something behind the table and a file that is full to its last byte: each step needs room.
        rfm_Table table = Narrow(GetParam());
        AddInts(table, 0, 3);
        Publish(m_Db, table);
        rfm_Space filler = m_Db.Space(-1);
        const std::int64_t room =
            1048576 - static_cast<rfm_DatabaseReprFile&>(m_Db.Repr()).FileLength().Value();
        filler.Extend(room);
        filler = rfm_Space();
        m_Refusals = 0;
        utl_FaultPlan plan({.failExtend = failAt, .error = ENOSPC});
        Work(plan, table);
        EXPECT_EQ(m_Refusals, plan.Fired() ? 1 : 0) << failAt;
        ExpectTheWorkDone(table.Handle());
        if (!plan.Fired() || HasFatalFailure()) break;
    }
    EXPECT_GT(failAt, 1);
}

INSTANTIATE_TEST_SUITE_P(ReadAheads, rfm_TableFailureTest, testing::Values(1, 2, 7, 32));

TEST_F(rfm_TableReprTest, EveryReadMayFailOnceAndTheNextGivesTheRow)
{
    rfm_Table table = Wide(32);
    for (int i = 0; i < 10; ++i) table.NewRow().WriteFieldDouble(0, i);
    Publish(m_Db, table);
    int failAt = 1;
    for (;; ++failAt)
    {
        rfm_Database reader = Reader();
        rfm_Table follower = reader.Table(table.Handle(), -1, 3);
        utl_FaultPlan plan({.failRead = failAt});
        int refusals = 0;
        for (int i = 0; i < 10; ++i)
        {
            double value = -1;
            const auto look = [&] { value = follower.ReadRow(i).ReadFieldDouble(0); };
            if (!rfm_TextOf(look).empty())
            {
                ++refusals;
                look();
            }
            EXPECT_EQ(value, i);
        }
        EXPECT_EQ(refusals, plan.Fired() ? 1 : 0) << failAt;
        if (!plan.Fired()) break;
    }
    EXPECT_GT(failAt, 2);
}

TEST_F(rfm_TableReprTest, ASnapWhoseReadFailsIsDueAgain)
{
    rfm_Table table = Narrow(4);
    AddInts(table, 0, 3);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    AddInts(table, 3, 1);
    Publish(m_Db, table);
    ASSERT_EQ(reader.Snap(), 1);
    {
        const utl_FaultPlan plan({.failRead = 1});
        EXPECT_NE(rfm_TextOf([&] { follower.Snap(); }), "");
        EXPECT_EQ(follower.Length(), 3);
    }
    EXPECT_EQ(follower.Snap(), 2);
    EXPECT_EQ(follower.Length(), 4);
}

TEST_F(rfm_TableReprTest, AnAppendThatFailsLeavesTheTableAsItWas)
{
    for (int failAt = 1;; ++failAt)
    {
        m_Db = Create(m_Path);
        rfm_Table source = WideWithRows(5, 4);
        rfm_Table table = m_Db.Table("WIDE", -1, 4);
        table.NewRow().WriteFieldDouble(0, 70);
        Publish(m_Db, table);
        utl_FaultPlan plan({.failWrite = failAt, .tornAtHalf = true});
        const bool refused = !rfm_TextOf([&] { table.Append(source); }).empty();
        EXPECT_EQ(refused, plan.Fired());
        EXPECT_EQ(table.Length(), refused ? 1 : 6);
        plan.Repair();
        if (refused)
        {
            EXPECT_EQ(table.SpaceLength().Value(), 12 + 1060);
            table.Append(source);
        }
        table.NewRow().WriteFieldDouble(0, 80);
        Publish(m_Db, table);
        rfm_Database reader = Reader();
        rfm_Table follower = reader.Table(table.Handle(), -1, 4);
        ASSERT_EQ(follower.Length(), 7);
        const double expected[] = {70, 0, 1, 2, 3, 4, 80};
        for (int i = 0; i < 7; ++i) EXPECT_EQ(follower.ReadRow(i).ReadFieldDouble(0), expected[i]) << i;
        if (!plan.Fired()) break;
    }
}

TEST_F(rfm_TableReprTest, ATableThatCannotBeFlushedAtItsEndSaysSoInOneLine)
{
    rfm_Table table = WideWithRows(3, 4);
    Publish(m_Db, table);
    table.UpdateRow(0).WriteFieldDouble(0, 50);
    const rfm_Handle handle = table.Handle();
    {
        const utl_FaultPlan plan({.failWrite = 1, .staysBroken = true});
        const rfm_Outcome outcome = rfm_OutcomeOf([&] { table = rfm_Table(); });
        EXPECT_EQ(outcome.text, "");
        EXPECT_NE(outcome.standardError, "");
        EXPECT_EQ(std::count(outcome.standardError.begin(), outcome.standardError.end(), '\n'), 1);
    }
    rfm_Database reader = Reader();
    EXPECT_EQ(reader.Table(handle, -1, 4).ReadRow(0).ReadFieldDouble(0), 0);
}
