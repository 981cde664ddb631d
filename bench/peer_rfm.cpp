// Ourselves, through the public interface alone: field handles by index, texts made once, a quantum that keeps a
// growing object in few extents.

#include "contenders.h"
#include "peers.h"
#include "tool.h"
#ifdef RFM_BENCH_SSHD
#include "remote.h"
#endif

#include <algorithm>
#include <cstdlib>
#include <rfm.h>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench
{

namespace
{

constexpr int kTableQuantum = 1 << 20;
constexpr int kArrayQuantum = 1 << 20;
constexpr int kSmallestQuantum = -1;
constexpr int kTableReadAhead = 256;
constexpr int kArrayBuffer = 65'536;
constexpr const char* kMagic = "BNCH";

/// The library stays up as long as the process.
class Library
{
public:
    static void Start() { static const Library library; }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

private:
    Library() { rfm_initialize(m_Count); }
    ~Library() { rfm_finalize(m_Count); }
    int m_Count = 0;
};

/// How a new file of one kind is made. Opening one needs no such word: its first bytes tell.
using NewFile = rfm_File (*)(const std::string& file);

rfm_File NewPlain(const std::string& file) { return rfm_File::Open(file.c_str(), utl_FileAccessCreate); }
rfm_File NewCompressed(const std::string& file) { return rfm_File::CreateCompressed(file.c_str()); }

/// The variable that turns new files into HDF5 files is set for this one alone.
class HdfWanted
{
public:
    HdfWanted() { ::setenv(kVariable, "", 1); }
    HdfWanted(const HdfWanted&) = delete;
    HdfWanted& operator=(const HdfWanted&) = delete;
    ~HdfWanted() { ::unsetenv(kVariable); }

private:
    static constexpr const char* kVariable = "MRK_HDF_RDX";
};

rfm_File NewHdf(const std::string& file)
{
    const HdfWanted wanted;
    return NewPlain(file);
}

rfm_Database Create(const std::string& file, NewFile newFile)
{
    Library::Start();
    return rfm_Database::Create(newFile(file), kMagic, "benchmark", 1);
}

rfm_Database Open(const std::string& file, utl_FileAccess access = utl_FileAccessRead)
{
    Library::Start();
    return rfm_Database::Open(rfm_File::Open(file.c_str(), access), kMagic);
}

rfm_TableMetadata MakeLayout()
{
    rfm_TableMetadata layout("rows", 1);
    layout.DefineIntField("number");
    layout.DefineIntField("group");
    for (const char* name : {"value0", "value1", "value2", "value3"}) layout.DefineDoubleField(name);
    layout.DefineFloatField("weight");
    layout.DefineStringField("text");
    return layout;
}

/// The fields by the indices that `MakeLayout` gave them.
const rfm_FieldHandle kNumber(0);
const rfm_FieldHandle kGroup(1);
const std::array<rfm_FieldHandle, 4> kValues = {2, 3, 4, 5};
const rfm_FieldHandle kWeight(6);
const rfm_FieldHandle kText(7);

const std::vector<cow_String>& TextsOfOurs()
{
    static const std::vector<cow_String> texts(RowTexts().begin(), RowTexts().end());
    return texts;
}

rfm_Table NewTable(rfm_Database& database)
{
    return database.Table(database.Bind(MakeLayout()), kTableQuantum, kTableReadAhead);
}

rfm_Table OpenTable(rfm_Database& database, int readAhead)
{
    database.Bind(MakeLayout());
    return database.Table(database.RootTableHandle(), kTableQuantum, readAhead);
}

void AppendRow(rfm_Table& table, const Row& source)
{
    rfm_Row row = table.NewRow();
    row.WriteFieldInt(kNumber, source.number);
    row.WriteFieldInt(kGroup, source.group);
    for (std::size_t i = 0; i < kValues.size(); ++i) row.WriteFieldDouble(kValues[i], source.values[i]);
    row.WriteFieldFloat(kWeight, source.weight);
    row.WriteFieldString(kText, TextsOfOurs()[static_cast<std::size_t>(source.textIndex)]);
}

std::uint64_t SumOfRow(const rfm_Row& source, int position)
{
    Row row;
    row.number = source.ReadFieldInt(kNumber);
    row.group = source.ReadFieldInt(kGroup);
    for (std::size_t i = 0; i < kValues.size(); ++i) row.values[i] = source.ReadFieldDouble(kValues[i]);
    row.weight = source.ReadFieldFloat(kWeight);
    const cow_String text = source.ReadFieldString(kText);
    row.text = text.View();
    return RowSum(row, position);
}

template <NewFile kNewFile> void WriteRows(const std::string& file, int count)
{
    rfm_Database database = Create(file, kNewFile);
    {
        rfm_Table table = NewTable(database);
        for (int i = 0; i < count; ++i) AppendRow(table, RowAt(i));
        table.Flush();
    }
    database.Flush();
    database.Close();
}

/// An open table.
class RowTable
{
public:
    RowTable(const std::string& file, RowUse use)
        : m_Database(Open(file, use == RowUse::RandomUpdate ? utl_FileAccessUpdate : utl_FileAccessRead)),
          m_Table(OpenTable(m_Database, use == RowUse::Scan ? kTableReadAhead : 1))
    {
    }
    std::uint64_t SumAll()
    {
        std::uint64_t sum = 0;
        const int count = m_Table.Length();
        for (int i = 0; i < count; ++i) sum += SumOfRow(m_Table.ReadRow(i), i);
        return sum;
    }
    std::uint64_t SumRandom(const Sizes& sizes)
    {
        std::uint64_t sum = 0;
        for (int step = 0; step < sizes.randomCount; ++step)
        {
            sum += SumOfRow(m_Table.ReadRow(RandomPosition(step, sizes.rowCount)), step);
        }
        return sum;
    }
    void UpdateRandom(const Sizes& sizes, int round)
    {
        for (int step = 0; step < sizes.randomCount; ++step)
            UpdateOne(RandomPosition(step, sizes.rowCount), step, round);
        m_Table.Flush();
        m_Database.Flush();
    }

private:
    void UpdateOne(int position, int step, int round)
    {
        Row changed;
        ApplyUpdate(changed, step, round);
        rfm_Row row = m_Table.UpdateRow(position);
        row.WriteFieldInt(kNumber, changed.number);
        row.WriteFieldDouble(kValues[0], changed.values[0]);
    }
    rfm_Database m_Database;
    rfm_Table m_Table;
};

template <NewFile kNewFile> void WriteBlocks(const std::string& file, int count)
{
    BlockMaker maker;
    rfm_Database database = Create(file, kNewFile);
    {
        auto array = database.ArrayDouble(kBlockDoubles, kArrayQuantum, kArrayBuffer);
        for (int i = 0; i < count; ++i) array.Write(maker.Block(i), 1);
        array.Flush();
    }
    database.Flush();
    database.Close();
}

/// The first object of a file: the place of the first root table, which these files have no use for.
rfm_Handle FirstHandle(const rfm_Database& database) { return database.RootTableHandle(); }

std::uint64_t ReadBlocks(const std::string& file, int count)
{
    rfm_Database database = Open(file);
    auto array = database.ArrayDouble(FirstHandle(database), kArrayQuantum, kArrayBuffer);
    std::vector<double> values(kBlockDoubles);
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        if (array.Read(values.data(), 1) != kBlockDoubles) throw std::runtime_error("rfm: a short block");
        sum += BlockSum(values.data(), i);
    }
    return sum;
}

/// Results come first, connectivity second; a block is a call, and a row is what random reads want.
template <NewFile kNewFile> void WriteField(const std::string& file, int count)
{
    rfm_Database database = Create(file, kNewFile);
    {
        auto results = database.ArrayDouble(kFieldRowDoubles, kArrayQuantum, kArrayBuffer);
        for (int i = 0; i < ResultBlocks(count); ++i)
            results.Write(static_cast<const double*>(FieldBlock(i, count)), kFieldRowsPerBlock);
        auto connectivity = database.ArrayInt(kFieldRowInts, kArrayQuantum, kArrayBuffer);
        for (int i = ResultBlocks(count); i < count; ++i)
            connectivity.Write(static_cast<const int*>(FieldBlock(i, count)), kFieldRowsPerBlock);
        results.Flush();
        connectivity.Flush();
    }
    database.Flush();
    database.Close();
}

/// The sum of the blocks from `first` up to `last`, of which `block` has room for one.
template <class Array, class Element>
std::uint64_t ReadBlocksOf(Array& array, std::vector<Element>& block, int first, int last)
{
    std::uint64_t sum = 0;
    for (int i = first; i < last; ++i)
    {
        if (array.Read(block.data(), kFieldRowsPerBlock) != static_cast<int>(block.size()))
            throw std::runtime_error("rfm: a short block of a field");
        sum += FieldBlockSum(block.data(), i);
    }
    return sum;
}

std::uint64_t ReadField(const std::string& file, int count)
{
    rfm_Database database = Open(file);
    auto results = database.ArrayDouble(FirstHandle(database), kArrayQuantum, kArrayBuffer);
    auto connectivity = database.ArrayInt(database.RootTableHandle2(), kArrayQuantum, kArrayBuffer);
    std::vector<double> values(kBlockBytes / sizeof(double));
    std::vector<int> nodes(kBlockBytes / sizeof(int));
    return ReadBlocksOf(results, values, 0, ResultBlocks(count)) +
           ReadBlocksOf(connectivity, nodes, ResultBlocks(count), count);
}

class HeldField
{
public:
    HeldField(const std::string& file, int /*count*/)
        : m_Database(Open(file)),
          m_Results(m_Database.ArrayDouble(FirstHandle(m_Database), kArrayQuantum, kFieldRowBytes))
    {
    }
    void ReadRow(int row, double* target)
    {
        m_Results.Seek(row);
        if (m_Results.Read(target, 1) != kFieldRowDoubles)
            throw std::runtime_error("rfm: a short row of a field");
    }

private:
    rfm_Database m_Database;
    rfm_Array<double, rfm_TypeDouble> m_Results;
};

/// The first array lists the handles of the others.
template <NewFile kNewFile> void WriteObjects(const std::string& file, int count)
{
    rfm_Database database = Create(file, kNewFile);
    {
        auto directory = database.ArrayInt(1, kSmallestQuantum, 0);
        std::vector<int> handles;
        std::array<double, kObjectDoubles> values{};
        for (int i = 0; i < count; ++i)
        {
            FillObject(i, values.data());
            auto object = database.ArrayDouble(kObjectDoubles, kSmallestQuantum, kObjectBytes);
            object.Write(values.data(), 1);
            handles.push_back(static_cast<int>(object.Handle().Value()));
        }
        directory.Write(handles.data(), count);
    }
    database.Flush();
    database.Close();
}

std::uint64_t ReadObject(rfm_Database& database, rfm_Handle handle, int index)
{
    std::array<double, kObjectDoubles> values{};
    auto object = database.ArrayDouble(handle, kSmallestQuantum, kObjectBytes);
    if (object.Read(values.data(), 1) != kObjectDoubles) throw std::runtime_error("rfm: a short array");
    return ObjectSum(values.data(), index);
}

std::uint64_t ReadObjects(const std::string& file, int count)
{
    rfm_Database database = Open(file);
    std::vector<int> handles(static_cast<std::size_t>(count));
    auto directory = database.ArrayInt(FirstHandle(database), kSmallestQuantum, 0);
    if (directory.Read(handles.data(), count) != count) throw std::runtime_error("rfm: a short directory");
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        sum += ReadObject(database,
                          rfm_Handle(static_cast<std::uint32_t>(handles[static_cast<std::size_t>(i)])), i);
    }
    return sum;
}

class ObjectReader
{
public:
    ObjectReader(const std::string& file, int count) : m_File(file), m_Last(count - 1)
    {
        WriteObjects<NewPlain>(file, count);
        rfm_Database database = Open(file);
        auto directory = database.ArrayInt(FirstHandle(database), kSmallestQuantum, 0);
        directory.Seek(m_Last);
        int last = 0;
        directory.Read(&last, 1);
        m_LastHandle = rfm_Handle(static_cast<std::uint32_t>(last));
    }
    std::uint64_t Read() const
    {
        rfm_Database database = Open(m_File);
        return ReadObject(database, m_LastHandle, m_Last);
    }

private:
    std::string m_File;
    int m_Last;
    rfm_Handle m_LastHandle;
};

/// A string array keeps references into the pool of the file, so writing one interns its texts.
void WriteTexts(const std::string& file, int count)
{
    rfm_Database database = Create(file, NewPlain);
    {
        auto array = database.ArrayString(1, kArrayQuantum, kArrayBuffer);
        for (int i = 0; i < count; ++i)
        {
            const cow_String text{std::string_view(DistinctText(i))};
            array.Write(&text, 1);
        }
    }
    database.Flush();
    database.Close();
}

class TextReader
{
public:
    TextReader(const std::string& file, int count) : m_File(file), m_Last(count - 1)
    {
        WriteTexts(file, count);
    }
    std::uint64_t Read() const
    {
        rfm_Database database = Open(m_File);
        auto array = database.ArrayString(FirstHandle(database), kArrayQuantum, 0);
        array.Seek(m_Last);
        cow_String text;
        array.Read(&text, 1);
        return TextSum(text.View());
    }

private:
    std::string m_File;
    int m_Last;
};

/// The texts are made once, as a program with names of its own has them.
class TextInterner
{
public:
    explicit TextInterner(const InternInput& input)
        : m_Distinct(input.distinct.begin(), input.distinct.end()),
          m_Sequence(input.sequence)
    {
    }
    void InternAll(const std::string& file) const
    {
        rfm_Database database = Create(file, NewPlain);
        {
            auto array = database.ArrayString(1, kArrayQuantum, kArrayBuffer);
            for (const int index : m_Sequence) array.Write(&m_Distinct[static_cast<std::size_t>(index)], 1);
        }
        database.Flush();
        database.Close();
    }
    std::uint64_t SumOf(const std::string& file) const
    {
        rfm_Database database = Open(file);
        auto array = database.ArrayString(FirstHandle(database), kArrayQuantum, kArrayBuffer);
        std::uint64_t sum = 0;
        cow_String text;
        for (std::size_t i = 0; i < m_Sequence.size() && array.Read(&text, 1) == 1; ++i)
        {
            sum += TextSum(text.View()) * (2 * i + 1);
        }
        return sum;
    }

private:
    std::vector<cow_String> m_Distinct;
    std::vector<int> m_Sequence;
};

class TableWriter : public LiveWriter
{
public:
    explicit TableWriter(const std::string& file)
        : m_Database(Create(file, NewPlain)),
          m_Table(EmptyTable(m_Database))
    {
    }
    void Append(const Row& row) override { AppendRow(m_Table, row); }
    void Publish() override
    {
        m_Table.Flush();
        m_Database.Flush();
    }

private:
    /// A new table's header reaches the file with its first rows or when its handle goes. Readers open the table
    /// before there is a row, so the first handle goes at once.
    static rfm_Table EmptyTable(rfm_Database& database)
    {
        const rfm_Handle handle = NewTable(database).Handle();
        return database.Table(handle, kTableQuantum, kTableReadAhead);
    }
    rfm_Database m_Database;
    rfm_Table m_Table;
};

class TableReader : public LiveReader
{
public:
    explicit TableReader(const std::string& file)
        : m_Database(Open(file)),
          m_Table(OpenTable(m_Database, kTableReadAhead))
    {
    }
    Sight Look(int seen, int newest) override
    {
        if (m_Database.FileStatus() == rfm_FileStatus::RfmFileUpdated) MoveOn();
        const int visible = m_Table.Length();
        Sight sight{.first = std::max(seen, visible - std::min(newest, visible)), .visible = visible};
        for (int i = sight.first; i < visible; ++i) sight.sum += SumOfRow(m_Table.ReadRow(i), i);
        return sight;
    }

private:
    void MoveOn()
    {
        if (m_Database.Snap() != 0) m_Table.Snap();
    }
    rfm_Database m_Database;
    rfm_Table m_Table;
};

template <NewFile kNewFile> constexpr StoreSteps StepsOn(const char* fileName)
{
    return {{fileName, RemoveFile}, WriteRows<kNewFile>, WriteBlocks<kNewFile>, ReadBlocks,
            WriteObjects<kNewFile>, ReadObjects};
}
constexpr StoreSteps kSteps = StepsOn<NewPlain>("bench.rdx");
constexpr StoreSteps kCompressedSteps = StepsOn<NewCompressed>("bench.sdx");
constexpr StoreSteps kHdfSteps = StepsOn<NewHdf>("bench.h5.rdx");

template <const StoreSteps& kStepsOf>
using StoreOn = StoreOf<kStepsOf, RowTable, ObjectReader, TextReader, TextInterner, TableWriter, TableReader>;
using Store = StoreOn<kSteps>;

std::unique_ptr<Contender> Make(Kind kind, const Setting& setting)
{
    const int fieldBlocks = setting.sizes.fieldBlockCount;
    const WholeFile hdf{kHdfSteps, WriteField<NewHdf>, ReadField, fieldBlocks};
    switch (kind)
    {
    case Kind::Followed:
        return MakeFollowed(LiveOf<Store>(setting.File("followed.rdx")), setting, setting.sizes.readerCount);
    case Kind::CompressedWrite:
    case Kind::CompressedRead:
    case Kind::CompressedRandom:
    case Kind::CompressedSize:
        return MakeCompressed<HeldField>(
            kind, setting, {kCompressedSteps, WriteField<NewCompressed>, ReadField, fieldBlocks});
    case Kind::CompressedAppend: return MakeOf<StoreOn<kCompressedSteps>>(Kind::Append, setting);
    case Kind::CompressedScan: return MakeOf<StoreOn<kCompressedSteps>>(Kind::Scan, setting);
    case Kind::HdfWrite: return std::make_unique<WholeWrite>(setting, hdf);
    case Kind::HdfRead: return std::make_unique<WholeRead>(setting, hdf);
    case Kind::HdfAppend: return MakeOf<StoreOn<kHdfSteps>>(Kind::Append, setting);
    case Kind::HdfScan: return MakeOf<StoreOn<kHdfSteps>>(Kind::Scan, setting);
#ifdef RFM_BENCH_SSHD
    case Kind::RemoteRead:
    case Kind::RemoteCold:
    case Kind::RemoteWarm: return MakeRemote(kind, setting);
#endif
    case Kind::ToolStart:
    case Kind::ToolInfo:
    case Kind::ToolList:
    case Kind::ToolTable:
    case Kind::ToolArray:
    case Kind::ToolFollow:
    case Kind::ToolFollowed: return MakeTool(kind, setting);
    default: return MakeOf<Store>(kind, setting);
    }
}

} // namespace

Peer RfmPeer()
{
    return {.name = "rfm",
            .note = "public interface, field handles by index, quantum 1 MiB, read-ahead 256 rows (random "
                    "access: 1), "
                    "array buffer 64 KiB; small arrays: smallest quantum, buffer of one array; compressed "
                    "files read in sequence inflate on two threads where there are two processors, all "
                    "else here is one thread",
            .make = Make};
}

std::unique_ptr<Contender> MakeRfmUnfollowed(const Setting& setting)
{
    return MakeFollowed(LiveOf<Store>(setting.File("unfollowed.rdx")), setting, 0);
}

std::unique_ptr<Contender> MakeRfmPlain(Kind kind, const Setting& setting)
{
    return MakeOf<Store>(kind, setting);
}

LivePeer RfmLive(const std::string& file) { return LiveOf<Store>(file); }

void StartRfm() { Library::Start(); }

void WriteRfmRows(const std::string& file, int count) { WriteRows<NewPlain>(file, count); }

} // namespace bench
