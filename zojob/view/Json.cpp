#include "zojob/view/Json.h"

#include "jobs/JobDirectory.h"
#include "zojob/Report.h"
#include "zojob/view/Text.h"

#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

static void write(const Json& document)
{
    print(document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

static Json time(long long seconds)
{
    return seconds ? Json(seconds) : Json(nullptr);
}

static Json clusterOf(const Job& job)
{
    if (job.cluster.id.empty())
        return nullptr;
    return Json{ { "id", job.cluster.id },
                 { "state", job.cluster.state },
                 { "detached", job.isDetached } };
}

static Json toJson(const Listed& one)
{
    const Job& job = one.job;
    const JobDirectory directory(job);
    const GivenTexts given = directory.given();
    const int status = exitStatus(job);
    return Json{ { "id", job.id },
                 { "name", one.name },
                 { "state", jobStateName(one.state) },
                 { "exit", status < 0 ? Json(nullptr) : Json(status) },
                 { "label", given.label ? Json(*given.label) : Json(nullptr) },
                 { "command", given.command },
                 { "workdir", given.directory },
                 { "directory", job.directory },
                 { "log", directory.logPath() },
                 { "start", time(job.startTime) },
                 { "end", time(job.endTime) },
                 { "time", job.runTime() },
                 { "description", job.description },
                 { "reserved", job.reserved },
                 { "cluster", clusterOf(job) } };
}

void writeJsonList(const std::vector<Listed>& jobs)
{
    Json list = Json::array();
    for (const Listed& one : jobs)
        list.push_back(toJson(one));
    write(list);
}

void writeJsonJobs(const std::vector<Listed>& jobs, bool withScript)
{
    Json list = Json::array();
    for (const Listed& one : jobs) {
        Json document = toJson(one);
        const JobDirectory directory(one.job);
        if (withScript)
            document["script"] = directory.isOurs() ? Json(directory.script()) : Json(nullptr);
        list.push_back(document);
    }
    write(list.size() == 1 ? list[0] : list);
}

void writeJsonStatus(const char* server, const std::string& host, long long otherUser,
                     const std::string& otherName, const std::vector<Listed>& jobs)
{
    Json counts = Json::object(), running = nullptr, other = nullptr;
    for (int i = 0; i < JOB_STATE_COUNT; ++i)
        counts[JOB_STATE_NAMES[i]] = 0;
    for (const Listed& one : jobs) {
        Json& count = counts[jobStateName(one.state)];
        count = count.get<long>() + 1;
        if (running.is_null() && one.job.isRunningHere())
            running = toJson(one);
    }
    if (otherUser >= 0)
        other = Json{ { "id", otherUser },
                      { "name", otherName.empty() ? Json(nullptr) : Json(otherName) } };
    write(Json{ { "server", server },
                { "host", host.empty() ? Json(nullptr) : Json(host) },
                { "otherUser", other },
                { "standsStill", standsStill(jobs) },
                { "counts", counts },
                { "running", running } });
}
