#ifndef ZOJOBCHILDREN_H
#define ZOJOBCHILDREN_H

#include "schedule/ZoExport.h"
#include "schedule/ZoJob.h"
#include "utlib/UtDArray.h"

/// The processes that run jobs, as the server sees them: its own children, until they are reaped,
/// and what earlier servers have left running.
class ZoJobChildren
{
public:
    UtDArray<int> pids;  ///< children of this process that are not reaped yet
    int last = -1;  ///< the job child started last, also by an earlier server; -1 when there is
                    ///< none or it has been reaped
    long long lastStart = 0;  ///< when its job was started
    UtDArray<int> missing;    ///< processes that were gone at the last look for lost jobs

    /// Whether a living process of this user can be the one that runs a job: its command line is a
    /// server's, since a job child executes no other program, or it began when the job did. Else
    /// the id has come to another process. What the system does not tell counts for the job.
    static SCHEDULE_EXPORT bool isJobChild(int pid, long long jobStart);

    /// Notes a child of this process, and when its job was started.
    void add(int pid, long long jobStart);

    /// Notes the job child started last by an earlier server.
    void setLast(int pid, long long jobStart);

    /// Whether one of the jobs runs in a living child of this process.
    bool haveLiving(UtDArray<UtHandle<ZoJob>>& jobs);

    /// Collects the children that have ended, but for those that one of the jobs is recorded to run
    /// in.
    void reap(UtDArray<UtHandle<ZoJob>>& jobs);

    /// Whether the process of a running job has certainly gone: a child of this process that has
    /// ended; another one when the machine was started after the job, or when it was gone at the
    /// last look, too. A process that is no job child does not count. The clock may have been set
    /// since: where somebody holds the job's marker, it runs.
    bool isLost(UtHandle<ZoJob> job);

    /// The same for `last`, whose job is in the queue no more.
    bool isLastLost();

    /// Ends a look: notes which processes are gone now, for the next one.
    void noteMissing(UtDArray<UtHandle<ZoJob>>& jobs);

private:
    bool isProcessLost(int pid, long long jobStart);
};

#endif
