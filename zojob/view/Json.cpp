#include "zojob/view/Json.h"

#include "jobs/JobDirectory.h"
#include "zojob/Report.h"
#include "zojob/view/Text.h"

#include <nlohmann/json.hpp>
#include <pwd.h>

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

/// Whoever has the port although he may not: null where that is nobody.
static Json userOf(long long id)
{
    if (id < 0)
        return nullptr;
    const struct passwd* const entry = ::getpwuid((uid_t)id);
    return Json{ { "id", id }, { "name", entry ? Json(entry->pw_name) : Json(nullptr) } };
}

static Json toJson(const Listed& one, const Json& otherUser)
{
    const Job& job = one.job;
    const JobDirectory directory(job);
    const GivenTexts given = directory.given();
    const int status = exitStatus(job);
    const bool isFull = job.hasEnded() && directory.end().isDiskFull;
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
                 { "cluster", clusterOf(job) },
                 { "diskFull", isFull },
                 { "unsaved", job.isUnsaved },
                 { "otherUser", otherUser } };
}

void writeJsonList(const std::vector<Listed>& jobs, long long otherUser)
{
    const Json other = userOf(otherUser);
    Json list = Json::array();
    for (const Listed& one : jobs)
        list.push_back(toJson(one, other));
    write(list);
}

void writeJsonJobs(const std::vector<Listed>& jobs, long long otherUser, bool withScript)
{
    const Json other = userOf(otherUser);
    Json list = Json::array();
    for (const Listed& one : jobs) {
        Json document = toJson(one, other);
        const JobDirectory directory(one.job);
        if (withScript)
            document["script"] = directory.isOurs() ? Json(directory.script()) : Json(nullptr);
        list.push_back(document);
    }
    write(list.size() == 1 ? list[0] : list);
}

void writeJsonFailure(const std::string& error, int code, long long otherUser)
{
    write(Json{ { "error", error }, { "exit", code }, { "otherUser", userOf(otherUser) } });
}

void writeJsonStatus(const StatusView& view)
{
    Json counts = Json::object(), running = nullptr, queues = Json::array();
    const Json other = userOf(view.otherUser);
    for (int i = 0; i < JOB_STATE_COUNT; ++i)
        counts[JOB_STATE_NAMES[i]] = 0;
    for (const Listed& one : view.jobs) {
        Json& count = counts[jobStateName(one.state)];
        count = count.get<long>() + 1;
        if (running.is_null() && one.job.isRunningHere())
            running = toJson(one, other);
    }
    for (const OtherQueue& queue : view.others)
        queues.push_back(
            { { "file", queue.path }, { "jobs", queue.jobs }, { "waiting", queue.waiting } });
    write(Json{ { "server", view.server },
                { "host", view.host.empty() ? Json(nullptr) : Json(view.host) },
                { "otherUser", other },
                { "standsStill", standsStill(view.jobs) },
                { "trouble", view.trouble.empty() ? Json(nullptr) : Json(view.trouble) },
                { "otherQueues", queues },
                { "counts", counts },
                { "running", running } });
}
