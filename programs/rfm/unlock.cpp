#include "unlock.h"

#include "DatabaseFile.h"
#include "RemoteDoor.h"
#include "Text.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace rfm_tool
{
namespace
{
class UnlockCommand : public Command
{
public:
    std::string_view Name() const override { return "unlock"; }
    std::string_view Summary() const override { return "remove the semaphore that a dead writer left"; }
    std::string_view Help() const override
    {
        return "While the directory job.lsm stands beside job.rdx, readers wait. A writer that died leaves "
               "it.\n"
               "This removes it, after asking. The database itself is not touched. Make sure that no writer\n"
               "lives: its readers would see a change half done.\n"
               "\n"
               "examples:\n"
               "  rfm unlock job.rdx\n"
               "  rfm unlock --yes job.rdx                   without asking, for scripts\n"
               "  rfm info job.rdx | grep semaphore          is there one?\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        options.Add("-y,--yes", m_Yes, "don't ask");
    }
    int Run(Output& output) override;

private:
    std::string m_File;
    bool m_Yes = false;
};

// Anything but a plain yes is a no, the end of the input too.
bool AskedAndAgreed(const Semaphore& semaphore)
{
    const std::string question = fmt::format(
        "{} was made {} ago. Remove it? A writer that lives needs it. [y/N] ", OneLine(semaphore.path),
        Counted(std::max<std::int64_t>(0, std::time(nullptr) - semaphore.since), "second", "seconds"));
    std::fputs(question.c_str(), stderr);
    std::fflush(stderr);
    std::string answer;
    for (int byte = std::getchar(); byte != EOF && byte != '\n'; byte = std::getchar())
        answer += static_cast<char>(byte);
    if (::isatty(STDIN_FILENO) != 1) std::fputs("\n", stderr);
    return answer == "y" || answer == "Y" || answer == "yes";
}

int UnlockCommand::Run(Output& output)
{
    if (IsRemotePath(m_File))
        throw Failure(ExitUsage, OneLine(m_File), "a semaphore is removed on its own host",
                      "log in there and run `rfm unlock`");
    const Semaphore semaphore = LookAtSemaphore(m_File);
    const std::string name = OneLine(m_File);
    if (!semaphore.isPresent)
    {
        // A name that leads nowhere is a slip of the keyboard, not a database that is free.
        if (::access(m_File.c_str(), F_OK) != 0) RequireReadableFile(m_File);
        throw Failure(ExitNo, name, fmt::format("there is no {}", OneLine(semaphore.path)),
                      "nothing holds readers up, nothing was removed");
    }
    if (!m_Yes && !AskedAndAgreed(semaphore))
        throw Failure(ExitNo, OneLine(semaphore.path), "not removed",
                      "answer y, or give --yes, to remove it");
    if (::rmdir(semaphore.path.c_str()) != 0)
        throw Failure(ExitNo, OneLine(semaphore.path), fmt::format("not removed: {}", std::strerror(errno)),
                      "a semaphore is an empty directory; look at what this is, and whose");
    output.Line(fmt::format("removed {}", OneLine(semaphore.path)));
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeUnlock() { return std::make_unique<UnlockCommand>(); }
} // namespace rfm_tool
