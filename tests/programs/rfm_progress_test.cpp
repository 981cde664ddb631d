// The line that tells how far a long work is.
#include "NewFiles.h"
#include "Progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using rfm_tool::ProgressLine;
using testing::AllOf;
using testing::HasSubstr;

TEST(RfmProgress, ALineHasPartRateAndTimeLeft)
{
    EXPECT_EQ(ProgressLine("copying", 250'000'000, 1'000'000'000, 2),
              "copying  [#####...............]  25 %  125.0 MB/s  0:06 left");
    EXPECT_EQ(ProgressLine("comparing", 1'000, 100'000, 10),
              "comparing  [....................]   1 %  0.0 MB/s  16:30 left");
    EXPECT_EQ(ProgressLine("copying", 10, 10, 1),
              "copying  [####################]  100 %  0.0 MB/s  0:00 left");
}

TEST(RfmProgress, NothingDoneOrNothingToDoIsNoDivision)
{
    EXPECT_EQ(ProgressLine("copying", 0, 100, 0),
              "copying  [....................]   0 %  0.0 MB/s  0:00 left");
    EXPECT_EQ(ProgressLine("copying", 0, 0, 0),
              "copying  [####################]  100 %  0.0 MB/s  0:00 left");
    EXPECT_EQ(ProgressLine("copying", 300, 100, 1),
              "copying  [####################]  100 %  0.0 MB/s  0:00 left");
}

TEST(RfmProgress, ALongCopyShowsItOnATerminalAndAnInterruptStillLeavesNoFile)
{
    const TestFolder folder;
    MakeEndless(folder / "in.rdx");
    const ToolResult result = Tool::RunOnTerminalUntil(
        {"convert", folder / "in.rdx", folder / "out.rdx", "--to", kKinds.back()}, " MB/s", SIGINT);
    EXPECT_EQ(result.code, 130);
    EXPECT_THAT(result.out, AllOf(HasSubstr("\rcopying  ["), HasSubstr("] "), HasSubstr(" % ")));
    EXPECT_EQ(NamesIn(folder / ""), std::vector<std::string>{"in.rdx"});
}

TEST(RfmProgress, AShortCopyShowsNothingOnATerminal)
{
    const TestFolder folder;
    MakeSample(folder / "in.rdx");
    const ToolResult result =
        Tool::RunOnTerminal({"convert", folder / "in.rdx", folder / "out.rdx", "--to", "plain"}, 24, 80);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, (folder / "out.rdx") +
                              ": plain, 15872 bytes; was plain, 15872 bytes; read back and found equal\r\n");
}
} // namespace
