#include "rfm_FileCache.h"

#include "Forked.h"
#include "RemoteFileScene.h"
#include "utl_BinOStream.h"
#include "utl_FaultPlan.h"
#include "utl_FileException.h"

#include <climits>
#include <csignal>
#include <sys/resource.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{
constexpr int kPage = 1024;
constexpr int kSlot = 4096;

class rfm_FileCacheTest : public RemoteFileScene
{
protected:
    rfm_FileCacheTest() { Options(1, kNoLimit); }

    /// A cache of `pages` pages, 512 KiB each.
    static rfm_FileCache& CacheOf(int pages)
    {
        Options(512, pages / 2);
        return *rfm_FileCache::Instance();
    }
    static rfm_FileCache& Cache() { return *rfm_FileCache::Instance(); }

    static void Load(rfm_FilePage& page, const std::string& bytes)
    {
        const Pipe pipe;
        utl_BinOStream sink(pipe.WriteEnd(), omi_Swapper::Pipe);
        sink.WriteInt(static_cast<int>(bytes.size()));
        sink.Write(bytes.data(), static_cast<int>(bytes.size()));
        utl_BinIStream source(pipe.ReadEnd(), omi_Swapper::Pipe);
        page.LoadPage(source);
    }
    /// A page as a reader leaves it behind.
    static rfm_FilePage* Keep(std::int64_t start, rfm_FilePageMap& pages, const std::string& bytes = "x")
    {
        rfm_FilePage* page = Cache().GetPage(start, pages);
        Load(*page, bytes);
        Cache().ReleasePage(page);
        return page;
    }
    /// Whether the page at `start` still has its bytes.
    static bool Has(std::int64_t start, rfm_FilePageMap& pages)
    {
        rfm_FilePage* page = Cache().GetPage(start, pages);
        const bool has = page->Length() > 0;
        Cache().ReleasePage(page);
        return has;
    }
    static std::string Read(const rfm_FilePage& page, std::int64_t from, int count)
    {
        std::string bytes(static_cast<std::size_t>(count), '?');
        char* target = bytes.data();
        int total = 0;
        utl_FileOffset position = from;
        page.ReadPage(total, target, count, position);
        bytes.resize(static_cast<std::size_t>(total));
        return bytes;
    }
    static std::vector<std::int64_t> Dropped(rfm_FilePageMap& pages)
    {
        return Cache().TakeDroppedPages(pages, 32767);
    }
    std::string Stored() const
    {
        for (const auto& entry : std::filesystem::directory_iterator(Path("temp")))
            return BytesOf(cow_String(entry.path().string()));
        return {};
    }
    template <class Action> static std::string Failure(Action action)
    {
        return Thrown<nex_TextException>(action);
    }
};

// --- the options

TEST_F(rfm_FileCacheTest, TheOptionOfThePageSizeHasItsBounds)
{
    const auto bytes = [](const char* option)
    {
        utl_CommandLine options;
        if (option != nullptr) options.Set("nrdx_page_size", option);
        return rfm_FileCache::PageSizeBy(options);
    };
    EXPECT_EQ(bytes(nullptr), 0x100000);
    EXPECT_EQ(bytes("0"), 1024);
    EXPECT_EQ(bytes("-5"), 1024);
    EXPECT_EQ(bytes("1"), 1024);
    EXPECT_EQ(bytes("3"), 3072);
    EXPECT_EQ(bytes("65536"), 64 * 1024 * 1024);
    EXPECT_EQ(bytes("65537"), 2 * 1024 * 1024);
    EXPECT_EQ(bytes("2147483647"), 2 * 1024 * 1024);
}

TEST_F(rfm_FileCacheTest, TheLimitIsFourFifthsOfTheFreePages)
{
    const auto limit = [](std::uint64_t freeBytes)
    { return rfm_FileCache::PageLimitBy(utl_CommandLine(), freeBytes, kPage); };
    EXPECT_EQ(limit(9 * kPage), 7);
    EXPECT_EQ(limit(9 * kPage + kPage - 1), 7); // a part of a page is no page: not 10 * 4 / 5
    EXPECT_EQ(limit(10 * kPage), 8);
    EXPECT_EQ(limit(kPage), 0);
    EXPECT_EQ(limit(0), 0);
    EXPECT_EQ(limit(UINT64_MAX), (std::int64_t{1} << 54) / 5 * 4 + 2);
}

TEST_F(rfm_FileCacheTest, TheOptionOfTheLimitOnlyLowersIt)
{
    const auto limit = [](const char* option, int pageSize)
    {
        utl_CommandLine options;
        options.Set("nrdx_cache_limit", option);
        return rfm_FileCache::PageLimitBy(options, 100 << 20, pageSize); // 80 pages of 1 MiB without it
    };
    EXPECT_EQ(limit("10", 0x100000), 10);
    EXPECT_EQ(limit("79", 0x100000), 79);
    EXPECT_EQ(limit("81", 0x100000), 80);
    EXPECT_EQ(limit("2147483647", 0x100000), 80);
    EXPECT_EQ(limit("0", 0x100000), 0);
    EXPECT_EQ(limit("10", 0x300000), 3);
    EXPECT_EQ(limit("1", 0x200000), 0);
}

TEST_F(rfm_FileCacheTest, TheOptionsAreReadOnceWhenTheCacheIsMade)
{
    Options(3, 1);
    EXPECT_EQ(Cache().PageSize(), 3072);
    EXPECT_EQ(Cache().PageLimit(), 341); // 1 MiB / 3 KiB
    Options(1, 2);
    EXPECT_EQ(Cache().PageSize(), 3072);
    EXPECT_EQ(Cache().PageLimit(), 341);
    EXPECT_EQ(&Cache(), rfm_FileCache::Instance().get());
}

TEST_F(rfm_FileCacheTest, AnOptionThatIsNoNumberIsToldAndLeavesNoCache)
{
    utl_CommandLine::OfProcess().Set("nrdx_page_size", "big");
    EXPECT_NE(Failure([] { rfm_FileCache::Instance(); }), kNothingThrown);
    EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
    Options(1, kNoLimit);
    EXPECT_EQ(Cache().PageSize(), 1024);
}

TEST_F(rfm_FileCacheTest, ATemporaryFolderThatIsNotThereIsToldAndAnotherOneServes)
{
    {
        const EnvironmentVariable elsewhere("TMPDIR", Path("nowhere").c_str());
        EXPECT_NE(Thrown<utl_FileException>([] { rfm_FileCache::Instance(); }), kNothingThrown);
    }
    EXPECT_EQ(Cache().PageSize(), 1024);
}

// --- slots

TEST_F(rfm_FileCacheTest, APageIsWrittenInFullIntoItsSlot)
{
    rfm_FilePageMap pages;
    Keep(0, pages, "first");
    EXPECT_EQ(Stored().size(), kSlot); // 4096 bytes, though a page has 1024
    EXPECT_EQ(Stored().substr(0, 5), "first");
    Keep(7 * kPage, pages, std::string(kPage, 's'));
    EXPECT_EQ(Stored().size(), 2 * kSlot);
    EXPECT_EQ(Stored().substr(kSlot, kPage), std::string(kPage, 's'));
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, ASlotIsAWholeNumberOfPieces)
{
    EXPECT_EQ(rfm_FilePage::SlotBytes(1024), 4096);
    EXPECT_EQ(rfm_FilePage::SlotBytes(4096), 4096);
    EXPECT_EQ(rfm_FilePage::SlotBytes(5120), 8192);
    EXPECT_EQ(rfm_FilePage::SlotBytes(64 << 20), 64 << 20);
    Options(5, kNoLimit);
    rfm_FilePageMap pages;
    Keep(0, pages, ContentOf(1, 5120));
    Keep(5120, pages, ContentOf(2, 5120));
    EXPECT_EQ(Stored().size(), 2 * 8192);
    EXPECT_EQ(Stored().substr(8192, 5120), ContentOf(2, 5120));
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, TwoPagesThatLoadAtTheSameTimeHaveTheirOwnSlots)
{
    rfm_FilePageMap pages;
    rfm_FilePage* const first = Cache().GetPage(0, pages);
    rfm_FilePage* const second = Cache().GetPage(kPage, pages);
    Load(*second, "two");
    Load(*first, "one");
    EXPECT_EQ(Read(*first, 0, 3), "one");
    EXPECT_EQ(Read(*second, kPage, 3), "two");
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, APageLongerThanATransferComesWhole)
{
    Options(200, kNoLimit);
    const std::string content = ContentOf(1, 200 * 1024);
    rfm_FilePageMap pages;
    rfm_FilePage* const page = Cache().GetPage(0, pages);
    Put("page", std::string("\0\3\x20\0", 4) + content); // 0x32000 bytes
    const utl_Descriptor file(::open(Path("page").c_str(), O_RDONLY | O_CLOEXEC));
    utl_BinIStream source(file.Get(), omi_Swapper::Pipe);
    page->LoadPage(source);
    EXPECT_EQ(page->Length(), 200 * 1024);
    EXPECT_EQ(Read(*page, 0, 200 * 1024), content);
    EXPECT_EQ(Read(*page, 70000, 70000), content.substr(70000, 70000));
    EXPECT_EQ(Stored(), content);
    Cache().ReleaseFile(pages);
}

// --- reading

TEST_F(rfm_FileCacheTest, AReadMovesAllFourByWhatThePageHas)
{
    rfm_FilePageMap pages;
    rfm_FilePage* const page = Keep(2 * kPage, pages, "0123456789");
    char bytes[20] = {};
    char* target = bytes;
    int total = 100;
    int remaining = 4;
    utl_FileOffset position = 2 * kPage + 3;
    page->ReadPage(total, target, remaining, position);
    EXPECT_EQ(std::string(bytes), "3456");
    EXPECT_EQ(total, 104);
    EXPECT_EQ(target, bytes + 4);
    EXPECT_EQ(remaining, 0);
    EXPECT_EQ(position, 2 * kPage + 7);

    remaining = 9;
    page->ReadPage(total, target, remaining, position);
    EXPECT_EQ(std::string(bytes), "3456789");
    EXPECT_EQ(total, 107);
    EXPECT_EQ(remaining, 6);
    EXPECT_EQ(position, 2 * kPage + 10);
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, OutsideOfItsBytesAPageHasNothing)
{
    rfm_FilePageMap pages;
    const rfm_FilePage* const page = Keep(kPage, pages, "0123456789");
    Keep(2 * kPage, pages, "neighbour");
    EXPECT_EQ(Read(*page, kPage + 9, 5), "9");
    EXPECT_EQ(Read(*page, kPage + 10, 5), "");
    EXPECT_EQ(Read(*page, kPage + kSlot, 5), "");
    EXPECT_EQ(Read(*page, kPage - 1, 5), "");
    EXPECT_EQ(Read(*page, kPage, 0), "");
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, ATemporaryFileThatSomebodyCutIsToldNotReadAsZeros)
{
    rfm_FilePageMap pages;
    const rfm_FilePage* const page = Keep(0, pages, "0123456789");
    for (const auto& entry : std::filesystem::directory_iterator(Path("temp")))
        std::filesystem::resize_file(entry.path(), 5);
    EXPECT_THAT(Thrown<utl_FileException>([&] { Read(*page, 0, 10); }),
                ::testing::EndsWith("reason:\n  It has become shorter."));
    Cache().ReleaseFile(pages);
}

// --- who loses a page

TEST_F(rfm_FileCacheTest, AHitOnAReleasedPageKeepsItsBytes)
{
    rfm_FilePageMap pages;
    Keep(0, pages, "kept");
    rfm_FilePage* const page = Cache().GetPage(0, pages);
    EXPECT_EQ(Read(*page, 0, 10), "kept");
    EXPECT_EQ(Stored().size(), kSlot);
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, ThePageReleasedLongestAgoIsTakenFirst)
{
    CacheOf(4);
    rfm_FilePageMap pages;
    for (const int start : {0, 1, 2, 3}) Keep(start, pages);
    EXPECT_TRUE(Has(0, pages)); // used again: 1 is the oldest now
    Keep(4, pages);
    EXPECT_THAT(Dropped(pages), ElementsAre(1));
    Keep(5, pages);
    Keep(6, pages);
    EXPECT_THAT(Dropped(pages), ElementsAre(2, 3));
    EXPECT_TRUE(Has(0, pages));
    EXPECT_EQ(Stored().size(), 4 * 512 * 1024);
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, APageThatIsInUseIsNotTaken)
{
    CacheOf(2);
    rfm_FilePageMap pages;
    rfm_FilePage* const used = Cache().GetPage(0, pages);
    Load(*used, "used");
    for (const int start : {1, 2, 3}) Keep(start, pages);
    EXPECT_EQ(Read(*used, 0, 4), "used");
    EXPECT_THAT(Dropped(pages), ElementsAre(1, 2));
    Cache().ReleasePage(used);
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, ATakenPageIsToldOnceToTheFileThatLostIt)
{
    CacheOf(2);
    rfm_FilePageMap a;
    rfm_FilePageMap b;
    Keep(10, a);
    Keep(20, a);
    Keep(30, b);
    EXPECT_THAT(Dropped(b), IsEmpty());
    EXPECT_THAT(Dropped(a), ElementsAre(10));
    EXPECT_THAT(Dropped(a), IsEmpty());
    Cache().ReleaseFile(a);
    Cache().ReleaseFile(b);
}

TEST_F(rfm_FileCacheTest, APageThatCameBackMeanwhileIsNotToldAsDropped)
{
    CacheOf(2);
    rfm_FilePageMap pages;
    for (const int start : {0, 1, 2}) Keep(start, pages); // drops 0
    Keep(0, pages);                                       // drops 1
    EXPECT_THAT(Dropped(pages), ElementsAre(1));
    Keep(3, pages); // drops 2
    Keep(4, pages); // drops 0, which was told of before by nobody
    EXPECT_THAT(Dropped(pages), ElementsAre(0, 2));
    EXPECT_THAT(Dropped(pages), IsEmpty());
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, NoMoreDroppedPagesAreTakenThanAskedFor)
{
    rfm_FilePageMap pages;
    for (int start = 0; start < 5; ++start) Keep(start, pages);
    for (int start = 0; start < 5; ++start) Cache().DiscardPage(start, pages);
    std::vector<std::int64_t> all;
    for (const std::size_t expected : {2U, 2U, 1U, 0U})
    {
        const auto some = Cache().TakeDroppedPages(pages, 2);
        EXPECT_EQ(some.size(), expected);
        all.insert(all.end(), some.begin(), some.end());
    }
    EXPECT_THAT(all, ::testing::UnorderedElementsAre(0, 1, 2, 3, 4));
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, ADiscardedPageIsFreeForAnyFileBeforeAnotherIsMadeOrTaken)
{
    rfm_FilePageMap a;
    rfm_FilePageMap b;
    Keep(0, a, "discarded");
    Keep(1, a, "kept");
    Cache().DiscardPage(0, a);
    rfm_FilePage* const page = Cache().GetPage(5, b);
    EXPECT_EQ(page->Length(), 0);
    Load(*page, "new");
    EXPECT_EQ(Stored().size(), 2 * kSlot);
    EXPECT_EQ(Stored().substr(0, 3), "new");
    EXPECT_THAT(Dropped(a), ElementsAre(0));
    EXPECT_TRUE(Has(1, a));
    Cache().ReleaseFile(a);
    Cache().ReleaseFile(b);
}

TEST_F(rfm_FileCacheTest, DiscardingWhatIsNotThereDoesNothing)
{
    rfm_FilePageMap pages;
    Keep(0, pages);
    for (const std::int64_t start : {std::int64_t{1}, std::int64_t{-1}, INT64_MIN, INT64_MAX})
        Cache().DiscardPage(start, pages);
    EXPECT_THAT(Dropped(pages), IsEmpty());
    Cache().DiscardPage(0, pages);
    Cache().DiscardPage(0, pages);
    EXPECT_THAT(Dropped(pages), ElementsAre(0));
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, AllPagesOfAReleasedFileAreFree)
{
    CacheOf(4);
    rfm_FilePageMap a;
    rfm_FilePageMap b;
    Keep(100, b);
    for (const int start : {0, 1, 2}) Keep(start, a);
    Cache().DiscardPage(1, a);
    Cache().ReleaseFile(a);
    EXPECT_THAT(Dropped(a), IsEmpty());
    for (const int start : {101, 102, 103}) Keep(start, b);
    EXPECT_THAT(Dropped(b), IsEmpty());
    Cache().ReleaseFile(b);
}

// --- the limit

TEST_F(rfm_FileCacheTest, WithEveryPageInUseTheNextOneIsRefused)
{
    CacheOf(2);
    rfm_FilePageMap pages;
    rfm_FilePage* const first = Cache().GetPage(0, pages);
    Cache().GetPage(1, pages);
    EXPECT_EQ(Failure([&] { Cache().GetPage(2, pages); }), "Cache Space Exausted.");
    EXPECT_THAT(Dropped(pages), IsEmpty());
    Cache().ReleasePage(first);
    EXPECT_EQ(Cache().GetPage(2, pages), first);
    EXPECT_THAT(Dropped(pages), ElementsAre(0));
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, ALimitOfNothingRefusesTheFirstPage)
{
    for (const int limit : {0, -1})
    {
        Options(1, limit);
        rfm_FilePageMap pages;
        EXPECT_EQ(Failure([&] { Cache().GetPage(0, pages); }), "Cache Space Exausted.");
        rfm_FileCache::Finalize();
    }
}

// --- pages that do not come

TEST_F(rfm_FileCacheTest, ALengthThatNoPageCanHaveWritesNothing)
{
    rfm_FilePageMap pages;
    rfm_FilePage* const page = Keep(0, pages, "before");
    for (const int length : {-1, kPage + 1, INT_MAX, INT_MIN})
    {
        const Pipe pipe;
        utl_BinOStream(pipe.WriteEnd(), omi_Swapper::Pipe).WriteInt(length);
        utl_BinIStream source(pipe.ReadEnd(), omi_Swapper::Pipe);
        EXPECT_NE(Thrown<utl_BinStreamEOF>([&] { page->LoadPage(source); }), kNothingThrown) << length;
    }
    EXPECT_EQ(Stored().size(), kSlot);
    EXPECT_EQ(Read(*page, 0, 10), "before");
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, APageThatIsCutOffHasNoBytes)
{
    rfm_FilePageMap pages;
    rfm_FilePage* const page = Keep(0, pages, "before");
    Pipe pipe;
    utl_BinOStream sink(pipe.WriteEnd(), omi_Swapper::Pipe);
    sink.WriteInt(10);
    sink.Write("cut", 3);
    pipe.CloseWriteEnd();
    utl_BinIStream source(pipe.ReadEnd(), omi_Swapper::Pipe);
    EXPECT_NE(Thrown<utl_BinStreamEOF>([&] { page->LoadPage(source); }), kNothingThrown);
    EXPECT_EQ(page->Length(), 0);
    EXPECT_EQ(Read(*page, 0, 10), "");
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, APageForWhichThereIsNoRoomHasNoBytesAndLeavesTheStreamInStep)
{
    Options(200, kNoLimit);
    rfm_FilePageMap pages;
    rfm_FilePage* const page = Cache().GetPage(0, pages);
    Put("stream", std::string("\0\3\x20\0", 4) + std::string(200 * 1024, 'p') + std::string("\0\0\0\7", 4));
    // At the first transfer, in the midst, at the last one.
    for (const int room : {0, 4096, 150000, 200 * 1024 - 1})
    {
        const utl_Descriptor file(::open(Path("stream").c_str(), O_RDONLY | O_CLOEXEC));
        utl_BinIStream source(file.Get(), omi_Swapper::Pipe);
        const utl_FaultPlan full({.room = room});
        EXPECT_THAT(Thrown<utl_FileException>([&] { page->LoadPage(source); }),
                    ::testing::EndsWith("No space left on device."));
        EXPECT_EQ(page->Length(), 0);
        EXPECT_EQ(source.ReadInt(), 7);
    }
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, ALimitOfTheSystemOnTheFileIsTold)
{
    const int code = ExitCodeOfForked(
        [&]
        {
            std::signal(SIGXFSZ, SIG_IGN);
            rfm_FilePageMap pages;
            Keep(0, pages, "fits");
            const rlimit limit{kSlot + 100, kSlot + 100};
            if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
            rfm_FilePage* const second = Cache().GetPage(1, pages);
            const std::string text = Thrown<utl_FileException>([&] { Load(*second, "does not fit"); });
            if (!std::string_view(text).ends_with("File too large.")) return 2;
            return second->Length() == 0 && Has(0, pages) ? 0 : 3;
        });
    EXPECT_EQ(code, 0);
    rfm_FileCache::Finalize();
    std::filesystem::remove_all(Path("temp")); // the child has left its temporary file
    std::filesystem::create_directory(Path("temp"));
}

// --- the end

TEST_F(rfm_FileCacheTest, TheEndOfTheCacheTakesItsFileAndTheNextUseMakesAFreshOne)
{
    rfm_FilePageMap pages;
    Keep(0, pages, "old");
    EXPECT_FALSE(std::filesystem::is_empty(Path("temp")));
    Cache().ReleaseFile(pages);
    rfm_FileCache::Finalize();
    EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
    rfm_FileCache::Finalize();

    Options(2, kNoLimit);
    EXPECT_EQ(Cache().PageSize(), 2048);
    EXPECT_FALSE(Has(0, pages));
    Cache().ReleaseFile(pages);
}

TEST_F(rfm_FileCacheTest, TheEndOfTheLibraryTakesTheCache)
{
    int count = 0;
    rfm_initialize(count); // the second: its end takes nothing
    Cache();
    rfm_finalize(count);
    EXPECT_FALSE(std::filesystem::is_empty(Path("temp")));
    // The fixture ends the library and looks whether the file has gone.
}
} // namespace
