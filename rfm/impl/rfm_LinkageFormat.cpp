#include "rfm_LinkageFormat.h"

#include "omi_Swapper.h"
#include "rfm_StoredOffset.h"

void rfm_EncodeLinkageEntry(const rfm_LinkageEntry& entry, bool swapped, char* bytes)
{
    omi_Store(bytes, static_cast<double>(entry.allocation), swapped);
    omi_Store(bytes + 8, static_cast<double>(entry.length), swapped);
    omi_Store(bytes + 16, static_cast<double>(entry.offset), swapped);
    omi_Store(bytes + 24, entry.next, swapped);
}

bool rfm_DecodeLinkageEntry(const char* bytes, bool swapped, rfm_LinkageEntry& entry)
{
    const double allocation = omi_Load<double>(bytes, swapped);
    const double length = omi_Load<double>(bytes + 8, swapped);
    const double offset = omi_Load<double>(bytes + 16, swapped);
    if (!rfm_IsStoredOffset(allocation) || !rfm_IsStoredOffset(length) || !rfm_IsStoredOffset(offset))
    {
        entry = {};
        return false;
    }
    entry.reachable = false;
    entry.allocation = rfm_OffsetFromStored(allocation);
    entry.length = rfm_OffsetFromStored(length);
    entry.offset = rfm_OffsetFromStored(offset);
    entry.next = omi_Load<std::uint32_t>(bytes + 24, swapped);
    return true;
}
