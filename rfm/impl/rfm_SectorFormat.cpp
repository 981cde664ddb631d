#include "rfm_SectorFormat.h"

#include "omi_Swapper.h"

static constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);

void rfm_StoreWord(char* bytes, std::uint32_t value) { omi_Store(bytes, value, kSwapped); }
std::uint32_t rfm_LoadWord(const char* bytes) { return omi_Load<std::uint32_t>(bytes, kSwapped); }

void rfm_EncodeSectorHead(const rfm_SectorHead& head, char* bytes)
{
    omi_Store(bytes, head.version, kSwapped);
    omi_Store(bytes + 4, head.userHeaderLength, kSwapped);
    omi_Store(bytes + 8, head.cellCount, kSwapped);
}

rfm_SectorHead rfm_DecodeSectorHead(const char* bytes)
{
    return {.version = omi_Load<int>(bytes, kSwapped),
            .userHeaderLength = omi_Load<int>(bytes + 4, kSwapped),
            .cellCount = omi_Load<int>(bytes + 8, kSwapped)};
}
