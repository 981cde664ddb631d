#include "check.h"

#include "DatabaseFile.h"
#include "FileWalk.h"
#include "Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
// A writer may publish while its file is walked; the walk begins again so many times.
constexpr int kMostAttempts = 5;

struct Finding
{
    DamageList damages;
    WalkSums sums;
    std::int64_t fileBytes = 0;
};

class CheckCommand : public Command
{
public:
    std::string_view Name() const override { return "check"; }
    std::string_view Summary() const override { return "walk every structure and tell each damage"; }
    std::string_view Help() const override
    {
        return "Walks header, linkage table, chains, pools, tables, arrays and streams byte by byte and "
               "tells each\n"
               "damage on a line: handle, offset in the file, what was found, what was expected, what to do. "
               "It\n"
               "goes on past damage and never writes. Gaps that a crash left are no damage.\n"
               "Exit code 0: sound; 1: damaged.\n"
               "\n"
               "examples:\n"
               "  rfm check job.rdx\n"
               "  rfm check job.rdx && cp job.rdx safe/\n"
               "  rfm check job.rdx --json | jq '.damages[].handle'\n";
    }
    void Declare(CLI::App& app) override
    {
        DeclareFile(app, m_File);
        m_Style.DeclareJson(app);
        DeclareCount(app, "-n", m_MostOfAnObject, "N", "tell at most N damages of each object (20)");
    }
    int Run(Output& output) override;

private:
    Finding WalkAtRest() const;
    void WriteText(Output& output, const Finding& finding) const;
    void WriteJson(Output& output, const Finding& finding) const;

    std::string m_File;
    StyleOptions m_Style;
    std::int64_t m_MostOfAnObject = 20;
};

// Sound is sound, whatever a writer does meanwhile. Damage counts only when the file stayed as it was.
Finding CheckCommand::WalkAtRest() const
{
    for (int attempt = 0; attempt < kMostAttempts; ++attempt)
    {
        FileImage image(m_File);
        const std::uint32_t before = image.FlushCountNow();
        Finding finding{DamageList(m_MostOfAnObject), {}, image.Size()};
        finding.sums = FileWalk(image, finding.damages).Run();
        if (finding.damages.Count() == 0 || image.FlushCountNow() == before) return finding;
    }
    throw Failure(ExitBusy, OneLine(m_File), "its writer flushes faster than the file can be walked",
                  "check it when the writer rests");
}

void CheckCommand::WriteText(Output& output, const Finding& finding) const
{
    for (const Damage& damage : finding.damages.Kept()) output.Line(damage.Line());
    const WalkSums& sums = finding.sums;
    const std::int64_t count = finding.damages.Count();
    const std::int64_t unlisted = count - static_cast<std::int64_t>(finding.damages.Kept().size());
    if (unlisted > 0) output.Line(fmt::format("and {} more; -n N lists more of each object", unlisted));
    output.Line(
        fmt::format("{}: {}, {}, {}, {}", count == 0 ? "sound" : Counted(count, "damage", "damages"),
                    Counted(finding.fileBytes, "byte", "bytes"), Counted(sums.objects, "object", "objects"),
                    Counted(sums.layouts, "layout", "layouts"), Counted(sums.texts, "text", "texts")));
}

void CheckCommand::WriteJson(Output& output, const Finding& finding) const
{
    output.Write(
        fmt::format("{{\"rfm\":1,\"command\":\"check\",\"file\":{},\"sound\":{},\"count\":{},\"damages\":[",
                    TextJson(m_File), finding.damages.Count() == 0, finding.damages.Count()));
    const char* between = "\n";
    for (const Damage& damage : finding.damages.Kept())
    {
        output.Write(between + damage.Json());
        between = ",\n";
    }
    const WalkSums& sums = finding.sums;
    output.Line(fmt::format(
        "],\"bytes\":{},\"objects\":{},\"extents\":{},\"linkageBlocks\":{},\"layouts\":{},\"texts\":{}}}",
        finding.fileBytes, sums.objects, sums.extents, sums.linkageBlocks, sums.layouts, sums.texts));
}

int CheckCommand::Run(Output& output)
{
    RequireReadableFile(m_File);
    RequireDatabaseMagic(m_File);
    const Finding finding = WalkAtRest();
    if (m_Style.json)
        WriteJson(output, finding);
    else
        WriteText(output, finding);
    return finding.damages.Count() == 0 ? ExitDone : ExitNo;
}
} // namespace

std::unique_ptr<Command> MakeCheck() { return std::make_unique<CheckCommand>(); }
} // namespace rfm_tool
