#include "ChangeReports.h"
#include "mdl_MapOfCowsRepository.h"

#include "DamagedStream.h"
#include "StoredSample.h"
#include "Thrown.h"
#include "cls_ClassMetadata.h"
#include "mdl_Library.h"
#include "omi_TimeCounter.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

using Samples = mdl_MapOfCowsRepository<cow_String, Sample>;
using SamplesIT = mdl_MapOfCowsRepositoryIT<cow_String, Sample>;
template <> int Samples::TypeId() noexcept { return typ_TypeId(903, 1); }

namespace
{
void RegisterSamples()
{
    static bool s_Done = false;
    if (std::exchange(s_Done, true)) return;
    static const cls_TypeAdapter<Samples> s_Adapter;
    cls_ClassRegistrar::AddClassMD(std::make_unique<cls_ClassMetadata>("Samples", Samples::TypeId(), 1,
                                                                       &s_Adapter, mdl_Repository::TypeId()))
        .AddAttribute(mdl_MapField, cls_AttributeObject, mdl_MapTypeId, mdl_MapCollectionType);
}

class ARepository : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mdl_initialize(m_Count);
        Sample::Register();
        RegisterSamples();
        History().Clear();
    }
    void TearDown() override
    {
        History().Clear();
        mdl_finalize(m_Count);
    }
    static std::string Joined(const cow_List<cow_String>& keys)
    {
        std::string joined;
        for (const cow_String& key : keys)
        {
            joined += key.View();
            joined += " ";
        }
        return joined;
    }
    static cow_String Written(const Samples& samples)
    {
        cls_WriteStream stream;
        samples.DBWrite(stream.Visitor());
        return stream.Bytes();
    }

    Samples m_Samples;
    int m_Count = 0;
};
} // namespace

TEST_F(ARepository, AnInsertOfANewKeyIsOneReport)
{
    EXPECT_TRUE(m_Samples.Insert("box1", Sample(1, true, "a")));
    EXPECT_EQ(Reports(), "('Insert', 'box1', -99)\n");
    EXPECT_EQ(m_Samples.Size(), 1);
    EXPECT_TRUE(m_Samples.IsMember("box1"));
    EXPECT_EQ(m_Samples.ConstGet("box1"), Sample(1, true, "a"));
    EXPECT_EQ(Reports(), "") << "reading is no change";
}

TEST_F(ARepository, AnInsertOverAnEntryReportsItsRemovalFirst)
{
    m_Samples.Insert("box1", Sample(1, true, "a"));
    Reports();
    EXPECT_TRUE(m_Samples.Insert("box1", new Sample(2, true, "b")));
    EXPECT_EQ(Reports(), "('Remove', 'box1')\n('Insert', 'box1', -99)\n");
    EXPECT_EQ(m_Samples.Size(), 1);
    EXPECT_EQ(m_Samples.ConstGet("box1").m_Number, 2);
}

TEST_F(ARepository, TheTuplesHaveTheirCapacities)
{
    m_Samples.Insert("k", Sample(1, true, ""));
    m_Samples.Insert("k", Sample(1, true, ""));
    m_Samples.Get("k");
    m_Samples.Remove("k");
    std::vector<int> capacities;
    for (const auto& report : History().Changes()) capacities.push_back(report.ConstGet().Capacity());
    EXPECT_EQ(capacities, (std::vector{4, 2, 4, 4, 2}));
}

TEST_F(ARepository, AnInsertedReferenceIsCopiedAndAnInsertedPointerIsTakenOver)
{
    Sample mine(1, false, "mine");
    m_Samples.Insert("copy", mine);
    mine.m_Number = 2;
    EXPECT_EQ(m_Samples.ConstGet("copy").m_Number, 1);
    auto* given = new Sample(3, false, "given");
    m_Samples.Insert("given", given);
    EXPECT_EQ(&m_Samples.ConstGet("given"), given);
}

TEST_F(ARepository, AnEntryMayBeInsertedAnewUnderItsOwnKeyAndText)
{
    m_Samples.Insert("a", Sample(1, true, "a"));
    EXPECT_TRUE(m_Samples.Insert(m_Samples.ConstGet("a").m_Text, m_Samples.ConstGet("a")));
    EXPECT_EQ(m_Samples.ConstGet("a").m_Number, 1);
    EXPECT_TRUE(m_Samples.Remove(m_Samples.ConstGet("a").m_Text));
    EXPECT_EQ(Reports(), "('Insert', 'a', -99)\n('Remove', 'a')\n('Insert', 'a', -99)\n('Remove', 'a')\n");
}

TEST_F(ARepository, ARemovalIsReportedOnlyWhenThereWasSomething)
{
    EXPECT_FALSE(m_Samples.Remove("box1"));
    EXPECT_EQ(Reports(), "");
    m_Samples.Insert("box1", Sample(1, true, ""));
    Reports();
    EXPECT_TRUE(m_Samples.Remove("box1"));
    EXPECT_EQ(Reports(), "('Remove', 'box1')\n");
    EXPECT_EQ(m_Samples.Size(), 0);
}

TEST_F(ARepository, GetReportsAChangeBeforeItLooksTheKeyUp)
{
    m_Samples.Insert("box1", Sample(1, true, ""));
    Reports();
    m_Samples.Get("box1").m_Number = 5;
    EXPECT_EQ(Reports(), "('Modify', 'box1')\n");
    EXPECT_EQ(m_Samples.ConstGet("box1").m_Number, 5);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Samples.Get("box2"); }), "!IsNull()");
    EXPECT_EQ(Reports(), "('Modify', 'box2')\n");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Samples.ConstGet("box2"); }), "!entry.IsNull()");
    EXPECT_EQ(m_Samples.Size(), 1);
}

TEST_F(ARepository, KeysAreSortedAndFollowEveryChange)
{
    for (const char* key : {"b", "c", "a"}) m_Samples.Insert(key, Sample(1, true, ""));
    EXPECT_EQ(Joined(m_Samples.Keys()), "a b c ");
    m_Samples.Remove("b");
    EXPECT_EQ(Joined(m_Samples.Keys()), "a c ");
    m_Samples.Insert("aa", Sample(1, true, ""));
    EXPECT_EQ(Joined(m_Samples.Keys()), "a aa c ");
    m_Samples.GetMap().InsertUnlessMember("b", Samples::Entry());
    EXPECT_EQ(Joined(m_Samples.Keys()), "a aa b c ");
    EXPECT_EQ(m_Samples.ConstGetMap().Count(), 4);
}

TEST_F(ARepository, ACopySharesUntilOneOfThemChanges)
{
    m_Samples.Insert("a", Sample(1, true, ""));
    m_Samples.Keys();
    const std::unique_ptr<Samples> copy(m_Samples.Copy());
    EXPECT_EQ(&copy->ConstGet("a"), &m_Samples.ConstGet("a"));
    EXPECT_EQ(Joined(copy->Keys()), "a ");
    m_Samples.Get("a").m_Number = 2;
    m_Samples.Insert("b", Sample(3, true, ""));
    EXPECT_EQ(copy->ConstGet("a").m_Number, 1);
    EXPECT_EQ(copy->Size(), 1);
    EXPECT_EQ(&copy->GetValue(), copy.get());
    EXPECT_EQ(&copy->ConstGetValue(), copy.get());
}

TEST_F(ARepository, AWalkSeesTheRepositoryAsItWasWhenItBegan)
{
    for (const char* key : {"b", "a"}) m_Samples.Insert(key, Sample(1, true, key));
    SamplesIT walk(m_Samples);
    m_Samples.Remove("b");
    m_Samples.Insert("c", Sample(1, true, "c"));
    m_Samples.Get("a").m_Text = "changed";
    std::string seen;
    for (; !walk.AtEnd(); walk.Next())
    {
        seen += walk.Key().View();
        seen += walk.Value().m_Text.View();
    }
    EXPECT_EQ(seen, "aabb");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { walk.Key(); }).empty(), false);
}

TEST_F(ARepository, APlainOneIsEmptyAndOfItsOwnType)
{
    const mdl_Repository plain;
    EXPECT_EQ(plain.Size(), 0);
    EXPECT_EQ(plain.DynTypeId(), 655361);
    EXPECT_EQ(mdl_Repository::TypeId(), 655361);
    const std::unique_ptr<mdl_Repository> copy(plain.Copy());
    EXPECT_EQ(copy->DynTypeId(), 655361);
    cls_WriteStream written;
    plain.DBWrite(written.Visitor());
    const cls_ReadStream stream(written.Bytes());
    EXPECT_EQ(mdl_Repository(stream.Visitor(0)).Size(), 0);
}

TEST_F(ARepository, EachKnowsWhenItWasMade)
{
    const double before = omi_gettimecounter();
    const mdl_Repository plain;
    const mdl_Repository copy(plain);
    EXPECT_LE(before, plain.MadeAt());
    EXPECT_LE(plain.MadeAt(), copy.MadeAt());
    EXPECT_LE(copy.MadeAt(), omi_gettimecounter());
}

TEST_F(ARepository, WhatWasWrittenIsReadBack)
{
    m_Samples.Insert("b", Sample(2, true, "two"));
    m_Samples.Insert("a", Sample(1, false, "one"));
    m_Samples.GetMap().InsertUnlessMember("nothing", Samples::Entry());
    const cls_ReadStream stream(Written(m_Samples));
    ASSERT_EQ(stream.Count(), 1);
    EXPECT_EQ(stream.Visitor(0).TypeId(), Samples::TypeId());
    Samples read(stream.Visitor(0));
    EXPECT_EQ(Joined(read.Keys()), "a b nothing ");
    EXPECT_EQ(read.ConstGet("a"), Sample(1, false, "one"));
    EXPECT_EQ(read.ConstGet("b"), Sample(2, true, "two"));
    EXPECT_TRUE(read.ConstGetMap().ConstGet("nothing").IsNull());
    EXPECT_EQ(Reports(), "('Insert', 'b', -99)\n('Insert', 'a', -99)\n") << "reading is no change";
}

TEST_F(ARepository, AnObjectUnderTwoKeysIsWrittenOnceAndSharedAgainWhenRead)
{
    const Samples::Entry shared(Sample(7, true, "the shared text"));
    m_Samples.GetMap().InsertUnlessMember("a", shared);
    m_Samples.GetMap().InsertUnlessMember("b", shared);
    const cow_String bytes = Written(m_Samples);
    const int first = bytes.Find("the shared text");
    EXPECT_LT(first, bytes.Length());
    EXPECT_EQ(bytes.Find("the shared text", first + 1), bytes.Length());
    const cls_ReadStream stream(bytes);
    const Samples read(stream.Visitor(0));
    EXPECT_EQ(&read.ConstGet("a"), &read.ConstGet("b"));
    EXPECT_EQ(read.ConstGet("b").m_Number, 7);
}

TEST_F(ARepository, ARepositoryIsWrittenOnceUntilItGetsANewIdentity)
{
    m_Samples.Insert("a", Sample(1, true, ""));
    const std::unique_ptr<Samples> copy(m_Samples.Copy());
    cls_WriteStream written;
    m_Samples.DBWrite(written.Visitor());
    m_Samples.DBWrite(written.Visitor());
    copy->DBWrite(written.Visitor());
    m_Samples.NewUid();
    m_Samples.DBWrite(written.Visitor());
    const cls_ReadStream stream(written.Bytes());
    ASSERT_EQ(stream.Count(), 4);
    EXPECT_EQ(stream.Visitor(1).GetUid(), stream.Visitor(0).GetUid());
    EXPECT_NE(stream.Visitor(2).GetUid(), stream.Visitor(0).GetUid());
    EXPECT_NE(stream.Visitor(3).GetUid(), stream.Visitor(0).GetUid());
    EXPECT_EQ(Samples(stream.Visitor(2)).ConstGet("a").m_Number, 1);
}

TEST_F(ARepository, AMapOfOtherObjectsIsRefused)
{
    cls_WriteStream written;
    const cls_WriteVisitor visitor = written.Visitor();
    visitor.StartWrite(Samples::TypeId(), cls_Uid());
    const cls_WriteVisitor map = visitor.Field(mdl_MapField);
    map.StartWrite(mdl_MapTypeId, cls_Uid());
    mdl_Repository().DBWrite(map.Element("a"));
    const cls_ReadStream stream(written.Bytes());
    EXPECT_EQ(Thrown<nex_TextException>([&] { const Samples read(stream.Visitor(0)); }),
              "*** Error: The stream of objects is damaged: an object is of another class than expected.");
}

TEST_F(ARepository, AStreamOfNothingButTheClassGivesAnEmptyOne)
{
    cls_WriteStream written;
    written.Visitor().StartWrite(Samples::TypeId(), cls_Uid());
    const cls_ReadStream stream(written.Bytes());
    EXPECT_EQ(Samples(stream.Visitor(0)).Size(), 0);
}

TEST_F(ARepository, DamageIsRefusedOrHarmless)
{
    const Samples::Entry shared(Sample(7, true, "t"));
    m_Samples.GetMap().InsertUnlessMember("a", shared);
    m_Samples.GetMap().InsertUnlessMember("b", shared);
    m_Samples.GetMap().InsertUnlessMember("c", Samples::Entry());
    const auto read = [](const cow_String& bytes)
    {
        const cls_ReadStream stream(bytes);
        const cls_ReadVisitor reader = stream.Visitor(0);
        reader.CheckType(Samples::TypeId());
        const Samples samples(reader);
    };
    const cow_String whole = Written(m_Samples);
    ExpectEveryCutIsRefused(whole, read);
    ExpectEveryChangedByteIsRefused(whole, read);
    ExpectEveryShortBodyIsRefused(whole, read);
    EXPECT_GT(CountRefusedChanges(whole, read), 0);
}
