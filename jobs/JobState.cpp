#include "jobs/JobState.h"

#include "jobs/JobDirectory.h"

const char* const JOB_STATE_NAMES[JOB_STATE_COUNT] = {
    "waiting", "running", "done", "failed", "timed out", "skipped", "killed", "cancelled"
};

/// The state of a job that its own script has ended, and not with 0.
static JobState endState(const Job& job)
{
    const std::string outcome = JobDirectory(job).end().outcome;
    if (outcome == "timeout")
        return JobState::TIMED_OUT;
    if (outcome == "skipped")
        return JobState::SKIPPED;
    if (outcome == "cancelled")
        return JobState::CANCELLED;
    return JobState::FAILED;
}

JobState jobState(const Job& job)
{
    const JobDirectory directory(job);
    if (job.isWaiting())
        return directory.isCancelled() ? JobState::CANCELLED : JobState::WAITING;
    if (job.isRunning())
        return JobState::RUNNING;
    if (job.state == ZoJob::KILLED && !directory.endedByItself())
        return JobState::KILLED;
    if (exitStatus(job) == 0 || !directory.hasScript())
        return JobState::DONE;
    return endState(job);
}

bool hasFailed(const Job& job)
{
    if (!job.hasEnded())
        return false;
    const JobState state = jobState(job);
    return state == JobState::FAILED || state == JobState::TIMED_OUT || state == JobState::SKIPPED;
}
