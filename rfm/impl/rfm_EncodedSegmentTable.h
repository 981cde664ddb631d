#pragma once

#include "rfm_EncodedFormat.h"
#include "rfm_EncodedSegment.h"
#include "rfm_KnownSegments.h"
#include "rfm_SectorArray.h"
#include "rfm_SegmentsAhead.h"

#include <memory>
#include <unordered_map>
#include <vector>

/// All segments of a compressed file, and what they share: the sectors, the buffers, the codec.
/// Segments have an object from the first time they are asked for, and lose it only when a new one would be the same; so
/// memory follows what a program does with the file, not what a header claims.
class rfm_EncodedSegmentTable : public rfm_SectorArray
{
public:
    rfm_EncodedSegmentTable(const cow_String& name, std::unique_ptr<rfm_Codec> codec, int segmentSize);
    /// Throws: nex_AssertException for a file that is none of these; the text of a corrupt file for numbers that can't be.
    rfm_EncodedSegmentTable(const cow_String& name, std::unique_ptr<rfm_Codec> codec, utl_FileAccess access);
    ~rfm_EncodedSegmentTable();

    int SegmentSize() const noexcept { return m_SegmentSize; }
    int SegmentCount() const noexcept { return m_NumSegments; }
    /// The segment at `index`. Behind the end, the table grows up to it: the last one becomes a full one, those in between
    /// are full of zeros, the new last one is empty. The object is good for the next call, or as long as it is armed.
    rfm_EncodedSegment* GetSegment(int index);
    /// Lets the table have `count` segments, fewer than it has; what was pending in the others is gone. Their streams
    /// stay and are written over when there are such segments again.
    void Truncate(int count);
    utl_FileOffset LogicalSize() const;
    void Flush();
    /// Forgets what was decoded ahead.
    void ForgetAhead() noexcept;

    const rfm_SegmentBufferCache& Cache() const noexcept { return m_Cache; }
    /// How many objects there are.
    int ObjectCount() const noexcept { return static_cast<int>(m_Segments.size()); }

private:
    rfm_EncodedSegment* Find(int index) const;
    rfm_EncodedSegment* Make(int index, int decodedLength, int storedLength);
    void ReadTableHeader();
    void GrowTo(int count);
    void Sweep();
    int LastLength() const;
    void StoreAll(const std::vector<int>& indices);

    rfm_SegmentBufferCache m_Cache;
    std::unique_ptr<rfm_Codec> m_Codec;
    int m_SegmentSize = 0;
    int m_NumSegments = 0;
    int m_LastLength = 0; // while the last segment has no object
    std::unordered_map<int, std::unique_ptr<rfm_EncodedSegment>> m_Segments;
    std::size_t m_SweepAt;
    rfm_SegmentBuffer m_FirstEncoded; // the stored form of segment 0, while others are written before it
    std::unique_ptr<rfm_SegmentsAhead> m_Ahead; // both of a file that is only read
    std::unique_ptr<rfm_KnownSegments> m_Known;
};
