#include "rfm_DBMetadata.h"

#include "SpaceBytes.h"
#include "rfm_DatabaseRepr.h"

using namespace SpaceBytes;

namespace
{
rfm_TableMetadata LayoutOf(const char* table, std::initializer_list<const char*> intFields, int version = 1)
{
    rfm_TableMetadata layout(table, version);
    for (const char* field : intFields) layout.DefineIntField(field);
    return layout;
}

/// A closed file with the tables "one" (field "a") at 4 and "two" (no field) at 28.
void StoreTwo(const TestFile& file)
{
    rfm_Database database = file.Create();
    database.Bind(LayoutOf("one", {"a"}));
    database.Bind(LayoutOf("two", {}));
    database.Close();
}

std::string OpeningFails(const TestFile& file)
{
    return TextOf([&] { file.Open(); });
}

std::vector<std::string> NamesIn(const rfm_Database& database)
{
    std::vector<std::string> names;
    for (const cow_String& name : database.GetTableMetadataNames()) names.emplace_back(name.View());
    return names;
}
} // namespace

TEST(MetadataPool, ANewDatabaseHasAnEmptyDirectory)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    EXPECT_EQ(Of(database, kMetadataPool), Bytes({0xBB, 0xEB, 0xAA, 0xFA}));
    EXPECT_EQ(database.Repr().Metadata().Length(), 4);
    database.Repr().Metadata().Load();
    EXPECT_TRUE(NamesIn(database).empty());
    EXPECT_FALSE(database.HasTable("one"));
    EXPECT_EQ(database.GetMapClassName2ClassVersion().Count(), 0);
    EXPECT_STREQ(database.GetDBStatistics().ConstGet(2).CString(),
                 "Metadata Pool Size (bytes)=                   4");
}

TEST(MetadataPool, RecordsLieOneAfterTheOther)
{
    const TestFile file;
    StoreTwo(file);
    EXPECT_EQ(Of(file.Open(), kMetadataPool), Bytes({
                                                  0xBB, 0xEB, 0xAA, 0xFA, // the pool
                                                  24,   0,    0,    0,    // length of the record
                                                  0,    0,    0,    0,    0, 0, 0x10, 0x40, // "one" at 4
                                                  1,    0,    0,    0,                      // int
                                                  0,    0,    0,    0,    0, 0, 0x28, 0x40, // "a" at 12
                                                  12,   0,    0,    0, // length of the record
                                                  0,    0,    0,    0,    0, 0, 0x34, 0x40, // "two" at 20
                                              }));
}

TEST(MetadataPool, TheHandleOfALayoutIsThePlaceOfItsRecord)
{
    const TestFile file;
    rfm_Database database = file.Create();
    database.Bind(LayoutOf("one", {"a"}));
    database.Bind(LayoutOf("two", {}));
    EXPECT_EQ(database.GetTableMetadataHandle("one"), 4);
    EXPECT_EQ(database.GetTableMetadataHandle("two"), 28); // behind what is not yet written
    EXPECT_EQ(&database.GetTableMetadata(utl_FileOffset(28)), &database.GetTableMetadata("two"));
}

TEST(MetadataPool, TheRecordsAroundTheSizeOfTheBlockComeBack)
{
    const TestFile file;
    {
        rfm_Database database = file.Create();
        for (const int count : {84, 85, 86, 171}) // 1020 bytes, 1032, 1044, 2064
        {
            rfm_TableMetadata layout(cow_String("with ") + cow_String(count), 1);
            for (int i = 0; i < count; ++i) layout.DefineIntField(cow_String("f") + cow_String(i));
            database.Bind(layout);
        }
    }
    rfm_Database database = file.Open();
    EXPECT_EQ(database.GetTableMetadataHandle("with 85"), 4 + 1020);
    EXPECT_EQ(database.GetTableMetadataHandle("with 86"), 4 + 1020 + 1032);
    EXPECT_EQ(database.GetTableMetadataHandle("with 171"), 4 + 1020 + 1032 + 1044);
    database.Bind();
    for (const int count : {84, 85, 86, 171})
    {
        const rfm_TableMetadata& layout = database.GetTableMetadata(cow_String("with ") + cow_String(count));
        EXPECT_EQ(layout.Fields().Count(), count);
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(layout.GetFieldMD(cow_String("f") + cow_String(i)).type, rfm_TypeInt);
    }
}

// ---- Binding ----

TEST(MetadataPool, ALayoutBoundTwiceIsOneRecordAndOneObject)
{
    const TestFile file;
    rfm_Database database = file.Create();
    const rfm_TableMetadata mine = LayoutOf("one", {"a"});
    const rfm_TableMetadata& first = database.Bind(mine);
    EXPECT_EQ(&database.Bind(mine), &first);
    EXPECT_EQ(&database.Bind(LayoutOf("one", {"other"})), &first);
    EXPECT_NE(&first, &mine);
    database.Flush();
    EXPECT_EQ(Of(database, kMetadataPool).size(), 4U + 24);
}

TEST(MetadataPool, ABoundLayoutAnswersByIndex)
{
    const TestFile file;
    rfm_Database database = file.Create();
    const rfm_TableMetadata& bound = database.Bind(LayoutOf("one", {"b", "a"}, 5));
    EXPECT_EQ(&bound.GetFieldMD(1), &bound.GetFieldMD("a"));
    EXPECT_EQ(bound.Version(), 5);
}

TEST(MetadataPool, AKnownNameIsThereBeforeItIsBound)
{
    const TestFile file;
    StoreTwo(file);
    rfm_Database database = file.Open();
    EXPECT_TRUE(database.HasTable("one"));
    EXPECT_FALSE(database.HasTable("On"));
    EXPECT_EQ(database.GetTableMetadataHandle("one"), 4);
    EXPECT_EQ(TextOf([&] { database.GetTableMetadata("one"); }),
              "***ERROR: Can't find metadata with handle.");
    database.Bind();
    EXPECT_EQ(database.GetTableMetadata("one").Name(), cow_String("one"));
}

TEST(MetadataPool, AnUnknownNameIsNamedInTheFailure)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    const char* text = "***ERROR: Can't find table metadata, \"zz\" in MARLEK database file.";
    EXPECT_EQ(TextOf([&] { database.GetTableMetadataHandle("zz"); }), text);
    EXPECT_EQ(TextOf([&] { database.GetTableMetadata("zz"); }), text);
    EXPECT_EQ(TextOf([&] { database.GetTableMetadata(utl_FileOffset(4)); }),
              "***ERROR: Can't find metadata with handle.");
}

TEST(MetadataPool, NamesComeInAscendingOrder)
{
    const TestFile file;
    {
        rfm_Database database = file.Create();
        for (const char* name : {"m", "z", "a", "B", "\xE9"}) database.Bind(LayoutOf(name, {}));
        EXPECT_EQ(NamesIn(database), (std::vector<std::string>{"B", "a", "m", "z", "\xE9"}));
    }
    EXPECT_EQ(NamesIn(file.Open()), (std::vector<std::string>{"B", "a", "m", "z", "\xE9"}));
}

TEST(MetadataPool, ANewLayoutOnAReadOnlyDatabaseIsRefusedAndLeavesNothing)
{
    const TestFile file;
    StoreTwo(file);
    rfm_Database database = file.Open();
    EXPECT_EQ(TextOf([&] { database.Bind(LayoutOf("three", {"x"})); }), kReadOnlyText);
    EXPECT_FALSE(database.HasTable("three"));
    EXPECT_EQ(database.Repr().Metadata().Length(), 40);
    EXPECT_EQ(database.Bind(LayoutOf("one", {"a"})).GetFieldMD(0).stored, 1);
    database.Flush();
}

TEST(MetadataPool, BindingEverythingKeepsWhatWasBound)
{
    const TestFile file;
    StoreTwo(file);
    rfm_Database database = file.Open();
    const rfm_TableMetadata& mine = database.Bind(LayoutOf("one", {"x", "a"}, 3));
    database.Bind();
    database.Bind();
    EXPECT_EQ(&database.GetTableMetadata("one"), &mine);
    EXPECT_EQ(mine.Version(), 3);
    EXPECT_EQ(mine.GetFieldMD("a").index, 1);
}

TEST(MetadataPool, TheDirectoryMayBeLoadedAgain)
{
    const TestFile file;
    StoreTwo(file);
    rfm_Database database = file.Open();
    const rfm_TableMetadata& bound = database.Bind(LayoutOf("one", {"a"}));
    database.Repr().Metadata().Load();
    EXPECT_EQ(NamesIn(database), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(&database.GetTableMetadata("one"), &bound);
}

TEST(MetadataPool, ASnapDoesNotLearnLayoutsThatCameAfterTheOpen)
{
    const TestFile file;
    rfm_Database writer = file.Create();
    writer.Bind(LayoutOf("early", {"a"}));
    writer.Flush();
    rfm_Database reader = file.Open();
    writer.Bind(LayoutOf("late", {"b"}));
    writer.Flush();
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_EQ(Of(reader, kMetadataPool).size(), 4U + 24 + 24);
    EXPECT_FALSE(reader.HasTable("late"));
    EXPECT_TRUE(file.Open().HasTable("late"));
}

// ---- Class versions ----

TEST(MetadataPool, TheMapOfClassVersionsOutranksTheCallersVersion)
{
    const TestFile file;
    StoreTwo(file);
    rfm_Database database = file.Open(utl_FileAccessUpdate);
    database.InsertInMapClassName2ClassVersion("one", 11);
    database.InsertInMapClassName2ClassVersion("new", 12);
    EXPECT_EQ(database.Bind(LayoutOf("one", {"a"}, 2)).Version(), 11);
    EXPECT_EQ(database.Bind(LayoutOf("new", {"a"}, 2)).Version(), 12);
    EXPECT_EQ(database.Bind(LayoutOf("two", {}, 2)).Version(), 2);
    EXPECT_EQ(database.GetMapClassName2ClassVersion().ConstGet("new"), 12);
}

TEST(MetadataPool, AClassVersionSetAfterABindChangesNothingThatIsBound)
{
    const TestFile file;
    StoreTwo(file);
    rfm_Database database = file.Open();
    const rfm_TableMetadata& bound = database.Bind(LayoutOf("one", {"a"}, 2));
    database.InsertInMapClassName2ClassVersion("one", 11);
    database.Bind();
    EXPECT_EQ(&database.Bind(LayoutOf("one", {"a"}, 3)), &bound);
    EXPECT_EQ(bound.Version(), 2);
}

TEST(MetadataPool, ATableWithoutAVersionTakesThatOfTheNameBeforeIt)
{
    const TestFile file;
    {
        rfm_Database database = file.Create();
        for (const char* name : {"e", "d", "c", "b", "a"}) database.Bind(LayoutOf(name, {}));
    }
    rfm_Database database = file.Open();
    database.InsertInMapClassName2ClassVersion("b", 7);
    database.InsertInMapClassName2ClassVersion("d", 9);
    database.Bind();
    const std::pair<const char*, int> expected[] = {{"a", 1}, {"b", 7}, {"c", 7}, {"d", 9}, {"e", 9}};
    for (const auto& [name, version] : expected)
        EXPECT_EQ(database.GetTableMetadata(name).Version(), version) << name;
}

// ---- Layouts that change ----

TEST(MetadataPool, AReaderThatKnowsOtherFieldsReadsTheRowsOfTheFile)
{
    const TestFile file;
    rfm_Handle handle;
    {
        rfm_Database database = file.Create();
        rfm_Table table = database.Table(database.Bind(LayoutOf("t", {"b", "a"})), -1, -1);
        handle = table.Handle();
        rfm_Row row = table.NewRow();
        row.WriteFieldInt(0, 20);
        row.WriteFieldInt(1, 10);
        table.Flush();
    }
    rfm_Database database = file.Open();
    database.Bind(LayoutOf("t", {"a", "c"}));
    rfm_Table table = database.Table(handle, -1, -1);
    rfm_Row row = table.ReadRow(0);
    EXPECT_EQ(row.ReadFieldInt(0), 10); // "a" under the reader's own index
    EXPECT_EQ(row.ReadFieldInt(2), 20); // "b", which the reader doesn't know, behind them
    EXPECT_EQ(table.TableMetadata().GetFieldMD(1).stored, 0);
}

TEST(MetadataPool, AWriterThatKnowsFewerFieldsKeepsThoseOfTheFile)
{
    const TestFile file;
    rfm_Handle handle;
    {
        rfm_Database database = file.Create();
        rfm_Table table = database.Table(database.Bind(LayoutOf("t", {"a", "b"})), -1, -1);
        handle = table.Handle();
    }
    {
        rfm_Database database = file.Open(utl_FileAccessUpdate);
        database.Bind(LayoutOf("t", {"b"}));
        rfm_Table table = database.Table(handle, -1, -1);
        rfm_Row row = table.NewRow();
        row.WriteFieldInt(0, 2); // "b"
        row.WriteFieldInt(1, 1); // "a"
        table.Flush();
    }
    rfm_Database database = file.Open();
    database.Bind();
    rfm_Table table = database.Table(handle, -1, -1);
    rfm_Row row = table.ReadRow(0);
    EXPECT_EQ(row.ReadFieldInt("a"), 1);
    EXPECT_EQ(row.ReadFieldInt("b"), 2);
}

TEST(MetadataPool, ALayoutMergedInOneFileHasAllItsFieldsInTheRowsOfAnother)
{
    const TestFile narrow("narrow");
    const TestFile wide("wide");
    narrow.Create().Bind(LayoutOf("t", {"a"}));
    rfm_Database first = narrow.Open();
    const rfm_TableMetadata& merged = first.Bind(LayoutOf("t", {"a", "c"}));
    ASSERT_EQ(merged.GetFieldMD("c").stored, 0);
    rfm_Handle handle;
    {
        rfm_Database second = wide.Create();
        const rfm_TableMetadata& bound = second.Bind(merged);
        EXPECT_EQ(bound.GetFieldMD("c").stored, 1);
        rfm_Table table = second.Table(bound, -1, -1);
        handle = table.Handle();
        rfm_Row row = table.NewRow();
        row.WriteFieldInt(0, 1);
        row.WriteFieldInt(1, 3);
        table.Flush();
    }
    EXPECT_EQ(merged.GetFieldMD("c").stored, 0); // the first file's own
    rfm_Database second = wide.Open();
    second.Bind();
    rfm_Table table = second.Table(handle, -1, -1);
    rfm_Row row = table.ReadRow(0);
    EXPECT_EQ(row.ReadFieldInt("a"), 1);
    EXPECT_EQ(row.ReadFieldInt("c"), 3);
}

TEST(MetadataPool, AFieldOfAnotherTypeIsRefusedAndLeavesTheNameUnbound)
{
    const TestFile file;
    StoreTwo(file);
    rfm_Database database = file.Open();
    rfm_TableMetadata other("one", 1);
    other.DefineStringField("a");
    EXPECT_EQ(TextOf([&] { database.Bind(other); }), "***ERROR: Field type mismatch: a");
    EXPECT_EQ(TextOf([&] { database.GetTableMetadata("one"); }),
              "***ERROR: Can't find metadata with handle.");
    EXPECT_EQ(database.Bind(LayoutOf("one", {"a"})).Fields().Count(), 1);
}

// ---- Damage ----

TEST(MetadataPool, ALengthThatFitsNoRecordIsDamage)
{
    for (const int length : {0, 1, 4, 8, 11, 13, 25, 37, 48, 2147483647, -1, -24, -2147483647})
    {
        const TestFile file;
        StoreTwo(file);
        Poke(file, kMetadataPool, 4, Stored(length));
        const std::string before = file.AllBytes();
        EXPECT_EQ(OpeningFails(file), kMetadataCorruptText) << length;
        EXPECT_TRUE(file.AllBytes() == before) << length;
    }
}

TEST(MetadataPool, ARecordCutOffByTheEndOfThePoolIsDamage)
{
    for (const std::int64_t length : {5, 8, 15, 16, 27, 29, 39})
    {
        const TestFile file;
        StoreTwo(file);
        {
            rfm_Database database = file.Open(utl_FileAccessUpdate);
            database.Space(kMetadataPool, -1).Truncate(length);
        }
        EXPECT_EQ(OpeningFails(file), kMetadataCorruptText) << length;
    }
}

TEST(MetadataPool, APoolCutBetweenRecordsHasTheOnesBeforeTheCut)
{
    const TestFile file;
    StoreTwo(file);
    {
        rfm_Database database = file.Open(utl_FileAccessUpdate);
        database.Space(kMetadataPool, -1).Truncate(28);
    }
    EXPECT_EQ(NamesIn(file.Open()), (std::vector<std::string>{"one"}));
}

TEST(MetadataPool, OneNameAtTwoPlacesIsDamage)
{
    const TestFile file;
    StoreTwo(file);
    Poke(file, kMetadataPool, 32, Stored(4.0)); // "two" becomes "one"
    EXPECT_EQ(OpeningFails(file), kMetadataCorruptText);
}

TEST(MetadataPool, AReferenceToNoNameIsRefused)
{
    const TestFile file;
    StoreTwo(file);
    Poke(file, kMetadataPool, 32, Stored(24.0)); // inside "two"
    EXPECT_EQ(OpeningFails(file), kNoStringText);
    const TestFile negative("negative");
    StoreTwo(negative);
    Poke(negative, kMetadataPool, 32, Stored(-4.0));
    EXPECT_EQ(OpeningFails(negative), CorruptText(negative));
}

TEST(MetadataPool, ADamagedFieldShowsWhenItsTableIsBound)
{
    const TestFile file;
    StoreTwo(file);
    Poke(file, kMetadataPool, 20, Stored(1e10));
    rfm_Database database = file.Open();
    EXPECT_EQ(TextOf([&] { database.Bind(LayoutOf("one", {"a"})); }), kNoStringText);
    EXPECT_EQ(database.Bind(LayoutOf("two", {})).Fields().Count(), 0);
    EXPECT_EQ(TextOf([&] { database.Bind(); }), kNoStringText);
}
