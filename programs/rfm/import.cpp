#include "import.h"

#include "CsvImport.h"
#include "NewFile.h"
#include "Text.h"
#include "run_record.h"
#include "solver_files.h"

#include <fmt/format.h>

#include <csignal>
#include <filesystem>
#include <system_error>

namespace rfm_tool
{
namespace
{
volatile std::sig_atomic_t stoppedBy = 0;

extern "C" void NoteSignal(int number) { stoppedBy = number; }

class ImportCommand : public Command
{
public:
    std::string_view Name() const override { return "import"; }
    std::string_view Summary() const override
    {
        return "a CSV file or a running solver's results into a database";
    }
    std::string_view Help() const override
    {
        return "csv makes a table of lines of cells; the first line names its fields, and an empty cell is a "
               "field\n"
               "without data. syrthes records a run of that solver while it goes on, for others to follow: "
               "SOURCE is\n"
               "its data file or the folder with it.\n"
               "\n"
               "examples:\n"
               "  rfm import csv nodes.csv nodes.rdx --table NODES --types id=int,x=double\n"
               "  rfm import csv german.csv german.rdx --separator ';'\n"
               "  rfm import syrthes case/3disks3d.syd run.rdx --status run.status\n";
    }
    void Declare(Options& options) override;
    int Run(Output& output) override;

private:
    bool IsCsv() const { return m_Form == "csv"; }
    void RequireFittingOptions() const;
    int RunCsv(Output& output) const;
    int RunSyrthes(Output& output) const;
    std::filesystem::path CaseFile() const;
    recorder::RunSummary Record(const recorder::RunSource& source) const;

    std::string m_Form;
    std::string m_Source;
    std::string m_Out;
    bool m_Force = false;
    std::string m_Table;
    std::string m_Types;
    std::string m_Separator;
    std::string m_To;
    std::string m_Status;
    std::string m_Provenance;
    double m_Timeout = -1; // not given
};

void ImportCommand::Declare(Options& options)
{
    options.Add("FORM", m_Form, "csv or syrthes").Required().OneOf({"csv", "syrthes"});
    options.Add("SOURCE", m_Source, "what is imported").Required();
    options.Add("OUT", m_Out, "the new database").Required().NamesNewFile();
    options.Add("-f,--force", m_Force, "replace OUT when it is there");
    options.Add("--table", m_Table, "csv: the table's name (that of the file)").ValueName("NAME");
    options.Add("--types", m_Types, "csv: int, float, double, handle or string; others are guessed")
        .ValueName("A=TYPE,B=TYPE");
    options.Add("--separator", m_Separator, "csv: what stands between cells, or tab (,)").ValueName("C");
    DeclareKind(options, m_To, "csv: plain, compressed or hdf5 (plain)");
    options.Add("--status", m_Status, "syrthes: a file with the solver's exit code, made when it ends")
        .ValueName("STATUS");
    options.Add("--command", m_Provenance, "syrthes: what was run, kept in the database").ValueName("TEXT");
    DeclareSeconds(options, "--timeout", m_Timeout, "syrthes: end when nothing comes for so long");
}

void ImportCommand::RequireFittingOptions() const
{
    const bool hasCsvOptions = !m_Table.empty() || !m_Types.empty() || !m_Separator.empty() || !m_To.empty();
    const bool hasRunOptions = !m_Status.empty() || !m_Provenance.empty() || m_Timeout >= 0;
    if (IsCsv() ? hasRunOptions : hasCsvOptions)
        throw Failure(ExitUsage, "import " + m_Form,
                      fmt::format("an option for {} was given", IsCsv() ? "syrthes" : "csv"),
                      "`rfm import --help` tells which options there are");
}

int ImportCommand::Run(Output& output)
{
    RequireFittingOptions();
    return IsCsv() ? RunCsv(output) : RunSyrthes(output);
}

char SeparatorOf(const std::string& word)
{
    if (word.empty()) return ',';
    if (word == "tab" || word == "\\t") return '\t';
    if (word.size() == 1 && word != "\"" && word != "\r" && word != "\n") return word[0];
    throw Failure(ExitUsage, "--separator", OneLine(word) + " is not one character", "say , or ; or tab");
}

int ImportCommand::RunCsv(Output& output) const
{
    const CsvSource source{m_Source, SeparatorOf(m_Separator), m_Table, m_Types};
    NewFile out(m_Out, m_Force, m_Source);
    ImportedTable table;
    try
    {
        table = ImportCsv(source, m_To.empty() ? FileKind::Plain : KindOfWord(m_To), out);
    }
    catch (const nex_Exception& cause)
    {
        out.ThrowUnwritten(PlainMessage(cause.what()));
    }
    out.Publish();
    output.Line(fmt::format("{}: table {}, {}: {}", OneLine(m_Out), OneLine(table.name),
                            Counted(table.rows, "row", "rows"), OneLine(table.fields)));
    return ExitDone;
}

// A folder stands for the one data file in it.
std::filesystem::path ImportCommand::CaseFile() const
{
    if (!std::filesystem::is_directory(m_Source)) return m_Source;
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(m_Source))
        if (entry.path().extension() == ".syd") found.push_back(entry.path());
    if (found.size() == 1) return found.front();
    throw Failure(found.empty() ? ExitMissing : ExitUsage, OneLine(m_Source),
                  fmt::format("{} in the folder", Counted(static_cast<std::int64_t>(found.size()),
                                                          "data file (.syd)", "data files (.syd)")),
                  "give the path of one");
}

// Viewers look for the database while it grows, so it has its name from the start; whatever ends the run, they are
// told.
void RequireNewName(const std::string& path, bool mayReplace)
{
    const auto status = std::filesystem::symlink_status(path);
    if (!std::filesystem::exists(status)) return;
    if (std::filesystem::is_directory(status))
        throw Failure(ExitUsage, OneLine(path), "is a directory", "give the name of a file in it");
    if (!mayReplace) throw Failure(ExitUsage, OneLine(path), "is there already", "--force replaces it");
}

// While it lives, a signal ends the work in its own time.
class SignalNotes
{
public:
    SignalNotes()
    {
        stoppedBy = 0;
        struct sigaction note = {};
        note.sa_handler = NoteSignal;
        for (std::size_t i = 0; i < kCount; ++i) ::sigaction(kSignals[i], &note, &m_Before[i]);
    }
    SignalNotes(const SignalNotes&) = delete;
    SignalNotes& operator=(const SignalNotes&) = delete;
    ~SignalNotes()
    {
        for (std::size_t i = 0; i < kCount; ++i) ::sigaction(kSignals[i], &m_Before[i], nullptr);
    }

private:
    static constexpr std::size_t kCount = 3;
    static constexpr int kSignals[kCount] = {SIGINT, SIGTERM, SIGHUP};

    struct sigaction m_Before[kCount] = {};
};

// "FILE, line N: what is wrong there".
[[noreturn]] void ThrowNotOfSolver(const std::string& text)
{
    const std::size_t colon = std::min(text.find(": ", text.rfind(", line ")), text.size());
    throw Failure(ExitUnreadable, text.substr(0, colon), text.substr(std::min(colon + 2, text.size())),
                  "only what the solver itself wrote can be recorded");
}

recorder::RunSummary ImportCommand::Record(const recorder::RunSource& source) const
{
    const std::string name = OneLine(source.caseFile.string());
    try
    {
        return recorder::RecordRun(source, m_Out);
    }
    catch (const recorder::RunFailed& failure)
    {
        throw Failure(ExitNo, name, PlainMessage(failure.what()),
                      "what it wrote before is in " + OneLine(m_Out));
    }
    catch (const recorder::MissingFile& failure)
    {
        throw Failure(ExitMissing, name, PlainMessage(failure.what()),
                      "give the path of the solver's data file");
    }
    catch (const solver::FileError& failure)
    {
        ThrowNotOfSolver(OneLine(failure.what()));
    }
    catch (const std::system_error& failure)
    {
        throw Failure(failure.code() == std::errc::no_such_file_or_directory ? ExitMissing : ExitUnreadable,
                      name, OneLine(failure.what()), "all files of the case have to be there");
    }
    catch (const nex_Exception& failure)
    {
        throw Failure(ExitOutput, OneLine(m_Out), PlainMessage(failure.what()),
                      "make room or write elsewhere; what was flushed before is in it");
    }
}

int ImportCommand::RunSyrthes(Output& output) const
{
    RequireNewName(m_Out, m_Force);
    const SignalNotes notes;
    recorder::RunSource source{CaseFile(), m_Status, m_Provenance, m_Timeout, [] { return stoppedBy != 0; }};
    const recorder::RunSummary summary = Record(source);
    if (summary.hasDatabase)
        output.Line(fmt::format("{}: {} of {} increments{}", OneLine(m_Out), summary.increments,
                                summary.promisedIncrements,
                                summary.end == recorder::RunEnd::Complete ? ", complete" : ""));
    if (summary.end == recorder::RunEnd::Complete) return ExitDone;
    if (summary.end == recorder::RunEnd::Stopped) return 128 + stoppedBy;
    Note(fmt::format("{}: nothing has come for {} seconds; a longer --timeout waits longer",
                     OneLine(source.caseFile.string()), m_Timeout));
    return ExitBusy;
}
} // namespace

std::unique_ptr<Command> MakeImport() { return std::make_unique<ImportCommand>(); }
} // namespace rfm_tool
