#ifndef PROCESS_H
#define PROCESS_H

#include <string>
#include <vector>

/// Programs run as whole processes, as a person runs them at a prompt.
class Process
{
public:
    double seconds = 0;  ///< from before its start to after its end
    int status = -1;     ///< exit status, -1 when it was killed or could not be started
    std::string output;  ///< its standard output, when asked for

    /// Runs a program, found through PATH, to its end; standard error goes where ours goes.
    static Process run(const std::vector<std::string>& words, bool wantsOutput = false);

    /// The median of that many runs, in seconds. Ends the program when one fails.
    static double medianOf(int runs, const std::vector<std::string>& words);
};

/// What /proc knows about processes.
class ProcessTable
{
public:
    /// Process ids of the programs of this name that this process can see.
    static std::vector<int> named(const std::string& name);
    /// Resident memory in bytes, "VmRSS" for one process; of shared pages its share, for many.
    static double resident(int pid);
    static double share(const std::vector<int>& pids);
    /// How often a process has gone to sleep by itself, and the seconds of processor time it had.
    static long wakeUps(int pid);
    static double cpuSeconds(int pid);
};

/// Seconds of a clock that nobody can set.
double now();

#endif
