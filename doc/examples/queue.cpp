// queue INSTALLATION COMMAND: queues a shell command, starts the queue and shows it.
#include <schedule/ZoSchedule.h>

#include <cstdio>
#include <unistd.h>

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    int fd = ZoScheduleOpen(nullptr, argv[1], "", "");  // starts the server if there is none
    if (fd < 0 || ZoScheduleJobSubmit(fd, argv[2], "from an application", nullptr) != 0) {
        std::fprintf(stderr, fd < 0 ? "no job server\n" : "the job was refused\n");
        return 1;
    }
    close(fd);

    fd = ZoScheduleOpen(nullptr, argv[1], "", "");  // every request has a connection of its own
    if (ZoScheduleJobRun(fd, nullptr) != 0)
        std::fprintf(stderr, "not started: another job is running\n");
    if (fd >= 0)
        close(fd);

    UtDArray<UtHandle<ZoJob>> jobs;
    ZoScheduleJobList(ZoScheduleOpen(nullptr, argv[1], "", ""), jobs);
    for (long i = 0; i < jobs.size(); ++i)
        std::printf("%d %s\n", jobs[i]->state, (const char*)jobs[i]->command);
    return 0;
}
