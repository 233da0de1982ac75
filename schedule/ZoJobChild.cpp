#include "schedule/ZoJobChild.h"

#include "schedule/ZoClient.h"
#include "schedule/ZoJobDirectory.h"
#include "schedule/ZoProcess.h"
#include "schedule/ZoQueueBracket.h"
#include "utlib/UtDirectory.h"
#include "utlib/UtSocket.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/// Between the command's end and its record, when the server has answered the run request, and
/// between two tries to save that.
static const int PAUSE_SECONDS = 1;

/// Sends output to "log" in the job's directory, or nowhere if that cannot be opened: without the
/// descriptor, the next file that the command opens would get its number and be taken for output.
/// Without that directory output goes where the server's goes.
static void redirectOutput(const char* directory)
{
    if (!UtDirectory::isDirectory(directory))
        return;
    const int log = ZoJobDirectory::openLog(directory);
    const int fd = log >= 0 ? log : ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::fflush(stdout);
    ::dup2(fd, STDOUT_FILENO);
    ::dup2(fd, STDERR_FILENO);
    ::close(fd);
}

/// Waits for the shell's end. What the command has orphaned comes to this process, so that a kill
/// finds it; each of these that ends meanwhile is collected, or a long job would fill the system
/// with zombies. Returns the shell's status.
static int waitForShell(pid_t shell)
{
    for (;;) {
        int status;
        const pid_t ended = ::waitpid(-1, &status, 0);
        if (ended == shell || (ended < 0 && errno != EINTR))
            return ended == shell ? status : -1;
    }
}

/// Does what system() does, as the reaper of the command's processes. Returns the shell's status,
/// or -1 with errno set when there is no shell.
static int runShell(const char* command)
{
    const char* const words[] = { "sh", "-c", command, nullptr };
    posix_spawnattr_t attributes;
    sigset_t interrupts;
    ::sigemptyset(&interrupts);
    ::sigaddset(&interrupts, SIGINT);
    ::sigaddset(&interrupts, SIGQUIT);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setsigdefault(&attributes, &interrupts);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const sighandler_t interrupt = ::signal(SIGINT, SIG_IGN), quit = ::signal(SIGQUIT, SIG_IGN);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);  // fails nowhere: the call is older than this program
    pid_t shell;
    errno = ::posix_spawn(&shell, "/bin/sh", nullptr, &attributes, (char* const*)words, environ);
    const int status = errno == 0 ? waitForShell(shell) : -1;
    ::signal(SIGINT, interrupt);
    ::signal(SIGQUIT, quit);
    return status;
}

/// Runs the command in the job's directory, if that exists, and comes back: a directory in the
/// queue that is relative is so to where the server was started.
static void execute(UtHandle<ZoJob> job)
{
    const int start = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (UtDirectory::isDirectory(job->directory) && ::chdir(job->directory) != 0)
        ::perror(job->directory);
    if (runShell(job->command) == -1)
        ::perror("cannot start a shell");
    if (start < 0 || ::fchdir(start) != 0)
        ::perror("cannot return to the server's directory");
    ::close(start);
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
    return UtHandle<ZoJob>();
}

/// Whether the queue holds that this process runs the job.
static bool isRecorded(ZoJobList& list, UtHandle<ZoJob> job)
{
    const ZoQueueBracket bracket(list);
    job = findOwn(list, job);
    return job && job->state == ZoJob::RUNNING;
}

/// Saves that the job has ended, unless it was killed or removed. Returns 0, or -1 when the queue
/// cannot be saved.
static int recordEnd(ZoJobList& list, UtHandle<ZoJob> job, time_t end)
{
    const ZoQueueBracket bracket(list);
    job = findOwn(list, job);
    if (!job || job->state == ZoJob::KILLED)
        return 0;
    job->state = ZoJob::DONE;
    job->endTime = end;
    return list.save();
}

/// The same, as often as it takes: when the disk has room again, the job is to be found done and
/// not lost.
static void recordEndAtLast(ZoJobList& list, UtHandle<ZoJob> job)
{
    const time_t end = ::time(nullptr);
    if (recordEnd(list, job, end) == 0)
        return;
    ZoJobList::log("the job's end cannot be saved yet\n");
    do
        ZoProcess::pause(PAUSE_SECONDS);
    while (recordEnd(list, job, end) != 0);
}

/// Tells the server that the job has ended.
static void reportDone(ZoJobList& list)
{
    ZoJobList::log("job done, connecting to server\n");
    const int fd = ZoClient::connect(nullptr, list.port);
    if (fd < 0) {
        ZoJobList::log("connect failed\n");
        return;
    }
    UtString line;
    ZoProtocol::writeRequest(line, list.user, ZoProtocol::DONE);
    UtSocket::send(fd, "%s", (const char*)line);
    // The server closes the connection when it has handled the report; the answer says nothing new.
    // One that does not answer within the limit of the connection misses the report, and finds out
    // by its look for children that have ended.
    const long long deadline = UtSocket::receiveDeadline(fd);
    char buffer[4096];
    while (UtSocket::receiveUntil(fd, buffer, sizeof buffer, deadline) > 0)
        continue;
    UtSocket::close(fd);
}

void ZoJobChild::live(ZoJobList& list, UtHandle<ZoJob> job, ZoJobGate& gate)
{
    for (long i = 0; i < list.fdsToClose.size(); ++i)
        UtSocket::close(list.fdsToClose[i]);
    list.leaveBracket();
    ZoProcess::resetSignals();
    ZoProcess::closeDescriptorsOnExec();
    job->pid = ::getpid();
    if (!gate.pass() && !isRecorded(list, job)) {
        ZoJobList::log("not recorded as running, child exiting\n");
        ::_exit(0);
    }
    ZoJobDirectory::holdMarker(job);
    redirectOutput(job->directory);
    ::printf("Starting \"%s\"\n", (const char*)job->command);
    ::fflush(stdout);  // ahead of the command's own output
    ZoJobList::log("executing \"%s\" (pid = %d)\n", (const char*)job->command, (int)::getpid());
    execute(job);
    ::signal(SIGXFSZ, SIG_IGN);  // a file size limit must not end us before the record
    ZoProcess::pause(PAUSE_SECONDS);
    recordEndAtLast(list, job);
    reportDone(list);
    ZoJobList::log("child exiting\n");
    ::exit(0);
}
