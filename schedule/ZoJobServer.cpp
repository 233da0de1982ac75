#include "schedule/ZoJobServer.h"

#include "schedule/ZoProcess.h"
#include "schedule/ZoProtocol.h"
#include "utlib/UtClock.h"
#include "utlib/UtEnvironment.h"
#include "utlib/UtPeer.h"
#include "utlib/UtSocket.h"

#include <QByteArray>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

static const int BACKLOG = -10;  // as many as the system allows
static const int SECONDS_PER_CONNECTION = 25;
static const int CLOSING_TIME = 1000;       // ms for a peer that has sent more than a request
static const long CLOSING_BYTES = 1 << 20;  // of it

int ZoJobServer::main(int argc, char** argv)
{
    ZoProcess::openStandardDescriptors();
    ::signal(SIGCHLD, SIG_DFL);  // ignored, the ends of job children could not be collected
    ::signal(SIGXFSZ, SIG_IGN);  // a file size limit is a failed save, not the server's end
    int port = ZoProtocol::DEFAULT_PORT;
    if (argc > 2)
        port = (int)::strtol(argv[2], nullptr, 10);
    ZoJobServer server(port);
    server.mainLoop();
    return 0;
}

ZoJobServer::ZoJobServer(int wantedPort) : UtServerSocket(1)
{
    openSocket(wantedPort, BACKLOG, SECONDS_PER_CONNECTION);
    if (descriptor < 0 || port < 0) {
        ::fprintf(stderr, "Kelvo job server: can't open socket on port %d\n", wantedPort);
        ::exit(1);
    }
    jobList.port = port;
    const QString peers = UtEnvironment::getValue(QString::fromLatin1("JOB_PEERS"), true);
    servesOthers = peers.isEmpty() || peers == QString::fromLatin1("any");
    const QString logFile = UtEnvironment::getValue(QString::fromLatin1("JOB_LOG_FILE"), false);
    if (!logFile.isEmpty())
        ZoJobList::logFile = logFile.toUtf8().constData();
}

ZoJobServer::~ZoJobServer() = default;

void ZoJobServer::mainLoop()
{
    ZoJobList::log("entering main loop\n");
    blocking();
    jobRunning = jobList.isRunning();
    terminate = 0;
    runAll = 0;
    lastLook = UtClock::now();
    while (!terminate)
        pass();
    ZoJobList::log("terminating\n");
}

void ZoJobServer::pass()
{
    jobList.reapChildren();
    jobList.saveKills();
    serveNext();
    if (!terminate)
        endLostJobs();
}

void ZoJobServer::serveNext()
{
    const long long microseconds = (long long)(1e6 * secondsPerPass);
    struct timeval timeout = { microseconds / 1000000, microseconds % 1000000 };
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(descriptor, &readable);
    ZoJobList::log("calling select...\n");
    const int n = ::select(FD_SETSIZE, &readable, nullptr, nullptr, &timeout);
    const int error = errno;  // the log may change it
    ZoJobList::log("select returned %d\n", n);
    errno = error;
    if (n < 0)
        ::perror("select");
    else if (n == 0)
        terminate = !jobRunning;
    else if (FD_ISSET(descriptor, &readable))
        acceptOne();
}

void ZoJobServer::acceptOne()
{
    const int fd = accept();
    if (fd < 0)
        terminate = errno != EAGAIN;
    else if (isWelcome(fd))
        handleRequest(fd);
    else
        refuse(fd);
}

bool ZoJobServer::isWelcome(int fd)
{
    const long long user = UtPeer::userOf(fd);
    if (user == UtPeer::ANOTHER_MACHINE && !servesOthers)
        ZoJobList::log("refused a connection from another machine\n");
    else if (user > 0 && user != (long long)::geteuid())
        ZoJobList::log("refused a connection of user %lld\n", user);
    else if (user == UtPeer::FAILED)
        ZoJobList::log("refused a connection whose user cannot be told: %s\n", ::strerror(errno));
    else
        return user != UtPeer::NOBODY;  // it has closed already, like one that says nothing
    return false;
}

void ZoJobServer::refuse(int fd)
{
    reply(fd, ZoProtocol::REPLY_ERROR);
    UtSocket::drain(fd, 0, CLOSING_BYTES);
    UtSocket::close(fd);
}

void ZoJobServer::endLostJobs()
{
    const long long now = UtClock::now();
    if ((double)(now - lastLook) < 1000 * secondsBetweenLooks)
        return;
    lastLook = now;
    if (jobRunning && jobList.endLostJobs())
        startNextOrRest(-1);
}

void ZoJobServer::handleRequest(int fd)
{
    UtString line;
    if (UtSocket::readLine(fd, line) > 0)
        interprete(fd, line.data);
    char behind;
    // Who sends more than a request gets time to read the reply. Everybody else costs none.
    if (::recv(fd, &behind, 1, MSG_PEEK | MSG_DONTWAIT) > 0)
        UtSocket::drain(fd, CLOSING_TIME, CLOSING_BYTES);
    UtSocket::close(fd);
}
