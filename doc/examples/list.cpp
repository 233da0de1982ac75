// list INSTALLATION: shows the queue.
#include <schedule/ZoSchedule.h>

#include <cstdio>

static const char* nameOf(int state)
{
    switch (state) {
    case ZoJob::WAITING:
        return "waiting";
    case ZoJob::RUNNING:
        return "running";
    case ZoJob::DONE:
        return "done";
    case ZoJob::KILLED:
        return "killed";
    default:
        return "?";
    }
}

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    UtDArray<UtHandle<ZoJob>> jobs;  // the only holder of its jobs: they go when it goes
    if (ZoScheduleJobList(ZoScheduleOpen(nullptr, argv[1], "", ""), jobs) < 0) {
        std::fprintf(stderr, "no job server\n");
        return 1;
    }
    for (long i = 0; i < jobs.size(); ++i) {
        const ZoJob* job = jobs[i];
        // A UtString in a printf-style call must be cast.
        std::printf("%lld %s %lld s %s\n", job->id, nameOf(job->state), job->runTime(),
                    (const char*)job->command);
    }
    return 0;
}
