#include "rfm_TableMetadata.h"

#include "SpaceBytes.h"
#include "rfm_DatabaseRepr.h"
#include "rfm_IOBuffer.h"
#include "rfm_SpaceRepr.h"

using namespace SpaceBytes;

namespace
{
rfm_TableMetadata LayoutOf(const char* table, std::initializer_list<const char*> intFields, int version = 1)
{
    rfm_TableMetadata layout(table, version);
    for (const char* field : intFields) layout.DefineIntField(field);
    return layout;
}

/// Turns natural order on and off again.
class NaturalOrder
{
public:
    NaturalOrder() { atr_setNaturalOrder(1); }
    ~NaturalOrder() { atr_setNaturalOrder(0); }
    NaturalOrder(const NaturalOrder&) = delete;
    NaturalOrder& operator=(const NaturalOrder&) = delete;
};

/// One record on a space of its own, read in the ways that a layout can be.
class StoredRecord
{
public:
    explicit StoredRecord(const rfm_TableMetadata& layout)
        : m_Database(m_File.Create()),
          m_Space(m_Database.Repr().NewSpace(-1))
    {
        rfm_IOBuffer buffer(m_Space.get(), 0);
        layout.Write(buffer);
    }

    rfm_TableMetadata Read(int version = 1)
    {
        rfm_IOBuffer buffer = At0();
        return {buffer, version};
    }
    rfm_TableMetadata ReadMergedWith(const rfm_TableMetadata& known)
    {
        rfm_IOBuffer buffer = At0();
        return {buffer, known.Fields(), known.Version()};
    }
    std::string AllBytes() { return Of(m_Database, m_Space->Handle()); }
    void PokeAt(std::int64_t offset, const std::string& bytes)
    {
        Poke(m_Database, m_Space->Handle(), offset, bytes);
    }

private:
    rfm_IOBuffer At0()
    {
        m_Space->Seek(0);
        return {m_Space.get(), 0};
    }

    TestFile m_File;
    rfm_Database m_Database;
    std::unique_ptr<rfm_SpaceRepr> m_Space;
};

rfm_TableMetadata OneOfEach()
{
    rfm_TableMetadata layout("t", 1);
    layout.DefineIntField("int");
    layout.DefineFloatField("float");
    layout.DefineDoubleField("double");
    layout.DefineHandleField("handle");
    layout.DefineStringField("string");
    return layout;
}
} // namespace

// ---- Definition ----

TEST(TableMetadata, FieldsGetIndicesInTheOrderOfDefinition)
{
    rfm_TableMetadata layout("t", 7);
    EXPECT_EQ(layout.DefineIntField("b"), 0);
    EXPECT_EQ(layout.DefineFloatField("d"), 1);
    EXPECT_EQ(layout.DefineDoubleField("a"), 2);
    EXPECT_EQ(layout.DefineHandleField("c"), 3);
    EXPECT_EQ(layout.DefineStringField("e"), 4);
    EXPECT_EQ(layout.Name(), cow_String("t"));
    EXPECT_EQ(layout.Version(), 7);
    EXPECT_EQ(layout.NextIndex(), 5);
    const std::vector<std::pair<const char*, int>> expected = {{"a", rfm_TypeDouble},
                                                               {"b", rfm_TypeInt},
                                                               {"c", rfm_TypeHandle},
                                                               {"d", rfm_TypeFloat},
                                                               {"e", rfm_TypeString}};
    std::size_t place = 0;
    for (const auto& [name, field] : layout.Fields())
    {
        EXPECT_STREQ(name.CString(), expected[place].first);
        EXPECT_STREQ(field.name.CString(), expected[place].first);
        EXPECT_EQ(field.type, expected[place].second);
        EXPECT_EQ(field.stored, 1);
        ++place;
    }
    EXPECT_EQ(place, expected.size());
}

TEST(TableMetadata, TheTypesHaveTheNumbersThatFilesHold)
{
    EXPECT_EQ(rfm_TypeInt, 1);
    EXPECT_EQ(rfm_TypeHandle, 2);
    EXPECT_EQ(rfm_TypeFloat, 3);
    EXPECT_EQ(rfm_TypeDouble, 4);
    EXPECT_EQ(rfm_TypeString, 6);
    EXPECT_EQ(rfm_TypeFixedString, 7);
    EXPECT_EQ(rfm_TypeTable, 8);
    EXPECT_EQ(rfm_TypeTaggedStream, 9);
    EXPECT_EQ(rfm_TypeUnknown, 10);
}

TEST(TableMetadata, ANameDefinedTwiceIsRefusedAndUsesItsIndexUp)
{
    rfm_TableMetadata layout = LayoutOf("t", {"a"});
    EXPECT_EQ(TextOf([&] { layout.DefineDoubleField("a"); }),
              "***ERROR: Duplicate field metadata definition: \"a\"");
    EXPECT_EQ(layout.NextIndex(), 2);
    EXPECT_EQ(layout.GetFieldMD("a").type, rfm_TypeInt);
    EXPECT_EQ(layout.DefineIntField("b"), 2);
}

TEST(TableMetadata, TheGapOfARefusedNameAnswersThatThereIsNoField)
{
    rfm_TableMetadata layout = LayoutOf("t", {"a"});
    EXPECT_NE(TextOf([&] { layout.DefineIntField("a"); }), "nothing thrown");
    layout.DefineIntField("b");
    const rfm_TableMetadata copy(layout);
    EXPECT_STREQ(copy.GetFieldMD(0).name.CString(), "a");
    EXPECT_STREQ(copy.GetFieldMD(2).name.CString(), "b");
    EXPECT_EQ(TextOf([&] { copy.GetFieldMD(1); }), "***ERROR: Can't find field by index: 1");
    EXPECT_EQ(TextOf([&] { copy.Verify(1, rfm_TypeInt); }), "***ERROR: Can't find field by index: 1");
    EXPECT_EQ(TextOf([&] { copy.GetFieldMD(3); }), "***ERROR: Can't find field by index: 3");
}

TEST(TableMetadata, ANulInANameIsRefusedAndUsesNoIndex)
{
    rfm_TableMetadata layout("t", 1);
    EXPECT_EQ(TextOf([&] { layout.DefineIntField(cow_String("a\0b", 3)); }),
              "***ERROR: Invalid name, it holds a NUL: \"a\"");
    EXPECT_EQ(layout.NextIndex(), 0);
    EXPECT_EQ(TextOf([] { rfm_TableMetadata(cow_String("t\0", 2), 1); }),
              "***ERROR: Invalid name, it holds a NUL: \"t\"");
}

TEST(TableMetadata, AnEmptyNameIsAName)
{
    rfm_TableMetadata layout("", 1);
    EXPECT_EQ(layout.DefineIntField(""), 0);
    EXPECT_EQ(layout.GetFieldMD("").type, rfm_TypeInt);
}

TEST(TableMetadata, AnUnsetFieldIsNamedNovalue)
{
    const rfm_FieldMetadata field;
    EXPECT_STREQ(field.name.CString(), "novalue");
    EXPECT_EQ(field.type, 0);
    EXPECT_EQ(field.index, -1);
    EXPECT_EQ(field.stored, 1);
    const rfm_FieldMetadata given("x", rfm_TypeFloat, 4);
    const rfm_FieldMetadata& copy = rfm_FieldMetadata(given);
    EXPECT_STREQ(copy.name.CString(), "x");
    EXPECT_EQ(copy.type, rfm_TypeFloat);
    EXPECT_EQ(copy.index, 4);
    EXPECT_EQ(copy.stored, 1);
}

TEST(TableMetadata, AFieldHandleNamesByIndexOrByName)
{
    const rfm_FieldHandle byIndex(3);
    EXPECT_EQ(byIndex.Index(), 3);
    EXPECT_STREQ(byIndex.Name().CString(), "");
    const rfm_FieldHandle byName("x");
    EXPECT_EQ(byName.Index(), -1);
    EXPECT_STREQ(byName.Name().CString(), "x");
    const rfm_FieldHandle both(cow_String("y"), 2);
    EXPECT_EQ(both.Index(), 2);
    EXPECT_STREQ(both.Name().CString(), "y");
    const rfm_FieldHandle joined(cow_String("stress"), "_xx", -1);
    EXPECT_EQ(joined.Index(), -1);
    EXPECT_STREQ(joined.Name().CString(), "stress_xx");
}

// ---- Lookup ----

TEST(TableMetadata, AnUnknownNameGivesTheFieldNamedNovalue)
{
    const rfm_TableMetadata layout = LayoutOf("t", {"a"});
    const rfm_FieldMetadata& field = layout.GetFieldMD("zz");
    EXPECT_STREQ(field.name.CString(), "novalue");
    EXPECT_EQ(field.type, 0);
    EXPECT_EQ(field.index, -1);
}

TEST(TableMetadata, AHandleWithAnIndexIsLookedUpByIndexWhateverItsName)
{
    const rfm_TableMetadata layout(LayoutOf("t", {"a", "b"}), 1);
    EXPECT_STREQ(layout.GetFieldMD(rfm_FieldHandle("a", 1)).name.CString(), "b");
    EXPECT_STREQ(layout.GetFieldMD(rfm_FieldHandle("a", -1)).name.CString(), "a");
    EXPECT_STREQ(layout.GetFieldMD(rfm_FieldHandle("a", -7)).name.CString(), "a");
}

TEST(TableMetadata, ALayoutUnderDefinitionAnswersByNameUntilItIsCopied)
{
    const rfm_TableMetadata layout = LayoutOf("t", {"a"});
    EXPECT_EQ(layout.GetFieldMD("a").index, 0);
    EXPECT_EQ(TextOf([&] { layout.GetFieldMD(0); }), "***ERROR: Can't find field by index: 0");
    EXPECT_EQ(rfm_TableMetadata(layout, 1).GetFieldMD(0).index, 0);
}

TEST(TableMetadata, VerifyTellsWhatIsWrong)
{
    const rfm_TableMetadata layout(OneOfEach(), 1);
    layout.Verify(0, rfm_TypeInt);
    layout.Verify("string", rfm_TypeString);
    EXPECT_EQ(TextOf([&] { layout.Verify(5, rfm_TypeInt); }), "***ERROR: Can't find field by index: 5");
    EXPECT_EQ(TextOf([&] { layout.Verify(2147483647, rfm_TypeInt); }),
              "***ERROR: Can't find field by index: 2147483647");
    EXPECT_EQ(TextOf([&] { layout.Verify(1, rfm_TypeInt); }), "***ERROR: Field type mismatch by index: 1");
    EXPECT_EQ(TextOf([&] { layout.Verify("zz", rfm_TypeInt); }), "***ERROR: Can't find field: \"zz\"");
    EXPECT_EQ(TextOf([&] { layout.Verify("double", rfm_TypeFloat); }),
              "***ERROR: Field type mismatch: \"double\"");
}

TEST(TableMetadata, VerifyCannotFindAFieldThatTheFileLacks)
{
    StoredRecord record(LayoutOf("t", {"a"}));
    const rfm_TableMetadata merged = record.ReadMergedWith(LayoutOf("t", {"a", "c"}));
    EXPECT_EQ(TextOf([&] { merged.Verify(1, rfm_TypeInt); }), "***ERROR: Can't find field by index: 1");
    EXPECT_EQ(TextOf([&] { merged.Verify("c", rfm_TypeInt); }), "***ERROR: Can't find field: \"c\"");
    EXPECT_EQ(merged.GetFieldMD(1).stored, 0);
}

// ---- Copies ----

TEST(TableMetadata, ACopyHasAnIndexIntoItsOwnFields)
{
    const rfm_TableMetadata source(LayoutOf("t", {"b", "a"}, 3));
    const rfm_TableMetadata copy(source);
    const rfm_TableMetadata renewed(source, 9);
    EXPECT_EQ(&copy.GetFieldMD(1), &copy.GetFieldMD("a"));
    EXPECT_NE(&copy.GetFieldMD(1), &source.GetFieldMD("a"));
    EXPECT_EQ(copy.Version(), 3);
    EXPECT_EQ(renewed.Version(), 9);
    EXPECT_EQ(renewed.Name(), source.Name());
    EXPECT_EQ(renewed.NextIndex(), 2);
}

TEST(TableMetadata, AfterAnAssignmentTheIndexReachesIntoTheSource)
{
    const rfm_TableMetadata source(LayoutOf("source", {"a", "b"}, 4), 4);
    rfm_TableMetadata target = LayoutOf("target", {"x"});
    target = source;
    EXPECT_EQ(&target.GetFieldMD(0), &source.GetFieldMD(0));
    EXPECT_NE(&target.GetFieldMD("a"), &source.GetFieldMD("a"));
    EXPECT_EQ(target.Name(), cow_String("source"));
    EXPECT_EQ(target.NextIndex(), 2);
    EXPECT_EQ(target.Version(), 4);
    EXPECT_EQ(target.GetFieldMD("x").index, -1);
}

TEST(TableMetadata, AnAssignmentFromASourceWithoutIndexTakesTheIndexAway)
{
    rfm_TableMetadata target(LayoutOf("t", {"x"}), 1);
    EXPECT_EQ(target.GetFieldMD(0).index, 0);
    const rfm_TableMetadata source = []
    {
        rfm_TableMetadata made("s", 1);
        made.DefineIntField("a");
        return made;
    }();
    target = source;
    EXPECT_EQ(TextOf([&] { target.GetFieldMD(0); }), "***ERROR: Can't find field by index: 0");
    EXPECT_EQ(target.GetFieldMD("a").index, 0);
}

TEST(TableMetadata, AnAssignmentToItselfChangesNothing)
{
    rfm_TableMetadata layout(LayoutOf("t", {"a"}), 1);
    const rfm_TableMetadata& same = layout;
    layout = same;
    EXPECT_EQ(&layout.GetFieldMD(0), &layout.GetFieldMD("a"));
}

TEST(TableMetadata, ACopyOfALayoutWithoutFieldsHasNoIndex)
{
    const rfm_TableMetadata copy(rfm_TableMetadata("empty", 1));
    EXPECT_EQ(TextOf([&] { copy.GetFieldMD(0); }), "***ERROR: Can't find field by index: 0");
    EXPECT_EQ(copy.NextIndex(), 0);
}

// ---- The stored record ----

TEST(TableMetadata, ARecordHoldsTheFieldsInAscendingOrderOfTheirNames)
{
    rfm_TableMetadata layout("t", 5);
    layout.DefineStringField("s");
    layout.DefineIntField("i");
    layout.DefineHandleField("h");
    layout.DefineFloatField("f");
    layout.DefineDoubleField("d");
    EXPECT_EQ(StoredRecord(layout).AllBytes(), Bytes({
                                                   72, 0, 0, 0,                   // 12 and 5 fields of 12
                                                   0,  0, 0, 0, 0, 0, 0x10, 0x40, // "t" at 4
                                                   4,  0, 0, 0,                   // double
                                                   0,  0, 0, 0, 0, 0, 0x28, 0x40, // "d" at 12
                                                   3,  0, 0, 0,                   // float
                                                   0,  0, 0, 0, 0, 0, 0x34, 0x40, // "f" at 20
                                                   2,  0, 0, 0,                   // handle
                                                   0,  0, 0, 0, 0, 0, 0x3C, 0x40, // "h" at 28
                                                   1,  0, 0, 0,                   // int
                                                   0,  0, 0, 0, 0, 0, 0x42, 0x40, // "i" at 36
                                                   6,  0, 0, 0,                   // string
                                                   0,  0, 0, 0, 0, 0, 0x46, 0x40, // "s" at 44
                                               }));
}

TEST(TableMetadata, ARecordWithoutFieldsIsItsHead)
{
    StoredRecord record(rfm_TableMetadata("t", 1));
    EXPECT_EQ(record.AllBytes(), Bytes({12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0x40}));
    EXPECT_EQ(record.Read().Fields().Count(), 0);
}

TEST(TableMetadata, AReaderWithoutFieldsOfItsOwnGetsIndicesInTheOrderOfTheNames)
{
    StoredRecord record(LayoutOf("t", {"b", "a"}));
    const rfm_TableMetadata read = record.Read(6);
    EXPECT_EQ(read.GetFieldMD("a").index, 0);
    EXPECT_EQ(read.GetFieldMD("b").index, 1);
    EXPECT_EQ(&read.GetFieldMD(0), &read.GetFieldMD("a"));
    EXPECT_EQ(read.GetFieldMD(0).stored, 1);
    EXPECT_EQ(read.NextIndex(), 2);
    EXPECT_EQ(read.Name(), cow_String("t"));
    EXPECT_EQ(read.Version(), 6);
}

TEST(TableMetadata, ARecordLargerThanTheBlockComesBack)
{
    rfm_TableMetadata layout("large", 1);
    for (int i = 0; i < 400; ++i) layout.DefineDoubleField(cow_String("field ") + cow_String(1000 - i));
    StoredRecord record(layout);
    EXPECT_EQ(record.AllBytes().size(), 12U + 400 * 12);
    const rfm_TableMetadata merged = record.ReadMergedWith(layout);
    for (int i = 0; i < 400; ++i)
        ASSERT_EQ(merged.GetFieldMD(i).name, cow_String("field ") + cow_String(1000 - i));
}

TEST(TableMetadata, InNaturalOrderFieldsAreStoredAsPeopleCount)
{
    {
        StoredRecord record(LayoutOf("t", {"f10", "f2"}));
        EXPECT_EQ(record.Read().GetFieldMD("f10").index, 0);
    }
    const NaturalOrder on;
    StoredRecord record(LayoutOf("t", {"f10", "f2"}));
    const rfm_TableMetadata read = record.Read();
    EXPECT_EQ(read.GetFieldMD("f2").index, 0);
    EXPECT_EQ(read.GetFieldMD("f10").index, 1);
    EXPECT_EQ(read.GetFieldMD(0).name, cow_String("f2"));
}

TEST(TableMetadata, NamesAreOrderedAsUnsignedBytes)
{
    StoredRecord record(LayoutOf("t", {"\xE9", "z", "Z"}));
    const rfm_TableMetadata read = record.Read();
    EXPECT_EQ(read.GetFieldMD("Z").index, 0);
    EXPECT_EQ(read.GetFieldMD("z").index, 1);
    EXPECT_EQ(read.GetFieldMD("\xE9").index, 2);
}

// ---- Merging ----

TEST(TableMetadata, AMergeKeepsTheCallersIndicesAndAppendsWhatOnlyTheFileHas)
{
    StoredRecord record(LayoutOf("t", {"a", "b"}));
    const rfm_TableMetadata merged = record.ReadMergedWith(LayoutOf("t", {"a", "c"}, 8));
    EXPECT_EQ(merged.GetFieldMD("a").index, 0);
    EXPECT_EQ(merged.GetFieldMD("a").stored, 1);
    EXPECT_EQ(merged.GetFieldMD("c").index, 1);
    EXPECT_EQ(merged.GetFieldMD("c").stored, 0);
    EXPECT_EQ(merged.GetFieldMD("b").index, 2);
    EXPECT_EQ(merged.GetFieldMD("b").stored, 1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(merged.GetFieldMD(i).index, i);
    EXPECT_EQ(merged.NextIndex(), 3);
    EXPECT_EQ(merged.Version(), 8);
}

TEST(TableMetadata, AMergeWithAGapInTheCallersIndicesStartsBehindTheLargest)
{
    StoredRecord record(LayoutOf("t", {"a", "b", "x"}));
    rfm_TableMetadata known = LayoutOf("t", {"a"});
    for (int i = 0; i < 3; ++i) EXPECT_NE(TextOf([&] { known.DefineIntField("a"); }), "nothing thrown");
    EXPECT_EQ(known.DefineIntField("b"), 4);
    const rfm_TableMetadata merged = record.ReadMergedWith(known);
    EXPECT_EQ(merged.GetFieldMD("x").index, 5);
    EXPECT_EQ(merged.GetFieldMD(4).name, cow_String("b"));
    EXPECT_EQ(merged.GetFieldMD(5).name, cow_String("x"));
    for (int gap = 1; gap < 4; ++gap)
        EXPECT_EQ(TextOf([&] { merged.Verify(gap, rfm_TypeInt); }),
                  "***ERROR: Can't find field by index: " + std::to_string(gap));
}

TEST(TableMetadata, AMergeRefusesAFieldOfAnotherType)
{
    StoredRecord record(LayoutOf("t", {"a"}));
    rfm_TableMetadata known("t", 1);
    known.DefineDoubleField("a");
    EXPECT_EQ(TextOf([&] { record.ReadMergedWith(known); }), "***ERROR: Field type mismatch: a");
}

TEST(TableMetadata, AMergedLayoutWritesTheFieldsThatItsFileLacksToo)
{
    StoredRecord first(LayoutOf("t", {"a"}));
    const rfm_TableMetadata merged = first.ReadMergedWith(LayoutOf("t", {"a", "c"}));
    StoredRecord second(merged);
    EXPECT_EQ(second.AllBytes().size(), 36U);
    EXPECT_EQ(second.Read().GetFieldMD("c").stored, 1);
}

TEST(TableMetadata, AMergeWithFieldsMergedBeforeFindsThemInAFileThatHasThem)
{
    StoredRecord narrow(LayoutOf("t", {"a"}));
    StoredRecord wide(LayoutOf("t", {"a", "c"}));
    const rfm_TableMetadata merged = narrow.ReadMergedWith(LayoutOf("t", {"a", "c"}));
    EXPECT_EQ(merged.GetFieldMD("c").stored, 0);
    EXPECT_EQ(wide.ReadMergedWith(merged).GetFieldMD("c").stored, 1);
}

// ---- Damaged records ----

TEST(TableMetadata, ALengthThatFitsNoRecordIsDamage)
{
    for (const int length : {0, 4, 11, 13, 23, 25, 37, 48, 2147483647, -12, -2147483647})
    {
        StoredRecord record(LayoutOf("t", {"a", "b"}));
        record.PokeAt(0, Stored(length));
        EXPECT_EQ(TextOf([&] { record.Read(); }), kMetadataCorruptText) << length;
    }
}

TEST(TableMetadata, AShorterLengthGivesFewerFields)
{
    StoredRecord record(LayoutOf("t", {"a", "b"}));
    record.PokeAt(0, Stored(24));
    EXPECT_EQ(record.Read().Fields().Count(), 1);
}

TEST(TableMetadata, ANameTwiceInARecordIsRefused)
{
    StoredRecord record(LayoutOf("t", {"a", "b"}));
    record.PokeAt(28, Stored(12.0)); // the second field's name becomes that of the first
    const char* duplicate = "***ERROR: Duplicate field metadata definition: \"a\"";
    EXPECT_EQ(TextOf([&] { record.Read(); }), duplicate);
    EXPECT_EQ(TextOf([&] { record.ReadMergedWith(LayoutOf("t", {"a"})); }), duplicate);
}

TEST(TableMetadata, AReferenceToNoTextInARecordIsRefused)
{
    StoredRecord record(LayoutOf("t", {"a"}));
    record.PokeAt(16, Stored(4000.0));
    EXPECT_EQ(TextOf([&] { record.Read(); }), kNoStringText);
    record.PokeAt(4, Stored(14.0));
    EXPECT_EQ(TextOf([&] { record.Read(); }), kNoStringText);
}

TEST(TableMetadata, AFieldOfAnUnknownTypeIsThereButNoTypeFits)
{
    StoredRecord record(LayoutOf("t", {"a"}));
    record.PokeAt(12, Stored(5));
    const rfm_TableMetadata read = record.Read();
    EXPECT_EQ(read.GetFieldMD(0).type, 5);
    EXPECT_EQ(TextOf([&] { read.Verify(0, rfm_TypeInt); }), "***ERROR: Field type mismatch by index: 0");
}

// ---- Whether rows may move ----

TEST(TableMetadata, LayoutsWithTheSameFieldsCopyAsBytes)
{
    EXPECT_EQ(LayoutOf("t", {"a", "b"}).CopyAllowed(LayoutOf("other", {"b", "a"})), 1);
    EXPECT_EQ(rfm_TableMetadata("t", 1).CopyAllowed(rfm_TableMetadata("u", 1)), 1);
}

TEST(TableMetadata, LayoutsWithStringsCopyWithTheirStringsEncodedAnew)
{
    rfm_TableMetadata layout = LayoutOf("t", {"a"});
    layout.DefineStringField("s");
    EXPECT_EQ(layout.CopyAllowed(layout), 2);
}

TEST(TableMetadata, LayoutsWithHandlesDoNotCopy)
{
    rfm_TableMetadata layout = LayoutOf("t", {"a"});
    layout.DefineHandleField("h");
    EXPECT_EQ(layout.CopyAllowed(layout), 0);
    // A handle of the source alone does no harm: its field isn't taken over.
    EXPECT_EQ(LayoutOf("t", {"a"}).CopyAllowed(layout), 3);
}

TEST(TableMetadata, ASourceWithMoreFieldsCopiesFieldByField)
{
    rfm_TableMetadata mine("t", 1);
    mine.DefineStringField("s");
    rfm_TableMetadata theirs(mine);
    theirs.DefineIntField("more");
    EXPECT_EQ(mine.CopyAllowed(theirs), 3);
    EXPECT_EQ(theirs.CopyAllowed(mine), 0);
}

TEST(TableMetadata, AFieldOfAnotherTypeDoesNotCopy)
{
    rfm_TableMetadata theirs("t", 1);
    theirs.DefineFloatField("a");
    EXPECT_EQ(LayoutOf("t", {"a"}).CopyAllowed(theirs), 0);
}

TEST(TableMetadata, FieldsThatTheFileLacksCountOnNeitherSide)
{
    StoredRecord record(LayoutOf("t", {"a"}));
    const rfm_TableMetadata merged = record.ReadMergedWith(LayoutOf("t", {"a", "c"}));
    EXPECT_EQ(merged.CopyAllowed(LayoutOf("t", {"a"})), 1);
    EXPECT_EQ(LayoutOf("t", {"a"}).CopyAllowed(merged), 1);
    EXPECT_EQ(LayoutOf("t", {"a", "c"}).CopyAllowed(merged), 0);
}

TEST(TableMetadata, InNaturalOrderNamesOfTheSameNumberAreStillTwo)
{
    const NaturalOrder on;
    EXPECT_EQ(LayoutOf("t", {"f01"}).CopyAllowed(LayoutOf("t", {"f1"})), 0);
    EXPECT_EQ(LayoutOf("t", {"f01"}).CopyAllowed(LayoutOf("t", {"f01"})), 1);
}
