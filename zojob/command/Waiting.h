#ifndef WAITING_H
#define WAITING_H

#include "jobs/JobWatch.h"

// What the commands that stand until jobs have ended have in common.

/// Waits until the targets have ended and returns the highest of their statuses. After `timeout`
/// seconds, unless it is negative, the result is TIMED_OUT.
int waitForJobs(JobWatch& watch, double timeout);

/// Throws Failure when this process is part of a job that runs: a new job would run behind it, and
/// whoever waits for that waits for ever.
void refuseToWaitBehindOneself(const Queue& queue);

/// The same when a target is that job, or waits behind it.
void refuseToWaitForOneself(const JobWatch& watch);

/// Says that the output of a job that has ended may be incomplete, where the disk was full.
void noteDisk(const Job& job, const std::string& name);

/// Says once, on standard error, that nothing will ever run a target.
class StuckNote
{
public:
    void show(const JobWatch& watch);

private:
    bool isSaid = false;
};

/// From now on Ctrl-C ends the process with INTERRUPTED after saying that the jobs go on; unless it
/// is ignored, as in a background command of a script.
void announceInterrupt(const JobWatch& watch);

#endif
