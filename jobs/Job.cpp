#include "jobs/Job.h"

#include "jobs/JobDirectory.h"
#include "jobs/Text.h"
#include "schedule/ZoJobChildren.h"
#include "schedule/ZoJobDirectory.h"
#include "schedule/ZoProcessTree.h"

#include <algorithm>
#include <chrono>
#include <csignal>

const int STATES[JOB_STATES] = { ZoJob::WAITING, ZoJob::RUNNING, ZoJob::DONE, ZoJob::KILLED };
const char* const STATE_NAMES[JOB_STATES] = { "waiting", "running", "done", "killed" };

static const int KILLED_STATUS = 128 + SIGTERM;  // what a shell says of a command ended so

Job::Job(const ZoJob& record)
    : state(record.state),
      command(str(record.command)),
      description(str(record.description)),
      directory(str(record.directory)),
      id(record.id),
      startTime(record.startTime),
      endTime(record.endTime),
      reserved(record.reserved),
      pid(record.pid)
{
}

/// The largest run time, for what a damaged record says; a number that a long long can hold.
static const double MOST_SECONDS = 9e18;

UtHandle<ZoJob> Job::record() const
{
    const UtHandle<ZoJob> result = new ZoJob;
    result->id = id;
    result->directory = directory.c_str();
    return result;
}

long long Job::runTime() const
{
    const double now = 1e-6 * (double)std::chrono::duration_cast<std::chrono::microseconds>(
                                  std::chrono::system_clock::now().time_since_epoch())
                                  .count();
    double start = (double)startTime, end = isRunning() ? now : (double)endTime;
    const JobDirectory files(*this);
    if (cluster.id.empty() && files.startTime() > 0) {
        start = files.startTime();
        if (files.endTime() > 0 && state != ZoJob::KILLED)
            end = files.endTime();
    }
    return startTime ? (long long)std::clamp(end - start, 0.0, MOST_SECONDS) : 0;
}

bool Job::hasLostItsId() const
{
    return isRunningHere() && pid > 0 && ::kill(pid, 0) == 0 &&
           !ZoJobChildren::isJobChild(pid, startTime) && !ZoJobDirectory::isHeld(record());
}

bool Job::isAbandoned() const
{
    if (!isRunningHere() || pid <= 0 || ZoJobDirectory::isHeld(record()))
        return false;
    return startTime < ZoProcessTree::bootTime() || ZoProcessTree::isGone(pid) || hasLostItsId();
}

std::string stateName(const Job& job)
{
    for (int i = 0; i < JOB_STATES; ++i)
        if (STATES[i] == job.state)
            return STATE_NAMES[i];
    return std::to_string(job.state);
}

int exitStatus(const Job& job)
{
    if (job.cluster.status >= 0)
        return job.cluster.status;
    const JobDirectory directory(job);
    if (job.state == ZoJob::KILLED)
        return directory.endedByItself() ? directory.recordedStatus() : KILLED_STATUS;
    return job.state == ZoJob::DONE ? directory.recordedStatus() : -1;
}
