#include "schedule/ZoJobChildren.h"

#include "schedule/ZoJobDirectory.h"
#include "schedule/ZoProcessTree.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

/// What a launcher calls a server with, see ZoLauncher.
static const char LAUNCHER_SWITCH[] = "-jobserver";

/// Seconds between the start of a job and the begin of its process, as computed: a slow start, and
/// what the clock was corrected by since.
static const long long START_DIFFERENCE = 10;

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

/// The start of a process's command line; empty when there is none. Returns the number of bytes.
static long readCommandLine(char* text, long size, const char* process)
{
    char path[64];
    ::snprintf(path, sizeof path, "/proc/%s/cmdline", process);
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    const long n = fd < 0 ? 0 : ::read(fd, text, size - 1);
    if (fd >= 0)
        ::close(fd);
    text[n < 0 ? 0 : n] = '\0';
    return n < 0 ? 0 : n;
}

/// Whether the process has the command line of a server: a switch that only a launcher gives, or
/// what this process itself was called with.
static bool isCalledAsServer(const char* process)
{
    char line[4096], own[sizeof line];
    const long n = readCommandLine(line, sizeof line, process);
    const char* const second = line + ::strlen(line) + 1;
    if (n == 0 || (second < line + n && ::strcmp(second, LAUNCHER_SWITCH) == 0))
        return true;
    return readCommandLine(own, sizeof own, "self") == n && ::memcmp(own, line, n) == 0;
}

bool ZoJobChildren::isJobChild(int pid, long long jobStart)
{
    const unsigned long long ticks = ZoProcessTree::startTicks(pid);
    if (ticks == 0)
        return true;  // nothing is known against it
    const long long begin = ZoProcessTree::bootTime() + (long long)(ticks / ::sysconf(_SC_CLK_TCK));
    char process[16];
    ::snprintf(process, sizeof process, "%d", pid);
    return ::llabs(begin - jobStart) <= START_DIFFERENCE || isCalledAsServer(process);
}

void ZoJobChildren::add(int pid, long long jobStart)
{
    pids.append(pid);
    setLast(pid, jobStart);
}

void ZoJobChildren::setLast(int pid, long long jobStart)
{
    last = pid;
    lastStart = jobStart;
}

bool ZoJobChildren::haveLiving(UtDArray<UtHandle<ZoJob>>& jobs)
{
    for (long i = 0; i < pids.size(); ++i) {
        if (isRecorded(jobs, pids[i]) && !ZoProcessTree::hasEnded(pids[i]))
            return true;
    }
    return false;
}

/// Whether no living process can be the one that runs the job.
static bool isGone(int pid, long long jobStart)
{
    return ZoProcessTree::isGone(pid) || !ZoJobChildren::isJobChild(pid, jobStart);
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

bool ZoJobChildren::isProcessLost(int pid, long long jobStart)
{
    if (contains(pids, pid))
        return ZoProcessTree::hasEnded(pid);
    return contains(missing, pid) && isGone(pid, jobStart);
}

bool ZoJobChildren::isLost(UtHandle<ZoJob> job)
{
    const bool isOurs = contains(pids, job->pid);
    if (!isOurs && ZoJobDirectory::isHeld(job))
        return false;
    return isProcessLost(job->pid, job->startTime) ||
           (!isOurs && job->startTime < ZoProcessTree::bootTime());
}

bool ZoJobChildren::isLastLost()
{
    return last < 1 || isProcessLost(last, lastStart);
}

void ZoJobChildren::noteMissing(UtDArray<UtHandle<ZoJob>>& jobs)
{
    missing.resize(0);
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == ZoJob::RUNNING && isGone(jobs[i]->pid, jobs[i]->startTime))
            missing.append(jobs[i]->pid);
    }
    if (last > 0 && isGone(last, lastStart))
        missing.append(last);
}
