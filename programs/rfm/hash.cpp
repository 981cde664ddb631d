#include "hash.h"

#include "ContentHash.h"
#include "Text.h"
#include "WriterWatch.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class HashCommand : public Command
{
public:
    std::string_view Name() const override { return "hash"; }
    std::string_view Summary() const override { return "a digest of the content, whatever file holds it"; }
    std::string_view Help() const override
    {
        return "SHA-256 of what a reader sees: application, description, layouts, and of each object its "
               "handle\n"
               "and content, row by row. Equal for the same content in any kind of file, before and after\n"
               "compact; another one when a value, a gap, a name or the order of rows differs. Times and "
               "flush\n"
               "counts don't count. docs/cli.md tells what enters, byte by byte.\n"
               "\n"
               "examples:\n"
               "  rfm hash job.rdx\n"
               "  test \"$(rfm hash a.rdx)\" = \"$(rfm hash b.rdx)\"       the same content?\n"
               "  rfm hash job.rdx --json | jq -r .hash\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        m_Style.DeclareJson(options);
    }
    int Run(Output& output) override;

private:
    std::string m_File;
    StyleOptions m_Style;
};

int HashCommand::Run(Output& output)
{
    DatabaseFile file(m_File);
    TellOfSemaphore(file, "a change may enter half done");
    const WriterWatch watch(m_File);
    const std::string hash = ContentHash(file);
    watch.RequireRest();
    if (m_Style.json)
        output.Line(fmt::format("{{\"rfm\":1,\"command\":\"hash\",\"file\":{},\"hash\":\"{}\"}}",
                                TextJson(m_File), hash));
    else
        output.Line(hash);
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeHash() { return std::make_unique<HashCommand>(); }
} // namespace rfm_tool
