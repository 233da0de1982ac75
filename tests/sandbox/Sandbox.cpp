#include "tests/sandbox/Sandbox.h"

#include "tests/sandbox/Process.h"
#include "utlib/UtServerSocket.h"
#include "utlib/UtSocket.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

static void endProgram(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    ::exit(1);
}

void (*Sandbox::fail)(const std::string&) = endProgram;

void Sandbox::enter(char** argv)
{
    if (::getenv("KELVO_SANDBOX"))
        return;
    const std::string program = fs::read_symlink("/proc/self/exe");
    std::vector<const char*> words = { "sh", KELVO_SOURCE_DIR "/tests/sandbox/sandbox.sh",
                                       KELVO_BUILD_DIR, program.c_str() };
    while (*argv++)
        words.push_back(*argv);
    ::execv("/bin/sh", const_cast<char**>(words.data()));
    endProgram("/bin/sh cannot be run");
}

/// A path beside the world's directory.
static std::string besidePath(const std::string& name)
{
    return ::getenv("KELVO_SANDBOX") + ("/" + name);
}

std::string Sandbox::path(const std::string& name)
{
    return besidePath(name.empty() ? "world" : "world/" + name);
}

std::string Sandbox::home()
{
    return path("home");
}

std::string Sandbox::smallDisk()
{
    return ::getenv("KELVO_SANDBOX_PRIVATE") ? besidePath("small-disk") : "";
}

std::string Sandbox::queueFile()
{
    return home() + "/.zojobs-node1";
}

void Sandbox::enterNew()
{
    static int count = 0;
    ::umask(022);
    fs::rename(path(), besidePath("world" + std::to_string(++count)));  // sandbox.sh deletes it
    for (const char* directory : { "home", "tmp" })
        fs::create_directories(path(directory));
    fs::current_path(path());
    ::setenv("HOME", home().c_str(), 1);
    ::setenv("TMPDIR", path("tmp").c_str(), 1);
    ::setenv("USER", "tester", 1);
    ::unsetenv("JOB_PORT");
}

void Sandbox::asStranger(const std::function<void()>& what)
{
    if (::seteuid(STRANGER) != 0)
        return fail("cannot become another user");
    what();
    if (::seteuid(0) != 0)
        fail("cannot become root again");
}

std::string Sandbox::read(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

void Sandbox::write(const std::string& path, const std::string& text)
{
    if (!(std::ofstream(path) << text << std::flush))
        fail("cannot write " + path);
}

bool Sandbox::waitFor(const std::function<bool()>& condition, double seconds)
{
    const double end = now() + seconds;
    while (!condition()) {
        if (now() >= end)
            return condition();
        ::poll(nullptr, 0, 5);
    }
    return true;
}

int Sandbox::freePort()
{
    UtServerSocket any(0);
    any.openSocket(0, -1, 0);
    return any.port;
}

bool Sandbox::isListening(int port)
{
    std::istringstream lines(read("/proc/net/tcp") + read("/proc/net/tcp6"));
    unsigned used, state;
    for (std::string line; std::getline(lines, line);)
        if (::sscanf(line.c_str(), "%*s %*[^:]:%x %*s %x", &used, &state) == 2 && state == 0x0A &&
            (int)used == port)
            return true;
    return false;
}

std::string Sandbox::request(int port, const std::string& bytes)
{
    const int fd = UtSocket::connect(nullptr, port);
    UtSocket::setTimeLimits(fd, 30);
    // A server that refuses may close before it has taken everything: its reply is what counts.
    (void)!::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    ::shutdown(fd, SHUT_WR);
    std::string reply;
    char piece[4096];
    for (int n; (n = UtSocket::receive(fd, piece, sizeof piece, 0)) > 0;)
        reply.append(piece, n);
    UtSocket::close(fd);
    return reply;
}
