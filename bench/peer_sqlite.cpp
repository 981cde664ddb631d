// SQLite as its documentation makes it fast: prepared statements, one transaction, no journal, no syncing, an
// exclusive lock, a large page cache and memory-mapped reads.

#include "live.h"
#include "peers.h"

#include <cstring>
#include <sqlite3.h>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench
{

namespace
{

class Connection
{
public:
    Connection() = default;
    explicit Connection(const std::string& file, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)
    {
        const int result = sqlite3_open_v2(file.c_str(), &m_Database, flags | SQLITE_OPEN_NOMUTEX, nullptr);
        Check(result, file.c_str());
    }
    Connection(Connection&& source) noexcept : m_Database(std::exchange(source.m_Database, nullptr)) {}
    Connection& operator=(Connection&& source) noexcept
    {
        std::swap(m_Database, source.m_Database);
        return *this;
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { sqlite3_close_v2(m_Database); }

    void Execute(const char* text) const
    {
        Check(sqlite3_exec(m_Database, text, nullptr, nullptr, nullptr), text);
    }
    sqlite3* Get() const { return m_Database; }
    void Check(int result, const char* what) const
    {
        if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return;
        throw std::runtime_error(std::string("SQLite: ") + what + ": " + sqlite3_errmsg(m_Database));
    }

private:
    sqlite3* m_Database = nullptr;
};

class Statement
{
public:
    Statement(const Connection& connection, const char* text) : m_Connection(connection)
    {
        connection.Check(
            sqlite3_prepare_v3(connection.Get(), text, -1, SQLITE_PREPARE_PERSISTENT, &m_Statement, nullptr),
            text);
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement() { sqlite3_finalize(m_Statement); }

    /// True when there is a row to read.
    bool Step()
    {
        const int result = sqlite3_step(m_Statement);
        m_Connection.Check(result, "step");
        return result == SQLITE_ROW;
    }
    void Run()
    {
        Step();
        Reset();
    }
    void Reset() { sqlite3_reset(m_Statement); }
    void Bind(int at, int value) { sqlite3_bind_int(m_Statement, at, value); }
    void Bind(int at, double value) { sqlite3_bind_double(m_Statement, at, value); }
    void Bind(int at, std::string_view text)
    {
        sqlite3_bind_text(m_Statement, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
    void BindBytes(int at, const void* bytes, int count)
    {
        sqlite3_bind_blob(m_Statement, at, bytes, count, SQLITE_STATIC);
    }
    int Int(int column) { return sqlite3_column_int(m_Statement, column); }
    double Double(int column) { return sqlite3_column_double(m_Statement, column); }
    std::string_view Text(int column)
    {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_Statement, column));
        return {text, static_cast<std::size_t>(sqlite3_column_bytes(m_Statement, column))};
    }
    void Bytes(int column, void* target, int count)
    {
        const void* bytes = sqlite3_column_blob(m_Statement, column);
        if (sqlite3_column_bytes(m_Statement, column) != count)
            throw std::runtime_error("SQLite: short blob");
        std::memcpy(target, bytes, static_cast<std::size_t>(count));
    }

private:
    const Connection& m_Connection;
    sqlite3_stmt* m_Statement = nullptr;
};

constexpr const char* kFast =
    "PRAGMA page_size=8192; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
    "PRAGMA locking_mode=EXCLUSIVE; PRAGMA temp_store=MEMORY; PRAGMA cache_size=-262144;"
    "PRAGMA mmap_size=2147483648;";
constexpr const char* kRowTable =
    "CREATE TABLE rows(number INTEGER, grp INTEGER, v0 REAL, v1 REAL, v2 REAL, v3 REAL,"
    "weight REAL, text TEXT)";
constexpr const char* kInsertRow = "INSERT INTO rows(rowid,number,grp,v0,v1,v2,v3,weight,text)"
                                   "VALUES(?9,?1,?2,?3,?4,?5,?6,?7,?8)";
constexpr const char* kBlobTable = "CREATE TABLE blobs(id INTEGER PRIMARY KEY, data BLOB)";

Connection OpenFast(const std::string& file)
{
    Connection connection(file);
    connection.Execute(kFast);
    return connection;
}

void InsertRow(Statement& insert, const Row& row, int position)
{
    insert.Bind(1, row.number);
    insert.Bind(2, row.group);
    for (int i = 0; i < 4; ++i) insert.Bind(3 + i, row.values[static_cast<std::size_t>(i)]);
    insert.Bind(7, static_cast<double>(row.weight));
    insert.Bind(8, row.text);
    insert.Bind(9, position);
    insert.Run();
}

Row ReadRow(Statement& select)
{
    Row row;
    row.number = select.Int(0);
    row.group = select.Int(1);
    for (int i = 0; i < 4; ++i) row.values[static_cast<std::size_t>(i)] = select.Double(2 + i);
    row.weight = static_cast<float>(select.Double(6));
    row.text = select.Text(7);
    return row;
}

void WriteRows(const std::string& file, int count)
{
    const Connection connection = OpenFast(file);
    connection.Execute("BEGIN");
    connection.Execute(kRowTable);
    {
        Statement insert(connection, kInsertRow);
        for (int i = 0; i < count; ++i) InsertRow(insert, RowAt(i), i);
    }
    connection.Execute("COMMIT");
}

std::uint64_t SumRows(const Connection& connection)
{
    Statement select(connection, "SELECT * FROM rows ORDER BY rowid");
    std::uint64_t sum = 0;
    for (int position = 0; select.Step(); ++position) sum += RowSum(ReadRow(select), position);
    return sum;
}

void RemoveDatabase(const std::string& file)
{
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) std::filesystem::remove(file + suffix);
}

class SqliteContender : public Contender
{
protected:
    SqliteContender(const Setting& setting, const char* name)
        : m_Sizes(setting.sizes),
          m_File(setting.File(name))
    {
    }
    const Sizes m_Sizes;
    const std::string m_File;
    Connection m_Open;
    std::uint64_t m_Sum = 0;
};

class Append : public SqliteContender
{
public:
    explicit Append(const Setting& setting) : SqliteContender(setting, "append.sqlite") {}
    void Prepare(int /*round*/) override { RemoveDatabase(m_File); }
    double Run() override
    {
        return SecondsOf([&] { WriteRows(m_File, m_Sizes.rowCount); });
    }
    std::uint64_t Verify() override { return SumRows(OpenFast(m_File)); }
};

class Scan : public SqliteContender
{
public:
    explicit Scan(const Setting& setting) : SqliteContender(setting, "scan.sqlite") {}
    void Build() override { WriteRows(m_File, m_Sizes.rowCount); }
    void Prepare(int /*round*/) override { m_Open = OpenFast(m_File); }
    double Run() override
    {
        return SecondsOf([&] { m_Sum = SumRows(m_Open); });
    }
    std::uint64_t Verify() override
    {
        m_Open = Connection();
        return m_Sum;
    }
};

class RandomRead : public SqliteContender
{
public:
    explicit RandomRead(const Setting& setting) : SqliteContender(setting, "read.sqlite") {}
    void Build() override { WriteRows(m_File, m_Sizes.rowCount); }
    void Prepare(int /*round*/) override { m_Open = OpenFast(m_File); }
    double Run() override
    {
        return SecondsOf(
            [&]
            {
                m_Sum = 0;
                m_Open.Execute("BEGIN");
                {
                    Statement select(m_Open, "SELECT * FROM rows WHERE rowid=?1");
                    for (int step = 0; step < m_Sizes.randomCount; ++step)
                    {
                        select.Bind(1, RandomPosition(step, m_Sizes.rowCount));
                        if (select.Step()) m_Sum += RowSum(ReadRow(select), step);
                        select.Reset();
                    }
                }
                m_Open.Execute("COMMIT");
            });
    }
    std::uint64_t Verify() override
    {
        m_Open = Connection();
        return m_Sum;
    }
};

class RandomUpdate : public SqliteContender
{
public:
    explicit RandomUpdate(const Setting& setting) : SqliteContender(setting, "update.sqlite") {}
    void Build() override { WriteRows(m_File, m_Sizes.rowCount); }
    void Prepare(int round) override
    {
        m_Round = round;
        m_Open = OpenFast(m_File);
    }
    double Run() override
    {
        return SecondsOf(
            [&]
            {
                m_Open.Execute("BEGIN");
                {
                    Statement update(m_Open, "UPDATE rows SET number=?1, v0=?2 WHERE rowid=?3");
                    for (int step = 0; step < m_Sizes.randomCount; ++step)
                    {
                        Row row;
                        ApplyUpdate(row, step, m_Round);
                        update.Bind(1, row.number);
                        update.Bind(2, row.values[0]);
                        update.Bind(3, RandomPosition(step, m_Sizes.rowCount));
                        update.Run();
                    }
                }
                m_Open.Execute("COMMIT");
            });
    }
    std::uint64_t Verify() override
    {
        m_Open = Connection();
        return SumRows(OpenFast(m_File));
    }

private:
    int m_Round = 0;
};

/// Stores `count` values of `bytes` bytes that `at` names one by one.
template <class At> void WriteBlobs(const std::string& file, int count, int bytes, At&& at)
{
    const Connection connection = OpenFast(file);
    connection.Execute("BEGIN");
    connection.Execute(kBlobTable);
    {
        Statement insert(connection, "INSERT INTO blobs(id,data) VALUES(?1,?2)");
        for (int i = 0; i < count; ++i)
        {
            insert.Bind(1, i);
            insert.BindBytes(2, at(i), bytes);
            insert.Run();
        }
    }
    connection.Execute("COMMIT");
}

template <class Take>
void ReadBlobs(const std::string& file, int count, int bytes, double* target, Take&& take)
{
    const Connection connection = OpenFast(file);
    connection.Execute("BEGIN");
    {
        Statement select(connection, "SELECT data FROM blobs WHERE id=?1");
        for (int i = 0; i < count; ++i)
        {
            select.Bind(1, i);
            if (select.Step()) select.Bytes(0, target, bytes);
            take(i);
            select.Reset();
        }
    }
    connection.Execute("COMMIT");
}

void WriteBlocks(const std::string& file, int count)
{
    BlockMaker maker;
    WriteBlobs(file, count, kBlockBytes, [&](int i) { return maker.Block(i); });
}

std::uint64_t ReadBlocks(const std::string& file, int count)
{
    std::vector<double> values(kBlockDoubles);
    std::uint64_t sum = 0;
    ReadBlobs(file, count, kBlockBytes, values.data(), [&](int i) { sum += BlockSum(values.data(), i); });
    return sum;
}

void WriteObjects(const std::string& file, int count)
{
    std::array<double, kObjectDoubles> values{};
    WriteBlobs(file, count, kObjectBytes,
               [&](int i)
               {
                   FillObject(i, values.data());
                   return values.data();
               });
}

std::uint64_t ReadObjects(const std::string& file, int count)
{
    std::array<double, kObjectDoubles> values{};
    std::uint64_t sum = 0;
    ReadBlobs(file, count, kObjectBytes, values.data(), [&](int i) { sum += ObjectSum(values.data(), i); });
    return sum;
}

using WriteAll = void (*)(const std::string& file, int count);
using ReadAll = std::uint64_t (*)(const std::string& file, int count);

class BlobWrite : public SqliteContender
{
public:
    BlobWrite(const Setting& setting, const char* name, int count, WriteAll write, ReadAll read)
        : SqliteContender(setting, name),
          m_Count(count),
          m_Write(write),
          m_Read(read)
    {
    }
    void Prepare(int /*round*/) override { RemoveDatabase(m_File); }
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

class BlobRead : public SqliteContender
{
public:
    BlobRead(const Setting& setting, const char* name, int count, WriteAll write, ReadAll read)
        : SqliteContender(setting, name),
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

/// Opens without a pragma, since each would cost it time that one read does not earn back.
template <class Take> double TimeOpens(const std::string& file, int repeats, Take&& take)
{
    return SecondsOf(
               [&]
               {
                   for (int i = 0; i < repeats; ++i) take(Connection(file, SQLITE_OPEN_READONLY));
               }) /
           repeats;
}

class OpenObjects : public SqliteContender
{
public:
    explicit OpenObjects(const Setting& setting) : SqliteContender(setting, "open.sqlite") {}
    void Build() override { WriteObjects(m_File, m_Sizes.openObjectCount); }
    void Prepare(int /*round*/) override {}
    double Run() override
    {
        return TimeOpens(m_File, m_Sizes.openRepeats,
                         [&](const Connection& connection) { ReadLast(connection); });
    }
    std::uint64_t Verify() override { return m_Sum; }

private:
    void ReadLast(const Connection& connection)
    {
        std::array<double, kObjectDoubles> values{};
        Statement select(connection, "SELECT data FROM blobs WHERE id=?1");
        select.Bind(1, m_Sizes.openObjectCount - 1);
        if (select.Step()) select.Bytes(0, values.data(), kObjectBytes);
        m_Sum = ObjectSum(values.data(), m_Sizes.openObjectCount - 1);
    }
};

constexpr const char* kTextTable = "CREATE TABLE texts(id INTEGER PRIMARY KEY, text TEXT UNIQUE)";

class OpenStrings : public SqliteContender
{
public:
    explicit OpenStrings(const Setting& setting) : SqliteContender(setting, "strings.sqlite") {}
    void Build() override
    {
        const Connection connection = OpenFast(m_File);
        connection.Execute("BEGIN");
        connection.Execute(kTextTable);
        {
            Statement insert(connection, "INSERT INTO texts(id,text) VALUES(?1,?2)");
            for (int i = 0; i < m_Sizes.stringCount; ++i)
            {
                const std::string text = DistinctText(i);
                insert.Bind(1, i);
                insert.Bind(2, std::string_view(text));
                insert.Run();
            }
        }
        connection.Execute("COMMIT");
    }
    void Prepare(int /*round*/) override {}
    double Run() override
    {
        return TimeOpens(m_File, 1, [&](const Connection& connection) { ReadLast(connection); });
    }
    std::uint64_t Verify() override { return m_Sum; }

private:
    void ReadLast(const Connection& connection)
    {
        Statement select(connection, "SELECT text FROM texts WHERE id=?1");
        select.Bind(1, m_Sizes.stringCount - 1);
        m_Sum = select.Step() ? TextSum(select.Text(0)) : 0;
    }
};

class Intern : public SqliteContender
{
public:
    explicit Intern(const Setting& setting) : SqliteContender(setting, "intern.sqlite") {}
    void Build() override { m_Input = MakeInternInput(m_Sizes.internCount); }
    void Prepare(int /*round*/) override
    {
        RemoveDatabase(m_File);
        m_References.assign(m_Input.sequence.size(), 0);
    }
    double Run() override
    {
        return SecondsOf([&] { InternAll(); });
    }
    std::uint64_t Verify() override
    {
        const Connection connection = OpenFast(m_File);
        Statement select(connection, "SELECT text FROM texts WHERE id=?1");
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < m_References.size(); ++i)
        {
            select.Bind(1, m_References[i]);
            if (select.Step()) sum += TextSum(select.Text(0)) * (2 * i + 1);
            select.Reset();
        }
        return sum;
    }

private:
    void InternAll()
    {
        const Connection connection = OpenFast(m_File);
        connection.Execute("BEGIN");
        connection.Execute(kTextTable);
        {
            Statement select(connection, "SELECT id FROM texts WHERE text=?1");
            Statement insert(connection, "INSERT INTO texts(id,text) VALUES(?1,?2)");
            int nextId = 1;
            for (std::size_t i = 0; i < m_References.size(); ++i)
            {
                const std::string_view text = m_Input.distinct[static_cast<std::size_t>(m_Input.sequence[i])];
                select.Bind(1, text);
                const bool known = select.Step();
                m_References[i] = known ? select.Int(0) : nextId;
                select.Reset();
                if (known) continue;
                insert.Bind(1, nextId++);
                insert.Bind(2, text);
                insert.Run();
            }
        }
        connection.Execute("COMMIT");
    }
    InternInput m_Input;
    std::vector<int> m_References;
};

/// A write-ahead log lets readers go on while the writer writes.
constexpr const char* kWal = "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF; PRAGMA mmap_size=2147483648;";

class WalWriter : public LiveWriter
{
public:
    explicit WalWriter(const std::string& file) : m_Connection(Made(file)), m_Insert(m_Connection, kInsertRow)
    {
        m_Connection.Execute("BEGIN");
    }
    void Append(const Row& row) override { InsertRow(m_Insert, row, m_Count++); }
    void Publish() override
    {
        m_Connection.Execute("COMMIT");
        m_Connection.Execute("BEGIN");
    }

private:
    static Connection Made(const std::string& file)
    {
        RemoveDatabase(file);
        Connection connection(file);
        connection.Execute(kWal);
        connection.Execute(kRowTable);
        return connection;
    }
    Connection m_Connection;
    Statement m_Insert;
    int m_Count = 0;
};

class WalReader : public LiveReader
{
public:
    explicit WalReader(const std::string& file)
        : m_Connection(file, SQLITE_OPEN_READWRITE),
          m_Version(m_Connection, "PRAGMA data_version"),
          m_Select(m_Connection, "SELECT * FROM rows WHERE rowid>=?1 ORDER BY rowid")
    {
    }
    Sight Look(int seen, int /*newest*/) override
    {
        Sight sight{.first = seen, .visible = seen};
        if (!SomethingIsNew()) return sight;
        m_Select.Bind(1, seen);
        while (m_Select.Step())
        {
            sight.sum += RowSum(ReadRow(m_Select), sight.visible);
            ++sight.visible;
        }
        m_Select.Reset();
        return sight;
    }

private:
    bool SomethingIsNew()
    {
        const int version = m_Version.Step() ? m_Version.Int(0) : 0;
        m_Version.Reset();
        if (version == m_LastVersion) return false;
        m_LastVersion = version;
        return true;
    }
    Connection m_Connection;
    Statement m_Version;
    Statement m_Select;
    int m_LastVersion = -1;
};

LivePeer Live(const Setting& setting)
{
    const std::string file = setting.File("live.sqlite");
    return {.file = file,
            .makeWriter = [file] { return std::make_unique<WalWriter>(file); },
            .makeReader = [file] { return std::make_unique<WalReader>(file); }};
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
        return std::make_unique<BlobWrite>(setting, "blocks.sqlite", sizes.blockCount, WriteBlocks,
                                           ReadBlocks);
    case Kind::BulkRead:
        return std::make_unique<BlobRead>(setting, "blockread.sqlite", sizes.blockCount, WriteBlocks,
                                          ReadBlocks);
    case Kind::SmallWrite:
        return std::make_unique<BlobWrite>(setting, "small.sqlite", sizes.objectCount, WriteObjects,
                                           ReadObjects);
    case Kind::SmallRead:
        return std::make_unique<BlobRead>(setting, "smallread.sqlite", sizes.objectCount, WriteObjects,
                                          ReadObjects);
    case Kind::OpenObjects: return std::make_unique<OpenObjects>(setting);
    case Kind::OpenStrings: return std::make_unique<OpenStrings>(setting);
    case Kind::Intern: return std::make_unique<Intern>(setting);
    case Kind::Visible: return MakeVisible(Live(setting), setting);
    case Kind::Followed: return nullptr;
    }
    return nullptr;
}

} // namespace

Peer SqlitePeer()
{
    return {
        .name = "SQLite",
        .note =
            std::string(sqlite3_libversion()) +
            ": prepared statements, one transaction, journal_mode OFF, synchronous OFF, locking_mode "
            "EXCLUSIVE, "
            "page_size 8192, cache 256 MiB, mmap 2 GiB; open: no pragmas; visible: WAL, PRAGMA data_version",
        .make = Make};
}

} // namespace bench
