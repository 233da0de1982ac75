#ifndef QUEUEREMOVAL_H
#define QUEUEREMOVAL_H

#include "jobs/Server.h"

#include <vector>

/// Takes jobs out of the queue, and deletes their directories with all that they hold; running ones
/// stay. On this machine all but the last are taken out in one change of the queue file: a request
/// for each would make the disk wait for each. Call Server::ensure() first, and hold what could end
/// the process. Returns those that are still in the queue afterwards.
std::vector<Job> removeJobs(const Server& server, const std::vector<Job>& jobs);

#endif
