#include "rfm_TableRepr.h"
#include "rfm_TableScene.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>
#include <optional>

namespace
{
// Defined in another order than the rows store them: count, link, ratio, text, value.
struct AllTypes
{
    rfm_TableMetadata layout{"ROWS", 1};
    int text = layout.DefineStringField("text");
    int count = layout.DefineIntField("count");
    int ratio = layout.DefineFloatField("ratio");
    int value = layout.DefineDoubleField("value");
    int link = layout.DefineHandleField("link");
};

class rfm_RowTest : public rfm_TableScene
{
protected:
    rfm_RowTest() : m_Db(Create(m_Path)), m_Table(m_Db.Table(m_Db.Bind(m_Fields.layout), 1024, 4)) {}

    rfm_Row FullRow()
    {
        rfm_Row row = m_Table.NewRow();
        row.WriteFieldInt(m_Fields.count, -2);
        row.WriteFieldHandle(m_Fields.link, rfm_Handle(0x01020304));
        row.WriteFieldFloat(m_Fields.ratio, 1.5F);
        row.WriteFieldString(m_Fields.text, "abc");
        row.WriteFieldDouble(m_Fields.value, -0.5);
        return row;
    }

    bool IsDirty(const rfm_Row& row) const { return row.Repr()->impl->IsDirty(); }

    /// Makes the fixture's database go, so that the file can be opened again.
    void Close()
    {
        m_Table = rfm_Table();
        m_Db.Close();
    }

    AllTypes m_Fields;
    rfm_Database m_Db;
    rfm_Table m_Table;
};
} // namespace

// ---- Bytes ----

TEST_F(rfm_RowTest, ARowOfOneFieldOfEachTypeHasThe36BytesOfItsPicture)
{
    FullRow();
    m_Table.Flush();
    EXPECT_EQ(m_Table.RowSize(), 36);
    EXPECT_EQ(rfm_InHex(Content(m_Db, m_Table.Handle())),
              rfm_InHex(rfm_Hex("bebbafaa 01000000 04000000" // magic, flush count, place of the layout
                                "1f000000"                   // five fields with data
                                "feffffff"                   // count
                                "04030201 00000000"          // link, and its zero word
                                "0000c03f"                   // ratio
                                "00000000 00005040"          // text: its record in the pool is at 64
                                "00000000 0000e0bf")));      // value
}

TEST_F(rfm_RowTest, ANewRowIsZeros)
{
    m_Table.NewRow();
    m_Table.Flush();
    EXPECT_EQ(Content(m_Db, m_Table.Handle()).substr(12), std::string(36, '\0'));
}

TEST_F(rfm_RowTest, TheSecondWordOfAHandleIsWrittenAsZeroAndNotRead)
{
    FullRow();
    m_Table.Flush();
    rfm_Space space = m_Db.Space(m_Table.Handle(), -1);
    space.Seek(12 + 12);
    space.WriteInt(-1);
    m_Table = m_Db.Table(m_Table.Handle(), -1, 4);
    EXPECT_EQ(m_Table.ReadRow(0).ReadFieldHandle(m_Fields.link), rfm_Handle(0x01020304));
    m_Table.UpdateRow(0).WriteFieldHandle(m_Fields.link, rfm_Handle(0xFFFFFFFF));
    m_Table.Flush();
    EXPECT_EQ(rfm_InHex(Content(m_Db, m_Table.Handle()).substr(20, 8)), "ffffffff 00000000");
    EXPECT_EQ(m_Table.ReadRow(0).ReadFieldHandle(m_Fields.link), rfm_Handle(0xFFFFFFFF));
}

TEST_F(rfm_RowTest, A33rdFieldTakesASecondPresenceWordAndItsFirstBit)
{
    for (const int fields : {32, 33})
    {
        rfm_TableMetadata layout(cow_String("INTS") + cow_String(fields), 1);
        for (int i = 0; i < fields; ++i) layout.DefineIntField(cow_String("f") + cow_String(10 + i));
        rfm_Table table = m_Db.Table(m_Db.Bind(layout), 1024, 4);
        rfm_Row row = table.NewRow();
        row.WriteFieldInt(31, 0x11111111);
        if (fields > 32) row.WriteFieldInt(32, 0x22222222);
        table.Flush();
        const std::string image = Content(m_Db, table.Handle()).substr(12);
        EXPECT_EQ(table.RowSize(), fields == 32 ? 132 : 140);
        const std::string words = fields == 32 ? "00000080" : "00000080 01000000";
        const std::string tail = fields == 32 ? "11111111" : "11111111 22222222";
        EXPECT_EQ(rfm_InHex(image), rfm_InHex(rfm_Hex(words) + std::string(31 * 4, '\0') + rfm_Hex(tail)));
        EXPECT_EQ(row.DataIsPresent(31), 1);
        EXPECT_EQ(row.DataIsPresent(0), 0);
        EXPECT_EQ(row.DataIsPresent(32), fields == 33 ? 1 : 0);
    }
}

TEST_F(rfm_RowTest, ValuesAtTheEdgesOfTheirTypesComeBackFromTheFile)
{
    const int ints[] = {INT_MIN, -1, 0, INT_MAX};
    const float floats[] = {-FLT_MAX, -0.0F, FLT_TRUE_MIN, std::numeric_limits<float>::infinity()};
    const double doubles[] = {-DBL_MAX, -0.0, DBL_TRUE_MIN, -std::numeric_limits<double>::infinity()};
    const cow_String texts[] = {"", cow_String(std::string_view("a\0b", 3)),
                                cow_String(std::string(5000, 'x')), "\xff"};
    for (int i = 0; i < 4; ++i)
    {
        rfm_Row row = m_Table.NewRow();
        row.WriteFieldInt(m_Fields.count, ints[i]);
        row.WriteFieldFloat(m_Fields.ratio, floats[i]);
        row.WriteFieldDouble(m_Fields.value, doubles[i]);
        row.WriteFieldString(m_Fields.text, texts[i]);
    }
    Publish(m_Db, m_Table);
    rfm_Database reader = Reader();
    rfm_Table table = reader.Table(m_Table.Handle(), -1, 2);
    for (int i = 0; i < 4; ++i)
    {
        const rfm_Row row = table.ReadRow(i);
        EXPECT_EQ(row.ReadFieldInt("count"), ints[i]);
        EXPECT_EQ(row.ReadFieldFloat("ratio"), floats[i]);
        EXPECT_EQ(std::signbit(row.ReadFieldFloat("ratio")), std::signbit(floats[i]));
        EXPECT_EQ(row.ReadFieldDouble("value"), doubles[i]);
        EXPECT_EQ(std::signbit(row.ReadFieldDouble("value")), std::signbit(doubles[i]));
        EXPECT_EQ(row.ReadFieldString("text").View(), texts[i].View());
        EXPECT_EQ(row.DataIsPresent("link"), 0);
    }
}

TEST_F(rfm_RowTest, EqualTextsShareOneReference)
{
    m_Table.NewRow().WriteFieldString(m_Fields.text, "same");
    m_Table.NewRow().WriteFieldString(m_Fields.text, "same");
    m_Table.NewRow().WriteFieldString(m_Fields.text, "other");
    m_Table.Flush();
    const std::string bytes = Content(m_Db, m_Table.Handle());
    const auto reference = [&](std::size_t row) { return bytes.substr(12 + 36 * row + 20, 8); };
    EXPECT_EQ(reference(0), reference(1));
    EXPECT_NE(reference(0), reference(2));
}

// ---- Questions ----

TEST_F(rfm_RowTest, PresenceIsAnsweredByNameAndByIndexAndNeverRaises)
{
    rfm_Row row = m_Table.NewRow();
    row.WriteFieldInt(m_Fields.count, 1);
    EXPECT_EQ(row.FieldIsPresent(m_Fields.count), 1);
    EXPECT_EQ(row.FieldIsPresent("count"), 1);
    EXPECT_EQ(row.DataIsPresent(m_Fields.count), 1);
    EXPECT_EQ(row.DataIsPresent("count"), 1);
    EXPECT_EQ(row.FieldIsPresent("value"), 1);
    EXPECT_EQ(row.DataIsPresent("value"), 0);
    EXPECT_EQ(row.DataIsPresent(m_Fields.value), 0);
    for (const rfm_FieldHandle& field :
         {rfm_FieldHandle("nothing"), rfm_FieldHandle(""), rfm_FieldHandle(5), rfm_FieldHandle(INT_MAX)})
    {
        EXPECT_EQ(row.FieldIsPresent(field), 0);
        EXPECT_EQ(row.DataIsPresent(field), 0);
    }
}

TEST_F(rfm_RowTest, AFieldHandleIsAnIndexOrElseAName)
{
    rfm_Row row = m_Table.NewRow();
    row.WriteFieldInt(rfm_FieldHandle("nonsense", m_Fields.count), 7); // the index decides
    EXPECT_EQ(row.ReadFieldInt(rfm_FieldHandle(cow_String("count"), -1)), 7);
    EXPECT_EQ(row.ReadFieldInt(rfm_FieldHandle(cow_String("co"), "unt", -1)), 7);
    EXPECT_EQ(rfm_FieldHandle(cow_String("co"), "unt", 3).Name(), cow_String("count"));
    EXPECT_EQ(rfm_FieldHandle(cow_String("co"), "unt", 3).Index(), 3);
    EXPECT_EQ(rfm_FieldHandle(3).Name(), cow_String(""));
}

TEST_F(rfm_RowTest, ARowKnowsItsNumberAndItsFields)
{
    m_Table.NewRow();
    const rfm_Row row = m_Table.NewRow();
    EXPECT_EQ(row.Location(), 1);
    EXPECT_EQ(&row.FieldMetadataMap(), &m_Table.GetFieldMap());
    EXPECT_EQ(row.FieldMetadataMap().Count(), 5);
}

// ---- Refusals ----

TEST_F(rfm_RowTest, UnknownFieldsAndWrongTypesAreRefusedInTheWordsOfTheLayout)
{
    rfm_Row row = FullRow();
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldInt("nothing"); }), "***ERROR: Can't find field: \"nothing\"");
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldInt(99); }), "***ERROR: Can't find field by index: 99");
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldInt("value"); }), "***ERROR: Field type mismatch: \"value\"");
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldDouble(m_Fields.count); }),
              "***ERROR: Field type mismatch by index: 1");
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldFloat("value"); }), "***ERROR: Field type mismatch: \"value\"");
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldHandle("count"); }), "***ERROR: Field type mismatch: \"count\"");
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldString("count"); }), "***ERROR: Field type mismatch: \"count\"");
    EXPECT_EQ(rfm_TextOf([&] { row.WriteFieldInt("nothing", 1); }),
              "***ERROR: Can't find field: \"nothing\"");
    EXPECT_EQ(rfm_TextOf([&] { row.WriteFieldFloat("value", 1); }),
              "***ERROR: Field type mismatch: \"value\"");
    EXPECT_EQ(rfm_TextOf([&] { row.WriteFieldDouble("ratio", 1); }),
              "***ERROR: Field type mismatch: \"ratio\"");
    EXPECT_EQ(rfm_TextOf([&] { row.WriteFieldHandle("text", rfm_Handle(1)); }),
              "***ERROR: Field type mismatch: \"text\"");
    EXPECT_EQ(rfm_TextOf([&] { row.WriteFieldString(m_Fields.link, "x"); }),
              "***ERROR: Field type mismatch by index: 4");
    EXPECT_EQ(rfm_TextOf([&] { row.NeuterFieldString("count", "x"); }),
              "***ERROR: Field type mismatch: \"count\"");
    EXPECT_EQ(rfm_TextOf([&] { row.Erase("nothing"); }), "***ERROR: Can't find field: \"nothing\"");
    EXPECT_EQ(rfm_TextOf([&] { row.Erase(99); }), "***ERROR: Can't find field by index: 99");
    // Nothing of it has changed a value.
    EXPECT_EQ(row.ReadFieldInt("count"), -2);
    EXPECT_EQ(row.ReadFieldFloat("ratio"), 1.5F);
    EXPECT_EQ(row.ReadFieldDouble("value"), -0.5);
    EXPECT_EQ(row.ReadFieldString("text"), cow_String("abc"));
}

TEST_F(rfm_RowTest, AFieldWithoutDataIsRefusedAndNotRead)
{
    const rfm_Row row = m_Table.NewRow();
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldInt("count"); }),
              "rfm_RowImpl::PrepReadField: Attempt to access absent field data in RDX/VDX file (ROWS:count). "
              "File may be unreadable.");
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldString(m_Fields.text); }),
              "rfm_RowImpl::PrepReadField: Attempt to access absent field data in RDX/VDX file (ROWS:). "
              "File may be unreadable.");
}

TEST_F(rfm_RowTest, ARefusedWriteLeavesTheRowDirty)
{
    rfm_Row row = FullRow();
    m_Table.Flush();
    ASSERT_FALSE(IsDirty(row));
    EXPECT_THROW(row.WriteFieldInt("value", 1), nex_TextException);
    EXPECT_TRUE(IsDirty(row));
    EXPECT_EQ(row.ReadFieldDouble("value"), -0.5);
}

TEST_F(rfm_RowTest, ARefusedReadAndTheQuestionsLeaveTheRowClean)
{
    rfm_Row row = FullRow();
    m_Table.Flush();
    EXPECT_THROW(row.ReadFieldInt("value"), nex_TextException);
    EXPECT_EQ(row.ReadFieldInt("count"), -2);
    EXPECT_EQ(row.DataIsPresent("count"), 1);
    EXPECT_THROW(row.Erase("nothing"), nex_TextException);
    EXPECT_FALSE(IsDirty(row));
}

TEST_F(rfm_RowTest, AFieldThatOnlyTheReaderKnowsCountsAsUnknown)
{
    FullRow();
    Publish(m_Db, m_Table);
    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    rfm_TableMetadata known("ROWS", 1);
    const int count = known.DefineIntField("count");
    const int colour = known.DefineIntField("colour");
    reader.Bind(known);
    rfm_Table table = reader.Table(m_Table.Handle(), -1, 4);
    rfm_Row row = table.ReadRow(0);
    EXPECT_EQ(row.ReadFieldInt(count), -2);
    EXPECT_EQ(row.FieldIsPresent(colour), 0);
    EXPECT_EQ(row.FieldIsPresent("colour"), 0);
    EXPECT_EQ(row.DataIsPresent("colour"), 0);
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldInt("colour"); }), "***ERROR: Can't find field: \"colour\"");
    EXPECT_EQ(rfm_TextOf([&] { row.ReadFieldInt(colour); }), "***ERROR: Can't find field by index: 1");
    EXPECT_EQ(rfm_TextOf([&] { row.WriteFieldInt(colour, 1); }), "***ERROR: Can't find field by index: 1");
}

// A layout that comes to say of a field that it is stored, behind the back of a table that was set up without it.
TEST_F(rfm_RowTest, AFieldWithoutAPlaceInTheRowIsRefusedEvenWhenTheLayoutHasIt)
{
    FullRow();
    Publish(m_Db, m_Table);
    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    rfm_TableMetadata known("ROWS", 1);
    known.DefineIntField("colour");
    const rfm_TableMetadata& bound = reader.Bind(known);
    rfm_Table table = reader.Table(m_Table.Handle(), -1, 4);
    rfm_Row row = table.ReadRow(0);
    const_cast<rfm_FieldMetadata&>(bound.GetFieldMD("colour")).stored = 1;
    EXPECT_EQ(
        rfm_TextOf([&] { row.WriteFieldInt("colour", 1); }),
        "rfm_RowImpl::PrepWriteField: Attempt to access absent field in RDX/VDX file (ROWS:colour).File "
        "may be corrupt.");
    EXPECT_EQ(
        rfm_TextOf([&] { row.ReadFieldInt("colour"); }),
        "rfm_RowImpl::PrepReadField: Attempt to access absent field data in RDX/VDX file (ROWS:colour). "
        "File may be unreadable.");
}

TEST_F(rfm_RowTest, AReferenceThatIsNoRecordIsATextThatIsNotAvailable)
{
    FullRow();
    m_Table.Flush();
    rfm_Space space = m_Db.Space(m_Table.Handle(), -1);
    space.Seek(12 + 20);
    const std::string wrong = rfm_Hex("00000000 00405040"); // 65.0
    space.Write(wrong.data(), 8);
    m_Table = m_Db.Table(m_Table.Handle(), -1, 4);
    EXPECT_EQ(rfm_TextOf([&] { m_Table.ReadRow(0).ReadFieldString("text"); }),
              "rfm_StringManagerFile::String - String is not available.");
}

// ---- Read-only ----

TEST_F(rfm_RowTest, AWriteToARowOfAReadOnlyTableStaysInTheCache)
{
    FullRow();
    FullRow();
    Publish(m_Db, m_Table);
    const std::string before = rfm_FileBytes(m_Path);
    {
        rfm_Database reader = Reader();
        rfm_Table table = reader.Table(m_Table.Handle(), -1, 1);
        table.UpdateRow(0).WriteFieldInt("count", 99);
        EXPECT_EQ(table.ReadRow(0).ReadFieldInt("count"), 99);
        EXPECT_EQ(table.Flush(), 0);
        EXPECT_EQ(table.ReadRow(0).ReadFieldInt("count"), 99);
        table.ReadRow(1); // a miss: the rows that nobody holds go
        EXPECT_EQ(table.ReadRow(0).ReadFieldInt("count"), -2);
    }
    EXPECT_TRUE(rfm_FileBytes(m_Path) == before);
}

// ---- Erase ----

TEST_F(rfm_RowTest, AnErasedFieldKeepsItsBytesBehindAClearBit)
{
    FullRow();
    m_Table.Flush();
    m_Table.UpdateRow(0).Erase(m_Fields.count);
    m_Table.Flush();
    m_Table = m_Db.Table(m_Table.Handle(), -1, 4);
    const rfm_Row row = m_Table.ReadRow(0);
    EXPECT_EQ(row.DataIsPresent("count"), 0);
    EXPECT_EQ(row.DataIsPresent("value"), 1);
    EXPECT_THROW(row.ReadFieldInt("count"), nex_TextException);
    EXPECT_EQ(rfm_InHex(Content(m_Db, m_Table.Handle()).substr(12, 8)), "1e000000 feffffff");
}

TEST_F(rfm_RowTest, ErasingARowClearsEveryBitAndNoByte)
{
    FullRow();
    m_Table.Flush();
    const std::string before = Content(m_Db, m_Table.Handle()).substr(16);
    rfm_Row row = m_Table.UpdateRow(0);
    row.Erase();
    EXPECT_TRUE(IsDirty(row));
    for (const char* name : {"count", "link", "ratio", "text", "value"})
        EXPECT_EQ(row.DataIsPresent(name), 0);
    m_Table.Flush();
    const std::string after = Content(m_Db, m_Table.Handle());
    EXPECT_EQ(rfm_InHex(after.substr(12, 4)), "00000000");
    EXPECT_EQ(after.substr(16), before);
    row.WriteFieldInt("count", 5);
    EXPECT_EQ(row.ReadFieldInt("count"), 5);
}

TEST_F(rfm_RowTest, ErasingAFieldMarksTheRowDirty)
{
    rfm_Row row = FullRow();
    m_Table.Flush();
    row.Erase("count");
    EXPECT_TRUE(IsDirty(row));
}

// ---- CopyField ----

TEST_F(rfm_RowTest, ACopyTakesEveryTypeButHandlesToAnotherDatabase)
{
    const rfm_Row source = FullRow();
    rfm_Database other = Create(PathOf(".other"));
    AllTypes fields;
    rfm_Table table = other.Table(other.Bind(fields.layout), 1024, 4);
    m_Table.NewRow().WriteFieldString("text", "so that references differ");
    other.Bind(rfm_TableMetadata("A LAYOUT THAT ONLY THIS POOL KNOWS", 1));
    rfm_Row target = table.NewRow();
    table.Flush();
    ASSERT_FALSE(IsDirty(target));
    for (const char* name : {"count", "ratio", "text", "value"}) target.CopyField(source, name);
    EXPECT_TRUE(IsDirty(target));
    EXPECT_EQ(target.ReadFieldInt("count"), -2);
    EXPECT_EQ(target.ReadFieldFloat("ratio"), 1.5F);
    EXPECT_EQ(target.ReadFieldString("text"), cow_String("abc"));
    EXPECT_EQ(target.ReadFieldDouble("value"), -0.5);
    EXPECT_EQ(rfm_TextOf([&] { target.CopyField(source, "link"); }),
              "rfm_RowImpl::CopyField: Attempt to copy handle type field..  No can do.");
    EXPECT_EQ(target.DataIsPresent("link"), 0);
    EXPECT_NE(std::string(target.Repr()->impl->Data() + 20, 8),
              std::string(source.Repr()->impl->Data() + 20, 8));
}

TEST_F(rfm_RowTest, ACopyOfAFieldWithoutDataLeavesTheTargetAsItWas)
{
    const rfm_Row source = m_Table.NewRow();
    rfm_Row target = FullRow();
    m_Table.Flush();
    target.CopyField(source, "count");
    target.CopyField(source, "link"); // not even the refusal of handles: there is nothing to copy
    target.CopyField(source, "unknown everywhere");
    EXPECT_EQ(target.ReadFieldInt("count"), -2);
    EXPECT_FALSE(IsDirty(target));
}

TEST_F(rfm_RowTest, ACopyByIndexMeansTheSameIndexInBothTables)
{
    rfm_TableMetadata layout("OTHER", 1);
    layout.DefineStringField("note");
    const int number = layout.DefineIntField("number"); // index 1, as count has
    rfm_Table table = m_Db.Table(m_Db.Bind(layout), 1024, 4);
    rfm_Row target = table.NewRow();
    const rfm_Row source = FullRow();
    ASSERT_EQ(number, m_Fields.count);
    target.CopyField(source, number);
    EXPECT_EQ(target.ReadFieldInt("number"), -2);
    EXPECT_EQ(rfm_TextOf([&] { target.CopyField(source, "value"); }),
              "***ERROR: Can't find field: \"value\"");
    EXPECT_EQ(rfm_TextOf([&] { target.CopyField(source, m_Fields.ratio); }),
              "***ERROR: Can't find field by index: 2");
}

TEST_F(rfm_RowTest, ACopyToAFieldOfAnotherTypeIsRefused)
{
    rfm_TableMetadata layout("OTHER", 1);
    layout.DefineDoubleField("count");
    rfm_Table table = m_Db.Table(m_Db.Bind(layout), 1024, 4);
    rfm_Row target = table.NewRow();
    EXPECT_EQ(rfm_TextOf([&] { target.CopyField(FullRow(), "count"); }),
              "***ERROR: Field type mismatch: \"count\"");
    EXPECT_EQ(target.DataIsPresent("count"), 0);
}

TEST_F(rfm_RowTest, ACopyOntoItselfChangesNothingButMarksTheRow)
{
    rfm_Row row = FullRow();
    m_Table.Flush();
    for (const char* name : {"count", "text", "value"}) row.CopyField(row, name);
    EXPECT_EQ(row.ReadFieldInt("count"), -2);
    EXPECT_EQ(row.ReadFieldString("text"), cow_String("abc"));
    EXPECT_TRUE(IsDirty(row));
}

// Only a layout that was damaged after its table was set up gets there.
TEST_F(rfm_RowTest, ACopyOfATypeThatRowsCannotHoldIsAnAssertion)
{
    rfm_Row row = FullRow();
    const_cast<rfm_FieldMetadata&>(m_Table.GetFieldMD("count")).type = rfm_TypeTaggedStream;
    EXPECT_THROW(row.CopyField(row, "count"), nex_AssertException);
    EXPECT_EQ(rfm_TextOf([&] { row.CopyField(row, "count"); }), "!\"Invalid field type.\"");
}

// ---- Neuter ----

namespace
{
class rfm_RowNeuterTest : public rfm_RowTest
{
protected:
    /// The record at 64 of the pool, which is that of the text.
    std::string Record()
    {
        const std::string pool = Content(m_Db, rfm_Handle(1));
        return rfm_InHex(pool.substr(64));
    }
};
} // namespace

TEST_F(rfm_RowNeuterTest, ALongerTextIsCutToTheOldLength)
{
    rfm_Row row = m_Table.NewRow();
    row.WriteFieldString("text", "secret");
    const rfm_Row sharing = m_Table.NewRow();
    rfm_Row(sharing).WriteFieldString("text", "secret");
    m_Table.Flush();
    const std::string before = Content(m_Db, m_Table.Handle());
    row.NeuterFieldString("text", "xxxxxxxxxx");
    EXPECT_FALSE(IsDirty(row));
    EXPECT_EQ(Record(), rfm_InHex(rfm_Hex("06000000") + "xxxxxx" + rfm_Hex("0000")));
    EXPECT_EQ(Content(m_Db, m_Table.Handle()), before);
    EXPECT_EQ(row.ReadFieldString("text"), cow_String("secret")); // this process is not told
    const rfm_Handle handle = m_Table.Handle();
    row.Nullify();
    Publish(m_Db, m_Table);
    rfm_Database reader = Reader();
    rfm_Table table = reader.Table(handle, -1, 4);
    EXPECT_EQ(table.ReadRow(0).ReadFieldString("text"), cow_String("xxxxxx"));
    EXPECT_EQ(table.ReadRow(1).ReadFieldString("text"), cow_String("xxxxxx"));
}

TEST_F(rfm_RowNeuterTest, AnEmptyTextLeavesLengthZeroAndZeros)
{
    rfm_Row row = m_Table.NewRow();
    row.WriteFieldString(m_Fields.text, "secret");
    row.NeuterFieldString(m_Fields.text, "");
    EXPECT_EQ(Record(), rfm_InHex(std::string(12, '\0')));
    EXPECT_EQ(row.DataIsPresent("text"), 1);
}

TEST_F(rfm_RowNeuterTest, AnEmptyTextIsLeftAlone)
{
    rfm_Row row = m_Table.NewRow();
    row.WriteFieldString("text", "");
    row.NeuterFieldString("text", "something");
    EXPECT_EQ(Record(), "00000000");
}

TEST_F(rfm_RowNeuterTest, ATextThatIsNotThereIsRefused)
{
    rfm_Row row = m_Table.NewRow();
    EXPECT_EQ(rfm_TextOf([&] { row.NeuterFieldString("text", "x"); }),
              "rfm_RowImpl::PrepReadField: Attempt to access absent field data in RDX/VDX file (ROWS:text). "
              "File may be unreadable.");
}

// ---- Handles ----

TEST_F(rfm_RowTest, TwoHandlesOnOneRowShareItsValues)
{
    rfm_Row first = FullRow();
    rfm_Row second = m_Table.ReadRow(0);
    EXPECT_EQ(first.Repr(), second.Repr());
    EXPECT_EQ(first.Repr()->m_ReferenceCount, 2);
    second.WriteFieldInt("count", 12);
    EXPECT_EQ(first.ReadFieldInt("count"), 12);
    second.Erase("count");
    EXPECT_EQ(first.DataIsPresent("count"), 0);
}

TEST_F(rfm_RowTest, CopiesAssignmentsAndNullifyCountTheHandles)
{
    rfm_Row first = FullRow();
    rfm_RowRepr* const repr = first.Repr();
    rfm_Row copy(first);
    EXPECT_EQ(repr->m_ReferenceCount, 2);
    rfm_Row other = FullRow();
    other = first;
    EXPECT_EQ(repr->m_ReferenceCount, 3);
    rfm_Row& same = other;
    other = same;
    EXPECT_EQ(repr->m_ReferenceCount, 3);
    copy.Nullify();
    EXPECT_EQ(copy.Repr(), nullptr);
    copy.Nullify();
    EXPECT_EQ(repr->m_ReferenceCount, 2);
    copy = first; // a null target takes a row again
    EXPECT_EQ(repr->m_ReferenceCount, 3);
    rfm_Row moved(std::move(copy));
    EXPECT_EQ(moved.Repr(), repr);
    EXPECT_EQ(repr->m_ReferenceCount, 3);
}

TEST_F(rfm_RowTest, TheLastReleaseLeavesTheRowInTheCache)
{
    rfm_RowRepr* const repr = FullRow().Repr();
    EXPECT_EQ(repr->m_ReferenceCount, 0);
    EXPECT_EQ(m_Table.ReadRow(0).Repr(), repr);
}

TEST_F(rfm_RowTest, ACountBelowZeroIsAnAssertion)
{
    rfm_Row row = FullRow();
    rfm_Row other = FullRow();
    const std::string words = "m_Repr->m_ReferenceCount >= 0";
    row.Repr()->m_ReferenceCount = -1;
    EXPECT_EQ(rfm_TextOf([&] { const rfm_Row copy(row); }), words);
    EXPECT_EQ(rfm_TextOf([&] { other = row; }), words);
    EXPECT_EQ(rfm_TextOf([&] { row.Nullify(); }), words);
    EXPECT_THROW(row.Nullify(), nex_AssertException);
    EXPECT_EQ(row.Repr()->m_ReferenceCount, -1);
    row.Repr()->m_ReferenceCount = 1;
    EXPECT_EQ(other.Location(), 1);
}

TEST_F(rfm_RowTest, AHandleThatOutlivesTheTruncationOfItsRowIsDeadButCanGo)
{
    rfm_Row kept = FullRow();
    rfm_Row dead = FullRow();
    const rfm_Row twin(dead);
    m_Table.Truncate(1);
    EXPECT_EQ(dead.Repr()->impl, nullptr);
    EXPECT_EQ(dead.Repr()->m_ReferenceCount, 2);
    dead.Nullify();
    EXPECT_EQ(twin.Repr()->m_ReferenceCount, 1);
    EXPECT_EQ(kept.ReadFieldInt("count"), -2);
    EXPECT_EQ(m_Table.NewRow().DataIsPresent("count"), 0); // row 1 again, another one
}

TEST_F(rfm_RowTest, AHandleThatOutlivesItsTableIsDeadButCanGo)
{
    std::optional<rfm_Row> first = FullRow();
    rfm_Row second = FullRow();
    Close();
    EXPECT_EQ(first->Repr()->impl, nullptr);
    EXPECT_EQ(second.Repr()->impl, nullptr);
    second.Nullify();
    first.reset();
    EXPECT_EQ(second.Repr(), nullptr);
}
