// rfm_microbench: the small steps that the workloads of rfm_bench are made of, one at a time.

#include "rfm_LinkageFormat.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <rfm.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

/// A new database in a temporary directory, removed with it.
class Scratch
{
public:
    Scratch()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "rfm_microbench.XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp: " + pattern);
        m_Directory = pattern;
        const std::string file = (m_Directory / "micro.rdx").string();
        m_Database = rfm_Database::Create(rfm_File::Open(file.c_str(), utl_FileAccessCreate), "MICR", "", 1);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch()
    {
        m_Database = rfm_Database();
        std::error_code failure;
        std::filesystem::remove_all(m_Directory, failure);
        if (failure) std::cerr << "rfm_microbench: " << failure.message() << "\n";
    }
    rfm_Database& Database() { return m_Database; }

private:
    std::filesystem::path m_Directory;
    rfm_Database m_Database;
};

rfm_Table MakeTable(rfm_Database& database)
{
    rfm_TableMetadata layout("rows", 1);
    layout.DefineIntField("number");
    layout.DefineDoubleField("value");
    layout.DefineStringField("text");
    return database.Table(database.Bind(layout), 1 << 20, 32);
}

void WriteFieldDouble(benchmark::State& state)
{
    Scratch scratch;
    rfm_Table table = MakeTable(scratch.Database());
    rfm_Row row = table.NewRow();
    const rfm_FieldHandle value(1);
    double number = 0;
    for ([[maybe_unused]] auto step : state) row.WriteFieldDouble(value, number += 1);
}
BENCHMARK(WriteFieldDouble);

void ReadFieldDouble(benchmark::State& state)
{
    Scratch scratch;
    rfm_Table table = MakeTable(scratch.Database());
    rfm_Row row = table.NewRow();
    const rfm_FieldHandle value(1);
    row.WriteFieldDouble(value, 1.5);
    for ([[maybe_unused]] auto step : state) benchmark::DoNotOptimize(row.ReadFieldDouble(value));
}
BENCHMARK(ReadFieldDouble);

/// The argument is how many different texts take turns.
void WriteFieldString(benchmark::State& state)
{
    Scratch scratch;
    rfm_Table table = MakeTable(scratch.Database());
    rfm_Row row = table.NewRow();
    const rfm_FieldHandle text(2);
    std::vector<cow_String> texts;
    texts.reserve(static_cast<std::size_t>(state.range(0)));
    for (int i = 0; i < state.range(0); ++i) texts.emplace_back(("text_number_" + std::to_string(i)).c_str());
    std::size_t next = 0;
    for ([[maybe_unused]] auto step : state)
    {
        row.WriteFieldString(text, texts[next]);
        if (++next == texts.size()) next = 0;
    }
}
BENCHMARK(WriteFieldString)->Arg(1)->Arg(1'000)->Arg(100'000);

void ReadFieldString(benchmark::State& state)
{
    Scratch scratch;
    rfm_Table table = MakeTable(scratch.Database());
    rfm_Row row = table.NewRow();
    const rfm_FieldHandle text(2);
    row.WriteFieldString(text, "a text");
    for ([[maybe_unused]] auto step : state) benchmark::DoNotOptimize(row.ReadFieldString(text));
}
BENCHMARK(ReadFieldString);

void NewRow(benchmark::State& state)
{
    Scratch scratch;
    rfm_Table table = MakeTable(scratch.Database());
    for ([[maybe_unused]] auto step : state)
    {
        table.NewRow();
        if (table.Length() < 1'000'000) continue;
        state.PauseTiming();
        table.Truncate(0);
        state.ResumeTiming();
    }
}
BENCHMARK(NewRow);

/// Single doubles through an array's buffer of 64 KiB.
void ArrayWriteOne(benchmark::State& state)
{
    Scratch scratch;
    auto array = scratch.Database().ArrayDouble(1, 1 << 20, 65'536);
    constexpr int kMost = 1'000'000;
    const double value = 1.5;
    int written = 0;
    for ([[maybe_unused]] auto step : state)
    {
        array.Write(&value, 1);
        if (++written % kMost == 0) array.Seek(0);
    }
}
BENCHMARK(ArrayWriteOne);

void DecodeLinkageBlock(benchmark::State& state)
{
    std::vector<char> block(rfm_LinkageBlockBytes);
    for (int i = 0; i < rfm_LinkageBlockEntries; ++i)
    {
        const rfm_LinkageEntry entry{.allocation = 816, .length = 816, .offset = 15'360 + 816LL * i};
        rfm_EncodeLinkageEntry(entry, false,
                               block.data() + static_cast<std::ptrdiff_t>(i) * rfm_LinkageEntryBytes);
    }
    rfm_LinkageEntry entry;
    for ([[maybe_unused]] auto step : state)
    {
        for (int i = 0; i < rfm_LinkageBlockEntries; ++i)
        {
            const char* bytes = block.data() + static_cast<std::ptrdiff_t>(i) * rfm_LinkageEntryBytes;
            benchmark::DoNotOptimize(rfm_DecodeLinkageEntry(bytes, false, entry));
        }
    }
    state.SetItemsProcessed(state.iterations() * rfm_LinkageBlockEntries);
}
BENCHMARK(DecodeLinkageBlock);

} // namespace

BENCHMARK_MAIN();
