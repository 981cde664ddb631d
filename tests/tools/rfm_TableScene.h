#pragma once

#include "FileKind.h"
#include "rfm.h"
#include "rfm_DatabaseReprFile.h"

#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <string_view>

/// The bytes of a file.
inline std::string rfm_FileBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream all;
    all << file.rdbuf();
    return all.str();
}

/// Bytes written down as pairs of hexadecimal digits, blanks between them as one likes.
inline std::string rfm_Hex(std::string_view digits)
{
    const auto value = [](char digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; };
    std::string bytes;
    std::string_view left = digits;
    while (!left.empty())
    {
        if (left.front() == ' ')
        {
            left.remove_prefix(1);
            continue;
        }
        bytes += static_cast<char>(value(left[0]) * 16 + value(left[1]));
        left.remove_prefix(2);
    }
    return bytes;
}

/// The way back, in groups of four bytes, so that a failed comparison can be read.
inline std::string rfm_InHex(std::string_view bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        if (i > 0 && i % 4 == 0) text += ' ';
        text += kDigits[static_cast<unsigned char>(bytes[i]) >> 4];
        text += kDigits[static_cast<unsigned char>(bytes[i]) & 15];
    }
    return text;
}

/// What `action` throws, as its text; empty when it throws nothing.
template <class Action> std::string rfm_TextOf(Action action)
{
    try
    {
        action();
    }
    catch (const nex_Exception& failure)
    {
        return failure.UserReport().CString();
    }
    return {};
}

/// The same, and what went to standard error meanwhile.
struct rfm_Outcome
{
    std::string text;
    std::string standardError;
};

template <class Action> rfm_Outcome rfm_OutcomeOf(Action action)
{
    testing::internal::CaptureStderr();
    rfm_Outcome outcome;
    outcome.text = rfm_TextOf(action);
    outcome.standardError = testing::internal::GetCapturedStderr();
    return outcome;
}

/// One file per test, one writing database on it, and the ways to look at it.
class rfm_TableScene : public testing::Test
{
protected:
    static std::string PathOf(const char* suffix)
    {
        const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string(test->test_suite_name()) + "." + test->name() + suffix;
        for (char& letter : name)
            if (letter == '/') letter = '_';
        return testing::TempDir() + name;
    }

    static rfm_Database Create(const std::string& path)
    {
        return rfm_Database::Create(NewFileOfKind(path.c_str()), "TEST", "tables", 1);
    }
    static rfm_Database Open(const std::string& path, utl_FileAccess access)
    {
        return rfm_Database::Open(OpenFileOfKind(path.c_str(), access), "TEST");
    }
    rfm_Database Reader() const
    {
        rfm_Database db = Open(m_Path, utl_FileAccessRead);
        db.Bind();
        return db;
    }
    rfm_Database Updater() const
    {
        rfm_Database db = Open(m_Path, utl_FileAccessUpdate);
        db.Bind();
        return db;
    }

    /// The content of an object, from its beginning.
    static std::string Content(rfm_Database& db, rfm_Handle handle)
    {
        rfm_Space space = db.Space(handle, -1);
        const int length = space.Length().DiffAsInt32(0);
        std::string bytes(static_cast<std::size_t>(length), '\0');
        const int read = length > 0 ? space.Read(bytes.data(), length) : 0;
        EXPECT_EQ(read, length);
        return bytes;
    }

    /// Both flushes, in the order that publishes.
    static void Publish(rfm_Database& db, rfm_Table& table)
    {
        table.Flush();
        db.Flush();
    }

    std::string m_Path = PathOf(".rdx");
};
