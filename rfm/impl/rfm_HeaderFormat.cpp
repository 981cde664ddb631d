#include "rfm_HeaderFormat.h"

#include "omi_Swapper.h"
#include "rfm_StoredOffset.h"

#include <algorithm>
#include <cstring>

void rfm_EncodeSizeStamp(std::int64_t size, bool swapped, char* bytes)
{
    std::fill(bytes, bytes + 4, '\0');
    omi_Store(bytes + 4, static_cast<double>(size), swapped);
}

bool rfm_SizeStampAllows(const char* bytes, bool swapped, std::int64_t size)
{
    // The second pattern is what an earlier stamp began with: line ends and a NUL, which text transfers alter.
    static constexpr char kLineEnds[4] = {0x0A, 0x00, 0x0D, 0x0A};
    static constexpr char kZeros[4] = {};
    const double stored = omi_Load<double>(bytes + 4, swapped);
    if (!rfm_IsStoredOffset(stored)) return false;
    const std::int64_t stamped = rfm_OffsetFromStored(stored);
    if (stamped != 0) return stamped == size;
    return std::memcmp(bytes, kLineEnds, 4) == 0 || std::memcmp(bytes, kZeros, 4) == 0;
}
