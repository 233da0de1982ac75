#include "bench/support/Servers.h"

#include "bench/support/Place.h"
#include "schedule/ZoSchedule.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

static const char PORT[] = "7160";
static const int SECONDS_TO_START = 10;

[[noreturn]] static void fail(const char* what)
{
    ::perror(what);
    ::exit(1);
}

/// A child that does not outlive this program.
static pid_t forkChild()
{
    const pid_t pid = ::fork();
    if (pid < 0)
        fail("fork");
    if (pid == 0)
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    return pid;
}

static void endChild(pid_t pid)
{
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

JobServer::JobServer() : pid(forkChild())
{
    const std::string program = Place::installation() + "/bin/start";
    if (pid == 0) {
        ::execl(program.c_str(), program.c_str(), "-jobserver", PORT, (char*)nullptr);
        fail(program.c_str());
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons((in_port_t)::atoi(PORT));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int i = 0; i < SECONDS_TO_START * 1000; ++i) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int result = ::connect(fd, (const sockaddr*)&address, sizeof address);
        ::close(fd);
        if (result == 0)
            return;
        ::usleep(1000);
    }
    fail("no job server");
}

JobServer::~JobServer()
{
    endChild(pid);
}

int JobServer::open()
{
    const int fd = ZoScheduleOpen(nullptr, Place::installation().c_str(), "", "");
    if (fd < 0)
        fail("no connection to the job server");
    return fd;
}

void writeAll(int fd, const char* bytes, size_t size)
{
    while (size > 0) {
        const long n = ::write(fd, bytes, size);
        if (n <= 0)
            fail("write");
        bytes += n;
        size -= n;
    }
}

/// Answers until the program ends.
[[noreturn]] static void serveForEver(int listening, const std::function<void(int fd)>& serve)
{
    char line[65536];
    for (;;) {
        const int fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        long stored = 0, n = 1;
        while (n > 0 && (stored == 0 || line[stored - 1] != '\n')) {
            n = ::read(fd, line + stored, sizeof line - stored);
            stored += n;
        }
        serve(fd);
        ::close(fd);
    }
}

LeastServer::LeastServer(const std::function<void(int fd)>& serve)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(fd, (const sockaddr*)&address, size) != 0 || ::listen(fd, SOMAXCONN) != 0 ||
        ::getsockname(fd, (sockaddr*)&address, &size) != 0)
        fail("cannot listen");
    port = ntohs(address.sin_port);
    pid = forkChild();
    if (pid == 0)
        serveForEver(fd, serve);
    ::close(fd);
}

LeastServer::~LeastServer()
{
    endChild(pid);
}

long LeastServer::request(const std::string& line) const
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons((in_port_t)port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, (const sockaddr*)&address, sizeof address) != 0)
        fail("connect");
    writeAll(fd, line.data(), line.size());
    static char buffer[65536];
    long stored = 0;
    for (long n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
        stored += n;
    ::close(fd);
    return stored;
}
