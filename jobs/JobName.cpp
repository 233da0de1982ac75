#include "jobs/JobName.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/JobState.h"
#include "jobs/StateDirectory.h"

#include <algorithm>
#include <unordered_map>

static std::string fullName(const Job& job)
{
    return std::to_string(job.id) + ":" + job.directory;
}

/// What the job is called while no other one is called so.
static std::string shortName(const Job& job)
{
    const std::string number = JobDirectory(job).hasScript() ? numberOf(job.directory) : "";
    return number.empty() ? std::to_string(job.id) : number;
}

/// Whether the job keeps its short name when others have the same: only that of ours which lies
/// where `submit` puts jobs now, and prints the number without knowing the others.
static bool keepsName(const Job& job, const std::string& name, const std::string& state)
{
    return job.directory == state + "/job-" + name;
}

std::vector<std::string> jobNames(const Queue& queue)
{
    std::unordered_map<std::string, int> counts;
    std::vector<std::string> names;
    const std::string state = stateDirectory();
    names.reserve(queue.jobs.size());
    for (const Job& job : queue.jobs) {
        names.push_back(shortName(job));
        ++counts[names.back()];
    }
    for (std::size_t i = 0; i < names.size(); ++i)
        if (counts[names[i]] > 1 && !keepsName(queue.jobs[i], names[i], state))
            names[i] = fullName(queue.jobs[i]);
    return names;
}

std::string jobName(const Queue& queue, const Job& job)
{
    const std::string name = shortName(job);
    const bool isShared = std::any_of(queue.jobs.begin(), queue.jobs.end(), [&](const Job& other) {
        return !other.isSame(job) && shortName(other) == name;
    });
    return isShared && !keepsName(job, name, stateDirectory()) ? fullName(job) : name;
}

static JobError notFound(const std::string& text)
{
    return JobError(JobError::NOT_FOUND, text);
}

/// Of the jobs that failed, the one that ended last.
static const Job* lastFailed(const Queue& queue)
{
    const Job* last = nullptr;
    for (const Job& job : queue.jobs)
        if ((!last || job.endTime >= last->endTime) && hasFailed(job))
            last = &job;
    return last;
}

/// The job that a word stands for; null when it is no such word.
static const Job* findWord(const Queue& queue, const std::string& word)
{
    const Job* found = nullptr;
    if (word == "last")
        found = queue.jobs.empty() ? nullptr : &queue.jobs.back();
    else if (word == "running")
        found = queue.running();
    else if (word == "failed")
        found = lastFailed(queue);
    else
        return nullptr;
    if (!found)
        throw notFound(word == "running"  ? "no job is running"
                       : word == "failed" ? "no job has failed"
                                          : "there is no job in the queue");
    return found;
}

/// The jobs of a range "3-7", in the order of the queue; none for what is no range.
static std::vector<const Job*> findRange(const Queue& queue, const std::string& name)
{
    std::vector<const Job*> found;
    const std::size_t dash = name.find('-');
    const std::string from = numberOf("/job-" + name.substr(0, dash));
    const std::string to = dash < name.size() ? numberOf("/job-" + name.substr(dash + 1)) : "";
    if (from.empty() || to.empty())
        return found;
    const long first = std::stol(from), last = std::stol(to);
    if (first > last)
        throw JobError(JobError::INVALID,
                       "a range begins with the smaller number, as " + to + "-" + from);
    const std::vector<std::string> names = jobNames(queue);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string number = numberOf("/job-" + names[i]);
        if (!number.empty() && std::stol(number) >= first && std::stol(number) <= last)
            found.push_back(&queue.jobs[i]);
    }
    return found;
}

/// All that the name may mean; throws when that is nothing.
static std::vector<const Job*> candidates(const Queue& queue, const std::string& name)
{
    if (const Job* const meant = findWord(queue, name))
        return { meant };
    std::vector<const Job*> found = findRange(queue, name);
    const std::vector<std::string> names = jobNames(queue);
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i] == name || fullName(queue.jobs[i]) == name)
            found.push_back(&queue.jobs[i]);
    if (!found.empty())
        return found;
    for (const Job& job : queue.jobs)
        if (std::to_string(job.id) == name)
            found.push_back(&job);
    if (found.empty())
        throw notFound("no job is named '" + name + "'");
    if (found.size() == 1)
        return found;
    std::string sharing;
    for (const Job* const job : found)
        sharing += " " + jobName(queue, *job);
    throw JobError(JobError::AMBIGUOUS, "'" + name + "' is the id of several jobs:" + sharing);
}

const Job& findJob(const Queue& queue, const std::string& name)
{
    const std::vector<const Job*> found = candidates(queue, name);
    if (found.size() == 1)
        return *found[0];
    throw JobError(JobError::AMBIGUOUS, "'" + name + "' names " + std::to_string(found.size()) +
                                            " jobs, and one is wanted here");
}

std::vector<Job> findJobs(const Queue& queue, const std::vector<std::string>& names)
{
    std::vector<Job> found;
    for (const std::string& name : names)
        for (const Job* const job : candidates(queue, name)) {
            const auto same = [job](const Job& other) { return other.isSame(*job); };
            if (std::none_of(found.begin(), found.end(), same))
                found.push_back(*job);
        }
    return found;
}
