#ifndef KEEPER_H
#define KEEPER_H

#include "jobs/Server.h"

/// Runs the queue, so that these jobs run when their turn comes, whatever runs now. After a job
/// that was started alone the server would stop. Then the jobs are marked, and a process of its own
/// is left behind unless one is there: "bin/zojob keep" of the server's installation. Throws
/// JobError; the jobs are in the queue nevertheless.
void runQueue(const Server& server, const std::vector<Job>& jobs);

/// Makes that process and leaves it behind. It sends the run request whenever marked jobs wait and
/// nothing runs, and ends when no marked job waits any more. For a program without threads.
void keepRunning(const Server& server);

/// Takes the marks of all jobs away: whoever stops the queue means it.
void stopKeeping(const Queue& queue);

#endif
