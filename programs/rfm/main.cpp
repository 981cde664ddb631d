#include "Candidates.h"
#include "Command.h"
#include "Failure.h"
#include "OptionParser.h"
#include "Output.h"
#include "RemoteDoor.h"
#include "RemoteScratch.h"
#include "Text.h"
#include "browse.h"
#include "check.h"
#include "compact.h"
#include "completion.h"
#include "connect.h"
#include "convert.h"
#include "copy.h"
#include "diff.h"
#include "doctor.h"
#include "export.h"
#include "follow.h"
#include "get.h"
#include "hash.h"
#include "help.h"
#include "import.h"
#include "info.h"
#include "ls.h"
#include "plot.h"
#include "recover.h"
#include "rfm_Library.h"
#include "rows.h"
#include "schema.h"
#include "stats.h"
#include "unlock.h"
#include "value.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <exception>

namespace rfm_tool
{
namespace
{
using Commands = std::vector<std::unique_ptr<Command>>;

// In the order in which the help shows them.
Commands AllCommands()
{
    Commands commands;
    commands.push_back(MakeInfo());
    commands.push_back(MakeLs());
    commands.push_back(MakeSchema());
    commands.push_back(MakeHead());
    commands.push_back(MakeTail());
    commands.push_back(MakeRows());
    commands.push_back(MakeValue());
    commands.push_back(MakeStats());
    commands.push_back(MakeFollow());
    commands.push_back(MakePlot());
    commands.push_back(MakeExport());
    commands.push_back(MakeImport());
    commands.push_back(MakeCheck());
    commands.push_back(MakeDiff());
    commands.push_back(MakeConvert());
    commands.push_back(MakeCompact());
    commands.push_back(MakeCopy());
    commands.push_back(MakeRecover());
    commands.push_back(MakeHash());
    commands.push_back(MakeConnect());
    commands.push_back(MakeBrowse());
    commands.push_back(MakeGet());
    commands.push_back(MakeUnlock());
    commands.push_back(MakeCompletion());
    commands.push_back(MakeHelp());
    commands.push_back(MakeDoctor());
    return commands;
}

extern "C" void LeaveAtInterrupt(int) { ::_exit(ExitInterrupted); }

void SetUpSignals()
{
    // A reader of our output that leaves shows as EPIPE, which is quiet.
    std::signal(SIGPIPE, SIG_IGN);
    // A file that may not grow on shows as EFBIG, which says what it is.
    std::signal(SIGXFSZ, SIG_IGN);
    // Every line is written whole and nothing needs undoing, so leaving at once is safe. Whoever writes a new file
    // puts a handler of its own in this place.
    struct sigaction leave = {};
    leave.sa_handler = LeaveAtInterrupt;
    ::sigaction(SIGINT, &leave, nullptr);
}

std::string MainHelp(const Commands& commands)
{
    std::string help =
        "rfm looks into databases of tables, arrays and streams, while their writer runs or after it\n"
        "was killed. It changes no file; convert, compact, copy, recover, get, export, import and plot\n"
        "write new ones, and unlock removes a semaphore, after asking.\n"
        "\n"
        "examples:\n"
        "  rfm job.rdx                 what is it? (rfm info job.rdx)\n"
        "  rfm rows job.rdx NODES      the rows of a table\n"
        "  rfm follow job.rdx          what does its writer add?\n"
        "\n"
        "commands:\n";
    for (const std::unique_ptr<Command>& command : commands)
        help += fmt::format("  {:<12}{}\n", command->Name(), command->Summary());
    return help +
           "\n"
           "`rfm COMMAND --help` tells more, `rfm help exit-codes` what the exit codes mean. Data goes to\n"
           "standard output, everything else to standard error.\n";
}

Command* FindCommand(const Commands& commands, std::string_view name)
{
    const auto found =
        std::find_if(commands.begin(), commands.end(),
                     [&](const auto& each)
                     { return each->Name() == name || (!name.empty() && each->OtherName() == name); });
    return found == commands.end() ? nullptr : found->get();
}

bool LooksLikeFile(const std::string& word)
{
    struct stat status = {};
    return IsRemotePath(word) || ::stat(word.c_str(), &status) == 0 ||
           word.find_first_of("./") != std::string::npos;
}

[[noreturn]] void RefuseWord(const Commands& commands, const std::string& word)
{
    std::vector<std::string_view> names;
    for (const std::unique_ptr<Command>& command : commands)
    {
        names.push_back(command->Name());
        if (!command->OtherName().empty()) names.push_back(command->OtherName());
    }
    const std::string_view near = NearestName(word, names);
    throw Failure(ExitUsage, OneLine(word), "no such command or file",
                  near.empty() ? "`rfm --help` lists the commands"
                               : fmt::format("did you mean `rfm {}`?", near));
}

int RunCommand(Command& command, std::vector<std::string> words, Output& output)
{
    Options options;
    command.Declare(options);
    if (const std::optional<std::string> help = ReadLine(command, options, std::move(words)))
    {
        output.Write(*help);
        return ExitDone;
    }
    return command.Run(output);
}

int RunWords(std::vector<std::string> words, Output& output)
{
    const Commands commands = AllCommands();
    if (words.empty())
        throw Failure(ExitUsage, "nothing to do", "no command and no file was given",
                      "`rfm --help` lists the commands, `rfm FILE` looks at a file");
    const bool asksForCommand =
        words.front() == "help" && words.size() > 1 && FindCommand(commands, words[1]) != nullptr;
    if (asksForCommand) words = {words[1], "--help"};
    const std::string first = words.front();
    if (first == "--help" || first == "-h" || (first == "help" && words.size() == 1))
    {
        output.Write(MainHelp(commands));
        return ExitDone;
    }
    if (first == "__complete") return PrintCandidates(commands, {words.begin() + 1, words.end()}, output);
    if (first == "--version")
    {
        output.Line("rfm " RFM_VERSION);
        return ExitDone;
    }
    Command* command = FindCommand(commands, first);
    if (command == nullptr)
    {
        if (!LooksLikeFile(first)) RefuseWord(commands, first);
        command = FindCommand(commands, "info");
    }
    else
        words.erase(words.begin());
    return RunCommand(*command, std::move(words), output);
}

int RunGuarded(int argc, char** argv, Output& output)
{
    try
    {
        return RunWords({argv + 1, argv + argc}, output);
    }
    catch (const Failure& failure)
    {
        output.Flush();
        Note(failure.what());
        return failure.Code();
    }
    catch (const std::bad_alloc&)
    {
        Note("memory: there is not enough of it; ask for fewer rows with -n");
        return ExitUnreadable;
    }
    catch (const std::exception& failure)
    {
        output.Flush();
        if (IsRemoteFailure(failure))
        {
            Note(RemoteFailure("another host", failure).what());
            return ExitRemote;
        }
        Note(PlainMessage(failure.what()) + "; `rfm check` tells whether the file is damaged");
        return ExitUnreadable;
    }
}
} // namespace

// What could not be written is worse than any other answer, but for a reader who left.
int Main(int argc, char** argv)
{
    SetUpSignals();
    int initializations = 0;
    rfm_initialize(initializations);
    Output output;
    const int code = RunGuarded(argc, argv, output);
    output.Finish();
    rfm_finalize(initializations);
    RemoveRemoteScratch();
    // HDF5 would try again to write what it could not, and complain at length: everything has been said.
    if (code == ExitOutput) ::_exit(code);
    if (output.Error() == 0) return code;
    Note(fmt::format("standard output: {}; make room or write elsewhere, what came out is cut off",
                     std::strerror(output.Error())));
    return ExitOutput;
}
} // namespace rfm_tool

int main(int argc, char** argv) { return rfm_tool::Main(argc, argv); }
