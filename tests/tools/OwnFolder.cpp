// Gives every test process a folder of its own for testing::TempDir(). ctest runs each test in a process, many at
// once, and two checkouts may be tested at the same time: files of the same name must not meet.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace
{
class OwnFolder : public testing::Environment
{
public:
    void SetUp() override
    {
        std::string pattern = std::filesystem::temp_directory_path() / "rfm_test_XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no folder for the tests: " + pattern);
        m_Path = pattern;
        // Tests of rights look at it as another user.
        std::filesystem::permissions(m_Path, std::filesystem::perms(0755));
        setenv("TEST_TMPDIR", (m_Path + "/").c_str(), 1);
        // Where remote files are tested, their cache is to go with the rest.
        const char* kind = std::getenv("RFM_TEST_FILE_KIND");
        if (kind != nullptr && std::string(kind) == "remote") setenv("TMPDIR", m_Path.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(m_Path); }

private:
    std::string m_Path;
};

const testing::Environment* const s_OwnFolder = testing::AddGlobalTestEnvironment(new OwnFolder);
} // namespace
