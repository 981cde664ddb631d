// Records a run of the solver in a database while it runs: the model once, then each increment as soon as the
// solver has written it, so that viewers can follow.
#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

namespace recorder
{

/// The run is over, and it is not what its case promises.
class RunFailed : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A file of the run is not there and will not come.
class MissingFile : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What is recorded, and until when.
struct RunSource
{
    std::filesystem::path caseFile; ///< the solver's own data file; its results appear in the same folder
    /// Made by whoever started the solver, when it has ended, and holds its exit code: files that have stopped
    /// growing look the same whether the solver is at work, done, or dead. Empty: none; then the case file is there
    /// already, and the run ends with the last increment that it promises.
    std::filesystem::path statusFile;
    std::string command;             ///< kept as the run's provenance
    double patience = -1;            ///< seconds without anything new; below 0 without end
    std::function<bool()> isStopped; ///< asked all the time
};

enum class RunEnd
{
    Complete,
    TimedOut,
    Stopped
};

struct RunSummary
{
    RunEnd end = RunEnd::Complete;
    int increments = 0;         ///< that were recorded
    int promisedIncrements = 0; ///< by the case
    bool hasDatabase = false;   ///< false when it ended before the files of the case were there
};

/// Makes the database anew and follows the run to its end. The database tells viewers how that was: "complete" for
/// RunEnd::Complete, and "failed" for everything else, whether it is an answer or an exception.
/// Throws: RunFailed, MissingFile, solver::FileError, and what the library says of the database.
RunSummary RecordRun(const RunSource& source, const std::string& database);

} // namespace recorder
