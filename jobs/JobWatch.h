#ifndef JOBWATCH_H
#define JOBWATCH_H

#include "jobs/Server.h"

#include <string>
#include <vector>

/// Follows jobs until they have ended, by asking the server again and again. The server may end and
/// come back meanwhile; the jobs do not depend on it.
class Watch
{
public:
    struct Target {
        JobHandle job;  ///< as last heard of
        std::string name;
        bool ended = false;
        bool removed = false;  ///< ended, for whoever waits
        int misses = 0;        ///< lists in a row without the job
        int sign = 0;          ///< how far its own files show its end; 2: its status is there
    };

    std::vector<Target> targets;
    Jobs queue;  ///< as last heard of

    Watch(const Server& server, const Jobs& queue, const Jobs& jobs);

    /// Asks once and brings the targets up to date. Throws Failure when there has been no server
    /// for too long.
    void poll();

    bool allEnded() const;

    /// A target is waiting, and no job has been running for some polls: nothing will ever run it.
    bool isStuck() const;

    /// Sleeps until the next poll is due, at most `limit` seconds.
    void pause(double limit);

    /// Says once, on standard error, that nothing will ever run a target.
    void noteStuck();

private:
    bool askServer();
    double patience() const;
    void noteChange();
    void update(Target& target, bool fresh);

    const Server& server;
    double interval;    // seconds to the next poll
    double reached;     // when the server answered last
    double changed;     // when a target changed last
    bool lost = false;  // no server answered the last time
    int idle = 0;       // lists in a row that showed no running job
    bool noted = false;
};

/// Waits until the jobs have ended and returns the highest of their statuses. With `run`, runs the
/// waiting jobs whenever the server has stopped doing so before these have ended. After `timeout`
/// seconds, unless it is negative, the result is TIMED_OUT.
int waitForJobs(const Server& server, const Jobs& queue, const Jobs& jobs, bool run,
                double timeout);

/// Seconds of a clock that is never set.
double secondsNow();

void sleepSeconds(double seconds);

/// From now on Ctrl-C ends the process with INTERRUPTED after saying that the jobs go on; unless it
/// is ignored, as in a background command of a script.
void announceInterrupt(const std::vector<Watch::Target>& targets);

#endif
