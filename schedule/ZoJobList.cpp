#include "schedule/ZoJobList.h"

#include "schedule/ZoIdentity.h"
#include "utlib/UtTmpDir.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

static const int DIRECTORY_MODE = 0775;
static const int MARKER_MODE = 0664;

UtFilename ZoJobList::logFile;

ZoJobList::ZoJobList()
{
    ZoIdentity::hostName(hostName);
    ZoIdentity::userAndHome(user, homeDirectory);
    readQueue(jobs);
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->state == ZoJob::RUNNING)
            lastChild = jobs[i]->pid;
    }
}

ZoJobList::~ZoJobList() = default;

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
    if (job->directory.length() == 0) {
        UtTmpDir fresh("kelvojob", false, false);
        fresh.create(DIRECTORY_MODE);  // without one there is no marker, and the job is dropped
        job->directory = fresh;
    }
    if (job->directory.length() > 0) {
        UtFilename marker;
        marker.printf("%s/.%lld", (const char*)job->directory, job->id);
        marker.create(MARKER_MODE);  // without it the next load drops the job
    }
    lockQueue();
    readQueue(jobs);
    jobs.append(job);
    writeQueue(jobs);
    unlockQueue();
}

/// Whether deleting the directory would take the whole file system or the home directory along.
static bool isDangerous(const char* directory, const char* home)
{
    char* const path = ::realpath(directory, nullptr);
    char* const homePath = ::realpath(home, nullptr);
    bool result = false;
    if (path) {
        const char* const kept = homePath ? homePath : home;
        const size_t n = ::strlen(path);
        result = n == 1 || (::strncmp(kept, path, n) == 0 && (!kept[n] || kept[n] == '/'));
    }
    ::free(path);
    ::free(homePath);
    return result;
}

/// Deletes the directory of a job that has left the queue. What cannot be deleted stays: the job
/// has gone either way.
static void removeDirectory(UtHandle<ZoJob> job, const char* home)
{
    UtFilename marker;
    marker.printf("%s/.%lld", (const char*)job->directory, job->id);
    if (!marker.doesExist())
        return;
    if (isDangerous(job->directory, home)) {
        ::unlink(marker);
        return;
    }
    UtTmpDir directory("foo", false, false);
    directory = job->directory;
    directory.remove();
}

int ZoJobList::remove(UtHandle<ZoJob> job)
{
    lockQueue();
    readQueue(jobs);
    UtHandle<ZoJob> found = find(job, jobs);
    if (!found) {
        unlockQueue();
        return -1;
    }
    long i = 0;
    while (!utStandardEqual(jobs[i], found))
        ++i;
    jobs.remove(i, 1);
    writeQueue(jobs);
    unlockQueue();
    removeDirectory(found, homeDirectory);
    return 0;
}

void ZoJobList::log(const char* format, ...)
{
    if (logFile.length() < 1)
        return;
    FILE* const file = ::fopen(logFile, "ae");
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
