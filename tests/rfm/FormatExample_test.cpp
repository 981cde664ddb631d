// Holds the example of docs/format.md against the library: the bytes that are printed there, zeros everywhere else.
#include <rfm.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <string>

namespace
{
std::string ReadAll(const std::string& name)
{
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The lines "15360: EE BB FF AA     words" of the document, as offset and bytes.
std::map<std::size_t, std::string> PrintedBytes()
{
    std::map<std::size_t, std::string> printed;
    std::istringstream document(ReadAll(RFM_FORMAT_DOCUMENT));
    const std::regex line("^ *([0-9]+): ((?:[0-9A-F]{2}(?: {1,2}|$))+)");
    std::smatch match;
    for (std::string text; std::getline(document, text);)
    {
        if (!std::regex_search(text, match, line)) continue;
        std::istringstream digits(match[2].str());
        std::string& bytes = printed[std::stoul(match[1].str())];
        for (unsigned value = 0; digits >> std::hex >> value;) bytes.push_back(static_cast<char>(value));
    }
    return printed;
}

void WriteTheExample(const std::string& fileName)
{
    rfm_Database database = rfm_Database::Create(rfm_File::Open(fileName.c_str(), utl_FileAccessCreate),
                                                 "TEST", "demo", 0x65432100);
    rfm_TableMetadata layout("bolt", 1);
    const int force = layout.DefineDoubleField("force");
    const int name = layout.DefineStringField("name");
    rfm_Table bolts = database.Table(database.Bind(layout), -1, -1);
    rfm_Row bolt = bolts.NewRow();
    bolt.WriteFieldDouble(force, 1.0);
    bolt.WriteFieldString(name, "a");
    bolts.Flush();
}
} // namespace

TEST(FormatExample, TheDocumentShowsTheBytesThatTheLibraryWrites)
{
    const std::string fileName = testing::TempDir() + "rfm_format_example.rdx";
    WriteTheExample(fileName);
    const std::string file = ReadAll(fileName);
    std::filesystem::remove(fileName);
    ASSERT_EQ(file.size(), 15472U);

    const auto printed = PrintedBytes();
    ASSERT_GT(printed.size(), 40U);
    std::string expected(file.size(), '\0');
    for (const auto& [offset, bytes] : printed)
    {
        ASSERT_LE(offset + bytes.size(), expected.size());
        expected.replace(offset, bytes.size(), bytes);
    }
    for (std::size_t i = 0; i < file.size(); ++i) ASSERT_EQ(file[i], expected[i]) << "at offset " << i;
}
