// What every contender writes, reads and must find again: the sizes, the data and its checksums. The data comes
// from arithmetic on the position, so that making it costs all contenders the same few nanoseconds.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace bench
{

enum class Kind
{
    Append,
    Scan,
    RandomRead,
    RandomUpdate,
    BulkWrite,
    BulkRead,
    SmallWrite,
    SmallRead,
    OpenObjects,
    OpenStrings,
    Intern,
    Visible,
    Followed,
    CompressedWrite,
    CompressedRead,
    CompressedRandom,
    CompressedSize,
    CompressedAppend,
    CompressedScan,
    HdfWrite,
    HdfRead,
    HdfAppend,
    HdfScan,
    RemoteRead,
    RemoteCold,
    RemoteWarm,
    ToolStart,
    ToolInfo,
    ToolList,
    ToolTable,
    ToolArray,
    ToolFollow,
    ToolFollowed,
};

struct Sizes
{
    int rowCount = 1'000'000;
    int randomCount = 200'000;
    int blockCount = 512;
    int objectCount = 20'000;
    int openObjectCount = 10'000;
    int openRepeats = 40;
    int stringCount = 1'000'000;
    int internCount = 1'000'000;
    int flushCount = 400;
    int rowsPerFlush = 10;
    int followedRowsPerFlush = 1'000;
    int readerCount = 4;
    int readerPauseMilliseconds = 20;
    int readerNewest = 1'000;
    int fieldBlockCount = 256;
    int fieldRandomCount = 20'000;
    int remoteBlockCount = 256;
    int remoteRandomCount = 2'000;
    int toolStarts = 20;
    int toolObjectCount = 100;
    int toolObjectDoubles = 150'000;
    int toolRowCount = 100'000;
    int toolArrayDoubles = 15'000'000;
    int toolFlushCount = 100;

    /// The same work with every count multiplied by `factor`, never below what exercises each path.
    Sizes Scaled(double factor) const;
};

inline constexpr int kTextCount = 1'000;
inline constexpr int kBlockDoubles = 131'072;
inline constexpr int kBlockBytes = kBlockDoubles * 8;
inline constexpr int kObjectDoubles = 100;
inline constexpr int kObjectBytes = kObjectDoubles * 8;
inline constexpr int kInternRepeats = 10;

/// One row of 8 fields: 2 int, 4 double, 1 float, 1 short text out of `kTextCount`.
struct Row
{
    int number = 0;
    int group = 0;
    std::array<double, 4> values{};
    float weight = 0;
    int textIndex = 0;
    std::string_view text;
};

inline std::uint64_t Mix(std::uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}

/// The texts of the rows, 8 to 15 bytes each.
const std::vector<std::string>& RowTexts();

inline Row RowAt(int position)
{
    const std::uint64_t mixed = Mix(static_cast<std::uint64_t>(position) + 1);
    const double base = position * 0.5;
    Row row;
    row.number = position;
    row.group = static_cast<int>(mixed >> 40);
    row.values = {base, base + 1, base - 3, static_cast<double>(mixed >> 12)};
    row.weight = static_cast<float>(position) * 0.25F;
    row.textIndex = static_cast<int>(mixed % kTextCount);
    row.text = RowTexts()[static_cast<std::size_t>(row.textIndex)];
    return row;
}

/// The row that the random operation `step` goes to.
inline int RandomPosition(int step, int rowCount)
{
    return static_cast<int>(Mix(static_cast<std::uint64_t>(step) + 77) %
                            static_cast<std::uint64_t>(rowCount));
}

/// An update sets `number` and `values[0]` of one row and leaves the rest.
inline void ApplyUpdate(Row& row, int step, int round)
{
    row.number = step;
    row.values[0] = step + 1000.0 * round;
}

/// Sums up at least 8 bytes of text by its first and last 8 bytes and its length.
inline std::uint64_t TextSum(std::string_view text)
{
    std::uint64_t head = 0;
    std::uint64_t tail = 0;
    if (text.size() < 8) return text.size();
    std::memcpy(&head, text.data(), 8);
    std::memcpy(&tail, text.data() + text.size() - 8, 8);
    return head * 3 + tail * 7 + text.size();
}

/// A row at the wrong place, or a field in the wrong column, changes the sum.
inline std::uint64_t RowSum(const Row& row, int position)
{
    std::uint64_t sum = static_cast<std::uint32_t>(row.number) * 3ULL;
    sum += static_cast<std::uint32_t>(row.group) * 5ULL;
    sum += std::bit_cast<std::uint64_t>(row.values[0]) * 7;
    sum += std::bit_cast<std::uint64_t>(row.values[1]) * 11;
    sum += std::bit_cast<std::uint64_t>(row.values[2]) * 13;
    sum += std::bit_cast<std::uint64_t>(row.values[3]) * 17;
    sum += std::bit_cast<std::uint32_t>(row.weight) * 19ULL;
    sum += TextSum(row.text) * 23;
    return sum * (2 * static_cast<std::uint64_t>(position) + 1);
}

/// The sum of `count` rows from `first` on, as they were appended.
std::uint64_t RowsSum(int first, int count);
/// The sum of all rows after the updates of one round.
std::uint64_t UpdatedRowsSum(const Sizes& sizes, int round);
/// The sum of what the random reads see.
std::uint64_t RandomRowsSum(const Sizes& sizes);

/// The bulk blocks differ in a few places only, so that making one costs no pass over its megabyte.
class BlockMaker
{
public:
    BlockMaker();
    const double* Block(int index);

private:
    std::vector<double> m_Values;
};

/// Every 64th double of a block, so that summing hardly dilutes what the transfer costs.
inline std::uint64_t BlockSum(const double* values, int index)
{
    std::uint64_t sum = 0;
    for (int i = 0; i < kBlockDoubles; i += 64) sum += std::bit_cast<std::uint64_t>(values[i]);
    return sum * (2 * static_cast<std::uint64_t>(index) + 1);
}
std::uint64_t BlocksSum(int count);

inline constexpr int kFieldRowBytes = 4'096;
inline constexpr int kFieldRowDoubles = kFieldRowBytes / 8;
inline constexpr int kFieldRowInts = kFieldRowBytes / 4;
inline constexpr int kFieldRowsPerBlock = kBlockBytes / kFieldRowBytes;

/// Of the blocks of a field the first three quarters are results, the rest is connectivity.
inline int ResultBlocks(int blockCount) { return blockCount - blockCount / 4; }
inline int ResultRows(int blockCount) { return ResultBlocks(blockCount) * kFieldRowsPerBlock; }

/// Field data as analyses write it, `kBlockBytes` a block. Results are doubles that run smoothly to single precision
/// and are noise in their last 16 bits; connectivity is the 8 nodes of each brick of a mesh. What is returned holds
/// until the next call. Blocks come from a small stock and differ in a few places only: making one costs no time, and
/// a compressor sees no more of its past than 32 KiB.
const void* FieldBlock(int index, int blockCount);

/// The sum of every `stride`th 8 bytes.
inline std::uint64_t FieldSum(const void* bytes, int byteCount, int stride, int position)
{
    std::uint64_t sum = 0;
    for (int at = 0; at < byteCount; at += 8 * stride)
    {
        std::uint64_t word = 0;
        std::memcpy(&word, static_cast<const char*>(bytes) + at, sizeof(word));
        sum += word;
    }
    return sum * (2 * static_cast<std::uint64_t>(position) + 1);
}
inline std::uint64_t FieldBlockSum(const void* block, int index)
{
    return FieldSum(block, kBlockBytes, 64, index);
}
inline std::uint64_t FieldRowSum(const void* row, int step) { return FieldSum(row, kFieldRowBytes, 8, step); }

inline void FillObject(int index, double* values)
{
    for (int i = 0; i < kObjectDoubles; ++i) values[i] = index + i * 0.125;
}
inline std::uint64_t ObjectSum(const double* values, int index)
{
    std::uint64_t sum = 0;
    for (int i = 0; i < kObjectDoubles; ++i) sum += std::bit_cast<std::uint64_t>(values[i]);
    return sum * (2 * static_cast<std::uint64_t>(index) + 1);
}
std::uint64_t ObjectsSum(int count);

/// What the tool writes out: quarters, so that a sum of them is exact.
struct ToolRow
{
    int number = 0;
    int part = 0;
    double x = 0;
    double y = 0;
    std::string zone;
};
ToolRow ToolRowAt(int position);
inline double ToolArrayValue(int position) { return position % kBlockDoubles * 0.25; }

/// A text that no other index has, 16 to 22 bytes.
std::string DistinctText(int index);

/// Texts to intern: each of the distinct ones `kInternRepeats` times, shuffled.
struct InternInput
{
    std::vector<std::string> distinct;
    std::vector<int> sequence;
};
InternInput MakeInternInput(int count);
std::uint64_t InternSum(const InternInput& input);

/// What the workload's verification must give in round `round`.
std::uint64_t ExpectedSum(Kind kind, const Sizes& sizes, int round);

} // namespace bench
