#pragma once

#include "rfm_SegmentBuffer.h"

#include <memory>
#include <optional>
#include <vector>

class rfm_Codec;
class rfm_SectorArray;
class rfm_SegmentBufferCache;
class thr_Helper;

/// Decodes what a sequential read wants next, on a thread of its own, while the reader uses what it has. For a file that
/// is only read: nothing that is stored there changes meanwhile. To inflate is 94 % of such a read, so it takes a little
/// over half the time where there are two processors.
///
/// A run of loads, one segment after the other, starts it: a reader that steps about pays nothing for it. The reader's
/// thread does everything with the file and the buffers of the cache; the helper gets stored bytes in memory and a block
/// to decode them into, which belong to the job. Whatever goes wrong ahead of the reader is as if it had not been
/// tried: the segment is loaded in the ordinary way when it is asked for, and fails there, or never.
///
/// Invariant: m_Jobs are of consecutive segments, the first right behind m_Last.
class rfm_SegmentsAhead
{
public:
    /// `segmentCount`: those from there on are never decoded ahead.
    rfm_SegmentsAhead(rfm_SectorArray& sectorArray, const rfm_SegmentBufferCache& cache, rfm_Codec& codec,
                      int segmentCount);
    rfm_SegmentsAhead(const rfm_SegmentsAhead&) = delete;
    rfm_SegmentsAhead& operator=(const rfm_SegmentsAhead&) = delete;
    ~rfm_SegmentsAhead();

    /// The stream of segment `index` is wanted in `target`. Starts on what follows in its run; then, when this one was
    /// decoded ahead, exchanges the memory of `target` for it.
    /// Result: how many bytes came out, as from the codec; nothing when the caller is to do it.
    std::optional<int> Load(int index, rfm_SegmentBuffer& target);
    /// Whether the last load was of the segment behind the one before.
    bool IsInARun() const noexcept { return m_Run > 1; }
    /// Begins anew, with the next load.
    void Forget() noexcept;

private:
    class Job;

    void Follow(int index);
    bool StartHelper();
    void LeaveToParent() noexcept;
    void TopUp();
    bool IsWorthwhile(int index) const;
    std::shared_ptr<Job> NewJob();
    std::optional<int> Take(int index, rfm_SegmentBuffer& target);

    rfm_SectorArray& m_SectorArray;
    const rfm_SegmentBufferCache& m_Cache;
    rfm_Codec& m_Codec;
    int m_SegmentCount;
    int m_Last = -2; // loaded; no segment comes right behind this one
    int m_Run = 0;
    std::vector<std::shared_ptr<Job>> m_Jobs;
    std::vector<std::shared_ptr<Job>> m_Spare; // done with; their memory serves again
    bool m_IsAlone = false;                    // there is no helper to be had
    std::unique_ptr<thr_Helper> m_Helper;      // last: it ends before what its jobs use
};
