#ifndef ZOJOBCHILDREN_H
#define ZOJOBCHILDREN_H

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
    UtDArray<int> missing;  ///< processes that were gone at the last look for lost jobs

    /// Notes a child of this process.
    void add(int pid);

    /// Collects the children that have ended, but for those that one of the jobs is recorded to run
    /// in.
    void reap(UtDArray<UtHandle<ZoJob>>& jobs);

    /// Whether the process of a running job has certainly gone: a child of this process that has
    /// ended; another one when the machine was started after the job, or when it was gone at the
    /// last look, too.
    bool isLost(UtHandle<ZoJob> job);

    /// The same for `last`, whose job is in the queue no more.
    bool isLastLost();

    /// Ends a look: notes which processes are gone now, for the next one.
    void noteMissing(UtDArray<UtHandle<ZoJob>>& jobs);

private:
    bool isProcessLost(int pid);
};

#endif
