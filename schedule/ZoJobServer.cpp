#include "schedule/ZoJobServer.h"

#include "schedule/ZoProcess.h"
#include "utlib/UtEnvironment.h"
#include "utlib/UtSocket.h"

#include <QByteArray>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/select.h>

static const int DEFAULT_PORT = 7160;
static const int BACKLOG = -10;  // as many as the system allows
static const int SECONDS_PER_CONNECTION = 25;
static const int SECONDS_PER_PASS = 30;

int ZoJobServer::main(int argc, char** argv)
{
    ZoProcess::openStandardDescriptors();
    ::signal(SIGCHLD, SIG_DFL);  // ignored, the ends of job children could not be collected
    int port = DEFAULT_PORT;
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
    while (!terminate)
        pass();
    ZoJobList::log("terminating\n");
}

void ZoJobServer::pass()
{
    jobList.reapChildren();
    struct timeval timeout = { SECONDS_PER_PASS, 0 };
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
    if (fd >= 0)
        handleRequest(fd);
    else if (errno != EAGAIN)
        terminate = 1;
}

void ZoJobServer::handleRequest(int fd)
{
    UtString line;
    if (UtSocket::readLine(fd, line) > 0)
        interprete(fd, line.data);
    UtSocket::close(fd);
}
