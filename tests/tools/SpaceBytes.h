#pragma once

#include "FileKind.h"
#include "nex_Exception.h"
#include "rfm.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

/// Files, databases and the plain bytes of spaces, for tests that compare with bytes written by hand.
namespace SpaceBytes
{
constexpr rfm_Handle kStringPool(1);
constexpr rfm_Handle kMetadataPool(3);

/// A file name of one test, gone with this object.
class TestFile
{
public:
    explicit TestFile(const std::string& name = "one")
        : m_Path(testing::TempDir() + "rfm_" + std::to_string(getpid()) + "_" +
                 testing::UnitTest::GetInstance()->current_test_info()->test_suite_name() + "_" +
                 testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name + ".rdx")
    {
    }
    ~TestFile() { std::filesystem::remove(m_Path); }
    TestFile(const TestFile&) = delete;
    TestFile& operator=(const TestFile&) = delete;

    const std::string& Path() const { return m_Path; }
    rfm_Database Create() const { return rfm_Database::Create(NewFileOfKind(m_Path.c_str()), "TEST", "", 0); }
    rfm_Database Open(utl_FileAccess access = utl_FileAccessRead) const
    {
        return rfm_Database::Open(OpenFileOfKind(m_Path.c_str(), access), "TEST");
    }
    std::string AllBytes() const
    {
        std::ifstream file(m_Path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    std::string m_Path;
};

inline std::string Bytes(std::initializer_list<int> values)
{
    std::string bytes;
    for (const int value : values) bytes.push_back(static_cast<char>(value));
    return bytes;
}

/// The content of a space from `offset` on.
inline std::string Of(const rfm_Database& database, rfm_Handle handle, std::int64_t offset = 0)
{
    rfm_Space space = rfm_Database(database).Space(handle, -1);
    std::string bytes(static_cast<std::size_t>(space.Length().Value() - offset), '\0');
    space.Seek(offset);
    if (!bytes.empty()) space.Read(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

/// Writes over the content of a space, behind the back of whoever holds it.
inline void Poke(const rfm_Database& database, rfm_Handle handle, std::int64_t offset,
                 const std::string& bytes)
{
    rfm_Space space = rfm_Database(database).Space(handle, -1);
    space.Seek(offset);
    space.Write(bytes.data(), static_cast<int>(bytes.size()));
}

inline void Poke(const TestFile& file, rfm_Handle handle, std::int64_t offset, const std::string& bytes)
{
    rfm_Database database = file.Open(utl_FileAccessUpdate);
    Poke(database, handle, offset, bytes);
    database.Close();
}

/// A number as the files have it.
template <class T> std::string Stored(T value)
{
    std::uint64_t word = 0;
    if constexpr (sizeof(T) == 8)
        word = std::bit_cast<std::uint64_t>(value);
    else
        word = std::bit_cast<std::uint32_t>(value);
    std::string bytes;
    for (std::size_t i = 0; i < sizeof(T); ++i) bytes.push_back(static_cast<char>(word >> 8 * i & 0xFF));
    return bytes;
}

/// The text of the exception of exactly this type that `action` throws; "nothing thrown", or what came instead.
template <class E, class Action> std::string MessageOf(Action action)
{
    try
    {
        action();
    }
    catch (const nex_Exception& failure)
    {
        if (dynamic_cast<const E*>(&failure) == nullptr)
            return std::string("another type: ") + failure.what();
        return failure.what();
    }
    return "nothing thrown";
}

template <class Action> std::string TextOf(Action action) { return MessageOf<nex_TextException>(action); }
template <class Action> std::string AssertionOf(Action action)
{
    return MessageOf<nex_AssertException>(action);
}

inline std::string CorruptText(const TestFile& file)
{
    return "***ERROR: Unable to procede.  MARLEK database file is corrupt:\n  " + file.Path();
}

constexpr const char* kReadOnlyText =
    "The output database was opened as read-only. Modification of data is not permitted.";
constexpr const char* kMetadataCorruptText = "***ERROR: Metadata is corrupt in MARLEK database file.";
constexpr const char* kNoStringText = "rfm_StringManagerFile::String - String is not available.";
constexpr const char* kEndOfFileText = "***ERROR: Unexpected End Of File.";
} // namespace SpaceBytes
