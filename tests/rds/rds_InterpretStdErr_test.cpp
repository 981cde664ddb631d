#include "rds_InterpretStdErr.h"

#include "Descriptors.h"
#include "TestFolder.h"
#include "rds_ErrorLine.h"
#include "utl_TempFile.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace
{
const cow_String kNoReason = "Can't be determined";

// So many bytes of lines that say nothing.
std::string Lines(std::size_t bytes)
{
    std::string lines(bytes, 'x');
    for (std::size_t end = bytes; end > 0; end -= std::min<std::size_t>(end, 500)) lines[end - 1] = '\n';
    return lines;
}

class TheTextOfAChild : public ::testing::Test
{
protected:
    ~TheTextOfAChild() override { EXPECT_EQ(OpenDescriptorCount(), m_DescriptorsBefore); }

    std::string Whole(std::string_view text)
    {
        Put(text);
        return rds_InterpretStdErr(*m_File).CString();
    }
    std::string LastError(std::string_view text)
    {
        Put(text);
        return rds_InterpretMarlekErr(*m_File).CString();
    }
    void Put(std::string_view text)
    {
        m_File = std::make_unique<utl_TempFile>("");
        PutBytes(m_File->Name(), text);
    }

    int m_DescriptorsBefore = OpenDescriptorCount();
    std::unique_ptr<utl_TempFile> m_File;
};
} // namespace

TEST_F(TheTextOfAChild, ComesBackWholeWithItsLineEnds)
{
    EXPECT_EQ(Whole("one\n\ntwo\nand no end"), "one\n\ntwo\nand no end");
    EXPECT_EQ(Whole("\n"), "\n");
}

TEST_F(TheTextOfAChild, ComesBackWholeWhateverItsLinesLengths)
{
    for (const std::size_t length : {509U, 510U, 511U, 512U, 1020U, 1021U, 100000U})
        EXPECT_EQ(Whole(std::string(length, 'x') + "\ny\n"), std::string(length, 'x') + "\ny\n");
}

TEST_F(TheTextOfAChild, LosesOfALineWhatStandsBehindANul)
{
    EXPECT_EQ(Whole(std::string("one\0two\nthree\n", 14)), "onethree\n");
}

TEST_F(TheTextOfAChild, OfManyMegabytesIsCut)
{
    std::string line(1023, 'x');
    line += '\n';
    std::string text;
    for (int i = 0; i < 17 * 1024; ++i) text += line;
    const std::size_t most = 16U * 1024 * 1024;
    const std::size_t length = Whole(text).size();
    EXPECT_GE(length, most);
    EXPECT_LT(length, most + 511);
}

// A child that talks without end must not keep its reader.
TEST_F(TheTextOfAChild, HasItsErrorInTheLastMegabytes)
{
    const std::string error = "*** Error: one\n";
    const std::size_t most = 16U * 1024 * 1024;
    EXPECT_EQ(LastError(error + Lines(most - error.size())), error);
    EXPECT_EQ(LastError(error + Lines(most)), "");
    EXPECT_EQ(LastError(Lines(most) + error), error);
}

TEST_F(TheTextOfAChild, CannotBeDeterminedWhenThereIsNone)
{
    EXPECT_EQ(Whole(""), "Can't be determined");
    utl_TempFile missing("/nonexistent/file");
    EXPECT_EQ(rds_InterpretStdErr(missing), kNoReason);
    EXPECT_EQ(rds_InterpretMarlekErr(missing), cow_String());
}

TEST_F(TheTextOfAChild, MayBeAskedForAgain)
{
    Put("*** Error: one\n");
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_EQ(rds_InterpretStdErr(*m_File), cow_String("*** Error: one\n"));
        EXPECT_EQ(rds_InterpretMarlekErr(*m_File), cow_String("*** Error: one\n"));
    }
}

TEST_F(TheTextOfAChild, HasTheLastLineThatIsMarkedAsItsError)
{
    EXPECT_EQ(LastError("*** Error: first\nbetween\n***ERROR: second\nbehind\n"), "***ERROR: second\n");
    EXPECT_EQ(LastError("MARLEK Error: without an end"), "MARLEK Error: without an end");
}

TEST_F(TheTextOfAChild, HasNoErrorWithoutAMark)
{
    EXPECT_EQ(LastError("one\n ** Error: two\nsaid: *** Error: three\n"), "");
    EXPECT_EQ(LastError(""), "");
}

TEST_F(TheTextOfAChild, IsReadInPiecesThatCountAsLines)
{
    EXPECT_EQ(LastError(std::string(510, 'x') + "*** Error: in the second piece\n"),
              "*** Error: in the second piece\n");
    EXPECT_EQ(LastError(std::string(509, 'x') + "*** Error: across\n"), "");
}

TEST(AnErrorLine, BeginsWithOneOfFiveMarksAndGoesOnAsItLikes)
{
    for (const std::string mark : {"MARLEK Error:", "*** Error:", "***Error:", "***ERROR:", "*** ERROR:"})
    {
        EXPECT_TRUE(rds_IsErrorLine(mark.c_str()));
        EXPECT_TRUE(rds_IsErrorLine((mark + "what follows").c_str()));
        EXPECT_FALSE(rds_IsErrorLine((" " + mark).c_str()));
        EXPECT_FALSE(rds_IsErrorLine(mark.substr(0, mark.size() - 1).c_str()));
    }
    for (const char* line : {"", "*** error: small", "Error: bare", "marlek error:", "*** Fatal: other"})
        EXPECT_FALSE(rds_IsErrorLine(line)) << line;
}
