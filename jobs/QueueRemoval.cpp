#include "jobs/QueueRemoval.h"

#include "jobs/JobDirectory.h"
#include "jobs/QueueWatch.h"
#include "schedule/ZoJobList.h"

#include <algorithm>

std::vector<Job> removeJobs(const Server& server, const std::vector<Job>& jobs)
{
    std::vector<Job> rest = jobs;
    if (server.isThisMachine() && jobs.size() > 1) {
        ZoJobList list;
        UtDArray<UtHandle<ZoJob>> records;
        for (std::size_t i = 0; i + 1 < jobs.size(); ++i) {
            JobDirectory(jobs[i]).handStatusOn();
            records.append(jobs[i].record());
        }
        list.remove(records);
        rest.erase(rest.begin(), rest.end() - 1);
    }
    // The server takes notice of the others with the last one.
    for (const Job& job : rest)
        (void)server.remove(job);  // what it refuses is found again below
    const Queue queue = readQueue(server);
    std::vector<Job> left;
    for (const Job& job : jobs)
        if (const Job* const same = queue.find(job))
            left.push_back(*same);
    return left;
}
