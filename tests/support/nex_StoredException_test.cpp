#include "nex_Exception.h"

#include "cls_ClassMetadata.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "nex_Library.h"
#include "omu_Library.h"
#include "omu_ValueErrorException.h"
#include "utl_FileException.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <memory>

namespace
{
class AStoredException : public ::testing::Test
{
protected:
    void SetUp() override
    {
        nex_initialize(m_Count);
        omu_initialize(m_Count);
    }
    void TearDown() override
    {
        omu_finalize(m_Count);
        nex_finalize(m_Count);
    }

    // What a stream of `failure` gives back when only its type id is known.
    static std::unique_ptr<nex_Exception> ThroughAStream(nex_Exception& failure)
    {
        cls_WriteStream written;
        try
        {
            failure.Throw("support/here.cpp", 17);
        }
        catch (const nex_Exception& caught)
        {
            caught.DBWrite(written.Visitor());
        }
        const cls_ReadStream stream(written.Bytes());
        const cls_ReadVisitor reader = stream.Visitor(0);
        const cls_ClassMetadata* metadata = cls_ClassRegistrar::FindClassMD(reader.TypeId());
        return std::unique_ptr<nex_Exception>(static_cast<nex_Exception*>(metadata->Ctor(reader)));
    }
    int m_Count = 0;
};

void ExpectSame(const nex_Exception& stored, const nex_Exception& original)
{
    EXPECT_EQ(stored.AsString(), original.AsString());
    EXPECT_EQ(stored.SourceName().View(), "support/here.cpp");
    EXPECT_EQ(stored.Line(), 17);
    EXPECT_EQ(stored.DynTypeId(), original.DynTypeId());
}
} // namespace

TEST_F(AStoredException, ComesBackWithItsClassItsWordsAndItsPlace)
{
    nex_TextException text("*** Error: words");
    nex_AssertException assertion("rowCount > 0");
    nex_CommandException command("no such command");
    omu_ValueErrorException value("no such value");
    ExpectSame(*ThroughAStream(text), text);
    ExpectSame(*ThroughAStream(assertion), assertion);
    ExpectSame(*ThroughAStream(command), command);
    ExpectSame(*ThroughAStream(value), value);
}

TEST_F(AStoredException, WithoutATypeOfItsOwnIsStoredAsItsNearestBase)
{
    utl_FileException failure("write", "job.rdx", ENOSPC);
    EXPECT_EQ(failure.DynTypeId(), nex_TextException::TypeId());
    const auto stored = ThroughAStream(failure);
    EXPECT_EQ(stored->UserReport(), failure.UserReport());
    EXPECT_EQ(stored->DynTypeId(), nex_TextException::TypeId());
}

TEST_F(AStoredException, TypesAreToldApartAndHaveTheirBases)
{
    EXPECT_NE(nex_TextException::TypeId(), nex_AssertException::TypeId());
    EXPECT_NE(nex_CommandException::TypeId(), omu_ValueErrorException::TypeId());
    nex_canDynamicCastRef(nex_Exception::TypeId(), omu_ValueErrorException::TypeId(), "", 0);
    nex_canDynamicCastRef(nex_CommandException::TypeId(), omu_ValueErrorException::TypeId(), "", 0);
    EXPECT_THROW(nex_canDynamicCastRef(nex_TextException::TypeId(), omu_ValueErrorException::TypeId(), "", 0),
                 nex_AssertException);
}

TEST_F(AStoredException, WrittenTwiceIsTwoObjects)
{
    const nex_TextException failure("words");
    cls_WriteStream written;
    failure.DBWrite(written.Visitor());
    failure.DBWrite(written.Visitor());
    const cls_ReadStream stream(written.Bytes());
    ASSERT_EQ(stream.Count(), 2);
    EXPECT_NE(stream.Visitor(0).GetUid(), stream.Visitor(1).GetUid());
}
