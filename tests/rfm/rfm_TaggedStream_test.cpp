#include "rfm_TaggedStream.h"

#include "SpaceBytes.h"

#include <limits>

using namespace SpaceBytes;

namespace
{
const char* const kHead = "\xBE\xEB\xAF\xFA\0\0\0\0";
const char* const kBadType = "!\"rfm_TaggedStreamRepr::Next: Bad type from Tagged Stream.\"";

/// A database with one stream whose items are given as bytes.
class RawStream
{
public:
    explicit RawStream(const std::string& items) : m_Database(m_File.Create()), m_Space(m_Database.Space(-1))
    {
        const std::string all = std::string(kHead, 8) + items;
        m_Space.Write(all.data(), static_cast<int>(all.size()));
    }
    rfm_TaggedStream Open(int bufferSize = 0)
    {
        return m_Database.TaggedStream(m_Space.Handle(), bufferSize);
    }
    const TestFile& File() const { return m_File; }
    rfm_Database& Database() { return m_Database; }

private:
    TestFile m_File;
    rfm_Database m_Database;
    rfm_Space m_Space;
};

/// A stream of one item, (1, 10), that a writer holds open while a reader follows.
class WriterAndReader
{
public:
    WriterAndReader() : writer(file.Create()), written(writer.TaggedStream(0))
    {
        written.WriteInt(1, 10);
        Publish();
        reader = file.Open();
        followed = reader.TaggedStream(written.Handle(), 0);
    }
    void Publish()
    {
        written.Flush();
        writer.Flush();
    }

    TestFile file;
    rfm_Database writer;
    rfm_TaggedStream written;
    rfm_Database reader;
    rfm_TaggedStream followed;
};
} // namespace

// ---- Bytes ----

TEST(TaggedStream, ANewStreamIsItsHead)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    EXPECT_FALSE(stream.Next());
    const rfm_Handle handle = stream.Handle();
    stream = rfm_TaggedStream();
    EXPECT_EQ(Of(database, handle), Bytes({0xBE, 0xEB, 0xAF, 0xFA, 0, 0, 0, 0}));
    EXPECT_EQ(database.HandleType(handle), rfm_TypeTaggedStream);
}

TEST(TaggedStream, EveryTypeOfItemHasItsBytes)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    stream.WriteInt(5, -7);
    stream.WriteHandle(6, rfm_Handle(0x01020304));
    stream.WriteFloat(7, 2.5F);
    stream.WriteDouble(-1, 0.1);
    stream.WriteString(8, "abc");
    stream.WriteFixedString(9, "abcde");
    stream.WriteFixedString(10, "");
    stream.WriteString(11, "abc");
    stream.Flush();
    EXPECT_EQ(Of(database, stream.Handle()),
              Bytes({
                  0xBE, 0xEB, 0xAF, 0xFA, 1,    0,    0,    0,                            // head
                  1,    0,    0,    0,    5,    0,    0,    0,    0xF9, 0xFF, 0xFF, 0xFF, // int
                  2,    0,    0,    0,    6,    0,    0,    0,    4,    3,    2,    1,
                  0,    0,    0,    0,                                                    // handle
                  3,    0,    0,    0,    7,    0,    0,    0,    0,    0,    0x20, 0x40, // float
                  4,    0,    0,    0,    0xFF, 0xFF, 0xFF, 0xFF,                         // double
                  0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F,                         //
                  6,    0,    0,    0,    8,    0,    0,    0,    0,    0,    0,    0,
                  0,    0,    0x10, 0x40, // string at 4
                  7,    0,    0,    0,    9,    0,    0,    0,    'a',  'b',  'c',  'd',
                  'e',  0,    0,    0,                         // characters
                  7,    0,    0,    0,    10,   0,    0,    0, // none
                  6,    0,    0,    0,    11,   0,    0,    0,    0,    0,    0,    0,
                  0,    0,    0x10, 0x40, // shared
              }));
}

TEST(TaggedStream, ItemsOfEveryTypeComeBackThroughAnyBlock)
{
    const TestFile file;
    rfm_Handle handle;
    {
        rfm_Database database = file.Create();
        rfm_TaggedStream stream = database.TaggedStream(16);
        handle = stream.Handle();
        for (int i = 0; i < 300; ++i)
        {
            stream.WriteInt(i, i * 3);
            stream.WriteHandle(i, rfm_Handle(static_cast<unsigned>(i) + 0xF0000000U));
            stream.WriteFloat(i, static_cast<float>(i) / 2);
            stream.WriteDouble(i, i / 8.0);
            stream.WriteString(i, cow_String("text ") + cow_String(i));
        }
    }
    rfm_Database database = file.Open();
    for (const int bufferSize : {8, 9, 64, 0, -1})
    {
        const rfm_TaggedStream stream = database.TaggedStream(handle, bufferSize);
        for (int i = 0; i < 300; ++i)
        {
            ASSERT_TRUE(stream.Next());
            ASSERT_EQ(stream.GetType(), rfm_TypeInt);
            ASSERT_EQ(stream.GetID(), i);
            ASSERT_EQ(stream.GetInt(), i * 3);
            ASSERT_TRUE(stream.Next());
            ASSERT_EQ(stream.GetHandle(), rfm_Handle(static_cast<unsigned>(i) + 0xF0000000U));
            ASSERT_TRUE(stream.Next());
            ASSERT_EQ(stream.GetFloat(), static_cast<float>(i) / 2);
            ASSERT_TRUE(stream.Next());
            ASSERT_EQ(stream.GetDouble(), i / 8.0);
            ASSERT_TRUE(stream.Next());
            ASSERT_EQ(stream.GetString(), cow_String("text ") + cow_String(i));
        }
        ASSERT_FALSE(stream.Next());
    }
}

TEST(TaggedStream, ALongFixedStringGoesThroughASmallBlock)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(8);
    const std::string text(5001, 'x');
    stream.WriteFixedString(1, cow_String(std::string_view(text)));
    stream.WriteInt(2, 3);
    stream.Flush();
    EXPECT_EQ(Of(database, stream.Handle(), 16), text + Bytes({0, 0, 0}) + Stored(1) + Stored(2) + Stored(3));
}

TEST(TaggedStream, AFixedStringEndsAtItsFirstNulAndKeepsItsRoom)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    stream.WriteFixedString(1, cow_String("ab\0cd", 5));
    stream.Flush();
    EXPECT_EQ(Of(database, stream.Handle(), 16), Bytes({'a', 'b', 0, 0, 0, 0, 0, 0}));
}

// ---- The current item ----

TEST(TaggedStream, TheItemJustWrittenIsTheCurrentOne)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    stream.WriteInt(5, 7);
    EXPECT_EQ(stream.GetType(), rfm_TypeInt);
    EXPECT_EQ(stream.GetID(), 5);
    EXPECT_EQ(stream.GetInt(), 7);
    stream.WriteFloat(6, 1.5F);
    EXPECT_EQ(stream.GetType(), rfm_TypeFloat);
    EXPECT_EQ(stream.GetFloat(), 1.5F);
    EXPECT_EQ(stream.GetInt(), 7); // a write sets its own value and clears no other
    stream.WriteDouble(7, 2.5);
    EXPECT_EQ(stream.GetType(), rfm_TypeDouble);
    EXPECT_EQ(stream.GetDouble(), 2.5);
    stream.WriteHandle(8, rfm_Handle(9));
    EXPECT_EQ(stream.GetType(), rfm_TypeHandle);
    EXPECT_EQ(stream.GetHandle(), rfm_Handle(9));
    stream.WriteString(9, "text");
    EXPECT_EQ(stream.GetType(), rfm_TypeString);
    EXPECT_EQ(stream.GetString(), cow_String("text"));
    stream.WriteFixedString(10, "fixed");
    EXPECT_EQ(stream.GetType(), rfm_TypeFixedString);
    EXPECT_EQ(stream.GetID(), 10);
    EXPECT_EQ(stream.GetString(), cow_String("fixed"));
    EXPECT_FALSE(stream.Next());
}

TEST(TaggedStream, AWalkClearsTheValuesOfTheItemBefore)
{
    RawStream raw(
        Bytes({1, 0, 0, 0, 1, 0, 0, 0, 9, 0, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0}) +
        Stored(4) + Stored(3) + Stored(1.5) + Stored(3) + Stored(4) + Stored(2.5F));
    const rfm_TaggedStream stream = raw.Open();
    ASSERT_TRUE(stream.Next());
    EXPECT_EQ(stream.GetInt(), 9);
    ASSERT_TRUE(stream.Next());
    EXPECT_EQ(stream.GetHandle(), rfm_Handle(7));
    EXPECT_EQ(stream.GetInt(), 0);
    ASSERT_TRUE(stream.Next());
    EXPECT_EQ(stream.GetDouble(), 1.5);
    EXPECT_EQ(stream.GetHandle(), rfm_Handle());
    ASSERT_TRUE(stream.Next());
    EXPECT_EQ(stream.GetFloat(), 2.5F);
    EXPECT_EQ(stream.GetDouble(), 0);
    EXPECT_EQ(stream.GetInt(), 0);
    EXPECT_TRUE(stream.GetString().IsEmpty());
}

TEST(TaggedStream, AtTheEndTheLastItemsValuesStay)
{
    RawStream raw(Stored(1) + Stored(2) + Stored(3));
    const rfm_TaggedStream stream = raw.Open();
    ASSERT_TRUE(stream.Next());
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_FALSE(stream.Next());
        EXPECT_EQ(stream.GetType(), rfm_TypeInt);
        EXPECT_EQ(stream.GetID(), 2);
        EXPECT_EQ(stream.GetInt(), 3);
    }
}

TEST(TaggedStream, WhatIsWrittenAfterAWalkFollowsTheItemsThere)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream first = database.TaggedStream(0);
    first.WriteInt(1, 10);
    first.Flush();
    rfm_TaggedStream second = database.TaggedStream(first.Handle(), 0);
    while (second.Next())
    {
    }
    second.WriteInt(2, 20);
    second.Flush();
    EXPECT_EQ(Of(database, first.Handle(), 8),
              Stored(1) + Stored(1) + Stored(10) + Stored(1) + Stored(2) + Stored(20));
}

// ---- Characters in place ----

TEST(TaggedStream, AFixedStringIsReadBackByTheLengthInItsFirstFourCharacters)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    stream.WriteFixedString(1, "\x03\x01\x01\x01");
    stream.Flush();
    {
        // A length of 0x01010103 over a stream that has nothing more.
        const rfm_TaggedStream walk = database.TaggedStream(stream.Handle(), 0);
        ASSERT_TRUE(walk.Next());
        EXPECT_EQ(walk.GetType(), rfm_TypeFixedString);
        EXPECT_TRUE(walk.GetString().IsEmpty());
        EXPECT_FALSE(walk.Next());
    }
    RawStream raw(Stored(7) + Stored(1) + Stored(5) + "abcde" + Stored(1) + Stored(2) + Stored(3));
    const rfm_TaggedStream walk = raw.Open();
    ASSERT_TRUE(walk.Next());
    EXPECT_EQ(walk.GetString(), cow_String("abcde"));
    ASSERT_TRUE(walk.Next()); // the next item follows the characters at once
    EXPECT_EQ(walk.GetInt(), 3);
}

TEST(TaggedStream, AFixedStringTakesWhatTheStreamHasAndNoMore)
{
    for (const int length : {6, 2147483647})
    {
        RawStream raw(Stored(7) + Stored(1) + Stored(length) + "abcde");
        const rfm_TaggedStream stream = raw.Open();
        ASSERT_TRUE(stream.Next());
        EXPECT_EQ(stream.GetString(), cow_String("abcde"));
        EXPECT_FALSE(stream.Next());
    }
}

TEST(TaggedStream, AFixedStringOfALengthBelowOneIsEmpty)
{
    for (const int length : {0, -1, std::numeric_limits<int>::min()})
    {
        RawStream raw(Stored(7) + Stored(1) + Stored(length) + Stored(1) + Stored(2) + Stored(3));
        const rfm_TaggedStream stream = raw.Open();
        ASSERT_TRUE(stream.Next());
        EXPECT_TRUE(stream.GetString().IsEmpty());
        ASSERT_TRUE(stream.Next());
        EXPECT_EQ(stream.GetInt(), 3);
    }
}

TEST(TaggedStream, AnEmptyFixedStringAtTheEndHasNoLengthToRead)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    stream.WriteFixedString(1, "");
    stream.Flush();
    const rfm_TaggedStream walk = database.TaggedStream(stream.Handle(), 0);
    EXPECT_EQ(TextOf([&] { walk.Next(); }), kEndOfFileText);
}

// ---- Damage ----

TEST(TaggedStream, AnItemOfAnUnknownTypeIsRefused)
{
    for (const int type : {5, 0, 8, 9, 10, 11, -1, 2147483647})
    {
        RawStream raw(Stored(type) + Stored(77) + Stored(1) + Stored(2) + Stored(3));
        const rfm_TaggedStream stream = raw.Open();
        EXPECT_EQ(AssertionOf([&] { stream.Next(); }), kBadType) << type;
        EXPECT_EQ(stream.GetID(), 77);
        ASSERT_TRUE(stream.Next()); // the walk stands behind the identifier
        EXPECT_EQ(stream.GetInt(), 3);
    }
}

TEST(TaggedStream, AnItemCutOffAnywhereIsRefused)
{
    const std::pair<int, std::size_t> valueBytes[] = {{1, 4}, {2, 8}, {3, 4}, {4, 8}, {6, 8}, {7, 4}};
    for (const auto& [type, bytes] : valueBytes)
        for (std::size_t kept = 1; kept < 8 + bytes; ++kept)
        {
            RawStream raw((Stored(type) + Stored(1) + std::string(8, '\0')).substr(0, kept));
            for (const int bufferSize : {0, 8})
            {
                const rfm_TaggedStream stream = raw.Open(bufferSize);
                EXPECT_EQ(TextOf([&] { stream.Next(); }), kEndOfFileText) << type << " cut at " << kept;
            }
        }
}

TEST(TaggedStream, AReferenceToNoTextIsRefused)
{
    RawStream none(Stored(6) + Stored(1) + Stored(8.0));
    EXPECT_EQ(TextOf([&] { none.Open().Next(); }), kNoStringText);
    RawStream negative(Stored(6) + Stored(1) + Stored(-8.0));
    EXPECT_EQ(TextOf([&] { negative.Open().Next(); }), CorruptText(negative.File()));
}

TEST(TaggedStream, AHandleToSomethingElseIsRefused)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_Space space = database.Space(-1);
    space.Write("7 bytes", 7);
    EXPECT_EQ(TextOf([&] { database.TaggedStream(space.Handle(), 0); }),
              "rfm_TaggedStreamRepr::rfm_TaggedStreamRepr: Tagged stream object format is corrupt in "
              "RDX/VDX.  File "
              "may be unusable.");
    space.Write("!", 1);
    EXPECT_EQ(TextOf([&] { database.TaggedStream(space.Handle(), 0); }),
              "rfm_TaggedStreamRepr::rfm_TaggedStreamRepr: Handle is not to a Tagged Stream object in "
              "RDX/VDX file.  "
              "File may be unusable.");
    EXPECT_EQ(TextOf([&] { database.TaggedStream(rfm_Handle(400), 0); }),
              "***ERROR: Database is not valid. This may indicate that the database has been corrupted.");
}

// ---- Flush, Snap, read-only ----

TEST(TaggedStream, EveryFlushCountsAndKeepsThePosition)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    stream.WriteInt(1, 10);
    EXPECT_EQ(stream.Flush(), 1);
    EXPECT_EQ(stream.Flush(), 2);
    stream.WriteInt(2, 20);
    EXPECT_EQ(stream.Flush(), 3);
    EXPECT_EQ(stream.SpaceLength(), 8 + 12 + 12);
    EXPECT_EQ(stream.SpaceAllocation(), 8 + 12 + 12);
    EXPECT_STREQ(stream.GetObjStatistics().ConstGet(0).CString(), "Linkage_Count=1");
    EXPECT_EQ(Of(database, stream.Handle(), 4),
              Stored(3) + Stored(1) + Stored(1) + Stored(10) + Stored(1) + Stored(2) + Stored(20));
    EXPECT_EQ(database.TaggedStream(stream.Handle(), 0).Flush(), 4);
}

TEST(TaggedStream, AStreamLetGoWithoutAFlushHasItsItemsButNotItsCount)
{
    const TestFile file;
    rfm_Database database = file.Create();
    rfm_TaggedStream stream = database.TaggedStream(0);
    const rfm_Handle handle = stream.Handle();
    stream.WriteInt(1, 10);
    stream = rfm_TaggedStream();
    EXPECT_EQ(Of(database, handle, 4), Stored(0) + Stored(1) + Stored(1) + Stored(10));
}

TEST(TaggedStream, AReadOnlyStreamRefusesEveryWrite)
{
    WriterAndReader both;
    rfm_TaggedStream& stream = both.followed;
    EXPECT_EQ(stream.Flush(), 0);
    EXPECT_EQ(TextOf([&] { stream.WriteInt(1, 1); }), kReadOnlyText);
    EXPECT_EQ(TextOf([&] { stream.WriteFloat(1, 1); }), kReadOnlyText);
    EXPECT_EQ(TextOf([&] { stream.WriteDouble(1, 1); }), kReadOnlyText);
    EXPECT_EQ(TextOf([&] { stream.WriteHandle(1, rfm_Handle(1)); }), kReadOnlyText);
    EXPECT_EQ(TextOf([&] { stream.WriteString(1, "new"); }), kReadOnlyText);
    EXPECT_EQ(TextOf([&] { stream.WriteFixedString(1, "new"); }), kReadOnlyText);
    EXPECT_EQ(TextOf([&] { both.reader.TaggedStream(0); }), kReadOnlyText);
    ASSERT_TRUE(stream.Next());
    EXPECT_EQ(stream.GetInt(), 10);
    both.reader.Flush(); // the text that was refused is not pending either
}

TEST(TaggedStream, ASnapWithNewsGoesOnWithTheNewItems)
{
    WriterAndReader both;
    ASSERT_TRUE(both.followed.Next());
    ASSERT_FALSE(both.followed.Next());
    both.written.WriteString(2, "new");
    both.Publish();
    EXPECT_EQ(both.followed.Snap(), 0); // the database comes first
    EXPECT_FALSE(both.followed.Next());
    EXPECT_EQ(both.reader.Snap(), 1);
    EXPECT_EQ(both.followed.Snap(), 2);
    ASSERT_TRUE(both.followed.Next());
    EXPECT_EQ(both.followed.GetID(), 2);
    EXPECT_EQ(both.followed.GetString(), cow_String("new"));
    EXPECT_FALSE(both.followed.Next());
    EXPECT_EQ(both.followed.Snap(), 0);
    EXPECT_FALSE(both.followed.Next());
}

TEST(TaggedStream, ASnapWithoutNewsStartsTheWalkOver)
{
    WriterAndReader both;
    ASSERT_TRUE(both.followed.Next());
    ASSERT_FALSE(both.followed.Next());
    both.writer.Flush(); // the database moves on, the stream does not
    EXPECT_EQ(both.reader.Snap(), 1);
    EXPECT_EQ(both.followed.Snap(), 0);
    ASSERT_TRUE(both.followed.Next());
    EXPECT_EQ(both.followed.GetID(), 1);
    EXPECT_EQ(both.followed.GetInt(), 10);
    EXPECT_FALSE(both.followed.Next());
}

TEST(TaggedStream, ASnapOnAWritableStreamAnswersZeroAndStays)
{
    WriterAndReader both;
    both.writer.Flush();
    EXPECT_EQ(both.written.Snap(), 0);
    both.written.WriteInt(2, 20);
    both.written.Flush();
    EXPECT_EQ(Of(both.writer, both.written.Handle(), 20), Stored(1) + Stored(2) + Stored(20));
}
