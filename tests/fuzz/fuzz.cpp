// Feeds what nobody would write to the server and the client. The variable FUZZ names the input:
//     request  request lines, each on a connection of its own, one after another to one server
//     list     a reply to "list", as a client gets it; and the server's own, understood by a client
//     queue    the text of a queue file: what is loaded is saved and loaded again without a change
// A request runs commands, deletes directories and signals processes. Here it must not: the
// functions below stand in for libc's, and outside of script/fuzz's sandbox the program refuses.

#include "schedule/ZoJobChildren.h"
#include "schedule/ZoJobServer.h"
#include "schedule/ZoProtocol.h"
#include "schedule/ZoSchedule.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <pwd.h>
#include <spawn.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

typedef UtDArray<UtHandle<ZoJob>> Jobs;

static const long MOST_JOBS = 100;  // their list fits into a socket's buffer
static char theTarget = 0;          // the first letter of FUZZ
static time_t theTime;              // begins anew with every input, so that ids are small numbers

#define FAILS __attribute__((alias("failing")))
#define DOES_NOTHING __attribute__((alias("nothing")))

extern "C" {
long failing()
{
    return -1;
}
void* nothing()
{
    return nullptr;
}
int posix_spawn(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                char* const*, char* const*) FAILS;
int posix_spawnp(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                 char* const*, char* const*) FAILS;
int kill(pid_t, int) noexcept FAILS;
int unlink(const char*) noexcept FAILS;
int unlinkat(int, const char*, int) noexcept FAILS;
int rmdir(const char*) noexcept FAILS;
int mkdir(const char*, mode_t) noexcept FAILS;
struct passwd* getpwuid(uid_t) DOES_NOTHING;
unsigned sleep(unsigned) DOES_NOTHING;  // also in libFuzzer's own thread: -rss_limit_mb=0
// Fails now and then; else the number of a process that no kernel has.
pid_t fork() noexcept
{
    return theTime % 4 == 0 ? -1 : 1 << 30;
}
char* mkdtemp(char* path) noexcept
{
    ::strcpy(path, "/var/tmp/kelvojob000000");
    ::mkdirat(AT_FDCWD, path, 0700);  // may be there from the last time
    return path;
}
time_t time(time_t*) noexcept
{
    return ++theTime;
}
// Every job in a queue file has its marker file.
int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept
{
    if (theTarget != 'q')
        return (int)::syscall(SYS_newfstatat, directory, path, status, flags);
    *status = {};
    status->st_mode = S_IFREG;
    status->st_uid = ::geteuid();
    return 0;
}
}

static void require(bool condition, const char* what)
{
    if (condition)
        return;
    ::fprintf(stderr, "FINDING: %s\n", what);
    ::abort();
}

/// The one server, with an empty queue and at rest.
static ZoJobServer& freshServer()
{
    const char* const name = ::getenv("FUZZ");
    require(name && ::getenv("KELVO_SANDBOX_PRIVATE") && ::getppid() == 1 &&
                ::faccessat(AT_FDCWD, "/", W_OK, 0) != 0,
            "this runs in a sandbox only: start it with script/fuzz");
    theTarget = *name;
    static ZoJobServer server(0);
    ZoJobList& list = server.jobList;
    require(list.homeDirectory == ::getenv("HOME") && list.user == "u",
            "the libraries do not use the functions above");
    theTime = 0;
    server.jobRunning = server.runAll = server.terminate = 0;
    list.children->pids.resize(0);
    list.jobs.resize(0);
    list.writeQueue(list.jobs);
    return server;
}

/// Gives the bytes, then the end of the connection, to a function that closes its end. Returns what
/// it has sent.
static std::string talk(const std::string& bytes, const std::function<void(int)>& function)
{
    int ends[2];
    const bool isOpen = ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0;
    require(isOpen && ::send(ends[0], bytes.data(), bytes.size(), MSG_DONTWAIT) >= 0, "no socket");
    ::shutdown(ends[0], SHUT_WR);
    function(ends[1]);
    std::string reply;
    char piece[65536];
    for (long n; (n = ::recv(ends[0], piece, sizeof piece, MSG_DONTWAIT)) > 0;)
        reply.append(piece, n);
    ::close(ends[0]);
    return reply;
}

static std::string show(const Jobs& jobs)
{
    std::ostringstream out;
    for (long i = 0; i < jobs.size(); ++i) {
        const ZoJob& job = *jobs[i];
        out << job.command << "\n" << job.description << "\n" << job.directory << "\n";
        for (long long n : { (long long)job.state, job.id, job.startTime, job.endTime,
                             (long long)job.reserved, (long long)job.pid })
            out << n << "\n";
    }
    return out.str();
}

/// Whether the reply is one that the protocol knows.
static bool isReply(const std::string& reply)
{
    const long lines = std::count(reply.begin(), reply.end(), '\n');
    const bool isWord = lines == 1 && ZoProtocol::readReply(reply.c_str()) != ZoProtocol::NO_REPLY;
    return isWord || (reply[0] >= '0' && lines == ::atol(reply.c_str()) + 1);
}

static void fuzzRequest(ZoJobServer& server, const std::string& input)
{
    std::istringstream lines(input);
    std::string line;
    for (long i = 0; i < MOST_JOBS && std::getline(lines, line); ++i) {
        const bool isWhole = !lines.eof() && line.find('\0') == line.npos;
        line += lines.eof() ? "" : "\n";
        const std::string reply = talk(line, [&](int fd) { server.handleRequest(fd); });
        require(isWhole ? isReply(reply) : reply.empty(), "a wrong reply");
    }
    server.jobList.update();  // drops the jobs whose directory does not exist
}

/// Whether a list line can carry the job: it has no escapes.
static bool isCarried(const ZoJob& job)
{
    return ZoProtocol::canQuote(job.command) && ZoProtocol::canQuote(job.description) &&
           ZoProtocol::canBeBare(job.directory) && job.directory.length() > 0;
}

static void fuzzList(ZoJobServer& server, const std::string& input)
{
    Jobs received, &jobs = server.jobList.jobs;
    talk(input, [&](int fd) { ZoScheduleJobList(fd, jobs); });
    jobs.append(ZoJob::createFromMessage(input.c_str()));
    for (long i = jobs.size() - 1; i >= 0; --i)
        if (!isCarried(*jobs[i]) || jobs.size() > MOST_JOBS)
            jobs.remove(i, 1);
    const std::string reply = talk("u list\n", [&](int fd) { server.handleRequest(fd); });
    talk(reply, [&](int fd) { ZoScheduleJobList(fd, received); });
    require(show(received) == show(jobs), "a client got another list");
}

static void fuzzQueue(ZoJobServer& server, const std::string& input)
{
    Jobs& jobs = server.jobList.jobs;
    server.jobList.readQueue(input.c_str(), jobs);
    const std::string text = show(jobs);
    // Only a damaged file has line ends in its fields, and there is no escape for them.
    if (std::count(text.begin(), text.end(), '\n') != jobs.size() * 9)
        jobs.resize(0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ZoJobServer& server = freshServer();
    const std::string input((const char*)data, size);
    if (theTarget == 'l') {
        fuzzList(server, input);
        return 0;
    }
    if (theTarget == 'r')
        fuzzRequest(server, input);
    else
        fuzzQueue(server, input);
    Jobs loaded;
    ZoJobList& list = server.jobList;
    list.readQueue(input.substr(size / 2).c_str(), loaded);  // other jobs, to be filled anew
    list.lockQueue();
    list.writeQueue(list.jobs);
    list.unlockQueue();
    list.readQueue(loaded);
    require(show(loaded) == show(list.jobs), "the queue file holds another queue");
    return 0;
}
