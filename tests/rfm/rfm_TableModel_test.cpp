#include "rfm_RowImpl.h"
#include "rfm_TableScene.h"

#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <variant>
#include <vector>

// A table against a vector of maps: random operations, and after each of them what the table says of itself, and what
// the operation touched, must be what the model says.

namespace
{
struct Setting
{
    int readAhead;
    bool strings;
    bool handles;
    int manyInts; // fields more, for a second presence word
};

void PrintTo(const Setting& setting, std::ostream* out)
{
    *out << "read-ahead " << setting.readAhead << (setting.strings ? ", strings" : "")
         << (setting.handles ? ", handles" : "") << ", ints " << setting.manyInts;
}

using Value = std::variant<int, float, double, rfm_Handle, std::string>;
using ModelRow = std::map<int, Value>; // by field index: what has data

constexpr int kOperations = 7000;
constexpr int kMostRows = 1500;

class rfm_TableModel : public rfm_TableScene, public testing::WithParamInterface<Setting>
{
protected:
    rfm_TableModel()
        : m_Seed(Seed()),
          m_Random(m_Seed),
          m_ReadAhead(GetParam().readAhead),
          m_Db(Create(m_Path)),
          m_SourceDb(Create(PathOf(".source"))),
          m_Table(m_Db.Table(m_Db.Bind(Layout(false)), 64, m_ReadAhead)),
          m_Same(m_SourceDb.Table(m_SourceDb.Bind(Layout(false)), 64, 4)),
          m_Wider(m_SourceDb.Table(m_SourceDb.Bind(Layout(true)), 64, 4))
    {
    }

    // ---- Layout and values ----

    /// The wider one has the same fields and one more, in front of all others.
    rfm_TableMetadata Layout(bool wider) const
    {
        rfm_TableMetadata layout(wider ? "WIDER" : "MODEL", 1);
        layout.DefineIntField("m");
        layout.DefineFloatField("y");
        layout.DefineDoubleField("c");
        for (int i = 0; i < GetParam().manyInts; ++i) layout.DefineIntField(cow_String("k") + cow_String(i));
        if (GetParam().strings) layout.DefineStringField("t");
        if (GetParam().handles) layout.DefineHandleField("h");
        if (wider) layout.DefineIntField("a");
        return layout;
    }

    int FieldCount() const { return m_Table.GetFieldMap().Count(); }
    int Pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(m_Random); }

    Value RandomValue(int field)
    {
        switch (m_Table.GetFieldMD(field).type)
        {
        case rfm_TypeInt: return static_cast<int>(m_Random());
        case rfm_TypeFloat: return static_cast<float>(Pick(1000000)) / 7;
        case rfm_TypeDouble: return Pick(1000000) / 7.0;
        case rfm_TypeHandle: return rfm_Handle(static_cast<std::uint32_t>(m_Random()));
        default:
            return std::string(static_cast<std::size_t>(Pick(40) == 0 ? 3000 : Pick(9)),
                               static_cast<char>('a' + Pick(3)));
        }
    }

    static void Write(rfm_Row& row, int field, const Value& value)
    {
        if (const int* number = std::get_if<int>(&value)) row.WriteFieldInt(field, *number);
        if (const float* number = std::get_if<float>(&value)) row.WriteFieldFloat(field, *number);
        if (const double* number = std::get_if<double>(&value)) row.WriteFieldDouble(field, *number);
        if (const rfm_Handle* handle = std::get_if<rfm_Handle>(&value)) row.WriteFieldHandle(field, *handle);
        if (const std::string* text = std::get_if<std::string>(&value))
            row.WriteFieldString(field, cow_String(std::string_view(*text)));
    }

    static Value Read(const rfm_Row& row, int field, int type)
    {
        switch (type)
        {
        case rfm_TypeInt: return row.ReadFieldInt(field);
        case rfm_TypeFloat: return row.ReadFieldFloat(field);
        case rfm_TypeDouble: return row.ReadFieldDouble(field);
        case rfm_TypeHandle: return row.ReadFieldHandle(field);
        default: return std::string(row.ReadFieldString(field).View());
        }
    }

    void WriteSome(rfm_Row& row, ModelRow& model)
    {
        for (int writes = Pick(4); writes >= 0; --writes)
        {
            const int field = Pick(FieldCount());
            const Value value = RandomValue(field);
            Write(row, field, value);
            model[field] = value;
        }
    }

    void ExpectRow(const rfm_Row& row, const ModelRow& model)
    {
        for (int field = 0; field < FieldCount(); ++field)
        {
            const auto expected = model.find(field);
            ASSERT_EQ(row.DataIsPresent(field), expected != model.end() ? 1 : 0) << field;
            if (expected != model.end())
            {
                ASSERT_TRUE(Read(row, field, m_Table.GetFieldMD(field).type) == expected->second)
                    << "row " << row.Location() << " field " << field;
            }
        }
    }

    // ---- Operations ----

    bool IsHeld(int row) const
    {
        for (const rfm_Row& held : m_Held)
            if (held.Location() == row) return true;
        return false;
    }

    /// Gets the row by ReadRow or UpdateRow. Without read-ahead one that isn't cached need not be found.
    template <class Get> std::optional<rfm_Row> Got(int row, Get get)
    {
        m_Location = row + 1;
        if (m_ReadAhead != 0 || IsHeld(row)) return get();
        std::optional<rfm_Row> result;
        const rfm_Outcome outcome = rfm_OutcomeOf([&] { result = get(); });
        EXPECT_EQ(outcome.standardError, result ? "" : outcome.text + "\n");
        return result;
    }

    void NewRow()
    {
        if (Rows() >= kMostRows) return Truncate();
        rfm_Row row = Pick(4) == 0 ? m_Table.UpdateRow(Rows()) : m_Table.NewRow();
        ASSERT_EQ(row.Location(), Rows());
        m_Model.emplace_back();
        m_Dirty = true;
        m_Location = Rows();
        WriteSome(row, m_Model.back());
    }

    void ReadRow()
    {
        if (m_Model.empty()) return;
        const int row = Pick(Rows());
        std::optional<rfm_Row> found = Fetch(row, false);
        if (!found) return;
        ExpectRow(*found, Model(row));
        if (Pick(10) == 0 && m_Held.size() < 20) m_Held.push_back(*found);
    }

    void UpdateRow()
    {
        if (m_Model.empty()) return;
        const int row = Pick(Rows());
        std::optional<rfm_Row> found = Fetch(row, true);
        if (!found) return;
        if (Pick(5) > 0) return WriteSome(*found, Model(row));
        if (Pick(3) == 0)
        {
            found->Erase();
            Model(row).clear();
            return;
        }
        const int field = Pick(FieldCount());
        found->Erase(field);
        Model(row).erase(field);
    }

    std::optional<rfm_Row> Fetch(int row, bool update)
    {
        m_Dirty = m_Dirty || update;
        const bool byPosition = Pick(3) == 0;
        if (byPosition) m_Table.Seek(row);
        const int argument = byPosition ? -1 - Pick(3) : row;
        return Got(row, [&] { return update ? m_Table.UpdateRow(argument) : m_Table.ReadRow(argument); });
    }

    void ReadRun()
    {
        if (m_ReadAhead == 0 || m_Model.empty()) return;
        const int first = Pick(Rows());
        m_Table.Seek(first);
        for (int row = first; row < std::min(first + 60, Rows()); ++row)
            ExpectRow(m_Table.ReadRow(), Model(row));
        m_Location = std::min(first + 60, Rows());
    }

    /// Writes through a handle that was got some time ago; the update behind it says that the write must last.
    void WriteHeld()
    {
        if (m_Held.empty()) return;
        rfm_Row& held = m_Held[static_cast<std::size_t>(Pick(static_cast<int>(m_Held.size())))];
        const int row = held.Location();
        ExpectRow(held, Model(row));
        WriteSome(held, Model(row));
        EXPECT_EQ(m_Table.UpdateRow(row).Repr(), held.Repr());
        m_Dirty = true;
        m_Location = row + 1;
    }

    void LetGo()
    {
        if (!m_Held.empty()) m_Held.erase(m_Held.begin() + Pick(static_cast<int>(m_Held.size())));
    }

    void CopyField()
    {
        if (m_Model.empty() || m_Held.empty()) return;
        const rfm_Row& source = m_Held[static_cast<std::size_t>(Pick(static_cast<int>(m_Held.size())))];
        const ModelRow from = Model(source.Location());
        const int row = Pick(Rows());
        std::optional<rfm_Row> target = Fetch(row, true);
        if (!target) return;
        const int field = Pick(FieldCount());
        const bool refused = !rfm_TextOf([&] { target->CopyField(source, field); }).empty();
        const auto value = from.find(field);
        const bool hasData = value != from.end();
        EXPECT_EQ(refused, hasData && m_Table.GetFieldMD(field).type == rfm_TypeHandle);
        if (hasData && !refused) Model(row)[field] = value->second;
    }

    void Truncate()
    {
        const int rows = Pick(3) == 0 ? Pick(Rows() + 10) : Rows() - std::min(Rows(), Pick(20));
        m_Table.Truncate(rows);
        CountFlush();
        m_Location = 0;
        if (rows < Rows()) m_Model.resize(static_cast<std::size_t>(rows));
        std::erase_if(m_Held, [](const rfm_Row& held) { return held.Repr()->impl == nullptr; });
        for (const rfm_Row& held : m_Held) EXPECT_LT(held.Location(), rows);
    }

    void Flush()
    {
        CountFlush();
        EXPECT_EQ(m_Table.Flush(), m_FlushCount);
        if (Pick(2) == 0) m_Db.Flush();
    }

    void Append()
    {
        if (Rows() > kMostRows / 2) return;
        if (GetParam().handles)
        {
            FillSource(m_Same);
            EXPECT_NE(rfm_TextOf([&] { m_Table.Append(m_Same); }), "");
            return;
        }
        const int kind = Pick(3);
        rfm_Table source = kind == 0 ? m_Table : kind == 1 ? m_Same : m_Wider;
        std::vector<ModelRow> added = kind == 0 ? m_Model : FillSource(source);
        m_Table.Append(source);
        if (added.empty()) return;
        CountFlush();
        m_Dirty = true;
        m_Model.insert(m_Model.end(), added.begin(), added.end());
    }

    std::vector<ModelRow> FillSource(rfm_Table& source)
    {
        source.Truncate(0);
        std::vector<ModelRow> rows(static_cast<std::size_t>(GetParam().handles ? 1 : Pick(30)));
        for (ModelRow& model : rows)
        {
            rfm_Row row = source.NewRow();
            WriteSome(row, model);
            if (source.Index("a") >= 0) row.WriteFieldInt("a", Pick(1000));
        }
        return rows;
    }

    void Reopen()
    {
        const rfm_Handle handle = m_Table.Handle();
        CountFlush();
        m_Table = rfm_Table();
        for (const rfm_Row& held : m_Held) EXPECT_EQ(held.Repr()->impl, nullptr);
        m_Held.clear();
        if (Pick(3) == 0)
        {
            m_Db.Close();
            m_Db = Open(m_Path, utl_FileAccessUpdate);
        }
        m_Db.Bind(Layout(false));
        m_Table = m_Db.Table(handle, 64, m_ReadAhead);
        m_Location = 0;
    }

    /// A reader of its own sees all of it.
    void CompareAll()
    {
        CountFlush();
        Publish(m_Db, m_Table);
        // A table that never had a row to flush has no header in the file yet, so nobody else can open it.
        if (m_Table.SpaceLength() == 0)
        {
            ASSERT_EQ(Rows(), 0);
            return;
        }
        rfm_Database reader = Open(m_Path, utl_FileAccessRead);
        reader.Bind(Layout(false));
        rfm_Table follower = reader.Table(m_Table.Handle(), -1, -1);
        ASSERT_EQ(follower.Length(), Rows());
        for (int row = 0; row < Rows(); ++row) ExpectRow(follower.ReadRow(row), Model(row));
    }

    void Step()
    {
        const int what = Pick(1000);
        if (what < 260) return NewRow();
        if (what < 520) return UpdateRow();
        if (what < 760) return ReadRow();
        if (what < 790) return ReadRun();
        if (what < 850) return WriteHeld();
        if (what < 880) return LetGo();
        if (what < 920) return CopyField();
        if (what < 935) return Truncate();
        if (what < 975) return Flush();
        if (what < 985) return Append();
        if (what < 996) return Reopen();
        CompareAll();
    }

    void CountFlush()
    {
        m_FlushCount += m_Dirty ? 1 : 0;
        m_Dirty = false;
    }

    int Rows() const { return static_cast<int>(m_Model.size()); }
    ModelRow& Model(int row) { return m_Model[static_cast<std::size_t>(row)]; }

    /// RFM_MODEL_SEED repeats a run.
    static unsigned Seed()
    {
        const char* wanted = std::getenv("RFM_MODEL_SEED");
        return wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10))
                                 : std::random_device()();
    }

    unsigned m_Seed;
    std::mt19937 m_Random;
    int m_ReadAhead;
    rfm_Database m_Db;
    rfm_Database m_SourceDb;
    rfm_Table m_Table;
    rfm_Table m_Same;
    rfm_Table m_Wider;
    std::vector<rfm_Row> m_Held;

    std::vector<ModelRow> m_Model;
    int m_Location = 0;
    int m_FlushCount = 0;
    bool m_Dirty = false;
};
} // namespace

TEST_P(rfm_TableModel, RandomOperationsGiveWhatAVectorGives)
{
    std::cout << "RFM_MODEL_SEED=" << m_Seed << '\n';
    SCOPED_TRACE("RFM_MODEL_SEED=" + std::to_string(m_Seed));
    for (int operation = 0; operation < kOperations; ++operation)
    {
        Step();
        ASSERT_EQ(m_Table.Length(), Rows()) << operation;
        ASSERT_EQ(m_Table.Location(), m_Location) << operation;
        ASSERT_EQ(m_Table.GetFlushCount(), m_FlushCount) << operation;
        if (HasFailure()) break;
    }
    CompareAll();
}

INSTANTIATE_TEST_SUITE_P(Settings, rfm_TableModel,
                         testing::Values(Setting{0, true, false, 0}, Setting{1, true, false, 0},
                                         Setting{2, false, false, 0}, Setting{3, true, true, 0},
                                         Setting{7, false, true, 33}, Setting{32, true, false, 40},
                                         Setting{-1, false, false, 150}));
