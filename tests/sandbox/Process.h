#ifndef SANDBOX_PROCESS_H
#define SANDBOX_PROCESS_H

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

/// A process that runs beside its caller, and is waited for at the end of its scope.
class Process
{
public:
    pid_t pid = -1;  ///< -1 when it has ended and was collected

    /// Runs a program, found through PATH as at a prompt; its standard streams are files.
    explicit Process(const std::vector<std::string>& words, const std::string& input = "");
    /// Runs a function in a fork of this process; what it returns is the exit status. Standard
    /// streams are the caller's.
    explicit Process(const std::function<int()>& function);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() { end(); }

    /// Waits so long for its end. Returns whether it has ended.
    bool hasEnded(double forSeconds = 0);
    /// Waits for its end. Returns the exit status, or 128 and the number of the signal that ended
    /// it.
    int end();

    /// What it has printed, when it has ended.
    std::string out();
    std::string err();
    /// The first line of that, without its line end.
    std::string line();

private:
    std::string file;  // the streams' files, but for their endings
    int status = -1;
};

/// What /proc knows about processes.
class ProcessTable
{
public:
    /// The living processes below one, without the calling process, as " 4711 (sh) 4712 (sleep)".
    /// Sends each of them a signal, if one is given.
    static std::string descendants(int ancestor, int signal = 0);
    /// How many descriptors a process has open.
    static long descriptors(int pid);
};

/// Seconds of a clock that nobody can set.
double now();

double median(std::vector<double> values);

#endif
