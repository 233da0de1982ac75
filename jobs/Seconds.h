#ifndef SECONDS_H
#define SECONDS_H

#include "utlib/UtClock.h"

#include <algorithm>
#include <cmath>
#include <poll.h>

/// Seconds of a clock that nobody can set, for waiting.
inline double secondsNow()
{
    return 1e-3 * (double)UtClock::now();
}

/// Sleeps so many seconds, or shorter when a signal comes.
inline void sleepSeconds(double seconds)
{
    (void)::poll(nullptr, 0, (int)std::ceil(1000 * std::max(0.0, seconds)));
}

#endif
