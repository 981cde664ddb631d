#include "rfm_EncodedFormat.h"

#include "omi_Swapper.h"

static constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);

void rfm_EncodeEncodedHeader(const rfm_EncodedHeader& header, char* bytes)
{
    omi_Store(bytes, header.magic, kSwapped);
    omi_Store(bytes + 4, header.version, kSwapped);
    omi_Store(bytes + 8, header.segmentSize, kSwapped);
    omi_Store(bytes + 12, header.segmentCount, kSwapped);
    omi_Store(bytes + 16, header.lastLength, kSwapped);
}

rfm_EncodedHeader rfm_DecodeEncodedHeader(const char* bytes)
{
    return {.magic = omi_Load<std::uint32_t>(bytes, kSwapped),
            .version = omi_Load<std::uint32_t>(bytes + 4, kSwapped),
            .segmentSize = omi_Load<int>(bytes + 8, kSwapped),
            .segmentCount = omi_Load<int>(bytes + 12, kSwapped),
            .lastLength = omi_Load<int>(bytes + 16, kSwapped)};
}

bool rfm_IsSoundEncodedHeader(const rfm_EncodedHeader& header)
{
    if (header.segmentSize < 1 || header.segmentSize > rfm_MostSegmentBytes) return false;
    if (header.segmentCount < 0) return false;
    if (header.lastLength < 0 || header.lastLength > header.segmentSize) return false;
    if (header.segmentCount == 0) return header.lastLength == header.segmentSize;
    // No place in a database is behind 2^53: such a file would only keep those busy who read all of it.
    constexpr std::int64_t kMostBytes = std::int64_t{1} << 53;
    return (std::int64_t{header.segmentCount} - 1) * header.segmentSize + header.lastLength <= kMostBytes;
}
