#ifndef MEASURED_H
#define MEASURED_H

#include <string>
#include <vector>

/// What a process costs, whole or while it runs.
class Measured
{
public:
    /// The median of that many runs of a program, in seconds. Fails when one does not end with 0.
    static double medianOf(int runs, const std::vector<std::string>& words);
    /// Resident memory of a process in bytes.
    static double resident(int pid);
    /// How often a process has gone to sleep by itself, and the seconds of processor time it had.
    static long wakeUps(int pid);
    static double cpuSeconds(int pid);
};

#endif
