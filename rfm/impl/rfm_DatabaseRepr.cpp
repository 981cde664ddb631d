#include "rfm_DatabaseRepr.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "rfm_LinkageFormat.h"
#include "rfm_SpaceRepr.h"

rfm_DatabaseRepr::rfm_DatabaseRepr() = default;
rfm_DatabaseRepr::~rfm_DatabaseRepr() = default;

void rfm_DatabaseRepr::ThrowClosed() const
{
    nex_ThrowText(atr_Message("***ERROR: The database is closed:\n  %s", FileName()));
}

rfm_DBMetadata& rfm_DatabaseRepr::Metadata() const
{
    if (m_Metadata == nullptr) ThrowClosed();
    return *m_Metadata;
}

cow_String rfm_DatabaseRepr::GetObjectLocationReport(const utl_FileOffset&)
{
    return "Object location report not supported for this rfm database type.";
}

rfm_Type rfm_DatabaseRepr::HandleType(const rfm_Handle& handle)
{
    // What a short space lacks counts as zero; an array without its element type is no array.
    int head[3] = {};
    const std::unique_ptr<rfm_SpaceRepr> space(OpenSpace(handle, -1));
    const int read = space->ReadArray(head, 3);
    for (int i = read; i < 3; ++i) head[i] = 0;
    switch (static_cast<std::uint32_t>(head[0]))
    {
    case rfm_TableMagic: return rfm_TypeTable;
    case rfm_TaggedStreamMagic: return rfm_TypeTaggedStream;
    case rfm_ArrayMagic: return read < 3 ? rfm_TypeUnknown : static_cast<rfm_Type>(head[2]);
    default: return rfm_TypeUnknown;
    }
}
