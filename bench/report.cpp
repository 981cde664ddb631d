#include "report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace bench
{

namespace
{

/// Zlib sets another goal than libdeflate does.
#ifdef RFM_BENCH_LIBDEFLATE
constexpr bool kDeflaterIsFast = true;
#else
constexpr bool kDeflaterIsFast = false;
#endif

template <class... Values> std::string Print(const char* format, Values... values)
{
    std::array<char, 256> text{};
    const int length = std::snprintf(text.data(), text.size(), format, values...);
    return {text.data(), std::min(static_cast<std::size_t>(length), text.size() - 1)};
}

/// Three digits and a unit that fits.
std::string TimeText(double seconds)
{
    struct Scale
    {
        double factor;
        const char* unit;
    };
    static constexpr std::array<Scale, 4> kScales = {{{1, "s"}, {1e3, "ms"}, {1e6, "us"}, {1e9, "ns"}}};
    const Scale* chosen = kScales.data();
    for (const Scale& scale : kScales)
    {
        chosen = &scale;
        if (seconds * scale.factor >= 1) break;
    }
    const double value = seconds * chosen->factor;
    return Print(value < 10 ? "%.2f %s" : value < 100 ? "%.1f %s" : "%.0f %s", value, chosen->unit);
}

std::string CellOf(const Measured& measured, const Result& result, double units)
{
    const Measured& ours = result.peers.front();
    if (measured.hasFailed) return "FAILED";
    if (measured.seconds.empty()) return "-";
    if (measured.isWrong) return "WRONG DATA";
    const double perUnit = measured.Median() / units;
    std::string value = result.workload.isSize ? Print("%.3f", perUnit) : TimeText(perUnit);
    if (&measured == &ours) return value;
    if (!ours.Counts()) return value;
    return value + Print(" (%.2f)", measured.Median() / ours.Median());
}

const Measured* FindPeer(const std::vector<Peer>& peers, const Result& result, std::string_view name)
{
    for (std::size_t i = 0; i < peers.size(); ++i)
    {
        if (peers[i].name == name && !result.peers[i].seconds.empty()) return &result.peers[i];
    }
    return nullptr;
}

/// "5x SQLite yes": the ratio that was measured stands in the peer's own column.
std::string GoalText(const std::vector<Peer>& peers, const Result& result, const std::vector<Goal>& goals)
{
    std::string text;
    for (const Goal& goal : goals)
    {
        const Measured* peer = FindPeer(peers, result, goal.peer);
        const Measured& ours = result.peers.front();
        const bool isKnown = ours.Counts() && (goal.peer.empty() || (peer != nullptr && peer->Counts()));
        const char* answer = "not measured";
        if (isKnown)
        {
            const double limit = (peer == nullptr ? 0 : goal.factor * peer->Median()) + goal.seconds;
            answer = ours.Median() <= limit ? "yes" : "NO";
        }
        if (!text.empty()) text += ", ";
        text += std::string(goal.text) + ": " + answer;
    }
    return text;
}

std::string CpuName()
{
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);)
    {
        const std::size_t colon = line.find(": ");
        if (line.starts_with("model name") && colon != std::string::npos) return line.substr(colon + 2);
    }
    return "unknown processor";
}

void PrintRows(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& row : rows)
    {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : rows)
    {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
        {
            line += row[i];
            if (i + 1 < row.size()) line += std::string(widths[i] - row[i].size() + 2, ' ');
        }
        std::printf("%s\n", line.c_str());
    }
}

} // namespace

double Measured::Median() const
{
    std::vector<double> sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    const std::size_t middle = sorted.size() / 2;
    return sorted.size() % 2 == 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

double Measured::Spread() const
{
    const auto [least, most] = std::minmax_element(seconds.begin(), seconds.end());
    return (*most - *least) / Median();
}

std::vector<Workload> AllWorkloads()
{
    return {
        {.kind = Kind::Append,
         .name = "append",
         .unit = "row",
         .bare = "write() of the packed rows, 256 KiB a call",
         .must = {{"5x SQLite", "SQLite", 1 / 5.0}, {"10x HDF5", "HDF5", 1 / 10.0}},
         .aim = {{"LMDB", "LMDB", 1}}},
        {.kind = Kind::Scan,
         .name = "scan",
         .unit = "row",
         .bare = "read() of the packed rows, 256 KiB a call",
         .must = {{"3x SQLite", "SQLite", 1 / 3.0}},
         .aim = {{"LMDB / 2", "LMDB", 2}}},
        {.kind = Kind::RandomRead,
         .name = "random-read",
         .unit = "row",
         .bare = "one pread() per row",
         .must = {{"2x SQLite", "SQLite", 1 / 2.0}, {"LMDB", "LMDB", 1}},
         .aim = {{"bare / 1.5", "bare", 1.5}}},
        {.kind = Kind::RandomUpdate,
         .name = "random-update",
         .unit = "row",
         .bare = "one pread() and one pwrite() per row",
         .must = {{"3x SQLite", "SQLite", 1 / 3.0}, {"LMDB", "LMDB", 1}},
         .aim = {{"bare / 1.2", "bare", 1.2}}},
        {.kind = Kind::BulkWrite,
         .name = "bulk-write",
         .unit = "MiB",
         .bare = "write(), 1 MiB a call",
         .must = {{"HDF5", "HDF5", 1}},
         .aim = {{"0.95 bare", "bare", 1 / 0.95}}},
        {.kind = Kind::BulkRead,
         .name = "bulk-read",
         .unit = "MiB",
         .bare = "read(), 1 MiB a call",
         .must = {{"HDF5", "HDF5", 1}},
         .aim = {{"0.95 bare", "bare", 1 / 0.95}}},
        {.kind = Kind::SmallWrite,
         .name = "small-write",
         .unit = "array",
         .bare = "one pwrite() per array",
         .must = {{"2x SQLite", "SQLite", 1 / 2.0}, {"15x HDF5", "HDF5", 1 / 15.0}},
         .aim = {{"LMDB", "LMDB", 1}}},
        {.kind = Kind::SmallRead,
         .name = "small-read",
         .unit = "array",
         .bare = "one pread() per array",
         .must = {{"2x SQLite", "SQLite", 1 / 2.0}, {"15x HDF5", "HDF5", 1 / 15.0}},
         .aim = {{"LMDB", "LMDB", 1}}},
        {.kind = Kind::OpenObjects,
         .name = "open-objects",
         .unit = "open",
         .bare = "open(), pread() of the header, every linkage block and one array, close()",
         .must = {{"SQLite / 2", "SQLite", 2}},
         .aim = {{"bare / 1.5", "bare", 1.5}}},
        {.kind = Kind::OpenStrings,
         .name = "open-strings",
         .unit = "open",
         .bare = "open(), one read() of the pool's bytes into new memory, close()",
         .must = {{"bare / 3", "bare", 3}},
         .aim = {{"bare / 1.5", "bare", 1.5}}},
        {.kind = Kind::Intern,
         .name = "intern",
         .unit = "string",
         .bare = "an open-addressing hash table in memory, no file",
         .must = {{"4x SQLite", "SQLite", 1 / 4.0}, {"2x LMDB", "LMDB", 1 / 2.0}},
         .aim = {{"bare / 1.5", "bare", 1.5}}},
        {.kind = Kind::Visible,
         .name = "flush-to-visible",
         .unit = "flush",
         .bare = "pwrite() of the rows, then of a count that the reader polls with pread()",
         .must = {{"2x HDF5", "HDF5", 1 / 2.0}},
         .aim = {{"SQLite", "SQLite", 1}}},
        {.kind = Kind::Followed,
         .name = "followed-writer",
         .unit = "row",
         .bare = "our own writer with no readers",
         .must = {{"0.9 of its rate alone", "bare", 1 / 0.9}},
         .aim = {{"0.97", "bare", 1 / 0.97}}},
        {.kind = Kind::CompressedWrite,
         .name = "compressed-write",
         .unit = "MiB",
         .bare = "pieces of 64 KiB deflated in memory, one pwrite() per stream",
         .must = {kDeflaterIsFast ? Goal{"2.5x HDF5", "HDF5", 1 / 2.5} : Goal{"HDF5", "HDF5", 1}},
         .aim = {{"0.95 BGZF", "BGZF", 1 / 0.95}}},
        {.kind = Kind::CompressedRead,
         .name = "compressed-read",
         .unit = "MiB",
         .bare = "one pread() and one inflate per stream",
         .must = {{"2x HDF5", "HDF5", 1 / 2.0}},
         .aim = {{"BGZF", "BGZF", 1}}},
        {.kind = Kind::CompressedRandom,
         .name = "compressed-random",
         .unit = "read",
         .bare = "one pread() and one inflate of the stream that holds the row",
         .must = {{"2x HDF5", "HDF5", 1 / 2.0}},
         .aim = {{"BGZF", "BGZF", 1}, {"bare / 1.1", "bare", 1.1}}},
        {.kind = Kind::CompressedSize,
         .name = "compressed-size",
         .unit = "byte",
         .bare = "the streams alone, by zlib",
         .must = {{"bare + 8 %", "bare", 1.08}},
         .aim = {{"bare + 5 %", "bare", 1.05}},
         .isSize = true},
        {.kind = Kind::CompressedAppend,
         .name = "compressed-append",
         .unit = "row",
         .bare = "our own writer on a plain file",
         .must = {{"0.3 of plain", "bare", 1 / 0.3}, {"or bound by deflate", "deflate", 2}},
         .aim = {}},
        {.kind = Kind::CompressedScan,
         .name = "compressed-scan",
         .unit = "row",
         .bare = "our own reader on a plain file",
         .must = {{"0.5 of plain", "bare", 1 / 0.5}, {"or bound by deflate", "deflate", 2}},
         .aim = {}},
        {.kind = Kind::HdfWrite,
         .name = "hdf-write",
         .unit = "MiB",
         .bare = "write(), 1 MiB a call",
         .must = {{"0.7 HDF5", "HDF5", 1 / 0.7}},
         .aim = {{"0.95 HDF5", "HDF5", 1 / 0.95}}},
        {.kind = Kind::HdfRead,
         .name = "hdf-read",
         .unit = "MiB",
         .bare = "read(), 1 MiB a call",
         .must = {{"0.7 HDF5", "HDF5", 1 / 0.7}},
         .aim = {{"0.95 HDF5", "HDF5", 1 / 0.95}}},
        {.kind = Kind::HdfAppend,
         .name = "hdf-append",
         .unit = "row",
         .bare = "our own writer on a plain file",
         .must = {{"0.15 of plain", "bare", 1 / 0.15}},
         .aim = {{"0.3", "bare", 1 / 0.3}}},
        {.kind = Kind::HdfScan,
         .name = "hdf-scan",
         .unit = "row",
         .bare = "our own reader on a plain file",
         .must = {{"0.15 of plain", "bare", 1 / 0.15}},
         .aim = {{"0.3", "bare", 1 / 0.3}}},
        {.kind = Kind::RemoteRead,
         .name = "remote-read",
         .unit = "MiB",
         .bare = "one pread() for each MiB of a local file",
         .must = {{"0.7 ssh cat", "ssh", 1 / 0.7}},
         .aim = {{"ssh cat", "ssh", 1}},
         .isExtra = true},
        {.kind = Kind::RemoteCold,
         .name = "remote-cold",
         .unit = "read",
         .bare = "our own reader, all of the remote file once in sequence",
         .must = {{"whole file", "bare", 1}},
         .aim = {{"sftp / 2", "ssh", 2}},
         .isExtra = true},
        {.kind = Kind::RemoteWarm,
         .name = "remote-warm",
         .unit = "read",
         .bare = "one pread() of a local file for each",
         .must = {{"10x sftp", "ssh", 1 / 10.0}},
         .aim = {{"bare / 2", "bare", 2}},
         .isExtra = true},
        {.kind = Kind::ToolStart,
         .name = "tool-start",
         .unit = "start",
         .bare = "a process that does nothing, true",
         .must = {{"true + 5 ms", "bare", 1, 5e-3}},
         .aim = {},
         .isExtra = true},
        {.kind = Kind::ToolInfo,
         .name = "tool-info",
         .unit = "start",
         .bare = "true",
         .must = {{"3 true + 2 ms", "bare", 3, 2e-3}, {"sqlite3 / 2", "SQLite", 2}},
         .aim = {},
         .isExtra = true},
        {.kind = Kind::ToolList,
         .name = "tool-list",
         .unit = "start",
         .bare = "true",
         .must = {{"3 true + 2 ms", "bare", 3, 2e-3}, {"sqlite3 / 2", "SQLite", 2}},
         .aim = {},
         .isExtra = true},
        {.kind = Kind::ToolTable,
         .name = "tool-table",
         .unit = "row",
         .bare = "nothing",
         .must = {{"sqlite3", "SQLite", 1}},
         .aim = {},
         .isExtra = true},
        {.kind = Kind::ToolArray,
         .name = "tool-array",
         .unit = "double",
         .bare = "nothing",
         .must = {{"10x h5dump", "HDF5", 1 / 10.0}},
         .aim = {},
         .isExtra = true},
        {.kind = Kind::ToolFollow,
         .name = "tool-follow",
         .unit = "flush",
         .bare = "nothing; ours is the slowest of all flushes",
         .must = {{"100 ms", "", 0, 0.1}},
         .aim = {},
         .isExtra = true},
        {.kind = Kind::ToolFollowed,
         .name = "tool-followed",
         .unit = "row",
         .bare = "our own writer with nobody following",
         .must = {{"2 % slower", "bare", 1.02}},
         .aim = {},
         .isExtra = true},
    };
}

double UnitsOf(Kind kind, const Sizes& sizes)
{
    switch (kind)
    {
    case Kind::Append:
    case Kind::Scan:
    case Kind::CompressedAppend:
    case Kind::CompressedScan:
    case Kind::HdfAppend:
    case Kind::HdfScan:
    case Kind::Followed: return sizes.rowCount;
    case Kind::RandomRead:
    case Kind::RandomUpdate: return sizes.randomCount;
    case Kind::BulkWrite:
    case Kind::BulkRead: return sizes.blockCount;
    case Kind::SmallWrite:
    case Kind::SmallRead: return sizes.objectCount;
    case Kind::Intern: return sizes.internCount;
    case Kind::OpenObjects:
    case Kind::OpenStrings:
    case Kind::Visible: return 1;
    case Kind::CompressedWrite:
    case Kind::CompressedRead:
    case Kind::HdfWrite:
    case Kind::HdfRead: return sizes.fieldBlockCount;
    case Kind::CompressedRandom: return sizes.fieldRandomCount;
    case Kind::RemoteRead: return sizes.remoteBlockCount;
    case Kind::RemoteCold:
    case Kind::RemoteWarm: return sizes.remoteRandomCount;
    case Kind::CompressedSize: return static_cast<double>(sizes.fieldBlockCount) * kBlockBytes;
    case Kind::ToolStart:
    case Kind::ToolInfo:
    case Kind::ToolList:
    case Kind::ToolFollow: return 1;
    case Kind::ToolTable: return sizes.toolRowCount;
    case Kind::ToolArray: return sizes.toolArrayDoubles;
    case Kind::ToolFollowed: return sizes.rowCount;
    }
    return 1;
}

void PrintHeader(const std::vector<Peer>& peers, const Setting& setting, int rounds)
{
    const Sizes& sizes = setting.sizes;
    utsname system{};
    ::uname(&system);
    std::printf("machine:  %s, %u processors, %s %s\n", CpuName().c_str(),
                std::thread::hardware_concurrency(), system.sysname, system.release);
    std::printf("build:    %s, %s\n", RFM_BENCH_COMPILER, RFM_BENCH_BUILD);
    for (const Peer& peer : peers) std::printf("%-9s %s\n", (peer.name + ":").c_str(), peer.note.c_str());
    std::printf("rows:     %d of 8 fields (2 int, 4 double, 1 float, 1 text out of %d); random: %d of them\n",
                sizes.rowCount, kTextCount, sizes.randomCount);
    std::printf(
        "bulk:     %d calls of 1 MiB of doubles; small: %d arrays of %d doubles; open: %d arrays, or %d "
        "distinct strings\n",
        sizes.blockCount, sizes.objectCount, kObjectDoubles, sizes.openObjectCount, sizes.stringCount);
    std::printf("interned: %d strings, each distinct one %d times\n", sizes.internCount, kInternRepeats);
    std::printf(
        "live:     %d flushes of %d rows to one reader that polls without pause; %d rows, a flush every %d, "
        "%d readers that look every %d ms at the newest %d rows\n",
        sizes.flushCount, sizes.rowsPerFlush, sizes.rowCount, sizes.followedRowsPerFlush, sizes.readerCount,
        sizes.readerPauseMilliseconds, sizes.readerNewest);
    std::printf(
        "field:    %d MiB, three quarters doubles (single precision and 16 bits of noise), one connectivity; "
        "random: %d reads of %d bytes of the doubles\n",
        sizes.fieldBlockCount, sizes.fieldRandomCount, kFieldRowBytes);
    std::printf(
        "remote:   %d MiB on a host that is this one, through an sshd of the run's own; random: %d reads of "
        "%d bytes, the first time (cold) and again (warm); logging in and opening are not timed\n",
        sizes.remoteBlockCount, sizes.remoteRandomCount, kFieldRowBytes);
    std::printf("tool:     whole processes: ls and info of %d arrays of %d doubles, %d starts; %d rows of 5 "
                "fields and "
                "%d doubles as CSV; follow: %d flushes at any moment, and the rows of live\n",
                sizes.toolObjectCount, sizes.toolObjectDoubles, sizes.toolStarts, sizes.toolRowCount,
                sizes.toolArrayDoubles, sizes.toolFlushCount);
    std::printf("rules:    medians of %d rounds, the peers in turn within each; data in the page cache; "
                "nobody syncs; "
                "every result checked by checksum\n",
                rounds);
    if (CountsProcessorTime())
        std::printf("          times are on processors, of this process with all its threads and of those "
                    "that it waited "
                    "for, but for flush-to-visible\n");
    std::printf("          times per unit; in parentheses the peer's time or size over ours: above 1 ours is "
                "faster or smaller\n\n");
}

void PrintTable(const std::vector<Peer>& peers, const std::vector<Result>& results, const Sizes& sizes)
{
    std::vector<std::vector<std::string>> rows(1, {"workload", "unit"});
    for (const Peer& peer : peers) rows.front().push_back(peer.name);
    rows.front().insert(rows.front().end(), {"spread", "must", "aim"});
    for (const Result& result : results)
    {
        const Measured& ours = result.peers.front();
        std::vector<std::string> row{std::string(result.workload.name), std::string(result.workload.unit)};
        const double units = UnitsOf(result.workload.kind, sizes);
        for (const Measured& measured : result.peers) row.push_back(CellOf(measured, result, units));
        row.push_back(!ours.Counts() ? "-" : Print("%.0f %%", 100 * ours.Spread()));
        row.push_back(GoalText(peers, result, result.workload.must));
        row.push_back(GoalText(peers, result, result.workload.aim));
        rows.push_back(row);
    }
    PrintRows(rows);
    std::printf("\nwhat \"bare\" is:\n");
    for (const Result& result : results)
    {
        std::printf("  %-17s %s\n", std::string(result.workload.name).c_str(),
                    std::string(result.workload.bare).c_str());
    }
}

} // namespace bench
