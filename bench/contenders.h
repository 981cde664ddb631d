// The contenders that all stores enter in the same way, so that a peer holds only what is its own: the steps on whole
// files, and the classes that a `StoreOf` names.
#pragma once

#include "live.h"

#include <optional>
#include <type_traits>
#include <utility>

namespace bench
{

/// What rows are opened for, since stores have settings for it.
enum class RowUse
{
    Scan,
    RandomRead,
    RandomUpdate,
};

using WriteSome = void (*)(const std::string& file, int count);
using ReadSome = std::uint64_t (*)(const std::string& file, int count);

struct FileSteps
{
    const char* fileName;
    /// Removes a file and what the store keeps beside it.
    void (*remove)(const std::string& file);
};

/// The steps that open a file themselves and close it again. Reading gives the sum of what was read.
struct StoreSteps : FileSteps
{
    WriteSome writeRows;
    WriteSome writeBlocks;
    ReadSome readBlocks;
    WriteSome writeObjects;
    ReadSome readObjects;
};

inline void RemoveFile(const std::string& file) { std::filesystem::remove(file); }

/// A store, put together from what a peer has; void stands for a class that it lacks.
///   RowsHeld     rows that are held open: made from (file, RowUse), with SumAll(), SumRandom(sizes) and
///                UpdateRandom(sizes, round)
///   ObjectLast   made from (file, count) it writes that many arrays; Read() opens the file and gives the sum of the
///                last one
///   TextLast     the same with distinct texts
///   InternerOf   made from an InternInput; InternAll(file) writes a new file, SumOf(file) gives the sum of what the
///                references mean
///   WriterOf, ReaderOf   of a file that is followed, made from its name
template <const StoreSteps& kStepsOf, class RowsHeld, class ObjectLast, class TextLast, class InternerOf,
          class WriterOf, class ReaderOf>
struct StoreOf
{
    static constexpr const StoreSteps& kSteps = kStepsOf;
    using Rows = RowsHeld;
    using LastObject = ObjectLast;
    using LastText = TextLast;
    using Interner = InternerOf;
    using Writer = WriterOf;
    using Reader = ReaderOf;
};

/// A contender on one file of its own.
class FileContender : public Contender
{
public:
    void Prepare(int /*round*/) override {}
    std::uint64_t Verify() override { return m_Sum; }

protected:
    FileContender(const Setting& setting, const char* name)
        : m_Sizes(setting.sizes),
          m_File(setting.File(name))
    {
    }
    const Sizes m_Sizes;
    const std::string m_File;
    std::uint64_t m_Sum = 0;
};

/// A file that is written in one go and read in one go.
struct WholeFile
{
    const FileSteps& store;
    WriteSome write;
    ReadSome read;
    int count;
};

class WholeContender : public FileContender
{
public:
    WholeContender(const Setting& setting, const WholeFile& whole)
        : FileContender(setting, whole.store.fileName),
          m_Whole(whole)
    {
    }

protected:
    const WholeFile m_Whole;
};

class WholeWrite : public WholeContender
{
public:
    using WholeContender::WholeContender;
    void Prepare(int /*round*/) override { m_Whole.store.remove(m_File); }
    double Run() override
    {
        return SecondsOf([&] { m_Whole.write(m_File, m_Whole.count); });
    }
    std::uint64_t Verify() override { return m_Whole.read(m_File, m_Whole.count); }
};

class WholeRead : public WholeContender
{
public:
    using WholeContender::WholeContender;
    void Build() override { m_Whole.write(m_File, m_Whole.count); }
    double Run() override
    {
        return SecondsOf([&] { m_Sum = m_Whole.read(m_File, m_Whole.count); });
    }
};

template <class Store> std::uint64_t SumRowsOf(const std::string& file, int /*count*/)
{
    return typename Store::Rows(file, RowUse::Scan).SumAll();
}

/// Times work on rows; opening them before and closing them after is not timed.
template <class Store> class RowsContender : public FileContender
{
public:
    RowsContender(const Setting& setting, RowUse use)
        : FileContender(setting, Store::kSteps.fileName),
          m_Use(use)
    {
    }
    void Build() override { Store::kSteps.writeRows(m_File, m_Sizes.rowCount); }
    void Prepare(int round) override
    {
        m_Round = round;
        m_Rows.emplace(m_File, m_Use);
    }
    double Run() override
    {
        return SecondsOf([&] { Work(); });
    }
    std::uint64_t Verify() override
    {
        m_Rows.reset();
        return m_Use == RowUse::RandomUpdate ? SumRowsOf<Store>(m_File, m_Sizes.rowCount) : m_Sum;
    }

private:
    void Work()
    {
        switch (m_Use)
        {
        case RowUse::Scan: m_Sum = m_Rows->SumAll(); return;
        case RowUse::RandomRead: m_Sum = m_Rows->SumRandom(m_Sizes); return;
        case RowUse::RandomUpdate: m_Rows->UpdateRandom(m_Sizes, m_Round); return;
        }
    }
    const RowUse m_Use;
    int m_Round = 0;
    std::optional<typename Store::Rows> m_Rows;
};

/// Times an open of a large file and the read of one thing in it.
template <class Last> class Reopened : public FileContender
{
public:
    Reopened(const Setting& setting, const char* name, int count, int repeats)
        : FileContender(setting, name),
          m_Count(count),
          m_Repeats(repeats)
    {
    }
    void Build() override { m_Last.emplace(m_File, m_Count); }
    double Run() override
    {
        return SecondsOf(
                   [&]
                   {
                       for (int i = 0; i < m_Repeats; ++i) m_Sum = m_Last->Read();
                   }) /
               m_Repeats;
    }

private:
    const int m_Count;
    const int m_Repeats;
    std::optional<Last> m_Last;
};

template <class Store> class Interned : public FileContender
{
public:
    explicit Interned(const Setting& setting) : FileContender(setting, Store::kSteps.fileName) {}
    void Build() override { m_Interner.emplace(MakeInternInput(m_Sizes.internCount)); }
    void Prepare(int /*round*/) override { Store::kSteps.remove(m_File); }
    double Run() override
    {
        return SecondsOf([&] { m_Interner->InternAll(m_File); });
    }
    std::uint64_t Verify() override { return m_Interner->SumOf(m_File); }

private:
    std::optional<typename Store::Interner> m_Interner;
};

/// What an Interner keeps whose store gives each text a number: the input, and the numbers it got.
struct NumberedTexts
{
    explicit NumberedTexts(InternInput all) : input(std::move(all)), numbers(input.sequence.size()) {}

    std::size_t Count() const { return numbers.size(); }
    const std::string& Text(std::size_t at) const
    {
        return input.distinct[static_cast<std::size_t>(input.sequence[at])];
    }
    /// The sum of the texts that `textOf` finds by `numbers[at]`.
    template <class TextOf> std::uint64_t Sum(TextOf&& textOf) const
    {
        std::uint64_t sum = 0;
        for (std::size_t at = 0; at < numbers.size(); ++at) sum += TextSum(textOf(at)) * (2 * at + 1);
        return sum;
    }

    InternInput input;
    std::vector<unsigned> numbers;
};

template <class Store> WholeFile RowsOf(const Sizes& sizes)
{
    return {Store::kSteps, Store::kSteps.writeRows, SumRowsOf<Store>, sizes.rowCount};
}
template <class Store> WholeFile BlocksOf(const Sizes& sizes)
{
    return {Store::kSteps, Store::kSteps.writeBlocks, Store::kSteps.readBlocks, sizes.blockCount};
}
template <class Store> WholeFile ObjectsOf(const Sizes& sizes)
{
    return {Store::kSteps, Store::kSteps.writeObjects, Store::kSteps.readObjects, sizes.objectCount};
}

template <class Store> std::unique_ptr<Contender> MakeReopened(Kind kind, const Setting& setting)
{
    const Sizes& sizes = setting.sizes;
    if (kind == Kind::OpenObjects)
    {
        return std::make_unique<Reopened<typename Store::LastObject>>(
            setting, Store::kSteps.fileName, sizes.openObjectCount, sizes.openRepeats);
    }
    if constexpr (!std::is_void_v<typename Store::LastText>)
    {
        return std::make_unique<Reopened<typename Store::LastText>>(setting, Store::kSteps.fileName,
                                                                    sizes.stringCount, 1);
    }
    return nullptr;
}

template <class Store> std::unique_ptr<Contender> MakeInterned(const Setting& setting)
{
    if constexpr (!std::is_void_v<typename Store::Interner>)
        return std::make_unique<Interned<Store>>(setting);
    return nullptr;
}

/// The bytes that a field takes in its file.
class WholeSize : public WholeContender
{
public:
    using WholeContender::WholeContender;
    void Build() override { m_Whole.write(m_File, m_Whole.count); }
    double Run() override { return static_cast<double>(std::filesystem::file_size(m_File)); }
    std::uint64_t Verify() override { return m_Whole.read(m_File, m_Whole.count); }
};

/// The sum of a field of which `read(index, block)` reads one block.
template <class Read> std::uint64_t SumField(int blockCount, Read&& read)
{
    std::vector<char> block(kBlockBytes);
    std::uint64_t sum = 0;
    for (int i = 0; i < blockCount; ++i)
    {
        read(i, block.data());
        sum += FieldBlockSum(block.data(), i);
    }
    return sum;
}

/// Times reads of single rows of a field's results. `Held` is made from (file, count) and has ReadRow(row, target).
template <class Held> class FieldRandom : public WholeContender
{
public:
    using WholeContender::WholeContender;
    void Build() override { m_Whole.write(m_File, m_Whole.count); }
    void Prepare(int /*round*/) override { m_Held.emplace(m_File, m_Whole.count); }
    double Run() override
    {
        return SecondsOf(
            [&]
            {
                m_Sum = 0;
                std::array<double, kFieldRowDoubles> row{};
                for (int step = 0; step < m_Sizes.fieldRandomCount; ++step)
                {
                    m_Held->ReadRow(RandomPosition(step, ResultRows(m_Whole.count)), row.data());
                    m_Sum += FieldRowSum(row.data(), step);
                }
            });
    }
    std::uint64_t Verify() override
    {
        m_Held.reset();
        return m_Sum;
    }

private:
    std::optional<Held> m_Held;
};

/// The contender of a compressed field that `whole` writes and reads, and `Held` reads at random.
template <class Held>
std::unique_ptr<Contender> MakeCompressed(Kind kind, const Setting& setting, const WholeFile& whole)
{
    switch (kind)
    {
    case Kind::CompressedWrite: return std::make_unique<WholeWrite>(setting, whole);
    case Kind::CompressedRead: return std::make_unique<WholeRead>(setting, whole);
    case Kind::CompressedRandom: return std::make_unique<FieldRandom<Held>>(setting, whole);
    case Kind::CompressedSize: return std::make_unique<WholeSize>(setting, whole);
    default: return nullptr;
    }
}

/// The contender of `Store` for a workload; null for one that stores enter each in their own way, or not at all.
template <class Store> std::unique_ptr<Contender> MakeOf(Kind kind, const Setting& setting)
{
    const Sizes& sizes = setting.sizes;
    switch (kind)
    {
    case Kind::Append: return std::make_unique<WholeWrite>(setting, RowsOf<Store>(sizes));
    case Kind::Scan: return std::make_unique<RowsContender<Store>>(setting, RowUse::Scan);
    case Kind::RandomRead: return std::make_unique<RowsContender<Store>>(setting, RowUse::RandomRead);
    case Kind::RandomUpdate: return std::make_unique<RowsContender<Store>>(setting, RowUse::RandomUpdate);
    case Kind::BulkWrite: return std::make_unique<WholeWrite>(setting, BlocksOf<Store>(sizes));
    case Kind::BulkRead: return std::make_unique<WholeRead>(setting, BlocksOf<Store>(sizes));
    case Kind::SmallWrite: return std::make_unique<WholeWrite>(setting, ObjectsOf<Store>(sizes));
    case Kind::SmallRead: return std::make_unique<WholeRead>(setting, ObjectsOf<Store>(sizes));
    case Kind::OpenObjects:
    case Kind::OpenStrings: return MakeReopened<Store>(kind, setting);
    case Kind::Intern: return MakeInterned<Store>(setting);
    case Kind::Visible: return MakeVisible(LiveOf<Store>(setting.File(Store::kSteps.fileName)), setting);
    default: return nullptr;
    }
}

} // namespace bench
