// Topics of the help.
#include "Failure.h"
#include "ToolRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace
{
using testing::HasSubstr;
using testing::StartsWith;

TEST(RfmHelp, EachTopicFitsOnAScreenAndBeginsWithItsName)
{
    for (const std::string topic : {"formats", "exit-codes", "remote"})
    {
        const ToolResult help = Tool::Run({"help", topic});
        EXPECT_EQ(help.code, 0);
        EXPECT_EQ(help.err, "");
        EXPECT_THAT(help.out, StartsWith(topic + ": "));
        EXPECT_LE(std::count(help.out.begin(), help.out.end(), '\n'), 24);
    }
}

TEST(RfmHelp, TheTopicOfExitCodesNamesEachOfThem)
{
    using namespace rfm_tool;
    const std::string out = Tool::Run({"help", "exit-codes"}).out;
    for (const int code : {ExitDone, ExitNo, ExitUsage, ExitMissing, ExitUnreadable, ExitBusy, ExitRemote,
                           ExitOutput, ExitInterrupted})
        EXPECT_THAT(out, HasSubstr("\n  " + std::to_string(code) + " "));
}

TEST(RfmHelp, OfACommandItIsTheCommandsOwn)
{
    EXPECT_EQ(Tool::Run({"help", "hash"}).out, Tool::Run({"hash", "--help"}).out);
    EXPECT_EQ(Tool::Run({"help", "help"}).out, Tool::Run({"help", "--help"}).out);
    EXPECT_THAT(Tool::Run({"help", "--help"}).out, StartsWith("rfm help: "));
}

TEST(RfmHelp, TheUsageTellsWhatIsOptionalAndWhatMayBeRepeated)
{
    const std::map<std::string, std::string> usages = {
        {"info", "FILE"},
        {"stats", "FILE [OBJECT...]"},
        {"schema", "FILE [LAYOUT]"},
        {"copy", "IN OUT OBJECT..."},
        {"convert", "IN OUT --to KIND"},
        {"compact", "IN OUT"},
        {"export", "FILE [OBJECT...] --to FORM"},
        {"connect", "ACTION [NAME] [HOST]"},
    };
    for (const auto& [command, usage] : usages)
        EXPECT_THAT(Tool::Run({command, "--help"}).out,
                    HasSubstr("\nusage: rfm " + command + " " + usage + " [OPTIONS]\n"));
}

TEST(RfmHelp, AnUnknownTopicIsWrongUsage)
{
    const ToolResult near = Tool::Run({"help", "format"});
    EXPECT_EQ(near.code, 2);
    EXPECT_EQ(near.err, "rfm: format: no such topic or command; did you mean `rfm help formats`?\n");
    EXPECT_EQ(Tool::Run({"help", "weather"}).err,
              "rfm: weather: no such topic or command; topics are formats, exit-codes and remote, "
              "`rfm --help` lists the commands\n");
}
} // namespace
