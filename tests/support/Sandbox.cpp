#include "tests/support/Sandbox.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pwd.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

/// The directory of the present test, and the host name as the hosts file completes it.
static std::string theRoot, theHost;

std::string Sandbox::path(const std::string& name)
{
    return name.empty() ? theRoot : theRoot + "/" + name;
}

std::string Sandbox::home()
{
    return path("home");
}

std::string Sandbox::smallDisk()
{
    const char* const place = ::getenv("KELVO_SANDBOX_PRIVATE") ? ::getenv("KELVO_SANDBOX") : nullptr;
    return place ? place + std::string("/small-disk") : "";
}

std::string Sandbox::queueFile()
{
    return home() + "/.zojobs-" + theHost;
}

void Sandbox::enterNew()
{
    static int count = 0;
    theRoot = ::getenv("KELVO_SANDBOX") + ("/test" + std::to_string(++count));
    std::filesystem::create_directories(home());
    std::filesystem::create_directory(path("tmp"));
    std::filesystem::current_path(theRoot);
    ::setenv("HOME", home().c_str(), 1);
    ::setenv("TMPDIR", path("tmp").c_str(), 1);
    ::setenv("USER", "tester", 1);
    setUser("tester");
    setHostName("node1", "node1");
}

/// Writes one of the files that libnss-wrapper reads. It reads a file anew when the time of the
/// last change is another one, in whole seconds.
static void writeDatabase(const char* name, const std::string& text)
{
    static time_t change = 0;
    const std::string path = theRoot + "/../" + name;
    Sandbox::write(path, text);
    const struct timespec times[] = { { ++change, 0 }, { change, 0 } };
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

void Sandbox::setUser(const std::string& name)
{
    const std::string ids = std::to_string(::getuid()) + ":" + std::to_string(::getgid());
    writeDatabase("passwd", name + ":x:" + ids + "::" + home() + ":/bin/sh\n");
    writeDatabase("group", name + ":x:" + std::to_string(::getgid()) + ":\n");
}

void Sandbox::noPasswordEntry()
{
    writeDatabase("passwd", "");
}

void Sandbox::setHostName(const std::string& name, const std::string& official)
{
    const std::string entry = official.empty() ? "" : "127.0.0.1 " + official + " " + name + "\n";
    writeDatabase("hosts", entry + "127.0.0.1 localhost\n");
    theHost = official.empty() ? name : official;
    ::setenv("NSS_WRAPPER_HOSTNAME", name.c_str(), 1);
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
        ADD_FAILURE() << "cannot write " << path;
}

bool Sandbox::waitFor(const std::function<bool()>& condition, double seconds)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (Clock::now() >= end)
            return condition();
        ::poll(nullptr, 0, 5);
    }
    return true;
}

/// A socket, and this machine's loopback address with a port.
struct Loopback {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in in = {};
    struct sockaddr* const address = (struct sockaddr*)&in;
    socklen_t size = sizeof in;

    explicit Loopback(int port)
    {
        in.sin_family = AF_INET;
        in.sin_port = htons((unsigned short)port);
        in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    ~Loopback() { ::close(fd); }
};

int Sandbox::freePort()
{
    Loopback any(0);
    if (::bind(any.fd, any.address, any.size) != 0 ||
        ::getsockname(any.fd, any.address, &any.size) != 0)
        ADD_FAILURE() << "no free port: " << strerror(errno);
    return ntohs(any.in.sin_port);
}

bool Sandbox::isListening(int port)
{
    for (const char* table : { "/proc/net/tcp", "/proc/net/tcp6" }) {
        std::istringstream lines(read(table));
        for (std::string line; std::getline(lines, line);) {
            unsigned localPort, state;
            if (::sscanf(line.c_str(), "%*s %*[^:]:%x %*s %x", &localPort, &state) == 2 &&
                (int)localPort == port && state == 0x0A)
                return true;
        }
    }
    return false;
}

::testing::AssertionResult Sandbox::schedulePortIsFree()
{
    if (!isListening(SCHEDULE_PORT))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "Somebody else's server listens on port " << SCHEDULE_PORT
           << ", which this test needs: end that server, or install bubblewrap.";
}

std::string Sandbox::request(int port, const std::string& bytes)
{
    Loopback server(port);
    const struct timeval limit = { 30, 0 };
    ::setsockopt(server.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(server.fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (::connect(server.fd, server.address, server.size) != 0) {
        ADD_FAILURE() << "no connection to port " << port << ": " << strerror(errno);
        return "";
    }
    // A server may refuse and close before it has taken everything: its reply is what counts.
    for (size_t sent = 0; sent < bytes.size();) {
        const long n = ::send(server.fd, &bytes[sent], bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            break;
        sent += n;
    }
    if (bytes.empty() || bytes.back() != '\n')
        ::shutdown(server.fd, SHUT_WR);
    std::string reply;
    char piece[65536];
    long n;
    while ((n = ::recv(server.fd, piece, sizeof piece, 0)) > 0)
        reply.append(piece, n);
    if (n < 0 && errno != ECONNRESET)
        ADD_FAILURE() << "port " << port << " has neither answered nor closed: " << strerror(errno);
    return reply;
}

TestServer::TestServer(int givenPort)
    : port(givenPort > 0 ? givenPort : Sandbox::freePort()),
      pid(-1),
      logFile(Sandbox::path("server-" + std::to_string(port) + ".log"))
{
    const struct passwd* const entry = ::getpwuid(::getuid());
    const char* const variable = ::getenv("USER");
    user = entry ? entry->pw_name : variable && *variable ? variable : "user";
    pid = ::fork();
    if (pid == 0) {
        ::setenv("JOB_LOG_FILE", logFile.c_str(), 1);
        const char* const start = KELVO_BUILD_DIR "/bin/start";
        ::execl(start, start, "-jobserver", std::to_string(port).c_str(), (char*)nullptr);
        ::perror(start);
        ::_exit(127);
    }
    if (!Sandbox::waitFor([this] { return Sandbox::isListening(port) || hasEnded(); }) || pid < 0)
        ADD_FAILURE() << "The server does not listen on port " << port;
}

TestServer::~TestServer()
{
    if (quit() >= 0 || pid < 0)
        return;
    ADD_FAILURE() << "The server on port " << port << " has not ended by itself";
    ::kill(pid, SIGKILL);
    Sandbox::waitFor([this] { return hasEnded(); });
}

bool TestServer::hasEnded()
{
    if (pid > 0 && ::waitpid(pid, &status, WNOHANG) == pid)
        pid = -1;
    return pid < 0;
}

int TestServer::wait(double seconds)
{
    Sandbox::waitFor([this] { return hasEnded(); }, seconds);
    return pid < 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int TestServer::quit()
{
    if (!hasEnded())
        request(user + " quit\n");
    return wait();
}
