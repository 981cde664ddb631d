// The clock of all measurements.
#pragma once

namespace bench
{

/// From now on counts this process's time on processors, not the time of day: on a machine that others use too, the
/// second says more of them than of the work. The race of flush-to-visible has its own clock.
void CountProcessorTime();
bool CountsProcessorTime();

double SecondsNow();

} // namespace bench
