#pragma once

#include "rfm_ArmedSegment.h"
#include "rfm_EncodedSegmentTable.h"
#include "rfm_FileRepr.h"

#include <memory>

/// A compressed file: the bytes of a plain one in segments that are encoded each by itself, so that any of them can be read
/// and written alone. Bytes change in memory; they reach the file when their segment's buffer goes to another one, and
/// at Flush, which also writes what makes them part of the file.
/// Other processes see a new state only when they open anew: CheckStatus is "unchanged" for ever.
class rfm_FileReprEncoded : public rfm_FileRepr
{
public:
    /// Creates.
    rfm_FileReprEncoded(const cow_String& name, std::unique_ptr<rfm_Codec> codec, int segmentSize);
    /// Opens, for reading or update.
    rfm_FileReprEncoded(const cow_String& name, utl_FileAccess access, std::unique_ptr<rfm_Codec> codec);
    ~rfm_FileReprEncoded() override;

    bool ReadOnly() const override { return m_ReadOnly; }
    /// Anywhere in front of the logical end, and there. When it throws, the position has not moved.
    void Seek(utl_FileOffset location) override;
    void Flush() override;
    void Extend(utl_FileOffset delta) override { ExtendBy(delta); }
    /// When it throws, the position has not moved.
    int Read(char* buffer, int count) override;
    int Write(const char* buffer, int count) override;
    /// kept: a negative `delta` counts from the position, not from the end, and can't end in the last segment.
    /// Tests: ANegativeDeltaCountsFromThePosition, AnEndInTheLastSegmentIsRefused.
    bool ExtendBy(utl_FileOffset delta) override;
    /// Only checks: the physical file is cut when it is closed.
    void TrimToLength() override { CheckWritable(); }
    bool MayHold(utl_FileOffset end) const override;
    void Refresh() override { m_Table.ForgetAhead(); }

private:
    void CheckWritable() const;
    void SwitchTo(int index);
    void Settle();
    int ReadOn(char* buffer, int count);
    void LeaveFullSegment(bool moreToMove);
    void SetLogicalSize(utl_FileOffset size);

    int m_SegmentSize;
    rfm_EncodedSegmentTable m_Table;
    rfm_ArmedSegment m_CurrentSegment; // none after a read that failed, until the next step
    rfm_ArmedSegment m_FirstSegment;   // once visited: a database looks at its header all the time
    int m_PositionInSegment = 0;       // the segment size when the next one has not been switched to yet
    bool m_ReadOnly;
    bool m_FlushDue = true; // something may have changed since the last one
};
