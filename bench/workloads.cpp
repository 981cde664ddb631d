#include "workloads.h"

#include <algorithm>
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

} // namespace

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
    return scaled;
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
    }
    return 0;
}

} // namespace bench
