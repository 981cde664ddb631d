// HDF5 as its documentation makes it fast: the newest file layout, packet tables for rows, a chunk cache that holds
// the whole table, contiguous storage without fill values for bulk data, compact storage for small arrays, and
// single-writer multiple-reader access for a file that is followed.

#include "contenders.h"
#include "peers.h"
#include "tool.h"

#include <algorithm>
#include <cstring>
#include <hdf5.h>
#include <hdf5_hl.h>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench
{

namespace
{

template <class Result> Result Checked(Result result, const char* what)
{
    if (result < 0) throw std::runtime_error(std::string("HDF5: ") + what);
    return result;
}

/// An identifier and the call that gives it back.
class Id
{
public:
    Id() = default;
    Id(hid_t id, herr_t (*close)(hid_t), const char* what) : m_Id(Checked(id, what)), m_Close(close) {}
    Id(Id&& source) noexcept : m_Id(std::exchange(source.m_Id, -1)), m_Close(source.m_Close) {}
    Id& operator=(Id&& source) noexcept
    {
        std::swap(m_Id, source.m_Id);
        std::swap(m_Close, source.m_Close);
        return *this;
    }
    Id(const Id&) = delete;
    Id& operator=(const Id&) = delete;
    ~Id()
    {
        if (m_Id >= 0) m_Close(m_Id);
    }
    hid_t Get() const { return m_Id; }

private:
    hid_t m_Id = -1;
    herr_t (*m_Close)(hid_t) = nullptr;
};

struct PackedRow
{
    double values[4];
    std::int32_t number;
    std::int32_t group;
    float weight;
    char text[16];
};

PackedRow Pack(const Row& row)
{
    PackedRow packed{};
    std::memcpy(packed.values, row.values.data(), sizeof(packed.values));
    packed.number = row.number;
    packed.group = row.group;
    packed.weight = row.weight;
    std::memcpy(packed.text, row.text.data(), row.text.size());
    return packed;
}

Row Unpack(const PackedRow& packed)
{
    Row row;
    std::memcpy(row.values.data(), packed.values, sizeof(packed.values));
    row.number = packed.number;
    row.group = packed.group;
    row.weight = packed.weight;
    row.text = packed.text;
    return row;
}

Id MakeRowType()
{
    Id text(H5Tcopy(H5T_C_S1), H5Tclose, "text type");
    Checked(H5Tset_size(text.Get(), sizeof(PackedRow::text)), "text size");
    const hsize_t valueCount = 4;
    const Id values(H5Tarray_create2(H5T_NATIVE_DOUBLE, 1, &valueCount), H5Tclose, "values type");
    Id row(H5Tcreate(H5T_COMPOUND, sizeof(PackedRow)), H5Tclose, "row type");
    Checked(H5Tinsert(row.Get(), "values", HOFFSET(PackedRow, values), values.Get()), "values");
    Checked(H5Tinsert(row.Get(), "number", HOFFSET(PackedRow, number), H5T_NATIVE_INT), "number");
    Checked(H5Tinsert(row.Get(), "group", HOFFSET(PackedRow, group), H5T_NATIVE_INT), "group");
    Checked(H5Tinsert(row.Get(), "weight", HOFFSET(PackedRow, weight), H5T_NATIVE_FLOAT), "weight");
    Checked(H5Tinsert(row.Get(), "text", HOFFSET(PackedRow, text), text.Get()), "text");
    return row;
}

/// Which chunks go first: 1 is those that were read or written to their end, and no others, so that the cache grows
/// beyond its size where there are none.
struct ChunkCache
{
    std::size_t bytes;
    double preemption;
};
constexpr ChunkCache kTableCache{std::size_t{128} << 20, 1.0};
/// As much as a compressed file of ours holds.
constexpr ChunkCache kFieldCache{std::size_t{1} << 20, 0.75};

Id FastAccess(const ChunkCache& cache)
{
    constexpr std::size_t kCacheSlots = 12'421;
    Id access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose, "access list");
    Checked(H5Pset_libver_bounds(access.Get(), H5F_LIBVER_LATEST, H5F_LIBVER_LATEST), "version bounds");
    Checked(H5Pset_cache(access.Get(), 0, kCacheSlots, cache.bytes, cache.preemption), "chunk cache");
    return access;
}

Id CreateFile(const std::string& file, const ChunkCache& cache = kTableCache)
{
    const Id access = FastAccess(cache);
    return {H5Fcreate(file.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access.Get()), H5Fclose, "create file"};
}

Id OpenFile(const std::string& file, unsigned flags, const ChunkCache& cache = kTableCache)
{
    const Id access = FastAccess(cache);
    return {H5Fopen(file.c_str(), flags, access.Get()), H5Fclose, "open file"};
}

constexpr const char* kRows = "rows";
constexpr hsize_t kChunkRows = 1'024;

void WriteRows(const std::string& file, int count)
{
    const Id open = CreateFile(file);
    const Id type = MakeRowType();
    const Id table(H5PTcreate(open.Get(), kRows, type.Get(), kChunkRows, H5P_DEFAULT), H5PTclose,
                   "packet table");
    for (int i = 0; i < count; ++i)
    {
        const PackedRow row = Pack(RowAt(i));
        Checked(H5PTappend(table.Get(), 1, &row), "append");
    }
}

/// A packet table cannot change a row; its dataset can, one row at a time.
class RowAccess
{
public:
    explicit RowAccess(hid_t dataset)
        : m_Dataset(dataset),
          m_Type(MakeRowType()),
          m_File(H5Dget_space(dataset), H5Sclose, "space")
    {
        const hsize_t one = 1;
        m_Memory = Id(H5Screate_simple(1, &one, nullptr), H5Sclose, "memory space");
    }
    void Read(int position, PackedRow& row)
    {
        Select(position);
        Checked(H5Dread(m_Dataset, m_Type.Get(), m_Memory.Get(), m_File.Get(), H5P_DEFAULT, &row), "read");
    }
    void Write(int position, const PackedRow& row)
    {
        Select(position);
        Checked(H5Dwrite(m_Dataset, m_Type.Get(), m_Memory.Get(), m_File.Get(), H5P_DEFAULT, &row), "write");
    }

private:
    void Select(int position)
    {
        const auto start = static_cast<hsize_t>(position);
        const hsize_t one = 1;
        Checked(H5Sselect_hyperslab(m_File.Get(), H5S_SELECT_SET, &start, nullptr, &one, nullptr), "select");
    }
    hid_t m_Dataset;
    Id m_Type;
    Id m_File;
    Id m_Memory;
};

/// An open packet table.
class RowTable
{
public:
    RowTable(const std::string& file, RowUse use)
        : m_File(OpenFile(file, use == RowUse::RandomUpdate ? H5F_ACC_RDWR : H5F_ACC_RDONLY)),
          m_Table(H5PTopen(m_File.Get(), kRows), H5PTclose, "open table")
    {
    }
    std::uint64_t SumAll() const
    {
        hsize_t left = 0;
        Checked(H5PTget_num_packets(m_Table.Get(), &left), "count");
        Checked(H5PTcreate_index(m_Table.Get()), "start of table");
        std::vector<PackedRow> rows(kChunkRows);
        std::uint64_t sum = 0;
        int position = 0;
        while (left > 0)
        {
            const hsize_t piece = std::min(left, kChunkRows);
            Checked(H5PTget_next(m_Table.Get(), piece, rows.data()), "next");
            for (hsize_t i = 0; i < piece; ++i) sum += RowSum(Unpack(rows[i]), position++);
            left -= piece;
        }
        return sum;
    }
    std::uint64_t SumRandom(const Sizes& sizes) const
    {
        std::uint64_t sum = 0;
        PackedRow row{};
        for (int step = 0; step < sizes.randomCount; ++step)
        {
            const auto position = static_cast<hsize_t>(RandomPosition(step, sizes.rowCount));
            Checked(H5PTread_packets(m_Table.Get(), position, 1, &row), "read");
            sum += RowSum(Unpack(row), step);
        }
        return sum;
    }
    /// Closes the file too: what is changed lies in the chunk cache until then.
    void UpdateRandom(const Sizes& sizes, int round)
    {
        {
            RowAccess rows(H5PTget_dataset(m_Table.Get()));
            for (int step = 0; step < sizes.randomCount; ++step)
                UpdateOne(rows, RandomPosition(step, sizes.rowCount), step, round);
        }
        m_Table = Id();
        m_File = Id();
    }

private:
    static void UpdateOne(RowAccess& rows, int position, int step, int round)
    {
        PackedRow packed{};
        rows.Read(position, packed);
        Row row = Unpack(packed);
        ApplyUpdate(row, step, round);
        rows.Write(position, Pack(row));
    }
    Id m_File;
    Id m_Table;
};

/// How a dataset is stored: contiguous without a chunk, deflated with a level.
struct Layout
{
    hid_t fileType;
    hsize_t chunk = 0;
    unsigned level = 0;
    bool grows = false;
};

Id CreateDataset(const Id& file, const char* name, hsize_t size, const Layout& layout)
{
    const hsize_t most = layout.grows ? H5S_UNLIMITED : size;
    const Id space(H5Screate_simple(1, &size, &most), H5Sclose, "space");
    const Id creation(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, "creation list");
    if (layout.chunk > 0) Checked(H5Pset_chunk(creation.Get(), 1, &layout.chunk), "chunk");
    if (layout.level > 0) Checked(H5Pset_deflate(creation.Get(), layout.level), "deflate");
    Checked(H5Pset_fill_time(creation.Get(), H5D_FILL_TIME_NEVER), "fill time");
    return {
        H5Dcreate2(file.Get(), name, layout.fileType, space.Get(), H5P_DEFAULT, creation.Get(), H5P_DEFAULT),
        H5Dclose, "create dataset"};
}

/// Pieces of one length of a dataset; the selections are made once.
class Pieces
{
public:
    Pieces(Id dataset, hid_t type, hsize_t length)
        : m_Dataset(std::move(dataset)),
          m_Type(type),
          m_Length(length),
          m_File(H5Dget_space(m_Dataset.Get()), H5Sclose, "space"),
          m_Memory(H5Screate_simple(1, &length, nullptr), H5Sclose, "memory space")
    {
    }
    Pieces(const Id& file, const char* name, hid_t type, hsize_t length)
        : Pieces(Id(H5Dopen2(file.Get(), name, H5P_DEFAULT), H5Dclose, "open dataset"), type, length)
    {
    }
    void Write(int index, const void* values)
    {
        Select(index);
        Checked(H5Dwrite(m_Dataset.Get(), m_Type, m_Memory.Get(), m_File.Get(), H5P_DEFAULT, values),
                "write");
    }
    void Read(int index, void* values)
    {
        Select(index);
        Checked(H5Dread(m_Dataset.Get(), m_Type, m_Memory.Get(), m_File.Get(), H5P_DEFAULT, values), "read");
    }

private:
    void Select(int index)
    {
        const hsize_t start = static_cast<hsize_t>(index) * m_Length;
        Checked(H5Sselect_hyperslab(m_File.Get(), H5S_SELECT_SET, &start, nullptr, &m_Length, nullptr),
                "select");
    }
    Id m_Dataset;
    hid_t m_Type;
    hsize_t m_Length;
    Id m_File;
    Id m_Memory;
};

void WriteBlocks(const std::string& file, int count)
{
    BlockMaker maker;
    const Id open = CreateFile(file);
    Pieces blocks(CreateDataset(open, "blocks", static_cast<hsize_t>(count) * kBlockDoubles,
                                {.fileType = H5T_NATIVE_DOUBLE}),
                  H5T_NATIVE_DOUBLE, kBlockDoubles);
    for (int i = 0; i < count; ++i) blocks.Write(i, maker.Block(i));
}

std::uint64_t ReadBlocks(const std::string& file, int count)
{
    const Id open = OpenFile(file, H5F_ACC_RDONLY);
    Pieces blocks(open, "blocks", H5T_NATIVE_DOUBLE, kBlockDoubles);
    std::vector<double> values(kBlockDoubles);
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        blocks.Read(i, values.data());
        sum += BlockSum(values.data(), i);
    }
    return sum;
}

constexpr const char* kResults = "results";
constexpr const char* kConnectivity = "connectivity";
constexpr hsize_t kBlockInts = kBlockBytes / sizeof(int);
constexpr hsize_t kDeflatedChunkBytes = 65'536;
constexpr unsigned kDeflateLevel = 6;

void WriteField(const std::string& file, int count)
{
    const Id open = CreateFile(file, kFieldCache);
    const auto resultCount = static_cast<hsize_t>(ResultBlocks(count));
    const auto connectivityCount = static_cast<hsize_t>(count) - resultCount;
    Pieces results(CreateDataset(open, kResults, resultCount * kBlockDoubles,
                                 {.fileType = H5T_NATIVE_DOUBLE,
                                  .chunk = kDeflatedChunkBytes / sizeof(double),
                                  .level = kDeflateLevel}),
                   H5T_NATIVE_DOUBLE, kBlockDoubles);
    Pieces connectivity(
        CreateDataset(
            open, kConnectivity, connectivityCount * kBlockInts,
            {.fileType = H5T_NATIVE_INT, .chunk = kDeflatedChunkBytes / sizeof(int), .level = kDeflateLevel}),
        H5T_NATIVE_INT, kBlockInts);
    for (int i = 0; i < ResultBlocks(count); ++i) results.Write(i, FieldBlock(i, count));
    for (int i = ResultBlocks(count); i < count; ++i)
        connectivity.Write(i - ResultBlocks(count), FieldBlock(i, count));
}

std::uint64_t ReadField(const std::string& file, int count)
{
    const Id open = OpenFile(file, H5F_ACC_RDONLY, kFieldCache);
    Pieces results(open, kResults, H5T_NATIVE_DOUBLE, kBlockDoubles);
    Pieces connectivity(open, kConnectivity, H5T_NATIVE_INT, kBlockInts);
    const int resultBlocks = ResultBlocks(count);
    return SumField(count,
                    [&](int index, char* block)
                    {
                        if (index < resultBlocks)
                            results.Read(index, block);
                        else
                            connectivity.Read(index - resultBlocks, block);
                    });
}

class HeldField
{
public:
    HeldField(const std::string& file, int /*count*/)
        : m_File(OpenFile(file, H5F_ACC_RDONLY, kFieldCache)),
          m_Rows(m_File, kResults, H5T_NATIVE_DOUBLE, kFieldRowDoubles)
    {
    }
    void ReadRow(int row, double* target) { m_Rows.Read(row, target); }

private:
    Id m_File;
    Pieces m_Rows;
};

/// The field as bytes, laid out as a database inside an HDF5 file is.
constexpr const char* kBytes = "bytes";
constexpr hsize_t kByteChunk = 4'096;

void WriteBytes(const std::string& file, int count)
{
    const Id open(H5Fcreate(file.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose, "create file");
    Pieces blocks(CreateDataset(open, kBytes, static_cast<hsize_t>(count) * kBlockBytes,
                                {.fileType = H5T_STD_I8LE, .chunk = kByteChunk, .grows = true}),
                  H5T_NATIVE_SCHAR, kBlockBytes);
    for (int i = 0; i < count; ++i) blocks.Write(i, FieldBlock(i, count));
}

std::uint64_t ReadBytes(const std::string& file, int count)
{
    const Id open(H5Fopen(file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose, "open file");
    Pieces blocks(open, kBytes, H5T_NATIVE_SCHAR, kBlockBytes);
    return SumField(count, [&](int index, char* block) { blocks.Read(index, block); });
}

void WriteObjects(const std::string& file, int count)
{
    const Id open = CreateFile(file);
    const hsize_t size = kObjectDoubles;
    const Id space(H5Screate_simple(1, &size, nullptr), H5Sclose, "space");
    const Id creation(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, "creation list");
    Checked(H5Pset_layout(creation.Get(), H5D_COMPACT), "layout");
    std::array<double, kObjectDoubles> values{};
    for (int i = 0; i < count; ++i)
    {
        FillObject(i, values.data());
        const Id object(H5Dcreate2(open.Get(), std::to_string(i).c_str(), H5T_NATIVE_DOUBLE, space.Get(),
                                   H5P_DEFAULT, creation.Get(), H5P_DEFAULT),
                        H5Dclose, "create object");
        Checked(H5Dwrite(object.Get(), H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()),
                "write");
    }
}

std::uint64_t ReadObject(const Id& file, int index)
{
    std::array<double, kObjectDoubles> values{};
    const Id object(H5Dopen2(file.Get(), std::to_string(index).c_str(), H5P_DEFAULT), H5Dclose,
                    "open object");
    Checked(H5Dread(object.Get(), H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), "read");
    return ObjectSum(values.data(), index);
}

std::uint64_t ReadObjects(const std::string& file, int count)
{
    const Id open = OpenFile(file, H5F_ACC_RDONLY);
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i) sum += ReadObject(open, i);
    return sum;
}

class ObjectReader
{
public:
    ObjectReader(const std::string& file, int count) : m_File(file), m_Last(count - 1)
    {
        WriteObjects(file, count);
    }
    std::uint64_t Read() const { return ReadObject(OpenFile(m_File, H5F_ACC_RDONLY), m_Last); }

private:
    std::string m_File;
    int m_Last;
};

/// Rows in a chunked dataset under single-writer multiple-reader access.
class SwmrWriter : public LiveWriter
{
public:
    explicit SwmrWriter(const std::string& file) : m_Type(MakeRowType()), m_File(CreateFile(file))
    {
        const hsize_t none = 0;
        const hsize_t unlimited = H5S_UNLIMITED;
        const Id space(H5Screate_simple(1, &none, &unlimited), H5Sclose, "space");
        const Id creation(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, "creation list");
        Checked(H5Pset_chunk(creation.Get(), 1, &kChunkRows), "chunk");
        m_Rows = Id(H5Dcreate2(m_File.Get(), kRows, m_Type.Get(), space.Get(), H5P_DEFAULT, creation.Get(),
                               H5P_DEFAULT),
                    H5Dclose, "create rows");
        Checked(H5Fstart_swmr_write(m_File.Get()), "start of single writer");
    }
    void Append(const Row& row) override { m_Pending.push_back(Pack(row)); }
    void Publish() override
    {
        if (!m_Pending.empty())
        {
            Checked(
                H5DOappend(m_Rows.Get(), H5P_DEFAULT, 0, m_Pending.size(), m_Type.Get(), m_Pending.data()),
                "append");
        }
        m_Pending.clear();
        Checked(H5Dflush(m_Rows.Get()), "flush");
    }

private:
    Id m_Type;
    Id m_File;
    Id m_Rows;
    std::vector<PackedRow> m_Pending;
};

class SwmrReader : public LiveReader
{
public:
    explicit SwmrReader(const std::string& file)
        : m_Type(MakeRowType()),
          m_File(OpenFile(file, H5F_ACC_RDONLY | H5F_ACC_SWMR_READ)),
          m_Rows(H5Dopen2(m_File.Get(), kRows, H5P_DEFAULT), H5Dclose, "open rows")
    {
    }
    Sight Look(int seen, int /*newest*/) override
    {
        Checked(H5Drefresh(m_Rows.Get()), "refresh");
        const Id space(H5Dget_space(m_Rows.Get()), H5Sclose, "space");
        hsize_t extent = 0;
        Checked(H5Sget_simple_extent_dims(space.Get(), &extent, nullptr), "extent");
        Sight sight{.first = seen, .visible = static_cast<int>(extent)};
        if (sight.visible > seen) ReadFrom(space, sight);
        return sight;
    }

private:
    void ReadFrom(const Id& space, Sight& sight)
    {
        const auto first = static_cast<hsize_t>(sight.first);
        const auto count = static_cast<hsize_t>(sight.visible - sight.first);
        std::vector<PackedRow> rows(count);
        const Id memory(H5Screate_simple(1, &count, nullptr), H5Sclose, "memory space");
        Checked(H5Sselect_hyperslab(space.Get(), H5S_SELECT_SET, &first, nullptr, &count, nullptr), "select");
        Checked(H5Dread(m_Rows.Get(), m_Type.Get(), memory.Get(), space.Get(), H5P_DEFAULT, rows.data()),
                "read");
        for (hsize_t i = 0; i < count; ++i) sight.sum += RowSum(Unpack(rows[i]), static_cast<int>(first + i));
    }
    Id m_Type;
    Id m_File;
    Id m_Rows;
};

constexpr StoreSteps kSteps{
    {"bench.h5", RemoveFile}, WriteRows, WriteBlocks, ReadBlocks, WriteObjects, ReadObjects};
using Store = StoreOf<kSteps, RowTable, ObjectReader, void, void, SwmrWriter, SwmrReader>;

std::unique_ptr<Contender> Make(Kind kind, const Setting& setting)
{
    const int fieldBlocks = setting.sizes.fieldBlockCount;
    const WholeFile bytes{kSteps, WriteBytes, ReadBytes, fieldBlocks};
    switch (kind)
    {
    case Kind::CompressedWrite:
    case Kind::CompressedRead:
    case Kind::CompressedRandom:
    case Kind::CompressedSize:
        return MakeCompressed<HeldField>(kind, setting, {kSteps, WriteField, ReadField, fieldBlocks});
    case Kind::HdfWrite: return std::make_unique<WholeWrite>(setting, bytes);
    case Kind::HdfRead: return std::make_unique<WholeRead>(setting, bytes);
    case Kind::ToolArray: return MakeHdf5Tool(kind, setting);
    default: return MakeOf<Store>(kind, setting);
    }
}

std::string Version()
{
    unsigned major = 0;
    unsigned minor = 0;
    unsigned release = 0;
    Checked(H5get_libversion(&major, &minor, &release), "version");
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(release);
}

} // namespace

void WriteHdf5Doubles(const std::string& file, const std::vector<double>& values)
{
    const Id open = CreateFile(file);
    Pieces array(CreateDataset(open, "array", values.size(), {.fileType = H5T_NATIVE_DOUBLE}),
                 H5T_NATIVE_DOUBLE, values.size());
    array.Write(0, values.data());
}

Peer Hdf5Peer()
{
    return {.name = "HDF5",
            .note = Version() +
                    ": newest layout, packet table in chunks of 1024 rows, chunk cache 128 MiB; bulk: "
                    "contiguous, no fill; small: compact; visible: single writer, H5Dflush and H5Drefresh; "
                    "compressed: "
                    "gzip 6 in chunks of 64 KiB, chunk cache 1 MiB; hdf: bytes in chunks of 4096, all else "
                    "default; tool: h5dump",
            .make = Make};
}

} // namespace bench
