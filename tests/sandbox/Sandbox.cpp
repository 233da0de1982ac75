#include "tests/sandbox/Sandbox.h"

#include "utlib/UtServerSocket.h"
#include "utlib/UtSocket.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pwd.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
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
    const char* const place =
        ::getenv("KELVO_SANDBOX_PRIVATE") ? ::getenv("KELVO_SANDBOX") : nullptr;
    return place ? place + std::string("/small-disk") : "";
}

std::string Sandbox::queueFile()
{
    return home() + "/.zojobs-" + theHost;
}

void Sandbox::enterNew()
{
    static int count = 0;
    ::umask(022);
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
    writeDatabase("hosts", "127.0.0.1 " + official + " " + name + "\n127.0.0.1 localhost\n");
    theHost = official;
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
    const int fd = UtSocket::connect(nullptr, port);
    UtSocket::setTimeLimits(fd, 30);
    // A server that refuses may close before it has taken everything: its reply is what counts.
    (void)!::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (bytes.empty() || bytes.back() != '\n')
        ::shutdown(fd, SHUT_WR);
    std::string reply;
    char piece[4096];
    for (int n; (n = UtSocket::receive(fd, piece, sizeof piece, 0)) > 0;)
        reply.append(piece, n);
    UtSocket::close(fd);
    return reply;
}

TestServer::TestServer(int givenPort)
    : port(givenPort > 0 ? givenPort : Sandbox::freePort()),
      logFile(Sandbox::path("server-" + std::to_string(port) + ".log"))
{
    const struct passwd* const entry = ::getpwuid(::getuid());
    const char* const variable = ::getenv("USER");
    user = entry ? entry->pw_name : variable ? variable : "user";
    pid = ::fork();
    if (pid == 0) {
        ::setenv("JOB_LOG_FILE", logFile.c_str(), 1);
        const char* const start = KELVO_BUILD_DIR "/bin/start";
        ::execl(start, start, "-jobserver", std::to_string(port).c_str(), (char*)nullptr);
        ::_exit(127);
    }
    Sandbox::waitFor([this] { return Sandbox::isListening(port) || wait(0) >= 0; });
    EXPECT_TRUE(pid > 0 && wait(0) < 0 && Sandbox::isListening(port))
        << "The server does not listen on port " << port;
}

TestServer::~TestServer()
{
    quit();
    if (pid < 0)
        return;
    ADD_FAILURE() << "The server on port " << port << " has not ended by itself";
    ::kill(pid, SIGKILL);
    wait();
}

int TestServer::wait(double seconds)
{
    Sandbox::waitFor(
        [this] {
            if (pid > 0 && ::waitpid(pid, &status, WNOHANG) == pid)
                pid = -1;
            return pid < 0;
        },
        seconds);
    return pid < 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int TestServer::quit()
{
    wait(0);
    if (pid > 0)
        request(user + " quit\n");
    return wait();
}
