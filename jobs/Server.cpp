#include "jobs/Server.h"

#include "jobs/JobError.h"
#include "schedule/ZoSchedule.h"
#include "utlib/UtSocket.h"

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

Server::Connection::~Connection()
{
    if (fd >= 0)
        UtSocket::close(fd);
}

bool Server::Connection::submit(const char* command, const std::string& description,
                                const std::string& directory)
{
    return ZoScheduleJobSubmit(fd, command, description.c_str(), directory.c_str()) == 0;
}

Server::Server(const std::string& itsHost, const std::string& itsRoot, Start start)
    : host(itsHost), root(start == START ? itsRoot : NOWHERE), mayStart(start == START)
{
}

const char* Server::hostName() const
{
    return host.empty() ? nullptr : host.c_str();
}

std::string Server::launcher() const
{
    return root + LAUNCHER;
}

Server::Connection Server::connect() const
{
    const int fd = tryConnect();
    if (fd < 0)
        throwNotServed();
    return Connection(fd);
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

/// Like connect(), but -1 when there is no connection.
int Server::tryConnect() const
{
    // The client library would wait ten seconds for a launcher that is not there.
    const bool canStart = ::access(launcher().c_str(), X_OK) == 0;
    if (!canStart && presence() == NONE)
        return -1;
    return ZoScheduleOpen(hostName(), root.c_str(), "", "");
}

void Server::throwNotServed() const
{
    const std::string where = host.empty() ? "this machine" : host;
    const std::string port = "port " + std::to_string(PORT);
    if (presence() == REFUSING)
        throw JobError(JobError::FOREIGN_SERVER,
                       "the server on " + port + " of " + where +
                           " refuses you: it belongs to another user, or takes requests only "
                           "from its own machine");
    if (!host.empty())
        throw JobError(JobError::NO_SERVER,
                       "no server answers on " + port + " of " + host +
                           ", and one can be started only on that machine itself");
    if (!mayStart)
        throw JobError(JobError::NO_SERVER, "no server is running");
    if (root.size() > MAX_ROOT)
        throw JobError(JobError::NO_SERVER, "no server is running, and the path of " + launcher() +
                                                " is too long to start one: install it elsewhere");
    if (::access(launcher().c_str(), X_OK) != 0)
        throw JobError(JobError::NO_LAUNCHER,
                       withReason("no server is running, and " + launcher() + " cannot start one"));
    throw JobError(JobError::SILENT_SERVER,
                   "the server that " + launcher() + " should start does not answer: see what '" +
                       launcher() + " -jobserver " + std::to_string(PORT) + "' says");
}

/// Whether the server has closed the connection in order, as it does after a whole reply.
static bool isClosedInOrder(int fd)
{
    struct pollfd end = { fd, POLLIN, 0 };
    char rest;
    return ::poll(&end, 1, CLOSING) > 0 && ::recv(fd, &rest, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

Queue Server::list() const
{
    const int fd = tryConnect();
    if (fd < 0)
        throwNotServed();
    // The client library closes its connection, and does not tell a broken reply from a short list.
    const Connection copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    UtDArray<UtHandle<ZoJob>> answered;
    ZoScheduleJobList(fd, answered);
    if (!isClosedInOrder(copy.fd) || (answered.size() == 0 && presence() != OURS))
        throwNotServed();
    Queue queue;
    for (long i = 0; i < answered.size(); ++i)
        queue.jobs.push_back(Job(*answered[i]));
    return queue;
}

bool Server::run() const
{
    const Connection connection = connect();
    return ZoScheduleJobRun(connection.fd, nullptr) == 0;
}

bool Server::run(const Job& job) const
{
    const Connection connection = connect();
    return ZoScheduleJobRun(connection.fd, job.record()) == 0;
}

bool Server::kill() const
{
    const Connection connection = connect();
    return ZoScheduleJobKill(connection.fd) == 0;
}

bool Server::remove(const Job& job) const
{
    const Connection connection = connect();
    return ZoScheduleJobRemove(connection.fd, job.record()) == 0;
}

void Server::quit() const
{
    if (ask("quit") != "ok")
        throwNotServed();
}
