#ifndef JOBNAME_H
#define JOBNAME_H

#include "jobs/Queue.h"

#include <string>
#include <vector>

// What a job is called, and which job a name means.

/// What names this job and no other of the queue: its id, or ID:DIRECTORY when another job was
/// submitted in the same second and this one is not the first.
std::string jobName(const Queue& queue, const Job& job);

/// The same for every job of the queue, in its order.
std::vector<std::string> jobNames(const Queue& queue);

/// The same for the job that was submitted just now. What is told to its submitter names this job
/// for as long as it is in the queue, whatever else is submitted in the same second.
std::string nameSubmitted(const Queue& queue, const Job& job);

/// The job that a person means: by its id, any unique end of the id's digits, ID:DIRECTORY, or
/// "last", the one submitted last. The result points into the queue. Throws JobError when there is
/// none or more than one.
const Job& findJob(const Queue& queue, const std::string& name);

/// The same for several names, in their order and without repetitions.
std::vector<Job> findJobs(const Queue& queue, const std::vector<std::string>& names);

#endif
