#ifndef SERVER_H
#define SERVER_H

#include "schedule/ZoSchedule.h"

#include "zojob/Options.h"

#include <string>
#include <vector>

using JobHandle = UtHandle<ZoJob>;
using Jobs = std::vector<JobHandle>;  ///< in queue order

/// The job server as the commands talk to it. Every call makes a connection of its own. A server
/// that cannot be reached, or that refuses this user, is a Failure; a request that the server
/// refuses is the result false.
class Server
{
public:
    enum Presence { NONE, OURS, REFUSING };

    enum Start { START, NEVER_START };

    /// With NEVER_START no call makes the client library start a server.
    explicit Server(const Options& options, Start start = START);

    /// A connection for one request, which the caller closes.
    int open() const;

    /// Who answers, if anybody. Starts nothing whatever the object allows.
    Presence presence() const;

    /// The queue. False when there is no server just now, or when it did not answer whole.
    bool tryList(Jobs& jobs) const;

    Jobs list() const;

    /// Runs one job; without one, the waiting jobs one after another.
    bool run(const JobHandle& job) const;
    bool kill() const;
    bool remove(const JobHandle& job) const;

    /// Ends the server; there must be one.
    bool quit() const;

    /// Why no connection could be made, and what to do about it.
    void fail() const;

private:
    const char* hostName() const;
    int connect() const;
    std::string ask(const char* request) const;

    std::string host;
    std::string root;
    bool mayStart;
};

/// The first running job; a null handle when none is.
JobHandle runningJob(const Jobs& jobs);

#endif
