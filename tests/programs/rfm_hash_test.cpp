// `rfm hash`: what enters the digest, and that nothing else does.
#include "NewFiles.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <openssl/sha.h>

namespace
{
/// The bytes that enter the digest, put together by hand from what docs/cli.md says.
class Bytes
{
public:
    Bytes& Int(std::int32_t value) { return Little(static_cast<std::uint32_t>(value), 4); }
    Bytes& Count(std::int64_t value) { return Little(static_cast<std::uint64_t>(value), 8); }
    Bytes& Float(float value) { return Little(std::bit_cast<std::uint32_t>(value), 4); }
    Bytes& Double(double value) { return Little(std::bit_cast<std::uint64_t>(value), 8); }
    Bytes& Text(const std::string& text) { return Count(static_cast<std::int64_t>(text.size())).Raw(text); }
    Bytes& Raw(const std::string& bytes)
    {
        m_Bytes += bytes;
        return *this;
    }
    Bytes& There() { return Raw(std::string(1, '\1')); }
    Bytes& Absent() { return Raw(std::string(1, '\0')); }
    std::string Line() const
    {
        unsigned char digest[SHA256_DIGEST_LENGTH];
        ::SHA256(reinterpret_cast<const unsigned char*>(m_Bytes.data()), m_Bytes.size(), digest);
        std::string line = "rfm-hash-1:";
        for (const unsigned char byte : digest)
        {
            line += "0123456789abcdef"[byte >> 4U];
            line += "0123456789abcdef"[byte & 15U];
        }
        return line + "\n";
    }

private:
    Bytes& Little(std::uint64_t value, int count)
    {
        for (; count > 0; --count, value >>= 8U) m_Bytes += static_cast<char>(value & 0xFFU);
        return *this;
    }
    std::string m_Bytes;
};

/// What a test changes in a small database.
struct Choices
{
    const char* mark = "TEST";
    const char* description = "described";
    int creationTime = 1;
    const char* layout = "BOLTS";
    const char* field = "force";
    bool hasField = true;
    int firstId = 10;
    int secondId = 20;
    const char* name = "upper";
    double force = 0.0;
    bool hasForce = true;
    float element = 1.5F;
    int columns = 2;
    const char* text = "word";
    int itemId = 7;
    const char* bytes = "plain";
    int extraFlushes = 0;
    bool hasEmptySpace = false;
    const char* unused = nullptr;
};

class RfmHash : public testing::Test
{
protected:
    std::string HashOf(const Choices& choices)
    {
        Make(choices);
        const ToolResult result = Tool::Run({"hash", m_File});
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.err, "");
        return result.out;
    }
    void Make(const Choices& choices)
    {
        rfm_Database database = rfm_Database::Create(rfm_File::Open(m_File.c_str(), utl_FileAccessCreate),
                                                     choices.mark, choices.description, choices.creationTime);
        rfm_TableMetadata layout(choices.layout, 1);
        const int id = layout.DefineIntField("id");
        const int name = layout.DefineStringField("name");
        const int force = layout.DefineDoubleField(choices.field);
        if (choices.hasField) layout.DefineHandleField("part");
        {
            rfm_Table table = database.Table(database.Bind(layout), -1, -1);
            rfm_Row first = table.NewRow();
            first.WriteFieldInt(id, choices.firstId);
            if (choices.unused != nullptr) first.WriteFieldString(name, choices.unused);
            first.WriteFieldString(name, choices.name);
            rfm_Row second = table.NewRow();
            second.WriteFieldInt(id, choices.secondId);
            if (choices.hasForce) second.WriteFieldDouble(force, choices.force);
            table.Flush();
            auto array = database.ArrayFloat(choices.columns, -1, 0);
            const float elements[] = {choices.element, 2, 3, 4};
            array.Write(elements, 4 / choices.columns);
            array.Flush();
            rfm_TaggedStream stream = database.TaggedStream(0);
            stream.WriteString(choices.itemId, choices.text);
            stream.Flush();
            rfm_Space space = database.Space(-1);
            space.Write(choices.bytes, static_cast<int>(std::strlen(choices.bytes)));
            if (choices.hasEmptySpace) static_cast<void>(database.Space(-1).Handle());
            for (int i = 0; i < choices.extraFlushes; ++i)
            {
                stream.Flush();
                database.Flush();
            }
        }
        database.Close();
    }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
};

TEST_F(RfmHash, TheDigestOfNothingButALayoutIsThatOfItsBytes)
{
    {
        rfm_Database database = CreateDatabase(m_File);
        rfm_TableMetadata layout("L", 1);
        layout.DefineStringField("b");
        layout.DefineIntField("a");
        database.Bind(layout);
        database.Close();
    }
    const std::string expected = Bytes()
                                     .Text("rfm-hash-1")
                                     .Text("TEST")
                                     .Text("sample")
                                     .Count(1)
                                     .Text("L")
                                     .Count(2)
                                     .Text("a")
                                     .Int(1)
                                     .Text("b")
                                     .Int(6)
                                     .Count(0)
                                     .Line();
    EXPECT_EQ(Tool::Run({"hash", m_File}).out, expected);
}

TEST_F(RfmHash, TheDigestOfTheSampleIsThatOfItsBytes)
{
    MakeSample(m_File);
    Bytes bytes;
    bytes.Text("rfm-hash-1").Text("TEST").Text("sample");
    bytes.Count(1).Text("NODES").Count(5);
    bytes.Text("id").Int(1).Text("link").Int(2).Text("name").Int(6).Text("weight").Int(3).Text("x").Int(4);
    bytes.Count(6);
    bytes.Int(4).Raw("T").Text("NODES").Count(3);
    bytes.There().Int(10).There().Int(6).There().Text("a\tb").There().Float(0.1F).There().Double(0.1);
    bytes.There().Int(20).Absent().Absent().There().Float(0.1F).There().Double(1e300);
    bytes.There().Int(30).Absent().There().Text("").There().Float(0.1F).There().Double(1e300);
    bytes.Int(5).Raw("T").Text("NODES").Count(0);
    bytes.Int(6).Raw("A").Int(4).Int(2).Count(3);
    for (const double value : {1.0, 2.0, 3.0, 4.0, 5.5, -0.0}) bytes.Double(value);
    bytes.Int(7).Raw("A").Int(6).Int(1).Count(2).Text("one").Text("two, \"three\"");
    bytes.Int(8).Raw("S").Int(1).Int(1).Int(-7).Int(3).Int(2).Float(2.5F).Int(4).Int(3).Double(1.0 / 3.0);
    bytes.Int(2).Int(4).Int(4).Int(6).Int(5).Text("text").Int(0);
    bytes.Int(9).Raw("B").Text("plain bytes of its own");
    EXPECT_EQ(Tool::Run({"hash", m_File}).out, bytes.Line());
}

TEST_F(RfmHash, AnyChangeOfTheContentIsAnotherDigest)
{
    const std::vector<Choices> changes{
        {},
        {.mark = "TEXT"},
        {.description = "describeD"},
        {.layout = "BOLT"},
        {.field = "farce"},
        {.hasField = false},
        {.firstId = 11},
        {.firstId = 20, .secondId = 10},
        {.name = "lower"},
        {.name = ""},
        {.force = -0.0},
        {.force = std::numeric_limits<double>::quiet_NaN()},
        {.hasForce = false},
        {.element = 1.25F},
        {.columns = 1},
        {.text = "wore"},
        {.itemId = 8},
        {.bytes = "plane"},
        {.bytes = "plain "},
        {.hasEmptySpace = true},
    };
    std::vector<std::string> hashes;
    for (const Choices& change : changes)
    {
        const std::string hash = HashOf(change);
        EXPECT_EQ(std::count(hashes.begin(), hashes.end(), hash), 0) << hashes.size();
        hashes.push_back(hash);
    }
}

TEST_F(RfmHash, WhenAndHowOftenItWasWrittenAndWhereItsBytesLieIsNoContent)
{
    const std::string hash = HashOf({});
    EXPECT_EQ(HashOf({.creationTime = 2}), hash);
    EXPECT_EQ(HashOf({.extraFlushes = 3}), hash);
    EXPECT_EQ(HashOf({.unused = "a text that was changed"}), hash);
}

TEST_F(RfmHash, ItIsTheSameInEachKindOfFile)
{
    MakeSample(m_File);
    const std::string hash = Tool::Run({"hash", m_File}).out;
    for (const std::string& kind : kKinds)
    {
        ASSERT_EQ(Tool::Run({"convert", m_File, m_Folder / kind, "--to", kind}).code, 0);
        EXPECT_EQ(Tool::Run({"hash", m_Folder / kind}).out, hash) << kind;
    }
}

TEST_F(RfmHash, AsJsonItKeepsItsShape)
{
    MakeSample(m_File);
    std::string hash = Tool::Run({"hash", m_File}).out;
    hash.pop_back();
    EXPECT_EQ(Tool::Run({"hash", m_File, "--json"}).out,
              "{\"rfm\":1,\"command\":\"hash\",\"file\":\"" + m_File + "\",\"hash\":\"" + hash + "\"}\n");
}

TEST_F(RfmHash, WhatCanNotBeReadHasNoDigest)
{
    MakeSample(m_File);
    Overwrite<double>(m_File, ExtentOfEntry(m_File, 7) + 16, 6);
    const ToolResult result = Tool::Run({"hash", m_File});
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "rfm: " + m_File +
                  ": handle 7: rfm_StringManagerFile::String - String is not available; `rfm check` "
                  "tells what is damaged\n");
    Overwrite<int>(m_File, ExtentOfEntry(m_File, 6) + 8, 17); // an array of elements that are none
    EXPECT_EQ(Tool::Run({"hash", m_File}).err,
              "rfm: " + m_File +
                  ": handle 6: the header of the array is damaged; `rfm check` tells what is damaged\n");
}
} // namespace
