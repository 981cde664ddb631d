// SQLite as its documentation makes it fast: prepared statements, one transaction, no journal, no syncing, an
// exclusive lock, a large page cache and memory-mapped reads.

#include "contenders.h"
#include "peers.h"
#include "tool.h"

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

void RemoveDatabase(const std::string& file)
{
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) std::filesystem::remove(file + suffix);
}

/// One open connection; the pragmas are the same for all uses.
class RowTable
{
public:
    RowTable(const std::string& file, RowUse /*use*/) : m_Connection(OpenFast(file)) {}
    std::uint64_t SumAll() const
    {
        Statement select(m_Connection, "SELECT * FROM rows ORDER BY rowid");
        std::uint64_t sum = 0;
        for (int position = 0; select.Step(); ++position) sum += RowSum(ReadRow(select), position);
        return sum;
    }
    std::uint64_t SumRandom(const Sizes& sizes) const
    {
        std::uint64_t sum = 0;
        m_Connection.Execute("BEGIN");
        {
            Statement select(m_Connection, "SELECT * FROM rows WHERE rowid=?1");
            for (int step = 0; step < sizes.randomCount; ++step)
            {
                select.Bind(1, RandomPosition(step, sizes.rowCount));
                if (select.Step()) sum += RowSum(ReadRow(select), step);
                select.Reset();
            }
        }
        m_Connection.Execute("COMMIT");
        return sum;
    }
    void UpdateRandom(const Sizes& sizes, int round) const
    {
        m_Connection.Execute("BEGIN");
        {
            Statement update(m_Connection, "UPDATE rows SET number=?1, v0=?2 WHERE rowid=?3");
            for (int step = 0; step < sizes.randomCount; ++step)
            {
                Row row;
                ApplyUpdate(row, step, round);
                update.Bind(1, row.number);
                update.Bind(2, row.values[0]);
                update.Bind(3, RandomPosition(step, sizes.rowCount));
                update.Run();
            }
        }
        m_Connection.Execute("COMMIT");
    }

private:
    Connection m_Connection;
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

/// Opens without a pragma, since each would cost it time that one read does not earn back.
Connection OpenPlainly(const std::string& file) { return Connection(file, SQLITE_OPEN_READONLY); }

class ObjectReader
{
public:
    ObjectReader(const std::string& file, int count) : m_File(file), m_Last(count - 1)
    {
        WriteObjects(file, count);
    }
    std::uint64_t Read() const
    {
        const Connection connection = OpenPlainly(m_File);
        std::array<double, kObjectDoubles> values{};
        Statement select(connection, "SELECT data FROM blobs WHERE id=?1");
        select.Bind(1, m_Last);
        if (select.Step()) select.Bytes(0, values.data(), kObjectBytes);
        return ObjectSum(values.data(), m_Last);
    }

private:
    std::string m_File;
    int m_Last;
};

constexpr const char* kTextTable = "CREATE TABLE texts(id INTEGER PRIMARY KEY, text TEXT UNIQUE)";
constexpr const char* kInsertText = "INSERT INTO texts(id,text) VALUES(?1,?2)";
constexpr const char* kSelectText = "SELECT text FROM texts WHERE id=?1";

class TextReader
{
public:
    TextReader(const std::string& file, int count) : m_File(file), m_Last(count - 1)
    {
        const Connection connection = OpenFast(file);
        connection.Execute("BEGIN");
        connection.Execute(kTextTable);
        {
            Statement insert(connection, kInsertText);
            for (int i = 0; i < count; ++i)
            {
                const std::string text = DistinctText(i);
                insert.Bind(1, i);
                insert.Bind(2, std::string_view(text));
                insert.Run();
            }
        }
        connection.Execute("COMMIT");
    }
    std::uint64_t Read() const
    {
        const Connection connection = OpenPlainly(m_File);
        Statement select(connection, kSelectText);
        select.Bind(1, m_Last);
        return select.Step() ? TextSum(select.Text(0)) : 0;
    }

private:
    std::string m_File;
    int m_Last;
};

class TextInterner
{
public:
    explicit TextInterner(InternInput input) : m_Texts(std::move(input)) {}
    void InternAll(const std::string& file)
    {
        const Connection connection = OpenFast(file);
        connection.Execute("BEGIN");
        connection.Execute(kTextTable);
        {
            Statement select(connection, "SELECT id FROM texts WHERE text=?1");
            Statement insert(connection, kInsertText);
            int nextId = 1;
            for (std::size_t i = 0; i < m_Texts.Count(); ++i)
            {
                const std::string_view text = m_Texts.Text(i);
                select.Bind(1, text);
                const bool known = select.Step();
                m_Texts.numbers[i] = static_cast<unsigned>(known ? select.Int(0) : nextId);
                select.Reset();
                if (known) continue;
                insert.Bind(1, nextId++);
                insert.Bind(2, text);
                insert.Run();
            }
        }
        connection.Execute("COMMIT");
    }
    std::uint64_t SumOf(const std::string& file) const
    {
        const Connection connection = OpenFast(file);
        Statement select(connection, kSelectText);
        return m_Texts.Sum(
            [&](std::size_t at)
            {
                select.Reset();
                select.Bind(1, static_cast<int>(m_Texts.numbers[at]));
                return select.Step() ? select.Text(0) : std::string_view();
            });
    }

private:
    NumberedTexts m_Texts;
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

constexpr StoreSteps kSteps{
    {"bench.sqlite", RemoveDatabase}, WriteRows, WriteBlocks, ReadBlocks, WriteObjects, ReadObjects};
using Store = StoreOf<kSteps, RowTable, ObjectReader, TextReader, TextInterner, WalWriter, WalReader>;

std::unique_ptr<Contender> Make(Kind kind, const Setting& setting)
{
    switch (kind)
    {
    case Kind::ToolInfo:
    case Kind::ToolList:
    case Kind::ToolTable: return MakeSqliteTool(kind, setting);
    default: return MakeOf<Store>(kind, setting);
    }
}

} // namespace

Peer SqlitePeer()
{
    return {.name = "SQLite",
            .note = std::string(sqlite3_libversion()) +
                    ": prepared statements, one transaction, journal_mode OFF, synchronous OFF, locking_mode "
                    "EXCLUSIVE, "
                    "page_size 8192, cache 256 MiB, mmap 2 GiB; open: no pragmas; visible: WAL, PRAGMA "
                    "data_version; tool: sqlite3 with .tables and -csv",
            .make = Make};
}

} // namespace bench
