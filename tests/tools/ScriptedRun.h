#pragma once

#include "FileKind.h"
#include "rfm.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A small analysis, the same at every run: what each increment writes follows from its number alone, so that a test
/// knows what a file must hold at any flush. Every step says where it writes, so one that failed may be made again.
///
/// Increment n adds n % 5 + 1 rows to a table with a string each, one array of its own, two values to a common array
/// and one item to a stream. Enough of them fill the first linkage block.
namespace ScriptedRun
{
inline int RowsAt(int increment)
{
    int rows = 0;
    for (int n = 1; n <= increment; ++n) rows += n % 5 + 1;
    return rows;
}

inline cow_String NameOf(int row) { return cow_String("name ") + cow_String(row * 7 % 101); }
inline double ValueOf(int row) { return row * 0.25 - 3; }
inline int OwnArrayRows(int increment) { return increment * 37 % 400 + 1; }

inline rfm_TableMetadata Layout()
{
    rfm_TableMetadata layout("INCREMENTS", 1);
    layout.DefineIntField("row");
    layout.DefineDoubleField("value");
    layout.DefineStringField("name");
    return layout;
}

class Writer
{
public:
    explicit Writer(const std::string& path) : Writer(NewFileOfKind(path.c_str())) {}
    /// `file`: new and empty.
    explicit Writer(const rfm_File& file) : m_Database(rfm_Database::Create(file, "TEST", "scripted", 77)) {}

    /// Makes the objects; may be called again until it has succeeded.
    void SetUp()
    {
        if (m_Table.IsNull()) m_Table = m_Database.Table(m_Database.Bind(Layout()), -1, 4);
        if (m_Common.IsNull()) m_Common = m_Database.ArrayDouble(2, 64, 256);
        if (m_Stream.IsNull()) m_Stream = m_Database.TaggedStream(64);
    }

    /// Adds what increment `n` adds and the ones before it have not; may be called again until it has succeeded.
    void WriteIncrement(int n)
    {
        while (m_Table.Length() < RowsAt(n))
        {
            rfm_Row row = m_Table.NewRow();
            row.WriteFieldInt(0, row.Location());
            row.WriteFieldDouble(1, ValueOf(row.Location()));
            row.WriteFieldString(2, NameOf(row.Location()));
        }
        const double pair[2] = {n * 1.5, -n * 2.5};
        m_Common.Seek(n - 1);
        m_Common.Write(pair, 1);
        if (m_OwnHandles.size() < static_cast<std::size_t>(n)) WriteOwnArray(n);
        while (m_Items < n)
        {
            m_Stream.WriteHandle(m_Items + 1, m_OwnHandles[static_cast<std::size_t>(m_Items)]);
            ++m_Items;
        }
    }

    void Flush()
    {
        m_Table.Flush();
        m_Common.Flush();
        m_Stream.Flush();
        m_Database.Flush();
    }

    /// Lets go of the objects, then of the file.
    void Close()
    {
        m_Table = {};
        m_Common = {};
        m_Stream = {};
        m_Database.Close();
    }

    rfm_Database& Database() { return m_Database; }

private:
    void WriteOwnArray(int n)
    {
        if (m_Own.IsNull()) m_Own = m_Database.ArrayInt(1, -1, 0);
        const std::vector<int> values(static_cast<std::size_t>(OwnArrayRows(n)), n);
        m_Own.Seek(0);
        m_Own.Write(values.data(), OwnArrayRows(n));
        m_Own.Flush();
        m_OwnHandles.push_back(m_Own.Handle());
        m_Own = {};
    }

    // Order: the objects go before the database.
    rfm_Database m_Database;
    rfm_Table m_Table;
    rfm_Array<double, rfm_TypeDouble> m_Common;
    rfm_TaggedStream m_Stream;
    rfm_Array<int, rfm_TypeInt> m_Own;
    std::vector<rfm_Handle> m_OwnHandles;
    int m_Items = 0;
};

inline const rfm_Handle kTable{4};
inline const rfm_Handle kCommon{5};
inline const rfm_Handle kStream{6};
inline const rfm_Handle kBallast{7};

/// An array that each increment writes over in place, larger than what a compressed file keeps in memory: segments
/// are stored between two flushes, over those that were. Made behind SetUp and gone before Close.
class Ballast
{
public:
    static constexpr int kRows = 20 * 16384; // 20 segments

    explicit Ballast(rfm_Database& database) : m_Array(database.ArrayInt(1, kRows * 4, 0)) {}
    /// May be called again until it has succeeded.
    void WriteIncrement(int n)
    {
        std::vector<int> values(kRows);
        for (int i = 0; i < kRows; ++i) values[static_cast<std::size_t>(i)] = ValueOf(i, n);
        m_Array.Seek(0);
        m_Array.Write(values.data(), kRows);
    }
    void Flush() { m_Array.Flush(); }

    /// The increment in the low bits, and bits that don't compress well.
    static int ValueOf(int row, int n)
    {
        return static_cast<int>((static_cast<unsigned>(row) * 2654435761U >> 12U) / 16U * 16U) + n;
    }

private:
    rfm_Array<int, rfm_TypeInt> m_Array;
};

/// Checks that each element is what increment `n` wrote, or the one behind it.
inline void ExpectBallast(rfm_Database& database, int n)
{
    auto array = database.ArrayInt(kBallast, -1, 0);
    ASSERT_EQ(array.Length(), Ballast::kRows);
    std::vector<int> values(Ballast::kRows);
    ASSERT_EQ(array.Read(values.data(), Ballast::kRows), Ballast::kRows);
    for (int i = 0; i < Ballast::kRows; ++i)
    {
        const int value = values[static_cast<std::size_t>(i)];
        ASSERT_TRUE(value == Ballast::ValueOf(i, n) || value == Ballast::ValueOf(i, n + 1)) << i;
    }
}

inline void ExpectTable(rfm_Database& database, int n)
{
    rfm_Table table = database.Table(kTable, -1, 16);
    ASSERT_GE(table.Length(), RowsAt(n));
    ASSERT_LE(table.Length(), RowsAt(n + 1));
    for (int i = 0; i < RowsAt(n); ++i)
    {
        const rfm_Row row = table.ReadRow(i);
        ASSERT_EQ(row.ReadFieldInt("row"), i);
        ASSERT_EQ(row.ReadFieldDouble("value"), ValueOf(i));
        ASSERT_EQ(row.ReadFieldString("name"), NameOf(i));
    }
}

inline void ExpectCommonArray(rfm_Database& database, int n)
{
    auto common = database.ArrayDouble(kCommon, -1, 0);
    ASSERT_GE(common.Length(), n);
    ASSERT_LE(common.Length(), n + 1);
    for (int i = 1; i <= n; ++i)
    {
        double pair[2] = {};
        ASSERT_EQ(common.Read(pair, 1), 2);
        ASSERT_EQ(pair[0], i * 1.5);
        ASSERT_EQ(pair[1], -i * 2.5);
    }
}

inline void ExpectOwnArray(rfm_Database& database, rfm_Handle handle, int n)
{
    auto own = database.ArrayInt(handle, -1, 0);
    ASSERT_EQ(own.Length(), OwnArrayRows(n));
    std::vector<int> values(static_cast<std::size_t>(OwnArrayRows(n)));
    ASSERT_EQ(own.Read(values.data(), OwnArrayRows(n)), OwnArrayRows(n));
    for (const int value : values) ASSERT_EQ(value, n);
}

/// Checks that the database holds all that was flushed with increment `n`, and behind it at most what increment
/// n + 1 adds: a writer that dies between its table and its count leaves the next state half published.
inline void ExpectAtLeast(rfm_Database& database, int n)
{
    database.Bind();
    ExpectTable(database, n);
    ExpectCommonArray(database, n);
    rfm_TaggedStream stream = database.TaggedStream(kStream, 0);
    for (int i = 1; i <= n; ++i)
    {
        ASSERT_TRUE(stream.Next());
        ASSERT_EQ(stream.GetID(), i);
        ExpectOwnArray(database, stream.GetHandle(), i);
    }
}
} // namespace ScriptedRun
