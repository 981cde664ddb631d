// The tool's look at its surroundings.
#include "SampleDatabase.h"
#include "ToolRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/opensslv.h>
#include <sys/stat.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>

namespace
{
using testing::HasSubstr;
using testing::StartsWith;

// A variable of this process, and so of the tools that it starts, for one test.
class Variable
{
public:
    Variable(const char* name, const char* value) : m_Name(name)
    {
        if (const char* before = std::getenv(name)) m_Before = before;
        Set(value);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { Set(m_Before ? m_Before->c_str() : nullptr); }

private:
    void Set(const char* value)
    {
        if (value == nullptr)
            ::unsetenv(m_Name);
        else
            ::setenv(m_Name, value, 1);
    }
    const char* m_Name;
    std::optional<std::string> m_Before;
};

void MakeProgram(const std::string& path)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    WriteFile(path, "#!/bin/sh\n");
    ::chmod(path.c_str(), 0755);
}

// A machine on which nothing is missing.
class RfmDoctor : public testing::Test
{
protected:
    RfmDoctor()
    {
        MakeProgram(m_Folder / "bin/ssh");
        MakeProgram(m_Folder / "remote/External/qlnsrv/qlnsrv");
    }

    // Lines by their second cell.
    std::map<std::string, std::string> Lines()
    {
        m_Result = Tool::Run({"doctor"});
        std::map<std::string, std::string> lines;
        std::istringstream out(m_Result.out);
        for (std::string line; std::getline(out, line);)
        {
            const std::size_t begin = line.find('\t') + 1;
            lines[line.substr(begin, line.find('\t', begin) - begin)] = line;
        }
        return lines;
    }

    TestFolder m_Folder;
    std::string m_Bin = m_Folder / "bin";
    std::string m_Remote = (m_Folder / "none") + ":" + (m_Folder / "remote");
    Variable m_Path{"PATH", m_Bin.c_str()};
    Variable m_MrlPath{"MRL_PATH", m_Remote.c_str()};
    Variable m_Locale{"LC_ALL", "C.UTF-8"};
    Variable m_Pause{"PAUSE_FOR_TRANSACTION", nullptr};
    Variable m_Drive{"HOMEDRIVE", nullptr};
    Variable m_HomePath{"HOMEPATH", nullptr};
    Variable m_Temporary{"TMPDIR", nullptr};
    ToolResult m_Result;
};

TEST_F(RfmDoctor, WhereNothingIsMissingEveryLineIsFine)
{
    auto lines = Lines();
    EXPECT_EQ(m_Result.code, 0) << m_Result.out;
    EXPECT_EQ(lines["rfm"], "ok\trfm\t" RFM_VERSION "\t");
    EXPECT_THAT(lines["qlnsrv"], StartsWith("ok\tqlnsrv\t" + (m_Folder / "remote/External/qlnsrv/qlnsrv")));
    EXPECT_THAT(lines["ssh"], StartsWith("ok\tssh\t" + (m_Folder / "bin/ssh")));
    EXPECT_THAT(lines["temporary files"], StartsWith("ok\ttemporary files\t/tmp, "));
    EXPECT_THAT(lines["locale"], StartsWith("ok\tlocale\tUTF-8"));
    for (const char* library : {"zlib", "HDF5", "OpenSSL"})
        EXPECT_THAT(lines[library], testing::MatchesRegex("ok\t.*\t[0-9]+[.][0-9]+.*\t.*")) << library;
}

TEST_F(RfmDoctor, WithoutTheRelayItTellsWhatToSet)
{
    {
        const Variable unset("MRL_PATH", nullptr);
        EXPECT_THAT(Lines()["qlnsrv"], StartsWith("warn\tqlnsrv\tMRL_PATH is not set\tfor databases on other "
                                                  "hosts set MRL_PATH to a folder that holds "
                                                  "External/qlnsrv/qlnsrv"));
        EXPECT_EQ(m_Result.code, 1);
    }
    ::chmod((m_Folder / "remote/External/qlnsrv/qlnsrv").c_str(), 0644); // no program
    EXPECT_THAT(Lines()["qlnsrv"], StartsWith("warn\tqlnsrv\tnot found\t"));
}

TEST_F(RfmDoctor, WithoutSshItTellsWhatToInstall)
{
    const Variable elsewhere("PATH", m_Remote.c_str());
    EXPECT_EQ(Lines()["ssh"], "warn\tssh\tnot found along PATH\tfor databases on other hosts install "
                              "openssh-client");
    EXPECT_EQ(m_Result.code, 1);
}

TEST_F(RfmDoctor, AFolderForTemporaryFilesThatIsNotThereIsAWarning)
{
    const std::string none = m_Folder / "none";
    const Variable missing("TMPDIR", none.c_str());
    EXPECT_EQ(Lines()["temporary files"],
              "warn\ttemporary files\t" + none +
                  "\tno file can be made there: set TMPDIR to a folder that can be written");
    const Variable relative("TMPDIR", "here"); // the library passes over it
    EXPECT_THAT(Lines()["temporary files"], StartsWith("ok\ttemporary files\t/tmp, "));
}

TEST_F(RfmDoctor, ALocaleThatIsNotUtf8OrNotThereIsAWarning)
{
    {
        const Variable plain("LC_ALL", "C");
        EXPECT_THAT(Lines()["locale"], StartsWith("warn\tlocale\tANSI_X3.4-1968\t"));
    }
    const Variable missing("LC_ALL", "xx_YY");
    EXPECT_THAT(Lines()["locale"], StartsWith("warn\tlocale\tnot installed\t"));
}

TEST_F(RfmDoctor, VariablesAreShownWithTheirValueAndWhatTheyDo)
{
    const Variable hdf("MRK_HDF_RDX", "1");
    const Variable log("MRK_RFM_LOGIFY", nullptr);
    auto lines = Lines();
    EXPECT_EQ(lines["MRK_HDF_RDX"], "ok\tMRK_HDF_RDX\t1\twhen set, new databases become HDF5 files");
    EXPECT_THAT(lines["MRK_RFM_LOGIFY"], StartsWith("ok\tMRK_RFM_LOGIFY\tnot set\t"));
}

TEST_F(RfmDoctor, SettingsThatSurpriseAreWarnings)
{
    const Variable pause("PAUSE_FOR_TRANSACTION", "");
    const Variable half("HOMEDRIVE", "/a");
    auto lines = Lines();
    EXPECT_EQ(m_Result.code, 1);
    EXPECT_THAT(lines["pauses"], StartsWith("warn\t"));
    EXPECT_THAT(lines["passwords"], StartsWith("warn\t"));
}

TEST_F(RfmDoctor, AsJsonItIsAListing)
{
    EXPECT_THAT(
        Tool::Run({"doctor", "--json"}).out,
        StartsWith("{\"rfm\":1,\"command\":\"doctor\",\"columns\":[{\"name\":\"state\",\"type\":\"string\"},"
                   "{\"name\":\"name\",\"type\":\"string\"},{\"name\":\"found\",\"type\":\"string\"},"
                   "{\"name\":\"note\",\"type\":\"string\"}],\"rows\":[\n[\"ok\",\"rfm\",\"" RFM_VERSION
                   "\","));
}

TEST_F(RfmDoctor, OnATerminalLongLinesAreWholeAndNoListHasAHead)
{
    const Variable unset("MRL_PATH", nullptr);
    const std::string out = Tool::RunOnTerminal({"doctor"}, 40, 60).out;
    EXPECT_THAT(out, StartsWith("ok   rfm "));
    EXPECT_THAT(out, HasSubstr("the package rfm-remote has it below /usr/libexec/rfm\r\n"));
}
} // namespace

// Loading OpenSSL at every start would take as long as all else that a start does; the dynamic section names what is.
TEST_F(RfmDoctor, TheToolStartsWithoutOpenSsl)
{
    const std::string program = ReadFile(RFM_TOOL);
    ASSERT_NE(program.find(std::string("libfmt.so.")), std::string::npos) << "what it does load is named";
    EXPECT_EQ(program.find(std::string("\0libcrypto.so.", 14) + std::to_string(OPENSSL_VERSION_MAJOR) + '\0'),
              std::string::npos);
}
