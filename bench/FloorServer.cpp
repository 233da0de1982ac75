#include "bench/FloorServer.h"

#include "tests/sandbox/Sandbox.h"

#include <csignal>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

void writeAll(int fd, const char* bytes, size_t size)
{
    while (size > 0) {
        const long n = ::write(fd, bytes, size);
        if (n <= 0)
            Sandbox::fail("write");
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

FloorServer::FloorServer(const std::function<void(int fd)>& serve)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(fd, (const sockaddr*)&address, size) != 0 || ::listen(fd, SOMAXCONN) != 0 ||
        ::getsockname(fd, (sockaddr*)&address, &size) != 0)
        Sandbox::fail("cannot listen");
    port = ntohs(address.sin_port);
    process = std::make_unique<Process>([&] {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        serveForEver(fd, serve);
        return 0;
    });
    ::close(fd);
}

FloorServer::~FloorServer()
{
    ::kill(process->pid, SIGKILL);
}

long FloorServer::request(const std::string& line) const
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons((in_port_t)port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, (const sockaddr*)&address, sizeof address) != 0)
        Sandbox::fail("cannot connect");
    writeAll(fd, line.data(), line.size());
    static char buffer[65536];
    long stored = 0;
    for (long n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
        stored += n;
    ::close(fd);
    return stored;
}
