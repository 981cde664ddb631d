#include "run_record.h"

#include "results_layout.h"
#include "solver_files.h"

#include <chrono>
#include <ctime>
#include <fstream>
#include <map>
#include <optional>
#include <thread>
#include <tuple>
#include <vector>

namespace recorder
{

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

constexpr auto kPollInterval = std::chrono::milliseconds(10);

// Tables of the model grow in steps of a MiB, other objects in small ones: a step leaves its unused end as a
// gap in the file. An array is small in this sense, since its block takes it whole and goes out in one write.
constexpr int kModelQuantum = 1 << 20;
constexpr int kSmallQuantum = 4096;
constexpr int kArrayBlock = 1 << 20;
constexpr int kReadAhead = 256;

// The exit code that the status file holds, once it holds a whole line.
std::optional<int> ReadSolverStatus(const std::filesystem::path& fileName)
{
    std::ifstream file(fileName);
    int code = 0;
    if (file >> code && file.get() == '\n')
    {
        return code;
    }
    return std::nullopt;
}

// How long nothing new may come; below 0 seconds without end.
class Patience
{
public:
    explicit Patience(double seconds) : m_Seconds(seconds) {}
    void Renew() { m_LastNews = Clock::now(); }
    bool IsOver() const
    {
        return m_Seconds >= 0 && Clock::now() - m_LastNews >= std::chrono::duration<double>(m_Seconds);
    }

private:
    double m_Seconds;
    Clock::time_point m_LastNews = Clock::now();
};

// A solver that tells its end may begin later than its recorder; without that word nothing says that the file comes.
// Answers how the wait ended when it did without the file.
std::optional<RunEnd> WaitForFile(const std::filesystem::path& fileName, const RunSource& source)
{
    const Patience patience(source.patience);
    while (!std::filesystem::exists(fileName))
    {
        if (source.statusFile.empty())
        {
            throw MissingFile("there is no " + fileName.string());
        }
        if (ReadSolverStatus(source.statusFile))
        {
            throw MissingFile("the solver has ended and there is no " + fileName.string());
        }
        if (source.isStopped())
        {
            return RunEnd::Stopped;
        }
        if (patience.IsOver())
        {
            return RunEnd::TimedOut;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
    return std::nullopt;
}

// The database of one run, with the operations that a recorder needs.
class RunRecord
{
public:
    RunRecord(const std::string& fileName, const solver::Case& run, const std::string& command)
        : m_Database(rfm_Database::Create(rfm_File::Open(fileName.c_str(), utl_FileAccessCreate),
                                          results::kMagic, "A run of a solver, recorded while it ran",
                                          std::time(nullptr))),
          m_Layouts(m_Database),
          m_Objects(m_Database.Table(m_Layouts.objects, kSmallQuantum, kReadAhead)),
          m_Run(m_Database.Table(m_Layouts.run, kSmallQuantum, kReadAhead)),
          m_Increments(m_Database.Table(m_Layouts.increments, kSmallQuantum, kReadAhead)),
          m_Probes(m_Database.TaggedStream(0))
    {
        if (m_Objects.Handle() != m_Database.RootTableHandle() ||
            m_Run.Handle() != m_Database.RootTableHandle2())
        {
            throw std::logic_error("the root tables did not get the handles that readers look for");
        }
        WriteProvenance(run, command);
        Register("INCREMENTS", m_Increments.Handle());
        Register("PROBES", m_Probes.Handle());
    }

    void WriteModel(const solver::Mesh& mesh, const std::vector<solver::Group>& groups)
    {
        const rfm_ReaderSemaphoreProxy holdReadersOff(m_Database);
        WriteNodes(mesh.nodes);
        WriteShapes<ElementFields>("ELEMENTS", m_Layouts.elements, mesh.elements);
        WriteShapes<FaceFields>("FACES", m_Layouts.faces, mesh.faces);
        WriteGroups(groups);
        Publish();
    }

    // The array goes first and outside the bracket: no row names it yet, so nobody can see it half written.
    void WriteIncrement(const solver::Field& field)
    {
        const int count = static_cast<int>(field.values.size());
        const results::Summary summary = results::Summarise(field.values.data(), count);
        rfm_Array<double, rfm_TypeDouble> temperature = m_Database.ArrayDouble(1, kSmallQuantum, kArrayBlock);
        temperature.Write(field.values.data(), count);
        temperature.Flush();

        const rfm_ReaderSemaphoreProxy holdReadersOff(m_Database);
        rfm_Row row = m_Increments.NewRow();
        row.WriteFieldInt(IncrementFields::number, ++m_IncrementCount);
        row.WriteFieldInt(IncrementFields::step, field.step);
        row.WriteFieldDouble(IncrementFields::time, field.time);
        row.WriteFieldDouble(IncrementFields::lowest, summary.lowest);
        row.WriteFieldDouble(IncrementFields::highest, summary.highest);
        row.WriteFieldDouble(IncrementFields::mean, summary.mean);
        row.WriteFieldHandle(IncrementFields::temperature, temperature.Handle());
        row.WriteFieldDouble(IncrementFields::stamp, results::Now());
        Publish();
    }

    // Reaches readers with the next increment.
    void WriteProbe(const solver::ProbeSample& sample)
    {
        const int probe = NumberOfProbe(sample);
        if (sample.time != m_ProbeTime)
        {
            m_ProbeTime = sample.time;
            m_Probes.WriteDouble(ProbeItems::time, sample.time);
        }
        m_Probes.WriteDouble(ProbeItems::firstValue + probe, sample.temperature);
    }

    // Publishes how the run ended and closes the database, so that a failure there is an exception and not a
    // line from a destructor. Objects go before the database.
    void Finish(const char* state)
    {
        {
            const rfm_ReaderSemaphoreProxy holdReadersOff(m_Database);
            m_Run.UpdateRow(0).WriteFieldString(RunFields::state, state);
            Publish();
        }
        m_Objects = {};
        m_Run = {};
        m_Increments = {};
        m_Probes = {};
        m_Database.Close();
    }

    int IncrementCount() const { return m_IncrementCount; }

private:
    // Objects first, then the database: its flush shows readers what the objects have written, and it does
    // not flush them itself.
    void Publish()
    {
        m_Objects.Flush();
        m_Run.Flush();
        m_Increments.Flush();
        m_Probes.Flush();
        m_Database.Flush();
    }

    void WriteProvenance(const solver::Case& run, const std::string& command)
    {
        rfm_Row row = m_Run.NewRow();
        row.WriteFieldString(RunFields::solver, "SYRTHES");
        row.WriteFieldString(RunFields::caseTitle, run.title.c_str());
        row.WriteFieldString(RunFields::command, command.c_str());
        row.WriteFieldDouble(RunFields::startTime, results::Now());
        row.WriteFieldDouble(RunFields::stepSize, run.stepSize);
        row.WriteFieldInt(RunFields::incrementCount, run.IncrementCount());
        row.WriteFieldString(RunFields::state, results::kRunning);
    }

    void Register(const char* name, rfm_Handle handle)
    {
        rfm_Row row = m_Objects.NewRow();
        row.WriteFieldString(ObjectFields::name, name);
        row.WriteFieldHandle(ObjectFields::handle, handle);
    }

    // A reference of 0 is none: the field gets no data, and a reader asks before it reads.
    static void WriteReference(rfm_Row& row, int field, int reference)
    {
        if (reference != 0)
        {
            row.WriteFieldInt(field, reference);
        }
    }

    void WriteNodes(const std::vector<solver::Node>& nodes)
    {
        rfm_Table table = m_Database.Table(m_Layouts.nodes, kModelQuantum, kReadAhead);
        Register("NODES", table.Handle());
        for (const solver::Node& node : nodes)
        {
            rfm_Row row = table.NewRow();
            row.WriteFieldDouble(NodeFields::x, node.x);
            row.WriteFieldDouble(NodeFields::y, node.y);
            row.WriteFieldDouble(NodeFields::z, node.z);
            WriteReference(row, NodeFields::reference, node.reference);
        }
        table.Flush();
    }

    // Elements and faces: corners and a reference.
    template <class Fields, class Shape>
    void WriteShapes(const char* name, const rfm_TableMetadata& layout, const std::vector<Shape>& shapes)
    {
        rfm_Table table = m_Database.Table(layout, kModelQuantum, kReadAhead);
        Register(name, table.Handle());
        for (const Shape& shape : shapes)
        {
            rfm_Row row = table.NewRow();
            int corner = Fields::firstCorner;
            for (const int node : shape.nodes)
            {
                row.WriteFieldInt(corner++, node);
            }
            WriteReference(row, Fields::reference, shape.reference);
        }
        table.Flush();
    }

    void WriteGroups(const std::vector<solver::Group>& groups)
    {
        rfm_Table table = m_Database.Table(m_Layouts.groups, kSmallQuantum, kReadAhead);
        Register("GROUPS", table.Handle());
        for (const solver::Group& group : groups)
        {
            rfm_Row row = table.NewRow();
            row.WriteFieldString(GroupFields::kind,
                                 group.kind == solver::GroupKind::faces ? "faces" : "volumes");
            row.WriteFieldInt(GroupFields::reference, group.reference);
            row.WriteFieldString(GroupFields::name, group.name.c_str());
        }
        table.Flush();
    }

    // The solver names its probes by their places only.
    int NumberOfProbe(const solver::ProbeSample& sample)
    {
        const auto [entry, isNew] = m_ProbeNumbers.try_emplace(std::tuple(sample.x, sample.y, sample.z),
                                                               static_cast<int>(m_ProbeNumbers.size()));
        if (isNew)
        {
            m_Probes.WriteInt(ProbeItems::probe, entry->second);
            m_Probes.WriteDouble(ProbeItems::x, sample.x);
            m_Probes.WriteDouble(ProbeItems::y, sample.y);
            m_Probes.WriteDouble(ProbeItems::z, sample.z);
        }
        return entry->second;
    }

    rfm_Database m_Database; // first: it must outlive the objects
    results::Layouts m_Layouts;
    rfm_Table m_Objects;
    rfm_Table m_Run;
    rfm_Table m_Increments;
    rfm_TaggedStream m_Probes;
    int m_IncrementCount = 0;
    std::optional<double> m_ProbeTime;
    std::map<std::tuple<double, double, double>, int> m_ProbeNumbers;
};

// Moves what has arrived in the solver's two growing files into the record.
class Transfer
{
public:
    Transfer(const std::string& resultPrefix, int nodeCount)
        : m_ResultFile(resultPrefix + ".rdt"),
          m_ProbeFile(resultPrefix + ".his"),
          m_Results(resultPrefix + ".rdt", nodeCount),
          m_Samples(resultPrefix + ".his")
    {
    }

    // False when nothing new had arrived.
    bool MoveNews(RunRecord& record)
    {
        const bool gotProbes = MoveProbes(record);
        const bool gotResults = MoveResults(record);
        return gotProbes || gotResults;
    }

    void ExpectNothingCut() const
    {
        if (!m_Results.IsBetweenBlocks() || !m_Samples.IsBetweenSamples())
        {
            throw RunFailed("the solver has ended in the middle of a block of results");
        }
    }

private:
    bool MoveProbes(RunRecord& record)
    {
        const std::string news = m_ProbeFile.ReadNews();
        m_Samples.Feed(news);
        solver::ProbeSample sample;
        while (m_Samples.Next(sample))
        {
            record.WriteProbe(sample);
        }
        return !news.empty();
    }

    bool MoveResults(RunRecord& record)
    {
        const std::string news = m_ResultFile.ReadNews();
        m_Results.Feed(news);
        solver::Field field;
        while (m_Results.Next(field))
        {
            if (field.variable == "TEMPERATURE")
            {
                record.WriteIncrement(field);
            }
        }
        return !news.empty();
    }

    solver::GrowingFile m_ResultFile;
    solver::GrowingFile m_ProbeFile;
    solver::ResultReader m_Results;
    solver::ProbeReader m_Samples;
};

// What is said of a run by the way in which following it ended.
class Follower
{
public:
    Follower(const RunSource& source, const std::string& resultPrefix, int nodeCount, int incrementCount)
        : m_Source(source),
          m_Transfer(resultPrefix, nodeCount),
          m_IncrementCount(incrementCount)
    {
    }

    RunEnd Follow(RunRecord& record)
    {
        return m_Source.statusFile.empty() ? FollowIncrements(record) : FollowSolver(record);
    }

private:
    // The status is asked for before the files are read: when it was there, what is read then is all there will
    // be.
    RunEnd FollowSolver(RunRecord& record)
    {
        for (;;)
        {
            const std::optional<int> status = ReadSolverStatus(m_Source.statusFile);
            const bool gotNews = m_Transfer.MoveNews(record);
            if (status && !gotNews)
            {
                RequireSuccess(*status, record);
                return RunEnd::Complete;
            }
            if (const std::optional<RunEnd> end = Pause(gotNews))
            {
                return *end;
            }
        }
    }

    // Nobody tells when the solver ends: the case says how many increments there will be.
    RunEnd FollowIncrements(RunRecord& record)
    {
        for (;;)
        {
            const bool gotNews = m_Transfer.MoveNews(record);
            if (!gotNews && record.IncrementCount() >= m_IncrementCount)
            {
                m_Transfer.ExpectNothingCut();
                return RunEnd::Complete;
            }
            if (const std::optional<RunEnd> end = Pause(gotNews))
            {
                return *end;
            }
        }
    }

    void RequireSuccess(int status, const RunRecord& record) const
    {
        if (status != 0)
        {
            throw RunFailed("the solver has failed with exit code " + std::to_string(status));
        }
        m_Transfer.ExpectNothingCut();
        if (record.IncrementCount() != m_IncrementCount)
        {
            throw RunFailed("the solver has ended after " + std::to_string(record.IncrementCount()) + " of " +
                            std::to_string(m_IncrementCount) + " increments");
        }
    }

    std::optional<RunEnd> Pause(bool gotNews)
    {
        if (m_Source.isStopped())
        {
            return RunEnd::Stopped;
        }
        if (gotNews)
        {
            m_Patience.Renew();
            return std::nullopt;
        }
        if (m_Patience.IsOver())
        {
            return RunEnd::TimedOut;
        }
        std::this_thread::sleep_for(kPollInterval);
        return std::nullopt;
    }

    const RunSource& m_Source;
    Transfer m_Transfer;
    int m_IncrementCount;
    Patience m_Patience{m_Source.patience};
};

} // namespace

RunSummary RecordRun(const RunSource& source, const std::string& database)
{
    if (const std::optional<RunEnd> end = WaitForFile(source.caseFile, source))
    {
        return {.end = *end};
    }
    const solver::Case run = solver::ReadCase(source.caseFile.string());
    const std::filesystem::path folder = source.caseFile.parent_path();
    const std::filesystem::path meshFile = folder / run.meshFile;
    if (const std::optional<RunEnd> end = WaitForFile(meshFile, source))
    {
        return {.end = *end, .promisedIncrements = run.IncrementCount()};
    }

    const solver::Mesh mesh = solver::ReadMesh(meshFile.string());
    RunRecord record(database, run, source.command);
    record.WriteModel(mesh, solver::ReadGroups(meshFile.string() + "_desc"));

    RunSummary summary{.promisedIncrements = run.IncrementCount(), .hasDatabase = true};
    try
    {
        Follower follower(source, (folder / run.resultPrefix).string(), static_cast<int>(mesh.nodes.size()),
                          run.IncrementCount());
        summary.end = follower.Follow(record);
    }
    catch (...)
    {
        // Viewers would wait for ever for increments that never come.
        record.Finish(results::kFailed);
        throw;
    }
    summary.increments = record.IncrementCount();
    record.Finish(summary.end == RunEnd::Complete ? results::kComplete : results::kFailed);
    return summary;
}

} // namespace recorder
