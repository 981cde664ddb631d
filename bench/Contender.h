// One peer doing one workload. The harness builds once, then in every round prepares, runs and verifies all
// contenders of a workload in turn, so that noise of the machine meets all of them alike.
#pragma once

#include "clock.h"
#include "workloads.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace bench
{

struct Setting
{
    std::filesystem::path directory;
    Sizes sizes;

    std::string File(const char* name) const { return (directory / name).string(); }
};

class Contender
{
public:
    Contender() = default;
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;
    virtual ~Contender() = default;

    /// Makes what all rounds need. Not timed.
    virtual void Build() {}
    /// Makes ready for one round: opens, or removes what the last round left. Not timed.
    virtual void Prepare(int round) = 0;
    /// Does the work. Result: the seconds that count.
    virtual double Run() = 0;
    /// The checksum of what the run saw or left behind, read back from the file where it wrote. Not timed.
    virtual std::uint64_t Verify() = 0;
};

/// Null when the peer takes no part in a workload of this kind.
using ContenderMaker = std::unique_ptr<Contender> (*)(Kind kind, const Setting& setting);

template <class Work> double SecondsOf(Work&& work)
{
    const double start = SecondsNow();
    work();
    return SecondsNow() - start;
}

} // namespace bench
