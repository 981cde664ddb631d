#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"

#include "DamagedStream.h"
#include "RandomSeed.h"
#include "StoredSample.h"
#include "Thrown.h"
#include "cls_StreamFormat.h"

#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <vector>

namespace
{
constexpr int kCollectionLibrary = 902;
constexpr int kHolder = typ_TypeId(kCollectionLibrary, 1);
constexpr int kCollection = typ_TypeId(kCollectionLibrary, 2);
constexpr int kBase = typ_TypeId(kCollectionLibrary, 3);
constexpr cls_FieldHandle kMap(-1, "map");
constexpr cls_FieldHandle kSize(0, "size");
constexpr cls_FieldHandle kUnknown(7, "unknown");

void RegisterHolder()
{
    static bool s_Done = false;
    if (std::exchange(s_Done, true)) return;
    cls_ClassRegistrar::AddClassMD(std::make_unique<cls_ClassMetadata>("Holder", kHolder, 1, nullptr, kBase))
        .AddAttribute(kMap, cls_AttributeObject, kCollection, 2);
    cls_ClassRegistrar::AddClassMD(
        std::make_unique<cls_ClassMetadata>("HolderBase", kBase, 1, nullptr, typ_NoBase))
        .AddAttribute(kSize, cls_AttributeInteger, 1, 0);
}

class AStream : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Sample::Register();
        RegisterHolder();
    }
    // An object of the class that holds a collection and has a base class.
    cls_WriteVisitor StartHolder()
    {
        const cls_WriteVisitor holder = m_Written.Visitor();
        EXPECT_TRUE(holder.StartWrite(kHolder, m_HolderUid));
        return holder;
    }
    cls_WriteVisitor StartMap(const cls_WriteVisitor& holder)
    {
        const cls_WriteVisitor map = holder.Field(kMap);
        EXPECT_TRUE(map.StartWrite(kCollection, m_MapUid));
        return map;
    }

    cls_WriteStream m_Written;
    cls_Uid m_HolderUid;
    cls_Uid m_MapUid;
};

// Makes all that a stream of samples and holders holds.
void ReadAll(const cow_String& bytes)
{
    const cls_ReadStream stream(bytes);
    for (int index = 0; index < stream.Count(); ++index)
    {
        const cls_ReadVisitor reader = stream.Visitor(index);
        if (reader.TypeId() == Sample::TypeId())
        {
            const Sample sample(reader);
            continue;
        }
        reader.CheckType(kHolder);
        reader.Base(kBase).ReadInt(kSize, 0);
        const cls_ReadVisitor map = reader.Field(kMap);
        map.CheckCollectionType(2);
        for (int element = 0; element < map.ElementCount(); ++element)
            if (!map.Element(element).IsNone()) const Sample sample(map.Element(element));
    }
}

// Bytes as a row of pairs of digits and, between quotes, of characters: "01 'ab' ff".
std::string Bytes(std::string_view written)
{
    std::string bytes;
    for (std::size_t at = 0; at < written.size();)
    {
        if (written[at] == ' ')
        {
            ++at;
        }
        else if (written[at] == '\'')
        {
            const std::size_t end = written.find('\'', at + 1);
            bytes += written.substr(at + 1, end - at - 1);
            at = end + 1;
        }
        else
        {
            bytes += static_cast<char>(std::stoi(std::string(written.substr(at, 2)), nullptr, 16));
            at += 2;
        }
    }
    return bytes;
}

cow_String Text(std::string_view bytes) { return cow_String(bytes); }

// The class of samples in front of its first object, and the class that holds a collection.
const std::string kSampleClass = "00 8180901c 03 06'Sample' ";

cow_String StreamOf(std::string_view body) { return Text(cls_WrapBody(Bytes(body))); }

std::string RefusalOf(std::string_view body)
{
    return Thrown<nex_TextException>([&] { const cls_ReadStream stream(StreamOf(body)); });
}

std::string Damaged(std::string_view what)
{
    return "*** Error: The stream of objects is damaged: " + std::string(what) + ".";
}
} // namespace

TEST(cls_StreamFormat, NumbersTakeSevenBitsAByteTheLowOnesFirst)
{
    const auto bytesOf = [](std::uint32_t number)
    {
        std::string bytes;
        cls_AppendNumber(bytes, number);
        return bytes;
    };
    EXPECT_EQ(bytesOf(0), Bytes("00"));
    EXPECT_EQ(bytesOf(127), Bytes("7f"));
    EXPECT_EQ(bytesOf(128), Bytes("8001"));
    EXPECT_EQ(bytesOf(300), Bytes("ac02"));
    EXPECT_EQ(bytesOf(4294967295), Bytes("ffffffff0f"));
    for (const std::uint32_t number : {0U, 127U, 128U, 16383U, 16384U, 2293762U, 4294967295U})
    {
        const std::string bytes = bytesOf(number);
        EXPECT_EQ(cls_BodyCursor(bytes).TakeNumber(), number);
    }
}

TEST(cls_StreamFormat, IntegersOfEitherSignStaySmall)
{
    EXPECT_EQ(cls_Folded(0), 0U);
    EXPECT_EQ(cls_Folded(-1), 1U);
    EXPECT_EQ(cls_Folded(1), 2U);
    EXPECT_EQ(cls_Folded(-99), 197U);
    EXPECT_EQ(cls_Folded(std::numeric_limits<int>::min()), 4294967295U);
    for (const int value :
         {0, 1, -1, 86400, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()})
        EXPECT_EQ(cls_Unfolded(cls_Folded(value)), value);
}

TEST_F(AStream, HasTheBytesOfItsPicture)
{
    const Sample sample(-2, true, "ab");
    sample.DBWrite(m_Written.Visitor());
    EXPECT_EQ(m_Written.Bytes().View(), Bytes("'clsS' 01 35000000"
                                              "01 00 8180901c 03 06'Sample'"
                                              "03 06'number' 01 03"
                                              "04 04'flag' 02 01"
                                              "05 04'text' 03 02'ab'"
                                              "06 05'inner' 04 00 00"
                                              "00"
                                              "fba16c7c"));
}

TEST_F(AStream, NamesEachClassAndAttributeOnceAndSharedObjectsToo)
{
    Sample first(1, false, "");
    first.m_Inner = Sample::Handle(Sample(5, true, "x"));
    Sample second(2, false, "");
    second.m_Inner = first.m_Inner;
    first.DBWrite(m_Written.Visitor());
    second.DBWrite(m_Written.Visitor());
    const std::string firstBody = "01 00 8180901c 03 06'Sample'"
                                  "03 06'number' 01 02"
                                  "04 04'flag' 02 00"
                                  "05 04'text' 03 00"
                                  "06 05'inner' 04 01 00  03 0a 04 01 05 01'x' 06 00 00  00"
                                  "00";
    const std::string secondBody = "01 00 03 04 04 00 05 00 06 03 00"; // 03: the object with number 2
    EXPECT_EQ(m_Written.Bytes().View(), cls_WrapBody(Bytes(firstBody + secondBody)));
}

TEST_F(AStream, HoldsTheBytesOfCollectionsAndBaseClasses)
{
    const cls_WriteVisitor holder = StartHolder();
    const cls_WriteVisitor base = holder.Base(kBase);
    EXPECT_TRUE(base.StartWrite(kBase, cls_Uid()));
    base.WriteInt(kSize, 1);
    const cls_WriteVisitor map = StartMap(holder);
    map.CheckCollectionType(2);
    map.Element("k").WriteNone(Sample::TypeId());
    EXPECT_EQ(m_Written.Bytes().View(),
              cls_WrapBody(Bytes("01 00 8180981c 01 06'Holder'"
                                 "01 01 8380981c 01 0a'HolderBase' 03 04'size' 01 02 00"
                                 "03 03'map' 05 02"
                                 "01 02 8280981c 00 00"
                                 "02 01'k' 00 03 8180901c 03 06'Sample'"
                                 "00 00")));
}

TEST_F(AStream, AnEmptyStreamIsAStream)
{
    EXPECT_EQ(m_Written.Bytes().View(), Bytes("'clsS' 01 00000000 6485596e"));
    EXPECT_EQ(cls_ReadStream(m_Written.Bytes()).Count(), 0);
}

TEST_F(AStream, GivesBackWhatWasWritten)
{
    Sample outer(std::numeric_limits<int>::min(), true, "outer");
    outer.m_Text = cow_String("with\0NUL", 8);
    outer.m_Inner = Sample::Handle(Sample(std::numeric_limits<int>::max(), false, ""));
    outer.DBWrite(m_Written.Visitor());
    const cls_ReadStream stream(m_Written.Bytes());
    ASSERT_EQ(stream.Count(), 1);
    EXPECT_EQ(stream.Visitor(0).TypeId(), Sample::TypeId());
    EXPECT_EQ(stream.Visitor(0).VersionNumber(), 3);
    EXPECT_EQ(Sample(stream.Visitor(0)), outer);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { stream.Visitor(1); }), "index >= 0 && index < Count()");
}

TEST_F(AStream, AnObjectThatWasWrittenIsNotWrittenAgain)
{
    const Sample sample(1, true, "the text");
    const cls_WriteVisitor visitor = m_Written.Visitor();
    EXPECT_TRUE(visitor.StartWrite(Sample::TypeId(), sample.m_Uid));
    EXPECT_FALSE(sample.m_Uid.IsEmpty()) << "the identity is allocated when it is needed";
    EXPECT_FALSE(visitor.StartWrite(Sample::TypeId(), sample.m_Uid));
    sample.DBWrite(visitor);
    const cls_ReadStream stream(m_Written.Bytes());
    ASSERT_EQ(stream.Count(), 3);
    EXPECT_EQ(stream.Visitor(1).GetUid(), stream.Visitor(0).GetUid());
    EXPECT_EQ(stream.Visitor(2).GetUid(), stream.Visitor(0).GetUid());
    EXPECT_FALSE(stream.Visitor(0).GetUid().IsEmpty());
    EXPECT_NE(stream.Visitor(0).GetUid(), sample.m_Uid) << "what is read is another object";
}

TEST_F(AStream, AnObjectOfAnotherStreamIsWrittenInEach)
{
    const Sample sample(1, true, "text");
    cls_WriteStream other;
    sample.DBWrite(m_Written.Visitor());
    sample.DBWrite(other.Visitor());
    EXPECT_EQ(m_Written.Bytes(), other.Bytes());
}

TEST_F(AStream, AnAttributeThatIsNotStoredHasTheDefaultOfTheCall)
{
    m_Written.Visitor().StartWrite(Sample::TypeId(), cls_Uid());
    const cls_ReadStream stream(m_Written.Bytes());
    const cls_ReadVisitor reader = stream.Visitor(0);
    EXPECT_EQ(reader.ReadInt(Sample::kNumber, 17), 17);
    EXPECT_TRUE(reader.ReadBool(Sample::kFlag, true));
    EXPECT_EQ(reader.ReadString(Sample::kText, "absent").View(), "absent");
    EXPECT_TRUE(reader.Field(Sample::kInner).IsNone());
    EXPECT_TRUE(reader.Base(kBase).IsNone());
    EXPECT_EQ(reader.Base(kBase).ReadInt(kSize, 4), 4);
    EXPECT_EQ(reader.Base(kBase).TypeId(), kBase);
    EXPECT_TRUE(reader.Field(kUnknown).GetUid().IsEmpty());
    EXPECT_EQ(reader.Field(kUnknown).ElementCount(), 0);
    EXPECT_EQ(reader.Field(kUnknown).VersionNumber(), 0);
}

TEST_F(AStream, AttributesThatAReaderDoesNotKnowArePassedOver)
{
    // A later version of the class: an attribute of each kind in front of the two that are known.
    const cls_ReadStream stream(StreamOf("01 00 8180901c 09 06'Sample'"
                                         "03 01'a' 01 ffffffff0f"
                                         "04 01'b' 02 01"
                                         "05 01'c' 03 03'xyz'"
                                         "06 01'd' 04 01 01 07 01 05'Later' 03 01'e' 01 02 00"
                                         "07 01'f' 05 09 01 02 08 00 00 02 01'k' 00 01 00"
                                         "08 04'text' 03 02'ok'"
                                         "09 06'number' 01 0e"
                                         "00"));
    const Sample sample(stream.Visitor(0));
    EXPECT_EQ(sample.m_Number, 7);
    EXPECT_EQ(sample.m_Text.View(), "ok");
    EXPECT_FALSE(sample.m_Flag);
    EXPECT_EQ(stream.Visitor(0).VersionNumber(), 9);
}

TEST_F(AStream, AnAttributeOfAnotherKindIsRefused)
{
    const cls_ReadStream stream(
        StreamOf("01" + kSampleClass + "03 06'number' 03 01'7' 04 05'inner' 01 00 00"));
    const std::string refusal = Damaged("an attribute is of another kind than its class has it");
    const cls_ReadVisitor reader = stream.Visitor(0);
    EXPECT_EQ(Thrown<nex_TextException>([&] { reader.ReadInt(Sample::kNumber, 0); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { reader.ReadBool(Sample::kNumber, false); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { reader.ReadString(Sample::kInner, ""); }), refusal);
    EXPECT_EQ(Thrown<nex_TextException>([&] { reader.Field(Sample::kInner); }), refusal);
}

TEST_F(AStream, ACollectionGivesItsElementsInTheirOrder)
{
    const cls_WriteVisitor map = StartMap(StartHolder());
    const Sample sample(1, true, "x");
    sample.DBWrite(map.Element("z"));
    sample.DBWrite(map.Element("a"));
    map.Element("").WriteNone(Sample::TypeId());
    const cls_ReadStream stream(m_Written.Bytes());
    const cls_ReadVisitor read = stream.Visitor(0).Field(kMap);
    read.CheckType(kCollection);
    read.CheckCollectionType(2);
    ASSERT_EQ(read.ElementCount(), 3);
    EXPECT_EQ(read.ElementKey(0).View(), "z");
    EXPECT_EQ(read.ElementKey(1).View(), "a");
    EXPECT_EQ(read.Element(1).GetUid(), read.Element(0).GetUid());
    EXPECT_EQ(Sample(read.Element(1)), sample);
    EXPECT_TRUE(read.Element(2).IsNone());
    EXPECT_EQ(read.Element(2).TypeId(), Sample::TypeId());
    EXPECT_EQ(Thrown<nex_AssertException>([&] { read.Element(3); }), "index >= 0 && index < ElementCount()");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { read.ElementKey(-1); }),
              "index >= 0 && index < ElementCount()");
    EXPECT_EQ(Thrown<nex_TextException>([&] { read.CheckCollectionType(1); }),
              Damaged("a collection is of another type than expected"));
    EXPECT_EQ(Thrown<nex_TextException>([&] { read.CheckType(kHolder); }),
              Damaged("an object is of another class than expected"));
    EXPECT_EQ(Thrown<nex_TextException>([&] { read.Element(2).CheckType(Sample::TypeId()); }),
              Damaged("an object is of another class than expected"));
}

TEST_F(AStream, AWriterRefusesWhatItsMetadataDoesNotHave)
{
    const cls_WriteVisitor visitor = m_Written.Visitor();
    EXPECT_EQ(Thrown<nex_AssertException>([&] { visitor.WriteInt(Sample::kNumber, 1); }),
              "StartWrite(typeId, uid)");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { visitor.StartWrite(typ_TypeId(999, 1), cls_Uid()); }),
              "cls_ClassRegistrar::FindClassMD(typeId) != nullptr");
    cls_WriteStream second;
    const cls_WriteVisitor sample = second.Visitor();
    sample.StartWrite(Sample::TypeId(), cls_Uid());
    EXPECT_EQ(Thrown<nex_AssertException>([&] { sample.WriteInt(kUnknown, 1); }),
              "metadata->FindAttribute(handle.Name()) != nullptr");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { sample.WriteBool(Sample::kNumber, true); }),
              "fits(attribute->type)");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { sample.CheckCollectionType(2); }),
              "CollectionType() == collectionType");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { sample.Element("k").WriteNone(Sample::TypeId()); }),
              "CollectionType() != 0");
    sample.WriteInt(Sample::kNumber, 1);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { sample.WriteInt(Sample::kNumber, 1); }),
              "written.insert(attribute).second");
}

TEST_F(AStream, AWriterRefusesAnObjectInsideItselfAndAnotherTypeThanDeclared)
{
    const cls_Uid uid;
    const cls_WriteVisitor sample = m_Written.Visitor();
    sample.StartWrite(Sample::TypeId(), uid);
    EXPECT_EQ(
        Thrown<nex_AssertException>([&] { sample.Field(Sample::kInner).StartWrite(Sample::TypeId(), uid); }),
        "open.uid != uid");
    cls_WriteStream second;
    const cls_WriteVisitor other = second.Visitor();
    other.StartWrite(Sample::TypeId(), uid);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { other.Field(Sample::kInner).WriteNone(kHolder); }),
              "attribute.number == typeId");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { other.Base(kBase).StartWrite(kHolder, uid); }),
              "m_TypeId == typeId");
}

TEST_F(AStream, ObjectsNestAsDeepAsAReaderFollows)
{
    Sample::Handle chain(Sample(0, true, ""));
    for (int depth = 1; depth < cls_DeepestObject; ++depth)
    {
        Sample outer(depth, true, "");
        outer.m_Inner = chain;
        chain = Sample::Handle(outer);
    }
    chain.ConstGet().DBWrite(m_Written.Visitor());
    const cls_ReadStream stream(m_Written.Bytes());
    EXPECT_EQ(Sample(stream.Visitor(0)), chain.ConstGet());

    Sample tooDeep(99, true, "");
    tooDeep.m_Inner = chain;
    cls_WriteStream refused;
    EXPECT_EQ(Thrown<nex_AssertException>([&] { tooDeep.DBWrite(refused.Visitor()); }),
              "depth < cls_DeepestObject");
}

TEST_F(AStream, TravelsThroughAFileAndLeavesWhatFollows)
{
    const Sample sample(1, true, "text");
    sample.DBWrite(m_Written.Visitor());
    std::stringstream file;
    m_Written.WriteTo(file);
    m_Written.WriteTo(file);
    file << "rest";
    for (int times = 0; times < 2; ++times)
    {
        const cls_ReadStream stream(file);
        EXPECT_EQ(Sample(stream.Visitor(0)), sample);
    }
    std::string rest;
    file >> rest;
    EXPECT_EQ(rest, "rest");
}

TEST_F(AStream, ATargetThatTakesNothingIsReported)
{
    std::ofstream full("/dev/full");
    full.setf(std::ios::unitbuf);
    const Sample sample(1, true, cow_String(cow_String("x") + "y").CString());
    sample.DBWrite(m_Written.Visitor());
    full.rdbuf()->pubsetbuf(nullptr, 0);
    EXPECT_EQ(Thrown<nex_TextException>([&] { m_Written.WriteTo(full); }),
              "*** Error: The stream of objects can't be written.");
}

TEST_F(AStream, AHeadIsJudgedBeforeAnythingElse)
{
    const auto refusal = [](const std::string& bytes)
    { return Thrown<nex_TextException>([&] { const cls_ReadStream stream(Text(bytes)); }); };
    EXPECT_EQ(refusal(""), Damaged("it ends inside its head"));
    EXPECT_EQ(refusal(Bytes("'clsS' 01 000000")), Damaged("it ends inside its head"));
    EXPECT_EQ(refusal(Bytes("'clsT' 01 00000000 00000000")), "*** Error: This is no stream of objects.");
    EXPECT_EQ(refusal(Bytes("'clsS' 02 00000000 00000000")),
              "*** Error: The stream of objects has version 2; only version 1 is known.");
    EXPECT_EQ(refusal(Bytes("'clsS' 01 01000000 00000000")),
              Damaged("its length is not the one that it tells"));
    EXPECT_EQ(refusal(Bytes("'clsS' 01 00000000 00000000")), Damaged("its bytes were changed"));
}

TEST_F(AStream, ALengthThatNothingStandsBehindIsRefused)
{
    std::stringstream file(Bytes("'clsS' 01 00000001 'little'"));
    EXPECT_EQ(Thrown<nex_TextException>([&] { const cls_ReadStream stream(file); }),
              Damaged("it ends before its end"));
}

TEST_F(AStream, ABodyOfMoreThanSixteenMebibytesIsNeitherReadNorWritten)
{
    const std::string refusal = "*** Error: A stream of objects can't hold more than 16 MiB.";
    for (const char* head : {"'clsS' 01 01000001", "'clsS' 01 ffffffff"})
    {
        std::stringstream file(Bytes(head));
        EXPECT_EQ(Thrown<nex_TextException>([&] { const cls_ReadStream stream(file); }), refusal);
    }
    std::string body(16 << 20, 'x');
    EXPECT_EQ(cls_UnwrapBody(cls_WrapBody(body)), body);
    body += 'x';
    EXPECT_EQ(Thrown<nex_TextException>([&] { cls_WrapBody(body); }), refusal);
}

TEST_F(AStream, AnAttributeThatComesTwiceIsSeenBehindAnObjectOfTheSameClassToo)
{
    const std::string inner = "04 01'b' 04 01 00 03 0a 00"; // an object of the class, with attribute a
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 01 00" + inner + "03 00"),
              Damaged("an object has an attribute twice"));
    EXPECT_EQ(cls_ReadStream(StreamOf("01" + kSampleClass + "03 01'a' 01 00" + inner + "00")).Count(), 1);
}

TEST_F(AStream, EachKindOfDamageInABodyIsNamed)
{
    EXPECT_EQ(RefusalOf("02"), Damaged("it refers to an object that it does not hold"));
    EXPECT_EQ(RefusalOf("ffffffff0f"), Damaged("it refers to an object that it does not hold"));
    EXPECT_EQ(RefusalOf("ffffffff1f"), Damaged("a number has more than 32 bits"));
    EXPECT_EQ(RefusalOf("8080808080 00"), Damaged("a number has more than 32 bits"));
    EXPECT_EQ(RefusalOf("01 01"), Damaged("it refers to a class that it does not describe"));
    EXPECT_EQ(RefusalOf("01 00 05 01 02'x'"), Damaged("a text runs past its end"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass), Damaged("it ends inside an object"));
    EXPECT_EQ(RefusalOf("00" + kSampleClass + "00 01 8180901c 03 00"), Damaged("it describes a class twice"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "04"),
              Damaged("it refers to an attribute that it does not name"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 00"), Damaged("an attribute is of an unknown kind"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 06"), Damaged("an attribute is of an unknown kind"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 02 02"), Damaged("a boolean is neither 0 nor 1"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 01 00 03 00"),
              Damaged("an object has an attribute twice"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 01 00 04 01'a' 01 00"),
              Damaged("a class has two attributes of one name"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 05 00"), Damaged("a collection has no type"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 04 02"), Damaged("an object lies inside itself"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "02 01'k' 00 00"),
              Damaged("an object that is no collection has elements"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "03 01'a' 05 02 01 00 03 00"),
              Damaged("a collection has attributes"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "01 00 00 01 00 00"),
              Damaged("an object has two parts of a base class"));
    EXPECT_EQ(RefusalOf("01" + kSampleClass + "00 01 00 03 01'a' 05 02 02"),
              Damaged("it refers to a collection of another type"));
}

TEST_F(AStream, ObjectsThatLieTooDeepInEachOtherAreRefused)
{
    std::string body = "01" + kSampleClass + "03 01'a' 04";
    for (int depth = 0; depth < 100000; ++depth) body += "01 00 03";
    EXPECT_EQ(RefusalOf(body), Damaged("its objects lie too deep in each other"));
}

TEST_F(AStream, CutsAndChangesOfAnyByteAreRefused)
{
    Sample sample(86400, true, "text");
    sample.m_Inner = Sample::Handle(Sample(-1, false, "inner"));
    sample.DBWrite(m_Written.Visitor());
    sample.DBWrite(m_Written.Visitor());
    const cls_WriteVisitor holder = StartHolder();
    const cls_WriteVisitor base = holder.Base(kBase);
    base.StartWrite(kBase, cls_Uid());
    base.WriteInt(kSize, 3);
    const cls_WriteVisitor map = StartMap(holder);
    sample.DBWrite(map.Element("a"));
    map.Element("b").WriteNone(Sample::TypeId());
    const cow_String whole = m_Written.Bytes();
    ExpectEveryCutIsRefused(whole, ReadAll);
    ExpectEveryChangedByteIsRefused(whole, ReadAll);
    EXPECT_GT(CountRefusedChanges(whole, ReadAll), 0);
}

TEST_F(AStream, BodiesOfRandomBytesAreRefusedOrHarmless)
{
    std::mt19937 random(RandomSeed());
    int refused = 0;
    for (int round = 0; round < 20000; ++round)
    {
        // Small numbers are what a body is made of, so half of the bytes are.
        std::string body = Bytes("01" + kSampleClass);
        for (auto left = random() % 40; left > 0; --left)
            body += static_cast<char>(random() % 2 == 0 ? random() % 8 : random() % 256);
        if (IsRefused(ReadAll, Text(cls_WrapBody(body)))) ++refused;
    }
    EXPECT_GT(refused, 10000);
}
