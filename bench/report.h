// The one table of a run: times, ratios, and whether each goal was reached, all from what was measured.
#pragma once

#include "peers.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bench
{

/// Ours must take at most `factor` times what `peer` takes, and `seconds` more; without a peer the seconds alone.
struct Goal
{
    std::string_view text;
    std::string_view peer;
    double factor = 1;
    double seconds = 0;
};

struct Workload
{
    Kind kind;
    std::string_view name;
    std::string_view unit;
    /// What the bare figure is.
    std::string_view bare;
    std::vector<Goal> must;
    std::vector<Goal> aim;
    /// What is measured: seconds, or bytes of a file.
    bool isSize = false;
    /// Needs another host, or programs of peers: only when all are asked for.
    bool isExtra = false;
};

std::vector<Workload> AllWorkloads();

/// How many units one run does.
double UnitsOf(Kind kind, const Sizes& sizes);

/// The times of one contender, one per round, in seconds, or the sizes; none when it takes no part.
struct Measured
{
    std::vector<double> seconds;
    bool isWrong = false;
    bool hasFailed = false;

    bool Counts() const { return !seconds.empty() && !isWrong && !hasFailed; }
    double Median() const;
    /// Largest less smallest, as a part of the median.
    double Spread() const;
};

struct Result
{
    Workload workload;
    std::vector<Measured> peers;
};

void PrintHeader(const std::vector<Peer>& peers, const Setting& setting, int rounds);
void PrintTable(const std::vector<Peer>& peers, const std::vector<Result>& results, const Sizes& sizes);

} // namespace bench
