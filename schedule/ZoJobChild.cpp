#include "schedule/ZoClient.h"
#include "schedule/ZoJobList.h"
#include "schedule/ZoProcess.h"
#include "utlib/UtDirectory.h"
#include "utlib/UtSocket.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

/// Between the command's end and its record: the server has answered the run request by then.
static const int PAUSE_SECONDS = 1;

/// Exit status that stands for a shell that could not be started, as when the command is longer
/// than an argument may be (128 KiB).
static const int NO_SHELL = 127;

/// The job to be run, as the jobs just loaded hold it: the one asked for, or the first waiting one.
static UtHandle<ZoJob> choose(ZoJobList& list, UtHandle<ZoJob> asked)
{
    if (asked) {
        UtHandle<ZoJob> found = list.find(asked, list.jobs);
        if (!found)
            ZoJobList::log("job not found\n");
        return found;
    }
    for (long i = 0; i < list.jobs.size(); ++i) {
        if (list.jobs[i]->state == ZoJob::WAITING)
            return list.jobs[i];
    }
    ZoJobList::log("no pending jobs\n");
    return UtHandle<ZoJob>();
}

int ZoJobList::run(UtHandle<ZoJob> job)
{
    lockQueue();
    readQueue(jobs);
    job = choose(*this, job);
    if (!job || job->state != ZoJob::WAITING) {
        unlockQueue();
        return -1;
    }
    // Started without a record, it would be waiting at the next load and be run again and again.
    if (prepareSave() != 0) {
        log("the queue cannot be saved, no job is started: %s\n", ::strerror(errno));
        unlockQueue();
        return -1;
    }
    job->state = ZoJob::RUNNING;
    job->startTime = ::time(nullptr);
    log("forking child process\n");
    ::fflush(nullptr);  // what is buffered now would be written by both processes
    job->pid = ::fork();
    if (job->pid == 0)
        runChild(job);
    if (job->pid < 0) {
        job->state = ZoJob::WAITING;
        job->startTime = 0;
        writeQueue(jobs);
        unlockQueue();
        return -1;
    }
    children.append(job->pid);
    lastChild = job->pid;
    writeQueue(jobs);
    unlockQueue();
    return 1;
}

/// Sends one stream to the file, or nowhere if that cannot be opened: without the descriptor, the
/// next file that the command opens would get its number and be taken for output.
static void redirect(FILE* stream, const char* path)
{
    if (!::freopen(path, "w", stream) && !::freopen("/dev/null", "w", stream))
        return;
    const int fd = ::fileno(stream);
    // Both streams have a position of their own; appending, neither writes over the other.
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_APPEND);
}

/// Sends output to "log" in the job's directory. Without that directory it goes where the server's
/// goes.
static void redirectOutput(const char* directory)
{
    char path[4096];
    const int n = ::snprintf(path, sizeof path, "%s/log", directory);
    if (!UtDirectory::isDirectory(directory))
        return;
    const bool fits = n > 0 && n < (int)sizeof path;
    redirect(stdout, fits ? path : "/dev/null");
    redirect(stderr, fits ? path : "/dev/null");
}

/// Runs the command in the job's directory, if that exists, and comes back: a directory in the
/// queue that is relative is so to where the server was started.
static void execute(UtHandle<ZoJob> job)
{
    const int start = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (UtDirectory::isDirectory(job->directory) && ::chdir(job->directory) != 0)
        ::perror(job->directory);
    errno = 0;
    const int status = ::system(job->command);
    // 127 without an error is a shell that found no such command, and has said so itself.
    if (status == -1 || (errno != 0 && WIFEXITED(status) && WEXITSTATUS(status) == NO_SHELL))
        ::perror("cannot start a shell");
    if (start < 0 || ::fchdir(start) != 0)
        ::perror("cannot return to the server's directory");
    ::close(start);
}

void ZoJobList::runChild(UtHandle<ZoJob> job)
{
    for (long i = 0; i < fdsToClose.size(); ++i)
        UtSocket::close(fdsToClose[i]);
    if (lockFile >= 0)
        ::close(lockFile);  // only this copy: the lock is the server's until it has saved
    lockFile = -1;
    ZoProcess::resetSignals();
    ZoProcess::closeDescriptorsOnExec();
    redirectOutput(job->directory);
    ::printf("Starting \"%s\"\n", (const char*)job->command);
    ::fflush(stdout);  // ahead of the command's own output
    log("executing \"%s\" (pid = %d)\n", (const char*)job->command, (int)::getpid());
    execute(job);
    ::signal(SIGXFSZ, SIG_IGN);  // a file size limit must not end us before the record
    ZoProcess::pause(PAUSE_SECONDS);
    recordEnd(job);
    reportDone();
    log("child exiting\n");
    ::exit(0);
}

/// The record of the job that this process runs. Of two jobs of one second in one directory only
/// the process tells which is meant.
static UtHandle<ZoJob> findOwn(ZoJobList& list, UtHandle<ZoJob> job)
{
    const int own = ::getpid();
    for (long i = 0; i < list.jobs.size(); ++i) {
        UtHandle<ZoJob> other = list.jobs[i];
        if (other->pid == own && other->id == job->id && other->directory == job->directory)
            return other;
    }
    return list.find(job, list.jobs);  // the server could not save the process
}

void ZoJobList::recordEnd(UtHandle<ZoJob> job)
{
    lockQueue();
    readQueue(jobs);
    job = findOwn(*this, job);
    if (job && job->state != ZoJob::KILLED) {
        job->state = ZoJob::DONE;
        job->endTime = ::time(nullptr);
        writeQueue(jobs);
    }
    unlockQueue();
}

void ZoJobList::reportDone()
{
    log("job done, connecting to server\n");
    const int fd = ZoClient::connect(nullptr, port);
    if (fd < 0) {
        log("connect failed\n");
        return;
    }
    // Silent clients can hold the server longer than any limit, and a report whose sender has left
    // counts as nobody's: the next job would not start. A server that ends closes the connection.
    UtSocket::setTimeLimits(fd, 0);
    UtString line;
    ZoProtocol::writeRequest(line, user, ZoProtocol::DONE);
    UtSocket::send(fd, "%s", (const char*)line);
    // The server closes the connection when it has handled the report; the answer says nothing new.
    char buffer[4096];
    while (UtSocket::receive(fd, buffer, sizeof buffer, 1) > 0)
        continue;
    UtSocket::close(fd);
}

/// Appends the ids of all processes below the given one, parents before their children.
static void getChildren(UtDArray<int>& pids, int pid)
{
    static const char pscmd[] = "ps xj";
    const long start = pids.size();
    if (FILE* const listing = ::popen(pscmd, "re")) {
        char line[1024];
        while (::fgets(line, sizeof line, listing)) {
            int parent, own;
            if (::sscanf(line, "%d %d", &parent, &own) == 2 && parent == pid)
                pids.append(own);
        }
        ::pclose(listing);  // its status does not change what was read
    }
    const long end = pids.size();
    for (long k = start; k < end; ++k)
        getChildren(pids, pids[k]);
}

int ZoJobList::kill()
{
    lockQueue();
    readQueue(jobs);
    UtDArray<int> pids;
    int killed = 0;
    for (long i = 0; i < jobs.size(); ++i) {
        UtHandle<ZoJob> job = jobs[i];
        if (job->state != ZoJob::RUNNING)
            continue;
        if (job->pid >= 1) {  // others stand for whole groups of processes
            getChildren(pids, job->pid);
            pids.append(job->pid);
        }
        job->state = ZoJob::KILLED;
        job->endTime = ::time(nullptr);
        killed = 1;
    }
    // KILLED is saved before the first signal: a crash must not leave it RUNNING.
    writeQueue(jobs);
    unlockQueue();
    for (long i = 0; i < pids.size(); ++i) {
        if (pids[i] >= 1)
            ::kill(pids[i], SIGTERM);  // fails only for one that has ended meanwhile
    }
    return killed;
}

void ZoJobList::reapChildren()
{
    for (long i = children.size() - 1; i >= 0; --i) {
        bool isRecorded = false;
        for (long k = 0; k < jobs.size() && !isRecorded; ++k)
            isRecorded = jobs[k]->state == ZoJob::RUNNING && jobs[k]->pid == children[i];
        if (isRecorded || ::waitpid(children[i], nullptr, WNOHANG) == 0)
            continue;
        if (children[i] == lastChild)
            lastChild = -1;
        children.remove(i, 1);
    }
}

/// Whether no living process of this user has the id any more. A zombie lives no more.
static bool isGone(int pid)
{
    if (pid < 1)
        return true;
    if (::kill(pid, 0) != 0)
        return errno == ESRCH || errno == EPERM;  // EPERM: the id has come to another user
    char path[32], status[512];
    ::snprintf(path, sizeof path, "/proc/%d/stat", pid);
    FILE* const file = ::fopen(path, "re");
    if (!file)
        return false;
    const size_t n = ::fread(status, 1, sizeof status - 1, file);
    ::fclose(file);  // only read: nothing can be lost
    status[n] = '\0';
    // "PID (NAME) STATE ...", and the name may hold anything.
    const char* const name = ::strrchr(status, ')');
    return name && (name[1] == ' ') && (name[2] == 'Z' || name[2] == 'X');
}

/// Whether a child of this process has ended. It stays to be collected.
static bool hasEnded(int child)
{
    siginfo_t info = {};
    return ::waitid(P_PID, child, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == child;
}

/// When the machine was started, in seconds since the epoch.
static long long bootTime()
{
    struct timespec sinceBoot, now;
    ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec - sinceBoot.tv_sec - 1;  // rounded down: never later than it was
}

static bool contains(UtDArray<int>& pids, int pid)
{
    for (long i = 0; i < pids.size(); ++i) {
        if (pids[i] == pid)
            return true;
    }
    return false;
}

bool ZoJobList::isLost(int pid, long long startTime)
{
    if (contains(children, pid))
        return hasEnded(pid);
    return startTime < bootTime() || (isGone(pid) && contains(missing, pid));
}

bool ZoJobList::hasLostJobs()
{
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == ZoJob::RUNNING && isLost(jobs[i]->pid, jobs[i]->startTime))
            return true;
    }
    // The running job may have been removed from the queue.
    return !isRunning() && (lastChild < 1 || isLost(lastChild, LLONG_MAX));
}

void ZoJobList::noteMissing()
{
    missing.resize(0);
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == ZoJob::RUNNING && isGone(jobs[i]->pid))
            missing.append(jobs[i]->pid);
    }
    if (lastChild > 0 && isGone(lastChild))
        missing.append(lastChild);
}

int ZoJobList::endLostJobs()
{
    if (!hasLostJobs()) {
        noteMissing();
        return 0;
    }
    lockQueue();
    readQueue(jobs);
    int ended = 0;
    for (long i = 0; i < jobs.size(); ++i) {
        UtHandle<ZoJob> job = jobs[i];
        if (job->state != ZoJob::RUNNING || !isLost(job->pid, job->startTime))
            continue;
        log("job child %d is gone, job %lld is marked as killed\n", job->pid, job->id);
        job->state = ZoJob::KILLED;
        job->endTime = ::time(nullptr);
        ended = 1;
    }
    if (ended)
        writeQueue(jobs);
    unlockQueue();
    noteMissing();
    return !isRunning();
}
