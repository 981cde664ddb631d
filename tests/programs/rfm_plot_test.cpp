// `rfm plot`: pictures in SVG and on a screen, byte by byte, and what is refused.
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <regex>

namespace
{
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::vector<std::pair<const char*, const char*>> kAscii{{"NO_COLOR", "1"}, {"LC_ALL", "C"}};
const std::vector<std::pair<const char*, const char*>> kUtf8{{"NO_COLOR", "1"}, {"LC_ALL", "C.UTF-8"}};

// Table 4 STEPS: time 0 to 4, force 0 5 - -5 10 (one is absent), energy 2 for each, a label; array 5 of 100000 waves.
class RfmPlot : public testing::Test
{
protected:
    RfmPlot()
    {
        rfm_Database database = CreateDatabase(m_File);
        rfm_TableMetadata layout("STEPS & <more>", 1);
        const int time = layout.DefineDoubleField("time");
        const int force = layout.DefineDoubleField("force");
        const int energy = layout.DefineIntField("energy");
        const int label = layout.DefineStringField("label");
        {
            rfm_Table table = database.Table(database.Bind(layout), -1, -1);
            for (int i = 0; i < 5; ++i)
            {
                rfm_Row row = table.NewRow();
                row.WriteFieldDouble(time, i);
                if (i != 2) row.WriteFieldDouble(force, i == 3 ? -5 : i == 4 ? 10 : 5 * i);
                row.WriteFieldInt(energy, 2);
                row.WriteFieldString(label, "a");
            }
            table.Flush();
            auto waves = database.ArrayDouble(1, -1, 0);
            std::vector<double> numbers;
            for (int i = 0; i < 100000; ++i) numbers.push_back(std::sin(i * 0.7) * (i == 50000 ? 0 : 1));
            numbers[50001] = 3;
            waves.Write(numbers.data(), 100000);
            waves.Flush();
        }
        database.Close();
    }

    std::string Svg(Tool::Words words) const
    {
        words.insert(words.begin(), {"plot", m_File});
        words.insert(words.end(), {"-o", m_Out, "-f"});
        const ToolResult result = Tool::Run(words);
        EXPECT_EQ(result.code, 0) << result.err;
        return ReadFile(m_Out);
    }
    std::string OnScreen(Tool::Words words,
                         const std::vector<std::pair<const char*, const char*>>& environment) const
    {
        words.insert(words.begin(), {"plot", m_File});
        std::string text = Tool::RunOnTerminal(words, 13, 40, environment).out;
        return std::regex_replace(text, std::regex("\r"), "");
    }
    void ExpectRefusal(Tool::Words words, int code, const std::string& line) const
    {
        words.insert(words.begin(), {"plot", m_File});
        const ToolResult result = Tool::Run(words);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + line + "\n");
    }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
    std::string m_Out = m_Folder / "s.svg";
};

TEST_F(RfmPlot, AFieldAgainstAnotherIsALineWithAGapWhereAValueIsAbsent)
{
    EXPECT_EQ(Svg({"4.force", "--x", "time"}), R"svg(<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" width="810" height="500" viewBox="0 0 810 500" font-family="sans-serif" font-size="13">
<title>STEPS &amp; &lt;more&gt; (4) of s.rdx</title>
<rect width="810" height="500" fill="white"/>
<g stroke="#dddddd">
<path d="M90 40V440"/>
<path d="M177.5 40V440"/>
<path d="M265 40V440"/>
<path d="M352.5 40V440"/>
<path d="M440 40V440"/>
<path d="M527.5 40V440"/>
<path d="M615 40V440"/>
<path d="M702.5 40V440"/>
<path d="M790 40V440"/>
<path d="M90 413.3H790"/>
<path d="M90 360H790"/>
<path d="M90 306.7H790"/>
<path d="M90 253.3H790"/>
<path d="M90 200H790"/>
<path d="M90 146.7H790"/>
<path d="M90 93.3H790"/>
<path d="M90 40H790"/>
</g>
<path d="M90 40V440H790" fill="none" stroke="black"/>
<g text-anchor="middle">
<text x="90" y="458">0.0</text>
<text x="177.5" y="458">0.5</text>
<text x="265" y="458">1.0</text>
<text x="352.5" y="458">1.5</text>
<text x="440" y="458">2.0</text>
<text x="527.5" y="458">2.5</text>
<text x="615" y="458">3.0</text>
<text x="702.5" y="458">3.5</text>
<text x="790" y="458">4.0</text>
</g>
<g text-anchor="end">
<text x="84" y="417.3">-4</text>
<text x="84" y="364">-2</text>
<text x="84" y="310.7">0</text>
<text x="84" y="257.3">2</text>
<text x="84" y="204">4</text>
<text x="84" y="150.7">6</text>
<text x="84" y="97.3">8</text>
<text x="84" y="44">10</text>
</g>
<path fill="none" stroke="#1f5fa8" stroke-width="1.5" stroke-linecap="round" stroke-linejoin="round" d="M90 306.7L265 173.3M615 440L790 40"/>
<g text-anchor="middle">
<text x="440" y="25" font-size="16">STEPS &amp; &lt;more&gt; (4) of s.rdx</text>
<text x="440" y="482">time</text>
<text transform="translate(20 240) rotate(-90)">force</text>
</g>
</svg>
)svg");
}

TEST_F(RfmPlot, SeveralFieldsHaveALegendAndTheRowIsTheDefault)
{
    const std::string svg = Svg({"4", "--fields", "force,energy"});
    EXPECT_THAT(svg, HasSubstr(">row</text>"));
    EXPECT_THAT(svg, HasSubstr("<path d=\"M805 50h20\" stroke=\"#1f5fa8\" stroke-width=\"3\"/>\n"
                               "<text x=\"832\" y=\"54\">force</text>\n"));
    EXPECT_THAT(svg, HasSubstr("<path d=\"M805 70h20\" stroke=\"#c8452b\" stroke-width=\"3\"/>\n"
                               "<text x=\"832\" y=\"74\">energy</text>\n"));
    EXPECT_THAT(svg, HasSubstr("d=\"M90 253.3L265 253.3L440 253.3L615 253.3L790 253.3\"/>")) << "energy";
    EXPECT_THAT(Svg({"4"}), Not(HasSubstr(">label<"))) << "texts are left out where nobody names them";
}

TEST_F(RfmPlot, DotsAreLinesWithoutLength)
{
    EXPECT_THAT(Svg({"4.energy", "--dots"}),
                HasSubstr("d=\"M90 240h0M265 240h0M440 240h0M615 240h0M790 240h0\"/>"));
}

TEST_F(RfmPlot, OfManyPointsTheLeastAndTheGreatestStay)
{
    const std::string svg = Svg({"5"});
    const std::string line = svg.substr(svg.find("d=\"M", svg.find("stroke-linejoin")));
    const auto points =
        std::count(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(line.find("\"/>")), 'L');
    EXPECT_GT(points, 2 * 700);
    EXPECT_LT(points, 4 * 700);
    EXPECT_THAT(svg, HasSubstr("L440 40L")) << "the one wave of height 3";
}

TEST_F(RfmPlot, ATerminalShowsItWithMarksWithinItsSize)
{
    EXPECT_EQ(OnScreen({"4.force", "--x", "time"}, kAscii), R"(STEPS & <more> (4) of s.rdx
10 +                                   *
   |                                  *
   |        **                      **
   |     ***                       *
   |  ***                         *
 0 +**                          **
   |                           *
   |                          *
   ++-----------------+----------------+
    0                 2                4
x: time   y: force
)");
}

TEST_F(RfmPlot, ATerminalWithUtf8ShowsItWithDotsOfBraille)
{
    EXPECT_EQ(OnScreen({"4.force", "--x", "time"}, kUtf8), R"(STEPS & <more> (4) of s.rdx
10 ┤                                  ⢀⠎
   │                                 ⢀⠎
   │        ⣀⠄                      ⢠⠃
   │    ⢀⡠⠔⠉                       ⡰⠁
   │ ⢀⡠⠒⠁                         ⡰⠁
 0 ┤⠊⠁                           ⡜
   │                           ⢀⠎
   │                          ⢀⠎
   └┬─────────────────┬────────────────┬
    0                 2                4
x: time   y: force
)");
}

TEST_F(RfmPlot, SeveralFieldsAreToldApartByMarksWithoutColour)
{
    const std::string screen = OnScreen({"4", "--fields", "force,energy"}, kUtf8);
    EXPECT_THAT(screen, HasSubstr("\nx: row   * force + energy\n"));
    const std::string coloured = OnScreen({"4", "--fields", "force,energy"},
                                          {{"NO_COLOR", ""}, {"TERM", "xterm"}, {"LC_ALL", "C.UTF-8"}});
    EXPECT_THAT(coloured,
                HasSubstr("x: row   \x1b[34m\xe2\x94\x81 force\x1b[0m \x1b[31m\xe2\x94\x81 energy\x1b[0m\n"));
}

TEST_F(RfmPlot, OnAPipeItIsAsLargeAsAnOldTerminal)
{
    const std::string text = Tool::Run({"plot", m_File, "5"}).out;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 23);
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
}

TEST_F(RfmPlot, ItIsTheSameOfEachKindOfFile)
{
    const std::string svg = Svg({"4", "--fields", "force,energy"});
    const std::string text = Tool::Run({"plot", m_File, "5"}).out;
    const std::string plain = m_File;
    for (const std::string& kind : kKinds)
    {
        std::filesystem::create_directory(m_Folder / kind);
        m_File = m_Folder / (kind + "/s.rdx"); // the name of the file is in the picture
        ASSERT_EQ(Tool::Run({"convert", plain, m_File, "--to", kind}).code, 0);
        EXPECT_TRUE(Svg({"4", "--fields", "force,energy"}) == svg) << kind;
        EXPECT_TRUE(Tool::Run({"plot", m_File, "5"}).out == text) << kind;
    }
}

TEST_F(RfmPlot, WhatCanNotBeDrawnIsRefused)
{
    const std::string at = m_File + ": ";
    ExpectRefusal({"4.label"}, 2, at + "4.label: label has texts; name fields with numbers");
    ExpectRefusal({"4.force", "--x", "label"}, 2, at + "label: has texts; give a field with numbers for --x");
    ExpectRefusal({"4.force", "--x", "tim"}, 3,
                  at + "table STEPS & <more> has no field tim; did you mean time?");
    ExpectRefusal({"4.force", "--x", "*"}, 2, at + "*: is more than one field; give one for --x");
    ExpectRefusal({"4.force", "--where", "row == 2"}, 1,
                  at + "4.force: there are no numbers to draw; `rfm stats` tells what is there");
}

TEST_F(RfmPlot, MoreFieldsThanColoursAreRefused)
{
    rfm_Database database = CreateDatabase(m_File);
    {
        auto wide = database.ArrayDouble(13, -1, 0);
        wide.Write(std::vector<double>(13).data(), 1);
        wide.Flush();
    }
    database.Close();
    ExpectRefusal({"4"}, 2,
                  m_File + ": 4: 13 fields can't be told apart in one plot; name up to 12 with --fields");
    EXPECT_THAT(Svg({"4", "--fields", "0,12"}), HasSubstr(">12</text>"));
}

TEST_F(RfmPlot, NoPictureIsLeftWhereItCanNotBeWhole)
{
    {
        const FileSizeLimit limit(100);
        ExpectRefusal({"4.force", "-o", m_Out}, 7,
                      m_Out + ": File too large; make room or write elsewhere; nothing was left there");
    }
    ExpectRefusal({"4.label", "-o", m_Out}, 2,
                  m_File + ": 4.label: label has texts; name fields with numbers");
    EXPECT_THAT(NamesIn(m_Folder / ""), ElementsAre("s.rdx"));
    WriteFile(m_Out, "precious");
    ExpectRefusal({"4.force", "-o", m_Out}, 2, m_Out + ": is there already; --force replaces it");
}
} // namespace
