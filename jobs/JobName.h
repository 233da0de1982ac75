#ifndef JOBNAME_H
#define JOBNAME_H

#include "jobs/Server.h"

#include <string>
#include <vector>

/// What names this job and no other of the queue: its id, or ID:DIRECTORY when another job was
/// submitted in the same second and this one is not the first.
std::string jobName(const Jobs& jobs, const ZoJob& job);

/// The same for the job that was submitted just now. What is told to its submitter names this job
/// for as long as it is in the queue, whatever else is submitted in the same second.
std::string nameSubmitted(const Jobs& jobs, const ZoJob& job);

/// The same for every job of the queue.
std::vector<std::string> jobNames(const Jobs& jobs);

/// The job that a person means: by its id, any unique end of the id's digits, ID:DIRECTORY, or
/// "last", the one submitted last. Throws Failure when there is none or more than one.
JobHandle findJob(const Jobs& jobs, const std::string& name);

/// The same for several names, in their order and without repetitions.
Jobs findJobs(const Jobs& jobs, const std::vector<std::string>& names);

/// The job with this id and directory; a null handle when there is none.
JobHandle sameJob(const Jobs& jobs, const ZoJob& job);

/// "waiting", "running", "done" or "killed"; the number of any other state.
std::string stateName(const ZoJob& job);

/// The four states in their order, for counts and for what a user may ask for.
extern const int STATES[4];
extern const char* const STATE_NAMES[4];

#endif
