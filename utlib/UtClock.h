#ifndef UTCLOCK_H
#define UTCLOCK_H

#include <ctime>

/// A clock that nobody can set, for waiting and for limits of time. It stands still while the
/// machine sleeps.
class UtClock
{
public:
    /// Milliseconds since a point in the past that is the same for the whole machine.
    static long long now()
    {
        struct timespec time;
        ::clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec * 1000LL + time.tv_nsec / 1000000;
    }
};

#endif
