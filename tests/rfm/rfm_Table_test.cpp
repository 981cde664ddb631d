#include "rfm_RowImpl.h"
#include "rfm_TableScene.h"

#include <climits>
#include <optional>
#include <vector>

namespace
{
rfm_TableMetadata Layout(const char* name, std::initializer_list<const char*> ints)
{
    rfm_TableMetadata layout(name, 1);
    for (const char* field : ints) layout.DefineIntField(field);
    return layout;
}

class rfm_TableTest : public rfm_TableScene
{
protected:
    rfm_TableTest() : m_Db(Create(m_Path)) {}

    rfm_Table Make(const rfm_TableMetadata& layout, int readAhead = 4)
    {
        return m_Db.Table(m_Db.Bind(layout), 256, readAhead);
    }
    /// Table "T" of one int "n".
    rfm_Table Numbers(int rows, int readAhead = 4)
    {
        rfm_Table table = Make(Layout("T", {"n"}), readAhead);
        Add(table, 0, rows);
        return table;
    }
    static void Add(rfm_Table& table, int first, int rows)
    {
        for (int i = 0; i < rows; ++i) table.NewRow().WriteFieldInt("n", first + i);
    }
    static std::vector<int> Values(rfm_Table& table)
    {
        std::vector<int> values;
        for (int i = 0; i < table.Length(); ++i)
        {
            const rfm_Row row = table.ReadRow(i);
            values.push_back(row.DataIsPresent("n") ? row.ReadFieldInt("n") : -1);
        }
        return values;
    }

    rfm_Database m_Db;
};

using Ints = std::vector<int>;
} // namespace

// ---- The current row ----

TEST_F(rfm_TableTest, SeekingAndReadingTheCurrentRowMovesBehindIt)
{
    rfm_Table table = Numbers(20);
    table.Seek(10);
    EXPECT_EQ(table.Location(), 10);
    EXPECT_EQ(table.ReadRow(-1).ReadFieldInt("n"), 10);
    EXPECT_EQ(table.Location(), 11);
    EXPECT_EQ(table.ReadRow().ReadFieldInt("n"), 11);
    EXPECT_EQ(table.UpdateRow().ReadFieldInt("n"), 12);
    EXPECT_EQ(table.Location(), 13);
    EXPECT_EQ(table.ReadRow(3).Location(), 3);
    EXPECT_EQ(table.Location(), 4);
}

TEST_F(rfm_TableTest, AnyNumberCanBeSought)
{
    rfm_Table table = Numbers(2);
    for (const int row : {1000, INT_MAX, -1, INT_MIN})
    {
        table.Seek(row);
        EXPECT_EQ(table.Location(), row);
        EXPECT_EQ(table.RowExists(-1), 0);
        EXPECT_NE(rfm_OutcomeOf([&] { table.ReadRow(); }).text, "") << row;
    }
    table.Seek(-3);
    EXPECT_EQ(rfm_OutcomeOf([&] { table.ReadRow(); }).text,
              "rfm_TableRepr::ReadRow - Row does not exist for table 'T', index: -3, len: 2");
    EXPECT_EQ(table.Location(), -2);
    EXPECT_NE(rfm_OutcomeOf([&] { table.ReadRow(INT_MAX); }).text, "");
    EXPECT_EQ(table.Location(), INT_MAX);
}

TEST_F(rfm_TableTest, ARowBehindTheLastIsRefusedAndToldOnStandardErrorFirst)
{
    rfm_Table table = Numbers(7);
    const std::string words = "rfm_TableRepr::ReadRow - Row does not exist for table 'T', index: 7, len: 7";
    const rfm_Outcome outcome = rfm_OutcomeOf([&] { table.ReadRow(7); });
    EXPECT_EQ(outcome.text, words);
    EXPECT_EQ(outcome.standardError, words + "\n");
    EXPECT_EQ(table.Location(), 8);
}

TEST_F(rfm_TableTest, AnUpdateFartherBehindTheLastIsRefusedTheSameWay)
{
    rfm_Table table = Numbers(7);
    const std::string words = "rfm_TableRepr::UpdateRow - Row does not exist for table 'T', index: 8, len: 7";
    const rfm_Outcome outcome = rfm_OutcomeOf([&] { table.UpdateRow(8); });
    EXPECT_EQ(outcome.text, words);
    EXPECT_EQ(outcome.standardError, words + "\n");
    EXPECT_EQ(table.Location(), 9);
    EXPECT_EQ(table.Length(), 7);
}

TEST_F(rfm_TableTest, AnUpdateOfTheRowAtTheLengthIsANewRow)
{
    rfm_Table table = Numbers(7);
    EXPECT_EQ(table.UpdateRow(7).Location(), 7);
    EXPECT_EQ(table.Length(), 8);
    EXPECT_EQ(table.Location(), 8);
    table.UpdateRow(-1).WriteFieldInt("n", 8);
    EXPECT_EQ(table.Length(), 9);
    EXPECT_EQ(Values(table), (Ints{0, 1, 2, 3, 4, 5, 6, -1, 8}));
}

TEST_F(rfm_TableTest, ANewRowGoesBehindTheLastAndTheCurrentRowBehindIt)
{
    rfm_Table table = Numbers(3);
    table.Seek(1);
    EXPECT_EQ(table.NewRow().Location(), 3);
    EXPECT_EQ(table.Location(), 4);
}

TEST_F(rfm_TableTest, ARowExistsFromZeroToTheLength)
{
    rfm_Table table = Numbers(3);
    EXPECT_EQ(table.RowExists(0), 1);
    EXPECT_EQ(table.RowExists(2), 1);
    EXPECT_EQ(table.RowExists(3), 0);
    EXPECT_EQ(table.RowExists(INT_MAX), 0);
    table.Seek(2);
    EXPECT_EQ(table.RowExists(-1), 1);
    table.Seek(3);
    EXPECT_EQ(table.RowExists(-1), 0);
}

// ---- What a table says of itself ----

TEST_F(rfm_TableTest, TypeAndIndexAreAskedByName)
{
    rfm_TableMetadata layout("ALL", 1);
    layout.DefineStringField("text");
    layout.DefineIntField("count");
    layout.DefineFloatField("ratio");
    layout.DefineDoubleField("value");
    layout.DefineHandleField("link");
    const rfm_Table table = Make(layout);
    EXPECT_EQ(table.Type("text"), rfm_TypeString);
    EXPECT_EQ(table.Type("count"), rfm_TypeInt);
    EXPECT_EQ(table.Type("ratio"), rfm_TypeFloat);
    EXPECT_EQ(table.Type("value"), rfm_TypeDouble);
    EXPECT_EQ(table.Type("link"), rfm_TypeHandle);
    EXPECT_EQ(static_cast<int>(table.Type("nothing")), 0);
    EXPECT_EQ(table.Index("text"), 0);
    EXPECT_EQ(table.Index("link"), 4);
    EXPECT_EQ(table.Index("nothing"), -1);
    EXPECT_EQ(table.GetFieldMD("nothing").name, cow_String("novalue"));
    EXPECT_EQ(table.GetFieldMD(2).name, cow_String("ratio"));
    EXPECT_EQ(table.GetFieldMap().Count(), 5);
    EXPECT_EQ(&table.TableMetadata(), &m_Db.GetTableMetadata("ALL"));
}

TEST_F(rfm_TableTest, SizesAndStatisticsAreThoseOfItsSpace)
{
    rfm_Table table = Numbers(40);
    table.Flush();
    EXPECT_EQ(table.SpaceLength().Value(), 12 + 40 * 8);
    EXPECT_EQ(table.SpaceAllocation().Value(), 512);
    const auto lines = table.GetObjStatistics();
    const auto expected = m_Db.GetObjStatistics(table.Handle());
    ASSERT_EQ(lines.Count(), expected.Count());
    ASSERT_GT(lines.Count(), 0);
    for (int i = 0; i < lines.Count(); ++i) EXPECT_EQ(lines.ConstGet(i), expected.ConstGet(i));
}

TEST_F(rfm_TableTest, CopiesOfAHandleShareTheTable)
{
    rfm_Table table = Numbers(3);
    rfm_Table copy = table;
    copy.Seek(2);
    EXPECT_EQ(table.Location(), 2);
    copy.NewRow();
    EXPECT_EQ(table.Length(), 4);
    table = rfm_Table();
    EXPECT_EQ(copy.ReadRow(1).ReadFieldInt("n"), 1);
}

TEST_F(rfm_TableTest, ATableIsMadeByLayoutOrByName)
{
    rfm_Table first = Numbers(3);
    rfm_Table second = m_Db.Table("T", 256, 4);
    Add(second, 10, 2);
    EXPECT_NE(first.Handle(), second.Handle());
    EXPECT_EQ(&first.TableMetadata(), &second.TableMetadata());
    EXPECT_EQ(Values(first), (Ints{0, 1, 2}));
    EXPECT_EQ(Values(second), (Ints{10, 11}));
}

// A refused definition uses an index up; the fields behind it keep theirs.
TEST_F(rfm_TableTest, AGapInTheIndicesIsNoField)
{
    rfm_TableMetadata layout("GAP", 1);
    layout.DefineIntField("a");
    EXPECT_THROW(layout.DefineIntField("a"), nex_TextException);
    EXPECT_EQ(layout.DefineIntField("b"), 2);
    rfm_Table table = Make(layout);
    rfm_Row row = table.NewRow();
    row.WriteFieldInt(2, 22);
    row.WriteFieldInt(0, 20);
    EXPECT_EQ(row.ReadFieldInt("b"), 22);
    EXPECT_EQ(row.FieldIsPresent(1), 0);
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldInt(1); }), "***ERROR: Can't find field by index: 1");
    EXPECT_EQ(rfm_TextOf([&] { row.WriteFieldInt(3, 1); }), "***ERROR: Can't find field by index: 3");
}

TEST_F(rfm_TableTest, FieldsLieInTheNaturalOrderOfTheirNamesWhenThatIsOn)
{
    atr_setNaturalOrder(1);
    rfm_Table table = Make(Layout("T", {"n10", "n9"}));
    rfm_Row row = table.NewRow();
    row.WriteFieldInt("n10", 0x10);
    row.WriteFieldInt("n9", 0x09);
    table.Flush();
    const std::string bytes = Content(m_Db, table.Handle());
    atr_setNaturalOrder(0);
    EXPECT_EQ(rfm_InHex(bytes.substr(12)), "03000000 09000000 10000000");
}

// ---- Truncate and Extend ----

TEST_F(rfm_TableTest, ATruncationDropsTheRowsBehind)
{
    rfm_Table table = Numbers(10);
    table.Seek(7);
    table.Truncate(6);
    EXPECT_EQ(table.Length(), 6);
    EXPECT_EQ(table.Location(), 0);
    EXPECT_EQ(table.SpaceLength().Value(), 12 + 6 * 8);
    EXPECT_EQ(Values(table), (Ints{0, 1, 2, 3, 4, 5}));
    Add(table, 60, 2);
    EXPECT_EQ(Values(table), (Ints{0, 1, 2, 3, 4, 5, 60, 61}));
}

TEST_F(rfm_TableTest, ATruncationToNothingLeavesTheHeaderAndKillsTheRows)
{
    rfm_Table table = Numbers(10);
    const rfm_Row row = table.ReadRow(9);
    table.Truncate(0);
    EXPECT_EQ(row.Repr()->impl, nullptr);
    EXPECT_EQ(table.Length(), 0);
    EXPECT_EQ(table.SpaceLength().Value(), 12);
    table.NewRow();
    EXPECT_EQ(table.ReadRow(0).DataIsPresent("n"), 0);
}

TEST_F(rfm_TableTest, ATruncationBeyondTheLengthChangesNothingButTheCurrentRow)
{
    rfm_Table table = Numbers(10);
    const rfm_Row held = table.ReadRow(9);
    table.Truncate(1000);
    EXPECT_EQ(held.ReadFieldInt("n"), 9);
    EXPECT_EQ(table.Length(), 10);
    EXPECT_EQ(table.Location(), 0);
    EXPECT_EQ(table.SpaceLength().Value(), 12 + 10 * 8);
    EXPECT_EQ(Values(table), (Ints{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST_F(rfm_TableTest, ATruncationBelowZeroIsOneToNothing)
{
    rfm_Table table = Numbers(10);
    table.Truncate(-5);
    EXPECT_EQ(table.Length(), 0);
    EXPECT_EQ(table.SpaceLength().Value(), 12);
}

TEST_F(rfm_TableTest, ATruncatedTableThatWasReadBehindTheCutCanBeAppendedTo)
{
    rfm_Table source = Numbers(3);
    rfm_Table table = m_Db.Table("T", 256, 4);
    Add(table, 100, 50);
    Publish(m_Db, table);
    table.ReadRow(20);
    table.ReadRow(49);
    table.Truncate(1);
    table.Append(source);
    EXPECT_EQ(Values(table), (Ints{100, 0, 1, 2}));
    EXPECT_LE(table.SpaceLength().Value(), 12 + 4 * 8);
}

TEST_F(rfm_TableTest, AReadOnlyTableIsNeitherTruncatedNorExtended)
{
    rfm_Table table = Numbers(3);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    EXPECT_EQ(rfm_TextOf([&] { follower.Truncate(0); }), "***ERROR: Attempt to truncate read only table.");
    EXPECT_EQ(follower.Length(), 3);
    EXPECT_EQ(rfm_TextOf([&] { follower.Extend(100); }), "");
    EXPECT_EQ(follower.SpaceAllocation(), table.SpaceAllocation());
}

TEST_F(rfm_TableTest, AnExtensionReservesRoomAndNoRows)
{
    rfm_Table table = Numbers(3);
    table.Extend(1000);
    EXPECT_EQ(table.Length(), 3);
    EXPECT_GE(table.SpaceAllocation().Value(), 12 + 8 * 1000);
    EXPECT_EQ(table.SpaceLength().Value(), 12 + 8 * 3);
    const utl_FileOffset reserved = table.SpaceAllocation();
    Add(table, 3, 997);
    table.Flush();
    EXPECT_EQ(table.SpaceAllocation(), reserved);
    EXPECT_EQ(Values(table).back(), 999);
}

TEST_F(rfm_TableTest, AnExtensionByNothingIsTheSpacesRefusal)
{
    rfm_Table table = Numbers(3);
    for (const int rows : {0, -1})
        EXPECT_EQ(rfm_TextOf([&] { table.Extend(rows); }),
                  "rfm_SpaceReprFile::Extend: Invalid file extend increment specified.");
    EXPECT_EQ(Values(table), (Ints{0, 1, 2}));
}

// ---- Layouts that grow ----

TEST_F(rfm_TableTest, AReaderKeepsItsIndicesWhateverTheFileHolds)
{
    rfm_Table table = Make(Layout("T", {"b", "a"}));
    rfm_Row row = table.NewRow();
    row.WriteFieldInt("a", 10);
    row.WriteFieldInt("b", 20);
    row.Nullify();
    Publish(m_Db, table);

    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    reader.Bind(Layout("T", {"a", "c"}));
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    const rfm_Row seen = follower.ReadRow(0);
    EXPECT_EQ(follower.RowSize(), 12);
    EXPECT_EQ(seen.ReadFieldInt(0), 10);  // a
    EXPECT_EQ(seen.FieldIsPresent(1), 0); // c, of which the file knows nothing
    EXPECT_EQ(seen.ReadFieldInt(2), 20);  // b, of which the reader knew nothing
    EXPECT_EQ(follower.Index("b"), 2);
    EXPECT_EQ(follower.Index("c"), 1);

    rfm_Database stranger = Reader();
    rfm_Table plain = stranger.Table(table.Handle(), -1, 4);
    EXPECT_EQ(plain.Index("a"), 0);
    EXPECT_EQ(plain.ReadRow(0).ReadFieldInt(1), 20);
}

TEST_F(rfm_TableTest, AWriterThatKnowsLessKeepsWhatItDoesNotKnow)
{
    rfm_Table table = Make(Layout("T", {"a", "m", "z"}));
    for (int i = 0; i < 3; ++i)
    {
        rfm_Row row = table.NewRow();
        row.WriteFieldInt("a", i);
        row.WriteFieldInt("m", 10 + i);
        row.WriteFieldInt("z", 20 + i);
    }
    const rfm_Handle handle = table.Handle();
    table = rfm_Table();
    m_Db.Close();
    {
        rfm_Database db = Open(m_Path, utl_FileAccessUpdate);
        db.Bind(Layout("T", {"y", "m"}));
        rfm_Table same = db.Table(handle, -1, 4);
        same.UpdateRow(1).WriteFieldInt(1, 99);
        EXPECT_EQ(rfm_TextOf([&] { same.UpdateRow(1).WriteFieldInt(0, 1); }),
                  "***ERROR: Can't find field by index: 0");
        rfm_Row row = same.NewRow();
        row.WriteFieldInt("m", 13);
        same.Flush();
        EXPECT_EQ(rfm_InHex(Content(db, handle).substr(12)),
                  "07000000 00000000 0a000000 14000000 " // rows of a, m and z
                  "07000000 01000000 63000000 15000000 "
                  "07000000 02000000 0c000000 16000000 "
                  "02000000 00000000 0d000000 00000000");
    }
}

TEST_F(rfm_TableTest, AFieldThatTheFileHoldsWithAnotherTypeIsRefusedAtTheBinding)
{
    rfm_Table table = Numbers(1);
    Publish(m_Db, table);
    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    rfm_TableMetadata known("T", 1);
    known.DefineDoubleField("n");
    EXPECT_EQ(rfm_TextOf([&] { reader.Bind(known); }), "***ERROR: Field type mismatch: n");
}

TEST_F(rfm_TableTest, ALayoutJoinedInOneFileStoresAllItsFieldsInAnother)
{
    rfm_Table table = Numbers(1);
    Publish(m_Db, table);
    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    const rfm_TableMetadata& joined = reader.Bind(Layout("T", {"extra"}));
    rfm_Database other = Create(PathOf(".other"));
    rfm_Table copy = other.Table(other.Bind(joined), 256, 4);
    rfm_Row row = copy.NewRow();
    row.WriteFieldInt("extra", 1);
    row.WriteFieldInt("n", 2);
    copy.Flush();
    EXPECT_EQ(rfm_InHex(Content(other, copy.Handle()).substr(12)), "03000000 01000000 02000000");
}

// ---- Following ----

TEST_F(rfm_TableTest, AFollowerSeesWhatIsFlushedAndNoMore)
{
    rfm_Table table = Numbers(2);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    EXPECT_EQ(Values(follower), (Ints{0, 1}));
    EXPECT_EQ(follower.Snap(), 0); // nothing new
    EXPECT_EQ(table.Snap(), 0);    // nothing to follow for a writer

    Add(table, 2, 2);
    table.UpdateRow(0).WriteFieldInt("n", 50);
    table.Flush();
    EXPECT_EQ(reader.Snap(), 0);
    EXPECT_EQ(follower.Snap(), 0);
    EXPECT_EQ(Values(follower).size(), 2U);
    m_Db.Flush();
    EXPECT_EQ(follower.Snap(), 0); // the database has not looked yet
    EXPECT_EQ(follower.Length(), 2);
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_EQ(follower.Length(), 2); // the table has not looked yet
    EXPECT_EQ(follower.Snap(), 2);
    EXPECT_EQ(follower.GetFlushCount(), 2);
    EXPECT_EQ(Values(follower), (Ints{50, 1, 2, 3}));
    EXPECT_EQ(follower.Snap(), 0);
}

TEST_F(rfm_TableTest, AFollowerOfAnotherTableHasNoNews)
{
    rfm_Table table = Numbers(2);
    rfm_Table other = m_Db.Table("T", 256, 4);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    Add(other, 0, 3);
    Publish(m_Db, other);
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_EQ(follower.Snap(), 0);
    EXPECT_EQ(follower.GetFlushCount(), 1);
}

TEST_F(rfm_TableTest, RowsThatAFollowerHoldsKeepTheirOldValues)
{
    rfm_Table table = Numbers(3);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    const rfm_Row held = follower.ReadRow(0);
    EXPECT_EQ(follower.ReadRow(1).ReadFieldInt("n"), 1);
    for (int i = 0; i < 3; ++i) table.UpdateRow(i).WriteFieldInt("n", 70 + i);
    Publish(m_Db, table);
    ASSERT_EQ(reader.Snap(), 1);
    ASSERT_EQ(follower.Snap(), 2);
    EXPECT_EQ(held.ReadFieldInt("n"), 0);
    EXPECT_EQ(follower.ReadRow(0).ReadFieldInt("n"), 0);
    EXPECT_EQ(follower.ReadRow(1).ReadFieldInt("n"), 71);
}

TEST_F(rfm_TableTest, AFollowersLengthNeverShrinks)
{
    rfm_Table table = Numbers(10);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 32);
    table.Truncate(4);
    table.UpdateRow(0).WriteFieldInt("n", 40);
    Publish(m_Db, table);
    ASSERT_EQ(reader.Snap(), 1);
    ASSERT_EQ(follower.Snap(), 2);
    EXPECT_EQ(follower.Length(), 10);
    // What is there reads well, although the read ahead runs into what is not; that has no data.
    EXPECT_EQ(Values(follower), (Ints{40, 1, 2, 3, -1, -1, -1, -1, -1, -1}));
    EXPECT_EQ(follower.ReadRow(7).DataIsPresent("n"), 0);
    Add(table, 4, 8);
    Publish(m_Db, table);
    ASSERT_EQ(reader.Snap(), 1);
    ASSERT_EQ(follower.Snap(), 3);
    EXPECT_EQ(Values(follower), (Ints{40, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
}

TEST_F(rfm_TableTest, AFollowerThatOpensAtAnyFlushSeesThatFlush)
{
    rfm_Table table = Numbers(0, 2);
    Publish(m_Db, table);
    std::optional<rfm_Database> reader;
    std::optional<rfm_Table> follower;
    Ints expected;
    for (int flush = 1; flush <= 200; ++flush)
    {
        for (int i = 0; i < flush % 5 + 1; ++i)
        {
            table.NewRow().WriteFieldInt("n", flush * 10 + i);
            expected.push_back(flush * 10 + i);
        }
        const int changed = flush % static_cast<int>(expected.size());
        table.UpdateRow(changed).WriteFieldInt("n", -flush);
        expected[static_cast<std::size_t>(changed)] = -flush;
        Publish(m_Db, table);
        if (!reader)
        {
            reader = Reader();
            follower = reader->Table(table.Handle(), -1, 3);
        }
        else
        {
            ASSERT_EQ(reader->Snap(), 1);
            ASSERT_EQ(follower->Snap(), flush);
        }
        ASSERT_EQ(Values(*follower), expected) << flush;
        if (flush % 40 == 0)
        {
            follower.reset();
            reader.reset();
        }
    }
}

TEST_F(rfm_TableTest, ANewRowOfAReadOnlyTableLivesInTheCacheAlone)
{
    rfm_Table table = Numbers(2);
    Publish(m_Db, table);
    const std::string before = rfm_FileBytes(m_Path);
    {
        rfm_Database reader = Reader();
        rfm_Table follower = reader.Table(table.Handle(), -1, 4);
        rfm_Row row = follower.NewRow();
        row.WriteFieldInt("n", 9);
        EXPECT_EQ(follower.Length(), 3);
        EXPECT_EQ(follower.Flush(), 0);
        EXPECT_EQ(follower.ReadRow(2).ReadFieldInt("n"), 9);
    }
    EXPECT_TRUE(rfm_FileBytes(m_Path) == before);
}

// A text of one's own is pending in the pool of a database that can't be written: closing it says so.
TEST_F(rfm_TableTest, ANewTextInARowOfAReadOnlyTableIsRefusedAtTheClose)
{
    rfm_TableMetadata layout("T", 1);
    layout.DefineStringField("s");
    rfm_Table table = Make(layout);
    table.NewRow().WriteFieldString("s", "known");
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    follower.UpdateRow(0).WriteFieldString("s", "unknown");
    EXPECT_EQ(follower.ReadRow(0).ReadFieldString("s"), cow_String("unknown"));
    follower = rfm_Table();
    const rfm_Outcome outcome = rfm_OutcomeOf(
        [&]
        {
            EXPECT_EQ(rfm_TextOf([&] { reader.Close(); }),
                      "The output database was opened as read-only. Modification of data is not permitted.");
            reader = rfm_Database();
        });
    EXPECT_NE(outcome.standardError.find("read-only"), std::string::npos);
}

TEST_F(rfm_TableTest, ATextInARowOfAReadOnlyTableNeverTakesThePlaceOfItsWritersTexts)
{
    rfm_TableMetadata layout("T", 1);
    layout.DefineStringField("s");
    rfm_Table table = Make(layout);
    table.NewRow().WriteFieldString("s", "known");
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 1);
    rfm_Row changed = follower.UpdateRow(0);
    changed.WriteFieldString("s", "mine!");
    table.NewRow().WriteFieldString("s", "yours");
    Publish(m_Db, table);
    EXPECT_EQ(reader.Snap(), 1);
    follower.Snap();
    ASSERT_EQ(follower.Length(), 2);
    EXPECT_EQ(follower.ReadRow(1).ReadFieldString("s"), cow_String("yours"));
    EXPECT_EQ(changed.ReadFieldString("s"), cow_String("mine!"));
}

TEST_F(rfm_TableTest, AReaderWaitsWhileTheWriterHoldsItsSemaphore)
{
    rfm_Table table = Numbers(2);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    Add(table, 2, 1);
    {
        const rfm_ReaderSemaphoreProxy held(m_Db);
        Publish(m_Db, table);
        EXPECT_EQ(reader.Snap(), 0);
        EXPECT_EQ(follower.Snap(), 0);
        EXPECT_EQ(follower.Length(), 2);
    }
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_EQ(follower.Snap(), 2);
    EXPECT_EQ(follower.Length(), 3);
}

// ---- Append ----

namespace
{
class rfm_TableAppendTest : public rfm_TableTest
{
protected:
    rfm_TableAppendTest() : m_OtherDb(Create(PathOf(".other"))) {}

    rfm_Table MakeOther(const rfm_TableMetadata& layout)
    {
        return m_OtherDb.Table(m_OtherDb.Bind(layout), 256, 4);
    }

    static rfm_TableMetadata Named(bool wider = false)
    {
        rfm_TableMetadata layout("NAMED", 1);
        layout.DefineStringField("name");
        layout.DefineIntField("n");
        layout.DefineDoubleField("x");
        layout.DefineFloatField("y");
        if (wider) layout.DefineIntField("a");
        return layout;
    }
    static void AddNamed(rfm_Table& table, int n, const char* name)
    {
        rfm_Row row = table.NewRow();
        row.WriteFieldInt("n", n);
        row.WriteFieldString("name", name);
        row.WriteFieldDouble("x", n * 0.5);
        row.WriteFieldFloat("y", static_cast<float>(n));
        if (row.FieldIsPresent("a")) row.WriteFieldInt("a", 1000 + n);
    }
    static void ExpectNamed(rfm_Table& table, int at, int n, const char* name)
    {
        const rfm_Row row = table.ReadRow(at);
        EXPECT_EQ(row.ReadFieldInt("n"), n);
        EXPECT_EQ(row.ReadFieldString("name"), cow_String(name));
        EXPECT_EQ(row.ReadFieldDouble("x"), n * 0.5);
        EXPECT_EQ(row.ReadFieldFloat("y"), static_cast<float>(n));
    }

    rfm_Database m_OtherDb;
};
} // namespace

TEST_F(rfm_TableAppendTest, RowsWithoutStringsMoveAsBytes)
{
    rfm_Table source = MakeOther(Layout("T", {"n"}));
    Add(source, 100, 300);
    source.UpdateRow(7).Erase(); // its bytes move too
    rfm_Table table = Numbers(3);
    EXPECT_EQ(table.CopyAllowed(source), 1);
    table.Append(source);
    EXPECT_EQ(table.Length(), 303);
    table.Flush();
    const std::string own = Content(m_Db, table.Handle());
    EXPECT_EQ(own.size(), 12U + 303 * 8);
    EXPECT_TRUE(own.substr(12 + 3 * 8) == Content(m_OtherDb, source.Handle()).substr(12));
    EXPECT_EQ(rfm_InHex(own.substr(12 + 10 * 8, 8)), "00000000 6b000000");
    EXPECT_EQ(Values(source).size(), 300U);
}

TEST_F(rfm_TableAppendTest, StringsAreEncodedAnewForTheReceivingPool)
{
    rfm_Table table = Make(Named());
    for (const char* name : {"so", "that", "references", "differ"}) AddNamed(table, 0, name);
    rfm_Table source = MakeOther(Named());
    AddNamed(source, 1, "one");
    source.NewRow().WriteFieldInt("n", 2); // no name
    AddNamed(source, 3, "differ");
    EXPECT_EQ(table.CopyAllowed(source), 2);
    table.Append(source);
    ASSERT_EQ(table.Length(), 7);
    ExpectNamed(table, 4, 1, "one");
    ExpectNamed(table, 6, 3, "differ");
    EXPECT_EQ(table.ReadRow(5).DataIsPresent("name"), 0);
    EXPECT_EQ(table.ReadRow(5).ReadFieldInt("n"), 2);
    table.Flush();
    const std::string bytes = Content(m_Db, table.Handle());
    const auto size = static_cast<std::size_t>(table.RowSize());
    EXPECT_EQ(bytes.substr(12 + 3 * size + 8, 8),
              bytes.substr(12 + 6 * size + 8, 8)); // one "differ" in the pool
}

TEST_F(rfm_TableAppendTest, ASourceWithMoreFieldsIsRebuiltFieldByField)
{
    rfm_Table source = MakeOther(Named(true));
    AddNamed(source, 1, "one");
    AddNamed(source, 2, "two");
    rfm_Table table = Make(Named());
    AddNamed(table, 0, "zero");
    EXPECT_EQ(table.CopyAllowed(source), 3);
    EXPECT_EQ(source.CopyAllowed(table), 0);
    table.Append(source);
    ASSERT_EQ(table.Length(), 3);
    ExpectNamed(table, 0, 0, "zero");
    ExpectNamed(table, 1, 1, "one");
    ExpectNamed(table, 2, 2, "two");
    ExpectNamed(source, 1, 2, "two");
}

TEST_F(rfm_TableAppendTest, AFieldWithoutDataKeepsBytesOfAnEarlierRowBehindItsClearBit)
{
    rfm_Table source = MakeOther(Layout("T", {"n", "more"}));
    Add(source, 0x11, 1);
    source.NewRow().WriteFieldInt("more", 5);
    Add(source, 0x33, 1);
    rfm_Table table = Numbers(0);
    table.Append(source);
    table.Flush();
    EXPECT_EQ(rfm_InHex(Content(m_Db, table.Handle()).substr(12)),
              "01000000 11000000 00000000 11000000 01000000 33000000");
    EXPECT_EQ(Values(table), (Ints{0x11, -1, 0x33}));
}

TEST_F(rfm_TableAppendTest, ATableAppendedToItselfIsDoubled)
{
    rfm_Table table = Numbers(300);
    table.Append(table);
    EXPECT_EQ(table.Length(), 600);
    EXPECT_EQ(table.ReadRow(299).ReadFieldInt("n"), 299);
    EXPECT_EQ(table.ReadRow(300).ReadFieldInt("n"), 0);
    EXPECT_EQ(table.ReadRow(599).ReadFieldInt("n"), 299);

    rfm_Table named = Make(Named());
    for (int i = 0; i < 100; ++i) AddNamed(named, i, "x");
    named.Append(named);
    ASSERT_EQ(named.Length(), 200);
    ExpectNamed(named, 100, 0, "x");
    ExpectNamed(named, 199, 99, "x");
    named.Flush();
    EXPECT_EQ(named.SpaceLength().Value(), 12 + 200 * named.RowSize());
}

TEST_F(rfm_TableAppendTest, LayoutsThatDoNotFitAreRefused)
{
    rfm_Table table = Numbers(2);
    rfm_TableMetadata handles("H", 1);
    handles.DefineHandleField("h");
    rfm_TableMetadata doubles("D", 1);
    doubles.DefineDoubleField("n");
    for (const rfm_TableMetadata& layout : {Layout("M", {"m"}), doubles, handles})
    {
        rfm_Table source = MakeOther(layout);
        source.NewRow();
        EXPECT_EQ(table.CopyAllowed(source), 0);
        EXPECT_EQ(rfm_TextOf([&] { table.Append(source); }),
                  "rfm_TableRepr::Append - table being appended to \"T\" does not have compatible metadata.");
    }
    rfm_Table own = Make(handles);
    own.NewRow();
    EXPECT_EQ(rfm_TextOf([&] { own.Append(own); }),
              "rfm_TableRepr::Append - table being appended to \"H\" does not have compatible metadata.");
    EXPECT_EQ(Values(table), (Ints{0, 1}));
}

TEST_F(rfm_TableAppendTest, AFieldThatOnlyTheSourcesCallerKnowsIsNotThere)
{
    rfm_Table stored = MakeOther(Layout("T", {"n"}));
    Add(stored, 1, 1);
    Publish(m_OtherDb, stored);
    rfm_Database reader = Open(PathOf(".other"), utl_FileAccessRead);
    reader.Bind(Layout("T", {"extra"}));
    rfm_Table source = reader.Table(stored.Handle(), -1, 4);
    rfm_Table both = Make(Layout("BOTH", {"n", "extra"}));
    EXPECT_EQ(rfm_TextOf([&] { both.Append(source); }),
              "rfm_TableRepr::Append - table being appended to \"BOTH\" does not have compatible metadata.");
    rfm_Table table = Numbers(0);
    table.Append(source); // from a read-only database
    EXPECT_EQ(Values(table), (Ints{1}));
}

TEST_F(rfm_TableAppendTest, AReadOnlyTableTakesNothingAndIsNotAskedToTakeNothing)
{
    rfm_Table table = Numbers(2);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    EXPECT_EQ(rfm_TextOf([&] { follower.Append(table); }),
              "rfm_TableRepr::Append - Attempt to append to read only table.");
    EXPECT_EQ(follower.Length(), 2);
    rfm_Table empty = MakeOther(Layout("SOMETHING ELSE", {"m"}));
    EXPECT_EQ(rfm_TextOf([&] { follower.Append(empty); }), "");
    EXPECT_EQ(rfm_TextOf([&] { table.Append(empty); }), "");
    EXPECT_EQ(table.Flush(), 1);
}

// Only a layout that was damaged after its table was set up gets there.
TEST_F(rfm_TableAppendTest, AFieldOfATypeThatRowsCannotHoldIsRefused)
{
    rfm_Table source = MakeOther(Layout("T", {"n", "more"}));
    Add(source, 1, 1);
    rfm_Table table = Numbers(1);
    const_cast<rfm_FieldMetadata&>(source.GetFieldMD("n")).type = rfm_TypeTaggedStream;
    const_cast<rfm_FieldMetadata&>(table.GetFieldMD("n")).type = rfm_TypeTaggedStream;
    EXPECT_EQ(rfm_TextOf([&] { table.Append(source); }),
              "rfm_TableRepr::Append: An invalid field type has been specified for table 'T'.");
    EXPECT_EQ(table.Length(), 1);
}

TEST_F(rfm_TableAppendTest, ASourceWithATextThatIsNotAvailableAddsNoRow)
{
    rfm_Table source = MakeOther(Named());
    AddNamed(source, 1, "one");
    AddNamed(source, 2, "two");
    source.Flush();
    rfm_Space space = m_OtherDb.Space(source.Handle(), -1);
    space.Seek(12 + source.RowSize() + 8);
    ASSERT_EQ(source.RowSize(), 4 + 4 + 8 + 8 + 4);         // n, name, x, y
    const std::string wrong = rfm_Hex("00000000 00405040"); // 65.0
    space.Seek(12 + source.RowSize() + 4 + 4);
    space.Write(wrong.data(), 8);
    rfm_Table table = Make(Named());
    AddNamed(table, 0, "zero");
    EXPECT_EQ(rfm_TextOf([&] { table.Append(source); }),
              "rfm_StringManagerFile::String - String is not available.");
    EXPECT_EQ(table.Length(), 1);
    AddNamed(table, 5, "five");
    const rfm_Handle handle = table.Handle();
    table = rfm_Table();
    table = m_Db.Table(handle, -1, 4);
    ASSERT_EQ(table.Length(), 2);
    ExpectNamed(table, 0, 0, "zero");
    ExpectNamed(table, 1, 5, "five");
}

TEST_F(rfm_TableAppendTest, AppendedRowsReachAFollower)
{
    rfm_Table source = MakeOther(Layout("T", {"n"}));
    Add(source, 10, 3);
    rfm_Table table = Numbers(2);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    table.Append(source);
    EXPECT_EQ(table.Flush(), 2);
    m_Db.Flush();
    ASSERT_EQ(reader.Snap(), 1);
    EXPECT_EQ(follower.Snap(), 2);
    EXPECT_EQ(Values(follower), (Ints{0, 1, 10, 11, 12}));
}

TEST_F(rfm_TableAppendTest, ATruncationRightBehindAnAppendCutsItsRows)
{
    rfm_Table source = MakeOther(Layout("T", {"n"}));
    Add(source, 10, 3);
    rfm_Table table = Numbers(2);
    table.Append(source);
    table.Truncate(3);
    EXPECT_EQ(Values(table), (Ints{0, 1, 10}));
    EXPECT_EQ(table.SpaceLength().Value(), 12 + 3 * 8);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    EXPECT_EQ(Values(follower), (Ints{0, 1, 10}));
}

TEST_F(rfm_TableAppendTest, HeldRowsAndRowsBehindAnAppendStandBesideItsRows)
{
    rfm_Table source = MakeOther(Layout("T", {"n"}));
    Add(source, 10, 3);
    rfm_Table table = Numbers(2);
    rfm_Row held = table.UpdateRow(1);
    table.Append(source);
    held.WriteFieldInt("n", 50);
    EXPECT_EQ(table.NewRow().Location(), 5);
    table.UpdateRow(5).WriteFieldInt("n", 60);
    table.UpdateRow(3).WriteFieldInt("n", 70);
    Publish(m_Db, table);
    rfm_Database reader = Reader();
    rfm_Table follower = reader.Table(table.Handle(), -1, 4);
    EXPECT_EQ(Values(follower), (Ints{0, 50, 10, 70, 12, 60}));
}

TEST_F(rfm_TableAppendTest, TheSourcesUnwrittenRowsAreAppendedToo)
{
    rfm_Table source = m_Db.Table(m_Db.Bind(Layout("T", {"n"})), 256, 4);
    const rfm_Row unwritten = source.NewRow();
    rfm_Row(unwritten).WriteFieldInt("n", 8);
    rfm_Table table = m_Db.Table("T", 256, 4);
    table.Append(source);
    EXPECT_EQ(source.GetFlushCount(), 1);
    EXPECT_EQ(Values(table), (Ints{8}));
}
