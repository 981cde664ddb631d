#include "completion.h"

#include <algorithm>
#include <iterator>

namespace rfm_tool
{
namespace
{
// Each script hands the words of the line to `rfm __complete`, of the same rfm that stands on the line, and lets the
// shell look for files when nothing comes back. What is wrong with a file is no matter at a prompt.
constexpr const char* kBash = R"(# Completion of rfm for bash.
_rfm()
{
    mapfile -t COMPREPLY < <("$1" __complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o default -F _rfm rfm
)";

constexpr const char* kZsh = R"(#compdef rfm
# Completion of rfm for zsh.
_rfm()
{
    local -a candidates
    candidates=("${(@f)$("$words[1]" __complete "${(@)words[2,CURRENT]}" 2>/dev/null)}")
    candidates=(${candidates:#})
    if ((CURRENT == 2 || ! $#candidates)); then
        _files
    fi
    compadd -a candidates
}
# The file is either the function's body, found along fpath, or read by a start-up file.
if [[ "$funcstack[1]" == _rfm ]]; then
    _rfm "$@"
else
    compdef _rfm rfm
fi
)";

constexpr const char* kFish = R"(# Completion of rfm for fish.
function __rfm_candidates
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l found ($words[1] __complete $words[2..-1] "$current" 2>/dev/null)
    if test (count $found) -gt 0
        printf '%s\n' $found
    else
        __fish_complete_path "$current"
    end
end
complete -c rfm -f -a '(__rfm_candidates)'
)";

struct Shell
{
    std::string_view name;
    const char* script;
};
constexpr Shell kShells[] = {{"bash", kBash}, {"zsh", kZsh}, {"fish", kFish}};

class CompletionCommand : public Command
{
public:
    std::string_view Name() const override { return "completion"; }
    std::string_view Summary() const override { return "a script that lets a shell complete words of rfm"; }
    std::string_view Help() const override
    {
        return "Prints the script for bash, zsh or fish. With it the Tab key completes commands, options, "
               "and\n"
               "objects and fields out of the file that the line names. The package brings it along.\n"
               "\n"
               "examples:\n"
               "  source <(rfm completion bash)           for this shell; in ~/.bashrc for every one\n"
               "  source <(rfm completion zsh)            the same in ~/.zshrc, behind compinit\n"
               "  rfm completion fish | source\n";
    }
    void Declare(Options& options) override
    {
        options.Add("SHELL", m_Shell, "bash, zsh or fish").Required().OneOf({"bash", "zsh", "fish"});
    }
    int Run(Output& output) override
    {
        output.Write(Find(m_Shell)->script);
        return ExitDone;
    }

private:
    static const Shell* Find(std::string_view name)
    {
        const auto* found = std::find_if(std::begin(kShells), std::end(kShells),
                                         [&](const Shell& shell) { return shell.name == name; });
        return found == std::end(kShells) ? nullptr : found;
    }

    std::string m_Shell;
};
} // namespace

std::unique_ptr<Command> MakeCompletion() { return std::make_unique<CompletionCommand>(); }
} // namespace rfm_tool
