#ifndef TESTSERVER_H
#define TESTSERVER_H

#include "tests/sandbox/Process.h"
#include "tests/sandbox/Sandbox.h"

#include <memory>

class ZoJobServer;

/// A job server, started with the built launcher as a process of its own in the sandbox's world, as
/// the world is at that moment; or a fork of this process, if its fields are to be changed first.
/// It is told to quit at the end of its scope, and killed if it does not.
class TestServer
{
public:
    int port;
    std::string logFile;  ///< what JOB_LOG_FILE names to it
    std::unique_ptr<Process> process;
    static bool logs;  ///< whether servers write their log

    /// Returns when the server listens; fails when it does not. Port 0 takes a free one.
    explicit TestServer(int port = 0, void (*change)(ZoJobServer&) = nullptr);
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;
    ~TestServer();

    pid_t pid() const { return process->pid; }
    std::string request(const std::string& bytes) const { return Sandbox::request(port, bytes); }
    /// The replies to the requests of this user, one a line: ask("status\nlist").
    std::string ask(const std::string& requests) const;
    /// A connection on which these bytes have been sent.
    int connect(const std::string& bytes) const;
    bool waitForStatus(const std::string& status) const;
    /// The states of the jobs in the queue file, as "10 11 ".
    static std::string states();
    std::string log() const { return Sandbox::read(logFile); }

    /// Waits for the server's own end. Returns its exit status, or -1 when it was killed by a
    /// signal or has not ended in time.
    int wait(double seconds = 15);
    /// Sends "quit" unless the server has ended, then waits like wait().
    int quit();
};

#endif
