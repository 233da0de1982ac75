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
        rest.clear();
        for (const Job& job : jobs)
            if (job.isUnsaved || &job == &jobs.back()) {
                rest.push_back(job);  // an unsaved one runs as far as the queue file tells
            } else {
                JobDirectory(job).handStatusOn();
                records.append(job.record());
            }
        list.remove(records);
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
