#ifndef JOBSTATE_H
#define JOBSTATE_H

#include "jobs/Job.h"

// What has become of a job, as people are told: the queue's state together with what the job's
// script has left in its directory. The queue itself knows no failure.

enum class JobState {
    WAITING,
    RUNNING,
    DONE,       ///< ended with 0, or is another application's, of which no status is known
    FAILED,     ///< ended with another status, or without leaving one
    TIMED_OUT,  ///< was ended when its time was over
    SKIPPED,    ///< did not run, since the job before it had not ended well
    KILLED,
    CANCELLED,  ///< was killed before it ran; may still stand in the queue for its turn
};

const int JOB_STATE_COUNT = 8;

/// "waiting", "running", "done", "failed", "timed out", "skipped", "killed", "cancelled".
extern const char* const JOB_STATE_NAMES[JOB_STATE_COUNT];

/// Reads one or two small files for a job that waits or has ended.
JobState jobState(const Job& job);

inline const char* jobStateName(JobState state)
{
    return JOB_STATE_NAMES[(int)state];
}

/// Whether it ended otherwise than well, and nobody wanted that: FAILED, TIMED_OUT or SKIPPED.
bool hasFailed(const Job& job);

#endif
