// Ourselves, through the public interface alone: field handles by index, texts made once, a quantum that keeps a
// growing object in few extents.

#include "live.h"
#include "peers.h"

#include <algorithm>
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

rfm_Database Create(const std::string& file)
{
    Library::Start();
    return rfm_Database::Create(rfm_File::Open(file.c_str(), utl_FileAccessCreate), kMagic, "benchmark", 1);
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

void WriteRows(const std::string& file, int count)
{
    rfm_Database database = Create(file);
    {
        rfm_Table table = NewTable(database);
        for (int i = 0; i < count; ++i) AppendRow(table, RowAt(i));
        table.Flush();
    }
    database.Flush();
    database.Close();
}

std::uint64_t SumRows(rfm_Table& table)
{
    std::uint64_t sum = 0;
    const int count = table.Length();
    for (int i = 0; i < count; ++i) sum += SumOfRow(table.ReadRow(i), i);
    return sum;
}

std::uint64_t SumRowsOf(const std::string& file)
{
    rfm_Database database = Open(file);
    rfm_Table table = OpenTable(database, kTableReadAhead);
    return SumRows(table);
}

class RfmContender : public Contender
{
protected:
    RfmContender(const Setting& setting, const char* name)
        : m_Sizes(setting.sizes),
          m_File(setting.File(name))
    {
    }
    const Sizes m_Sizes;
    const std::string m_File;
    std::uint64_t m_Sum = 0;
};

class Append : public RfmContender
{
public:
    explicit Append(const Setting& setting) : RfmContender(setting, "append.rdx") {}
    void Prepare(int /*round*/) override { std::filesystem::remove(m_File); }
    double Run() override
    {
        return SecondsOf([&] { WriteRows(m_File, m_Sizes.rowCount); });
    }
    std::uint64_t Verify() override { return SumRowsOf(m_File); }
};

/// A contender on an open table.
class TableContender : public RfmContender
{
public:
    void Build() override { WriteRows(m_File, m_Sizes.rowCount); }
    void Prepare(int round) override
    {
        m_Round = round;
        m_Database = Open(m_File, m_Access);
        m_Table = OpenTable(m_Database, m_ReadAhead);
    }

protected:
    TableContender(const Setting& setting, const char* name, utl_FileAccess access, int readAhead)
        : RfmContender(setting, name),
          m_Access(access),
          m_ReadAhead(readAhead)
    {
    }
    void CloseAll()
    {
        m_Table = rfm_Table();
        m_Database.Close();
        m_Database = rfm_Database();
    }
    utl_FileAccess m_Access;
    int m_ReadAhead;
    int m_Round = 0;
    rfm_Database m_Database;
    rfm_Table m_Table;
};

class Scan : public TableContender
{
public:
    explicit Scan(const Setting& setting)
        : TableContender(setting, "scan.rdx", utl_FileAccessRead, kTableReadAhead)
    {
    }
    double Run() override
    {
        return SecondsOf([&] { m_Sum = SumRows(m_Table); });
    }
    std::uint64_t Verify() override
    {
        CloseAll();
        return m_Sum;
    }
};

class RandomRead : public TableContender
{
public:
    explicit RandomRead(const Setting& setting) : TableContender(setting, "read.rdx", utl_FileAccessRead, 1)
    {
    }
    double Run() override
    {
        return SecondsOf(
            [&]
            {
                m_Sum = 0;
                for (int step = 0; step < m_Sizes.randomCount; ++step)
                {
                    m_Sum += SumOfRow(m_Table.ReadRow(RandomPosition(step, m_Sizes.rowCount)), step);
                }
            });
    }
    std::uint64_t Verify() override
    {
        CloseAll();
        return m_Sum;
    }
};

class RandomUpdate : public TableContender
{
public:
    explicit RandomUpdate(const Setting& setting)
        : TableContender(setting, "update.rdx", utl_FileAccessUpdate, 1)
    {
    }
    double Run() override
    {
        return SecondsOf(
            [&]
            {
                for (int step = 0; step < m_Sizes.randomCount; ++step) UpdateOne(step);
                m_Table.Flush();
                m_Database.Flush();
            });
    }
    std::uint64_t Verify() override
    {
        CloseAll();
        return SumRowsOf(m_File);
    }

private:
    void UpdateOne(int step)
    {
        Row changed;
        ApplyUpdate(changed, step, m_Round);
        rfm_Row row = m_Table.UpdateRow(RandomPosition(step, m_Sizes.rowCount));
        row.WriteFieldInt(kNumber, changed.number);
        row.WriteFieldDouble(kValues[0], changed.values[0]);
    }
};

void WriteBlocks(const std::string& file, int count)
{
    BlockMaker maker;
    rfm_Database database = Create(file);
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

/// The first array lists the handles of the others.
void WriteObjects(const std::string& file, int count)
{
    rfm_Database database = Create(file);
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

using WriteAll = void (*)(const std::string& file, int count);
using ReadAll = std::uint64_t (*)(const std::string& file, int count);

class ArrayWrite : public RfmContender
{
public:
    ArrayWrite(const Setting& setting, const char* name, int count, WriteAll write, ReadAll read)
        : RfmContender(setting, name),
          m_Count(count),
          m_Write(write),
          m_Read(read)
    {
    }
    void Prepare(int /*round*/) override { std::filesystem::remove(m_File); }
    double Run() override
    {
        return SecondsOf([&] { m_Write(m_File, m_Count); });
    }
    std::uint64_t Verify() override { return m_Read(m_File, m_Count); }

private:
    int m_Count;
    WriteAll m_Write;
    ReadAll m_Read;
};

class ArrayRead : public RfmContender
{
public:
    ArrayRead(const Setting& setting, const char* name, int count, WriteAll write, ReadAll read)
        : RfmContender(setting, name),
          m_Count(count),
          m_Write(write),
          m_Read(read)
    {
    }
    void Build() override { m_Write(m_File, m_Count); }
    void Prepare(int /*round*/) override {}
    double Run() override
    {
        return SecondsOf([&] { m_Sum = m_Read(m_File, m_Count); });
    }
    std::uint64_t Verify() override { return m_Sum; }

private:
    int m_Count;
    WriteAll m_Write;
    ReadAll m_Read;
};

class OpenObjects : public RfmContender
{
public:
    explicit OpenObjects(const Setting& setting) : RfmContender(setting, "open.rdx") {}
    void Build() override
    {
        WriteObjects(m_File, m_Sizes.openObjectCount);
        rfm_Database database = Open(m_File);
        auto directory = database.ArrayInt(FirstHandle(database), kSmallestQuantum, 0);
        directory.Seek(m_Sizes.openObjectCount - 1);
        int last = 0;
        directory.Read(&last, 1);
        m_Last = rfm_Handle(static_cast<std::uint32_t>(last));
    }
    void Prepare(int /*round*/) override {}
    double Run() override
    {
        return SecondsOf(
                   [&]
                   {
                       for (int i = 0; i < m_Sizes.openRepeats; ++i)
                       {
                           rfm_Database database = Open(m_File);
                           m_Sum = ReadObject(database, m_Last, m_Sizes.openObjectCount - 1);
                       }
                   }) /
               m_Sizes.openRepeats;
    }
    std::uint64_t Verify() override { return m_Sum; }

private:
    rfm_Handle m_Last;
};

class OpenStrings : public RfmContender
{
public:
    explicit OpenStrings(const Setting& setting) : RfmContender(setting, "strings.rdx") {}
    void Build() override
    {
        rfm_Database database = Create(m_File);
        {
            auto array = database.ArrayString(1, kArrayQuantum, kArrayBuffer);
            for (int i = 0; i < m_Sizes.stringCount; ++i)
            {
                const cow_String text{std::string_view(DistinctText(i))};
                array.Write(&text, 1);
            }
        }
        database.Flush();
        database.Close();
    }
    void Prepare(int /*round*/) override {}
    double Run() override
    {
        return SecondsOf(
            [&]
            {
                rfm_Database database = Open(m_File);
                auto array = database.ArrayString(FirstHandle(database), kArrayQuantum, 0);
                array.Seek(m_Sizes.stringCount - 1);
                cow_String text;
                array.Read(&text, 1);
                m_Sum = TextSum(text.View());
            });
    }
    std::uint64_t Verify() override { return m_Sum; }
};

/// A string array keeps references into the pool of the file, so writing one interns its texts.
class Intern : public RfmContender
{
public:
    explicit Intern(const Setting& setting) : RfmContender(setting, "intern.rdx") {}
    void Build() override
    {
        InternInput input = MakeInternInput(m_Sizes.internCount);
        m_Distinct = {input.distinct.begin(), input.distinct.end()};
        m_Sequence = std::move(input.sequence);
    }
    void Prepare(int /*round*/) override { std::filesystem::remove(m_File); }
    double Run() override
    {
        return SecondsOf([&] { InternAll(); });
    }
    std::uint64_t Verify() override
    {
        rfm_Database database = Open(m_File);
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
    void InternAll()
    {
        rfm_Database database = Create(m_File);
        {
            auto array = database.ArrayString(1, kArrayQuantum, kArrayBuffer);
            for (const int index : m_Sequence) array.Write(&m_Distinct[static_cast<std::size_t>(index)], 1);
        }
        database.Flush();
        database.Close();
    }
    std::vector<cow_String> m_Distinct;
    std::vector<int> m_Sequence;
};

class TableWriter : public LiveWriter
{
public:
    explicit TableWriter(const std::string& file) : m_Database(Create(file)), m_Table(EmptyTable(m_Database))
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

LivePeer Live(const std::string& file)
{
    return {.file = file,
            .makeWriter = [file] { return std::make_unique<TableWriter>(file); },
            .makeReader = [file] { return std::make_unique<TableReader>(file); }};
}

std::unique_ptr<Contender> Make(Kind kind, const Setting& setting)
{
    const Sizes& sizes = setting.sizes;
    switch (kind)
    {
    case Kind::Append: return std::make_unique<Append>(setting);
    case Kind::Scan: return std::make_unique<Scan>(setting);
    case Kind::RandomRead: return std::make_unique<RandomRead>(setting);
    case Kind::RandomUpdate: return std::make_unique<RandomUpdate>(setting);
    case Kind::BulkWrite:
        return std::make_unique<ArrayWrite>(setting, "blocks.rdx", sizes.blockCount, WriteBlocks, ReadBlocks);
    case Kind::BulkRead:
        return std::make_unique<ArrayRead>(setting, "blockread.rdx", sizes.blockCount, WriteBlocks,
                                           ReadBlocks);
    case Kind::SmallWrite:
        return std::make_unique<ArrayWrite>(setting, "small.rdx", sizes.objectCount, WriteObjects,
                                            ReadObjects);
    case Kind::SmallRead:
        return std::make_unique<ArrayRead>(setting, "smallread.rdx", sizes.objectCount, WriteObjects,
                                           ReadObjects);
    case Kind::OpenObjects: return std::make_unique<OpenObjects>(setting);
    case Kind::OpenStrings: return std::make_unique<OpenStrings>(setting);
    case Kind::Intern: return std::make_unique<Intern>(setting);
    case Kind::Visible: return MakeVisible(Live(setting.File("live.rdx")), setting);
    case Kind::Followed: return MakeFollowed(Live(setting.File("followed.rdx")), setting, sizes.readerCount);
    }
    return nullptr;
}

} // namespace

Peer RfmPeer()
{
    return {.name = "rfm",
            .note = "public interface, field handles by index, quantum 1 MiB, read-ahead 256 rows (random "
                    "access: 1), "
                    "array buffer 64 KiB; small arrays: smallest quantum, buffer of one array",
            .make = Make};
}

std::unique_ptr<Contender> MakeRfmUnfollowed(const Setting& setting)
{
    return MakeFollowed(Live(setting.File("unfollowed.rdx")), setting, 0);
}

} // namespace bench
