#ifndef SERVERS_H
#define SERVERS_H

#include <functional>
#include <string>
#include <sys/types.h>

/// The job server under test: the built launcher as a process of its own, on port 7160.
class JobServer
{
public:
    pid_t pid;

    /// Returns when the server answers; ends the program when it does not.
    JobServer();
    JobServer(const JobServer&) = delete;
    JobServer& operator=(const JobServer&) = delete;
    /// Kills the server.
    ~JobServer();

    /// A connection through the client functions; ends the program when there is none.
    static int open();
};

/// The least that a server on the loopback interface can do, in a process of its own: for every
/// connection it reads a line and hands the descriptor to a function, which answers.
class LeastServer
{
public:
    int port = 0;

    explicit LeastServer(const std::function<void(int fd)>& serve);
    LeastServer(const LeastServer&) = delete;
    LeastServer& operator=(const LeastServer&) = delete;
    ~LeastServer();

    /// Connects, sends the line and reads what comes back, to its end. Returns how many bytes.
    long request(const std::string& line) const;

private:
    pid_t pid = -1;
};

/// Writes everything or ends the program.
void writeAll(int fd, const char* bytes, size_t size);

#endif
