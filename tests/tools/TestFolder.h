#pragma once

#include "cow_String.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

/// A fresh directory for one test, removed with all that is in it.
class TestFolder
{
public:
    TestFolder()
    {
        std::string pattern = ::testing::TempDir() + "rfmXXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        m_Path = pattern;
    }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }

    const std::string& Path() const { return m_Path; }
    std::string operator/(const std::string& name) const { return m_Path + "/" + name; }
    cow_String Path(const char* name) const { return cow_String(std::string_view(m_Path + "/" + name)); }

private:
    std::string m_Path;
};

inline std::string BytesOf(const cow_String& path)
{
    std::ifstream file(path.CString(), std::ios::binary);
    std::ostringstream all;
    all << file.rdbuf();
    return all.str();
}

inline void PutBytes(const cow_String& path, std::string_view bytes)
{
    std::ofstream file(path.CString(), std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
