#include "jobs/JobName.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"

#include <algorithm>
#include <unordered_map>

static const std::size_t MAX_CANDIDATES = 6;  // shown of an ambiguous name

static std::string fullName(const Job& job)
{
    return std::to_string(job.id) + ":" + job.directory;
}

/// How many jobs have each id.
static std::unordered_map<long long, int> countIds(const Queue& queue)
{
    std::unordered_map<long long, int> counts;
    for (const Job& job : queue.jobs)
        ++counts[job.id];
    return counts;
}

std::vector<std::string> jobNames(const Queue& queue)
{
    const auto sharing = countIds(queue);
    std::unordered_map<long long, int> seen;
    std::vector<std::string> names;
    names.reserve(queue.jobs.size());
    for (const Job& job : queue.jobs) {
        const bool isFirst = ++seen[job.id] == 1;
        const bool isAlone = sharing.at(job.id) == 1;
        const bool byId = isAlone || (isFirst && JobDirectory(job).isNamedById());
        names.push_back(byId ? std::to_string(job.id) : fullName(job));
    }
    return names;
}

std::string jobName(const Queue& queue, const Job& job)
{
    Queue sharing;
    std::copy_if(queue.jobs.begin(), queue.jobs.end(), std::back_inserter(sharing.jobs),
                 [&job](const Job& other) { return other.id == job.id; });
    const std::vector<std::string> names = jobNames(sharing);
    for (std::size_t i = 0; i < names.size(); ++i)
        if (sharing.jobs[i].isSame(job))
            return names[i];
    return fullName(job);
}

std::string nameSubmitted(const Queue& queue, const Job& job)
{
    if (countIds(queue)[job.id] > 1)
        return fullName(job);
    JobDirectory(job).nameById();
    return std::to_string(job.id);
}

static bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// The jobs that a name may mean. A whole id is never taken for the end of a longer one.
static std::vector<const Job*> candidates(const Queue& queue, const std::string& name)
{
    std::vector<const Job*> whole, ends;
    for (const Job& job : queue.jobs) {
        const std::string id = std::to_string(job.id);
        if (name == id || name == fullName(job))
            whole.push_back(&job);
        else if (endsWith(id, name))
            ends.push_back(&job);
    }
    return whole.empty() ? ends : whole;
}

const Job& findJob(const Queue& queue, const std::string& name)
{
    if (name == "last" && !queue.jobs.empty())
        return queue.jobs.back();
    const auto found = name.empty() ? std::vector<const Job*>() : candidates(queue, name);
    if (found.size() == 1 || (!found.empty() && jobName(queue, *found[0]) == name))
        return *found[0];
    if (found.empty())
        throw JobError(JobError::NOT_FOUND, "no job is named '" + name + "'");
    std::string text = "'" + name + "' may be any of " + std::to_string(found.size()) + " jobs:";
    for (std::size_t i = 0; i < found.size() && i < MAX_CANDIDATES; ++i)
        text += " " + jobName(queue, *found[i]);
    throw JobError(JobError::AMBIGUOUS, text + (found.size() > MAX_CANDIDATES ? " ..." : ""));
}

std::vector<Job> findJobs(const Queue& queue, const std::vector<std::string>& names)
{
    std::vector<Job> found;
    for (const std::string& name : names) {
        const Job& job = findJob(queue, name);
        const auto same = [&job](const Job& other) { return other.isSame(job); };
        if (std::none_of(found.begin(), found.end(), same))
            found.push_back(job);
    }
    return found;
}
