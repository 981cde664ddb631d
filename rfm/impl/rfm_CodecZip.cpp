#include "rfm_CodecZip.h"

#include "nex_Exception.h"
#include "rfm_Exc.h"
#include "zip_Compress.h"

#include <algorithm>
#include <cstdint>

namespace
{
// No stream inflates to more than this for each of its bytes: two bits stand for 258 bytes at most. The room that is
// offered follows from it, so that a short stream in a huge segment does not touch all of that.
constexpr std::int64_t kMostInflation = 1032;

const unsigned char* BytesOf(const rfm_SegmentBuffer& buffer)
{
    return reinterpret_cast<const unsigned char*>(buffer.Data());
}
unsigned char* BytesOf(rfm_SegmentBuffer& buffer, int count)
{
    return reinterpret_cast<unsigned char*>(buffer.Writable(count));
}
} // namespace

rfm_Codec::~rfm_Codec() = default;

bool rfm_Codec::DecodeFront(rfm_SegmentBuffer& /*out*/, const rfm_SegmentBuffer& /*in*/, int /*count*/)
{
    return false;
}

void rfm_CodecZip::Encode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int decodedLength)
{
    const int room = WorkBytes(decodedLength);
    out.Require(room);
    auto length = static_cast<unsigned long>(room);
    const int result = zip_compress2(BytesOf(out, room), &length, BytesOf(in),
                                     static_cast<unsigned long>(decodedLength), m_Level);
    if (result != 0) nex_ThrowAssert("result == 0 && \"zip_compress2\"");
    out.Shrink(static_cast<int>(length));
}

int rfm_CodecZip::Decode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in)
{
    const int room = static_cast<int>(std::min<std::int64_t>(out.Size(), kMostInflation * in.Size()));
    auto length = static_cast<unsigned long>(room);
    const int result =
        zip_uncompress(BytesOf(out, room), &length, BytesOf(in), static_cast<unsigned long>(in.Size()));
    if (result != 0) rfm_ThrowEncodedCorrupt();
    return static_cast<int>(length);
}

bool rfm_CodecZip::DecodeFront(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int count)
{
    const int room = count + zip_FrontSlack;
    if (room > out.Size()) return false;
    return zip_uncompress_front(BytesOf(out, room), static_cast<unsigned long>(room), BytesOf(in),
                                static_cast<unsigned long>(in.Size()));
}
