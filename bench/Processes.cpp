// What a person meets: the command as a whole process, the server's memory, its idle hours, and how
// soon a job begins. One word chooses a question: submit, memory, start or idle.

#include "bench/Measured.h"
#include "bench/Queue.h"
#include "bench/Report.h"
#include "schedule/ZoSchedule.h"
#include "tests/sandbox/TestServer.h"
#include "utlib/UtSocket.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

static const long MANY = 10000;
static const int IDLE_SECONDS = 31;  // one pass of the server's loop, and a little
static const int STARTS = 5;

static void expect(bool condition, const char* what)
{
    if (!condition)
        Sandbox::fail(what);
}

static void measureSubmit()
{
    Queue::write(0);
    TestServer server(Sandbox::SCHEDULE_PORT);
    const std::string zojob = KELVO_BUILD_DIR "/bin/zojob";
    const double seconds = Measured::medianOf(50, { zojob, "submit", "true" });
    printFigure("`zojob submit` as a whole process, empty queue", timeText(seconds), seconds, 0.010,
                "at most 10 ms");
    const double floor = Measured::medianOf(50, { "true" });
    printFigure("`true` as a whole process", timeText(floor), floor, 0, "");
}

/// What the server holds after it has submitted, listed and submitted again.
static double memoryWith(long count)
{
    Queue::write(count);
    TestServer server(Sandbox::SCHEDULE_PORT);
    UtDArray<UtHandle<ZoJob>> jobs;
    for (int i = 0; i < 3; ++i) {
        const int fd = Queue::open();
        expect(ZoScheduleJobSubmit(fd, "true", "", nullptr) == 0, "not submitted");
        UtSocket::close(fd);
        expect(ZoScheduleJobList(Queue::open(), jobs) > count, "not listed");
    }
    return Measured::resident(server.pid());
}

static void measureMemory()
{
    const double empty = memoryWith(0), full = memoryWith(MANY);
    const double growth = (full - empty) / (double)MANY;
    char text[64];
    ::snprintf(text, sizeof text, "%.1f MB", empty / 1e6);
    printFigure("server's resident memory, empty queue", text, empty, 0, "");
    ::snprintf(text, sizeof text, "%.1f MB", full / 1e6);
    printFigure("server's resident memory, 10,000 jobs", text, full, 20e6, "at most 20 MB");
    ::snprintf(text, sizeof text, "%.0f B", growth);
    printFigure("its growth a job", text, growth, 1000, "at most 1 kB");
}

static std::string statusOf()
{
    const int fd = Queue::open();
    char reply[64] = {};
    UtSocket::send(fd, "tester status\n");
    UtSocket::receive(fd, reply, sizeof reply - 1, 1);
    UtSocket::close(fd);
    return reply;
}

/// Seconds from the "run" request for a job to the first byte of its command's output, which goes
/// to a pipe that is opened here already.
static double startOnce(int pipe, UtHandle<ZoJob> job)
{
    const double start = now();
    const int fd = Queue::open();
    expect(ZoScheduleJobRun(fd, job) == 0, "not run");
    struct pollfd waiting = { pipe, POLLIN, 0 };
    expect(::poll(&waiting, 1, 10000) == 1, "the job has not begun");
    const double seconds = now() - start;
    UtSocket::close(fd);
    char byte;
    expect(::read(pipe, &byte, 1) == 1, "no output");
    while (statusOf() == "running\n")  // for a second or so: a command's end is waited for
        ::usleep(20000);
    return seconds;
}

static double medianStart(long count)
{
    Queue::write(count);
    TestServer server(Sandbox::SCHEDULE_PORT);
    const std::string path = Sandbox::path("pipe"), directory = Sandbox::path("run");
    ::mkdir(directory.c_str(), 0775);
    ::unlink(path.c_str());
    expect(::mkfifo(path.c_str(), 0600) == 0, "no pipe");
    const int pipe = ::open(path.c_str(), O_RDWR | O_CLOEXEC);  // it never ends
    std::vector<double> seconds;
    for (int i = 0; i < STARTS; ++i) {
        const int fd = Queue::open();
        const std::string command = "printf x >" + path;
        expect(ZoScheduleJobSubmit(fd, command.c_str(), "", nullptr) == 0, "not submitted");
        UtSocket::close(fd);
        UtDArray<UtHandle<ZoJob>> jobs;
        const long size = ZoScheduleJobList(Queue::open(), jobs);
        expect(size > count, "not listed");
        seconds.push_back(startOnce(pipe, jobs[size - 1]));
    }
    ::close(pipe);
    return median(seconds);
}

static void measureStart()
{
    const double empty = medianStart(0), full = medianStart(MANY);
    printFigure("first output byte after \"run\", no other job", timeText(empty), empty, 0.020,
                "at most 20 ms");
    printFigure("first output byte after \"run\", 10,000 jobs queued", timeText(full), full, 0.060,
                "at most 60 ms");
}

static void measureIdle()
{
    Queue::write(0);
    TestServer server(Sandbox::SCHEDULE_PORT);
    const int fd = Queue::open();
    expect(ZoScheduleJobSubmit(fd, "sleep 1000", "", nullptr) == 0, "not submitted");
    UtSocket::close(fd);
    const int again = Queue::open();
    expect(ZoScheduleJobRun(again, UtHandle<ZoJob>()) == 0, "not run");
    UtSocket::close(again);
    ::sleep(1);
    const long wakeUps = Measured::wakeUps(server.pid());
    const double cpu = Measured::cpuSeconds(server.pid());
    ::sleep(IDLE_SECONDS);
    const long more = Measured::wakeUps(server.pid()) - wakeUps;
    const double used = Measured::cpuSeconds(server.pid()) - cpu;
    expect(wakeUps > 0, "no server");
    printFigure("idle server with a job running: wake-ups in 31 s", std::to_string(more),
                (double)more, 1, "one in 30 s");
    printFigure("its processor time meanwhile", timeText(used), used, 0.0099, "none");
}

int main(int argc, char** argv)
{
    Sandbox::enter(argv);
    TestServer::logs = false;
    const std::string word = argc > 1 ? argv[1] : "";
    if (word == "submit")
        measureSubmit();
    else if (word == "memory")
        measureMemory();
    else if (word == "start")
        measureStart();
    else if (word == "idle")
        measureIdle();
    else
        Sandbox::fail("usage: bench-processes submit|memory|start|idle");
    return 0;
}
