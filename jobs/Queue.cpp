#include "jobs/Queue.h"

#include <algorithm>

Queue::Queue(UtDArray<UtHandle<ZoJob>>& records)
{
    jobs.reserve(records.size());
    for (long i = 0; i < records.size(); ++i)
        jobs.emplace_back(*records[i]);
}

/// The first job for which the question holds, or null.
template <class Question>
static const Job* first(const std::vector<Job>& jobs, Question question)
{
    const auto found = std::find_if(jobs.begin(), jobs.end(), question);
    return found == jobs.end() ? nullptr : &*found;
}

const Job* Queue::running() const
{
    return first(jobs, [](const Job& job) { return job.isRunningHere(); });
}

const Job* Queue::waiting() const
{
    return first(jobs, [](const Job& job) { return job.isWaiting(); });
}

const Job* Queue::find(const Job& job) const
{
    return first(jobs, [&job](const Job& other) { return other.isSame(job); });
}

const Job* Queue::findDirectory(const std::string& directory) const
{
    return first(jobs, [&directory](const Job& job) { return job.directory == directory; });
}
