#include "Log.h"

#include "TestFolder.h"

#include <filesystem>

namespace
{
TEST(DaemonLog, TakesNoMoreLinesBehindSixtyFourMebibytes)
{
    const TestFolder folder;
    const std::string path = folder / "log";
    const qlnsrvd::Log log(path);
    std::filesystem::resize_file(path, 64UL * 1024 * 1024);
    log.Write("daemon", "fits still");
    const std::uintmax_t full = std::filesystem::file_size(path);
    EXPECT_GT(full, 64UL * 1024 * 1024);
    log.Write("daemon", "does not");
    EXPECT_EQ(std::filesystem::file_size(path), full);
}

TEST(DaemonLog, CutsALineAtFiveHundredBytesAndShowsNoControlCharacter)
{
    const TestFolder folder;
    const qlnsrvd::Log log(folder / "log");
    log.Write("daemon", "a\nb\x1b" + std::string(1000, 'c'));
    const std::string line = BytesOf(folder.Path("log"));
    EXPECT_EQ(line.size(), 501U);
    EXPECT_NE(line.find("daemon: a?b?ccc"), std::string::npos);
    EXPECT_EQ(line.find('\n'), 500U);
}
} // namespace
