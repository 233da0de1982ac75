#ifndef JOBTREE_H
#define JOBTREE_H

#include "jobs/Job.h"

#include <string>
#include <vector>

/// The processes of a running job, to be ended by force when a kill has not ended them. Each is
/// known by its id and the moment of its start, so that no other process is ever hit that has got
/// the id since. The shell of the job's script is left out: it ends with the others, after it has
/// told how the job ended.
class JobTree
{
public:
    /// Finds the processes below the job child. None for a job that does not run here.
    explicit JobTree(const Job& job);

    /// Adds those that have come since below the ones known.
    void lookAgain();

    /// Whether none of them lives any more.
    bool allGone() const;

    /// Sends SIGKILL to the rest. Returns whether there was one.
    bool killRest();

private:
    struct Process {
        int pid;
        unsigned long long start;  // in ticks since the machine was started
    };

    void add(int pid);

    std::vector<Process> processes;
};

#endif
