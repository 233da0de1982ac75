#include "tests/sandbox/TestServer.h"

#include <csignal>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

TestServer::TestServer(int givenPort)
    : port(givenPort > 0 ? givenPort : Sandbox::freePort()),
      logFile(Sandbox::path("server-" + std::to_string(port) + ".log"))
{
    const struct passwd* const entry = ::getpwuid(::getuid());
    const char* const variable = ::getenv("USER");
    user = entry ? entry->pw_name : variable ? variable : "user";
    process = std::make_unique<Process>([this] {
        const std::string start = KELVO_BUILD_DIR "/bin/start", text = std::to_string(port);
        ::setenv("JOB_LOG_FILE", logFile.c_str(), 1);
        ::execl(start.c_str(), start.c_str(), "-jobserver", text.c_str(), (char*)nullptr);
        return 127;
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
        request(user + " quit\n");
    return wait();
}
