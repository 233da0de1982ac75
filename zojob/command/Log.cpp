#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "jobs/JobWatch.h"
#include "zojob/Report.h"
#include "zojob/command/Commands.h"
#include "zojob/view/Text.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

static const std::size_t CHUNK = 65536;
static const double LOOK = 0.2;  // seconds between two looks at a log that is being followed
static const double POLL = 1;    // seconds between two questions to the server meanwhile

/// The output file of a job, read as it grows.
class JobLog
{
public:
    explicit JobLog(const ZoJob& job) : path(str(job.directory) + "/log")
    {
        // The server's first line repeats the command, which of zojob's own jobs says nothing.
        if (job.command == PrivateDirectory::COMMAND)
            start = std::string("Starting \"") + PrivateDirectory::COMMAND + "\"\n";
    }

    ~JobLog()
    {
        if (fd >= 0)
            ::close(fd);
    }
    JobLog(const JobLog&) = delete;
    JobLog& operator=(const JobLog&) = delete;

    /// Opens the file unless it is open; false while it does not exist.
    bool open();

    /// Leaves out all but the last lines.
    void skipToLast(long lines);

    /// Copies what has come since to standard output; false when nothing can be written any more.
    bool copy();

private:
    void skipStart();
    ssize_t readAt(char* buffer, std::size_t size, off_t offset) const;

    std::string path;
    std::string start;  // at the head of the file, not shown
    int fd = -1;
    off_t position = 0;
};

bool JobLog::open()
{
    if (fd < 0)
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0 && errno != ENOENT)
        throw Failure{ REFUSED, withReason("cannot read " + path) };
    return fd >= 0;
}

ssize_t JobLog::readAt(char* buffer, std::size_t size, off_t offset) const
{
    const ssize_t n = ::pread(fd, buffer, size, offset);
    if (n < 0)
        throw Failure{ REFUSED, withReason("cannot read " + path) };
    return n;
}

void JobLog::skipStart()
{
    std::string head(start.size(), '\0');
    if (position == 0 && !start.empty() &&
        readAt(&head[0], head.size(), 0) == (ssize_t)head.size() && head == start)
        position = start.size();
}

void JobLog::skipToLast(long lines)
{
    struct stat status;
    char last = 0;
    skipStart();
    if (::fstat(fd, &status) != 0)
        throw Failure{ REFUSED, withReason("cannot read " + path) };
    off_t end = status.st_size;
    if (end <= position || readAt(&last, 1, end - 1) != 1)
        return;
    // The line end at the very end of the file begins no line.
    long wanted = lines + (last == '\n');
    std::vector<char> buffer(CHUNK);
    while (wanted > 0 && end > position) {
        const off_t from = std::max<off_t>(position, end - CHUNK);
        for (ssize_t i = readAt(buffer.data(), end - from, from) - 1; i >= 0 && wanted > 0; --i)
            if (buffer[i] == '\n' && --wanted == 0)
                end = from + i + 1;
        if (wanted > 0)
            end = from;
    }
    position = end;
}

bool JobLog::copy()
{
    std::vector<char> buffer(CHUNK);
    skipStart();
    for (;;) {
        const ssize_t n = readAt(buffer.data(), buffer.size(), position);
        if (n == 0)
            return flushPrinted();
        print(std::string(buffer.data(), n));
        if (printError() != 0)
            return false;
        position += n;
    }
}

/// The job whose output is meant when none is named: the running one, else the one run last.
static JobHandle lastRun(const Jobs& jobs)
{
    JobHandle last = runningJob(jobs);
    if (last)
        return last;
    for (const JobHandle& job : jobs)
        if (job->startTime && (!last || job->startTime >= last->startTime))
            last = job;
    if (!last)
        throw Failure{ REFUSED, "no job has run yet: 'zojob run' runs the waiting ones" };
    return last;
}

static int followLog(const Server& server, const Jobs& jobs, const JobHandle& job, long lines)
{
    Watch watch(server, jobs, { job });
    JobLog log(*job);
    bool opened = false;
    double polled = 0;
    announceInterrupt(watch.targets);
    for (bool ended = false; !ended; watch.pause(LOOK)) {
        if (secondsNow() - polled >= POLL) {
            watch.poll();
            watch.noteStuck();
            polled = secondsNow();
        }
        ended = watch.allEnded();  // what comes after this look is not the job's any more
        if (!log.open())
            continue;
        if (!opened && lines >= 0)
            log.skipToLast(lines);
        opened = true;
        if (!log.copy())
            return DONE_WELL;  // main finds out why
    }
    if (watch.targets[0].removed)
        throw Failure{ REFUSED, "job " + watch.targets[0].name + " was removed before it ended" };
    return DONE_WELL;
}

int logCommand(const Options& options)
{
    const Server server(options);
    const Jobs jobs = server.list();
    const JobHandle job = options.jobs.empty() ? lastRun(jobs) : findJob(jobs, options.jobs[0]);
    if (options.follow)
        return followLog(server, jobs, job, options.lines);
    JobLog log(*job);
    if (!log.open())
        throw Failure{ REFUSED, "job " + jobName(jobs, *job) + " has no output: it is " +
                                    stateName(*job) + ", and there is no file log in " +
                                    str(job->directory) };
    if (options.lines >= 0)
        log.skipToLast(options.lines);
    (void)log.copy();  // main finds out why it could not
    return DONE_WELL;
}
