#ifndef QUEUE_H
#define QUEUE_H

#include "jobs/Job.h"
#include "utlib/UtDArray.h"

#include <string>
#include <vector>

/// One look at a queue: its jobs in queue order. A value of its own, which nothing changes
/// afterwards; hand it to another thread, or put it behind a shared pointer to const, as it suits.
/// The pointers that the questions return point into `jobs`; null when there is no such job.
class Queue
{
public:
    std::vector<Job> jobs;

    /// Why nothing can go on, where jobs wait or run: the queue file of this machine cannot be
    /// written. A sentence that says so and why; empty when it can.
    std::string trouble;

    Queue() = default;
    explicit Queue(UtDArray<UtHandle<ZoJob>>& records);

    /// The first job that runs here; jobs on a cluster run besides.
    const Job* running() const;

    /// The first job that waits.
    const Job* waiting() const;

    /// The same job, as this queue has it.
    const Job* find(const Job& job) const;

    /// The job with this directory of its own.
    const Job* findDirectory(const std::string& directory) const;
};

#endif
