#include "solver_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

// Two blocks of a mesh of 4 nodes, laid out as the solver does, with a blank at the end of a block.
const std::string kHead = "***SOLVER V1*****\n***a title\n*****************\n";
const std::string kFirst = kHead +
                           "***NTSYR=   10  ***TEMPS=   5.0e+01  ***DT=   5.0e+00\n*****************\n"
                           "***VAR=  TEMPERATURE ***TYPE= 3  ***NB=   4\n"
                           " 2.0e+01  -2.5e+01\n 2.25e+01  1.0e-03 \n";
const std::string kSecond = kHead +
                            "***NTSYR=   20  ***TEMPS=   1.0e+02  ***DT=   5.0e+00\n*****************\n"
                            "***VAR=  TEMPERATURE ***TYPE= 3  ***NB=   4\n"
                            " 3.0e+01  3.5e+01\n 3.25e+01  3.0e+00 \n";

const std::string kProbeHead = "#    time   Temp   x   y   z   [num_no] [ref_no]  [num_ele]\n";
const std::string kProbes = kProbeHead + "  5.0e+00  2.0e+01  1.0e-01  0.0e+00  2.0e-01   0   0   11\n"
                                         "  5.0e+00  2.1e+01  1.1e+00  0.0e+00  2.0e-01   0   0   12\n";

const std::string kMesh = "C*V4.0**********C\n"
                          "C  DIMENSION = 3\n"
                          "C  DIMENSION DES ELTS = 3\n"
                          "C  NOMBRE DE NOEUDS =          4\n"
                          "C  NOMBRE D'ELEMENTS =         1\n"
                          "C  NOMBRE D'ELEMENTS DE BORD = 2\n"
                          "C  NOMBRE DE NOEUDS PAR ELEMENT =   4\n"
                          "C\nC$ RUBRIQUE = NOEUDS\nC\n"
                          "    1   0  0.0E+00 0.0E+00 0.0E+00 \n"
                          "    2   7  1.0E+00 0.0E+00 0.0E+00 \n"
                          "    3   0  0.0E+00 1.0E+00 0.0E+00 \n"
                          "    4   0  0.0E+00 0.0E+00 -1.5E-01 \n"
                          "C\nC$ RUBRIQUE = ELEMENTS\nC\n"
                          "    1   8   1 2 3 4\n"
                          "C\nC$ RUBRIQUE = ELEMENTS DE BORD\nC\n"
                          "    1   5   1 2 3\n"
                          "    2   0   1 2 4\n";

const std::string kCase = "/ a comment = 3\n"
                          "TITRE ETUDE= Pi\xE8"
                          "ce d'essai\n"
                          "MAILLAGE CONDUCTION= ../mesh/plate.syr\n"
                          "PREFIXE DES FICHIERS RESULTATS= resu1\n"
                          "NOMBRE DE PAS DE TEMPS SOLIDES= 100\n"
                          "PAS DE TEMPS SOLIDE= 2.5\n"
                          "PAS DES SORTIES CHRONO SOLIDE ITERATIONS= 30\n";

std::string Replaced(std::string text, const std::string& from, const std::string& to)
{
    const auto at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

// A file in the test's own folder, gone at the end of the test.
class TemporaryFile
{
public:
    explicit TemporaryFile(const std::string& text = "")
        : m_Name(testing::TempDir() + "solver_files_" +
                 testing::UnitTest::GetInstance()->current_test_info()->name())
    {
        std::filesystem::remove(m_Name);
        Append(text);
    }
    ~TemporaryFile() { std::filesystem::remove(m_Name); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void Append(const std::string& text) const
    {
        std::ofstream file(m_Name, std::ios::binary | std::ios::app);
        file << text;
    }
    const std::string& Name() const { return m_Name; }

private:
    std::string m_Name;
};

std::string RefusalOf(const auto& action)
{
    try
    {
        action();
    }
    catch (const solver::FileError& refusal)
    {
        return refusal.what();
    }
    return "nothing was refused";
}

std::string RefusalOfResults(const std::string& text)
{
    return RefusalOf(
        [&text]
        {
            solver::ResultReader reader("resu1.rdt", 4);
            reader.Feed(text);
            solver::Field field;
            while (reader.Next(field))
            {
            }
        });
}

std::string RefusalOfProbes(const std::string& text)
{
    return RefusalOf(
        [&text]
        {
            solver::ProbeReader reader("resu1.his");
            reader.Feed(text);
            solver::ProbeSample sample;
            while (reader.Next(sample))
            {
            }
        });
}

std::string RefusalOfMesh(const std::string& text)
{
    const TemporaryFile file(text);
    return RefusalOf([&file] { solver::ReadMesh(file.Name()); });
}

TEST(ResultReader, ABlockGivesItsStepItsTimeAndItsValues)
{
    solver::ResultReader reader("resu1.rdt", 4);
    reader.Feed(kFirst);
    solver::Field field;
    ASSERT_TRUE(reader.Next(field));
    EXPECT_EQ(field.step, 10);
    EXPECT_EQ(field.time, 50.0);
    EXPECT_EQ(field.stepSize, 5.0);
    EXPECT_EQ(field.variable, "TEMPERATURE");
    EXPECT_THAT(field.values, ElementsAre(20.0, -25.0, 22.5, 0.001));
    EXPECT_FALSE(reader.Next(field));
    EXPECT_TRUE(reader.IsBetweenBlocks());
}

TEST(ResultReader, WhereverTheFileIsCutTheSameBlocksComeOut)
{
    const std::string text = kFirst + kSecond;
    for (std::size_t cut = 0; cut <= text.size(); ++cut)
    {
        solver::ResultReader reader("resu1.rdt", 4);
        std::vector<double> lastValues;
        solver::Field field;
        for (const std::string& piece : {text.substr(0, cut), text.substr(cut)})
        {
            reader.Feed(piece);
            while (reader.Next(field)) lastValues.push_back(field.values.back());
        }
        ASSERT_THAT(lastValues, ElementsAre(0.001, 3.0)) << "cut at byte " << cut;
        ASSERT_TRUE(reader.IsBetweenBlocks()) << "cut at byte " << cut;
    }
}

TEST(ResultReader, ABlockCutAnywhereIsNotHandedOut)
{
    for (std::size_t length = 1; length < kFirst.size(); ++length)
    {
        solver::ResultReader reader("resu1.rdt", 4);
        reader.Feed(kFirst.substr(0, length));
        solver::Field field;
        ASSERT_FALSE(reader.Next(field)) << "cut at byte " << length;
        ASSERT_FALSE(reader.IsBetweenBlocks()) << "cut at byte " << length;
    }
}

TEST(ResultReader, GarbageIsRefusedWithFileAndLine)
{
    EXPECT_EQ(RefusalOfResults(Replaced(kFirst, "-2.5e+01", "-2.5x+01")),
              "resu1.rdt, line 7: expected a number, found \"-2.5x+01\"");
    EXPECT_EQ(RefusalOfResults(Replaced(kFirst, "2.25e+01", "nan")),
              "resu1.rdt, line 8: expected a finite number, found \"nan\"");
    EXPECT_EQ(RefusalOfResults(kFirst + "garbage\n"),
              "resu1.rdt, line 9: expected the head of block 2, found \"garbage\"");
    EXPECT_EQ(RefusalOfResults(Replaced(kFirst, "***TEMPS=", "***TIME=")),
              "resu1.rdt, line 4: \"TEMPS=\" is missing");
}

TEST(ResultReader, ABlockForAnotherMeshIsRefused)
{
    EXPECT_EQ(RefusalOfResults(Replaced(kFirst, "***NB=   4", "***NB=   5")),
              "resu1.rdt, line 6: the block announces 5 values, the mesh has 4 nodes");
}

TEST(ResultReader, AHeadInTheMidstOfValuesAndAValueTooManyAreRefused)
{
    EXPECT_EQ(RefusalOfResults(Replaced(kFirst, " 2.25e+01  1.0e-03 \n", kSecond)),
              "resu1.rdt, line 8: expected a number, found \"***SOLVER\"");
    EXPECT_EQ(RefusalOfResults(Replaced(kFirst, "1.0e-03", "1.0e-03 4.0")),
              "resu1.rdt, line 8: block 1 holds more than 4 values");
}

TEST(ResultReader, AVariableBeforeTheFirstStepIsRefused)
{
    EXPECT_EQ(RefusalOfResults("***VAR=  TEMPERATURE ***TYPE= 3  ***NB=   4\n"),
              "resu1.rdt, line 1: a variable before the first step");
}

TEST(ResultReader, ALineWithoutEndIsRefusedAndNotGathered)
{
    EXPECT_EQ(RefusalOfResults(std::string(5000, 'x')),
              "resu1.rdt, line 1: a line without end: this is no text file of the solver");
}

TEST(ProbeReader, SamplesComeInTheirOrderAndTheHeadIsNone)
{
    solver::ProbeReader reader("resu1.his");
    reader.Feed(kProbes);
    solver::ProbeSample sample;
    ASSERT_TRUE(reader.Next(sample));
    EXPECT_EQ(sample.time, 5.0);
    EXPECT_EQ(sample.temperature, 20.0);
    EXPECT_EQ(sample.x, 0.1);
    EXPECT_EQ(sample.y, 0.0);
    EXPECT_EQ(sample.z, 0.2);
    ASSERT_TRUE(reader.Next(sample));
    EXPECT_EQ(sample.temperature, 21.0);
    EXPECT_FALSE(reader.Next(sample));
    EXPECT_TRUE(reader.IsBetweenSamples());
}

TEST(ProbeReader, WhereverTheFileIsCutTheSameSamplesComeOut)
{
    for (std::size_t cut = 0; cut <= kProbes.size(); ++cut)
    {
        solver::ProbeReader reader("resu1.his");
        std::vector<double> temperatures;
        solver::ProbeSample sample;
        for (const std::string& piece : {kProbes.substr(0, cut), kProbes.substr(cut)})
        {
            reader.Feed(piece);
            while (reader.Next(sample)) temperatures.push_back(sample.temperature);
        }
        ASSERT_THAT(temperatures, ElementsAre(20.0, 21.0)) << "cut at byte " << cut;
    }
}

TEST(ProbeReader, ALineOfTooFewOrTooManyNumbersIsRefused)
{
    EXPECT_EQ(RefusalOfProbes(Replaced(kProbes, "   0   0   12\n", "\n")),
              "resu1.his, line 3: the line ends where a number should be");
    EXPECT_EQ(RefusalOfProbes(Replaced(kProbes, "   11\n", "   11 12\n")),
              "resu1.his, line 2: expected the end of the line, found \"12\"");
}

TEST(ReadMesh, NodesElementsAndFacesComeWithTheirReferences)
{
    const TemporaryFile file(kMesh);
    const solver::Mesh mesh = solver::ReadMesh(file.Name());
    ASSERT_EQ(mesh.nodes.size(), 4U);
    EXPECT_EQ(mesh.nodes[1].x, 1.0);
    EXPECT_EQ(mesh.nodes[1].reference, 7);
    EXPECT_EQ(mesh.nodes[3].z, -0.15);
    EXPECT_EQ(mesh.nodes[3].reference, 0);
    ASSERT_EQ(mesh.elements.size(), 1U);
    EXPECT_THAT(mesh.elements[0].nodes, ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(mesh.elements[0].reference, 8);
    ASSERT_EQ(mesh.faces.size(), 2U);
    EXPECT_THAT(mesh.faces[1].nodes, ElementsAre(1, 2, 4));
    EXPECT_EQ(mesh.faces[1].reference, 0);
}

TEST(ReadMesh, AMeshThatContradictsItselfIsRefused)
{
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "NOMBRE DE NOEUDS =          4", "NOMBRE DE NOEUDS = 5")),
                HasSubstr("the file's head promises 5 nodes, it holds 4"));
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "    3   0  0.0E+00", "    9   0  0.0E+00")),
                HasSubstr("line 13: expected number 3, found 9"));
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "1 2 3 4\n", "1 2 3 5\n")),
                HasSubstr("line 18: there is no node 5"));
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "1 2 3 4\n", "1 2 3 0\n")),
                HasSubstr("line 18: there is no node 0"));
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "    2   0   1 2 4\n", "")),
                HasSubstr("promises 2 boundary elements, it holds 1"));
}

TEST(ReadMesh, AnotherKindOfMeshIsRefused)
{
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "DIMENSION = 3", "DIMENSION = 2")),
                HasSubstr("not three-dimensional"));
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "PAR ELEMENT =   4", "PAR ELEMENT =  10")),
                HasSubstr("not tetrahedra with 4 nodes"));
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "= NOEUDS\n", "= PRISMES\n")),
                HasSubstr("unknown section \"PRISMES\""));
    EXPECT_THAT(RefusalOfMesh(Replaced(kMesh, "C$ RUBRIQUE = NOEUDS\n", "C\n")),
                HasSubstr("a record before the first section"));
}

TEST(ReadCase, TheSettingsOfTheRunAreFoundAndTextBecomesUtf8)
{
    const TemporaryFile file(kCase);
    const solver::Case run = solver::ReadCase(file.Name());
    EXPECT_EQ(run.title, "Pi\xC3\xA8"
                         "ce d'essai");
    EXPECT_EQ(run.meshFile, "../mesh/plate.syr");
    EXPECT_EQ(run.resultPrefix, "resu1");
    EXPECT_EQ(run.stepCount, 100);
    EXPECT_EQ(run.stepSize, 2.5);
    EXPECT_EQ(run.outputPeriod, 30);
    EXPECT_EQ(run.IncrementCount(), 3);
}

TEST(ReadCase, ACaseWithoutStepsOrWithoutAMeshIsRefused)
{
    const auto refusalOf = [](const std::string& text)
    {
        const TemporaryFile file(text);
        return RefusalOf([&file] { solver::ReadCase(file.Name()); });
    };
    EXPECT_THAT(refusalOf(Replaced(kCase, "SOLIDES= 100", "SOLIDES= 0")), HasSubstr("no number of steps"));
    EXPECT_THAT(refusalOf(Replaced(kCase, "ITERATIONS= 30", "ITERATIONS= 0")), HasSubstr("no period"));
    EXPECT_THAT(refusalOf(Replaced(kCase, "MAILLAGE CONDUCTION= ../mesh/plate.syr\n", "")),
                HasSubstr("names no mesh"));
    EXPECT_THAT(refusalOf(Replaced(kCase, "SOLIDES= 100", "SOLIDES= cent")),
                HasSubstr("line 5: expected a number, found \"cent\""));
}

TEST(ReadCase, AMissingFileIsAnErrorThatNamesIt)
{
    const std::string name = testing::TempDir() + "there_is_no_such_case";
    try
    {
        solver::ReadCase(name);
        FAIL() << "nothing was thrown";
    }
    catch (const std::system_error& error)
    {
        EXPECT_THAT(error.what(), HasSubstr(name));
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    }
}

TEST(ReadGroups, FacesAndVolumesKeepTheirNames)
{
    const TemporaryFile file("group_of_faces   5   up\xE9\ngroup_of_volumes 8 vol_a\n");
    const std::vector<solver::Group> groups = solver::ReadGroups(file.Name());
    ASSERT_EQ(groups.size(), 2U);
    EXPECT_EQ(groups[0].kind, solver::GroupKind::faces);
    EXPECT_EQ(groups[0].reference, 5);
    EXPECT_EQ(groups[0].name, "up\xC3\xA9");
    EXPECT_EQ(groups[1].kind, solver::GroupKind::volumes);
    EXPECT_EQ(groups[1].name, "vol_a");
}

TEST(ReadGroups, AnUnknownKindAndANamelessGroupAreRefused)
{
    const TemporaryFile file("group_of_faces 5 up\ngroup_of_edges 8 rim\n");
    EXPECT_THAT(RefusalOf([&] { solver::ReadGroups(file.Name()); }),
                HasSubstr("line 2: unknown kind of group \"group_of_edges\""));
    std::filesystem::resize_file(file.Name(), 16); // "group_of_faces 5"
    EXPECT_THAT(RefusalOf([&] { solver::ReadGroups(file.Name()); }),
                HasSubstr("line 1: a group without a name"));
}

TEST(GrowingFile, AFileThatIsNotThereYetHasNoNewsAndThenGivesEachByteOnce)
{
    const TemporaryFile file;
    std::filesystem::remove(file.Name());
    solver::GrowingFile growing(file.Name());
    EXPECT_EQ(growing.ReadNews(), "");
    file.Append("first");
    EXPECT_EQ(growing.ReadNews(), "first");
    EXPECT_EQ(growing.ReadNews(), "");
    file.Append("second");
    EXPECT_EQ(growing.ReadNews(), "second");
}

TEST(GrowingFile, AFileThatGotShorterIsAnErrorThatNamesIt)
{
    const TemporaryFile file("a first run");
    solver::GrowingFile growing(file.Name());
    growing.ReadNews();
    std::filesystem::resize_file(file.Name(), 3);
    try
    {
        growing.ReadNews();
        FAIL() << "nothing was thrown";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_EQ(std::string(error.what()),
                  file.Name() + ": the file got shorter, the solver has started over");
    }
}

} // namespace
