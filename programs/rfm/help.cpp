#include "help.h"

#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace rfm_tool
{
namespace
{
constexpr const char* kFormats =
    "formats: the files that hold a database, and what comes out of the tool\n"
    "\n"
    "A database lies in one of three kinds of file. Every command reads all three and knows them by\n"
    "their first bytes; `rfm info` tells which one it is, `rfm convert` makes one from another.\n"
    "  plain        a running analysis, followed by viewers; models that are edited\n"
    "  compressed   results that are kept; reads anywhere in it stay cheap\n"
    "  hdf5         where only HDF5 files are welcome: the database is its dataset \"rfm\"\n"
    "Following a running writer works on plain files alone.\n"
    "\n"
    "What comes out:\n"
    "  on a terminal   one screen, aligned\n"
    "  on a pipe       everything, a tab between cells, one line for a row, tabs and line ends in a\n"
    "                  text as \\t and \\n\n"
    "  --csv           RFC 4180; no data is an empty cell, an empty text is \"\"\n"
    "  --json          a shape that stays, with its version as \"rfm\"; no data is null\n"
    "Numbers on a pipe are the shortest text that reads back as the same number.\n";

constexpr const char* kExitCodes =
    "exit-codes: what a command answers to whoever started it\n"
    "\n"
    "  0     done\n"
    "  1     the answer is no, or damage was found\n"
    "  2     wrong usage\n"
    "  3     no such file, or no such object in it\n"
    "  4     not a database, or not readable\n"
    "  5     busy, or the time is up\n"
    "  6     another host can't be reached, or refused\n"
    "  7     the output could not be written, for a full disk or a limit: what came out is cut off\n"
    "  130   interrupted\n"
    "\n"
    "A failure is one line on standard error: `rfm: WHAT: WHY; what to do`. A reader of the output that\n"
    "leaves early, as `head` does, is no failure. Interrupted work leaves no half-made file.\n";

constexpr const char* kRemote =
    "remote: databases on other hosts\n"
    "\n"
    "`rfm connect` logs in to a host through ssh and starts a daemon there, which ends by itself when\n"
    "nobody has used it for a while. From then on the other commands take the URL of a file in place\n"
    "of its name; `rfm browse` lists folders there, `rfm get` fetches a file.\n"
    "\n"
    "What it takes:\n"
    "  there  the programs marlek, qlnsrvd, rfmT_FileAssistant and rdsT_FileBrowsing in one folder (the\n"
    "         package rfm-remote), and a login that asks for nothing\n"
    "  here   ssh, and qlnsrv where the library looks for it: as External/qlnsrv/qlnsrv below a folder\n"
    "         of MRL_PATH. The package puts it below /usr/libexec/rfm:\n"
    "           export MRL_PATH=/usr/libexec/rfm\n"
    "`rfm doctor` tells what of this is missing here. Between the hosts everything is encrypted, and each\n"
    "end proves to the other that it knows the key of this connection. qlnsrv(1), marlek(1) and\n"
    "qlnsrvd(8) describe the programs.\n";

struct Topic
{
    std::string_view name;
    const char* text;
};
constexpr Topic kTopics[] = {{"formats", kFormats}, {"exit-codes", kExitCodes}, {"remote", kRemote}};

class HelpCommand : public Command
{
public:
    std::string_view Name() const override { return "help"; }
    std::string_view Summary() const override { return "help on a topic or a command"; }
    std::string_view Help() const override
    {
        return "Topics: formats (files that hold a database, and what comes out of the tool), exit-codes,\n"
               "remote (databases on other hosts). The name of a command gives what `rfm COMMAND --help` "
               "gives.\n"
               "\n"
               "examples:\n"
               "  rfm help                                all commands\n"
               "  rfm help formats\n"
               "  rfm help follow\n";
    }
    void Declare(Options& options) override
    {
        options.Add("TOPIC", m_Topic, "a topic or a command")
            .Required()
            .Choices({"formats", "exit-codes", "remote"});
    }
    int Run(Output& output) override;

private:
    std::string m_Topic;
};

int HelpCommand::Run(Output& output)
{
    std::vector<std::string_view> names;
    for (const Topic& topic : kTopics)
    {
        if (topic.name == m_Topic)
        {
            output.Write(topic.text);
            return ExitDone;
        }
        names.push_back(topic.name);
    }
    const std::string_view near = NearestName(m_Topic, names);
    throw Failure(ExitUsage, OneLine(m_Topic), "no such topic or command",
                  near.empty() ? "topics are formats, exit-codes and remote, `rfm --help` lists the commands"
                               : fmt::format("did you mean `rfm help {}`?", near));
}
} // namespace

std::unique_ptr<Command> MakeHelp() { return std::make_unique<HelpCommand>(); }
} // namespace rfm_tool
