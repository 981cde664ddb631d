// LMDB as its documentation makes it fast: one write transaction, MDB_APPEND for ascending keys, integer keys, no
// syncing, no read-ahead for random reads, cursors for scans, and values read where they lie.

#include "contenders.h"
#include "peers.h"

#include <cstring>
#include <lmdb.h>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench
{

namespace
{

void Check(int result, const char* what)
{
    if (result != MDB_SUCCESS)
        throw std::runtime_error(std::string("LMDB: ") + what + ": " + mdb_strerror(result));
}

class Environment
{
public:
    Environment() = default;
    Environment(const std::string& file, unsigned flags)
    {
        Check(mdb_env_create(&m_Environment), "create");
        Check(mdb_env_set_mapsize(m_Environment, kMapBytes), "map size");
        Check(mdb_env_set_maxdbs(m_Environment, 4), "databases");
        Check(mdb_env_open(m_Environment, file.c_str(), flags | MDB_NOSUBDIR | MDB_NOSYNC, 0644),
              file.c_str());
    }
    Environment(Environment&& source) noexcept : m_Environment(std::exchange(source.m_Environment, nullptr))
    {
    }
    Environment& operator=(Environment&& source) noexcept
    {
        std::swap(m_Environment, source.m_Environment);
        return *this;
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment() { mdb_env_close(m_Environment); }
    MDB_env* Get() const { return m_Environment; }

private:
    static constexpr std::size_t kMapBytes = std::size_t{4} << 30;
    MDB_env* m_Environment = nullptr;
};

/// A transaction on one database of the file; aborted unless committed.
class Transaction
{
public:
    Transaction(const Environment& environment, unsigned flags, const char* name = nullptr,
                unsigned databaseFlags = MDB_INTEGERKEY)
    {
        Check(mdb_txn_begin(environment.Get(), nullptr, flags, &m_Transaction), "begin");
        const unsigned create = (flags & MDB_RDONLY) != 0 ? 0 : MDB_CREATE;
        const int opened = mdb_dbi_open(m_Transaction, name, databaseFlags | create, &m_Database);
        if (opened == MDB_SUCCESS) return;
        mdb_txn_abort(m_Transaction);
        Check(opened, "open database");
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction() { mdb_txn_abort(m_Transaction); }

    MDB_dbi OpenAlso(const char* name, unsigned flags)
    {
        MDB_dbi database = 0;
        Check(mdb_dbi_open(m_Transaction, name, flags | MDB_CREATE, &database), "open database");
        return database;
    }
    void Put(unsigned key, MDB_val value, unsigned flags)
    {
        MDB_val keyValue{sizeof(key), &key};
        Check(mdb_put(m_Transaction, m_Database, &keyValue, &value, flags), "put");
    }
    /// Room for `bytes` bytes inside the file's page.
    void* Reserve(unsigned key, std::size_t bytes, unsigned flags)
    {
        MDB_val keyValue{sizeof(key), &key};
        MDB_val value{bytes, nullptr};
        Check(mdb_put(m_Transaction, m_Database, &keyValue, &value, flags | MDB_RESERVE), "reserve");
        return value.mv_data;
    }
    MDB_val Get(unsigned key) const
    {
        MDB_val keyValue{sizeof(key), &key};
        MDB_val value{};
        Check(mdb_get(m_Transaction, m_Database, &keyValue, &value), "get");
        return value;
    }
    void Commit() { Check(mdb_txn_commit(std::exchange(m_Transaction, nullptr)), "commit"); }
    MDB_txn* Handle() const { return m_Transaction; }
    MDB_dbi Database() const { return m_Database; }

private:
    MDB_txn* m_Transaction = nullptr;
    MDB_dbi m_Database = 0;
};

/// LMDB's values know no const; it only reads what it stores.
MDB_val ValueOf(const std::string& text) { return {text.size(), const_cast<char*>(text.data())}; }

class Cursor
{
public:
    explicit Cursor(const Transaction& transaction)
    {
        Check(mdb_cursor_open(transaction.Handle(), transaction.Database(), &m_Cursor), "cursor");
    }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;
    ~Cursor() { mdb_cursor_close(m_Cursor); }
    bool Move(MDB_val& key, MDB_val& value, MDB_cursor_op step)
    {
        const int result = mdb_cursor_get(m_Cursor, &key, &value, step);
        if (result != MDB_NOTFOUND) Check(result, "cursor");
        return result == MDB_SUCCESS;
    }
    void Replace(MDB_val key, MDB_val value)
    {
        Check(mdb_cursor_put(m_Cursor, &key, &value, MDB_CURRENT), "replace");
    }

private:
    MDB_cursor* m_Cursor = nullptr;
};

/// The fixed fields of a row and the text behind them.
struct PackedRow
{
    double values[4];
    std::int32_t number;
    std::int32_t group;
    float weight;
    std::uint32_t textLength;
    char text[16];

    std::size_t Bytes() const { return offsetof(PackedRow, text) + textLength; }
    MDB_val Value() { return {Bytes(), this}; }
};

PackedRow Pack(const Row& row)
{
    PackedRow packed;
    std::memcpy(packed.values, row.values.data(), sizeof(packed.values));
    packed.number = row.number;
    packed.group = row.group;
    packed.weight = row.weight;
    packed.textLength = static_cast<std::uint32_t>(row.text.size());
    std::memcpy(packed.text, row.text.data(), row.text.size());
    return packed;
}

/// The text of the result lies in the file's page.
Row Unpack(const MDB_val& value)
{
    PackedRow packed;
    std::memcpy(&packed, value.mv_data, offsetof(PackedRow, text));
    Row row;
    std::memcpy(row.values.data(), packed.values, sizeof(packed.values));
    row.number = packed.number;
    row.group = packed.group;
    row.weight = packed.weight;
    row.text = {static_cast<const char*>(value.mv_data) + offsetof(PackedRow, text), packed.textLength};
    return row;
}

void WriteRows(const std::string& file, int count)
{
    const Environment environment(file, 0);
    Transaction transaction(environment, 0);
    for (int i = 0; i < count; ++i)
    {
        PackedRow packed = Pack(RowAt(i));
        transaction.Put(static_cast<unsigned>(i), packed.Value(), MDB_APPEND);
    }
    transaction.Commit();
}

void RemoveDatabase(const std::string& file)
{
    std::filesystem::remove(file);
    std::filesystem::remove(file + "-lock");
}

class RowTable
{
public:
    RowTable(const std::string& file, RowUse use) : m_Environment(file, FlagsFor(use)) {}
    std::uint64_t SumAll() const
    {
        const Transaction transaction(m_Environment, MDB_RDONLY);
        Cursor cursor(transaction);
        MDB_val key{};
        MDB_val value{};
        std::uint64_t sum = 0;
        for (int position = 0; cursor.Move(key, value, MDB_NEXT); ++position)
            sum += RowSum(Unpack(value), position);
        return sum;
    }
    std::uint64_t SumRandom(const Sizes& sizes) const
    {
        std::uint64_t sum = 0;
        const Transaction transaction(m_Environment, MDB_RDONLY);
        for (int step = 0; step < sizes.randomCount; ++step)
        {
            const auto key = static_cast<unsigned>(RandomPosition(step, sizes.rowCount));
            sum += RowSum(Unpack(transaction.Get(key)), step);
        }
        return sum;
    }
    void UpdateRandom(const Sizes& sizes, int round) const
    {
        Transaction transaction(m_Environment, 0);
        {
            Cursor cursor(transaction);
            for (int step = 0; step < sizes.randomCount; ++step)
                UpdateOne(cursor, RandomPosition(step, sizes.rowCount), step, round);
        }
        transaction.Commit();
    }

private:
    static unsigned FlagsFor(RowUse use)
    {
        switch (use)
        {
        case RowUse::Scan: return MDB_RDONLY;
        case RowUse::RandomRead: return MDB_RDONLY | MDB_NORDAHEAD;
        case RowUse::RandomUpdate: return 0;
        }
        return 0;
    }
    static void UpdateOne(Cursor& cursor, int position, int step, int round)
    {
        auto number = static_cast<unsigned>(position);
        MDB_val key{sizeof(number), &number};
        MDB_val value{};
        if (!cursor.Move(key, value, MDB_SET)) throw std::runtime_error("LMDB: a row is missing");
        Row row = Unpack(value);
        ApplyUpdate(row, step, round);
        PackedRow packed = Pack(row);
        cursor.Replace(key, packed.Value());
    }
    Environment m_Environment;
};

void WriteBlocks(const std::string& file, int count)
{
    BlockMaker maker;
    const Environment environment(file, MDB_WRITEMAP);
    Transaction transaction(environment, 0);
    for (int i = 0; i < count; ++i)
    {
        void* room = transaction.Reserve(static_cast<unsigned>(i), kBlockBytes, MDB_APPEND);
        std::memcpy(room, maker.Block(i), kBlockBytes);
    }
    transaction.Commit();
}

std::uint64_t ReadBlocks(const std::string& file, int count)
{
    const Environment environment(file, MDB_RDONLY);
    const Transaction transaction(environment, MDB_RDONLY);
    std::vector<double> values(kBlockDoubles);
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        const MDB_val value = transaction.Get(static_cast<unsigned>(i));
        std::memcpy(values.data(), value.mv_data, kBlockBytes);
        sum += BlockSum(values.data(), i);
    }
    return sum;
}

void WriteObjects(const std::string& file, int count)
{
    std::array<double, kObjectDoubles> values{};
    const Environment environment(file, 0);
    Transaction transaction(environment, 0);
    for (int i = 0; i < count; ++i)
    {
        FillObject(i, values.data());
        transaction.Put(static_cast<unsigned>(i), {kObjectBytes, values.data()}, MDB_APPEND);
    }
    transaction.Commit();
}

std::uint64_t ReadObjects(const std::string& file, int count)
{
    const Environment environment(file, MDB_RDONLY);
    const Transaction transaction(environment, MDB_RDONLY);
    std::array<double, kObjectDoubles> values{};
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
    {
        std::memcpy(values.data(), transaction.Get(static_cast<unsigned>(i)).mv_data, kObjectBytes);
        sum += ObjectSum(values.data(), i);
    }
    return sum;
}

/// The one value of a file that was opened for it.
template <class Take> void WithValue(const std::string& file, int index, Take&& take)
{
    const Environment environment(file, MDB_RDONLY);
    const Transaction transaction(environment, MDB_RDONLY);
    take(transaction.Get(static_cast<unsigned>(index)));
}

class ObjectReader
{
public:
    ObjectReader(const std::string& file, int count) : m_File(file), m_Last(count - 1)
    {
        WriteObjects(file, count);
    }
    std::uint64_t Read() const
    {
        std::array<double, kObjectDoubles> values{};
        WithValue(m_File, m_Last,
                  [&](const MDB_val& value) { std::memcpy(values.data(), value.mv_data, kObjectBytes); });
        return ObjectSum(values.data(), m_Last);
    }

private:
    std::string m_File;
    int m_Last;
};

class TextReader
{
public:
    TextReader(const std::string& file, int count) : m_File(file), m_Last(count - 1)
    {
        const Environment environment(file, 0);
        Transaction transaction(environment, 0);
        for (int i = 0; i < count; ++i)
        {
            const std::string text = DistinctText(i);
            transaction.Put(static_cast<unsigned>(i), ValueOf(text), MDB_APPEND);
        }
        transaction.Commit();
    }
    std::uint64_t Read() const
    {
        std::uint64_t sum = 0;
        WithValue(m_File, m_Last, [&](const MDB_val& value) { sum = TextSum(TextOf(value)); });
        return sum;
    }
    static std::string_view TextOf(const MDB_val& value)
    {
        return {static_cast<const char*>(value.mv_data), value.mv_size};
    }

private:
    std::string m_File;
    int m_Last;
};

/// Two databases in one file: text to number, and number to text.
class TextInterner
{
public:
    explicit TextInterner(InternInput input) : m_Texts(std::move(input)) {}
    void InternAll(const std::string& file)
    {
        const Environment environment(file, 0);
        Transaction transaction(environment, 0, kTexts);
        const MDB_dbi numbers = transaction.OpenAlso("numbers", 0);
        unsigned nextNumber = 1;
        for (std::size_t i = 0; i < m_Texts.Count(); ++i)
        {
            MDB_val key = ValueOf(m_Texts.Text(i));
            MDB_val value{sizeof(nextNumber), &nextNumber};
            const int result = mdb_put(transaction.Handle(), numbers, &key, &value, MDB_NOOVERWRITE);
            if (result != MDB_KEYEXIST)
            {
                Check(result, "put");
                transaction.Put(nextNumber, key, MDB_APPEND);
                m_Texts.numbers[i] = nextNumber++;
                continue;
            }
            std::memcpy(&m_Texts.numbers[i], value.mv_data, sizeof(unsigned));
        }
        transaction.Commit();
    }
    std::uint64_t SumOf(const std::string& file) const
    {
        const Environment environment(file, MDB_RDONLY);
        const Transaction transaction(environment, MDB_RDONLY, kTexts);
        return m_Texts.Sum([&](std::size_t at)
                           { return TextReader::TextOf(transaction.Get(m_Texts.numbers[at])); });
    }

private:
    static constexpr const char* kTexts = "texts";

    NumberedTexts m_Texts;
};

class MapWriter : public LiveWriter
{
public:
    explicit MapWriter(const std::string& file) : m_Environment(Made(file))
    {
        m_Transaction = std::make_unique<Transaction>(m_Environment, 0);
    }
    void Append(const Row& row) override
    {
        PackedRow packed = Pack(row);
        m_Transaction->Put(m_Count++, packed.Value(), MDB_APPEND);
    }
    void Publish() override
    {
        m_Transaction->Commit();
        m_Transaction = std::make_unique<Transaction>(m_Environment, 0);
    }

private:
    static Environment Made(const std::string& file)
    {
        RemoveDatabase(file);
        return {file, 0};
    }
    Environment m_Environment;
    std::unique_ptr<Transaction> m_Transaction;
    unsigned m_Count = 0;
};

class MapReader : public LiveReader
{
public:
    explicit MapReader(const std::string& file) : m_Environment(file, MDB_RDONLY) {}
    Sight Look(int seen, int /*newest*/) override
    {
        const Transaction transaction(m_Environment, MDB_RDONLY);
        Sight sight{.first = seen, .visible = seen};
        auto number = static_cast<unsigned>(seen);
        MDB_val key{sizeof(number), &number};
        MDB_val value{};
        Cursor cursor(transaction);
        for (bool more = cursor.Move(key, value, MDB_SET_RANGE); more;
             more = cursor.Move(key, value, MDB_NEXT))
        {
            sight.sum += RowSum(Unpack(value), sight.visible);
            ++sight.visible;
        }
        return sight;
    }

private:
    Environment m_Environment;
};

constexpr StoreSteps kSteps{
    {"bench.lmdb", RemoveDatabase}, WriteRows, WriteBlocks, ReadBlocks, WriteObjects, ReadObjects};
using Store = StoreOf<kSteps, RowTable, ObjectReader, TextReader, TextInterner, MapWriter, MapReader>;

} // namespace

Peer LmdbPeer()
{
    return {.name = "LMDB",
            .note =
                std::to_string(MDB_VERSION_MAJOR) + "." + std::to_string(MDB_VERSION_MINOR) + "." +
                std::to_string(MDB_VERSION_PATCH) +
                ": one transaction, MDB_INTEGERKEY, MDB_APPEND, MDB_NOSYNC, cursors; bulk: MDB_WRITEMAP and "
                "MDB_RESERVE; random reads: MDB_NORDAHEAD",
            .make = MakeOf<Store>};
}

} // namespace bench
