// Follows a run that another process records: prints each increment as it appears, and at the end draws the
// temperature on the surface of the model.
//
//   follow_results [--picture FILE] [--report FILE] [--patience SECONDS] DATABASE
//   follow_results --print-checksums DATABASE
//
// The report has a line for each increment and each probe's history with what this process read, numbers in
// full, so that another program can compare it with the solver's own files. The second form writes the report
// of a finished run to standard output, without following anything.
//
// Exit codes: 0 the run is complete and was shown, 1 something failed, 2 usage, 3 the database is gone,
// 4 the run failed, 5 patience ran out.
#include "png_picture.h"
#include "results_layout.h"

#include <zlib.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace
{

using results::ElementFields;
using results::FaceFields;
using results::GroupFields;
using results::IncrementFields;
using results::NodeFields;
using results::ObjectFields;
using results::ProbeItems;
using results::RunFields;
using Clock = std::chrono::steady_clock;

constexpr auto kPollInterval = std::chrono::milliseconds(5);
constexpr int kReadAhead = 256;
constexpr int kArrayBlock = 1 << 18;
constexpr int kPictureWidth = 1100;
constexpr int kPictureHeight = 800;

enum ExitCode : int
{
    kShown = 0,
    kError = 1,
    kUsage = 2,
    kGone = 3,
    kRunFailed = 4,
    kOutOfPatience = 5
};

struct Arguments
{
    std::string database;
    std::string picture;
    std::string report;
    std::chrono::seconds patience{60};
    bool onlyChecksums = false;
};

// 0 for anything that is no number.
std::chrono::seconds SecondsFrom(std::string_view word)
{
    int seconds = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), seconds);
    return std::chrono::seconds(error == std::errc{} && end == word.data() + word.size() ? seconds : 0);
}

std::optional<Arguments> ParseArguments(int count, char** values)
{
    Arguments arguments;
    for (int i = 1; i < count; ++i)
    {
        const std::string word = values[i];
        const bool hasValue = i + 1 < count;
        if (word == "--print-checksums")
        {
            arguments.onlyChecksums = true;
        }
        else if (word == "--picture" && hasValue)
        {
            arguments.picture = values[++i];
        }
        else if (word == "--report" && hasValue)
        {
            arguments.report = values[++i];
        }
        else if (word == "--patience" && hasValue)
        {
            arguments.patience = SecondsFrom(values[++i]);
        }
        else if (arguments.database.empty() && !word.starts_with("--"))
        {
            arguments.database = word;
        }
        else
        {
            return std::nullopt;
        }
    }
    if (arguments.database.empty() || arguments.patience <= std::chrono::seconds(0))
    {
        return std::nullopt;
    }
    return arguments;
}

// An increment as this process read it: the row, and what its array of temperatures comes to.
struct Increment
{
    int number = 0;
    int step = 0;
    double time = 0;
    double stamp = 0;
    results::Summary summary;
    unsigned long checksum = 0;
};

struct ProbeValue
{
    int probe = 0;
    double time = 0;
    double temperature = 0;
};

unsigned long ChecksumOf(const std::vector<double>& values)
{
    const auto* bytes = reinterpret_cast<const Bytef*>(values.data());
    return crc32(0, bytes, static_cast<uInt>(values.size() * sizeof(double)));
}

// One open database of a run, and how far this process has read in it.
class RunView
{
public:
    explicit RunView(const std::string& fileName)
        : m_Database(
              rfm_Database::Open(rfm_File::Open(fileName.c_str(), utl_FileAccessRead), results::kMagic)),
          m_Layouts(m_Database),
          m_Objects(ReadObjects()),
          m_Run(m_Database.Table(m_Database.RootTableHandle2(), -1, kReadAhead)),
          m_Increments(OpenTable("INCREMENTS")),
          m_Probes(m_Database.TaggedStream(HandleOf("PROBES"), 0))
    {
    }

    rfm_FileStatus::RfmFileStatus Status() { return m_Database.FileStatus(); }

    // Moves on to what the writer has published; false when that is not possible yet.
    bool Refresh()
    {
        if (m_Database.Snap() == 0)
        {
            return false;
        }
        m_Run.Snap();
        RefreshIncrements();
        RefreshProbes();
        return true;
    }

    // Takes the next increment that this process has not read; false when there is none.
    bool Next(Increment& increment)
    {
        if (m_IncrementCount >= m_Increments.Length())
        {
            return false;
        }
        const rfm_Row row = m_Increments.ReadRow(m_IncrementCount);
        const std::vector<double> values = Temperatures(row.ReadFieldHandle(IncrementFields::temperature));
        increment.number = row.ReadFieldInt(IncrementFields::number);
        increment.step = row.ReadFieldInt(IncrementFields::step);
        increment.time = row.ReadFieldDouble(IncrementFields::time);
        increment.stamp = row.ReadFieldDouble(IncrementFields::stamp);
        increment.summary = results::Summarise(values.data(), static_cast<int>(values.size()));
        increment.checksum = ChecksumOf(values);
        ExpectSummary(row, increment);
        ++m_IncrementCount;
        return true;
    }

    bool Next(ProbeValue& value)
    {
        while (m_Probes.Next())
        {
            ++m_ProbeItemCount;
            if (m_Probes.GetID() == ProbeItems::time)
            {
                m_ProbeTime = m_Probes.GetDouble();
            }
            else if (m_Probes.GetID() >= ProbeItems::firstValue)
            {
                value = {m_Probes.GetID() - ProbeItems::firstValue, m_ProbeTime, m_Probes.GetDouble()};
                return true;
            }
        }
        return false;
    }

    std::string State() { return m_Run.ReadRow(0).ReadFieldString(RunFields::state).CString(); }
    std::string CaseTitle() { return m_Run.ReadRow(0).ReadFieldString(RunFields::caseTitle).CString(); }
    std::string Solver() { return m_Run.ReadRow(0).ReadFieldString(RunFields::solver).CString(); }
    int PromisedIncrementCount() { return m_Run.ReadRow(0).ReadFieldInt(RunFields::incrementCount); }

    int NodeCount() { return OpenTable("NODES").Length(); }
    int ElementCount() { return OpenTable("ELEMENTS").Length(); }

    picture::Scene MakeScene()
    {
        const rfm_Row last = m_Increments.ReadRow(m_Increments.Length() - 1);
        const std::vector<double> values = Temperatures(last.ReadFieldHandle(IncrementFields::temperature));
        picture::Scene scene;
        scene.title = CaseTitle();
        scene.subtitle = SubtitleOf(last);
        scene.unit = "deg C";
        scene.bodies = MakeBodies(values);
        scene.lowest = last.ReadFieldDouble(IncrementFields::lowest);
        scene.highest = last.ReadFieldDouble(IncrementFields::highest);
        return scene;
    }

private:
    std::map<std::string, rfm_Handle> ReadObjects()
    {
        rfm_Table table = m_Database.Table(m_Database.RootTableHandle(), -1, kReadAhead);
        std::map<std::string, rfm_Handle> objects;
        for (int i = 0; i < table.Length(); ++i)
        {
            const rfm_Row row = table.ReadRow(i);
            objects.emplace(row.ReadFieldString(ObjectFields::name).CString(),
                            row.ReadFieldHandle(ObjectFields::handle));
        }
        return objects;
    }

    rfm_Handle HandleOf(const std::string& name) const
    {
        const auto found = m_Objects.find(name);
        if (found == m_Objects.end())
        {
            throw std::runtime_error("the database holds no " + name +
                                     ": it was not made by rfm import syrthes");
        }
        return found->second;
    }

    rfm_Table OpenTable(const std::string& name) { return m_Database.Table(HandleOf(name), -1, kReadAhead); }

    // A writer that is already at its next change may raise the table's count before this reader's view of
    // the database reaches it: the count is then taken with the old length, and is no news when the new
    // length comes. Opening the table anew takes the length from the view as it is.
    void RefreshIncrements()
    {
        if (m_Increments.Snap() == 0) m_Increments = OpenTable("INCREMENTS");
    }

    // A stream that did not change while its database did starts over, and has no Seek: it is walked again up
    // to where this process was.
    void RefreshProbes()
    {
        if (m_Probes.Snap() != 0)
        {
            return;
        }
        m_Probes = m_Database.TaggedStream(HandleOf("PROBES"), 0);
        for (int i = 0; i < m_ProbeItemCount; ++i)
        {
            m_Probes.Next();
        }
    }

    std::vector<double> Temperatures(rfm_Handle handle)
    {
        rfm_Array<double, rfm_TypeDouble> array = m_Database.ArrayDouble(handle, -1, kArrayBlock);
        const int count = array.Length();
        if (count < 1)
        {
            throw std::runtime_error("an increment without temperatures");
        }
        std::vector<double> values(static_cast<std::size_t>(count));
        if (array.Read(values.data(), count) != count)
        {
            throw std::runtime_error("an array of temperatures is shorter than it says");
        }
        return values;
    }

    static void ExpectSummary(const rfm_Row& row, const Increment& increment)
    {
        const results::Summary recorded{row.ReadFieldDouble(IncrementFields::lowest),
                                        row.ReadFieldDouble(IncrementFields::highest),
                                        row.ReadFieldDouble(IncrementFields::mean)};
        if (recorded != increment.summary)
        {
            throw std::runtime_error("increment " + std::to_string(increment.number) +
                                     ": the row's extremes are not those of its temperatures");
        }
    }

    static std::string SubtitleOf(const rfm_Row& row)
    {
        return "temperature at " + std::to_string(std::lround(row.ReadFieldDouble(IncrementFields::time))) +
               " s";
    }

    std::vector<picture::Point> ReadPoints()
    {
        rfm_Table table = OpenTable("NODES");
        std::vector<picture::Point> points;
        for (int i = 0; i < table.Length(); ++i)
        {
            const rfm_Row row = table.ReadRow(i);
            points.push_back({row.ReadFieldDouble(NodeFields::x), row.ReadFieldDouble(NodeFields::y),
                              row.ReadFieldDouble(NodeFields::z)});
        }
        return points;
    }

    // Which volume each node belongs to, by the reference of an element around it; 0 for none.
    std::vector<int> ReadVolumes(std::size_t nodeCount)
    {
        rfm_Table table = OpenTable("ELEMENTS");
        std::vector<int> volumes(nodeCount);
        for (int i = 0; i < table.Length(); ++i)
        {
            const rfm_Row row = table.ReadRow(i);
            if (row.DataIsPresent(ElementFields::reference) == 0)
            {
                continue;
            }
            for (int corner = 0; corner < 4; ++corner)
            {
                const int node = row.ReadFieldInt(ElementFields::firstCorner + corner);
                volumes.at(static_cast<std::size_t>(node - 1)) = row.ReadFieldInt(ElementFields::reference);
            }
        }
        return volumes;
    }

    std::map<int, std::string> ReadVolumeNames()
    {
        rfm_Table table = OpenTable("GROUPS");
        std::map<int, std::string> names;
        for (int i = 0; i < table.Length(); ++i)
        {
            const rfm_Row row = table.ReadRow(i);
            if (row.ReadFieldString(GroupFields::kind) == "volumes")
            {
                names.emplace(row.ReadFieldInt(GroupFields::reference),
                              row.ReadFieldString(GroupFields::name).CString());
            }
        }
        return names;
    }

    std::vector<picture::Body> MakeBodies(const std::vector<double>& values)
    {
        const std::vector<picture::Point> points = ReadPoints();
        const std::vector<int> volumes = ReadVolumes(points.size());
        const std::map<int, std::string> names = ReadVolumeNames();
        std::map<int, picture::Body> bodies;
        rfm_Table table = OpenTable("FACES");
        for (int i = 0; i < table.Length(); ++i)
        {
            const rfm_Row row = table.ReadRow(i);
            picture::Triangle triangle;
            int volume = 0;
            for (int corner = 0; corner < 3; ++corner)
            {
                const auto node =
                    static_cast<std::size_t>(row.ReadFieldInt(FaceFields::firstCorner + corner) - 1);
                const auto at = static_cast<std::size_t>(corner);
                triangle.corners[at] = points.at(node);
                triangle.values[at] = values.at(node);
                volume = volumes.at(node);
            }
            bodies[volume].surface.push_back(triangle);
        }
        std::vector<picture::Body> result;
        for (auto& [volume, body] : bodies)
        {
            const auto name = names.find(volume);
            body.name = name == names.end() ? "" : name->second;
            result.push_back(std::move(body));
        }
        return result;
    }

    rfm_Database m_Database; // first: it must outlive the objects
    results::Layouts m_Layouts;
    std::map<std::string, rfm_Handle> m_Objects;
    rfm_Table m_Run;
    rfm_Table m_Increments;
    rfm_TaggedStream m_Probes;
    int m_IncrementCount = 0;
    int m_ProbeItemCount = 0;
    double m_ProbeTime = 0;
};

// What this process has read, in full, for a comparison by another program.
class Report
{
public:
    void Add(const Increment& increment)
    {
        std::ostringstream line;
        line << std::setprecision(kAllDigits) << "increment " << increment.number << ' ' << increment.step
             << ' ' << increment.time << ' ' << increment.summary.lowest << ' ' << increment.summary.highest
             << ' ' << increment.summary.mean << ' ' << std::hex << increment.checksum << '\n';
        m_Increments += line.str();
    }

    void Add(const ProbeValue& value)
    {
        std::ostringstream line;
        line << std::setprecision(kAllDigits) << "probe " << value.probe << ' ' << value.time << ' '
             << value.temperature << '\n';
        m_Probes += line.str();
    }

    void Clear()
    {
        m_Increments.clear();
        m_Probes.clear();
    }

    std::string Text() const { return m_Increments + m_Probes; }

    void Save(const std::string& fileName) const
    {
        std::ofstream file(fileName, std::ios::binary);
        file << Text();
        if (!file.flush()) throw std::runtime_error(fileName + ": the report could not be written");
    }

private:
    // As many as bring a double back exactly.
    static constexpr int kAllDigits = std::numeric_limits<double>::max_digits10;

    std::string m_Increments;
    std::string m_Probes;
};

// Follows one name through whatever databases come to bear it.
//
//   waiting --the file is a database--> following --the recorder says complete or failed--> ended
//      ^                                    |   `----the file is gone--------------------> ended
//      `------another database took the name'
class Follower
{
public:
    explicit Follower(const Arguments& arguments) : m_Arguments(arguments) {}

    ExitCode Run()
    {
        std::printf("waiting for %s\n", m_Arguments.database.c_str());
        NoteNews();
        for (;;)
        {
            const std::optional<ExitCode> end = m_View ? LookOnce() : TryToOpen();
            if (std::fflush(stdout) != 0) throw std::runtime_error("standard output can't be written");
            if (end)
            {
                return *end;
            }
            if (Clock::now() - m_LastNews > m_Arguments.patience)
            {
                std::printf("nothing new for %lld s: giving up%s\n",
                            static_cast<long long>(m_Arguments.patience.count()),
                            m_LastRefusal.empty() ? "" : (" (" + m_LastRefusal + ")").c_str());
                return kOutOfPatience;
            }
            std::this_thread::sleep_for(kPollInterval);
        }
    }

private:
    // Until its first flush a database can't be opened, and a reader that came while its writer held readers
    // off may have seen half a change: both are told by trying again.
    std::optional<ExitCode> TryToOpen()
    {
        try
        {
            auto view = std::make_unique<RunView>(m_Arguments.database);
            const rfm_FileStatus::RfmFileStatus status = view->Status();
            if (status == rfm_FileStatus::RfmFileInTransaction) return std::nullopt;
            m_SawUpdate = status == rfm_FileStatus::RfmFileUpdated;
            m_View = std::move(view);
        }
        catch (const nex_Exception& refusal)
        {
            m_LastRefusal = refusal.what();
            return std::nullopt;
        }
        m_LastRefusal.clear();
        NoteNews();
        std::printf("following %s, case %s: %d nodes, %d elements, %d increments to come\n",
                    m_View->Solver().c_str(), m_View->CaseTitle().c_str(), m_View->NodeCount(),
                    m_View->ElementCount(), m_View->PromisedIncrementCount());
        ShowNews();
        return std::nullopt;
    }

    std::optional<ExitCode> LookOnce()
    {
        switch (m_View->Status())
        {
        case rfm_FileStatus::RfmFileUnchanged:
            if (const std::optional<ExitCode> end = EndWhenStateIsFinal()) return end;
            break;
        case rfm_FileStatus::RfmFileUpdated:
            m_SawUpdate = true; // the file says so only once, but a Snap may still be refused
            break;
        case rfm_FileStatus::RfmFileInTransaction: ++m_TransactionCount; return std::nullopt;
        case rfm_FileStatus::RfmFileReplaced: StartOver(); return std::nullopt;
        case rfm_FileStatus::RfmFileGone:
            std::printf("%s is gone, %d increments were seen\n", m_Arguments.database.c_str(), m_ShownCount);
            return kGone;
        }
        if (m_SawUpdate && m_View->Refresh())
        {
            m_SawUpdate = false;
            NoteNews();
            ShowNews();
        }
        return std::nullopt;
    }

    // The state lies in a row that is written in place, so it may have been read in the midst of a change
    // that this view does not reach yet. A file that is unchanged after the reading says that there was none.
    std::optional<ExitCode> EndWhenStateIsFinal()
    {
        if (m_State == results::kFailed)
        {
            std::printf("the run has failed after %d increments\n", m_ShownCount);
            return kRunFailed;
        }
        return m_State == results::kComplete ? std::optional(Finish()) : std::nullopt;
    }

    void StartOver()
    {
        std::printf("another database has taken the name %s: starting over with it\n",
                    m_Arguments.database.c_str());
        m_View.reset();
        m_Report.Clear();
        m_ShownCount = 0;
        m_State.clear();
        m_Lags.clear();
        m_SawUpdate = false;
        NoteNews();
    }

    void ShowNews()
    {
        ProbeValue value;
        while (m_View->Next(value)) m_Report.Add(value);
        Increment increment;
        while (m_View->Next(increment)) Show(increment);
        m_State = m_View->State();
    }

    void Show(const Increment& increment)
    {
        ++m_ShownCount;
        m_Report.Add(increment);
        const double lag = (results::Now() - increment.stamp) * 1000;
        m_Lags.push_back(lag);
        std::printf("increment %3d  step %5d  time %8.0f s  min %8.4f  mean %8.4f  max %8.4f  lag %6.1f ms\n",
                    increment.number, increment.step, increment.time, increment.summary.lowest,
                    increment.summary.mean, increment.summary.highest, lag);
    }

    ExitCode Finish()
    {
        std::sort(m_Lags.begin(), m_Lags.end());
        if (m_ShownCount != m_View->PromisedIncrementCount())
        {
            throw std::runtime_error("the run is complete, but not all of its increments were seen");
        }
        std::printf("the run is complete: %d increments", m_ShownCount);
        if (!m_Lags.empty())
        {
            std::printf(", lag %.1f ms in the median, %.1f ms at most", m_Lags[m_Lags.size() / 2],
                        m_Lags.back());
        }
        std::printf("; met the writer in a transaction %d times\n", m_TransactionCount);
        if (!m_Arguments.report.empty())
        {
            m_Report.Save(m_Arguments.report);
        }
        if (!m_Arguments.picture.empty())
        {
            picture::Draw(m_View->MakeScene(), kPictureWidth, kPictureHeight).SavePng(m_Arguments.picture);
        }
        return kShown;
    }

    void NoteNews() { m_LastNews = Clock::now(); }

    const Arguments& m_Arguments;
    std::unique_ptr<RunView> m_View;
    Report m_Report;
    std::vector<double> m_Lags; // milliseconds
    Clock::time_point m_LastNews;
    std::string m_LastRefusal;
    std::string m_State;
    int m_ShownCount = 0;
    int m_TransactionCount = 0;
    bool m_SawUpdate = false;
};

ExitCode PrintChecksums(const std::string& database)
{
    RunView view(database);
    Report report;
    Increment increment;
    while (view.Next(increment))
    {
        report.Add(increment);
    }
    ProbeValue value;
    while (view.Next(value))
    {
        report.Add(value);
    }
    std::cout << report.Text();
    if (!std::cout.flush()) throw std::runtime_error("standard output can't be written");
    return view.State() == results::kComplete ? kShown : kRunFailed;
}

} // namespace

int main(int argc, char** argv)
{
    const std::optional<Arguments> arguments = ParseArguments(argc, argv);
    if (!arguments)
    {
        std::cerr << "usage: follow_results [--picture FILE] [--report FILE] [--patience SECONDS] DATABASE\n"
                     "       follow_results --print-checksums DATABASE\n";
        return kUsage;
    }
    int initialised = 0;
    rfm_initialize(initialised);
    ExitCode exitCode = kError;
    try
    {
        exitCode =
            arguments->onlyChecksums ? PrintChecksums(arguments->database) : Follower(*arguments).Run();
    }
    catch (const std::exception& failure)
    {
        std::cerr << "follow_results: " << failure.what() << '\n';
    }
    rfm_finalize(initialised);
    return exitCode;
}
