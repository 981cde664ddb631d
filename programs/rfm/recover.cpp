#include "recover.h"

#include "ContentHash.h"
#include "DamageList.h"
#include "DamagedFile.h"
#include "DatabaseFile.h"
#include "FileWalk.h"
#include "NewFile.h"
#include "Recovery.h"
#include "RemoteDoor.h"
#include "Text.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class RecoverCommand : public Command
{
public:
    std::string_view Name() const override { return "recover"; }
    std::string_view Summary() const override { return "what can still be read, into a new database"; }
    std::string_view Help() const override
    {
        return "Reads the damaged database IN byte by byte, also where nothing else opens it any more, and\n"
               "writes the new database OUT with all that can be found, under the same handles. Tells on a "
               "line\n"
               "what was lost, and what was damaged but could be had in another way. A row that can't be "
               "read\n"
               "keeps its number and has no data. OUT is read back and checked before it gets its name.\n"
               "Exit code 0: nothing was lost; 1: something was.\n"
               "\n"
               "examples:\n"
               "  rfm recover job.rdx saved.rdx\n"
               "  rfm recover job.sdx saved.rdx --to plain\n"
               "  rfm recover job.rdx saved.rdx --json | jq '.losses[].what'\n";
    }
    void Declare(Options& options) override
    {
        options.Add("IN", m_In, "a database").Required();
        options.Add("OUT", m_Out, "the new file").Required().NamesNewFile();
        DeclareKind(options, m_To, "plain, compressed or hdf5 (the kind of IN)");
        options.Add("-f,--force", m_Force, "replace OUT when it is there");
        DeclareCount(options, "-n", m_Most, "N", "tell at most N losses (10000)");
        m_Style.DeclareJson(options);
    }
    int Run(Output& output) override;

private:
    std::string Write(const NewFile& out, LossList& losses);
    void WriteText(Output& output, const LossList& losses, const std::string& hash) const;
    void WriteJson(Output& output, const LossList& losses, const std::string& hash) const;

    std::string m_In;
    std::string m_Out;
    std::string m_To;
    bool m_Force = false;
    std::int64_t m_Most = static_cast<std::int64_t>(LossList::kMostKept);
    std::int64_t m_Objects = 0; // that OUT has
    StyleOptions m_Style;
};

// What was written must open, be sound and give all it has; anything else is a fault of this program.
std::string RecoverCommand::Write(const NewFile& out, LossList& losses)
{
    DamagedFile in(m_In, losses);
    Progress progress(in.Image().Size());
    progress.Begin("recovering");
    const FileKind kind = m_To.empty() ? in.Kind() : KindOfWord(m_To);
    m_Objects = WriteRecovered(in.Image(), kind, out.WorkPath(), losses, progress);
    in.RequireRest();
    FileImage written(out.WorkPath());
    DamageList damages(1);
    FileWalk(written, damages).Run();
    if (damages.Count() > 0) out.ThrowUnwritten("the new file is damaged: " + damages.Kept().front().Line());
    DatabaseFile copy(out.WorkPath());
    return ContentHash(copy);
}

void RecoverCommand::WriteText(Output& output, const LossList& losses, const std::string& hash) const
{
    const std::int64_t told = std::min(static_cast<std::int64_t>(losses.Kept().size()), m_Most);
    for (std::int64_t i = 0; i < told; ++i) output.Line(losses.Kept()[static_cast<std::size_t>(i)].Line());
    if (const std::int64_t untold = losses.LostCount() + losses.MendedCount() - told; untold > 0)
        output.Line(fmt::format("and {} more", untold));
    output.Line(fmt::format("{}: {}, {}; {} lost, {} mended; {}", OneLine(m_Out), KindWord(KindOfFile(m_Out)),
                            Counted(m_Objects, "object", "objects"), losses.LostCount(), losses.MendedCount(),
                            hash));
}

void RecoverCommand::WriteJson(Output& output, const LossList& losses, const std::string& hash) const
{
    output.Write(
        fmt::format("{{\"rfm\":1,\"command\":\"recover\",\"file\":{},\"out\":{},\"to\":\"{}\",\"objects\":{},"
                    "\"lost\":{},\"mended\":{},\"hash\":\"{}\",\"losses\":[",
                    TextJson(m_In), TextJson(m_Out), KindWord(KindOfFile(m_Out)), m_Objects,
                    losses.LostCount(), losses.MendedCount(), hash));
    const std::int64_t told = std::min(static_cast<std::int64_t>(losses.Kept().size()), m_Most);
    for (std::int64_t i = 0; i < told; ++i)
        output.Write((i == 0 ? "\n" : ",\n") + losses.Kept()[static_cast<std::size_t>(i)].Json());
    output.Line("]}");
}

int RecoverCommand::Run(Output& output)
{
    RequireReadableFile(m_In);
    TellOfSemaphore(m_In, "a change may be copied half done");
    NewFile out(m_Out, m_Force, m_In);
    LossList losses;
    std::string hash;
    try
    {
        hash = Write(out, losses);
    }
    catch (const nex_Exception& cause)
    {
        ThrowIfRemote(m_In, cause);
        out.ThrowUnwritten(PlainMessage(cause.what()));
    }
    out.Publish();
    if (m_Style.json)
        WriteJson(output, losses, hash);
    else
        WriteText(output, losses, hash);
    return losses.LostCount() == 0 ? ExitDone : ExitNo;
}
} // namespace

std::unique_ptr<Command> MakeRecover() { return std::make_unique<RecoverCommand>(); }
} // namespace rfm_tool
