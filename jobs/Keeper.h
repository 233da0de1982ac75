#ifndef KEEPER_H
#define KEEPER_H

#include "jobs/Server.h"

/// Sees to it that these jobs run when their turn comes, although a job that was started alone is
/// running now, after which the server would stop. Marks them and leaves a process of its own
/// behind unless one is there, which sends the run request and ends when no marked job waits any
/// more. Throws JobError when it cannot.
void keepRunning(const Server& server, const std::vector<Job>& jobs);

/// Takes the marks of all jobs away: whoever stops the queue means it.
void stopKeeping(const Queue& queue);

#endif
