// submit INSTALLATION COMMAND: runs a shell command as a batch job and shows what it printed.
#include <schedule/ZoSchedule.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

static const char* installation;

// Every request needs a connection of its own. -1: nobody answers, and no server can be started.
static int connection()
{
    return ZoScheduleOpen(nullptr, installation, "", "");
}

// A request leaves its connection open.
static bool succeeds(int fd, int result)
{
    if (fd >= 0)
        close(fd);
    return result == 0;
}

// The job that was submitted with this directory; a null handle when the queue does not hold it.
static UtHandle<ZoJob> findJob(const char* directory)
{
    UtDArray<UtHandle<ZoJob>> jobs;
    ZoScheduleJobList(connection(), jobs);  // closes its connection itself
    for (long i = 0; i < jobs.size(); ++i) {
        if (jobs[i]->directory == directory)
            return jobs[i];
    }
    return nullptr;
}

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    installation = argv[1];
    const char* command = argv[2];

    // A directory of our own: the queue names a job by its id and its directory.
    char directory[] = "/var/tmp/exampleXXXXXX";
    if (!mkdtemp(directory))
        return 1;
    int fd = connection();
    if (!succeeds(fd, ZoScheduleJobSubmit(fd, command, "an example", directory))) {
        std::fprintf(stderr, fd < 0 ? "no job server\n" : "the server took no job\n");
        rmdir(directory);
        return 1;
    }

    UtHandle<ZoJob> job = findJob(directory);
    fd = connection();
    if (!job || !succeeds(fd, ZoScheduleJobRun(fd, job))) {
        std::fprintf(stderr, "queued, but another job is running\n");
        return 1;
    }
    while (job && (job->state == ZoJob::WAITING || job->state == ZoJob::RUNNING)) {
        sleep(1);
        job = findJob(directory);
    }

    std::FILE* log = std::fopen((std::string(directory) + "/log").c_str(), "r");
    for (int c; log && (c = std::getc(log)) != EOF;)
        std::putchar(c);
    if (log)
        std::fclose(log);

    fd = connection();
    return job && succeeds(fd, ZoScheduleJobRemove(fd, job)) ? 0 : 1;  // deletes the directory
}
