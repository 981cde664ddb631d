#pragma once

#include "nex_Exception.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <string_view>
#include <unistd.h>

/// A file name that no other test has, and what tests do to a file behind the library's back. Gone with the object.
class rfm_TestFile
{
public:
    explicit rfm_TestFile(const char* ending = ".rdx")
    {
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        static int s_Count = 0;
        m_Name = testing::TempDir() + test.test_suite_name() + "." + test.name() + "." +
                 std::to_string(::getpid()) + "." + std::to_string(++s_Count) + ending;
        for (char& c : m_Name)
            if (c == '/' && &c >= m_Name.data() + testing::TempDir().size()) c = '_';
        Remove();
    }
    ~rfm_TestFile() { Remove(); }
    rfm_TestFile(const rfm_TestFile&) = delete;
    rfm_TestFile& operator=(const rfm_TestFile&) = delete;

    const char* Name() const { return m_Name.c_str(); }
    std::uintmax_t Size() const { return std::filesystem::file_size(m_Name); }
    std::string Bytes() const
    {
        std::ifstream file(m_Name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    std::string Bytes(std::size_t offset, std::size_t count) const { return Bytes().substr(offset, count); }
    void Write(std::string_view bytes) const
    {
        std::ofstream file(m_Name, std::ios::binary | std::ios::trunc);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    void Patch(std::size_t offset, std::string_view bytes) const
    {
        std::fstream file(m_Name, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(static_cast<std::streamoff>(offset));
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

private:
    void Remove() const { std::filesystem::remove_all(m_Name); }
    std::string m_Name;
};

/// The eight bytes of a stored double, and the four of a stored int, low byte first.
inline std::string rfm_DoubleBytes(double value)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    std::string bytes;
    for (int i = 0; i < 8; ++i) bytes.push_back(static_cast<char>(bits >> (8 * i) & 0xFF));
    return bytes;
}
inline std::string rfm_IntBytes(std::uint32_t value)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    return bytes;
}

/// Bytes as "0a ff", for messages that a person can read.
inline std::string rfm_Hex(std::string_view bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes)
    {
        if (!text.empty()) text += ' ';
        text += kDigits[static_cast<unsigned char>(c) >> 4];
        text += kDigits[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

/// The text of the exception of class `E` that a step throws; anything else fails the test or comes through.
template <class E = nex_TextException, class Step> std::string rfm_TextOfFailure(Step step)
{
    try
    {
        step();
    }
    catch (const E& failure)
    {
        return failure.UserReport().CString();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}
