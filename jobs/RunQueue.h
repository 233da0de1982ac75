#ifndef RUNQUEUE_H
#define RUNQUEUE_H

#include "jobs/Server.h"

/// Runs the queue, so that these jobs run when their turn comes, whatever runs now. Throws
/// JobError.
void runQueue(const Server& server, const std::vector<Job>& jobs);

#endif
