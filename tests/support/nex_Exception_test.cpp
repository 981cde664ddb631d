#include "nex_Exception.h"

#include "nex_Report.h"
#include "omu_ValueErrorException.h"
#include "rfm_FileException.h"
#include "utl_FileException.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <memory>
#include <typeinfo>

namespace
{
template <class Failure> Failure Caught(const Failure& thrown)
{
    try
    {
        Failure copy(thrown);
        copy.Throw("support/here.cpp", 17);
    }
    catch (const Failure& failure)
    {
        return failure;
    }
}
} // namespace

TEST(nex_Exception, AThrowRecordsWhereItWas)
{
    const nex_TextException caught = Caught(nex_TextException("***ERROR: Words."));
    EXPECT_EQ(caught.SourceName().View(), "support/here.cpp");
    EXPECT_EQ(caught.Line(), 17);
    EXPECT_EQ(caught.UserReport().View(), "***ERROR: Words.");
    EXPECT_STREQ(caught.what(), "***ERROR: Words.");
    EXPECT_EQ(caught.AsString().View(), "nex_TextException: ***ERROR: Words.");
    EXPECT_EQ(caught.DeveloperReport().View(), "nex_TextException: ***ERROR: Words. [support/here.cpp:17]");
}

TEST(nex_Exception, AnAssertionCarriesTheTextOfItsCondition)
{
    const nex_AssertException caught = Caught(nex_AssertException("rowCount > 0"));
    EXPECT_EQ(caught.UserReport().View(), "rowCount > 0");
    EXPECT_EQ(caught.AsString().View(), "nex_AssertException: rowCount > 0");
    EXPECT_EQ(caught.DeveloperReport().View(), "nex_AssertException: rowCount > 0 [support/here.cpp:17]");
}

TEST(nex_Exception, AnAssertionIsNoText)
{
    EXPECT_THROW(nex_ThrowAssert("a == b"), nex_AssertException);
    EXPECT_THROW(nex_ThrowText("words"), nex_TextException);
    EXPECT_EQ(dynamic_cast<const nex_TextException*>(
                  static_cast<const nex_Exception*>(std::make_unique<nex_AssertException>("x").get())),
              nullptr);
}

TEST(nex_Exception, TheShortFormsRecordTheirCaller)
{
    int line = 0;
    try
    {
        line = __LINE__ + 1;
        nex_ThrowText("words");
    }
    catch (const nex_Exception& failure)
    {
        EXPECT_EQ(failure.Line(), line);
        EXPECT_TRUE(failure.SourceName().View().ends_with("nex_Exception_test.cpp"));
    }
    EXPECT_NE(line, 0);
}

TEST(nex_Exception, AThrowThroughTheBaseKeepsTheClass)
{
    rfm_FileNoSuchFile failure("gone.rdx");
    nex_Exception& base = failure;
    EXPECT_THROW(base.Throw(__FILE__, __LINE__), rfm_FileNoSuchFile);
}

namespace
{
class EveryException : public ::testing::TestWithParam<std::shared_ptr<nex_Exception>>
{
};
} // namespace

TEST_P(EveryException, CopiesAndPropagatesAsWhatItIs)
{
    nex_Exception& original = *GetParam();
    try
    {
        original.Throw("support/there.cpp", 3);
    }
    catch (const nex_Exception& caught)
    {
        EXPECT_EQ(typeid(caught), typeid(original));
        const std::unique_ptr<nex_Exception> copy(caught.Copy());
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(typeid(*copy), typeid(original));
        EXPECT_EQ(copy->UserReport(), original.UserReport());
        EXPECT_EQ(copy->SourceName().View(), "support/there.cpp");
        EXPECT_EQ(copy->Line(), 3);
    }
    try
    {
        original.Propagate();
    }
    catch (const nex_Exception& caught)
    {
        EXPECT_EQ(typeid(caught), typeid(original));
        EXPECT_STREQ(caught.what(), original.UserReport().CString());
        EXPECT_TRUE(caught.AsString().View().ends_with(original.UserReport().View()));
        EXPECT_TRUE(caught.AsString().Length() > original.UserReport().Length());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Library, EveryException,
    ::testing::Values(std::make_shared<nex_TextException>("t"), std::make_shared<nex_AssertException>("a"),
                      std::make_shared<nex_CommandException>("c"),
                      std::make_shared<omu_ValueErrorException>("v"),
                      std::make_shared<utl_FileException>("read", "f", EIO),
                      std::make_shared<utl_FileExceptionNoFile>("open", "f", ENOENT),
                      std::make_shared<rfm_FileException>("e"), std::make_shared<rfm_FileReadOnlyExc>("f"),
                      std::make_shared<rfm_FileNoSuchFile>("f"), std::make_shared<rfm_FileNotReadable>("f"),
                      std::make_shared<rfm_FileBadParameterExc>("o"),
                      std::make_shared<rfm_FileConnectExc>("f", "r"),
                      std::make_shared<rfm_FileFailExc>("f", "r"), std::make_shared<rfm_FileCacheExc>()));

TEST(utl_FileException, ItTellsWhatWasAskedOfWhichFileAndTheSystemsWords)
{
    EXPECT_STREQ(utl_FileException("write", "job.rdx", ENOSPC).what(),
                 "*** ERROR: Can't write file:\n  job.rdx, reason:\n  No space left on device.");
    EXPECT_STREQ(utl_FileExceptionNoFile("open", "job.rdx", ENOENT).what(),
                 "*** ERROR: Can't open file:\n  job.rdx, reason:\n  No such file or directory.");
    EXPECT_THROW(Caught(utl_FileExceptionNoFile("open", "f", ENOENT)).Propagate(), utl_FileException);
}

TEST(nex_Report, AFailureInADestructorIsOneLineOnStandardError)
{
    ::testing::internal::CaptureStderr();
    nex_ReportUnthrown(nex_TextException("*** ERROR: two\n  lines"));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "*** ERROR: two   lines\n");
}
