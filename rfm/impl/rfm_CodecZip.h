#pragma once

#include "rfm_Codec.h"

/// Each segment is one zlib stream.
class rfm_CodecZip : public rfm_Codec
{
public:
    explicit rfm_CodecZip(int level) noexcept : m_Level(level) {}
    void Encode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int decodedLength) override;
    int Decode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in) override;
    bool DecodeFront(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int count) override;
    int MostEncoded(int decodedLength) const noexcept override { return WorkBytes(decodedLength); }

    /// The room in which `decodedLength` bytes are encoded: enough also for those that do not compress.
    static int WorkBytes(int decodedLength) noexcept { return static_cast<int>(decodedLength * 1.1 + 12.0); }

private:
    int m_Level;
};
