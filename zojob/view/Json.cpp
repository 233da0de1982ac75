#include "zojob/view/Json.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobName.h"
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

static Json toJson(const Job& job, const std::string& name)
{
    const int status = exitStatus(job);
    return Json{ { "id", job.id },
                 { "name", name },
                 { "state", stateName(job) },
                 { "exit", status < 0 ? Json(nullptr) : Json(status) },
                 { "description", job.description },
                 { "command", job.command },
                 { "directory", job.directory },
                 { "start", time(job.startTime) },
                 { "end", time(job.endTime) },
                 { "time", job.runTime() },
                 { "reserved", job.reserved },
                 { "cluster", clusterOf(job) } };
}

/// The same with the script and the path of the output.
static Json toLongJson(const Job& job, const std::string& name)
{
    const JobDirectory directory(job);
    Json document = toJson(job, name);
    document["log"] = directory.logPath();
    document["script"] = directory.isOurs() ? Json(directory.script()) : Json(nullptr);
    return document;
}

void writeJsonList(const std::vector<Job>& jobs, const std::vector<std::string>& names, bool more)
{
    Json list = Json::array();
    for (std::size_t i = 0; i < jobs.size(); ++i)
        list.push_back(more ? toLongJson(jobs[i], names[i]) : toJson(jobs[i], names[i]));
    write(list);
}

void writeJsonJob(const Job& job, const std::string& name, bool more)
{
    write(more ? toLongJson(job, name) : toJson(job, name));
}

void writeJsonStatus(const char* server, const std::string& host, const Queue& queue)
{
    Json counts = Json::object();
    for (int i = 0; i < JOB_STATES; ++i)
        counts[STATE_NAMES[i]] = queue.counts()[i];
    const Job* const running = queue.running();
    write(Json{
        { "server", server },
        { "host", host.empty() ? Json(nullptr) : Json(host) },
        { "counts", counts },
        { "running", running ? toJson(*running, jobName(queue, *running)) : Json(nullptr) } });
}
