#include "nex_StoredException.h"

#include "cls_ClassMetadata.h"
#include "cls_ReadVisitor.h"
#include "cls_TypeAdapter.h"
#include "cls_WriteVisitor.h"
#include "nex_Exception.h"

static constexpr cls_FieldHandle kText(0, "text");
static constexpr cls_FieldHandle kSourceName(1, "sourceName");
static constexpr cls_FieldHandle kLine(2, "line");

int nex_Exception::TypeId() noexcept { return typ_TypeId(nex_LibraryNumber, nex_RowException); }
int nex_TextException::TypeId() noexcept { return typ_TypeId(nex_LibraryNumber, nex_RowText); }
int nex_AssertException::TypeId() noexcept { return typ_TypeId(nex_LibraryNumber, nex_RowAssert); }
int nex_CommandException::TypeId() noexcept { return typ_TypeId(nex_LibraryNumber, nex_RowCommand); }

int nex_Exception::DynTypeId() const { return TypeId(); }
int nex_TextException::DynTypeId() const { return TypeId(); }
int nex_AssertException::DynTypeId() const { return TypeId(); }
int nex_CommandException::DynTypeId() const { return TypeId(); }

void nex_Exception::DBWrite(const cls_WriteVisitor& visitor) const
{
    visitor.StartWrite(DynTypeId(), cls_Uid());
    visitor.WriteString(kText, UserReport());
    visitor.WriteString(kSourceName, m_SourceName);
    visitor.WriteInt(kLine, m_Line);
}

nex_Exception::nex_Exception(const cls_ReadVisitor& reader)
    : m_SourceName(reader.ReadString(kSourceName, "")),
      m_Line(reader.ReadInt(kLine, 0))
{
}

cow_String nex_Exception::StoredText(const cls_ReadVisitor& reader) { return reader.ReadString(kText, ""); }

nex_TextException::nex_TextException(const cls_ReadVisitor& reader)
    : nex_Exception(reader),
      m_Text(StoredText(reader))
{
}

nex_AssertException::nex_AssertException(const cls_ReadVisitor& reader)
    : nex_Exception(reader),
      m_Condition(StoredText(reader))
{
}

nex_CommandException::nex_CommandException(const cls_ReadVisitor& reader)
    : nex_Exception(reader),
      m_Text(StoredText(reader))
{
}

void nex_AddStoredAttributes(cls_ClassMetadata& metadata)
{
    metadata.AddAttribute(kText, cls_AttributeString, 1, 0)
        .AddAttribute(kSourceName, cls_AttributeString, 1, 0)
        .AddAttribute(kLine, cls_AttributeInteger, 1, 0);
}

template <class Failure> static void Define(const char* name)
{
    static const cls_TypeAdapter<Failure> s_Adapter;
    nex_AddStoredAttributes(cls_ClassRegistrar::AddClassMD(std::make_unique<cls_ClassMetadata>(
        name, Failure::TypeId(), nex_ClassVersion, &s_Adapter, nex_Exception::TypeId())));
}

void nex_DefineExceptionClasses()
{
    nex_AddStoredAttributes(cls_ClassRegistrar::AddClassMD(std::make_unique<cls_ClassMetadata>(
        "nex_Exception", nex_Exception::TypeId(), nex_ClassVersion, nullptr, typ_NoBase)));
    Define<nex_TextException>("nex_TextException");
    Define<nex_AssertException>("nex_AssertException");
    Define<nex_CommandException>("nex_CommandException");
}
