#include "zojob/view/Listed.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"

#include <algorithm>
#include <ctime>

static const int BETWEEN = 3;  // seconds: a server takes its time from one job to the next

std::vector<Listed> listedJobs(const Queue& queue)
{
    const std::vector<std::string> names = jobNames(queue);
    std::vector<Listed> jobs;
    jobs.reserve(names.size());
    for (std::size_t i = 0; i < names.size(); ++i)
        jobs.push_back({ queue.jobs[i], names[i], jobState(queue.jobs[i]) });
    return jobs;
}

std::string countText(const std::vector<Listed>& jobs)
{
    std::string text;
    for (int i = 0; i < JOB_STATE_COUNT; ++i) {
        const auto isThat = [i](const Listed& one) { return one.state == (JobState)i; };
        if (const long count = std::count_if(jobs.begin(), jobs.end(), isThat))
            text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + JOB_STATE_NAMES[i];
    }
    return text.empty() ? "no jobs" : text;
}

bool standsStill(const std::vector<Listed>& jobs)
{
    const auto has = [&jobs](JobState state) {
        return std::any_of(jobs.begin(), jobs.end(),
                           [state](const Listed& one) { return one.state == state; });
    };
    const long long now = std::time(nullptr);
    const auto isBusy = [now](const Listed& one) {
        const long long since = now - one.job.endTime;
        return one.job.isRunningHere() || (one.job.endTime && since >= 0 && since <= BETWEEN);
    };
    return has(JobState::WAITING) && std::none_of(jobs.begin(), jobs.end(), isBusy);
}

std::string titleOf(const Job& job)
{
    const GivenTexts given = JobDirectory(job).given();
    return given.label && !given.label->empty() ? *given.label : given.command;
}
