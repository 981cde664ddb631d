// The OBJECT words: what each form chooses, and how those that choose nothing, or too much, are answered.
#include "Selection.h"

#include "Failure.h"
#include "SampleDatabase.h"
#include "rfm_Library.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace
{
using rfm_tool::DatabaseFile;
using rfm_tool::Failure;
using rfm_tool::Selected;
using testing::ElementsAre;

class Selection : public testing::Test
{
protected:
    Selection()
    {
        MakeSample(m_Path);
        {
            rfm_Database database =
                rfm_Database::Open(rfm_File::Open(m_Path.c_str(), utl_FileAccessUpdate), "TEST");
            rfm_TableMetadata dotted("NODES.x", 1);
            dotted.DefineIntField("id");
            const rfm_Table table = database.Table(database.Bind(dotted), -1, -1);
            m_Dotted = table.Handle().Value();
        }
        m_File.emplace(m_Path);
    }

    // "4 6.0,1": handles with the indexes of their fields.
    std::string Chosen(const std::vector<std::string>& words)
    {
        std::string text;
        for (const Selected& each : rfm_tool::Select(*m_File, words))
        {
            text += (text.empty() ? "" : " ") + std::to_string(each.object.handle.Value());
            if (!each.fields) continue;
            for (const int field : *each.fields) text += "." + std::to_string(field);
        }
        return text;
    }
    std::string Refusal(int code, const std::function<void()>& step) const
    {
        try
        {
            step();
        }
        catch (const Failure& failure)
        {
            EXPECT_EQ(failure.Code(), code);
            const std::string what = failure.what();
            EXPECT_EQ(what.substr(0, m_Path.size() + 2), m_Path + ": ");
            return what.substr(m_Path.size() + 2);
        }
        return "none";
    }
    std::string SelectRefusal(const std::string& word, int code = rfm_tool::ExitMissing)
    {
        return Refusal(code, [&] { rfm_tool::Select(*m_File, {word}); });
    }

    TestFolder m_Folder;
    std::string m_Path = m_Folder / "s.rdx";
    std::uint32_t m_Dotted = 0;
    std::optional<DatabaseFile> m_File;
};

TEST_F(Selection, AHandleInBothNotationsANameAndAGlobChooseObjects)
{
    const std::string dotted = std::to_string(m_Dotted);
    EXPECT_EQ(Chosen({"6"}), "6");
    EXPECT_EQ(Chosen({"0x6"}), "6");
    EXPECT_EQ(Chosen({"1"}), "1"); // the library's own are reached by their handles
    EXPECT_EQ(Chosen({"NODES"}), "4 5");
    EXPECT_EQ(Chosen({"NODES.x"}), dotted); // a table's name comes before a field
    EXPECT_EQ(Chosen({"NODES*"}), "4 5 " + dotted);
    EXPECT_EQ(Chosen({"[6-9]"}), "6 7 8 9");
    EXPECT_EQ(Chosen({"*"}), "4 5 6 7 8 9 " + dotted);
    EXPECT_EQ(Chosen({}), "4 5 6 7 8 9 " + dotted);
}

TEST_F(Selection, FieldsAreChosenByNameAndByGlobInTheOrderAskedFor)
{
    EXPECT_EQ(Chosen({"NODES.name"}), "4.2 5.2");
    EXPECT_EQ(Chosen({"4.[iw]*"}), "4.0.3");
    EXPECT_EQ(Chosen({"4.x", "4.id", "4.x"}), "4.4.0");
    EXPECT_EQ(Chosen({"6.1"}), "6.1");
    EXPECT_EQ(Chosen({"6.*"}), "6.0.1");
    EXPECT_EQ(Chosen({"*.id"}), "4.0 5.0 " + std::to_string(m_Dotted) + ".0"); // others have no such field
}

TEST_F(Selection, AnObjectComesOnceAndAsAWholeWhenAWordAsksForTheWhole)
{
    EXPECT_EQ(Chosen({"4.x", "6", "4"}), "4 6");
    EXPECT_EQ(Chosen({"4", "4.x"}), "4");
}

TEST_F(Selection, WhatChoosesNothingIsAnsweredWithAGuess)
{
    EXPECT_EQ(SelectRefusal("99"), "no object has the handle 99; `rfm ls` lists the handles");
    EXPECT_EQ(SelectRefusal("NODE"), "no table has the name NODE; did you mean NODES?");
    EXPECT_EQ(SelectRefusal("elements"), "no table has the name elements; `rfm ls` lists the tables");
    EXPECT_EQ(SelectRefusal("Q*"), "no object fits Q*; `rfm ls` lists the objects");
    EXPECT_EQ(SelectRefusal("NODES.nam"), "table NODES has no field nam; did you mean NODES.name?");
    EXPECT_EQ(SelectRefusal("4.temperature"),
              "table NODES has no field temperature; `rfm schema` lists the fields");
    EXPECT_EQ(SelectRefusal("6.2"), "double array 6 has no field 2; did you mean 6.0?");
    EXPECT_EQ(SelectRefusal("NODE.name"), "no table has the name NODE; did you mean NODES?");
    EXPECT_EQ(SelectRefusal(""), "no table has the name ; `rfm ls` lists the tables");
}

TEST_F(Selection, OneObjectIsNotTwo)
{
    EXPECT_EQ(rfm_tool::SelectOne(*m_File, "6").object.handle.Value(), 6U);
    EXPECT_EQ(Refusal(rfm_tool::ExitUsage, [&] { rfm_tool::SelectOne(*m_File, "NODES"); }),
              "2 objects are meant by NODES; did you mean one of the handles 4, 5?");
    EXPECT_EQ(Refusal(rfm_tool::ExitUsage, [&] { rfm_tool::SelectOne(*m_File, "*"); }),
              "7 objects are meant by *; did you mean one of the handles 4, 5, 6, 7, 8, ...?");
}

TEST_F(Selection, AListOfFieldsKeepsItsOrder)
{
    const rfm_tool::Object table = rfm_tool::SelectOne(*m_File, "4").object;
    EXPECT_THAT(rfm_tool::SelectFields(*m_File, table, "x,id"), ElementsAre(4, 0));
    EXPECT_THAT(rfm_tool::SelectFields(*m_File, table, "x,*"), ElementsAre(4, 0, 1, 2, 3));
    EXPECT_EQ(Refusal(rfm_tool::ExitMissing, [&] { rfm_tool::SelectFields(*m_File, table, "x,ib"); }),
              "table NODES has no field ib; did you mean id?");
    EXPECT_EQ(Refusal(rfm_tool::ExitMissing, [&] { rfm_tool::SelectFields(*m_File, table, ""); }),
              "table NODES has no field ; did you mean x?");
}

TEST_F(Selection, ADamagedObjectHasNoNameButItsHandle)
{
    m_File.reset();
    Overwrite<int>(m_Path, ExtentOfEntry(m_Path, 5) + 8, 400); // the twin's layout
    m_File.emplace(m_Path);
    EXPECT_EQ(Chosen({"NODES"}), "4");
    EXPECT_EQ(Chosen({"[56]"}), "5 6");
    EXPECT_EQ(rfm_tool::Select(*m_File, {}).at(1).object.damage, "Can't find metadata with handle");
    EXPECT_EQ(SelectRefusal("5", rfm_tool::ExitUnreadable).substr(0, 15), "handle 5: Can't");
    EXPECT_THROW(rfm_tool::SelectOne(*m_File, "5*"), Failure);
}

} // namespace
