#include "schedule/ZoJobChildren.h"

#include "schedule/ZoProcessTree.h"

#include <sys/wait.h>

static bool contains(UtDArray<int>& pids, int pid)
{
    for (long i = 0; i < pids.size(); ++i) {
        if (pids[i] == pid)
            return true;
    }
    return false;
}

/// Whether one of the jobs is recorded to run in the process.
static bool isRecorded(UtDArray<UtHandle<ZoJob>>& jobs, int pid)
{
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == ZoJob::RUNNING && jobs[i]->pid == pid)
            return true;
    }
    return false;
}

void ZoJobChildren::add(int pid)
{
    pids.append(pid);
    last = pid;
}

void ZoJobChildren::reap(UtDArray<UtHandle<ZoJob>>& jobs)
{
    for (long i = pids.size() - 1; i >= 0; --i) {
        if (isRecorded(jobs, pids[i]) || ::waitpid(pids[i], nullptr, WNOHANG) == 0)
            continue;
        if (pids[i] == last)
            last = -1;
        pids.remove(i, 1);
    }
}

bool ZoJobChildren::isProcessLost(int pid)
{
    if (contains(pids, pid))
        return ZoProcessTree::hasEnded(pid);
    return contains(missing, pid) && ZoProcessTree::isGone(pid);
}

bool ZoJobChildren::isLost(UtHandle<ZoJob> job)
{
    const bool isOurs = contains(pids, job->pid);
    return isProcessLost(job->pid) || (!isOurs && job->startTime < ZoProcessTree::bootTime());
}

bool ZoJobChildren::isLastLost()
{
    return last < 1 || isProcessLost(last);
}

void ZoJobChildren::noteMissing(UtDArray<UtHandle<ZoJob>>& jobs)
{
    missing.resize(0);
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == ZoJob::RUNNING && ZoProcessTree::isGone(jobs[i]->pid))
            missing.append(jobs[i]->pid);
    }
    if (last > 0 && ZoProcessTree::isGone(last))
        missing.append(last);
}
