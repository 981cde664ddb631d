#include "cls_ClassMetadata.h"

#include "StoredSample.h"
#include "Thrown.h"
#include "cls_Uid.h"
#include "nex_Exception.h"
#include "omi_Singleton.h"

#include <gtest/gtest.h>
#include <thread>

TEST(cls_Uid, AFreshOneIsEmptyAndGetsItsNumberOnce)
{
    const cls_Uid uid;
    EXPECT_TRUE(uid.IsEmpty());
    uid.AllocateUid();
    EXPECT_FALSE(uid.IsEmpty());
    const cls_Uid before(uid);
    uid.AllocateUid();
    EXPECT_EQ(uid, before) << "an identity that was asked for twice stays the same";
}

TEST(cls_Uid, CopiesAreTheSameIdentityAndNoTwoOthersAre)
{
    cls_Uid first;
    cls_Uid second;
    first.AllocateUid();
    second.AllocateUid();
    EXPECT_NE(first, second);
    const cls_Uid copy(first);
    EXPECT_EQ(copy, first);
    second = first;
    EXPECT_EQ(second, first);
}

TEST(cls_Uid, ANewOneIsFreshWhateverItWas)
{
    cls_Uid uid;
    uid.NewUid();
    const cls_Uid before(uid);
    uid.NewUid();
    EXPECT_FALSE(before.IsEmpty());
    EXPECT_NE(uid, before);
}

TEST(cls_Uid, ThreadsNeverGetTheSameNumber)
{
    constexpr int kEach = 2000;
    std::vector<cls_Uid> mine(kEach);
    std::vector<cls_Uid> others(kEach);
    std::thread thread(
        [&]
        {
            for (cls_Uid& uid : others) uid.NewUid();
        });
    for (cls_Uid& uid : mine) uid.NewUid();
    thread.join();
    std::map<cls_Uid, int> all;
    for (const cls_Uid& uid : mine) ++all[uid];
    for (const cls_Uid& uid : others) ++all[uid];
    EXPECT_EQ(all.size(), 2U * kEach);
}

TEST(cls_ClassMetadata, ItTellsWhatItWasMadeOf)
{
    const cls_ClassMetadata metadata("Bolt", 59000001, 800, nullptr, typ_NoBase);
    EXPECT_EQ(metadata.Name().View(), "Bolt");
    EXPECT_EQ(metadata.TypeId(), 59000001);
    EXPECT_EQ(metadata.VersionNumber(), 800);
    EXPECT_EQ(metadata.BaseType(), 1);
    EXPECT_TRUE(metadata.Attributes().empty());
}

TEST(cls_ClassMetadata, CallsThatAddChain)
{
    cls_ClassMetadata metadata("Bolt", 59000001, 800, nullptr, typ_NoBase);
    constexpr cls_FieldHandle kLength(0, "length");
    constexpr cls_FieldHandle kMap(-1, "map");
    cls_ClassMetadata& same = metadata.AddAttribute(kLength, cls_AttributeInteger, 1, 0)
                                  .AddDtor([](void*) {})
                                  .AddAttribute(kMap, cls_AttributeObject, 2293762, 2);
    EXPECT_EQ(&same, &metadata);
    ASSERT_EQ(metadata.Attributes().size(), 2U);
    const cls_Attribute* map = metadata.FindAttribute("map");
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(map->handle.Index(), -1);
    EXPECT_EQ(map->type, 15);
    EXPECT_EQ(map->number, 2293762);
    EXPECT_EQ(map->collectionType, 2);
    EXPECT_EQ(metadata.FindAttribute("Length"), nullptr) << "names compare exactly";
    EXPECT_EQ(Thrown<nex_AssertException>([&] { metadata.AddAttribute(kMap, cls_AttributeObject, 1, 0); }),
              "FindAttribute(handle.Name()) == nullptr");
}

TEST(cls_ClassMetadata, WhatItCannotDoIsAnAssertion)
{
    const cls_ClassMetadata metadata("Bolt", 59000001, 800, nullptr, typ_NoBase);
    Sample::Register();
    cls_WriteStream written;
    Sample(1, true, "x").DBWrite(written.Visitor());
    const cls_ReadStream stream(written.Bytes());
    EXPECT_EQ(Thrown<nex_AssertException>([&] { metadata.Ctor(stream.Visitor(0)); }),
              "m_Constructor != nullptr");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { metadata.DeleteCow(nullptr); }), "m_Dtor != nullptr");
}

TEST(cls_ClassMetadata, AnObjectIsWrittenMadeAndDeletedWithoutItsClassBeingKnown)
{
    Sample::Register();
    const cls_TypeAdapter<Sample> adapter;
    const cls_Adapter& anonymous = adapter;
    const Sample sample(42, true, "anonymous");
    cls_WriteStream written;
    anonymous.DBWrite(&sample, written.Visitor());

    const cls_ReadStream stream(written.Bytes());
    const cls_ReadVisitor reader = stream.Visitor(0);
    const cls_ClassMetadata* metadata = cls_ClassRegistrar::FindClassMD(reader.TypeId());
    ASSERT_NE(metadata, nullptr);
    EXPECT_EQ(metadata->Name().View(), "Sample");
    void* made = metadata->Ctor(reader);
    EXPECT_EQ(*static_cast<Sample*>(made), sample);
    anonymous.Delete(made);
}

namespace
{
// Counts how many of it live.
class Counted : public Sample
{
public:
    explicit Counted(int& alive) : Sample(0, false, ""), m_Alive(alive) { ++m_Alive; }
    Counted(const Counted& source) : Sample(source), m_Alive(source.m_Alive) { ++m_Alive; }
    Counted& operator=(const Counted&) = delete;
    ~Counted() override { --m_Alive; }

private:
    int& m_Alive;
};
} // namespace

TEST(cls_ClassMetadata, AReleasedHandleTakesItsObjectAlongWhenItIsTheLast)
{
    Sample::Register();
    using Handle = cls_TypeAdapter<Sample>::Handle;
    int alive = 0;
    auto first = std::make_unique<Handle>(new Counted(alive));
    auto second = std::make_unique<Handle>(*first);
    const cls_ClassMetadata* metadata = cls_ClassRegistrar::FindClassMD(Sample::TypeId());
    ASSERT_NE(metadata, nullptr);
    metadata->DeleteCow(first.release());
    EXPECT_EQ(alive, 1);
    metadata->DeleteCow(second.release());
    EXPECT_EQ(alive, 0);
}

TEST(cls_ClassRegistrar, ATypeIdNamesOneClass)
{
    Sample::Register();
    EXPECT_EQ(cls_ClassRegistrar::FindClassMD(typ_TypeId(Sample::kLibrary, 77)), nullptr);
    EXPECT_EQ(Thrown<nex_AssertException>(
                  []
                  {
                      cls_ClassRegistrar::AddClassMD(std::make_unique<cls_ClassMetadata>(
                          "Other", Sample::TypeId(), 1, nullptr, typ_NoBase));
                  }),
              "FindClassMD(metadata->TypeId()) == nullptr");
    EXPECT_EQ(cls_ClassRegistrar::FindClassMD(Sample::TypeId())->Name().View(), "Sample");
}

static int s_Runs = 0;

TEST(cls_MetadataRegistrar, AFunctionRunsOnceHoweverOftenItsLibraryStarts)
{
    auto& registrar = omi_Singleton<cls_MetadataRegistrar>::Instance();
    const auto function = [] { ++s_Runs; };
    registrar.initClassMetadata(function, 2);
    registrar.initClassMetadata(function, 2);
    EXPECT_EQ(s_Runs, 1);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { registrar.initClassMetadata(function, 1); }),
              "form == cls_RegistrationForm");
}
