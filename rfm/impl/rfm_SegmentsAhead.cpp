#include "rfm_SegmentsAhead.h"

#include "rfm_Codec.h"
#include "rfm_EncodedSegment.h"
#include "rfm_SectorArray.h"
#include "thr_Helper.h"

#include <exception>
#include <utility>

namespace
{
// Loads in a row that count as sequential reading.
constexpr int kRun = 3;
// Segments that are decoded ahead, at most: one for the helper, one for the reader while that is at it.
constexpr std::size_t kMostAhead = 2;
} // namespace

// ---- one segment ----

class rfm_SegmentsAhead::Job : public thr_Job
{
public:
    Job(rfm_Codec& codec, int bufferSize) : decoded(bufferSize), m_Codec(codec) {}
    void Run() noexcept override
    {
        try
        {
            length = m_Codec.Decode(decoded, encoded);
        }
        catch (...)
        {
            length.reset(); // the reader finds out what it is, should it come there
        }
    }

    int index = 0;
    rfm_SegmentBuffer encoded;
    rfm_SegmentBuffer decoded;
    std::optional<int> length;

private:
    rfm_Codec& m_Codec;
};

// ---- the run ----

rfm_SegmentsAhead::rfm_SegmentsAhead(rfm_SectorArray& sectorArray, const rfm_SegmentBufferCache& cache,
                                     rfm_Codec& codec, int segmentCount)
    : m_SectorArray(sectorArray),
      m_Cache(cache),
      m_Codec(codec),
      m_SegmentCount(segmentCount)
{
    m_Jobs.reserve(kMostAhead + 1);
    m_Spare.reserve(kMostAhead + 1);
}

rfm_SegmentsAhead::~rfm_SegmentsAhead() = default;

std::optional<int> rfm_SegmentsAhead::Load(int index, rfm_SegmentBuffer& target)
{
    Follow(index);
    if (m_Run < kRun || m_IsAlone) return {};
    try
    {
        if (!StartHelper()) return {};
        TopUp();
    }
    catch (const std::exception&)
    {
        // What can't be read ahead, or not be held in memory, is left to the ordinary way.
    }
    return Take(index, target);
}

void rfm_SegmentsAhead::Follow(int index)
{
    if (index != m_Last + 1) Forget();
    m_Last = index;
    ++m_Run;
}

void rfm_SegmentsAhead::Forget() noexcept
{
    m_Run = 0;
    m_Jobs.clear();
    if (m_Helper != nullptr && m_Helper->IsHere()) m_Helper->Forget();
}

bool rfm_SegmentsAhead::StartHelper()
{
    if (m_Helper == nullptr)
    {
        m_Helper = thr_Helper::Start();
        m_IsAlone = m_Helper == nullptr;
    }
    else if (!m_Helper->IsHere())
        LeaveToParent();
    return !m_IsAlone;
}

// This is a forked child, and the jobs are those of a thread that it does not have.
void rfm_SegmentsAhead::LeaveToParent() noexcept
{
    m_Jobs.clear();
    m_Helper.reset();
    m_IsAlone = true;
}

void rfm_SegmentsAhead::TopUp()
{
    while (true)
    {
        const int next = m_Jobs.empty() ? m_Last + 1 : m_Jobs.back()->index + 1;
        // Of the jobs one may be of the segment that is wanted now.
        if (next - m_Last > static_cast<int>(kMostAhead) || !IsWorthwhile(next)) return;
        std::shared_ptr<Job> job = NewJob();
        job->index = next;
        rfm_EncodedSegment::ReadStream(m_SectorArray, next, m_Codec.MostEncoded(m_Cache.BufferSize()),
                                       job->encoded);
        m_Helper->Give(job);
        m_Jobs.push_back(std::move(job)); // there is room: what was given is known here
    }
}

bool rfm_SegmentsAhead::IsWorthwhile(int index) const
{
    return index < m_SegmentCount && m_SectorArray.HasChain(index) && !m_Cache.HasBuffer(index);
}

std::shared_ptr<rfm_SegmentsAhead::Job> rfm_SegmentsAhead::NewJob()
{
    if (m_Spare.empty()) return std::make_shared<Job>(m_Codec, m_Cache.BufferSize());
    std::shared_ptr<Job> job = std::move(m_Spare.back());
    m_Spare.pop_back();
    return job;
}

std::optional<int> rfm_SegmentsAhead::Take(int index, rfm_SegmentBuffer& target)
{
    if (m_Jobs.empty() || m_Jobs.front()->index != index) return {};
    const std::shared_ptr<Job> job = std::move(m_Jobs.front());
    m_Jobs.erase(m_Jobs.begin());
    m_Helper->Finish(*job);
    if (job->length.has_value()) target.Swap(job->decoded);
    m_Spare.push_back(job);
    return job->length;
}
