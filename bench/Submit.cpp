// What one submission costs an application, from ZoScheduleOpen() to the end of the connection,
// with a real server. The floor of an empty queue sends the same bytes through the least possible
// server, which reads and writes a file; the floor of a long one is what the file and its markers
// cost.

#include "bench/FloorServer.h"
#include "bench/Queue.h"
#include "bench/Report.h"
#include "schedule/ZoSchedule.h"
#include "tests/sandbox/TestServer.h"

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

static const char COMMAND[] = "make -j2 all";
static const char DESCRIPTION[] = "nightly build";

/// One submission after another to a queue of the given length; what each adds is taken out again.
static void submitTo(benchmark::State& state, const std::string& directory)
{
    const long count = state.range(0);
    Queue::write(count);
    TestServer server(Sandbox::SCHEDULE_PORT);
    ::close(Queue::open());  // the first one probes the server
    for (auto _ : state) {
        const int fd = Queue::open();
        if (ZoScheduleJobSubmit(fd, COMMAND, DESCRIPTION, directory.c_str()) != 0)
            state.SkipWithError("refused");
        ::close(fd);
        state.PauseTiming();
        if ((long)fs::file_size(Sandbox::queueFile()) <= count * Queue::RECORD_SIZE)
            state.SkipWithError("not queued");
        fs::resize_file(Sandbox::queueFile(), count * Queue::RECORD_SIZE);
        if (!directory.empty()) {
            fs::remove_all(directory);
            fs::create_directory(directory);
        }
        state.ResumeTiming();
    }
}

static void submitHere(benchmark::State& state)
{
    const std::string directory = Sandbox::path("run");
    fs::create_directory(directory);
    submitTo(state, directory);
}
BENCHMARK(submitHere)->Name("Submit")->Arg(0)->Arg(10000)->UseRealTime();

static void submitAnywhere(benchmark::State& state)
{
    submitTo(state, "");
}
BENCHMARK(submitAnywhere)->Name("SubmitFresh")->Arg(0)->UseRealTime();

/// Reads a file of no jobs and writes it with one.
static void changeFile(const char* file, const std::string& record)
{
    char buffer[4096];
    int fd = ::open(file, O_RDONLY | O_CLOEXEC);
    const long n = ::read(fd, buffer, sizeof buffer);
    ::close(fd);
    fd = ::open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (n >= 0)
        writeAll(fd, record.data(), record.size());
    ::close(fd);
}

static void floorOfRequest(benchmark::State& state)
{
    const std::string file = Sandbox::path("floor"), record = Queue::record(0);
    Sandbox::write(file, "");
    const FloorServer server([&](int fd) {
        changeFile(file.c_str(), record);
        writeAll(fd, "ok", 2);
        writeAll(fd, "\n", 1);
    });
    const std::string line = std::string("tester submit \"") + COMMAND + "\" \"" + DESCRIPTION +
                             "\" \"" + Sandbox::path() + "/run\"\n";
    for (auto _ : state) {
        if (server.request(line) != 3)
            state.SkipWithError("no answer");
        state.PauseTiming();
        fs::resize_file(file, 0);
        state.ResumeTiming();
    }
}
BENCHMARK(floorOfRequest)->Name("Floor")->Arg(0)->UseRealTime();

static void floorOfQueue(benchmark::State& state)
{
    QueueFloor floor(state.range(0));
    for (auto _ : state) {
        if (!floor.readLookUpWrite())
            state.SkipWithError("a file is missing");
    }
}
BENCHMARK(floorOfQueue)->Name("Floor")->Arg(10000)->UseRealTime();

int main(int argc, char** argv)
{
    const std::string least = "the same bytes through a least server, a file read and written";
    const std::string carry = "read, look up, write";
    return benchMain(
        argc, argv,
        { { "submit, empty queue", "Submit/0", "Floor/0", least, 2.5 },
          { "submit, empty queue, into a fresh directory", "SubmitFresh/0", "Floor/0", least },
          { "submit, 10,000 jobs queued", "Submit/10000", "Floor/10000", carry, 1.6 } });
}
