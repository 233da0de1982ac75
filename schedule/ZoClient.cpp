#include "schedule/ZoClient.h"

#include "schedule/ZoIdentity.h"
#include "schedule/ZoLauncher.h"
#include "schedule/ZoNumber.h"
#include "utlib/UtClock.h"
#include "utlib/UtLineReader.h"
#include "utlib/UtPeer.h"
#include "utlib/UtSocket.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

static const int REPLY_BUFFER = 256;
static const int START_POLL = 5;              // ms between two attempts to reach a started server
static const long long SETTLING_TIME = 1000;  // ms after the end of a launcher that was too late

/// The port that a text names, or -1.
static int portFrom(const char* text)
{
    const size_t digits = ::strspn(text, "0123456789");
    const long long port = digits > 0 && digits <= 5 && !text[digits] ? zoNumber(text) : -1;
    return port >= 1 && port <= ZoProtocol::MAX_PORT ? (int)port : -1;
}

/// The value of JOB_PORT; null when it is unset or empty.
static const char* portVariable()
{
    const char* const value = ::getenv("JOB_PORT");
    return value && *value ? value : nullptr;
}

int ZoClient::portOfUser()
{
    const char* const value = portVariable();
    const int port = value ? portFrom(value) : -1;
    return port > 0 ? port : ZoProtocol::DEFAULT_PORT;
}

const char* ZoClient::wrongPort()
{
    const char* const value = portVariable();
    return value && portFrom(value) < 0 ? value : nullptr;
}

ZoClient::ZoClient(const char* givenHost, const char* givenRoot)
    : host(givenHost), root(givenRoot), port(portOfUser()), secondsToReply(UtSocket::CLIENT_SECONDS)
{
    UtString home;
    ZoIdentity::userAndHome(user, home);
}

ZoClient::~ZoClient() = default;

void (*ZoClient::onSilence)() = nullptr;

bool ZoClient::isTrusted(long long owner)
{
    return owner == 0 || owner == ::getuid() || owner == ::geteuid();
}

/// Whether a connection whose other end is nobody's has broken before anything came.
static bool isBroken(int fd)
{
    char first;
    const long n = ::recv(fd, &first, 1, MSG_PEEK | MSG_DONTWAIT);
    return n == 0 || (n < 0 && errno != EAGAIN);
}

int ZoClient::connect(const char* toHost, int toPort, long long* otherUser)
{
    // Whoever listens and never accepts would make us wait for the connection.
    const long long listener = toHost ? (long long)UtPeer::UNKNOWN : UtPeer::listenerOf(toPort);
    if (listener > 0 && !isTrusted(listener)) {
        if (otherUser)
            *otherUser = listener;
        return STRANGER;
    }
    const int fd = UtSocket::connect(toHost, toPort);
    if (fd < 0)
        return NOBODY;
    const long long owner = UtPeer::serverOf(fd);
    if (owner == UtPeer::ANOTHER_MACHINE || owner == UtPeer::UNKNOWN || isTrusted(owner))
        return fd;
    if (otherUser)
        *otherUser = owner > 0 ? owner : -1;
    const int result = owner == UtPeer::NOBODY && isBroken(fd) ? NOBODY : STRANGER;
    UtSocket::close(fd);
    return result;
}

/// Says that a server has not begun to answer, if it does not do so soon.
static void notice(int fd)
{
    if (!ZoClient::onSilence)
        return;
    const long long deadline = UtClock::now() + ZoClient::SECONDS_TO_NOTICE * 1000LL;
    struct pollfd reply = { fd, POLLIN, 0 };
    int n;
    do
        n = ::poll(&reply, 1, (int)(deadline - UtClock::now()));
    while (n < 0 && errno == EINTR && UtClock::now() < deadline);
    if (n == 0)
        ZoClient::onSilence();
}

ZoProtocol::Reply ZoClient::readReply(int fd)
{
    char reply[REPLY_BUFFER + 1] = {};
    UtSocket::receive(fd, reply, REPLY_BUFFER, 1);  // what has come is judged, whatever the result
    return ZoProtocol::readReply(reply);
}

int ZoClient::list(int fd, const char* user, UtDArray<UtHandle<ZoJob>>& jobs, bool isStrict)
{
    UtString line;
    ZoProtocol::writeRequest(line, user, ZoProtocol::LIST);
    UtSocket::send(fd, "%s", (const char*)line);
    UtLineReader reader(fd);  // the list is all that comes
    if (isStrict)
        notice(fd);
    bool isWhole = reader.readLine(line) > 0 && (!isStrict || ZoProtocol::isCount(line));
    const bool isRefused = ZoProtocol::readReply(line) == ZoProtocol::REPLY_ERROR;
    const long long count = ZoProtocol::readCount(line);
    jobs.resize(0);
    isWhole = isWhole && count <= MAX_JOBS;
    while (jobs.size() < count && jobs.size() < MAX_JOBS && reader.readLine(line) > 0 &&
           (!isStrict || ZoProtocol::isJob(line)))
        jobs.append(ZoProtocol::readJob(line));
    if (isRefused)
        return 1;
    return isWhole && jobs.size() == count ? 0 : -1;
}

/// Connects, and lets a server be started where that may help.
int ZoClient::open()
{
    otherUser = launcherStatus = -1;
    const char* const toHost = host.length() > 0 ? (const char*)host : nullptr;
    int fd = connect(toHost, port, &otherUser);
    if (fd == NOBODY && root.length() > 0) {
        UtString here;
        ZoIdentity::hostName(here);
        if (!toHost || here == toHost)
            fd = startAndConnect();
    }
    presence = fd >= 0 ? SILENT : fd == STRANGER ? REFUSING : NONE;
    if (fd >= 0)
        UtSocket::setTimeLimits(fd, secondsToReply);  // the limits of before hold where it fails
    return fd;
}

int ZoClient::startAndConnect()
{
    ZoLauncher::collect();
    const int launcher = ZoLauncher::start(root, port);
    // The server, too, looks up the name of the machine, before it listens.
    long long deadline =
        UtClock::now() + SECONDS_TO_START * 1000LL + 2 * ZoIdentity::slowLookupTime();
    while (launcher > 0 && UtClock::now() < deadline) {
        ::poll(nullptr, 0, START_POLL);
        const int fd = connect(nullptr, port, &otherUser);
        if (fd != NOBODY)
            return fd;
        if (launcherStatus >= 0 || (launcherStatus = ZoLauncher::statusOf(launcher)) < 0)
            continue;
        // Of two servers that are started at the same moment one ends, and the other one answers.
        deadline =
            launcherStatus == ZoLauncher::NOT_EXECUTABLE ? 0 : UtClock::now() + SETTLING_TIME;
    }
    return NOBODY;
}

/// Makes one request of one line, its reply included.
ZoProtocol::Reply ZoClient::send(const UtString& line)
{
    const int fd = open();
    if (fd < 0)
        return ZoProtocol::NO_REPLY;
    UtSocket::send(fd, "%s", (const char*)line);  // a server may refuse before it has read all
    notice(fd);
    const ZoProtocol::Reply reply = readReply(fd);
    UtSocket::close(fd);
    if (reply == ZoProtocol::REPLY_ERROR)
        presence = REFUSING;
    else if (reply != ZoProtocol::NO_REPLY)
        presence = OURS;
    return reply;
}

ZoProtocol::Reply ZoClient::ask(ZoProtocol::Request request, const ZoJob* job)
{
    UtString line;
    if (ZoProtocol::writeRequest(line, user, request, job) != 0)
        return ZoProtocol::NO_REPLY;
    const ZoProtocol::Reply reply = send(line);
    // To other requests a server of ours says "error", too.
    if (reply == ZoProtocol::REPLY_ERROR && request != ZoProtocol::STATUS)
        look();
    return reply;
}

ZoProtocol::Reply ZoClient::submit(const char* command, const char* description,
                                   const char* directory)
{
    UtString line;
    if (ZoProtocol::writeSubmission(line, user, command, description, directory) != 0)
        return ZoProtocol::NO_REPLY;
    const ZoProtocol::Reply reply = send(line);
    if (reply == ZoProtocol::REPLY_ERROR)
        look();
    return reply;
}

int ZoClient::list(UtDArray<UtHandle<ZoJob>>& jobs)
{
    const int fd = open();
    if (fd < 0)
        return -1;
    const int result = list(fd, user, jobs, true);
    UtSocket::close(fd);
    if (result >= 0)
        presence = result > 0 ? REFUSING : OURS;
    return result == 0 ? 0 : -1;
}

ZoClient::Presence ZoClient::look()
{
    const UtString installation(root);
    root = "";
    ask(ZoProtocol::STATUS);
    root = installation;
    return presence;
}
