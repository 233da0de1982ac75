#include "jobs/Server.h"

#include "utlib/UtSocket.h"
#include "zojob/Report.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

static const int PORT = 7160;
static const int CLOSING = 5000;          // ms in which a server closes after its reply
static const std::size_t MAX_ROOT = 245;  // what the client library takes
static const char* const LAUNCHER = "/bin/start";
static const char* const NOWHERE = "/dev/null";        // holds no launcher, ever
static const char* const WHITE_SPACE = " \t\n\v\f\r";  // what the library drops around a name

/// Closes the connection of one request whichever way the request ends.
class Connection
{
public:
    explicit Connection(int descriptor) : fd(descriptor) {}
    ~Connection()
    {
        if (fd >= 0)
            UtSocket::close(fd);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const int fd;
};

/// The name that every request begins with, by the client library's rule.
static std::string userName()
{
    const struct passwd* const entry = ::getpwuid(::getuid());
    const char* const value = entry ? entry->pw_name : std::getenv("USER");
    std::string name = value ? value : "";
    name.erase(0, name.find_first_not_of(WHITE_SPACE));
    name.erase(name.find_last_not_of(WHITE_SPACE) + 1);
    return name.empty() ? "user" : name;
}

JobHandle runningJob(const Jobs& jobs)
{
    for (const JobHandle& job : jobs)
        if (job->state == ZoJob::RUNNING)
            return job;
    return JobHandle();
}

Server::Server(const Options& options, Start start) : host(options.host), root(options.root)
{
    mayStart = start == START;
    if (!mayStart)
        root = NOWHERE;
}

const char* Server::hostName() const
{
    return host.empty() ? nullptr : host.c_str();
}

int Server::open() const
{
    const int fd = connect();
    if (fd < 0)
        fail();
    return fd;
}

/// The reply to a request for which the client library has no function, without its line end; empty
/// when nobody answers.
std::string Server::ask(const char* request) const
{
    const Connection connection(UtSocket::connect(hostName(), PORT));
    char reply[64];
    if (connection.fd < 0 ||
        UtSocket::send(connection.fd, "%s %s\n", userName().c_str(), request) != 0)
        return "";
    const int count = UtSocket::receive(connection.fd, reply, sizeof reply, 1);
    return std::string(reply, count > 0 ? count - (reply[count - 1] == '\n') : 0);
}

Server::Presence Server::presence() const
{
    const std::string reply = ask("status");
    if (reply.empty())
        return NONE;
    return reply == "running" || reply == "waiting" || reply == "done" ? OURS : REFUSING;
}

/// Like open(), but -1 when there is no connection.
int Server::connect() const
{
    // The client library would wait ten seconds for a launcher that is not there.
    const bool canStart = ::access((root + LAUNCHER).c_str(), X_OK) == 0;
    if (!canStart && presence() == NONE)
        return -1;
    return ZoScheduleOpen(hostName(), root.c_str(), "", "");
}

void Server::fail() const
{
    const std::string where = host.empty() ? "this machine" : host;
    const std::string port = "port " + std::to_string(PORT);
    if (presence() == REFUSING)
        throw Failure{ REFUSED, "the server on " + port + " of " + where +
                                    " refuses you: it belongs to another user, or takes "
                                    "requests only from its own machine" };
    if (!host.empty())
        throw Failure{ NO_SERVER, "no server answers on " + port + " of " + host +
                                      ", and only that machine can start one: call zojob there" };
    if (!mayStart)
        throw Failure{ NO_SERVER, "no server is running" };
    const std::string launcher = root + LAUNCHER;
    if (root.size() > MAX_ROOT)
        throw Failure{ NO_SERVER, "no server is running, and the path of " + launcher +
                                      " is too long to start one: install it elsewhere" };
    if (::access(launcher.c_str(), X_OK) != 0)
        throw Failure{ NO_SERVER,
                       withReason("no server is running, and " + launcher + " cannot start one") +
                           "; name the installation directory with --root" };
    throw Failure{ NO_SERVER, "the server that " + launcher +
                                  " should start does not answer: see what '" + launcher +
                                  " -jobserver " + std::to_string(PORT) + "' says" };
}

/// Whether the server has closed the connection in order, as it does after a whole reply.
static bool isClosedInOrder(int fd)
{
    struct pollfd end = { fd, POLLIN, 0 };
    char rest;
    return ::poll(&end, 1, CLOSING) > 0 && ::recv(fd, &rest, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

bool Server::tryList(Jobs& jobs) const
{
    const int fd = connect();
    if (fd < 0)
        return false;
    // The client library closes its connection, and does not tell a broken reply from a short list.
    const Connection copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    UtDArray<JobHandle> answered;
    ZoScheduleJobList(fd, answered);
    if (!isClosedInOrder(copy.fd) || (answered.size() == 0 && presence() != OURS))
        return false;
    jobs.clear();
    for (long i = 0; i < answered.size(); ++i)
        jobs.push_back(answered[i]);
    return true;
}

Jobs Server::list() const
{
    Jobs jobs;
    if (!tryList(jobs))
        fail();
    return jobs;
}

bool Server::run(const JobHandle& job) const
{
    const Connection connection(open());
    return ZoScheduleJobRun(connection.fd, job) == 0;
}

bool Server::kill() const
{
    const Connection connection(open());
    return ZoScheduleJobKill(connection.fd) == 0;
}

bool Server::remove(const JobHandle& job) const
{
    const Connection connection(open());
    return ZoScheduleJobRemove(connection.fd, job) == 0;
}

bool Server::quit() const
{
    return ask("quit") == "ok";
}
