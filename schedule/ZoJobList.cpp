#include "schedule/ZoJobList.h"

#include "schedule/ZoDisk.h"
#include "schedule/ZoIdentity.h"
#include "schedule/ZoJobChild.h"
#include "schedule/ZoJobChildren.h"
#include "schedule/ZoJobDirectory.h"
#include "schedule/ZoJobGate.h"
#include "schedule/ZoProcessTree.h"
#include "schedule/ZoQueueBracket.h"
#include "schedule/ZoQueueFile.h"
#include "schedule/ZoQueueText.h"
#include "utlib/UtTmpDir.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static const int DIRECTORY_MODE = 0775;
static const int MARKER_MODE = 0664;
static const int LOG_FILE_MODE = 0600;  // commands stand in it

UtFilename ZoJobList::logFile;

ZoJobList::ZoJobList()
    : queueFile(new ZoQueueFile(homeDirectory, hostName)), children(new ZoJobChildren)
{
    ZoIdentity::hostName(hostName);
    ZoIdentity::userAndHome(user, homeDirectory);
    readQueue(jobs);
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == ZoJob::RUNNING)
            children->setLast(jobs[i]->pid, jobs[i]->startTime);
    }
}

ZoJobList::~ZoJobList()
{
    delete children;
    delete queueFile;
}

/// 1 if one of the jobs is in the state, else 0.
static int hasState(UtDArray<UtHandle<ZoJob>>& jobs, int state)
{
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == state)
            return 1;
    }
    return 0;
}

int ZoJobList::isRunning()
{
    return hasState(jobs, ZoJob::RUNNING);
}

int ZoJobList::hasWaitingJobs()
{
    return hasState(jobs, ZoJob::WAITING);
}

UtHandle<ZoJob> ZoJobList::find(UtHandle<ZoJob> job, UtDArray<UtHandle<ZoJob>>& inJobs)
{
    for (long i = 0; i < inJobs.size(); ++i) {
        if (inJobs[i]->id == job->id && inJobs[i]->directory == job->directory)
            return inJobs[i];
    }
    return UtHandle<ZoJob>();
}

void ZoJobList::submit(const char* command, const char* description, const char* directory)
{
    UtHandle<ZoJob> job = new ZoJob;
    job->command = command;
    job->description = description;
    job->directory = directory;
    job->id = ::time(nullptr);
    job->state = ZoJob::WAITING;
    const bool isFresh = job->directory.length() == 0;
    if (isFresh) {
        UtTmpDir fresh("kelvojob", false, false);
        fresh.create(DIRECTORY_MODE);  // without one there is no marker, and the job is dropped
        job->directory = fresh;
    }
    if (job->directory.length() > 0) {
        UtString path;
        UtFilename marker;
        ZoJobDirectory::formatMarker(path, job);
        marker = path;
        marker.create(MARKER_MODE);  // without it the next load drops the job
        ZoDisk::syncPath(marker);
        ZoDisk::syncPath(job->directory);
        if (isFresh)
            ZoDisk::syncParent(job->directory);
    }
    const ZoQueueBracket bracket(*this);
    jobs.append(job);
    writeQueue(jobs);
}

int ZoJobList::remove(UtHandle<ZoJob> job)
{
    UtHandle<ZoJob> found;
    {
        const ZoQueueBracket bracket(*this);
        found = find(job, jobs);
        if (!found)
            return -1;
        long i = 0;
        while (!utStandardEqual(jobs[i], found))
            ++i;
        jobs.remove(i, 1);
        writeQueue(jobs);
    }
    ZoJobDirectory::remove(found, homeDirectory);
    return 0;
}

void ZoJobList::remove(UtDArray<UtHandle<ZoJob>>& many)
{
    UtDArray<UtHandle<ZoJob>> removed, kept;
    {
        const ZoQueueBracket bracket(*this);
        for (long i = 0; i < jobs.size(); ++i) {
            const bool goes = jobs[i]->state != ZoJob::RUNNING && find(jobs[i], many);
            (goes ? removed : kept).append(jobs[i]);
        }
        jobs.resize(0);
        for (long i = 0; i < kept.size(); ++i)
            jobs.append(kept[i]);
        writeQueue(jobs);
    }
    for (long i = 0; i < removed.size(); ++i)
        ZoJobDirectory::remove(removed[i], homeDirectory);
}

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
    const ZoQueueBracket bracket(*this);
    job = choose(*this, job);
    if (!job || job->state != ZoJob::WAITING)
        return -1;
    // Started without a record, it would be waiting at the next load and be run again and again.
    ZoJobGate gate;
    if (!gate.isOpened() || queueFile->prepare() != 0) {
        log("the queue cannot be saved, no job is started: %s\n", ::strerror(errno));
        return -1;
    }
    job->state = ZoJob::RUNNING;
    job->startTime = ::time(nullptr);
    log("forking child process\n");
    ::fflush(nullptr);  // what is buffered now would be written by both processes
    job->pid = ::fork();
    if (job->pid == 0)
        ZoJobChild::live(*this, job, gate);
    if (job->pid > 0) {
        children->add(job->pid, job->startTime);
        if (save() == 0) {
            gate.letIn();
            return 1;
        }
        log("the queue could not be saved, job %lld is not started\n", job->id);
    }
    job->state = ZoJob::WAITING;
    job->startTime = 0;
    job->pid = -1;
    return -1;
}

/// Marks the running jobs as killed.
static void endRunningJobs(UtDArray<UtHandle<ZoJob>>& jobs, UtDArray<UtHandle<ZoJob>>& ended)
{
    for (long i = 0; i < jobs.size(); ++i) {
        UtHandle<ZoJob> job = jobs[i];
        if (job->state != ZoJob::RUNNING)
            continue;
        job->state = ZoJob::KILLED;
        job->endTime = ::time(nullptr);
        ended.append(job);
    }
}

int ZoJobList::kill()
{
    UtDArray<UtHandle<ZoJob>> killed;
    {
        // KILLED is saved before the first signal: a crash must not leave it RUNNING.
        const ZoQueueBracket bracket(*this);
        endRunningJobs(jobs, killed);
        if (save() != 0)
            for (long i = 0; i < killed.size(); ++i)
                unsavedKills.append(killed[i]);
    }
    ZoProcessTree tree;
    for (long i = 0; i < killed.size(); ++i)
        if (killed[i]->pid >= 1)  // others stand for whole groups of processes
            tree.terminate(killed[i]->pid);
    return killed.size() > 0;
}

void ZoJobList::saveKills()
{
    if (unsavedKills.size() == 0)
        return;
    const ZoQueueBracket bracket(*this);
    for (long i = 0; i < unsavedKills.size(); ++i) {
        UtHandle<ZoJob> killed = unsavedKills[i], job = find(killed, jobs);
        if (!job || job->state != ZoJob::RUNNING || job->pid != killed->pid)
            continue;
        job->state = ZoJob::KILLED;
        job->endTime = killed->endTime;
    }
    if (save() == 0)
        unsavedKills.resize(0);
}

bool ZoJobList::hasLivingChild()
{
    return children->haveLiving(jobs);
}

void ZoJobList::reapChildren()
{
    children->reap(jobs);
}

bool ZoJobList::hasLostJobs()
{
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == ZoJob::RUNNING && children->isLost(jobs[i]))
            return true;
    }
    // The running job may have been removed from the queue.
    return !isRunning() && children->isLastLost();
}

void ZoJobList::markLostJobs()
{
    const ZoQueueBracket bracket(*this);
    int ended = 0;
    for (long i = 0; i < jobs.size(); ++i) {
        UtHandle<ZoJob> job = jobs[i];
        if (job->state != ZoJob::RUNNING || !children->isLost(job))
            continue;
        log("job child %d is gone, job %lld is marked as killed\n", job->pid, job->id);
        job->state = ZoJob::KILLED;
        job->endTime = ::time(nullptr);
        ended = 1;
    }
    if (ended)
        writeQueue(jobs);
}

int ZoJobList::endLostJobs()
{
    const bool isLost = hasLostJobs();
    if (isLost)
        markLostJobs();
    children->noteMissing(jobs);
    return isLost && !isRunning();
}

void ZoJobList::readQueue(UtDArray<UtHandle<ZoJob>>& intoJobs)
{
    UtString space;
    if (const UtString* const text = queueFile->read(space))
        ZoQueueText::read(*text, intoJobs);
}

void ZoJobList::readQueue(UtString text, UtDArray<UtHandle<ZoJob>>& intoJobs)
{
    ZoQueueText::read(text, intoJobs);
}

void ZoJobList::writeQueue(UtString& text, UtDArray<UtHandle<ZoJob>>& ofJobs)
{
    ZoQueueText::write(text, ofJobs);
}

void ZoJobList::writeQueue(UtDArray<UtHandle<ZoJob>>& ofJobs)
{
    UtString text;
    ZoQueueText::write(text, ofJobs);
    queueFile->write(text);  // a save that fails leaves the file as it was, and is not reported
}

int ZoJobList::save()
{
    UtString text;
    ZoQueueText::write(text, jobs);
    return queueFile->write(text);
}

void ZoJobList::update()
{
    const ZoQueueBracket bracket(*this);
}

void ZoJobList::lockQueue()
{
    queueFile->lock();
}

void ZoJobList::unlockQueue()
{
    queueFile->unlock();
}

void ZoJobList::leaveBracket()
{
    queueFile->forget();
}

/// Opens the log file, and makes it where it is not there, for this user only. Another user's file,
/// and what a link leads to, stays as it is; a pipe is not waited for. Returns null then.
static FILE* openLogFile(const char* path)
{
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const int fd = ::open(path, flags, LOG_FILE_MODE);
    struct stat status;
    if (fd < 0)
        return nullptr;
    const bool isOurs =
        ::fstat(fd, &status) == 0 && (!S_ISREG(status.st_mode) || status.st_uid == ::geteuid());
    FILE* const file = isOurs ? ::fdopen(fd, "a") : nullptr;
    if (!file)
        ::close(fd);
    return file;
}

void ZoJobList::log(const char* format, ...)
{
    FILE* const file = logFile.length() < 1 ? nullptr : openLogFile(logFile);
    if (!file)
        return;
    const time_t now = ::time(nullptr);
    struct tm local = {};
    ::localtime_r(&now, &local);
    ::fprintf(file, "%02d:%02d.%02d %6d: ", local.tm_hour, local.tm_min, local.tm_sec,
              (int)::getpid());
    va_list arguments;
    va_start(arguments, format);
    ::vfprintf(file, format, arguments);
    va_end(arguments);
    ::fclose(file);  // a log line that cannot be written is lost; the caller carries on
}
