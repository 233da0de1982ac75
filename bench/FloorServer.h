#ifndef FLOORSERVER_H
#define FLOORSERVER_H

#include "tests/sandbox/Process.h"

#include <functional>
#include <memory>
#include <string>

/// The least that a server on the loopback interface can do, in a process of its own: for every
/// connection it reads a line and hands the descriptor to a function, which answers.
class FloorServer
{
public:
    int port = 0;

    explicit FloorServer(const std::function<void(int fd)>& serve);
    FloorServer(const FloorServer&) = delete;
    FloorServer& operator=(const FloorServer&) = delete;
    ~FloorServer();

    /// Connects, sends the line and reads what comes back, to its end. Returns how many bytes.
    long request(const std::string& line) const;

private:
    std::unique_ptr<Process> process;
};

/// Writes everything or fails.
void writeAll(int fd, const char* bytes, size_t size);

#endif
