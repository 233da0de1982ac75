#ifndef LISTED_H
#define LISTED_H

#include "jobs/JobState.h"
#include "jobs/Queue.h"

#include <string>
#include <vector>

/// A job as the views show it, with what the queue or the job's files tell besides.
struct Listed {
    Job job;
    std::string name;
    JobState state = JobState::WAITING;
};

/// All jobs of the queue, in its order.
std::vector<Listed> listedJobs(const Queue& queue);

/// How many jobs are in which state, as "2 waiting, 1 running, 3 done, 1 failed"; "no jobs".
std::string countText(const std::vector<Listed>& jobs);

/// Whether jobs wait and nothing runs, nor has just ended: they wait for somebody who runs them.
bool standsStill(const std::vector<Listed>& jobs);

/// The label that its user has given to the job; without one, the command as it was given.
std::string titleOf(const Job& job);

#endif
