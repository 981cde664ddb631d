// The demo's two programs as a person starts them, beside a solver that is played by the test: it writes
// small files of the solver's kind, piece by piece.
#include "rfm.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

const std::string kCase = "TITRE ETUDE= wedge\n"
                          "MAILLAGE CONDUCTION= ../mesh/wedge.syr\n"
                          "PREFIXE DES FICHIERS RESULTATS= resu1\n"
                          "NOMBRE DE PAS DE TEMPS SOLIDES= 20\n"
                          "PAS DE TEMPS SOLIDE= 5\n"
                          "PAS DES SORTIES CHRONO SOLIDE ITERATIONS= 10\n";

const std::string kMesh = "C  DIMENSION = 3\n"
                          "C  NOMBRE DE NOEUDS = 4\n"
                          "C  NOMBRE D'ELEMENTS = 1\n"
                          "C  NOMBRE D'ELEMENTS DE BORD = 4\n"
                          "C  NOMBRE DE NOEUDS PAR ELEMENT = 4\n"
                          "C$ RUBRIQUE = NOEUDS\n"
                          "1 0 0.0 0.0 0.0\n2 0 1.0 0.0 0.0\n3 0 0.0 1.0 0.0\n4 3 0.0 0.0 1.0\n"
                          "C$ RUBRIQUE = ELEMENTS\n"
                          "1 8 1 2 3 4\n"
                          "C$ RUBRIQUE = ELEMENTS DE BORD\n"
                          "1 5 1 2 3\n2 5 1 2 4\n3 0 1 3 4\n4 6 2 3 4\n";

const std::string kGroups = "group_of_volumes 8 wedge\ngroup_of_faces 5 sides\n";

const std::string kFirstBlock = "***SOLVER\n***NTSYR= 10 ***TEMPS= 5.0e+01 ***DT= 5.0e+00\n"
                                "***VAR= TEMPERATURE ***TYPE= 3 ***NB= 4\n"
                                " 2.0e+01 -2.5e+01\n 2.25e+01 1.05e+01\n";
const std::string kSecondBlock = "***SOLVER\n***NTSYR= 20 ***TEMPS= 1.0e+02 ***DT= 5.0e+00\n"
                                 "***VAR= TEMPERATURE ***TYPE= 3 ***NB= 4\n"
                                 " 3.0e+01 3.5e+01\n 3.25e+01 2.25e+01\n";
const std::string kProbes = "#  time Temp x y z [num_no] [ref_no] [num_ele]\n"
                            " 5.0e+01 2.0e+01 0.1 0.1 0.1 0 0 1\n"
                            " 5.0e+01 2.1e+01 0.2 0.1 0.1 0 0 1\n"
                            " 1.0e+02 3.0e+01 0.1 0.1 0.1 0 0 1\n"
                            " 1.0e+02 3.1e+01 0.2 0.1 0.1 0 0 1\n";

// Extremes, mean and CRC-32 of the values above, worked out by another program.
const std::string kReport = "increment 1 10 50 -25 22.5 7 93a9b40a\n"
                            "increment 2 20 100 22.5 35 30 f74a7898\n"
                            "probe 0 50 20\nprobe 1 50 21\nprobe 0 100 30\nprobe 1 100 31\n";

// A child with its output and complaints on one pipe; killed when the test leaves it running.
class Process
{
public:
    explicit Process(const std::vector<std::string>& arguments)
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
        m_Id = ::fork();
        if (m_Id == 0) Become(arguments, ends[1]);
        ::close(ends[1]);
        m_Output = ends[0];
    }

    ~Process()
    {
        if (m_Id > 0)
        {
            ::kill(m_Id, SIGKILL);
            ::waitpid(m_Id, nullptr, 0);
        }
        ::close(m_Output);
    }

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Waits for the next line that starts so; empty when the output ends before.
    std::string LineThatStartsWith(const std::string& start)
    {
        std::string line;
        for (char letter = 0; ::read(m_Output, &letter, 1) == 1;)
        {
            if (letter != '\n')
            {
                line += letter;
                continue;
            }
            if (line.starts_with(start)) return line;
            line.clear();
        }
        return "";
    }

    std::string RestOfOutput()
    {
        std::string text;
        for (char letter = 0; ::read(m_Output, &letter, 1) == 1;) text += letter;
        return text;
    }

    void Kill()
    {
        ::kill(m_Id, SIGKILL);
        ExitCode();
    }

    int ExitCode()
    {
        int status = 0;
        ::waitpid(m_Id, &status, 0);
        m_Id = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    [[noreturn]] static void Become(const std::vector<std::string>& arguments, int output)
    {
        ::dup2(output, STDOUT_FILENO);
        ::dup2(output, STDERR_FILENO);
        std::vector<char*> words;
        words.reserve(arguments.size() + 1);
        for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        ::execv(words[0], words.data());
        ::_exit(127);
    }

    pid_t m_Id = -1;
    int m_Output = -1;
};

class Demo : public testing::Test
{
protected:
    Demo()
        : m_Folder(testing::TempDir() + "demo_" +
                   testing::UnitTest::GetInstance()->current_test_info()->name())
    {
        std::filesystem::remove_all(m_Folder);
        std::filesystem::create_directories(m_Folder + "/case");
        std::filesystem::create_directories(m_Folder + "/mesh");
        Append("mesh/wedge.syr", kMesh);
        Append("mesh/wedge.syr_desc", kGroups);
    }

    ~Demo() override { std::filesystem::remove_all(m_Folder); }

    std::string Path(const std::string& name) const { return m_Folder + "/" + name; }

    void Append(const std::string& name, const std::string& text) const
    {
        std::ofstream file(Path(name), std::ios::binary | std::ios::app);
        file << text;
    }

    std::string Contents(const std::string& name) const
    {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::vector<std::string> Recorder() const
    {
        return {DEMO_RECORDER, "import",       "syrthes",   Path("case/wedge.syd"), Path("run.rdx"),
                "--status",    Path("status"), "--command", "solve wedge"};
    }

    // The end of the recorder's last word on a run that failed.
    std::string WhatIsKept() const { return "; what it wrote before is in " + Path("run.rdx"); }

    std::vector<std::string> Viewer() const
    {
        return {DEMO_VIEWER, "--report", Path("report"), "--picture", Path("picture.png"), Path("run.rdx")};
    }

    std::vector<std::string> Checksums() const { return {DEMO_VIEWER, "--print-checksums", Path("run.rdx")}; }

    // The recorder and the viewer of a run whose first increment is out and seen.
    void StartAndSeeFirstIncrement(Process& viewer) const
    {
        Append("case/wedge.syd", kCase);
        Append("case/resu1.rdt", kFirstBlock);
        EXPECT_THAT(viewer.LineThatStartsWith("increment"), StartsWith("increment   1  step    10"));
    }

private:
    std::string m_Folder;
};

TEST_F(Demo, TheViewerSeesWhatTheSolverWroteAndDrawsIt)
{
    Process viewer(Viewer());
    Process recorder(Recorder());
    Append("case/wedge.syd", kCase);
    Append("case/resu1.his", kProbes.substr(0, 70));
    Append("case/resu1.rdt", kFirstBlock + kSecondBlock.substr(0, 100)); // cut in the midst of a value
    EXPECT_THAT(viewer.LineThatStartsWith("increment"),
                HasSubstr("min -25.0000  mean   7.0000  max  22.5000"));
    Append("case/resu1.rdt", kSecondBlock.substr(100));
    Append("case/resu1.his", kProbes.substr(70));
    EXPECT_THAT(viewer.LineThatStartsWith("increment"), StartsWith("increment   2  step    20"));
    Append("status", "0\n");
    EXPECT_EQ(recorder.ExitCode(), 0) << recorder.RestOfOutput();
    EXPECT_THAT(viewer.LineThatStartsWith("the run is complete"), HasSubstr("2 increments"));
    EXPECT_EQ(viewer.ExitCode(), 0);
    EXPECT_EQ(Contents("report"), kReport);
    EXPECT_THAT(Contents("picture.png"), StartsWith("\x89PNG"));

    Process checksums(Checksums());
    EXPECT_EQ(checksums.RestOfOutput(), kReport);
    EXPECT_EQ(checksums.ExitCode(), 0);
}

TEST_F(Demo, AReferenceOfZeroIsAFieldWithoutData)
{
    Append("case/wedge.syd", kCase);
    Append("case/resu1.rdt", kFirstBlock + kSecondBlock);
    Append("status", "0\n");
    Process recorder(Recorder());
    EXPECT_EQ(recorder.ExitCode(), 0) << recorder.RestOfOutput();

    rfm_Database database =
        rfm_Database::Open(rfm_File::Open(Path("run.rdx").c_str(), utl_FileAccessRead), "DEMO");
    database.Bind();
    rfm_Table objects = database.Table(database.RootTableHandle(), -1, -1);
    std::string present;
    for (int i = 0; i < objects.Length(); ++i)
    {
        const rfm_Row object = objects.ReadRow(i);
        const std::string name = object.ReadFieldString("name").CString();
        if (name != "NODES" && name != "ELEMENTS" && name != "FACES") continue;
        rfm_Table table = database.Table(object.ReadFieldHandle("handle"), -1, -1);
        present += name + ":";
        for (int row = 0; row < table.Length(); ++row)
        {
            const rfm_Row entry = table.ReadRow(row);
            present +=
                entry.DataIsPresent("reference") != 0 ? std::to_string(entry.ReadFieldInt("reference")) : "-";
        }
        present += " ";
    }
    EXPECT_EQ(present, "NODES:---3 ELEMENTS:8 FACES:55-6 ");
}

TEST_F(Demo, ASolverThatFailsIsAFailureForRecorderAndViewer)
{
    Process viewer(Viewer());
    Process recorder(Recorder());
    StartAndSeeFirstIncrement(viewer);
    Append("status", "3\n");
    EXPECT_EQ(recorder.LineThatStartsWith("rfm: "),
              "rfm: " + Path("case/wedge.syd") + ": the solver has failed with exit code 3" + WhatIsKept());
    EXPECT_EQ(recorder.ExitCode(), 1);
    EXPECT_EQ(viewer.LineThatStartsWith("the run"), "the run has failed after 1 increments");
    EXPECT_EQ(viewer.ExitCode(), 4);
}

TEST_F(Demo, ASolverThatEndsInTheMidstOfABlockIsAFailure)
{
    Process viewer(Viewer());
    Process recorder(Recorder());
    StartAndSeeFirstIncrement(viewer);
    Append("case/resu1.rdt", kSecondBlock.substr(0, kSecondBlock.size() - 1));
    Append("status", "0\n");
    EXPECT_EQ(recorder.LineThatStartsWith("rfm: "),
              "rfm: " + Path("case/wedge.syd") +
                  ": the solver has ended in the middle of a block of results" + WhatIsKept());
    EXPECT_EQ(recorder.ExitCode(), 1);
    EXPECT_EQ(viewer.ExitCode(), 4);
}

TEST_F(Demo, ASolverThatEndsTooEarlyIsAFailure)
{
    Process viewer(Viewer());
    Process recorder(Recorder());
    StartAndSeeFirstIncrement(viewer);
    Append("status", "0\n");
    EXPECT_EQ(recorder.LineThatStartsWith("rfm: "), "rfm: " + Path("case/wedge.syd") +
                                                        ": the solver has ended after 1 of 2 increments" +
                                                        WhatIsKept());
    EXPECT_EQ(recorder.ExitCode(), 1);
    EXPECT_EQ(viewer.ExitCode(), 4);
}

TEST_F(Demo, GarbageInTheResultsIsReportedWithFileAndLine)
{
    Process viewer(Viewer());
    Process recorder(Recorder());
    StartAndSeeFirstIncrement(viewer);
    Append("case/resu1.rdt", "segmentation fault\n");
    EXPECT_EQ(recorder.LineThatStartsWith("rfm: "), "rfm: " + Path("case/resu1.rdt") +
                                                        ", line 6: expected the head of block 2, found "
                                                        "\"segmentation fault\"; only what the solver itself "
                                                        "wrote can be recorded");
    EXPECT_EQ(recorder.ExitCode(), 4);
    EXPECT_EQ(viewer.ExitCode(), 4);
}

TEST_F(Demo, AKilledRecorderLosesNothingThatItHadPublished)
{
    Process viewer(Viewer());
    Process recorder(Recorder());
    StartAndSeeFirstIncrement(viewer);
    recorder.Kill();
    Process checksums(Checksums());
    EXPECT_EQ(checksums.RestOfOutput(), kReport.substr(0, kReport.find('\n') + 1));
    EXPECT_EQ(checksums.ExitCode(), 4); // not complete
}

TEST_F(Demo, AViewerWhoseDatabaseIsRemovedSaysSoAndEnds)
{
    Process viewer(Viewer());
    Process recorder(Recorder());
    StartAndSeeFirstIncrement(viewer);
    std::filesystem::remove(Path("run.rdx"));
    EXPECT_EQ(viewer.LineThatStartsWith(Path("run.rdx")),
              Path("run.rdx") + " is gone, 1 increments were seen");
    EXPECT_EQ(viewer.ExitCode(), 3);
}

TEST_F(Demo, AViewerWhoseDatabaseIsReplacedStartsOver)
{
    Process viewer(Viewer());
    Process recorder(Recorder());
    StartAndSeeFirstIncrement(viewer);
    recorder.Kill();

    // A whole other run under another name, made older than any run of today so that the times of creation
    // differ, takes the name in one step.
    Append("case/resu1.rdt", kSecondBlock);
    Append("status", "0\n");
    std::vector<std::string> other = Recorder();
    other[4] = Path("other.rdx");
    Process secondRecorder(other);
    ASSERT_EQ(secondRecorder.ExitCode(), 0) << secondRecorder.RestOfOutput();
    rfm_Database::Open(rfm_File::Open(other[4].c_str(), utl_FileAccessUpdate), "DEMO").SetCreationTime(1);
    std::filesystem::rename(other[4], Path("run.rdx"));

    EXPECT_THAT(viewer.LineThatStartsWith("another database"), HasSubstr("starting over"));
    EXPECT_THAT(viewer.LineThatStartsWith("increment"), StartsWith("increment   1"));
    EXPECT_THAT(viewer.LineThatStartsWith("increment"), StartsWith("increment   2"));
    EXPECT_EQ(viewer.ExitCode(), 0);
    EXPECT_EQ(Contents("report"), kReport.substr(0, kReport.find("probe")));
}

TEST_F(Demo, AWrongCommandLineIsAnsweredWithUsage)
{
    Process viewer({DEMO_VIEWER, "--patience", "soon", "run.rdx"});
    EXPECT_THAT(viewer.RestOfOutput(), StartsWith("usage: follow_results"));
    EXPECT_EQ(viewer.ExitCode(), 2);
}

} // namespace
