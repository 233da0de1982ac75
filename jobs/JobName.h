#ifndef JOBNAME_H
#define JOBNAME_H

#include "jobs/Queue.h"

#include <string>
#include <vector>

// What a job is called, and which job a name means.

/// What names this job and no other of the queue. A job of ours has a small number, that of its
/// directory. Another application's has its id, or ID:DIRECTORY where two share it.
std::string jobName(const Queue& queue, const Job& job);

/// The same for every job of the queue, in its order.
std::vector<std::string> jobNames(const Queue& queue);

/// The job that a person means: by one of these names, or "last", the one submitted last;
/// "running"; "failed", the one of those that ended last; a range of one. The result points into
/// the queue. Throws JobError when there is none or more than one.
const Job& findJob(const Queue& queue, const std::string& name);

/// The same for several names, in their order and without repetitions. "3-7" is what there is of
/// the numbers from 3 to 7.
std::vector<Job> findJobs(const Queue& queue, const std::vector<std::string>& names);

#endif
