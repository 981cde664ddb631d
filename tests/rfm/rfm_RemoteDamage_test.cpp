// What a remote file's reader does with an assistant that says anything at all.

#include "RandomSeed.h"
#include "RemoteFileScene.h"
#include "rfm_FileReprRemote.h"

#include <random>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace
{
constexpr int kPage = 1024;
constexpr int kCuts = 500;

class rfm_RemoteDamageTest : public RemoteFileScene
{
protected:
    rfm_RemoteDamageTest() { Options(1, kNoLimit); }

    static std::string Number(std::int64_t number, int bytes)
    {
        std::string text;
        for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(number >> (8 * i) & 0xFF);
        return text;
    }
    static std::string Head(int status) { return Number(0, 1) + Number(status, 1); }
    static std::string List(const std::vector<std::int64_t>& starts)
    {
        std::string list = Number(static_cast<std::int64_t>(starts.size()), 4);
        for (const std::int64_t start : starts) list += Number(start, 8);
        return list;
    }
    static std::string Page(const std::string& bytes)
    {
        return Number(static_cast<std::int64_t>(bytes.size()), 4) + bytes;
    }

    /// All that an assistant says in the session of `Use`.
    static std::string Session()
    {
        const std::string first = ContentOf(1, kPage);
        const std::string newer = ContentOf(2, kPage);
        const std::string last(100, 'l');
        return Number(1, 2) + Head(0) + Number(kPage + 100, 8) +                // version, size
               Head(0) + Page(first) + Head(0) + Page(last) +                   // both pages
               Head(2) + List({0, kPage, 7 * kPage}) +                          // status: all has changed
               Head(2) + List({0}) + Page(newer) + Head(4) + Page(last + last); // both again
    }
    /// Reads a whole session; answers what came.
    static std::string Use(const cow_String& url)
    {
        rfm_FileReprRemote file(url);
        std::string all(2 * kPage, '?');
        std::string got(all, 0, static_cast<std::size_t>(file.Read(all.data(), kPage + 100)));
        got += std::to_string(file.CheckStatus());
        file.Seek(0);
        got.append(all, 0, static_cast<std::size_t>(file.Read(all.data(), kPage + 200)));
        return got;
    }
    /// The session with these bytes from the other end, which then has nothing more to say.
    std::string UseWith(const std::string& bytes)
    {
        Put("replies", bytes);
        Script("replay replies\nmute\nswallow\n");
        std::string outcome;
        try
        {
            outcome = Use(Url("a.rdx"));
        }
        catch (const rfm_FileConnectExc& failure)
        {
            outcome = failure.what();
        }
        catch (const rfm_FileFailExc& failure)
        {
            outcome = failure.what();
        }
        EXPECT_LE(CacheFileBytes(), 2 * 4096) << "something was written beside the slots";
        return outcome;
    }
};

TEST_F(rfm_RemoteDamageTest, ASessionThatIsCutAnywhereEndsInAnException)
{
    const std::string whole = Session();
    std::mt19937 random(RandomSeed());
    std::vector<std::size_t> cuts{0, 1, 2, 11, 12, whole.size() - 1};
    while (cuts.size() < kCuts) cuts.push_back(random() % whole.size());
    for (const std::size_t cut : cuts)
        EXPECT_THAT(UseWith(whole.substr(0, cut)),
                    StartsWith(cut < 2 ? "*** ERROR: Can't connect to remote file:\n"
                                       : "*** ERROR: Lost connection to remote file:\n"))
            << "cut at " << cut;
    const std::string last(100, 'l');
    EXPECT_EQ(UseWith(whole), ContentOf(1, kPage) + last + "2" + ContentOf(2, kPage) + last + last);
}

TEST_F(rfm_RemoteDamageTest, ASessionWithChangedBytesEndsInAnExceptionOrInOtherBytes)
{
    const std::string whole = Session();
    std::mt19937 random(RandomSeed());
    for (int i = 0; i < kCuts; ++i)
    {
        std::string damaged = whole;
        // Every other time not in the bytes of a page, where nothing can be noticed.
        const std::size_t first = i % 2 == 0 ? 0 : 12;
        const std::size_t span = i % 2 == 0 ? whole.size() : 6;
        for (int flips = 1 + static_cast<int>(random() % 4); flips > 0; --flips)
            damaged[first + random() % span] = static_cast<char>(random());
        EXPECT_NE(UseWith(damaged), "");
    }
}

TEST_F(rfm_RemoteDamageTest, LengthsAndCountsThatCannotBeAreALostConnection)
{
    const std::string start = Number(1, 2) + Head(0) + Number(2 * kPage, 8);
    const std::string bytes(4 * kPage, 'x');
    for (const std::string& reply : {
             Head(0) + Number(kPage + 1, 4) + bytes, Head(0) + Number(-1, 4) + bytes,
             Head(0) + Number(INT32_MIN, 4) + bytes, Head(0) + Number(INT32_MAX, 4) + bytes,
             Head(2) + Number(-1, 4) + Page("x"), Head(2) + Number((1 << 20) + 1, 4) + bytes,
             Head(2) + Number(INT32_MAX, 4) + bytes,
             Head(2) + Number(1000, 4) + bytes, // a list of which only a part comes
         })
        EXPECT_THAT(UseWith(start + reply), StartsWith("*** ERROR: Lost connection to remote file:\n"))
            << Hex(reply.substr(0, 8));
    for (const std::int64_t size : {std::int64_t{-1}, INT64_MIN})
        EXPECT_THAT(UseWith(Number(1, 2) + Head(0) + Number(size, 8) + bytes),
                    StartsWith("*** ERROR: Lost connection to remote file:\n"));
}

TEST_F(rfm_RemoteDamageTest, AListAsLongAsMayBeTakesNoMemoryOfItsLength)
{
    // 100 000 pages that nobody holds, behind them the session goes on.
    const std::string list = List(std::vector<std::int64_t>(100000, 5 * kPage));
    const std::string both = ContentOf(1, kPage);
    EXPECT_EQ(UseWith(Number(1, 2) + Head(0) + Number(kPage, 8) + Head(2) + list + Page(both) + Head(0) +
                      Page("l") + Head(2) + list + Head(0) + Page("ll")),
              both + "l" + "2" + both + "ll");
}

TEST_F(rfm_RemoteDamageTest, AFileOfAnySizeOpensAndReadsWhatThereIs)
{
    EXPECT_EQ(UseWith(Number(1, 2) + Head(0) + Number(INT64_MAX, 8) + Head(0) + Page("x") + Head(77) +
                      Head(0) + Page("")),
              "x77x");
}
} // namespace
