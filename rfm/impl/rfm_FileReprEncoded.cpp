#include "rfm_FileReprEncoded.h"

#include "nex_Report.h"
#include "rfm_FileException.h"
#include "utl_FileException.h"

#include <algorithm>
#include <cerrno>
#include <utility>

rfm_FileReprEncoded::rfm_FileReprEncoded(const cow_String& name, std::unique_ptr<rfm_Codec> codec,
                                         int segmentSize)
    : rfm_FileRepr(name),
      m_SegmentSize(segmentSize),
      m_Table(name, std::move(codec), segmentSize),
      m_ReadOnly(false)
{
    Seek(0);
}

rfm_FileReprEncoded::rfm_FileReprEncoded(const cow_String& name, utl_FileAccess access,
                                         std::unique_ptr<rfm_Codec> codec)
    : rfm_FileRepr(name),
      m_SegmentSize(0),
      m_Table(name, std::move(codec), access),
      m_ReadOnly(access == utl_FileAccessRead)
{
    m_SegmentSize = m_Table.SegmentSize();
    SetLogicalSize(m_Table.LogicalSize());
    Seek(0);
}

rfm_FileReprEncoded::~rfm_FileReprEncoded()
{
    if (m_ReadOnly || !m_FlushDue) return;
    try
    {
        Flush();
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
}

void rfm_FileReprEncoded::CheckWritable() const
{
    if (m_ReadOnly) rfm_FileReadOnlyExc(m_FileName).Throw(__FILE__, __LINE__);
}

void rfm_FileReprEncoded::SetLogicalSize(utl_FileOffset size)
{
    m_LogicalFileSize = m_PhysicalFileSize = size;
}

// What the sectors can hold at most, which bounds every length that a damaged file claims. What is still in memory counts
// too: a writer is asked before it has flushed.
bool rfm_FileReprEncoded::MayHold(utl_FileOffset end) const
{
    const std::int64_t stored = std::int64_t{m_Table.UsedCount()} * m_SegmentSize;
    const std::int64_t pending = m_ReadOnly ? 0 : std::int64_t{m_Table.Cache().Count()} * m_SegmentSize;
    return end <= m_LogicalFileSize && end <= stored + pending;
}

void rfm_FileReprEncoded::Seek(utl_FileOffset location)
{
    if (location > m_LogicalFileSize) nex_ThrowAssert("location <= m_LogicalFileSize");
    if (location < 0) utl_FileException("seek in", m_FileName, EINVAL).Throw(__FILE__, __LINE__);
    const std::int64_t index = location.Value() / m_SegmentSize;
    SwitchTo(utl_FileOffset(index).DiffAsInt32(0));
    m_Position = location;
    m_PositionInSegment = static_cast<int>(location.Value() - index * m_SegmentSize);
}

void rfm_FileReprEncoded::SwitchTo(int index)
{
    if (!m_CurrentSegment.IsNull() && m_CurrentSegment->Index() == index) return;
    if (index == 0 && !m_FirstSegment.IsNull())
    {
        m_CurrentSegment = m_FirstSegment;
        return;
    }
    if (index >= m_Table.SegmentCount()) m_FlushDue = true;
    m_CurrentSegment = rfm_ArmedSegment(m_Table.GetSegment(index));
    if (index == 0) m_FirstSegment = m_CurrentSegment;
}

// At the end of a segment: on to the next one. One that exists is not entered before something is to be moved there: who
// reads up to a boundary should not pay for what lies behind, nor stumble over damage there.
void rfm_FileReprEncoded::LeaveFullSegment(bool moreToMove)
{
    if (m_PositionInSegment < m_SegmentSize) return;
    const int next = m_CurrentSegment->Index() + 1;
    if (!moreToMove && next < m_Table.SegmentCount()) return;
    SwitchTo(next);
    m_PositionInSegment = 0;
}

int rfm_FileReprEncoded::Read(char* buffer, int count)
{
    if (buffer == nullptr || count < 0)
        rfm_FileBadParameterExc("rfm_FileReprEncoded::Read").Throw(__FILE__, __LINE__);
    Settle();
    const utl_FileOffset start = m_Position;
    try
    {
        return ReadOn(buffer, count);
    }
    catch (...)
    {
        m_Position = start;
        m_CurrentSegment = {}; // the one at the start may have lost its buffer by now
        throw;
    }
}

// After a read that failed, back to the segment of the position.
void rfm_FileReprEncoded::Settle()
{
    if (m_CurrentSegment.IsNull()) Seek(m_Position);
}

int rfm_FileReprEncoded::ReadOn(char* buffer, int count)
{
    int done = 0;
    while (done < count)
    {
        LeaveFullSegment(true);
        const int available = m_CurrentSegment->DecodedLength() - m_PositionInSegment;
        if (available <= 0) break;
        const int piece = std::min(available, count - done);
        m_CurrentSegment->Read(buffer + done, m_PositionInSegment, piece);
        done += piece;
        m_Position += piece;
        m_PositionInSegment += piece;
    }
    if (done > 0) LeaveFullSegment(false);
    return done;
}

// kept: a write that ends on a segment's boundary makes the next, empty segment.
// Test: AWriteThatEndsOnASegmentBoundaryHasAlreadyMadeTheNextSegment.
int rfm_FileReprEncoded::Write(const char* buffer, int count)
{
    CheckWritable();
    if (buffer == nullptr || count < 0)
        rfm_FileBadParameterExc("rfm_FileReprEncoded::Write").Throw(__FILE__, __LINE__);
    Settle();
    m_FlushDue = true;
    for (int done = 0; done < count;)
    {
        LeaveFullSegment(true);
        const int piece = std::min(m_SegmentSize - m_PositionInSegment, count - done);
        m_CurrentSegment->Write(buffer + done, m_PositionInSegment, piece);
        done += piece;
        m_Position += piece;
        m_PositionInSegment += piece;
        // With every piece: a switch that fails must not leave bytes behind the logical end.
        if (m_Position > m_LogicalFileSize) SetLogicalSize(m_Position);
    }
    if (count > 0) LeaveFullSegment(false);
    return count;
}

bool rfm_FileReprEncoded::ExtendBy(utl_FileOffset delta)
{
    CheckWritable();
    m_FlushDue = true;
    if (delta >= 0)
    {
        const utl_FileOffset end = m_LogicalFileSize + delta;
        const utl_FileOffset index = end.Value() / m_SegmentSize;
        rfm_EncodedSegment* last = m_Table.GetSegment(index.DiffAsInt32(0));
        last->SetDecodedLength(static_cast<int>(end.Value() % m_SegmentSize));
        SetLogicalSize(end);
        return false;
    }
    Seek(m_Position + delta);
    m_Table.Truncate(m_CurrentSegment->Index() + 1);
    m_CurrentSegment->SetDecodedLength(m_PositionInSegment);
    SetLogicalSize(m_Position);
    return false;
}

void rfm_FileReprEncoded::Flush()
{
    CheckWritable();
    m_Table.Flush();
    m_FlushDue = false;
}
