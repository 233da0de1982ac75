#include "jobs/JobName.h"

#include "jobs/JobDirectory.h"
#include "zojob/Report.h"
#include "zojob/view/Text.h"

#include <algorithm>
#include <unordered_map>

const int STATES[4] = { ZoJob::WAITING, ZoJob::RUNNING, ZoJob::DONE, ZoJob::KILLED };
const char* const STATE_NAMES[4] = { "waiting", "running", "done", "killed" };

static const std::size_t MAX_CANDIDATES = 6;  // shown of an ambiguous name

std::string stateName(const ZoJob& job)
{
    for (int i = 0; i < 4; ++i)
        if (STATES[i] == job.state)
            return STATE_NAMES[i];
    return std::to_string(job.state);
}

static std::string fullName(const ZoJob& job)
{
    return std::to_string(job.id) + ":" + str(job.directory);
}

/// How many jobs have each id.
static std::unordered_map<long long, int> countIds(const Jobs& jobs)
{
    std::unordered_map<long long, int> counts;
    for (const JobHandle& job : jobs)
        ++counts[job->id];
    return counts;
}

std::vector<std::string> jobNames(const Jobs& jobs)
{
    const auto sharing = countIds(jobs);
    std::unordered_map<long long, int> seen;
    std::vector<std::string> names;
    for (const JobHandle& job : jobs) {
        const bool first = ++seen[job->id] == 1;
        const bool alone = sharing.at(job->id) == 1;
        const bool byId = alone || (first && PrivateDirectory::ownsId(*job));
        names.push_back(byId ? std::to_string(job->id) : fullName(*job));
    }
    return names;
}

std::string jobName(const Jobs& jobs, const ZoJob& job)
{
    Jobs sharing;
    for (const JobHandle& other : jobs)
        if (other->id == job.id)
            sharing.push_back(other);
    const std::vector<std::string> names = jobNames(sharing);
    for (std::size_t i = 0; i < sharing.size(); ++i)
        if (sharing[i]->directory == job.directory)
            return names[i];
    return fullName(job);
}

std::string nameSubmitted(const Jobs& jobs, const ZoJob& job)
{
    if (countIds(jobs).at(job.id) > 1)
        return fullName(job);
    PrivateDirectory::ownId(job);
    return std::to_string(job.id);
}

JobHandle sameJob(const Jobs& jobs, const ZoJob& job)
{
    for (const JobHandle& other : jobs)
        if (other->id == job.id && other->directory == job.directory)
            return other;
    return JobHandle();
}

static bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// The jobs that a name may mean. A whole id is never taken for the end of a longer one.
static Jobs candidates(const Jobs& jobs, const std::string& name)
{
    Jobs whole, ends;
    for (const JobHandle& job : jobs) {
        const std::string id = std::to_string(job->id);
        if (name == id || name == fullName(*job))
            whole.push_back(job);
        else if (endsWith(id, name))
            ends.push_back(job);
    }
    return whole.empty() ? ends : whole;
}

JobHandle findJob(const Jobs& jobs, const std::string& name)
{
    if (name == "last" && !jobs.empty())
        return jobs.back();
    const Jobs found = name.empty() ? Jobs() : candidates(jobs, name);
    if (found.size() == 1 || (!found.empty() && jobName(jobs, *found[0]) == name))
        return found[0];
    if (found.empty())
        throw Failure{ REFUSED, "no job is named '" + name + "': 'zojob list' shows them" };
    std::string text = "'" + name + "' may be any of " + std::to_string(found.size()) + " jobs:";
    for (std::size_t i = 0; i < found.size() && i < MAX_CANDIDATES; ++i)
        text += " " + jobName(jobs, *found[i]);
    throw Failure{ REFUSED, text + (found.size() > MAX_CANDIDATES ? " ..." : "") };
}

Jobs findJobs(const Jobs& jobs, const std::vector<std::string>& names)
{
    Jobs found;
    for (const std::string& name : names) {
        const JobHandle job = findJob(jobs, name);
        if (!sameJob(found, *job))
            found.push_back(job);
    }
    return found;
}
