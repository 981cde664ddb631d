#include "workloads.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace bench
{

namespace
{

int ScaledCount(int count, double factor, int least)
{
    return std::max(least, static_cast<int>(count * factor));
}

std::string Formatted(const char* format, int value)
{
    std::array<char, 40> text{};
    const int length = std::snprintf(text.data(), text.size(), format, value);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::vector<std::string> MakeRowTexts()
{
    static constexpr std::array<const char*, 4> kForms = {"face_%03d", "element_%03d", "node_set_%03d",
                                                          "material_%03d"};
    std::vector<std::string> texts;
    texts.reserve(kTextCount);
    for (int i = 0; i < kTextCount; ++i)
        texts.push_back(Formatted(kForms[static_cast<std::size_t>(i) % 4], i));
    return texts;
}

constexpr std::size_t kResultStock = 12;
constexpr std::size_t kConnectivityStock = 4;
constexpr std::size_t kPieceBytes = 65'536;

using Block = std::vector<std::uint64_t>;

/// Displacements of a vibrating plate, node after node.
Block MakeResults(std::size_t number)
{
    Block block(kBlockDoubles);
    for (std::size_t i = 0; i < block.size(); ++i)
    {
        const std::size_t node = number * block.size() + i;
        const double across = static_cast<double>(node % 1'024) / 1'024;
        const double along = static_cast<double>(node) / 1e6;
        const auto smooth = static_cast<float>(std::sin(6.3 * across) * std::cos(2.1 * along) * 12.5);
        block[i] = std::bit_cast<std::uint64_t>(static_cast<double>(smooth)) ^ (Mix(node) & 0xFFFF);
    }
    return block;
}

/// A layer of bricks, 300 to a row.
Block MakeConnectivity(std::size_t number)
{
    constexpr int kAcross = 301;
    constexpr int kLayer = kAcross * 201;
    constexpr std::array<int, 8> kCorners = {0,      1,          kAcross + 1,          kAcross,
                                             kLayer, kLayer + 1, kLayer + kAcross + 1, kLayer + kAcross};
    std::vector<int> nodes;
    nodes.reserve(kBlockBytes / sizeof(int));
    for (int brick = static_cast<int>(number) * 100'000; nodes.size() < kBlockBytes / sizeof(int); ++brick)
    {
        for (const int corner : kCorners) nodes.push_back(brick + brick / (kAcross - 1) + corner + 1);
    }
    Block block(kBlockDoubles);
    std::memcpy(block.data(), nodes.data(), kBlockBytes);
    return block;
}

std::vector<Block> MakeFieldStock()
{
    std::vector<Block> stock;
    for (std::size_t i = 0; i < kResultStock; ++i) stock.push_back(MakeResults(i));
    for (std::size_t i = 0; i < kConnectivityStock; ++i) stock.push_back(MakeConnectivity(i));
    return stock;
}

std::uint64_t FieldBlocksSum(int count)
{
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i) sum += FieldBlockSum(FieldBlock(i, count), i);
    return sum;
}

std::uint64_t RandomFieldRowsSum(const Sizes& sizes)
{
    std::uint64_t sum = 0;
    for (int step = 0; step < sizes.fieldRandomCount; ++step)
    {
        const int row = RandomPosition(step, ResultRows(sizes.fieldBlockCount));
        const void* block = FieldBlock(row / kFieldRowsPerBlock, sizes.fieldBlockCount);
        sum += FieldRowSum(static_cast<const char*>(block) + row % kFieldRowsPerBlock * kFieldRowBytes, step);
    }
    return sum;
}

/// Every number four times, and one for each number or text.
std::uint64_t ToolRowsSum(int count)
{
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        const ToolRow row = ToolRowAt(i);
        sum += static_cast<std::uint64_t>((row.number + row.part + row.x + row.y) * 4) + 5;
    }
    return sum;
}

std::uint64_t ToolArraySum(int count)
{
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i) sum += static_cast<std::uint64_t>(ToolArrayValue(i) * 4) + 1;
    return sum;
}

std::uint64_t RandomBlockRowsSum(const Sizes& sizes)
{
    BlockMaker maker;
    std::uint64_t sum = 0;
    for (int step = 0; step < sizes.remoteRandomCount; ++step)
    {
        const int row = RandomPosition(step, sizes.remoteBlockCount * kFieldRowsPerBlock);
        const double* block = maker.Block(row / kFieldRowsPerBlock);
        sum += FieldRowSum(block + row % kFieldRowsPerBlock * kFieldRowDoubles, step);
    }
    return sum;
}

} // namespace

const void* FieldBlock(int index, int blockCount)
{
    static std::vector<Block> stock = MakeFieldStock();
    const auto number = static_cast<std::size_t>(index);
    const bool isResult = index < ResultBlocks(blockCount);
    Block& block = stock[isResult ? number % kResultStock : kResultStock + number % kConnectivityStock];
    for (std::size_t i = 0; i < block.size(); i += kPieceBytes / 8) block[i] = number + i;
    return block.data();
}

Sizes Sizes::Scaled(double factor) const
{
    Sizes scaled = *this;
    scaled.rowCount = ScaledCount(rowCount, factor, 2'000);
    scaled.randomCount = ScaledCount(randomCount, factor, 1'000);
    scaled.blockCount = ScaledCount(blockCount, factor, 4);
    scaled.objectCount = ScaledCount(objectCount, factor, 200);
    scaled.openObjectCount = ScaledCount(openObjectCount, factor, 100);
    scaled.stringCount = ScaledCount(stringCount, factor, 1'000);
    scaled.internCount = ScaledCount(internCount, factor, 1'000) / kInternRepeats * kInternRepeats;
    scaled.flushCount = ScaledCount(flushCount, factor, 20);
    scaled.fieldBlockCount = ScaledCount(fieldBlockCount, factor, 4);
    scaled.fieldRandomCount = ScaledCount(fieldRandomCount, factor, 100);
    scaled.remoteBlockCount = ScaledCount(remoteBlockCount, factor, 4);
    scaled.remoteRandomCount = ScaledCount(remoteRandomCount, factor, 100);
    scaled.toolObjectDoubles = ScaledCount(toolObjectDoubles, factor, 100);
    scaled.toolRowCount = ScaledCount(toolRowCount, factor, 100);
    scaled.toolArrayDoubles = ScaledCount(toolArrayDoubles, factor, 1'000);
    scaled.toolFlushCount = ScaledCount(toolFlushCount, factor, 10);
    return scaled;
}

ToolRow ToolRowAt(int position)
{
    return {.number = position,
            .part = position % 7,
            .x = position * 0.5,
            .y = position * 0.25,
            .zone = Formatted("zone_%03d", position % 1'000)};
}

const std::vector<std::string>& RowTexts()
{
    static const std::vector<std::string> texts = MakeRowTexts();
    return texts;
}

std::uint64_t RowsSum(int first, int count)
{
    std::uint64_t sum = 0;
    for (int i = first; i < first + count; ++i) sum += RowSum(RowAt(i), i);
    return sum;
}

std::uint64_t UpdatedRowsSum(const Sizes& sizes, int round)
{
    std::vector<int> lastStep(static_cast<std::size_t>(sizes.rowCount), -1);
    for (int step = 0; step < sizes.randomCount; ++step)
    {
        lastStep[static_cast<std::size_t>(RandomPosition(step, sizes.rowCount))] = step;
    }
    std::uint64_t sum = 0;
    for (int i = 0; i < sizes.rowCount; ++i)
    {
        Row row = RowAt(i);
        const int step = lastStep[static_cast<std::size_t>(i)];
        if (step >= 0) ApplyUpdate(row, step, round);
        sum += RowSum(row, i);
    }
    return sum;
}

std::uint64_t RandomRowsSum(const Sizes& sizes)
{
    std::uint64_t sum = 0;
    for (int step = 0; step < sizes.randomCount; ++step)
    {
        sum += RowSum(RowAt(RandomPosition(step, sizes.rowCount)), step);
    }
    return sum;
}

BlockMaker::BlockMaker() : m_Values(kBlockDoubles)
{
    for (std::size_t i = 0; i < m_Values.size(); ++i) m_Values[i] = static_cast<double>(i) * 0.25;
}

const double* BlockMaker::Block(int index)
{
    for (std::size_t i = 0; i < kBlockDoubles; i += 8'192) m_Values[i] = index + static_cast<double>(i);
    return m_Values.data();
}

std::uint64_t BlocksSum(int count)
{
    BlockMaker maker;
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i) sum += BlockSum(maker.Block(i), i);
    return sum;
}

std::uint64_t ObjectsSum(int count)
{
    std::array<double, kObjectDoubles> values{};
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        FillObject(i, values.data());
        sum += ObjectSum(values.data(), i);
    }
    return sum;
}

std::string DistinctText(int index)
{
    return Formatted(index % 2 == 0 ? "element_set_%06d" : "surface_group_%07d", index);
}

InternInput MakeInternInput(int count)
{
    InternInput input;
    const int distinctCount = count / kInternRepeats;
    for (int i = 0; i < distinctCount; ++i) input.distinct.push_back(DistinctText(i));
    for (int i = 0; i < distinctCount * kInternRepeats; ++i) input.sequence.push_back(i % distinctCount);
    for (std::size_t i = input.sequence.size(); i > 1; --i)
    {
        std::swap(input.sequence[i - 1], input.sequence[Mix(i) % i]);
    }
    return input;
}

std::uint64_t InternSum(const InternInput& input)
{
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < input.sequence.size(); ++i)
    {
        sum += TextSum(input.distinct[static_cast<std::size_t>(input.sequence[i])]) * (2 * i + 1);
    }
    return sum;
}

std::uint64_t ExpectedSum(Kind kind, const Sizes& sizes, int round)
{
    switch (kind)
    {
    case Kind::Append:
    case Kind::Scan:
    case Kind::CompressedAppend:
    case Kind::CompressedScan:
    case Kind::HdfAppend:
    case Kind::HdfScan:
    case Kind::Followed: return RowsSum(0, sizes.rowCount);
    case Kind::RandomRead: return RandomRowsSum(sizes);
    case Kind::RandomUpdate: return UpdatedRowsSum(sizes, round);
    case Kind::BulkWrite:
    case Kind::BulkRead: return BlocksSum(sizes.blockCount);
    case Kind::SmallWrite:
    case Kind::SmallRead: return ObjectsSum(sizes.objectCount);
    case Kind::OpenObjects:
    {
        std::array<double, kObjectDoubles> values{};
        FillObject(sizes.openObjectCount - 1, values.data());
        return ObjectSum(values.data(), sizes.openObjectCount - 1);
    }
    case Kind::OpenStrings: return TextSum(DistinctText(sizes.stringCount - 1));
    case Kind::Intern: return InternSum(MakeInternInput(sizes.internCount));
    case Kind::Visible: return RowsSum(0, sizes.flushCount * sizes.rowsPerFlush);
    case Kind::CompressedWrite:
    case Kind::CompressedRead:
    case Kind::CompressedSize:
    case Kind::HdfWrite:
    case Kind::HdfRead: return FieldBlocksSum(sizes.fieldBlockCount);
    case Kind::CompressedRandom: return RandomFieldRowsSum(sizes);
    case Kind::RemoteRead: return BlocksSum(sizes.remoteBlockCount);
    case Kind::RemoteCold:
    case Kind::RemoteWarm: return RandomBlockRowsSum(sizes);
    case Kind::ToolStart: return 0;
    case Kind::ToolInfo:
    case Kind::ToolList: return static_cast<std::uint64_t>(sizes.toolObjectCount);
    case Kind::ToolTable: return ToolRowsSum(sizes.toolRowCount);
    case Kind::ToolArray: return ToolArraySum(sizes.toolArrayDoubles);
    case Kind::ToolFollow: return static_cast<std::uint64_t>(sizes.toolFlushCount);
    case Kind::ToolFollowed: return static_cast<std::uint64_t>(sizes.rowCount);
    }
    return 0;
}

} // namespace bench
