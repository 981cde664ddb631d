#include "rfm_StringManagerFile.h"

#include "SpaceBytes.h"
#include "rfm_DatabaseReprFile.h"
#include "utl_FaultPlan.h"
#include "utl_FileException.h"

#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <sys/wait.h>

using namespace SpaceBytes;

namespace
{
using Reference = std::array<char, 8>;

rfm_StringManagerFile& PoolOf(const rfm_Database& database)
{
    return dynamic_cast<rfm_DatabaseReprFile&>(database.Repr()).Strings();
}

Reference Encode(const rfm_Database& database, const cow_String& text)
{
    Reference reference;
    PoolOf(database).Encode(reference.data(), &text, 1);
    return reference;
}

Reference ReferenceTo(double offset)
{
    Reference reference;
    const std::string stored = Stored(offset);
    std::copy(stored.begin(), stored.end(), reference.begin());
    return reference;
}

double OffsetIn(const Reference& reference)
{
    double offset = 0;
    std::memcpy(&offset, reference.data(), sizeof offset);
    return offset;
}

std::string Decode(const rfm_Database& database, const Reference& reference)
{
    cow_String text("untouched");
    PoolOf(database).Decode(reference.data(), &text, 1);
    return std::string(text.View());
}

std::string DecodeAt(const rfm_Database& database, double offset)
{
    return Decode(database, ReferenceTo(offset));
}

/// A closed file with these texts.
void Store(const TestFile& file, std::initializer_list<const char*> texts)
{
    rfm_Database database = file.Create();
    for (const char* text : texts) Encode(database, text);
    database.Close();
}

std::string OpeningFails(const TestFile& file)
{
    return TextOf([&] { file.Open(); });
}

/// What another process reads at `offset`: it exits with 0 when that is `expected`.
int OtherProcessReads(const TestFile& file, double offset, const std::string& expected)
{
    const pid_t child = fork();
    if (child == 0)
    {
        int code = 1;
        {
            const rfm_Database database = file.Open();
            code = DecodeAt(database, offset) == expected ? 0 : 1;
        }
        _exit(code);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
} // namespace

TEST(StringPool, ANewPoolHoldsItsMagicAndNoStrings)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    EXPECT_EQ(Of(database, kStringPool), Bytes({0xEE, 0xBB, 0xFF, 0xAA}));
    EXPECT_EQ(PoolOf(database).NextOffset(), 4);
    EXPECT_EQ(PoolOf(database).Count(), 0);
    const cow_1DArrayList<cow_String> statistics = database.GetDBStatistics();
    EXPECT_STREQ(statistics.ConstGet(3).CString(), "String Pool Size (bytes)=                   4");
    EXPECT_STREQ(statistics.ConstGet(4).CString(), "String Pool Count (number of strings)=0");
}

TEST(StringPool, AReferenceTakesEightBytes)
{
    const TestFile file;
    EXPECT_EQ(PoolOf(file.Create()).ReferenceSize(), 8);
}

TEST(StringPool, RecordsLieOneAfterTheOtherPaddedToFourBytes)
{
    const TestFile file;
    Store(file, {"", "a", "abcd", "abcde"});
    EXPECT_EQ(Of(file.Open(), kStringPool),
              Bytes({
                  0xEE, 0xBB, 0xFF, 0xAA,                                   // the pool
                  0,    0,    0,    0,                                      // ""
                  1,    0,    0,    0,    'a', 0,   0,   0,                 // "a"
                  4,    0,    0,    0,    'a', 'b', 'c', 'd',               // "abcd"
                  5,    0,    0,    0,    'a', 'b', 'c', 'd', 'e', 0, 0, 0, // "abcde"
              }));
}

TEST(StringPool, AReferenceIsTheOffsetOfItsRecordAsADouble)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    const cow_String texts[3] = {"", "abcd", "abcde"};
    char references[24];
    PoolOf(database).Encode(references, texts, 3);
    EXPECT_EQ(std::string(references, 24),
              Bytes({
                  0, 0, 0, 0, 0, 0, 0x10, 0x40, // 4: the empty text takes 4 bytes
                  0, 0, 0, 0, 0, 0, 0x20, 0x40, // 8: a text of four takes 8
                  0, 0, 0, 0, 0, 0, 0x30, 0x40, // 16: a text of five takes 12
              }));
    EXPECT_EQ(PoolOf(database).NextOffset(), 28);
    cow_String decoded[3];
    PoolOf(database).Decode(references, decoded, 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(decoded[i], texts[i]);
}

TEST(StringPool, AReferenceIsReadByAddingAHalfAndTruncating)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    Encode(database, "text");
    EXPECT_EQ(DecodeAt(database, 3.5), "text");
    EXPECT_EQ(DecodeAt(database, 4.25), "text");
}

TEST(StringPool, AStringEncodedAgainGetsItsReferenceAndAddsNothing)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    const Reference first = Encode(database, "again");
    const utl_FileOffset next = PoolOf(database).NextOffset();
    EXPECT_EQ(Encode(database, "again"), first);
    EXPECT_EQ(PoolOf(database).NextOffset(), next);
    EXPECT_EQ(PoolOf(database).Count(), 1);
}

TEST(StringPool, AStringOfAnEarlierSessionIsFoundAgain)
{
    const TestFile file;
    Store(file, {"one", "two"});
    rfm_Database database = file.Open(utl_FileAccessUpdate);
    EXPECT_EQ(OffsetIn(Encode(database, "two")), 12);
    EXPECT_EQ(OffsetIn(Encode(database, "three")), 20);
    EXPECT_EQ(PoolOf(database).Count(), 3);
}

TEST(StringPool, TextsThatDifferBehindANulAreTwo)
{
    const TestFile file;
    const cow_String first("a\0b", 3);
    const cow_String second("a\0c", 3);
    {
        rfm_Database database = file.Create();
        EXPECT_EQ(OffsetIn(Encode(database, first)), 4);
        EXPECT_EQ(OffsetIn(Encode(database, second)), 12);
    }
    const rfm_Database database = file.Open();
    EXPECT_EQ(DecodeAt(database, 4), std::string(first.View()));
    EXPECT_EQ(DecodeAt(database, 12), std::string(second.View()));
}

TEST(StringPool, APendingStringIsDecodedWithoutTheFile)
{
    const TestFile file;
    rfm_Database database = file.Create();
    database.Flush();
    const std::string whole = file.AllBytes();
    const Reference reference = Encode(database, "pending");
    std::filesystem::resize_file(file.Path(), 0);
    EXPECT_EQ(Decode(database, reference), "pending");
    std::ofstream(file.Path(), std::ios::binary) << whole;
}

TEST(StringPool, EncodingWritesNothingBeforeTheFlush)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    Encode(database, "later");
    EXPECT_EQ(Of(database, kStringPool).size(), 4U);
    PoolOf(database).Flush();
    EXPECT_EQ(Of(database, kStringPool, 4), Bytes({5, 0, 0, 0, 'l', 'a', 't', 'e', 'r', 0, 0, 0}));
}

TEST(StringPool, AFlushWithNothingPendingWritesNothing)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    Encode(database, "text");
    PoolOf(database).Flush();
    Poke(database, kStringPool, 8, "TEXT");
    PoolOf(database).Flush();
    EXPECT_EQ(Of(database, kStringPool, 4), Bytes({4, 0, 0, 0, 'T', 'E', 'X', 'T'}));
}

TEST(StringPool, AnAttachForgetsWhatWasHeldBefore)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    Encode(database, "kept");
    PoolOf(database).Flush();
    Encode(database, "pending");
    EXPECT_EQ(DecodeAt(database, 12), "pending");
    PoolOf(database).Attach(std::unique_ptr<rfm_SpaceRepr>(database.Repr().OpenSpace(kStringPool, -1)));
    EXPECT_EQ(PoolOf(database).Count(), 1);
    EXPECT_EQ(PoolOf(database).NextOffset(), 12);
    EXPECT_EQ(DecodeAt(database, 4), "kept");
    EXPECT_EQ(TextOf([&] { DecodeAt(database, 12); }), kNoStringText);
}

TEST(StringPool, APoolLargerThanOnePieceOfReadingComesBackWhole)
{
    const TestFile file;
    constexpr int kLength = 6 * 1024 * 1024 + 1;
    {
        const rfm_Database database = file.Create();
        for (const char letter : {'a', 'b', 'c', 'd'}) // 24 MiB: more than is read at a time
            Encode(database, cow_String(std::string_view(std::string(kLength, letter))));
    }
    const rfm_Database database = file.Open();
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(DecodeAt(database, 4 + i * (kLength + 7.0)),
                  std::string(kLength, static_cast<char>('a' + i)));
    EXPECT_EQ(PoolOf(database).Count(), 4);
}

TEST(StringPool, ATextThatWouldPassTheLimitIsRefusedAndAddsNothing)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    PoolOf(database).LimitTo(19);
    Encode(database, "abcd");
    const std::string tooMuch =
        "***ERROR: The string pool of MARLEK database file would pass its limit of 2 GiB:\n  " + file.Path();
    EXPECT_EQ(TextOf([&] { Encode(database, "efgh"); }), tooMuch);
    EXPECT_EQ(PoolOf(database).NextOffset(), 12);
    EXPECT_EQ(PoolOf(database).Count(), 1);
    PoolOf(database).LimitTo(20);
    EXPECT_EQ(OffsetIn(Encode(database, "efgh")), 12);
    EXPECT_EQ(TextOf([&] { Encode(database, ""); }), tooMuch);
}

// ---- Neuter ----

TEST(StringPool, ANeuterToALongerTextIsCutToTheStoredLength)
{
    const TestFile file;
    Store(file, {"secret", "next"});
    {
        const rfm_Database database = file.Open(utl_FileAccessUpdate);
        PoolOf(database).Neuter(ReferenceTo(4).data(), "longer than that");
        EXPECT_EQ(Of(database, kStringPool, 4),
                  Bytes({6, 0, 0, 0, 'l', 'o', 'n', 'g', 'e', 'r', 0, 0, 4, 0, 0, 0, 'n', 'e', 'x', 't'}));
    }
    EXPECT_EQ(DecodeAt(file.Open(), 4), "longer");
}

TEST(StringPool, ANeuterShowsInANewProcessOnly)
{
    const TestFile file;
    Store(file, {"secret"});
    rfm_Database database = file.Open(utl_FileAccessUpdate);
    PoolOf(database).Neuter(ReferenceTo(4).data(), "public");
    database.Flush();
    EXPECT_EQ(DecodeAt(database, 4), "secret");
    EXPECT_EQ(OffsetIn(Encode(database, "secret")), 4);
    EXPECT_EQ(OffsetIn(Encode(database, "public")), 16);
    EXPECT_EQ(OtherProcessReads(file, 4, "public"), 0);
}

TEST(StringPool, TheZerosBehindAShortenedTextReadAsEmptyStrings)
{
    const TestFile file;
    Store(file, {"abcdefghijkl", "next"});
    {
        const rfm_Database database = file.Open(utl_FileAccessUpdate);
        PoolOf(database).Neuter(ReferenceTo(4).data(), "x");
        EXPECT_EQ(Of(database, kStringPool, 4),
                  Bytes({1, 0, 0, 0, 'x', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 'n', 'e', 'x', 't'}));
    }
    const rfm_Database database = file.Open(utl_FileAccessUpdate);
    EXPECT_EQ(DecodeAt(database, 4), "x");
    EXPECT_EQ(DecodeAt(database, 12), "");
    EXPECT_EQ(DecodeAt(database, 16), "");
    EXPECT_EQ(DecodeAt(database, 20), "next");
    EXPECT_EQ(PoolOf(database).Count(), 3); // both empty records are one text
    EXPECT_EQ(OffsetIn(Encode(database, "")), 12);
}

TEST(StringPool, ANeuterToNothingLeavesAnEmptyText)
{
    const TestFile file;
    Store(file, {"abcde"});
    PoolOf(file.Open(utl_FileAccessUpdate)).Neuter(ReferenceTo(4).data(), "");
    const rfm_Database database = file.Open();
    EXPECT_EQ(Of(database, kStringPool, 4), std::string(12, '\0'));
    for (const int record : {4, 8, 12}) EXPECT_EQ(DecodeAt(database, record), "");
}

TEST(StringPool, ANeuterOfAPendingTextFlushesItFirst)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    const Reference reference = Encode(database, "abc");
    PoolOf(database).Neuter(reference.data(), "xyz");
    EXPECT_EQ(Of(database, kStringPool, 4), Bytes({3, 0, 0, 0, 'x', 'y', 'z', 0}));
}

TEST(StringPool, ANeuterOfAnEmptyTextChangesNothing)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    const Reference reference = Encode(database, "");
    Encode(database, "next");
    PoolOf(database).Neuter(reference.data(), "text");
    EXPECT_EQ(Of(database, kStringPool, 4), Bytes({0, 0, 0, 0, 4, 0, 0, 0, 'n', 'e', 'x', 't'}));
}

TEST(StringPool, ANeuterByAReferenceToNoRecordChangesNothing)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    Encode(database, cow_String("\x08\0\0\0abcdefgh", 12));
    PoolOf(database).Flush();
    const std::string before = Of(database, kStringPool);
    for (const double wrong : {0.0, 8.0, 20.0, 1e6})
        EXPECT_EQ(TextOf([&] { PoolOf(database).Neuter(ReferenceTo(wrong).data(), "x"); }), kNoStringText);
    EXPECT_EQ(TextOf([&] { PoolOf(database).Neuter(ReferenceTo(-4).data(), "x"); }), CorruptText(file));
    EXPECT_EQ(Of(database, kStringPool), before);
}

TEST(StringPool, ANeuterWhoseLengthInTheFileRunsPastThePoolIsRefused)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    const Reference reference = Encode(database, "abcd");
    PoolOf(database).Flush();
    Poke(database, kStringPool, 4, Bytes({5, 0, 0, 0}));
    EXPECT_EQ(TextOf([&] { PoolOf(database).Neuter(reference.data(), "x"); }), CorruptText(file));
    EXPECT_EQ(Of(database, kStringPool, 4), Bytes({5, 0, 0, 0, 'a', 'b', 'c', 'd'}));
}

TEST(StringPool, ANeuterOnAReadOnlyDatabaseIsRefused)
{
    const TestFile file;
    Store(file, {"text"});
    const rfm_Database database = file.Open();
    EXPECT_EQ(TextOf([&] { PoolOf(database).Neuter(ReferenceTo(4).data(), "TEXT"); }), kReadOnlyText);
    EXPECT_EQ(Of(database, kStringPool, 8), "text");
}

// ---- What a flush trusts ----

TEST(StringPool, AFlushRefusesAPoolThatWasCutInsideARecord)
{
    const TestFile file;
    rfm_Database database = file.Create();
    Encode(database, "abcdefgh");
    database.Flush();
    database.Space(kStringPool, -1).Truncate(8);
    EXPECT_EQ(AssertionOf([&] { database.Flush(); }), "cursor - buffer.Get() == unwrittenLength");
    Encode(database, "new");
    EXPECT_EQ(AssertionOf([&] { database.Flush(); }),
              "cursor - buffer.Get() == offset.DiffAsInt32(spaceLength)");
    // Put right again, so that the close has nothing to complain about.
    Poke(database, kStringPool, 8, "abcdefgh");
    PoolOf(database).Attach(std::unique_ptr<rfm_SpaceRepr>(database.Repr().OpenSpace(kStringPool, -1)));
    EXPECT_EQ(DecodeAt(database, 4), "abcdefgh");
}

TEST(StringPool, AFlushWritesAgainWhatWasCutBetweenRecords)
{
    const TestFile file;
    rfm_Database database = file.Create();
    Encode(database, "abcd");
    Encode(database, "efgh");
    database.Flush();
    database.Space(kStringPool, -1).Truncate(12);
    database.Flush();
    EXPECT_EQ(Of(database, kStringPool, 12), Bytes({4, 0, 0, 0, 'e', 'f', 'g', 'h'}));
}

TEST(StringPool, AFlushThatFoundNoRoomInMidRecordGoesThroughOnceThereIsRoom)
{
    const TestFile file;
    rfm_Database database = file.Create();
    Encode(database, "first");
    PoolOf(database).Flush();
    // Room that an earlier flush reserved and could not fill, and something behind it: the text below crosses its end.
    rfm_Space room = database.Space(kStringPool, -1);
    room.Seek(room.Length());
    room.Extend(1000);
    database.Space(-1).WriteInt(1);
    const std::string text(3 * 1024 * 1024, 'x'); // more than a file is longer than its content
    const Reference reference = Encode(database, text.c_str());
    {
        utl_FaultPlan plan({.failExtend = 1});
        EXPECT_THROW(PoolOf(database).Flush(), utl_FileException);
        EXPECT_TRUE(plan.Fired());
    }
    EXPECT_EQ(Of(database, kStringPool, 4), Bytes({5, 0, 0, 0, 'f', 'i', 'r', 's', 't', 0, 0, 0}));
    database.Close();
    EXPECT_TRUE(Decode(file.Open(), reference) == text);
}

TEST(StringPool, AStringEncodedOnAReadOnlyDatabaseCannotBeFlushed)
{
    const TestFile file;
    Store(file, {"old"});
    rfm_Database database = file.Open();
    EXPECT_EQ(OffsetIn(Encode(database, "old")), 4);
    PoolOf(database).Flush();
    Encode(database, "new");
    EXPECT_EQ(TextOf([&] { PoolOf(database).Flush(); }), kReadOnlyText);
    EXPECT_EQ(TextOf([&] { database.Flush(); }), kReadOnlyText);
    EXPECT_EQ(PoolOf(database).NextOffset(), 20) << "two records of 8 bytes behind the magic";
    EXPECT_EQ(PoolOf(database).Count(), 2);
}

TEST(StringPool, AReadersOwnTextsAreNoTextsOfTheFile)
{
    const TestFile file;
    rfm_Database writer = file.Create();
    Encode(writer, "early");
    writer.Flush();
    rfm_Database reader = file.Open();
    const Reference mine = Encode(reader, "mine");
    const Reference other = Encode(reader, "another");
    EXPECT_EQ(Encode(reader, "mine"), mine);
    EXPECT_GE(OffsetIn(mine), 2251799813685248.0) << "2^51, behind any pool";
    EXPECT_GE(OffsetIn(other), 2251799813685248.0);
    EXPECT_NE(mine, other);
    EXPECT_EQ(Decode(reader, mine), "mine");
    EXPECT_EQ(Decode(reader, other), "another");

    // What the writer puts where a pool of one process would have put the reader's texts is the writer's.
    const Reference theirs = Encode(writer, "theirs");
    EXPECT_EQ(OffsetIn(theirs), 16);
    const Reference later = Encode(writer, "mine");
    writer.Flush();
    EXPECT_EQ(TextOf([&] { Decode(reader, theirs); }), kNoStringText);
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_EQ(Decode(reader, theirs), "theirs");
    EXPECT_EQ(Decode(reader, later), "mine");
    EXPECT_EQ(Decode(reader, mine), "mine");
    EXPECT_EQ(Decode(reader, other), "another");
    EXPECT_EQ(Encode(reader, "theirs"), theirs);
    EXPECT_EQ(TextOf([&] { DecodeAt(reader, OffsetIn(other) + 4); }), kNoStringText);
    EXPECT_EQ(TextOf([&] { DecodeAt(reader, OffsetIn(mine) + 2); }), kNoStringText);
}

TEST(StringPool, AReadersOwnTextsKeepToTheLimitOfAPool)
{
    const TestFile file;
    Store(file, {"old"});
    rfm_Database database = file.Open();
    PoolOf(database).LimitTo(24);
    const Reference held = Encode(database, "new");
    EXPECT_EQ(TextOf([&] { Encode(database, "next"); }),
              "***ERROR: The string pool of MARLEK database file would pass its limit of 2 GiB:\n  " +
                  file.Path());
    EXPECT_EQ(Decode(database, held), "new");
    EXPECT_EQ(PoolOf(database).Count(), 2);
}

// ---- Readers ----

TEST(StringPool, AFollowerLearnsNewStringsAfterASnap)
{
    const TestFile file;
    rfm_Database writer = file.Create();
    Encode(writer, "early");
    writer.Flush();
    rfm_Database reader = file.Open();
    EXPECT_EQ(DecodeAt(reader, 4), "early");
    Encode(writer, "late");
    EXPECT_EQ(TextOf([&] { DecodeAt(reader, 16); }), kNoStringText);
    writer.Flush();
    EXPECT_EQ(TextOf([&] { DecodeAt(reader, 16); }), kNoStringText);
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_EQ(DecodeAt(reader, 16), "late");
    EXPECT_EQ(PoolOf(reader).NextOffset(), 24);
    EXPECT_EQ(PoolOf(reader).Count(), 2);
    EXPECT_EQ(DecodeAt(reader, 4), "early");
}

TEST(StringPool, AFollowerRefusesDamageThatCameAfterItsOpen)
{
    const TestFile file;
    rfm_Database writer = file.Create();
    Encode(writer, "early");
    writer.Flush();
    rfm_Database reader = file.Open();
    Encode(writer, "late");
    PoolOf(writer).Flush();
    Poke(writer, kStringPool, 16, Bytes({9, 0, 0, 0}));
    writer.Flush();
    reader.Snap();
    EXPECT_EQ(TextOf([&] { DecodeAt(reader, 16); }), CorruptText(file));
    EXPECT_EQ(DecodeAt(reader, 4), "early");
}

TEST(StringPool, ARefusedLoadLeavesNoRecordsBehind)
{
    const TestFile file;
    rfm_Database writer = file.Create();
    Encode(writer, "early");
    writer.Flush();
    rfm_Database reader = file.Open();
    const std::string text(1000, 'x');
    Encode(writer, text.c_str());
    PoolOf(writer).Flush();
    // First many empty records and a damaged one behind them, then the text as it is.
    Poke(writer, kStringPool, 16, std::string(1000, '\0') + Bytes({9, 0, 0, 0}));
    writer.Flush();
    reader.Snap();
    EXPECT_EQ(TextOf([&] { DecodeAt(reader, 16); }), CorruptText(file));
    Poke(writer, kStringPool, 16, Stored(1000) + text);
    writer.Flush();
    EXPECT_EQ(DecodeAt(reader, 16), text);
    for (const double inside : {20.0, 252.0, 256.0, 516.0, 1012.0})
        EXPECT_EQ(TextOf([&] { DecodeAt(reader, inside); }), kNoStringText) << inside;
}

TEST(StringPool, AMissOnAWriterLeavesPendingStringsTheirReferences)
{
    const TestFile file;
    rfm_Database database = file.Create();
    const Reference first = Encode(database, "first");
    EXPECT_EQ(TextOf([&] { DecodeAt(database, 400); }), kNoStringText);
    const Reference second = Encode(database, "second");
    EXPECT_NE(first, second);
    EXPECT_EQ(Decode(database, first), "first");
    EXPECT_EQ(Decode(database, second), "second");
}

// ---- Damage ----

TEST(StringPool, AReferenceThatIsNoOffsetIsDamage)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    Encode(database, "text");
    for (const double wrong : {-1.0, -0.25, -1e300, std::nan(""), std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(), 9007199254740994.0, 1e19})
        EXPECT_EQ(TextOf([&] { DecodeAt(database, wrong); }), CorruptText(file)) << wrong;
}

TEST(StringPool, AReferenceToNoRecordIsNotAvailable)
{
    const TestFile file;
    const rfm_Database database = file.Create();
    Encode(database, "abcdefgh");
    for (const double wrong : {0.0, 1.0, 3.0, 5.0, 6.0, 7.0, 8.0, 12.0, 16.0, 20.0, 1e15, 9007199254740992.0})
        EXPECT_EQ(TextOf([&] { DecodeAt(database, wrong); }), kNoStringText) << wrong;
    EXPECT_EQ(DecodeAt(database, 4), "abcdefgh");
}

TEST(StringPool, ALengthThatRunsPastThePoolIsDamage)
{
    for (const int length : {9, 12, 2147483647, 2147483644})
    {
        const TestFile file;
        Store(file, {"abcd", "efghijkl"});
        Poke(file, kStringPool, 12, Stored(length));
        EXPECT_EQ(OpeningFails(file), CorruptText(file)) << length;
    }
}

TEST(StringPool, ANegativeLengthIsDamage)
{
    for (const int length : {-1, -4, -12, std::numeric_limits<int>::min()})
    {
        const TestFile file;
        Store(file, {"abcd", "efghijkl"});
        Poke(file, kStringPool, 12, Stored(length));
        EXPECT_EQ(OpeningFails(file), CorruptText(file)) << length;
    }
}

TEST(StringPool, BytesBehindTheLastRecordAreDamage)
{
    for (int trailing = 1; trailing < 4; ++trailing)
    {
        const TestFile file;
        Store(file, {"abcd"});
        Poke(file, kStringPool, 12, std::string(static_cast<std::size_t>(trailing), '\0'));
        EXPECT_EQ(OpeningFails(file), CorruptText(file)) << trailing;
    }
}

TEST(StringPool, ALengthTheFileHasNoRoomForIsDamage)
{
    const TestFile file;
    Store(file, {"abcd"});
    std::fstream bytes(file.Path(), std::ios::binary | std::ios::in | std::ios::out);
    bytes.seekp(1024 + 28); // entry 1: allocation and length of the pool's extent
    bytes << Stored(1e12) << Stored(1e12);
    bytes.close();
    EXPECT_EQ(OpeningFails(file), CorruptText(file));
}

TEST(StringPool, ADamagedPoolIsLeftAsItIs)
{
    const TestFile file;
    Store(file, {"abcd"});
    Poke(file, kStringPool, 4, Bytes({5, 0, 0, 0}));
    const std::string before = file.AllBytes();
    EXPECT_EQ(TextOf([&] { file.Open(utl_FileAccessUpdate); }), CorruptText(file));
    EXPECT_TRUE(file.AllBytes() == before);
}

// ---- Against a model ----

namespace
{
/// A pool and what it must hold, by text and by reference.
class Model
{
public:
    explicit Model(unsigned seed) : m_Random(seed), m_Database(m_File.Create()) {}

    void Step()
    {
        const unsigned what = Pick(1000);
        if (what < 3)
            Reopen();
        else if (what < 20)
            m_Database.Flush();
        else if (what < 600)
            InternOne();
        else
            DecodeOne();
    }

    void CheckAll()
    {
        Reopen();
        for (const auto& [offset, text] : m_ByOffset) ASSERT_EQ(DecodeAt(m_Database, double(offset)), text);
        ASSERT_EQ(PoolOf(m_Database).Count(), int(m_ByText.size()));
        ASSERT_EQ(PoolOf(m_Database).NextOffset(), m_Next);
    }

private:
    unsigned Pick(unsigned bound) { return unsigned(m_Random() % bound); }

    void Reopen()
    {
        m_Database.Close();
        m_Database = m_File.Open(utl_FileAccessUpdate);
    }

    std::string RandomText()
    {
        std::string text(Pick(Pick(50) == 0 ? 3000 : 9), '\0');
        for (char& letter : text) letter = static_cast<char>(Pick(Pick(4) == 0 ? 256 : 3));
        return text;
    }

    void InternOne()
    {
        const std::string text = RandomText();
        const Reference reference = Encode(m_Database, cow_String(std::string_view(text)));
        const auto [known, isNew] = m_ByText.emplace(text, m_Next);
        ASSERT_EQ(OffsetIn(reference), double(known->second));
        if (!isNew) return;
        m_ByOffset.emplace(m_Next, text);
        m_Next += 4 + static_cast<std::int64_t>((text.size() + 3) / 4 * 4);
    }

    void DecodeOne()
    {
        const std::int64_t offset = Pick(static_cast<unsigned>(m_Next) + 8);
        const auto known = m_ByOffset.find(offset);
        if (known == m_ByOffset.end())
            ASSERT_EQ(TextOf([&] { DecodeAt(m_Database, double(offset)); }), kNoStringText);
        else
            ASSERT_EQ(DecodeAt(m_Database, double(offset)), known->second);
        if (m_ByOffset.empty()) return;
        const auto near = m_ByOffset.lower_bound(offset);
        if (near != m_ByOffset.end())
        {
            ASSERT_EQ(DecodeAt(m_Database, double(near->first)), near->second);
        }
    }

    std::mt19937 m_Random;
    TestFile m_File;
    rfm_Database m_Database;
    std::map<std::string, std::int64_t> m_ByText;
    std::map<std::int64_t, std::string> m_ByOffset;
    std::int64_t m_Next = 4;
};
} // namespace

// Replays from RFM_TEST_SEED.
TEST(StringPool, RandomTextsBehaveAsAMapDoes)
{
    const char* given = std::getenv("RFM_TEST_SEED");
    const unsigned seed =
        given != nullptr ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
    std::printf("RFM_TEST_SEED=%u\n", seed);
    SCOPED_TRACE(seed);
    Model model(seed);
    for (int step = 0; step < 20000 && !::testing::Test::HasFatalFailure(); ++step) model.Step();
    model.CheckAll();
}
