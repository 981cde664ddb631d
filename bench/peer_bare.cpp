// The floor under every figure: the plain system calls on the same bytes, and a plain hash table for interning.

#include "contenders.h"
#include "deflate.h"
#include "peers.h"
#include "tool.h"
#ifdef RFM_BENCH_SSHD
#include "remote.h"
#endif

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace bench
{

namespace
{

constexpr std::size_t kPieceBytes = 262'144;

class Descriptor
{
public:
    Descriptor() = default;
    Descriptor(const std::string& file, int flags) : m_Number(::open(file.c_str(), flags | O_CLOEXEC, 0644))
    {
        if (m_Number < 0) throw std::system_error(errno, std::generic_category(), file);
    }
    Descriptor(Descriptor&& source) noexcept : m_Number(std::exchange(source.m_Number, -1)) {}
    Descriptor& operator=(Descriptor&& source) noexcept
    {
        std::swap(m_Number, source.m_Number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (m_Number >= 0) ::close(m_Number);
    }

    void Write(const void* bytes, std::size_t count)
    {
        Check(::write(m_Number, bytes, count), count, "write");
    }
    void Read(void* bytes, std::size_t count) { Check(::read(m_Number, bytes, count), count, "read"); }
    std::size_t ReadSome(void* bytes, std::size_t count)
    {
        const ssize_t got = ::read(m_Number, bytes, count);
        if (got < 0) throw std::system_error(errno, std::generic_category(), "read");
        return static_cast<std::size_t>(got);
    }
    void WriteAt(const void* bytes, std::size_t count, std::int64_t offset)
    {
        Check(::pwrite(m_Number, bytes, count, offset), count, "pwrite");
    }
    void ReadAt(void* bytes, std::size_t count, std::int64_t offset)
    {
        Check(::pread(m_Number, bytes, count, offset), count, "pread");
    }

private:
    static void Check(ssize_t moved, std::size_t wanted, const char* call)
    {
        if (moved < 0) throw std::system_error(errno, std::generic_category(), call);
        if (static_cast<std::size_t>(moved) != wanted)
            throw std::runtime_error(std::string(call) + ": short");
    }
    int m_Number = -1;
};

/// A row as the record database lays it out: presence bits, fields without padding, the text as a number in a double.
struct [[gnu::packed]] StoredRow
{
    std::uint32_t presence;
    double textReference;
    std::int32_t group;
    std::int32_t number;
    double values[4];
    float weight;
};
static_assert(sizeof(StoredRow) == 56);

StoredRow Pack(const Row& row)
{
    StoredRow stored{};
    stored.presence = 0xFF;
    stored.textReference = row.textIndex;
    stored.group = row.group;
    stored.number = row.number;
    std::memcpy(stored.values, row.values.data(), sizeof(stored.values));
    stored.weight = row.weight;
    return stored;
}

Row Unpack(const StoredRow& stored)
{
    Row row;
    row.number = stored.number;
    row.group = stored.group;
    std::memcpy(row.values.data(), stored.values, sizeof(stored.values));
    row.weight = stored.weight;
    row.textIndex = static_cast<int>(stored.textReference);
    row.text = RowTexts().at(static_cast<std::size_t>(row.textIndex));
    return row;
}

std::int64_t RowOffset(int position) { return static_cast<std::int64_t>(sizeof(StoredRow)) * position; }

void WriteRows(const std::string& name, int count)
{
    Descriptor file(name, O_RDWR | O_CREAT | O_TRUNC);
    std::vector<StoredRow> piece;
    piece.reserve(kPieceBytes / sizeof(StoredRow));
    const auto writeOut = [&]
    {
        file.Write(piece.data(), piece.size() * sizeof(StoredRow));
        piece.clear();
    };
    for (int i = 0; i < count; ++i)
    {
        piece.push_back(Pack(RowAt(i)));
        if (piece.size() == piece.capacity()) writeOut();
    }
    writeOut();
}

class RowFile
{
public:
    RowFile(const std::string& file, RowUse use)
        : m_File(file, use == RowUse::RandomUpdate ? O_RDWR : O_RDONLY)
    {
    }
    std::uint64_t SumAll()
    {
        std::vector<StoredRow> piece(kPieceBytes / sizeof(StoredRow));
        std::uint64_t sum = 0;
        int position = 0;
        while (const std::size_t got = m_File.ReadSome(piece.data(), piece.size() * sizeof(StoredRow)))
        {
            for (std::size_t i = 0; i < got / sizeof(StoredRow); ++i)
                sum += RowSum(Unpack(piece[i]), position++);
        }
        return sum;
    }
    std::uint64_t SumRandom(const Sizes& sizes)
    {
        std::uint64_t sum = 0;
        StoredRow row{};
        for (int step = 0; step < sizes.randomCount; ++step)
        {
            m_File.ReadAt(&row, sizeof(row), RowOffset(RandomPosition(step, sizes.rowCount)));
            sum += RowSum(Unpack(row), step);
        }
        return sum;
    }
    void UpdateRandom(const Sizes& sizes, int round)
    {
        StoredRow stored{};
        for (int step = 0; step < sizes.randomCount; ++step)
        {
            const std::int64_t offset = RowOffset(RandomPosition(step, sizes.rowCount));
            m_File.ReadAt(&stored, sizeof(stored), offset);
            Row row = Unpack(stored);
            ApplyUpdate(row, step, round);
            stored = Pack(row);
            m_File.WriteAt(&stored, sizeof(stored), offset);
        }
    }

private:
    Descriptor m_File;
};

void WriteBlocks(const std::string& name, int count)
{
    BlockMaker maker;
    Descriptor file(name, O_RDWR | O_CREAT | O_TRUNC);
    for (int i = 0; i < count; ++i) file.Write(maker.Block(i), kBlockBytes);
}

std::uint64_t ReadBlocks(const std::string& name, int count)
{
    Descriptor file(name, O_RDONLY);
    std::vector<double> values(kBlockDoubles);
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        file.Read(values.data(), kBlockBytes);
        sum += BlockSum(values.data(), i);
    }
    return sum;
}

void WriteObjects(const std::string& name, int count)
{
    Descriptor file(name, O_RDWR | O_CREAT | O_TRUNC);
    std::array<double, kObjectDoubles> values{};
    for (int i = 0; i < count; ++i)
    {
        FillObject(i, values.data());
        file.WriteAt(values.data(), kObjectBytes, static_cast<std::int64_t>(kObjectBytes) * i);
    }
}

std::uint64_t ReadObjects(const std::string& name, int count)
{
    Descriptor file(name, O_RDONLY);
    std::array<double, kObjectDoubles> values{};
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        file.ReadAt(values.data(), kObjectBytes, static_cast<std::int64_t>(kObjectBytes) * i);
        sum += ObjectSum(values.data(), i);
    }
    return sum;
}

void WriteField(const std::string& name, int count)
{
    Descriptor file(name, O_RDWR | O_CREAT | O_TRUNC);
    for (int i = 0; i < count; ++i) file.Write(FieldBlock(i, count), kBlockBytes);
}

std::uint64_t ReadField(const std::string& name, int count)
{
    Descriptor file(name, O_RDONLY);
    return SumField(count, [&](int /*index*/, char* block) { file.Read(block, kBlockBytes); });
}

constexpr int kPiecesPerBlock = kBlockBytes / static_cast<int>(kDeflatePiece);

/// Where the stream of each piece ends; they lie end to end.
using StreamEnds = std::vector<std::int64_t>;

/// The streams, and behind them where each ends.
void WriteStreams(const std::string& name, int blockCount)
{
    Descriptor file(name, O_RDWR | O_CREAT | O_TRUNC);
    std::vector<char> stream(DeflateRoom());
    StreamEnds ends;
    std::int64_t end = 0;
    for (int i = 0; i < blockCount * kPiecesPerBlock; ++i)
    {
        const int piece = i % kPiecesPerBlock;
        const auto* block = static_cast<const char*>(FieldBlock(i / kPiecesPerBlock, blockCount));
        const std::size_t length =
            Deflate(block + static_cast<std::size_t>(piece) * kDeflatePiece, kDeflatePiece, stream.data());
        file.WriteAt(stream.data(), length, end);
        end += static_cast<std::int64_t>(length);
        ends.push_back(end);
    }
    file.WriteAt(ends.data(), ends.size() * sizeof(end), end);
}

class HeldStreams
{
public:
    HeldStreams(const std::string& file, int blockCount)
        : m_File(file, O_RDONLY),
          m_Ends(static_cast<std::size_t>(blockCount * kPiecesPerBlock)),
          m_Stream(DeflateRoom()),
          m_Piece(kDeflatePiece)
    {
        const std::size_t indexBytes = m_Ends.size() * sizeof(m_Ends[0]);
        const auto fileBytes = static_cast<std::int64_t>(std::filesystem::file_size(file));
        m_File.ReadAt(m_Ends.data(), indexBytes, fileBytes - static_cast<std::int64_t>(indexBytes));
    }
    void ReadPiece(int piece, char* target)
    {
        const auto at = static_cast<std::size_t>(piece);
        const std::int64_t start = at == 0 ? 0 : m_Ends[at - 1];
        const auto length = static_cast<std::size_t>(m_Ends[at] - start);
        m_File.ReadAt(m_Stream.data(), length, start);
        Inflate(m_Stream.data(), length, target, kDeflatePiece);
    }
    void ReadRow(int row, double* target)
    {
        constexpr int kRowsPerPiece = static_cast<int>(kDeflatePiece) / kFieldRowBytes;
        ReadPiece(row / kRowsPerPiece, m_Piece.data());
        std::memcpy(target, m_Piece.data() + row % kRowsPerPiece * kFieldRowBytes, kFieldRowBytes);
    }

private:
    Descriptor m_File;
    StreamEnds m_Ends;
    std::vector<char> m_Stream;
    std::vector<char> m_Piece;
};

std::uint64_t ReadStreams(const std::string& name, int blockCount)
{
    HeldStreams streams(name, blockCount);
    return SumField(blockCount,
                    [&](int index, char* block)
                    {
                        for (int piece = 0; piece < kPiecesPerBlock; ++piece)
                        {
                            streams.ReadPiece(index * kPiecesPerBlock + piece,
                                              block + static_cast<std::size_t>(piece) * kDeflatePiece);
                        }
                    });
}

/// The bytes of zlib's own streams, each inflated again for the checksum.
class ZlibSize : public Contender
{
public:
    explicit ZlibSize(const Setting& setting) : m_BlockCount(setting.sizes.fieldBlockCount) {}
    void Build() override
    {
        std::vector<char> stream(DeflateRoom());
        m_Sum = SumField(m_BlockCount,
                         [&](int index, char* back)
                         {
                             const auto* block = static_cast<const char*>(FieldBlock(index, m_BlockCount));
                             for (std::size_t at = 0; at < kBlockBytes; at += kDeflatePiece)
                             {
                                 const std::size_t length =
                                     DeflateByZlib(block + at, kDeflatePiece, stream.data());
                                 Inflate(stream.data(), length, back + at, kDeflatePiece);
                                 m_StoredBytes += static_cast<double>(length);
                             }
                         });
    }
    void Prepare(int /*round*/) override {}
    double Run() override { return m_StoredBytes; }
    std::uint64_t Verify() override { return m_Sum; }

private:
    const int m_BlockCount;
    double m_StoredBytes = 0;
    std::uint64_t m_Sum = 0;
};

/// Reads the header and every block of a directory that lies between its objects, as an opener must, and one object.
class ObjectReader
{
public:
    ObjectReader(const std::string& name, int count) : m_File(name), m_Count(count)
    {
        Descriptor file(name, O_RDWR | O_CREAT | O_TRUNC);
        std::array<double, kObjectDoubles> values{};
        for (int i = 0; i < count; ++i)
        {
            FillObject(i, values.data());
            file.WriteAt(values.data(), kObjectBytes, ObjectOffset(i));
        }
        const std::vector<char> block(kDirectoryBytes, 1);
        for (int i = 0; i * kEntries < count; ++i) file.WriteAt(block.data(), block.size(), BlockOffset(i));
    }
    std::uint64_t Read() const
    {
        Descriptor file(m_File, O_RDONLY);
        std::vector<char> block(kDirectoryBytes);
        file.ReadAt(block.data(), kHeaderBytes, 0);
        for (int i = 0; i * kEntries < m_Count; ++i) file.ReadAt(block.data(), block.size(), BlockOffset(i));
        std::array<double, kObjectDoubles> values{};
        file.ReadAt(values.data(), kObjectBytes, ObjectOffset(m_Count - 1));
        return ObjectSum(values.data(), m_Count - 1);
    }

private:
    static constexpr int kHeaderBytes = 1'024;
    static constexpr int kDirectoryBytes = 14'336;
    static constexpr int kEntries = 511;
    static constexpr std::int64_t kStrideBytes =
        kDirectoryBytes + static_cast<std::int64_t>(kEntries) * kObjectBytes;

    static std::int64_t BlockOffset(int block) { return kHeaderBytes + kStrideBytes * block; }
    static std::int64_t ObjectOffset(int index)
    {
        return BlockOffset(index / kEntries) + kDirectoryBytes +
               static_cast<std::int64_t>(index % kEntries) * kObjectBytes;
    }
    std::string m_File;
    int m_Count;
};

/// Reads a whole pool of texts into memory with one call: 4 bytes of length, the text, and up to 3 of padding each.
class TextReader
{
public:
    TextReader(const std::string& name, int count) : m_File(name)
    {
        std::string pool;
        for (int i = 0; i < count; ++i)
        {
            const std::string text = DistinctText(i);
            const auto length = static_cast<std::uint32_t>(text.size());
            m_LastOffset = pool.size() + 4;
            m_LastLength = text.size();
            pool.append(reinterpret_cast<const char*>(&length), 4).append(text);
            pool.resize((pool.size() + 3) / 4 * 4);
        }
        m_PoolBytes = pool.size();
        Descriptor(name, O_RDWR | O_CREAT | O_TRUNC).Write(pool.data(), pool.size());
    }
    std::uint64_t Read() const
    {
        Descriptor file(m_File, O_RDONLY);
        const std::unique_ptr<char, void (*)(void*)> pool(static_cast<char*>(std::malloc(m_PoolBytes)),
                                                          std::free);
        if (pool == nullptr) throw std::bad_alloc();
        file.Read(pool.get(), m_PoolBytes);
        return TextSum({pool.get() + m_LastOffset, m_LastLength});
    }

private:
    std::string m_File;
    std::size_t m_PoolBytes = 0;
    std::size_t m_LastOffset = 0;
    std::size_t m_LastLength = 0;
};

/// Open addressing with linear steps, half full at most; texts lie end to end in one block.
class HashTable
{
public:
    HashTable() : m_Slots(1'024) {}

    std::uint64_t Intern(std::string_view text)
    {
        const std::uint64_t hash = std::hash<std::string_view>()(text);
        std::size_t at = hash & (m_Slots.size() - 1);
        for (; m_Slots[at].length != 0; at = (at + 1) & (m_Slots.size() - 1))
        {
            if (m_Slots[at].hash == hash && TextOf(m_Slots[at]) == text) return m_Slots[at].offset;
        }
        m_Slots[at] = {hash, m_Texts.size(), text.size()};
        m_Texts.append(text);
        const std::uint64_t offset = m_Slots[at].offset;
        if (++m_Count * 2 > m_Slots.size()) Grow();
        return offset;
    }
    std::string_view TextAt(std::size_t offset, std::size_t length) const
    {
        return std::string_view(m_Texts).substr(offset, length);
    }

private:
    struct Slot
    {
        std::uint64_t hash = 0;
        std::uint64_t offset = 0;
        std::size_t length = 0;
    };
    std::string_view TextOf(const Slot& slot) const { return {m_Texts.data() + slot.offset, slot.length}; }
    void Grow()
    {
        std::vector<Slot> grown(m_Slots.size() * 2);
        for (const Slot& slot : m_Slots)
        {
            if (slot.length == 0) continue;
            std::size_t at = slot.hash & (grown.size() - 1);
            while (grown[at].length != 0) at = (at + 1) & (grown.size() - 1);
            grown[at] = slot;
        }
        m_Slots.swap(grown);
    }
    std::vector<Slot> m_Slots;
    std::string m_Texts;
    std::size_t m_Count = 0;
};

class TextInterner
{
public:
    explicit TextInterner(InternInput input) : m_Texts(std::move(input)) {}
    void InternAll(const std::string& /*file*/)
    {
        m_Table = HashTable();
        for (std::size_t i = 0; i < m_Texts.Count(); ++i)
            m_Texts.numbers[i] = static_cast<unsigned>(m_Table.Intern(m_Texts.Text(i)));
    }
    std::uint64_t SumOf(const std::string& /*file*/) const
    {
        return m_Texts.Sum([&](std::size_t at)
                           { return m_Table.TextAt(m_Texts.numbers[at], m_Texts.Text(at).size()); });
    }

private:
    NumberedTexts m_Texts;
    HashTable m_Table;
};

/// Rows behind a count; the count is written last and is what a reader polls.
class CountedWriter : public LiveWriter
{
public:
    explicit CountedWriter(const std::string& file) : m_File(file, O_RDWR | O_CREAT | O_TRUNC) {}
    void Append(const Row& row) override { m_Pending.push_back(Pack(row)); }
    void Publish() override
    {
        const std::size_t bytes = m_Pending.size() * sizeof(StoredRow);
        m_File.WriteAt(m_Pending.data(), bytes,
                       static_cast<std::int64_t>(sizeof(m_Count)) + RowOffset(m_Count));
        m_Count += static_cast<int>(m_Pending.size());
        m_Pending.clear();
        m_File.WriteAt(&m_Count, sizeof(m_Count), 0);
    }

private:
    Descriptor m_File;
    std::vector<StoredRow> m_Pending;
    int m_Count = 0;
};

class CountedReader : public LiveReader
{
public:
    explicit CountedReader(const std::string& file) : m_File(file, O_RDONLY) {}
    Sight Look(int seen, int newest) override
    {
        int count = 0;
        m_File.ReadAt(&count, sizeof(count), 0);
        const int first = std::max(seen, count - std::min(newest, count));
        m_Rows.resize(static_cast<std::size_t>(count - first));
        m_File.ReadAt(m_Rows.data(), m_Rows.size() * sizeof(StoredRow),
                      static_cast<std::int64_t>(sizeof(count)) + RowOffset(first));
        Sight sight{.first = first, .visible = count};
        for (std::size_t i = 0; i < m_Rows.size(); ++i)
        {
            sight.sum += RowSum(Unpack(m_Rows[i]), first + static_cast<int>(i));
        }
        return sight;
    }

private:
    Descriptor m_File;
    std::vector<StoredRow> m_Rows;
};

constexpr StoreSteps kSteps{
    {"bench.bare", RemoveFile}, WriteRows, WriteBlocks, ReadBlocks, WriteObjects, ReadObjects};
using Store = StoreOf<kSteps, RowFile, ObjectReader, TextReader, TextInterner, CountedWriter, CountedReader>;

std::unique_ptr<Contender> Make(Kind kind, const Setting& setting)
{
    const int fieldBlocks = setting.sizes.fieldBlockCount;
    const WholeFile field{kSteps, WriteField, ReadField, fieldBlocks};
    switch (kind)
    {
    case Kind::Followed: return MakeRfmUnfollowed(setting);
    case Kind::CompressedWrite:
    case Kind::CompressedRead:
    case Kind::CompressedRandom:
        return MakeCompressed<HeldStreams>(kind, setting, {kSteps, WriteStreams, ReadStreams, fieldBlocks});
    case Kind::CompressedSize: return std::make_unique<ZlibSize>(setting);
    case Kind::CompressedAppend:
    case Kind::HdfAppend: return MakeRfmPlain(Kind::Append, setting);
    case Kind::CompressedScan:
    case Kind::HdfScan: return MakeRfmPlain(Kind::Scan, setting);
    case Kind::HdfWrite: return std::make_unique<WholeWrite>(setting, field);
    case Kind::HdfRead: return std::make_unique<WholeRead>(setting, field);
#ifdef RFM_BENCH_SSHD
    case Kind::RemoteRead:
    case Kind::RemoteCold:
    case Kind::RemoteWarm: return MakeRemoteBare(kind, setting);
#endif
    case Kind::ToolStart:
    case Kind::ToolInfo:
    case Kind::ToolList:
    case Kind::ToolFollowed: return MakeToolBare(kind, setting);
    default: return MakeOf<Store>(kind, setting);
    }
}

} // namespace

Peer BarePeer()
{
    return {.name = "bare",
            .note = "the plain system calls on the same bytes; what they are, see below",
            .make = Make};
}

} // namespace bench
