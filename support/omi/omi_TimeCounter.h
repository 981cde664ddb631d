#pragma once

/// Seconds of a counter that runs forward only, whatever happens to the time of day; its zero means nothing.
double omi_gettimecounter();
