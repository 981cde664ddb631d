#pragma once

#include "cls_ClassMetadata.h"
#include "cls_ReadVisitor.h"
#include "cls_TypeAdapter.h"
#include "cls_WriteVisitor.h"
#include "cow_COW.h"
#include "cow_String.h"
#include "mem_Library.h"
#include "typ_ArchCompTable.h"

#include <iterator>
#include <memory>

// A persistent class with one attribute of each kind, the inner object shared by counted handles.
class Sample
{
public:
    using Handle = cow_ArrayCOW<Sample, cow_Virtual<Sample>>;
    static constexpr int kLibrary = 900;
    static constexpr cls_FieldHandle kNumber{0, "number"};
    static constexpr cls_FieldHandle kFlag{1, "flag"};
    static constexpr cls_FieldHandle kText{2, "text"};
    static constexpr cls_FieldHandle kInner{3, "inner"};

    Sample(int number, bool flag, const char* text) : m_Number(number), m_Flag(flag), m_Text(text) {}
    Sample(const Sample& source)
        : m_Number(source.m_Number),
          m_Flag(source.m_Flag),
          m_Text(source.m_Text),
          m_Inner(source.m_Inner)
    {
    }
    explicit Sample(const cls_ReadVisitor& reader)
        : m_Number(reader.ReadInt(kNumber, 0)),
          m_Flag(reader.ReadBool(kFlag, false)),
          m_Text(reader.ReadString(kText, ""))
    {
        const cls_ReadVisitor inner = reader.Field(kInner);
        if (!inner.IsNone()) m_Inner = Handle(new Sample(inner));
    }
    Sample& operator=(const Sample&) = delete;
    virtual ~Sample() = default;

    static int TypeId() { return typ_TypeId(kLibrary, 1); }
    virtual Sample* Copy() const { return new Sample(*this); }
    virtual void DBWrite(const cls_WriteVisitor& visitor) const
    {
        if (!visitor.StartWrite(TypeId(), m_Uid)) return;
        visitor.WriteInt(kNumber, m_Number);
        visitor.WriteBool(kFlag, m_Flag);
        visitor.WriteString(kText, m_Text);
        if (m_Inner.IsNull())
            visitor.Field(kInner).WriteNone(TypeId());
        else
            m_Inner.ConstGet().DBWrite(visitor.Field(kInner));
    }
    bool operator==(const Sample& other) const
    {
        return m_Number == other.m_Number && m_Flag == other.m_Flag && m_Text == other.m_Text &&
               m_Inner.IsNull() == other.m_Inner.IsNull() &&
               (m_Inner.IsNull() || m_Inner.ConstGet() == other.m_Inner.ConstGet());
    }

    static void Register()
    {
        static bool s_Done = false;
        if (std::exchange(s_Done, true)) return;
        static const cls_TypeAdapter<Sample> s_Adapter;
        const typ_Entry rows[] = {{typ_KindNone, typ_NoBase, nullptr}, {typ_KindClass, typ_NoBase, "Sample"}};
        typ_ArchCompTable::InsertEntry(kLibrary, typ_ArchCompEntry(rows, std::size(rows)));
        cls_ClassRegistrar::AddClassMD(
            std::make_unique<cls_ClassMetadata>("Sample", TypeId(), 3, &s_Adapter, typ_NoBase))
            .AddDtor([](void* handle) { s_Adapter.DeleteCow(handle); })
            .AddAttribute(kNumber, cls_AttributeInteger, 1, 0)
            .AddAttribute(kFlag, cls_AttributeBoolean, 1, 0)
            .AddAttribute(kText, cls_AttributeString, 1, 0)
            .AddAttribute(kInner, cls_AttributeObject, TypeId(), 0);
    }

    int m_Number;
    bool m_Flag;
    cow_String m_Text;
    Handle m_Inner;
    cls_Uid m_Uid;
};
