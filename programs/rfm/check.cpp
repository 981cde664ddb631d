#include "check.h"

#include "DatabaseFile.h"
#include "FileKind.h"
#include "FileStamp.h"
#include "FileWalk.h"
#include "SectorWalk.h"
#include "Text.h"

#include <fmt/format.h>

#include <optional>

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
    std::optional<SectorSums> sectors; // of a compressed file
    bool isWholeWalk = true;           // of the database in the file
    bool canBeRecovered = true;        // the library gives at least the bytes
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
               "goes on past damage and never writes. Gaps that a crash left are no damage. Of a compressed\n"
               "file also each sector and stream, and how much of it is of use.\n"
               "Exit code 0: sound; 1: damaged.\n"
               "\n"
               "examples:\n"
               "  rfm check job.rdx\n"
               "  rfm check job.rdx && cp job.rdx safe/\n"
               "  rfm check job.rdx --json | jq '.damages[].handle'\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        m_Style.DeclareJson(options);
        DeclareCount(options, "-n", m_MostOfAnObject, "N", "tell at most N damages of each object (20)");
    }
    int Run(Output& output) override;

private:
    Finding WalkAtRest() const;
    bool WalkPlain(Finding& finding) const;
    bool WalkSectors(Finding& finding) const;
    bool WalkSegments(Finding& finding) const;
    static void WriteSectors(Output& output, const SectorSums& sums);
    void WriteText(Output& output, const Finding& finding) const;
    void WriteJson(Output& output, const Finding& finding) const;

    std::string m_File;
    StyleOptions m_Style;
    std::int64_t m_MostOfAnObject = 20;
};

// Sound is sound, whatever a writer does meanwhile. Damage counts only when the file stayed as it was.
Finding CheckCommand::WalkAtRest() const
{
    const bool isCompressed = KindOfFile(m_File) == FileKind::Compressed;
    for (int attempt = 0; attempt < kMostAttempts; ++attempt)
    {
        Finding finding{DamageList(m_MostOfAnObject), {}, 0, {}};
        if (isCompressed ? WalkSectors(finding) : WalkPlain(finding)) return finding;
    }
    throw Failure(ExitBusy, OneLine(m_File), "its writer flushes faster than the file can be walked",
                  "check it when the writer rests");
}

bool CheckCommand::WalkPlain(Finding& finding) const
{
    FileImage image(m_File);
    const std::uint32_t before = image.FlushCountNow();
    finding.fileBytes = image.Size();
    finding.sums = FileWalk(image, finding.damages).Run();
    return finding.damages.Count() == 0 || image.FlushCountNow() == before;
}

// The sectors first, without the library. It opens the database in them when it can, and its bytes are walked as those
// of a plain file. Its flush count doesn't move while it is open; what a writer does shows outside.
bool CheckCommand::WalkSectors(Finding& finding) const
{
    const FileStamp before = StampOf(m_File);
    finding.sectors = SectorWalk(m_File, finding.damages).Run();
    finding.canBeRecovered = finding.sectors->isOpen;
    finding.isWholeWalk = finding.sectors->isOpen && WalkSegments(finding);
    return finding.damages.Count() == 0 || StampOf(m_File) == before;
}

// Whether the walk came to its end: a structure that all others depend on may lie in a segment that can't be read.
bool CheckCommand::WalkSegments(Finding& finding) const
{
    try
    {
        FileImage image(m_File);
        for (const HurtSegment& hurt : finding.sectors->hurt)
            image.SetUnreadable(hurt.index, hurt.start, hurt.end);
        finding.fileBytes = image.Size();
        finding.sums = FileWalk(image, finding.damages).Run();
        return true;
    }
    catch (const nex_Exception& cause)
    {
        // Only where the sectors have shown the reason; anything else is a fault of this program.
        if (finding.damages.Count() == 0)
            throw Failure(ExitUnreadable, OneLine(m_File), PlainMessage(cause.what()), "");
        return false;
    }
    catch (const Failure&)
    {
        if (finding.damages.Count() == 0) throw;
        finding.canBeRecovered = false;
        return false;
    }
}

std::string Share(std::int64_t bytes, std::int64_t all)
{
    return fmt::format("{} ({:.1f} %)", bytes,
                       all > 0 ? 100.0 * static_cast<double>(bytes) / static_cast<double>(all) : 0);
}

void CheckCommand::WriteSectors(Output& output, const SectorSums& sums)
{
    const std::int64_t all = sums.live + sums.surplus + sums.lost;
    output.Line(fmt::format("compressed: {} in {} and {}; live {}, surplus {}, lost {}",
                            Counted(all, "byte", "bytes"), Counted(sums.sectors, "sector", "sectors"),
                            Counted(sums.segments, "segment", "segments"), Share(sums.live, all),
                            Share(sums.surplus, all), Share(sums.lost, all)));
}

void CheckCommand::WriteText(Output& output, const Finding& finding) const
{
    for (const Damage& damage : finding.damages.Kept()) output.Line(damage.Line());
    if (finding.sectors) WriteSectors(output, *finding.sectors);
    if (!finding.isWholeWalk) output.Line("the database in it could not be walked to its end");
    const WalkSums& sums = finding.sums;
    const std::int64_t count = finding.damages.Count();
    const std::int64_t unlisted = count - static_cast<std::int64_t>(finding.damages.Kept().size());
    if (unlisted > 0) output.Line(fmt::format("and {} more; -n N lists more of each object", unlisted));
    const std::string remedy =
        finding.damages.Count() > 0 && finding.canBeRecovered
            ? fmt::format("; `rfm recover {} OUT` saves what can still be read", OneLine(m_File))
            : "";
    output.Line(fmt::format(
        "{}: {}, {}, {}, {}{}", count == 0 ? "sound" : Counted(count, "damage", "damages"),
        Counted(finding.fileBytes, "byte", "bytes"), Counted(sums.objects, "object", "objects"),
        Counted(sums.layouts, "layout", "layouts"), Counted(sums.texts, "text", "texts"), remedy));
}

std::string SectorsJson(const Finding& finding)
{
    if (!finding.sectors) return "";
    const SectorSums& sums = *finding.sectors;
    return fmt::format(
        ",\"walked\":{},\"compressed\":{{\"sectors\":{},\"segments\":{},\"segmentsDamaged\":{},"
        "\"live\":{},\"surplus\":{},\"lost\":{}}}",
        finding.isWholeWalk, sums.sectors, sums.segments, sums.hurt.size(), sums.live, sums.surplus,
        sums.lost);
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
        "],\"bytes\":{},\"objects\":{},\"extents\":{},\"linkageBlocks\":{},\"layouts\":{},\"texts\":{}{}}}",
        finding.fileBytes, sums.objects, sums.extents, sums.linkageBlocks, sums.layouts, sums.texts,
        SectorsJson(finding)));
}

int CheckCommand::Run(Output& output)
{
    RequireReadableFile(m_File);
    RequireDatabaseMagic(m_File);
    TellOfSemaphore(m_File, "if none runs, `rfm unlock` removes what it left");
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
