#include "schedule/ZoSchedule.h"

#include "ZoVersion.h"
#include "schedule/ZoIdentity.h"
#include "schedule/ZoNumber.h"
#include "schedule/ZoProcess.h"
#include "utlib/UtLineReader.h"
#include "utlib/UtSocket.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

static const int SERVER_PORT = 7160;
static const int START_ATTEMPTS = 10;        // one a second
static const long long START_INTERVAL = 11;  // seconds between two start-ups
static const long PATH_BUFFER = 256;
static const int REPLY_BUFFER = 256;

static UtString theUser;  ///< the user name at the head of every request; empty until resolved
static UtString theHost;  ///< this machine's name: only here a server may be started
static UtDArray<int> theLaunchers;  ///< process ids of launchers whose ends are not collected yet

/// Becomes the launcher, with nothing of the host application's but its environment and working
/// directory. Only calls that are safe after fork in a process with threads.
[[noreturn]] static void becomeServer(const char* launcher, const char* port)
{
    ::setsid();  // fails only for the leader of a group, which a forked child is not
    ZoProcess::resetSignals();
    const int null = ::open("/dev/null", O_RDWR);
    for (int fd = STDIN_FILENO; null >= 0 && fd <= STDERR_FILENO; ++fd)
        ::dup2(null, fd);  // a pipe held open would make its reader wait for the server's end
    ZoProcess::closeDescriptorsOnExec();
    ::execl(launcher, launcher, "-jobserver", port, (char*)nullptr);
    ::_exit(127);
}

/// Collects the launchers of earlier start-ups that have ended, so that none stays as a zombie of
/// the host application. Never waits.
static void collectLaunchers()
{
    for (long i = theLaunchers.size() - 1; i >= 0; --i) {
        if (::waitpid(theLaunchers[i], nullptr, WNOHANG) != 0)
            theLaunchers.remove(i, 1);
    }
}

/// Starts the server through the launcher, without waiting for it. Returns 0 or -1.
static int startServer(const char* rootDirectory)
{
    char launcher[PATH_BUFFER];
    const int n =
        ::snprintf(launcher, sizeof launcher, "%s/bin/start", rootDirectory ? rootDirectory : "");
    if (n < 0 || n >= (int)sizeof launcher)
        return -1;
    char port[PATH_BUFFER];
    ::snprintf(port, sizeof port, "%d", SERVER_PORT);
    const pid_t pid = ::fork();
    if (pid == 0)
        becomeServer(launcher, port);
    if (pid < 0)
        return -1;
    theLaunchers.append(pid);
    return 0;
}

/// Connects, after starting a server if nobody answers and the host is this machine. Returns a
/// descriptor or -1.
static int connectOrStart(const char* host, const char* rootDirectory)
{
    int fd = UtSocket::connect(host, SERVER_PORT);
    if (fd != -1)
        return fd;
    if (host && theHost != host)
        return -1;
    if (startServer(rootDirectory) != 0)
        return -1;
    for (int i = 0; i < START_ATTEMPTS && fd < 0; ++i) {
        ZoProcess::pause(1);
        fd = UtSocket::connect(host, SERVER_PORT);
    }
    return fd;
}

/// Whether a reply says "error", with or without its line end.
static bool isRefusal(const char* reply)
{
    static const char word[] = "error";
    const long n = sizeof word - 1;
    return ::strncmp(reply, word, n) == 0 &&
           (reply[n] == '\0' || reply[n] == '\n' || reply[n] == '\r');
}

/// The start-up: resolves who and where we are, and makes sure that a server of this user answers.
/// Returns 0 or -1.
static int ZoScheduleInit(const char* host, const char* rootDirectory, const char* /*third*/,
                          const char* fourth)
{
    if (!fourth)
        return -1;
    collectLaunchers();
    UtString home;
    ZoIdentity::hostName(theHost);
    ZoIdentity::userAndHome(theUser, home);
    const int fd = connectOrStart(host, rootDirectory);
    if (fd < 0)
        return -1;
    char reply[REPLY_BUFFER + 1] = {};
    UtSocket::send(fd, "%s status\n", (const char*)theUser);
    UtSocket::receive(fd, reply, REPLY_BUFFER, 1);  // no answer at all is no refusal
    UtSocket::close(fd);
    return isRefusal(reply) ? -1 : 0;
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
    const int fd = UtSocket::connect(host, SERVER_PORT);
    if (fd != -1)
        return fd;
    const long long now = ::time(nullptr);
    if (now - lastInit < START_INTERVAL)
        return -1;
    lastInit = now;
    if (ZoScheduleInit(host, rootDirectory, third, fourth) == -1)
        return -1;
    return UtSocket::connect(host, SERVER_PORT);
}

/// 0 when the reply on fd is "ok", else -1. Leaves the connection open.
static int isOk(int fd)
{
    char reply[REPLY_BUFFER] = {};
    UtSocket::receive(fd, reply, sizeof reply, 1);  // what has come is judged, whatever the result
    return ::memcmp(reply, "ok\n", 4) == 0 ? 0 : -1;
}

/// Whether a request line can carry the text as one token: between double quotes, or bare.
static bool isQuotable(const char* text)
{
    return !::strpbrk(text, "\"\r\n");
}

static bool isBare(const char* text)
{
    return !::strpbrk(text, "\" \t\n\v\f\r");
}

int ZoScheduleJobSubmit(int fd, const char* command, const char* description, const char* directory)
{
    if (fd < 0 || !command)
        return -1;
    if (!description)
        description = "";
    if (!directory)
        directory = "";
    // Better no job than another command.
    if (!isQuotable(command) || !isQuotable(description) || !isBare(directory))
        return -1;
    const size_t frame = sizeof " submit \"\" \"\" \"\"\n";
    if (theUser.length() + ::strlen(command) + ::strlen(description) + ::strlen(directory) + frame >
        UtSocket::MAX_LINE)
        return -1;
    UtSocket::send(fd, "%s submit \"%s\" \"%s\" \"%s\"\n", (const char*)theUser, command,
                   description, directory);
    return isOk(fd);
}

int ZoScheduleJobKill(int fd)
{
    if (fd < 0)
        return -1;
    UtSocket::send(fd, "%s kill\n", (const char*)theUser);
    return isOk(fd);
}

/// Sends a request that may name a job. Returns 0 or -1.
static int askForJob(int fd, const char* request, UtHandle<ZoJob> job)
{
    if (fd < 0)
        return -1;
    if (!job) {
        UtSocket::send(fd, "%s %s\n", (const char*)theUser, request);
        return isOk(fd);
    }
    if (!isBare(job->directory))  // its first word might name another job
        return -1;
    UtSocket::send(fd, "%s %s %lld %s\n", (const char*)theUser, request, job->id,
                   (const char*)job->directory);
    return isOk(fd);
}

int ZoScheduleJobRemove(int fd, UtHandle<ZoJob> job)
{
    return askForJob(fd, "remove", job);
}

int ZoScheduleJobRun(int fd, UtHandle<ZoJob> job)
{
    return askForJob(fd, "run", job);
}

int ZoScheduleJobList(int fd, UtDArray<UtHandle<ZoJob>>& jobs)
{
    if (fd < 0)
        return -1;
    UtSocket::send(fd, "%s list\n", (const char*)theUser);
    UtLineReader reader(fd);  // the list is all that comes
    UtString line;
    reader.readLine(line);  // without a count line there is no job
    const long long count = zoNumber(line);
    jobs.resize(0);
    for (long long i = 0; i < count && reader.readLine(line) > 0; ++i)
        jobs.append(ZoJob::createFromMessage(line));
    UtSocket::close(fd);
    return (int)jobs.size();
}

// The marker is found in a file by searching for it; its spread form tells its length without being
// found as well. Both are there for tools that read the file, whatever the optimiser thinks of
// them.
#define MARKER "$KelvoVersion"
#define KEPT __attribute__((used))
KEPT static const char spreadMarker[] = "$.K.e.l.v.o.V.e.r.s.i.o.n.";
KEPT static const char versionRecord[] =
    MARKER "|version_tag|v" ZO_VERSION "|comment|" ZO_DESCRIPTION "|compiler|" ZO_COMPILER
           "|target_os|" ZO_TARGET_OS "|build_cfg|" ZO_BUILD_CFG "|build_user|" ZO_BUILD_USER
           "|build_ip|" ZO_BUILD_IP "|build_time|" ZO_BUILD_TIME
           "|filename|libschedule.so." ZO_VERSION "|path|" ZO_PATH "|size|" ZO_SIZE
           "|vendor|Kelvo|product|Kelvo Schedule|version_major|" ZO_VERSION_MAJOR
           "|version_minor|" ZO_VERSION_MINOR "|version_patch|" ZO_VERSION_PATCH;

const char* kelvopackage_schedule()
{
    return versionRecord + ::strlen(spreadMarker) / 2;
}
