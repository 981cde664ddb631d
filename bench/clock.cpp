#include "clock.h"

#include <ctime>

namespace bench
{

namespace
{

clockid_t s_Clock = CLOCK_MONOTONIC;

} // namespace

void CountProcessorTime() { s_Clock = CLOCK_PROCESS_CPUTIME_ID; }
bool CountsProcessorTime() { return s_Clock == CLOCK_PROCESS_CPUTIME_ID; }

double SecondsNow()
{
    timespec now{};
    ::clock_gettime(s_Clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace bench
