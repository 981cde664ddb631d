#pragma once

#include "rfm_SegmentBuffer.h"

/// The step between the bytes of a segment and those that are stored for it.
class rfm_Codec
{
public:
    virtual ~rfm_Codec();
    /// Encodes the first `decodedLength` bytes of `in`; `out` gets exactly the encoded bytes, in the memory that it has
    /// where that is enough.
    virtual void Encode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int decodedLength) = 0;
    /// Fills `out`, which keeps its size, from the encoded bytes of `in`; more may follow them there.
    /// Result: how many bytes came out. What is behind them in `out` is undefined.
    /// Throws: nex_TextException when they are damaged, or are more than `out` has room for.
    virtual int Decode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in) = 0;
    /// Decodes the first `count` bytes, and some behind them, for whom they are proven by another mark: nothing is here.
    /// Result: whether it is worth trying that mark. A codec may be unable to do it.
    virtual bool DecodeFront(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int count);
    /// No segment of `decodedLength` bytes has more encoded ones.
    virtual int MostEncoded(int decodedLength) const noexcept = 0;
};
