#pragma once

#include "rfm_EncodedSegment.h"

#include <utility>

/// Keeps a segment armed: its bytes are in memory and stay there. Assigning arms the new one before the old one goes.
class rfm_ArmedSegment
{
public:
    rfm_ArmedSegment() noexcept = default;
    explicit rfm_ArmedSegment(rfm_EncodedSegment* segment) : m_Segment(segment)
    {
        if (m_Segment != nullptr) m_Segment->Arm();
    }
    rfm_ArmedSegment(const rfm_ArmedSegment& source) : rfm_ArmedSegment(source.m_Segment) {}
    rfm_ArmedSegment(rfm_ArmedSegment&& source) noexcept : m_Segment(std::exchange(source.m_Segment, nullptr))
    {
    }
    rfm_ArmedSegment& operator=(rfm_ArmedSegment source) noexcept
    {
        std::swap(m_Segment, source.m_Segment);
        return *this;
    }
    ~rfm_ArmedSegment()
    {
        if (m_Segment != nullptr) m_Segment->Disarm();
    }

    bool IsNull() const noexcept { return m_Segment == nullptr; }
    rfm_EncodedSegment* operator->() const noexcept { return m_Segment; }

private:
    rfm_EncodedSegment* m_Segment = nullptr;
};
