#include "clock.h"

#include <ctime>
#include <sys/resource.h>

namespace bench
{

namespace
{

clockid_t s_Clock = CLOCK_MONOTONIC;

/// What processes cost that were waited for.
double SecondsOfChildren()
{
    rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

} // namespace

void CountProcessorTime() { s_Clock = CLOCK_PROCESS_CPUTIME_ID; }
bool CountsProcessorTime() { return s_Clock == CLOCK_PROCESS_CPUTIME_ID; }

double SecondsNow()
{
    timespec now{};
    ::clock_gettime(s_Clock, &now);
    const double seconds = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    return CountsProcessorTime() ? seconds + SecondsOfChildren() : seconds;
}

} // namespace bench
