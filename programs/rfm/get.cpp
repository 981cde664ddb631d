#include "get.h"

#include "RemoteDoor.h"
#include "Text.h"
#include "VerifiedCopy.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class GetCommand : public Command
{
public:
    std::string_view Name() const override { return "get"; }
    std::string_view Summary() const override { return "fetch a database from another host"; }
    std::string_view Help() const override
    {
        return "Copies the database at URL, byte for byte, into the new plain file FILE, and reads it back "
               "to\n"
               "compare. URL may also be \"Network connectors/NAME/PATH\", where `rfm connect` has "
               "registered\n"
               "NAME. FILE gets its name when all is done: a run that is interrupted or fails leaves none.\n"
               "\n"
               "examples:\n"
               "  rfm get mrkrdb://hpc7:40001//scratch/run/job.rdx job.rdx\n"
               "  rfm get \"Network connectors/box1/job.rdx\" job.rdx --force     replaces job.rdx\n"
               "  rfm get mrkrdb://localhost//data/job.sdx job.rdx && rfm check job.rdx\n";
    }
    void Declare(Options& options) override
    {
        options.Add("URL", m_Url, "a database on another host").Required();
        options.Add("FILE", m_File, "the new file").Required().NamesNewFile();
        options.Add("-f,--force", m_Force, "replace FILE when it is there");
        m_Style.DeclareJson(options);
    }
    int Run(Output& output) override;

private:
    std::string m_Url;
    std::string m_File;
    bool m_Force = false;
    StyleOptions m_Style;
};

int GetCommand::Run(Output& output)
{
    if (!IsRemotePath(m_Url))
        throw Failure(ExitUsage, OneLine(m_Url), "is no place on another host",
                      "`rfm convert` copies files of this one");
    const std::int64_t bytes = CopyVerified(m_Url, m_File, FileKind::Plain, m_Force);
    if (m_Style.json)
        output.Line(fmt::format("{{\"rfm\":1,\"command\":\"get\",\"file\":{},\"out\":{},\"bytes\":{}}}",
                                TextJson(m_Url), TextJson(m_File), bytes));
    else
        output.Line(fmt::format("{}: {}; read back and found equal", OneLine(m_File),
                                Counted(bytes, "byte", "bytes")));
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeGet() { return std::make_unique<GetCommand>(); }
} // namespace rfm_tool
