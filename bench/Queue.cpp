#include "bench/Queue.h"

#include "schedule/ZoSchedule.h"
#include "tests/sandbox/Sandbox.h"

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

static const long long FIRST_ID = 1700000000;

static std::string jobDirectory(long number)
{
    char name[32];
    ::snprintf(name, sizeof name, "jobs/j%06ld", number);
    return Sandbox::path(name);
}

std::string Queue::marker(long number)
{
    return jobDirectory(number) + "/." + std::to_string(FIRST_ID + number);
}

void Queue::makeJobs(long count)
{
    static long made = 0;
    for (; made < count; ++made) {
        std::filesystem::create_directories(jobDirectory(made));
        if (::access(marker(made).c_str(), F_OK) != 0)
            Sandbox::write(marker(made), "");
    }
}

std::string Queue::record(long number)
{
    const std::string tail =
        jobDirectory(number) + ":" + std::to_string(FIRST_ID + number) + ":0:0:0:-1\n";
    const std::string head = "10:true -j2 all:";
    return head + std::string(RECORD_SIZE - tail.size() - head.size() - 1, 'd') + ":" + tail;
}

std::string Queue::text(long count)
{
    std::string all;
    for (long i = 0; i < count; ++i)
        all += record(i);
    return all;
}

void Queue::write(long count)
{
    makeJobs(count);
    Sandbox::write(Sandbox::queueFile(), text(count));
}

int Queue::open()
{
    const int fd = ZoScheduleOpen(nullptr, KELVO_BUILD_DIR, "", "");
    if (fd < 0)
        Sandbox::fail("no connection to the job server");
    return fd;
}

QueueFloor::QueueFloor(long count) : file(Sandbox::path("floor")), buffer(Queue::text(count))
{
    Queue::makeJobs(count);
    Sandbox::write(file, buffer);
    for (long i = 0; i < count; ++i)
        markers.push_back(Queue::marker(i));
}

bool QueueFloor::readLookUpWrite()
{
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    const long n = ::read(fd, buffer.data(), buffer.size());
    ::close(fd);
    long found = 0;
    for (const std::string& marker : markers)
        found += ::access(marker.c_str(), F_OK) == 0;
    fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const long written = ::write(fd, buffer.data(), buffer.size());
    ::close(fd);
    return n == written && n == (long)buffer.size() && found == (long)markers.size();
}
