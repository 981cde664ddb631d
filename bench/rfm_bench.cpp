// rfm_bench: runs the workloads against all peers and prints one table.

#include "report.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace
{

using namespace bench;

constexpr const char* kUsage =
    "usage: rfm_bench [--all] [--only NAME]... [--peer NAME]... [--rounds N] [--scale F] [--cpu]\n"
    "                 [--dir DIRECTORY] [--list]\n"
    "  --all            remote files and the tool as well\n"
    "  --only NAME      only this workload; may be given again\n"
    "  --peer NAME      beside rfm only this peer; may be given again\n"
    "  --rounds N       rounds per workload, 3 when not given\n"
    "  --scale F        multiplies all counts, for quick runs\n"
    "  --cpu            counts processor time, for a machine that others use too\n"
    "  --dir DIRECTORY  where a directory for the files is made and removed again\n"
    "  --list           the names of the workloads\n";

struct UsageError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

struct Options
{
    std::vector<std::string> only;
    std::vector<std::string> peers;
    int rounds = 3;
    double scale = 1;
    std::filesystem::path directory = RFM_BENCH_DIRECTORY;
    bool all = false;
    bool list = false;
    bool cpu = false;
    bool help = false;
};

template <class Number> Number ParseNumber(const std::string& option, const std::string& text)
{
    Number number{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number <= 0)
        throw UsageError(option + ": not a positive number: " + text);
    return number;
}

Options ParseOptions(int count, char** words)
{
    Options options;
    int at = 1;
    const auto value = [&](const std::string& option) -> std::string
    {
        if (at >= count) throw UsageError(option + ": a value is missing");
        return words[at++];
    };
    while (at < count)
    {
        const std::string word = words[at++];
        if (word == "--only")
            options.only.push_back(value(word));
        else if (word == "--peer")
            options.peers.push_back(value(word));
        else if (word == "--rounds")
            options.rounds = ParseNumber<int>(word, value(word));
        else if (word == "--scale")
            options.scale = ParseNumber<double>(word, value(word));
        else if (word == "--dir")
            options.directory = value(word);
        else if (word == "--all")
            options.all = true;
        else if (word == "--cpu")
            options.cpu = true;
        else if (word == "--list")
            options.list = true;
        else if (word == "--help" || word == "-h")
            options.help = true;
        else
            throw UsageError("unknown option: " + word);
    }
    return options;
}

bool Contains(const std::vector<std::string>& names, std::string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::vector<Workload> ChosenWorkloads(const Options& options)
{
    std::vector<Workload> all = AllWorkloads();
    for (const std::string& name : options.only)
    {
        const bool isKnown =
            std::any_of(all.begin(), all.end(), [&](const Workload& each) { return each.name == name; });
        if (!isKnown) throw UsageError("no such workload: " + name + "; --list names them");
    }
    if (!options.only.empty())
    {
        std::erase_if(all, [&](const Workload& each) { return !Contains(options.only, each.name); });
    }
    else if (!options.all)
    {
        std::erase_if(all, [](const Workload& each) { return each.isExtra; });
    }
    return all;
}

std::vector<Peer> ChosenPeers(const Options& options)
{
    std::vector<Peer> peers = AllPeers();
    if (options.peers.empty()) return peers;
    std::erase_if(peers, [&](const Peer& peer)
                  { return peer.name != "rfm" && !Contains(options.peers, peer.name); });
    return peers;
}

/// A directory for the files of a run, removed with all that is in it.
class ScratchDirectory
{
public:
    explicit ScratchDirectory(const std::filesystem::path& parent)
    {
        std::string pattern = (parent / "rfm_bench.XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
        {
            throw std::runtime_error(pattern + ": " + std::strerror(errno));
        }
        m_Path = pattern;
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory()
    {
        std::error_code failure;
        std::filesystem::remove_all(m_Path, failure);
        if (failure) std::cerr << "rfm_bench: " << m_Path << ": " << failure.message() << "\n";
    }
    const std::filesystem::path& Path() const { return m_Path; }

private:
    std::filesystem::path m_Path;
};

/// Runs a step of a contender that is still in the race. What fails is said, and costs only its own cell of the table.
template <class Step> void Attempt(Measured& measured, const Peer& peer, Step&& step)
{
    if (measured.hasFailed) return;
    try
    {
        step();
    }
    catch (const std::exception& failure)
    {
        std::cerr << "rfm_bench: " << peer.name << ": " << failure.what() << "\n";
        measured.hasFailed = true;
    }
}

void RunOnce(Contender& contender, int round, std::uint64_t expected, Measured& measured)
{
    contender.Prepare(round);
    const double seconds = contender.Run();
    if (contender.Verify() != expected) measured.isWrong = true;
    measured.seconds.push_back(seconds);
}

Result RunWorkload(const Workload& workload, const std::vector<Peer>& peers, const Options& options,
                   const Sizes& sizes)
{
    const ScratchDirectory scratch(options.directory);
    const Setting setting{.directory = scratch.Path(), .sizes = sizes};
    Result result{.workload = workload, .peers = std::vector<Measured>(peers.size())};
    std::vector<std::unique_ptr<Contender>> contenders;
    for (std::size_t i = 0; i < peers.size(); ++i)
    {
        contenders.push_back(peers[i].make != nullptr ? peers[i].make(workload.kind, setting) : nullptr);
        if (contenders[i] != nullptr) Attempt(result.peers[i], peers[i], [&] { contenders[i]->Build(); });
    }
    for (int round = 0; round < options.rounds; ++round)
    {
        const std::uint64_t expected = ExpectedSum(workload.kind, sizes, round);
        for (std::size_t i = 0; i < contenders.size(); ++i)
        {
            if (contenders[i] == nullptr) continue;
            Attempt(result.peers[i], peers[i],
                    [&] { RunOnce(*contenders[i], round, expected, result.peers[i]); });
        }
    }
    return result;
}

bool AnythingWrong(const std::vector<Result>& results)
{
    return std::any_of(results.begin(), results.end(),
                       [](const Result& result)
                       {
                           return std::any_of(result.peers.begin(), result.peers.end(),
                                              [](const Measured& measured)
                                              { return measured.isWrong || measured.hasFailed; });
                       });
}

int RunAll(const Options& options)
{
    const std::vector<Workload> workloads = ChosenWorkloads(options);
    const std::vector<Peer> peers = ChosenPeers(options);
    const Sizes sizes = Sizes().Scaled(options.scale);
    if (options.cpu) CountProcessorTime();
    PrintHeader(peers, {.directory = options.directory, .sizes = sizes}, options.rounds);
    std::vector<Result> results;
    for (const Workload& workload : workloads)
    {
        std::cerr << workload.name << " ...\n";
        results.push_back(RunWorkload(workload, peers, options, sizes));
    }
    PrintTable(peers, results, sizes);
    return AnythingWrong(results) ? 1 : 0;
}

int ListWorkloads()
{
    for (const Workload& workload : AllWorkloads()) std::printf("%s\n", std::string(workload.name).c_str());
    return 0;
}

} // namespace

int main(int count, char** words)
{
    try
    {
        const Options options = ParseOptions(count, words);
        if (options.help) return std::fputs(kUsage, stdout) < 0 ? 1 : 0;
        return options.list ? ListWorkloads() : RunAll(options);
    }
    catch (const UsageError& failure)
    {
        std::cerr << "rfm_bench: " << failure.what() << "\n" << kUsage;
        return 2;
    }
    catch (const std::exception& failure)
    {
        std::cerr << "rfm_bench: " << failure.what() << "\n";
        return 1;
    }
}
