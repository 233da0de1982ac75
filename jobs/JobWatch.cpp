#include "jobs/JobWatch.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
#include "zojob/Report.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <unistd.h>

// All in seconds.
static const double FIRST_INTERVAL = 0.2;
static const double LAST_INTERVAL = 1;
static const double GROWTH = 1.2;
static const double GIVE_UP = 30;  // without a server; it is started anew at most once in 11
// A server finds out about a job child that died without a word only after 30 seconds without any
// request. So whoever has seen nothing happen for long enough is quiet for that long: early where
// the job's own files say that it has ended, late where there are none to see its end in meanwhile;
// and then asks as often as before, or it would hear of the end half a minute late.
static const double PATIENCE_AFTER_END = 5;
static const double PATIENCE = 60;
static const double PATIENCE_BLIND = 300;
static const double QUIET = 31;

static const int MISSES = 3;  // a list that broke off is short; three in a row are the truth
static const int IDLE = 3;    // between two jobs of one run there is no idle moment, so few do

double secondsNow()
{
    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec + now.tv_nsec / 1e9;
}

void sleepSeconds(double seconds)
{
    struct timespec time;
    time.tv_sec = (time_t)seconds;
    time.tv_nsec = (long)((seconds - time.tv_sec) * 1e9);
    ::nanosleep(&time, nullptr);
}

Watch::Watch(const Server& asked, const Jobs& jobsOfQueue, const Jobs& jobs)
    : queue(jobsOfQueue), server(asked), interval(FIRST_INTERVAL)
{
    reached = changed = secondsNow();
    for (const JobHandle& job : jobs) {
        Target target;
        target.job = job;
        target.name = jobName(queue, *job);
        targets.push_back(target);
    }
}

double Watch::patience() const
{
    double seconds = PATIENCE;
    for (const Target& target : targets) {
        if (!target.ended && target.sign)
            return PATIENCE_AFTER_END;
        if (!(target.job->command == PrivateDirectory::COMMAND))
            seconds = PATIENCE_BLIND;
    }
    return seconds;
}

void Watch::noteChange()
{
    changed = secondsNow();
    interval = FIRST_INTERVAL;
}

bool Watch::askServer()
{
    const double now = secondsNow();
    if (now - changed > patience()) {
        if (now - reached < QUIET)
            return false;
        changed = now;  // the server has had its time to look
    }
    const bool wasRunning = runningJob(queue);
    if (server.tryList(queue)) {
        reached = secondsNow();
        if (wasRunning != (bool)runningJob(queue))
            noteChange();
        idle = runningJob(queue) ? 0 : idle + 1;
        lost = false;
        return true;
    }
    lost = true;
    if (secondsNow() - reached > GIVE_UP + QUIET)
        server.fail();
    return false;
}

void Watch::update(Target& target, bool fresh)
{
    const int before = target.job->state;
    const JobHandle found = fresh ? sameJob(queue, *target.job) : JobHandle();
    if (found) {
        target.job = found;
        target.misses = 0;
    } else if (fresh && ++target.misses >= MISSES) {
        target.ended = target.removed = true;
    }
    // On another machine the process is not to be seen here, and only the status tells something.
    const int sign = PrivateDirectory::hasReturned(*target.job) ? 2
                     : PrivateDirectory::isGone(*target.job)    ? 1
                                                                : 0;
    if (sign != target.sign || target.job->state != before) {
        target.sign = sign;
        noteChange();
    }
    if (lost && PrivateDirectory::hasReturned(*target.job))
        target.job->state = ZoJob::DONE;  // as the queue has it already, or in a moment
    if (target.job->state == ZoJob::DONE || target.job->state == ZoJob::KILLED)
        target.ended = true;
}

void Watch::poll()
{
    const bool fresh = askServer();
    for (Target& target : targets)
        if (!target.ended)
            update(target, fresh);
}

bool Watch::allEnded() const
{
    return std::all_of(targets.begin(), targets.end(), [](const Target& t) { return t.ended; });
}

bool Watch::isStuck() const
{
    const auto waits = [](const Target& t) { return !t.ended && t.job->state == ZoJob::WAITING; };
    return idle >= IDLE && std::any_of(targets.begin(), targets.end(), waits);
}

void Watch::pause(double limit)
{
    sleepSeconds(std::min(interval, limit));
    interval = std::min(interval * GROWTH, LAST_INTERVAL);
}

void Watch::noteStuck()
{
    if (noted || !isStuck())
        return;
    noted = true;
    note("no job is running, so the waiting ones stay waiting until 'zojob run' starts them");
}

static char lastWords[512];

static void sayAndEnd(int)
{
    // Nothing can be done about a failure to write, and the message is short.
    (void)!::write(STDERR_FILENO, lastWords, std::strlen(lastWords));
    ::_exit(INTERRUPTED);
}

void announceInterrupt(const std::vector<Watch::Target>& targets)
{
    const std::string one = targets.size() == 1 ? " " + targets[0].name : "";
    std::snprintf(lastWords, sizeof lastWords,
                  "%szojob: interrupted; what was waited for goes on: 'zojob wait%s' waits again, "
                  "'zojob kill%s' ends it\n",
                  ::isatty(STDERR_FILENO) ? "\r\033[K" : "", one.c_str(), one.c_str());
    if (std::signal(SIGINT, sayAndEnd) == SIG_IGN)
        std::signal(SIGINT, SIG_IGN);
}
