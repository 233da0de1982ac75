#include "schedule/ZoSchedule.h"

#include "schedule/ZoClient.h"
#include "schedule/ZoIdentity.h"
#include "schedule/ZoLauncher.h"
#include "schedule/ZoProcess.h"
#include "utlib/UtSocket.h"

#include <ctime>

static const int START_ATTEMPTS = 10;        // with a second before each
static const long long START_INTERVAL = 11;  // seconds between two start-ups

static UtString theUser;  ///< the user name at the head of every request; empty until resolved
static UtString theHost;  ///< this machine's name: only here a server may be started

/// Connects to the server. Returns a descriptor, or a negative code of ZoClient::connect().
static int connectTo(const char* host)
{
    return ZoClient::connect(host, ZoClient::portOfUser());
}

/// Connects, after starting a server if nobody answers and the host is this machine. Returns a
/// descriptor or a negative value.
static int connectOrStart(const char* host, const char* rootDirectory)
{
    int fd = connectTo(host);
    if (fd != ZoClient::NOBODY || (host && theHost != host))
        return fd;
    if (ZoLauncher::start(rootDirectory, ZoClient::portOfUser()) < 0)
        return -1;
    for (int i = 0; i < START_ATTEMPTS && fd == ZoClient::NOBODY; ++i) {
        ZoProcess::pause(1);
        fd = connectTo(host);
    }
    return fd;
}

/// The start-up: resolves who and where we are, and makes sure that a server of this user answers.
/// Returns 0 or -1.
static int ZoScheduleInit(const char* host, const char* rootDirectory, const char* /*third*/,
                          const char* fourth)
{
    if (!fourth)
        return -1;
    ZoLauncher::collect();
    UtString home, line;
    ZoIdentity::hostName(theHost);
    ZoIdentity::userAndHome(theUser, home);
    const int fd = connectOrStart(host, rootDirectory);
    if (fd < 0)
        return -1;
    ZoProtocol::writeRequest(line, theUser, ZoProtocol::STATUS);
    UtSocket::send(fd, "%s", (const char*)line);
    const ZoProtocol::Reply reply = ZoClient::readReply(fd);  // none at all is no refusal
    UtSocket::close(fd);
    return reply == ZoProtocol::REPLY_ERROR ? -1 : 0;
}

/// Whether it is too early for another start-up. A clock that was set back counts as time passed.
static bool hasJustInit(long long lastInit, long long now)
{
    return now >= lastInit && now - lastInit < START_INTERVAL;
}

int ZoScheduleOpen(const char* host, const char* rootDirectory, const char* third,
                   const char* fourth)
{
    static long long lastInit = 0;  // seconds since the epoch; 0 until the first start-up
    if (lastInit == 0) {
        lastInit = ::time(nullptr);
        if (ZoScheduleInit(host, rootDirectory, third, fourth) == -1)
            return -1;
    }
    const int fd = connectTo(host);
    if (fd >= 0)
        return fd;
    const long long now = ::time(nullptr);
    if (fd == ZoClient::STRANGER || hasJustInit(lastInit, now))
        return -1;
    lastInit = now;
    if (ZoScheduleInit(host, rootDirectory, third, fourth) == -1)
        return -1;
    const int again = connectTo(host);
    return again >= 0 ? again : -1;
}

/// 0 when the reply on fd is "ok", else -1. Leaves the connection open.
static int isOk(int fd)
{
    return ZoClient::readReply(fd) == ZoProtocol::REPLY_OK ? 0 : -1;
}

/// Sends a request that may name a job, and reads its reply. Returns 0 or -1.
static int request(int fd, ZoProtocol::Request what, UtHandle<ZoJob> job)
{
    UtString line;
    if (fd < 0 || ZoProtocol::writeRequest(line, theUser, what, job) != 0)
        return -1;
    UtSocket::send(fd, "%s", (const char*)line);
    return isOk(fd);
}

int ZoScheduleJobSubmit(int fd, const char* command, const char* description, const char* directory)
{
    UtString line;
    if (fd < 0 || !command ||
        ZoProtocol::writeSubmission(line, theUser, command, description ? description : "",
                                    directory ? directory : "") != 0)
        return -1;
    UtSocket::send(fd, "%s", (const char*)line);
    return isOk(fd);
}

int ZoScheduleJobKill(int fd)
{
    return request(fd, ZoProtocol::KILL, UtHandle<ZoJob>());
}

int ZoScheduleJobRemove(int fd, UtHandle<ZoJob> job)
{
    return request(fd, ZoProtocol::REMOVE, job);
}

int ZoScheduleJobRun(int fd, UtHandle<ZoJob> job)
{
    return request(fd, ZoProtocol::RUN, job);
}

int ZoScheduleJobList(int fd, UtDArray<UtHandle<ZoJob>>& jobs)
{
    if (fd < 0)
        return -1;
    ZoClient::list(fd, theUser, jobs,
                   false);  // the jobs that came whole are there, whatever the result
    UtSocket::close(fd);
    return (int)jobs.size();
}
