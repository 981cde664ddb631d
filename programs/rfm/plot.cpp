#include "plot.h"

#include "FileTarget.h"
#include "NewFile.h"
#include "SvgPlot.h"
#include "Text.h"
#include "TextPlot.h"

#include <fmt/format.h>

#include <cstdlib>

namespace rfm_tool
{
namespace
{
class PlotCommand : public Command
{
public:
    std::string_view Name() const override { return "plot"; }
    std::string_view Summary() const override { return "fields against each other or the row, drawn"; }
    std::string_view Help() const override
    {
        return "Draws numbers against the number of their row or against another field: here, or with -o "
               "into "
               "an SVG\n"
               "file. Of a table or an array each field is a line. An absent value is a gap; of many points "
               "the "
               "least\n"
               "and the greatest stay.\n"
               "\n"
               "examples:\n"
               "  rfm plot job.rdx STEPS.force\n"
               "  rfm plot job.rdx STEPS --x time --fields force,energy -o steps.svg\n"
               "  rfm plot job.rdx 6 --where 'row < 1000'\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        m_Query.Declare(options);
        options.Add("--x", m_X, "the field to draw against; without it the row").ValueName("FIELD");
        options.Add("-o,--out", m_Out, "a new SVG file").ValueName("OUT").NamesNewFile();
        options.Add("-f,--force", m_Force, "replace OUT when it is there");
        options.Add("--dots", m_AsDots, "points alone, without lines between them");
    }
    int Run(Output& output) override;

private:
    void WritePicture(DatabaseFile& file, Output& output) const;

    std::string m_File;
    RowQuery m_Query;
    std::string m_X;
    std::string m_Out;
    bool m_Force = false;
    bool m_AsDots = false;
};

// As the C library would decide, without its tables: the first of these that says anything.
bool LocaleHasUtf8()
{
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"})
    {
        const char* value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        const std::string_view locale(value);
        return locale.find("UTF-8") != std::string_view::npos ||
               locale.find("utf8") != std::string_view::npos;
    }
    return false;
}

TextScreen ScreenOf(const Output& output)
{
    TextScreen screen;
    screen.lines = output.ScreenLines();
    screen.columns = output.ScreenColumns();
    screen.hasUtf8 = LocaleHasUtf8();
    screen.hasColour = output.HasColour();
    return screen;
}

void PlotCommand::WritePicture(DatabaseFile& file, Output& output) const
{
    NewFile out(m_Out, m_Force, m_File);
    const PlotData plot = ReadPlot(file, m_Query, m_X, kSvgPlotWidth);
    FileTarget target(out);
    target.Write(SvgOf(plot, m_AsDots));
    target.Close();
    out.Publish();
    output.Line(fmt::format("{}: {}", OneLine(m_Out), OneLine(plot.title)));
}

int PlotCommand::Run(Output& output)
{
    DatabaseFile file(m_File);
    TellOfSemaphore(file, "a change may be drawn half done");
    if (!m_Out.empty())
    {
        WritePicture(file, output);
        return ExitDone;
    }
    const TextScreen screen = ScreenOf(output);
    output.Write(TextOf(ReadPlot(file, m_Query, m_X, DotColumns(screen)), screen, m_AsDots));
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakePlot() { return std::make_unique<PlotCommand>(); }
} // namespace rfm_tool
