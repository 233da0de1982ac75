#include "tests/sandbox/TestServer.h"

#include "schedule/ZoJobServer.h"
#include "utlib/UtSocket.h"

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

bool TestServer::logs = true;

static int serve(int port, void (*change)(ZoJobServer&))
{
    if (change) {
        ZoJobServer server(port);
        change(server);
        server.mainLoop();
        return 0;
    }
    const std::string start = KELVO_BUILD_DIR "/bin/start", text = std::to_string(port);
    ::execl(start.c_str(), start.c_str(), "-jobserver", text.c_str(), (char*)nullptr);
    return 127;
}

TestServer::TestServer(int givenPort, void (*change)(ZoJobServer&))
    : port(givenPort > 0 ? givenPort : Sandbox::freePort()),
      logFile(Sandbox::path("server-" + std::to_string(port) + ".log"))
{
    process = std::make_unique<Process>([&] {
        if (logs)
            ::setenv("JOB_LOG_FILE", logFile.c_str(), 1);
        return serve(port, change);
    });
    Sandbox::waitFor([this] { return Sandbox::isListening(port) || process->hasEnded(); });
    if (process->hasEnded() || !Sandbox::isListening(port))
        Sandbox::fail("The server does not listen on port " + std::to_string(port));
}

TestServer::~TestServer()
{
    quit();
    if (pid() < 0)
        return;
    Sandbox::fail("The server on port " + std::to_string(port) + " has not ended by itself");
    ::kill(pid(), SIGKILL);
}

std::string TestServer::ask(const std::string& requests) const
{
    std::istringstream lines(requests);
    std::string replies;
    for (std::string line; std::getline(lines, line);)
        replies += request("tester " + line + "\n");
    return replies;
}

int TestServer::connect(const std::string& bytes) const
{
    const int fd = UtSocket::connect(nullptr, port);
    if (UtSocket::send(fd, "%s", bytes.c_str()) != 0)
        Sandbox::fail("no connection to port " + std::to_string(port));
    return fd;
}

bool TestServer::waitForStatus(const std::string& status) const
{
    return Sandbox::waitFor([&] { return ask("status") == status + "\n"; });
}

std::string TestServer::states()
{
    const ZoJobList list;
    std::string found;
    for (long i = 0; i < list.jobs.size(); ++i)
        found += std::to_string(list.jobs[i]->state) + " ";
    return found;
}

int TestServer::wait(double seconds)
{
    if (!process->hasEnded(seconds))
        return -1;
    const int status = process->end();
    return status < 128 ? status : -1;
}

int TestServer::quit()
{
    if (!process->hasEnded())
        request("tester quit\n");
    return wait();
}
