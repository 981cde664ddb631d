#include "FileKind.h"
#include "RandomSeed.h"
#include "rfm.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

// Random operations over every kind of object, compared with plain vectors and strings at every step and through many
// reopenings; the same ones side by side over each kind of file. RFM_TEST_SEED replays a run.

namespace
{
struct ModelRow
{
    std::optional<int> number;
    std::optional<double> value;
    std::optional<std::string> name;
};

struct ModelItem
{
    int type;
    int id;
    int number;
    std::string text;
};

rfm_TableMetadata Layout()
{
    rfm_TableMetadata layout("MODEL", 1);
    layout.DefineIntField("number");
    layout.DefineDoubleField("value");
    layout.DefineStringField("name");
    return layout;
}

class Model
{
public:
    Model(unsigned seed, std::string_view kind)
        : m_Random(seed),
          m_Path(::testing::TempDir() + "model-" + std::string(kind) + ".rdx")
    {
        m_Database = rfm_Database::Create(NewFileOfKind(m_Path.c_str(), kind), "TEST", "model", 9);
        m_Table = m_Database.Table(m_Database.Bind(Layout()), Below(200), 1 + Below(40));
        m_Doubles = m_Database.ArrayDouble(3, Below(300), 8 + Below(500));
        m_Texts = m_Database.ArrayString(2, Below(300), 64);
        m_Stream = m_Database.TaggedStream(8 + Below(200));
        m_Space = m_Database.Space(Below(300));
        m_Handles = {m_Table.Handle(), m_Doubles.Handle(), m_Texts.Handle(), m_Stream.Handle(),
                     m_Space.Handle()};
    }
    ~Model()
    {
        LetGo();
        m_Database = {};
        ::unlink(m_Path.c_str());
    }

    void Step()
    {
        switch (Below(20))
        {
        case 0:
        case 1:
        case 2:
        case 3: return NewRow();
        case 4:
        case 5: return UpdateRow();
        case 6:
        case 7:
        case 8: return ReadRow();
        case 9: return WriteDoubles();
        case 10: return ReadDoubles();
        case 11: return WriteTexts();
        case 12: return ReadTexts();
        case 13: return WriteItem();
        case 14:
        case 15: return WriteSpace();
        case 16:
        case 17: return ReadSpace();
        case 18: return Flush();
        default: return Rarely();
        }
    }

    void CheckAll()
    {
        ASSERT_EQ(m_Table.Length(), static_cast<int>(m_Rows.size()));
        for (int i = 0; i < m_Table.Length(); ++i)
            ExpectRow(m_Table.ReadRow(i), m_Rows[static_cast<std::size_t>(i)]);
        ASSERT_EQ(DoublesInFile(), m_DoubleValues);
        ASSERT_EQ(TextsInFile(), m_TextValues);
        ASSERT_EQ(BytesInFile(), m_Bytes);
        rfm_TaggedStream walk = m_Database.TaggedStream(m_Handles[3], 64);
        for (const ModelItem& item : m_Items) ExpectItem(walk, item);
        ASSERT_FALSE(walk.Next());
    }

    void Reopen()
    {
        LetGo();
        m_Database.Close();
        m_Database = rfm_Database::Open(rfm_File::Open(m_Path.c_str(), utl_FileAccessUpdate), "TEST");
        m_Database.Bind(Layout());
        m_Table = m_Database.Table(m_Handles[0], Below(200), 1 + Below(40));
        m_Doubles = m_Database.ArrayDouble(m_Handles[1], Below(300), 8 + Below(500));
        m_Texts = m_Database.ArrayString(m_Handles[2], Below(300), 64);
        m_Stream = m_Database.TaggedStream(m_Handles[3], 8 + Below(200));
        m_Space = m_Database.Space(m_Handles[4], Below(300));
        // A stream is written at its end, where a walk ends.
        while (m_Stream.Next()) continue;
        ++m_Reopenings;
        CheckAll();
    }

    int Reopenings() const { return m_Reopenings; }
    /// Equal generators have drawn equally often, so the operations were the same.
    const std::mt19937& Random() const { return m_Random; }

    /// All that is read from the file, as one text.
    std::string Content()
    {
        std::ostringstream text;
        text << std::hexfloat;
        for (int i = 0; i < m_Table.Length(); ++i)
        {
            const rfm_Row row = m_Table.ReadRow(i);
            if (row.DataIsPresent(0) == 1) text << row.ReadFieldInt(0);
            text << '|';
            if (row.DataIsPresent(1) == 1) text << row.ReadFieldDouble(1);
            text << '|';
            if (row.DataIsPresent(2) == 1) text << '"' << row.ReadFieldString(2).View() << '"';
            text << '\n';
        }
        for (const double value : DoublesInFile()) text << value << '\n';
        for (const std::string& value : TextsInFile()) text << value << '\n';
        rfm_TaggedStream walk = m_Database.TaggedStream(m_Handles[3], 64);
        while (walk.Next())
            text << walk.GetID() << ' ' << walk.GetInt() << ' ' << walk.GetString().View() << '\n';
        text << BytesInFile();
        return text.str();
    }

private:
    std::vector<double> DoublesInFile()
    {
        std::vector<double> values(static_cast<std::size_t>(m_Doubles.Length()) * 3);
        m_Doubles.Seek(0);
        if (!values.empty()) m_Doubles.Read(values.data(), m_Doubles.Length());
        return values;
    }
    std::vector<std::string> TextsInFile()
    {
        std::vector<cow_String> texts(static_cast<std::size_t>(m_Texts.Length()) * 2);
        m_Texts.Seek(0);
        if (!texts.empty()) m_Texts.Read(texts.data(), m_Texts.Length());
        std::vector<std::string> values;
        for (const cow_String& text : texts) values.emplace_back(text.View());
        return values;
    }
    std::string BytesInFile()
    {
        std::string bytes(static_cast<std::size_t>(m_Space.Length().Value()), '?');
        m_Space.Seek(0);
        if (!bytes.empty()) m_Space.Read(bytes.data(), static_cast<int>(bytes.size()));
        return bytes;
    }

    int Below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(m_Random); }
    std::string AnyText()
    {
        return std::string(static_cast<std::size_t>(Below(12)), static_cast<char>('a' + Below(26)));
    }

    void LetGo()
    {
        m_Held.clear();
        m_Table = {};
        m_Doubles = {};
        m_Texts = {};
        m_Stream = {};
        m_Space = {};
    }

    void Fill(rfm_Row& row, ModelRow& model)
    {
        if (Below(3) > 0) row.WriteFieldInt(0, *(model.number = Below(1000)));
        if (Below(3) > 0) row.WriteFieldDouble(1, *(model.value = Below(1000) * 0.125));
        if (Below(3) > 0) row.WriteFieldString(2, cow_String(std::string_view(*(model.name = AnyText()))));
        if (Below(10) == 0)
        {
            row.Erase(0);
            model.number.reset();
        }
    }

    void NewRow()
    {
        rfm_Row row = m_Table.NewRow();
        m_Rows.emplace_back();
        ASSERT_EQ(row.Location(), static_cast<int>(m_Rows.size()) - 1);
        Fill(row, m_Rows.back());
        if (Below(20) == 0) m_Held.push_back(row);
    }

    void UpdateRow()
    {
        if (m_Rows.empty()) return;
        const int which = Below(static_cast<int>(m_Rows.size()));
        rfm_Row row = m_Table.UpdateRow(which);
        Fill(row, m_Rows[static_cast<std::size_t>(which)]);
    }

    void ReadRow()
    {
        if (m_Rows.empty()) return;
        const int which = Below(static_cast<int>(m_Rows.size()));
        ExpectRow(m_Table.ReadRow(which), m_Rows[static_cast<std::size_t>(which)]);
    }

    static void ExpectRow(const rfm_Row& row, const ModelRow& model)
    {
        ASSERT_EQ(row.DataIsPresent(0) == 1, model.number.has_value());
        ASSERT_EQ(row.DataIsPresent(1) == 1, model.value.has_value());
        ASSERT_EQ(row.DataIsPresent(2) == 1, model.name.has_value());
        ASSERT_EQ(model.number ? row.ReadFieldInt(0) : 0, model.number.value_or(0));
        ASSERT_EQ(model.value ? row.ReadFieldDouble(1) : 0, model.value.value_or(0));
        ASSERT_EQ(model.name ? row.ReadFieldString(2) : cow_String(), cow_String(model.name.value_or("")));
    }

    void WriteDoubles()
    {
        const int rows = static_cast<int>(m_DoubleValues.size()) / 3;
        const int first = Below(4) == 0 && rows > 0 ? Below(rows) : rows;
        const int count = 1 + Below(60);
        std::vector<double> values(static_cast<std::size_t>(count) * 3);
        for (double& value : values) value = Below(100000) * 0.5;
        m_Doubles.Seek(first);
        ASSERT_EQ(m_Doubles.Write(values.data(), count), count);
        if (m_DoubleValues.size() < static_cast<std::size_t>(first + count) * 3)
            m_DoubleValues.resize(static_cast<std::size_t>(first + count) * 3);
        std::copy(values.begin(), values.end(), m_DoubleValues.begin() + first * 3);
    }

    void ReadDoubles()
    {
        const int rows = static_cast<int>(m_DoubleValues.size()) / 3;
        const int first = Below(rows + 1);
        const int count = 1 + Below(200);
        std::vector<double> values(static_cast<std::size_t>(count) * 3);
        m_Doubles.Seek(first);
        const int expected = std::min(count, rows - first) * 3;
        ASSERT_EQ(m_Doubles.Read(values.data(), count), expected);
        for (int i = 0; i < expected; ++i)
            ASSERT_EQ(values[static_cast<std::size_t>(i)],
                      m_DoubleValues[static_cast<std::size_t>(first * 3 + i)]);
    }

    void WriteTexts()
    {
        cow_String pair[2];
        for (cow_String& text : pair)
        {
            m_TextValues.push_back(AnyText());
            text = cow_String(std::string_view(m_TextValues.back()));
        }
        m_Texts.Seek(m_Texts.Length());
        ASSERT_EQ(m_Texts.Write(pair, 1), 1);
    }

    void ReadTexts()
    {
        const int rows = static_cast<int>(m_TextValues.size()) / 2;
        if (rows == 0) return;
        const int row = Below(rows);
        cow_String pair[2];
        m_Texts.Seek(row);
        ASSERT_EQ(m_Texts.Read(pair, 1), 2);
        ASSERT_EQ(pair[0].View(), m_TextValues[static_cast<std::size_t>(row * 2)]);
        ASSERT_EQ(pair[1].View(), m_TextValues[static_cast<std::size_t>(row * 2 + 1)]);
    }

    void WriteItem()
    {
        ModelItem item{Below(2) == 0 ? rfm_TypeInt : rfm_TypeString, Below(1000), 0, ""};
        if (item.type == rfm_TypeInt)
            m_Stream.WriteInt(item.id, item.number = Below(1000));
        else
            m_Stream.WriteString(item.id, cow_String(std::string_view(item.text = AnyText())));
        m_Items.push_back(item);
        m_Stream.Flush(); // a walk through another handle sees what is in the space
    }

    static void ExpectItem(const rfm_TaggedStream& walk, const ModelItem& item)
    {
        ASSERT_TRUE(walk.Next());
        ASSERT_EQ(walk.GetType(), item.type);
        ASSERT_EQ(walk.GetID(), item.id);
        ASSERT_EQ(walk.GetInt(), item.number);
        ASSERT_EQ(walk.GetString().View(), item.text);
    }

    void WriteSpace()
    {
        const int place = Below(static_cast<int>(m_Bytes.size()) + 1);
        const std::string bytes(static_cast<std::size_t>(1 + Below(90)), static_cast<char>(Below(256)));
        m_Space.Seek(place);
        ASSERT_EQ(m_Space.Write(bytes.data(), static_cast<int>(bytes.size())),
                  static_cast<int>(bytes.size()));
        m_Bytes.replace(static_cast<std::size_t>(place),
                        std::min(bytes.size(), m_Bytes.size() - static_cast<std::size_t>(place)), bytes);
    }

    void ReadSpace()
    {
        const int place = Below(static_cast<int>(m_Bytes.size()) + 1);
        char bytes[300];
        const int count = 1 + Below(300);
        m_Space.Seek(place);
        const int expected = std::min(count, static_cast<int>(m_Bytes.size()) - place);
        ASSERT_EQ(m_Space.Read(bytes, count), expected);
        ASSERT_EQ(std::string(bytes, static_cast<std::size_t>(expected)),
                  m_Bytes.substr(static_cast<std::size_t>(place), static_cast<std::size_t>(expected)));
    }

    void Flush()
    {
        m_Held.clear();
        m_Table.Flush();
        m_Doubles.Flush();
        m_Texts.Flush();
        m_Database.Flush();
        ASSERT_GT(m_Database.GetFlushCount(), m_LastCount);
        m_LastCount = m_Database.GetFlushCount();
    }

    void Rarely()
    {
        if (Below(100) == 0) return Reopen();
        if (Below(60) == 0)
        {
            const int rows = Below(static_cast<int>(m_Rows.size()) + 1);
            m_Held.clear();
            m_Table.Truncate(rows);
            m_Rows.resize(static_cast<std::size_t>(rows));
            return;
        }
        if (Below(60) == 0)
        {
            const int bytes = Below(static_cast<int>(m_Bytes.size()) + 1);
            m_Space.Truncate(bytes);
            m_Bytes.resize(static_cast<std::size_t>(bytes));
            return;
        }
        if (Below(60) == 0)
        {
            const int rows = Below(static_cast<int>(m_DoubleValues.size()) / 3 + 1);
            m_Doubles.Truncate(rows);
            m_DoubleValues.resize(static_cast<std::size_t>(rows) * 3);
        }
    }

    std::mt19937 m_Random;
    std::string m_Path;
    // Order: the objects go before the database.
    rfm_Database m_Database;
    rfm_Table m_Table;
    rfm_Array<double, rfm_TypeDouble> m_Doubles;
    rfm_Array<cow_String, rfm_TypeString> m_Texts;
    rfm_TaggedStream m_Stream;
    rfm_Space m_Space;
    std::vector<rfm_Handle> m_Handles;
    std::vector<rfm_Row> m_Held;
    int m_LastCount = 0;
    int m_Reopenings = 0;

    std::vector<ModelRow> m_Rows;
    std::vector<double> m_DoubleValues;
    std::vector<std::string> m_TextValues;
    std::vector<ModelItem> m_Items;
    std::string m_Bytes;
};
} // namespace

TEST(RandomModel, AnyOrderOfOperationsEqualsPlainVectors)
{
    Model model(RandomSeed(), "plain");
    for (int i = 0; i < 120000; ++i)
    {
        model.Step();
        if (HasFatalFailure()) FAIL() << "operation " << i;
    }
    model.Reopen();
}

TEST(RandomModel, TheSameOperationsGiveTheSameContentInEveryKindOfFile)
{
    const unsigned seed = RandomSeed();
    Model plain(seed, "plain");
    Model compressed(seed, "compressed");
    Model hdf5(seed, "hdf5");
    int reopenings = 0;
    const auto compare = [&]
    {
        const std::string content = plain.Content();
        EXPECT_TRUE(compressed.Content() == content);
        EXPECT_TRUE(hdf5.Content() == content);
        reopenings = plain.Reopenings();
    };
    for (int i = 0; i < 20000 && !HasFailure(); ++i)
    {
        SCOPED_TRACE("operation " + std::to_string(i));
        for (Model* model : {&plain, &compressed, &hdf5}) model->Step();
        ASSERT_TRUE(compressed.Random() == plain.Random() && hdf5.Random() == plain.Random());
        if (plain.Reopenings() != reopenings) compare();
    }
    for (Model* model : {&plain, &compressed, &hdf5}) model->Reopen();
    compare();
}
