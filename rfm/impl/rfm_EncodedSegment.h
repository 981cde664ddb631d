#pragma once

#include "rfm_Codec.h"
#include "rfm_SegmentBufferCache.h"

class rfm_KnownSegments;
class rfm_SectorArray;
class rfm_SegmentsAhead;

/// One piece of a compressed file: whether its bytes are in memory, whether they are newer than the file, and how many
/// use them.
///
///              first Arm (Load)                last Disarm
///   [ idle ] -------------------> [ armed ] ------------------> [ cached ]
///       ^                             ^             Arm            |   |
///       |                             +----------------------------+   |
///       +--------------------------------------------------------------+
///                 BufferTaken: stored if dirty
///
/// In a file that is only read, a segment that is known from an earlier visit is loaded by the reads, and only as far as
/// they go; the second one that wants more loads all.
///
/// Invariant: in a buffer that is loaded whole the bytes from the decoded length on are zero, so that what was never written reads as
/// zero and a file's bytes follow from what was written alone.
class rfm_EncodedSegment : public rfm_SegmentBufferHolder
{
public:
    /// `storedLength`: how much of the stored stream counts; 0 when one that is there was left by a segment that a
    /// truncation dropped. Of a file that is only read, `ahead` decodes what comes next, and `known` are the segments that
    /// were visited: both or neither.
    rfm_EncodedSegment(int index, rfm_SectorArray* sectorArray, rfm_SegmentBufferCache* cache,
                       rfm_Codec* codec, int decodedLength, int storedLength,
                       rfm_SegmentsAhead* ahead = nullptr, rfm_KnownSegments* known = nullptr);

    /// When it throws, the segment is not armed.
    void Arm();
    void Disarm();
    void Read(char* target, int first, int length);
    void Write(const char* source, int firstOut, int length);
    /// Throws: what Arm throws when the stored bytes are wanted for it; the length is as it was then.
    void SetDecodedLength(int length);
    /// Stores what is dirty.
    void Flush();
    /// What Flush does, in two steps between which others may be stored: gives `encoded` the stored form of a dirty
    /// segment, and its chain the sectors for it;
    void Prepare(rfm_SegmentBuffer& encoded);
    /// writes that form.
    void StoreEncoded(const rfm_SegmentBuffer& encoded);
    /// The stored bytes of a segment that has a stream, with what follows them.
    /// Throws: the text of a corrupt file, also for more of them than the `mostEncoded` of a segment.
    static void ReadStream(rfm_SectorArray& sectorArray, int index, int mostEncoded,
                           rfm_SegmentBuffer& encoded);
    void BufferTaken(int index, rfm_SegmentBuffer* buffer) override;

    int Index() const noexcept { return m_Index; }
    int DecodedLength() const noexcept { return m_DecodedLength; }
    bool IsLoaded() const noexcept { return m_LoadedLength > 0; }
    bool IsDirty() const noexcept { return m_Dirty; }
    bool IsArmed() const noexcept { return m_Armed > 0; }
    /// Whether a new object for this segment, of `decodedLength` bytes, would be as this one.
    bool IsForgettable(int decodedLength) const;

private:
    bool HasBytesStored() const;
    bool IsLeftToReads() const;
    void Load();
    void LoadUpTo(int end);
    bool LoadAhead();
    bool LoadFront(int end);
    void LoadWhole();
    int DecodeStream();
    void SetWhole(int decodedLength);
    void Store(const rfm_SegmentBuffer* buffer);

    const int m_Index;
    rfm_SectorArray* m_SectorArray;
    rfm_SegmentBufferCache* m_Cache;
    rfm_Codec* m_Codec;
    rfm_SegmentsAhead* m_Ahead;
    rfm_KnownSegments* m_Known;
    rfm_SegmentBuffer* m_Buffer = nullptr; // set while armed
    int m_DecodedLength;
    int m_StoredLength; // the bytes of the stored stream from here on no longer count
    int m_LoadedLength =
        0; // so far the buffer in the cache holds this segment; up to its end when it is loaded whole
    bool m_Dirty = false;
    int m_Armed = 0;
};
