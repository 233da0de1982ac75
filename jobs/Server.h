#ifndef SERVER_H
#define SERVER_H

#include "jobs/Queue.h"

#include <string>

/// The job server as people's programs ask it: every question and request is one connection, and
/// nothing is kept open. Reading the queue of this machine needs none of this (see QueueWatch.h).
/// A server that cannot be reached, or that refuses this user, is a JobError; a request that the
/// server refuses is the result false.
class Server
{
public:
    enum Presence { NONE, OURS, REFUSING };

    enum Start { START, NEVER_START };

    /// One request's connection, for what must not wait for a server any more.
    class Connection
    {
    public:
        explicit Connection(int descriptor) : fd(descriptor) {}
        Connection(Connection&& other) noexcept : fd(other.fd) { other.fd = -1; }
        Connection& operator=(Connection&&) = delete;
        ~Connection();

        bool submit(const char* command, const std::string& description,
                    const std::string& directory);

        int fd;  ///< -1: none
    };

    const std::string host;  ///< empty: this machine
    const std::string root;  ///< the installation directory whose bin/start starts a server

    /// With NEVER_START no call starts a server.
    Server(const std::string& itsHost, const std::string& itsRoot, Start start = START);

    bool isThisMachine() const { return host.empty(); }

    /// Who answers, if anybody. One connection; starts nothing whatever the object allows.
    Presence presence() const;

    /// Connects; starts a server when nobody answers and this object may.
    Connection connect() const;

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

    /// Says why nobody serves us.
    [[noreturn]] void throwNotServed() const;

private:
    const char* hostName() const;
    std::string launcher() const;
    std::string ask(const char* request) const;
    int tryConnect() const;

    const bool mayStart;
};

#endif
