#ifndef SERVER_H
#define SERVER_H

#include "jobs/Queue.h"

#include <string>

/// The job server as people's programs ask it: every question and request is one connection, and
/// nothing is kept open. Reading the queue of this machine needs none of this (see QueueWatch.h).
/// A server that cannot be reached, or that refuses this user, is a JobError; a request that the
/// server refuses is the result false. Calls take as long as the server does, up to a minute: keep
/// them out of a thread that has a window to draw.
class Server
{
public:
    enum Presence {
        NONE,      ///< nobody answers
        OURS,      ///< a server that serves this user
        REFUSING,  ///< another user's
        SILENT,    ///< somebody who takes connections and says nothing
    };

    enum Start { START, NEVER_START };

    /// What one look has found.
    struct Look {
        Presence presence;
        long long otherUser;  ///< user id of a REFUSING server's owner; -1 when it is not known
        std::string reason;   ///< why nobody serves us, in a sentence; empty for OURS
    };

    const std::string host;  ///< empty: this machine
    const std::string root;  ///< the installation whose bin/start starts a server; empty: none

    /// With NEVER_START no call starts a server.
    Server(const std::string& itsHost, const std::string& itsRoot, Start start = START);

    bool isThisMachine() const { return host.empty(); }

    /// Who is there. One connection; starts nothing.
    Look look() const;

    /// The id of another user who has the port, so that no server of this user can be there; -1
    /// when nobody else has it or that cannot be told. Makes no connection.
    long long strangerOnPort() const;

    /// Makes sure that a server of this user answers: starts one when nobody does.
    void ensure() const;

    /// Queues a job with these fields.
    bool submit(const char* command, const std::string& description,
                const std::string& directory) const;

    /// The queue as the server tells it.
    Queue list() const;

    /// Runs the waiting jobs one after another, or this one.
    bool run() const;
    bool run(const Job& job) const;

    /// Kills the running job.
    bool kill() const;

    /// Takes the job out of the queue, and deletes its directory with all that it holds.
    bool remove(const Job& job) const;

    /// Ends the server; there must be one. A running job goes on.
    void quit() const;

    /// Has a function called when a server has taken a request and not begun to answer for some
    /// seconds. For a program that can tell its user why nothing happens.
    static void onSilence(void (*function)());

    /// Has a function called when finding the name of this machine took more than a second, with
    /// a sentence that says so and what helps.
    static void onSlowLookup(void (*function)(const std::string& sentence));

    /// What is wrong with the port that the variable JOB_PORT names; empty when nothing is.
    static std::string portComplaint();
};

#endif
