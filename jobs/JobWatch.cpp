#include "jobs/JobWatch.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/JobName.h"

#include <algorithm>

// All in seconds.
static const double REREAD = 5;      // a job whose marker has gone leaves the queue without a sign
static const double BETWEEN = 2;     // a server pauses for one between two jobs
static const double GIVE_UP = 30;    // without a server on another machine
static const double ABANDONED = 5;   // for so long before a server is asked for
static const double ASK_AGAIN = 30;  // a server looks for ended processes that often

JobWatch::JobWatch(const Server& server) : watch(server)
{
    queue = watch.read();
    readAt = ranAt = secondsNow();
}

/// False when nobody answered, which is no news.
bool JobWatch::readQueue()
{
    try {
        queue = watch.read();
    } catch (const JobError&) {
        isLost = !watch.server.isThisMachine();
        if (!isLost || secondsNow() - readAt > GIVE_UP)
            throw;
        return false;
    }
    isLost = false;
    readAt = secondsNow();
    return true;
}

void JobWatch::update(Target& target)
{
    if (const Job* const found = queue.find(target.job))
        target.job = *found;
    else
        target.hasEnded = target.wasRemoved = true;
    target.hasEnded = target.hasEnded || target.job.hasEnded();
}

void JobWatch::follow(const std::vector<Job>& jobs)
{
    for (const Job& job : jobs) {
        Target target;
        target.job = job;
        target.name = jobName(queue, job);
        update(target);
        targets.push_back(target);
    }
}

/// Brings the detached targets up to date, whose ends no queue tells.
void JobWatch::lookAtCluster()
{
    std::vector<Job> detached;
    for (Target& target : targets) {
        if (target.hasEnded || !target.job.isDetached)
            continue;
        readCluster(target.job);
        target.hasEnded = target.job.hasEnded();
        if (!target.hasEnded)
            detached.push_back(target.job);
    }
    question.ask(detached);
}

/// Whether the process of the running job, a target or what the targets wait for, has gone, so that
/// only a server can end its record.
static bool needsServer(const Queue& queue)
{
    if (const Job* const running = queue.running())
        return running->isAbandoned();
    return queue.trouble.empty() && std::any_of(queue.jobs.begin(), queue.jobs.end(),
                                                [](const Job& job) { return job.isUnsaved; });
}

void JobWatch::endAbandoned()
{
    const double now = secondsNow();
    if (allEnded() || !needsServer(queue)) {
        abandonedSince = 0;
        return;
    }
    if (abandonedSince == 0)
        abandonedSince = now;
    if (now - abandonedSince < ABANDONED)
        return;
    watch.server.ensure();
    abandonedSince = now + ASK_AGAIN - ABANDONED;
}

void JobWatch::look()
{
    const bool isDue = watch.hasChanged() || secondsNow() - readAt >= REREAD;
    if (isDue && readQueue())
        for (Target& target : targets)
            if (!target.hasEnded)
                update(target);
    if (queue.running())
        ranAt = secondsNow();
    for (Target& target : targets)
        if (isLost && !target.hasEnded && JobDirectory(target.job).recordedStatus() >= 0) {
            target.job.state = ZoJob::DONE;  // as its queue has it already, or in a moment
            target.hasEnded = true;
        }
    lookAtCluster();
    endAbandoned();
}

bool JobWatch::allEnded() const
{
    return std::all_of(targets.begin(), targets.end(), [](const Target& t) { return t.hasEnded; });
}

bool JobWatch::isStuck() const
{
    const auto waits = [](const Target& t) { return !t.hasEnded && t.job.isWaiting(); };
    return secondsNow() - ranAt >= BETWEEN && std::any_of(targets.begin(), targets.end(), waits);
}
