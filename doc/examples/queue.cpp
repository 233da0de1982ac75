// queue INSTALLATION COMMAND: queues a shell command, starts the queue and shows it.
#include <schedule/ZoSchedule.h>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    // Every request has a connection of its own, which ends here with the program. The first one
    // starts the server if there is none.
    const auto connection = [&] { return ZoScheduleOpen(nullptr, argv[1], "", ""); };
    if (ZoScheduleJobSubmit(connection(), argv[2], "from an application", nullptr) != 0) {
        std::fprintf(stderr, "no job server, or the job was refused\n");
        return 1;
    }
    if (ZoScheduleJobRun(connection(), nullptr) != 0)
        std::fprintf(stderr, "not started: another job is running\n");

    UtDArray<UtHandle<ZoJob>> jobs;
    ZoScheduleJobList(connection(), jobs);
    for (long i = 0; i < jobs.size(); ++i)
        std::printf("%d %s\n", jobs[i]->state, (const char*)jobs[i]->command);
    return 0;
}
