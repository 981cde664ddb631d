// What `rfm recover` does with damage: every number of a sample set to each edge value, files cut off at many places,
// bytes at random. Nothing may break; what is not damaged is in the new database; and what is missing there was told.
#include "EqualObjects.h"
#include "RandomSeed.h"
#include "Recovery.h"
#include "SampleDatabase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <set>

namespace
{
using rfm_tool::LossList;

constexpr std::int64_t kDataStart = 15360;
constexpr int kLastEntry = 11; // of the sample

/// Recovers damaged forms of the sample.
class RfmRecovery : public testing::Test
{
protected:
    RfmRecovery() { MakeSample(m_Sound); }

    struct Outcome
    {
        std::set<int> equal; // objects that are as in the sound sample
        LossList losses;
    };
    // Fails the test when the new database is damaged, or does not open.
    Outcome Recover(const std::string& bytes)
    {
        WriteFile(m_In, bytes);
        Outcome outcome;
        {
            rfm_tool::FileImage image(m_In);
            image.FillHoles();
            rfm_tool::Progress progress(image.Size());
            rfm_tool::WriteRecovered(image, rfm_tool::FileKind::Plain, m_Out, outcome.losses, progress);
        }
        outcome.equal = EqualHandles(m_Sound, m_Out);
        return outcome;
    }

    // Objects that damage at a place may cost: the one whose entry or bytes lie there, and those that hang on a pool.
    std::set<int> ObjectsAt(std::int64_t place, const std::string& damaged) const
    {
        static const std::set<int> kWithTexts{4, 5, 7, 8};
        if (place < 1024 + 28) return {};
        if (place < kDataStart)
        {
            const int entry = static_cast<int>((place - 1024) / 28);
            if (entry == 1 || entry == 3 || entry == 10 || entry == 11) return kWithTexts;
            // An entry that now leads to another takes that one with it, if it is not the head of something.
            std::set<int> objects{entry};
            std::uint32_t next = 0;
            std::memcpy(&next, damaged.data() + EntryPlace(entry) + 24, sizeof next);
            if (next <= 9) objects.insert(static_cast<int>(next));
            if (next == 10 || next == 11) objects.insert(kWithTexts.begin(), kWithTexts.end());
            return objects;
        }
        for (int entry = 4; entry <= 9; ++entry)
        {
            const std::int64_t start = ExtentOfEntry(m_Sound, entry);
            const std::int64_t end =
                start + static_cast<std::int64_t>(NumberAt<double>(m_Sound, EntryPlace(entry)));
            if (place >= start && place < end) return {entry};
        }
        return kWithTexts;
    }

    // What must hold whatever was damaged.
    void Expect(const std::string& bytes, const std::set<std::int64_t>& places, const std::string& what)
    {
        SCOPED_TRACE(what);
        std::set<int> hurt;
        for (const std::int64_t place : places) hurt.merge(ObjectsAt(place, bytes));
        const Outcome outcome = Recover(bytes);
        for (int handle = 4; handle <= 9; ++handle)
        {
            if (outcome.equal.contains(handle)) continue;
            EXPECT_TRUE(hurt.contains(handle)) << "handle " << handle << " was not damaged";
        }
    }
    template <class T> void SetAndExpect(std::int64_t place, T value)
    {
        std::string bytes = ReadFile(m_Sound);
        std::memcpy(bytes.data() + place, &value, sizeof value);
        Expect(bytes, {place, place + static_cast<std::int64_t>(sizeof value) - 1},
               std::to_string(value) + " at " + std::to_string(place));
    }
    void TryWord(std::int64_t place)
    {
        const auto old = NumberAt<std::uint32_t>(m_Sound, place);
        for (const std::uint32_t value : {0U, 1U, 0xFFFFFFFFU, 0x7FFFFFFFU, 0x80000000U, old + 1})
            if (value != old) SetAndExpect(place, value);
    }
    void TryDouble(std::int64_t place)
    {
        const double old = NumberAt<double>(m_Sound, place);
        for (const double value : {0.0, 1.0, -1.0, std::nan(""), std::numeric_limits<double>::infinity(),
                                   9007199254740992.0, 1e300, old + 1, old - 1, old + 4})
            SetAndExpect(place, value);
    }

    TestFolder m_Folder;
    std::string m_Sound = m_Folder / "sound.rdx";
    std::string m_In = m_Folder / "in.rdx";
    std::string m_Out = m_Folder / "out.rdx";
};

TEST_F(RfmRecovery, ASoundDatabaseIsRecoveredWholeAndNothingIsTold)
{
    const Outcome outcome = Recover(ReadFile(m_Sound));
    EXPECT_EQ(outcome.equal, (std::set<int>{4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(outcome.losses.LostCount(), 0);
    EXPECT_EQ(outcome.losses.MendedCount(), 0);
}

TEST_F(RfmRecovery, NoNumberOfTheHeaderCostsAnObject)
{
    for (const std::int64_t place : {0, 4, 8, 12, 492, 496, 500, 504, 508, 512, 516, 520}) TryWord(place);
    TryDouble(504);
}

TEST_F(RfmRecovery, AnEntryOfTheLinkageTableCostsItsOwnObjectAtMost)
{
    for (int entry = 0; entry <= kLastEntry + 1; ++entry)
    {
        TryWord(EntryPlace(entry) + 24);
        for (const int number : {0, 8, 16}) TryDouble(EntryPlace(entry) + number);
    }
}

TEST_F(RfmRecovery, ANumberOfTheDataCostsItsOwnObjectAtMost)
{
    const std::int64_t end = static_cast<std::int64_t>(std::filesystem::file_size(m_Sound));
    for (std::int64_t place = kDataStart; place + 8 <= end; place += 4)
    {
        const auto old = NumberAt<std::uint32_t>(m_Sound, place);
        for (const std::uint32_t value : {0U, 0xFFFFFFFFU, old + 1})
            if (value != old) SetAndExpect(place, value);
        SetAndExpect(place, std::nan(""));
    }
}

// Extents in the order of the file: 1, 3, 4, 5, 6, 7, 8, 9, then the rest of the pools. A cut behind an object costs
// texts, but neither the doubles nor the space in front of it.
TEST_F(RfmRecovery, AFileThatIsCutOffAnywhereKeepsWhatLiesBeforeTheCut)
{
    const std::string sound = ReadFile(m_Sound);
    std::size_t used = 0; // behind it nothing but reserve
    for (int entry = 1; entry <= kLastEntry; ++entry)
        used = std::max(used, static_cast<std::size_t>(NumberAt<double>(m_Sound, EntryPlace(entry) + 16) +
                                                       NumberAt<double>(m_Sound, EntryPlace(entry) + 8)));
    for (std::size_t size = 1024; size < used; size += size < kDataStart ? 997 : 4)
    {
        SCOPED_TRACE(size);
        const Outcome outcome = Recover(sound.substr(0, size));
        EXPECT_GT(outcome.losses.LostCount(), 0);
        for (const int handle : {6, 9})
        {
            const double end = NumberAt<double>(m_Sound, EntryPlace(handle) + 16) +
                               NumberAt<double>(m_Sound, EntryPlace(handle) + 8);
            EXPECT_EQ(outcome.equal.contains(handle), static_cast<double>(size) >= end) << handle;
        }
    }
}

TEST_F(RfmRecovery, BytesAtRandomCostOnlyWhatTheyHit)
{
    const unsigned seed = RandomSeed();
    std::mt19937 random(seed);
    const std::string sound = ReadFile(m_Sound);
    for (int round = 0; round < 200; ++round)
    {
        std::string bytes = sound;
        std::set<std::int64_t> places;
        // Of the linkage table one entry a round: two that are wrong together can look right.
        const std::size_t entry =
            static_cast<std::size_t>(EntryPlace(static_cast<int>(random() % (kLastEntry + 1))));
        for (int change = 0; change < 1 + round % 8; ++change)
        {
            const std::size_t place = random() % 2 == 0 ? entry + random() % 28
                                                        : kDataStart + random() % (bytes.size() - kDataStart);
            bytes[place] = static_cast<char>(random());
            places.insert(static_cast<std::int64_t>(place));
        }
        std::string what = "RFM_TEST_SEED=" + std::to_string(seed) + ", round " + std::to_string(round) + ":";
        for (const std::int64_t place : places) what += " " + std::to_string(place);
        Expect(bytes, places, what);
    }
}

// ---- Damage that has an answer ----

TEST_F(RfmRecovery, ATableWhoseHeaderLostItsLayoutIsKnownByItsRows)
{
    std::string bytes = ReadFile(m_Sound);
    const std::int64_t place = ExtentOfEntry(m_Sound, 4) + 8;
    const int nowhere = 400;
    std::memcpy(bytes.data() + place, &nowhere, sizeof nowhere);
    const Outcome outcome = Recover(bytes);
    EXPECT_EQ(LinesOf(outcome.losses),
              "mended: handle 4, offset " + std::to_string(place) +
                  ": layout of the table: found 400, where none is; its rows fit NODES "
                  "alone\n");
    EXPECT_EQ(outcome.equal.size(), 6U);
}

TEST_F(RfmRecovery, ATextThatIsLostLeavesAFieldWithoutDataAndTheOthersAsTheyWere)
{
    std::string bytes = ReadFile(m_Sound);
    const std::int64_t place = ExtentOfEntry(m_Sound, 4) + 12 + 16; // name of row 0
    const double nowhere = 6;
    std::memcpy(bytes.data() + place, &nowhere, sizeof nowhere);
    const Outcome outcome = Recover(bytes);
    EXPECT_EQ(LinesOf(outcome.losses), "lost: handle 4, offset " + std::to_string(place) +
                                           ": row 0, name: a reference to 6, where no text can be read\n");
    rfm_tool::DatabaseFile out(m_Out);
    rfm_Table table = out.Database().Table(rfm_Handle(4), -1, 1);
    const rfm_Row row = table.ReadRow(0);
    EXPECT_EQ(row.DataIsPresent("name"), 0);
    EXPECT_EQ(row.ReadFieldInt("id"), 10);
    EXPECT_EQ(table.Length(), 3);
}

TEST_F(RfmRecovery, TextsBehindADamagedOneAreFoundByTheReferencesToThem)
{
    std::string bytes = ReadFile(m_Sound);
    const std::int64_t first = ExtentOfEntry(m_Sound, 10); // the text NODES
    const int length = -1;
    std::memcpy(bytes.data() + first, &length, sizeof length);
    const Outcome outcome = Recover(bytes);
    for (const int handle : {6, 7, 8, 9}) EXPECT_TRUE(outcome.equal.contains(handle)) << handle;
    rfm_tool::DatabaseFile out(m_Out);
    EXPECT_EQ(out.Database().Table(rfm_Handle(4), -1, 1).ReadRow(0).ReadFieldString("name"), "a\tb");
}

TEST_F(RfmRecovery, APoolWhoseFirstPlaceIsLostIsFoundByItsMark)
{
    std::string bytes = ReadFile(m_Sound);
    const double nowhere = 1e300;
    std::memcpy(bytes.data() + EntryPlace(1) + 16, &nowhere, sizeof nowhere);
    const Outcome outcome = Recover(bytes);
    EXPECT_EQ(LinesOf(outcome.losses),
              "mended: handle 1, offset 1052: place of a pool: it was found at 15360\n");
    EXPECT_EQ(outcome.equal.size(), 6U);
}

TEST_F(RfmRecovery, APoolWhoseSecondPieceIsOutOfReachIsPutTogetherAgain)
{
    std::string bytes = ReadFile(m_Sound);
    const std::uint32_t nowhere = 700;
    for (const int pool : {1, 3})
    {
        std::string cut = bytes;
        std::memcpy(cut.data() + EntryPlace(pool) + 24, &nowhere, sizeof nowhere);
        const Outcome outcome = Recover(cut);
        EXPECT_EQ(outcome.equal.size(), 6U) << LinesOf(outcome.losses);
        EXPECT_EQ(outcome.losses.MendedCount(), 1);
        EXPECT_EQ(outcome.losses.LostCount(), 0);
    }
}

TEST_F(RfmRecovery, OfTwoThatClaimTheSameBytesTheOneBetweenItsNeighboursIsRight)
{
    std::string bytes = ReadFile(m_Sound);
    const double intoSix = NumberAt<double>(m_Sound, EntryPlace(6) + 16) + 8;
    std::memcpy(bytes.data() + EntryPlace(7) + 16, &intoSix, sizeof intoSix);
    const Outcome outcome = Recover(bytes);
    EXPECT_EQ(outcome.equal, (std::set<int>{4, 5, 6, 8, 9}));
    EXPECT_EQ(LinesOf(outcome.losses),
              "lost: handle 7, offset 1220: what was at an entry of the linkage table: it would "
              "lie over bytes of entry 6\n"
              "lost: handle 7, offset 1220: the object: none of its bytes can be found\n");
}

// Two numbers of one entry, or of two, that are wrong together can push others aside before they have to go themselves.
TEST_F(RfmRecovery, WhatGaveWayToAnObjectThatIsWrongItselfStays)
{
    const struct
    {
        int entry;
        int number;
        double value;
    } pairs[][2] = {
        {{8, 8, 196}, {8, 0, 508}}, // in use and reserved: up into 9 and the pools
        {{5, 8, 112}, {5, 0, 216}},
        {{5, 8, 368}, {5, 0, 120}},
    };
    for (const auto& pair : pairs)
    {
        std::string bytes = ReadFile(m_Sound);
        std::set<int> others{4, 5, 6, 7, 8, 9};
        for (const auto& damage : pair)
        {
            std::memcpy(bytes.data() + EntryPlace(damage.entry) + damage.number, &damage.value, 8);
            others.erase(damage.entry);
        }
        const Outcome outcome = Recover(bytes);
        EXPECT_EQ(outcome.equal, others) << LinesOf(outcome.losses);
    }
}

TEST_F(RfmRecovery, ALinkageBlockThatNothingLeadsToIsFound)
{
    {
        rfm_Database database = CreateDatabase(m_Sound);
        for (int i = 0; i < 600; ++i)
        {
            auto array = database.ArrayInt(1, -1, 4);
            array.Write(&i, 1);
            array.Flush();
        }
        database.Close();
    }
    std::string bytes = ReadFile(m_Sound);
    const double lost = -1;
    std::memcpy(bytes.data() + EntryPlace(0) + 16, &lost, sizeof lost);
    const Outcome outcome = Recover(bytes);
    EXPECT_EQ(outcome.equal.size(), 600U);
    EXPECT_EQ(outcome.losses.LostCount(), 0) << LinesOf(outcome.losses);
    EXPECT_EQ(outcome.losses.MendedCount(), 1);
}
} // namespace
