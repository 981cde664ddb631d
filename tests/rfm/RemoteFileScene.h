#pragma once

// Remote files with a stand-in for the assistant and the relay, and a cache whose pages and limit a test chooses.

#include "Descriptors.h"
#include "EnvironmentVariable.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "nex_Exception.h"
#include "rfm.h"
#include "rfm_FileCache.h"
#include "utl_CommandLine.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

inline std::string Hex(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes)
    {
        constexpr std::string_view kDigits = "0123456789abcdef";
        text += kDigits[static_cast<unsigned char>(byte) / 16];
        text += kDigits[static_cast<unsigned char>(byte) % 16];
    }
    return text;
}

/// Bytes of which no two pages are alike.
inline std::string ContentOf(int file, std::size_t bytes)
{
    std::string content(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
        content[i] =
            static_cast<char>((i * 2654435761U >> 11U) + i / 1024 + static_cast<unsigned>(file) * 37);
    return content;
}

class RemoteFileScene : public ::testing::Test
{
protected:
    RemoteFileScene()
    {
        for (const char* folder : {"bin", "temp", "mrl/External/qlnsrv"})
            std::filesystem::create_directories(Path(folder));
        std::filesystem::create_symlink(RFM_SCRIPTED_ASSISTANT, Path("bin/rfmT_FileAssistant"));
        std::filesystem::create_symlink(RFM_SCRIPTED_ASSISTANT, Path("mrl/External/qlnsrv/qlnsrv"));
        rfm_initialize(m_Count);
        Options(1024, kNoLimit);
    }
    // Whatever a test does: no child, no zombie, no temporary file, no descriptor stays.
    ~RemoteFileScene() override
    {
        rfm_finalize(m_Count);
        EXPECT_TRUE(HasNoChildren());
        EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
        EXPECT_EQ(OpenDescriptorCount(), m_DescriptorsBefore);
    }

    std::string Path(const std::string& name) const { return m_Folder.Path() + "/" + name; }
    std::string Text(const std::string& name) const { return BytesOf(cow_String(Path(name))); }
    void Put(const std::string& name, std::string_view bytes) const
    {
        PutBytes(cow_String(Path(name)), bytes);
    }
    cow_String Url(const std::string& name) const { return cow_String("mrkrdb://localhost/" + Path(name)); }

    static constexpr int kNoLimit = 1 << 20; // MiB

    /// Those of the cache that is made next.
    static void Options(int pageKiB, int limitMiB)
    {
        utl_CommandLine::OfProcess().Set("nrdx_page_size", cow_String(pageKiB));
        utl_CommandLine::OfProcess().Set("nrdx_cache_limit", cow_String(limitMiB));
    }

    void Script(const std::string& steps) const { Put("script", steps); }
    std::string Taken() const { return Hex(Text("taken")); }
    std::string Words() const { return Text("words"); }
    /// What a serving assistant was asked since the last look, a request an element.
    std::vector<std::string> Requests()
    {
        std::vector<std::string> all;
        std::istringstream log(Text("log"));
        for (std::string line; std::getline(log, line);) all.push_back(line);
        std::vector<std::string> fresh(all.begin() + static_cast<std::ptrdiff_t>(m_RequestsSeen), all.end());
        m_RequestsSeen = all.size();
        return fresh;
    }
    std::uintmax_t CacheFileBytes() const
    {
        std::uintmax_t most = 0;
        for (const auto& entry : std::filesystem::directory_iterator(Path("temp")))
            most = std::max(most, entry.file_size());
        return most;
    }

    std::ptrdiff_t FilesOfCaches() const
    {
        std::ptrdiff_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(Path("temp")))
            count += entry.file_size() > 0 ? 1 : 0; // others take the words of an assistant
        return count;
    }
    int& Count() noexcept { return m_Count; }

    static constexpr const char* kNothingThrown = "nothing was thrown";

private:
    int m_DescriptorsBefore = OpenDescriptorCount();
    TestFolder m_Folder;
    std::size_t m_RequestsSeen = 0;
    int m_Count = 0;
    EnvironmentVariable m_FolderOfStandIn{"RFM_TEST_FOLDER", m_Folder.Path().c_str()};
    EnvironmentVariable m_Path{"PATH", (Path("bin") + ":/usr/bin:/bin").c_str()};
    EnvironmentVariable m_Relay{"MRL_PATH", Path("mrl").c_str()};
    EnvironmentVariable m_Temp{"TMPDIR", Path("temp").c_str()};
    EnvironmentVariable m_Debug{"nrdx_debug", nullptr};
};
