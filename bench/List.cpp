// What the list of the queue costs an application, from ZoScheduleOpen() to the array of jobs, with
// a real server. The floor sends the bytes of the same reply through a loopback connection.

#include "bench/FloorServer.h"
#include "bench/Queue.h"
#include "bench/Report.h"
#include "schedule/ZoSchedule.h"
#include "tests/sandbox/TestServer.h"
#include "utlib/UtSocket.h"

#include <unistd.h>

static void withSizes(benchmark::internal::Benchmark* one)
{
    one->Arg(10)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();
}

static void list(benchmark::State& state)
{
    const long count = state.range(0);
    Queue::write(count);
    TestServer server(Sandbox::SCHEDULE_PORT);
    ::close(Queue::open());  // the first one probes the server
    for (auto _ : state) {
        UtDArray<UtHandle<ZoJob>> jobs;
        if (ZoScheduleJobList(Queue::open(), jobs) != count)
            state.SkipWithError("not all jobs came");
    }
}
BENCHMARK(list)->Name("List")->Apply(withSizes);

/// The whole reply of a real server with that many jobs.
static std::string reply(long count)
{
    Queue::write(count);
    TestServer server(Sandbox::SCHEDULE_PORT);
    const int fd = Queue::open();
    UtSocket::send(fd, "tester list\n");
    std::string text;
    char buffer[65536];
    for (int n; (n = UtSocket::receive(fd, buffer, sizeof buffer, 0)) > 0;)
        text.append(buffer, n);
    ::close(fd);
    return text;
}

static void floorOfIt(benchmark::State& state)
{
    const std::string text = reply(state.range(0));
    const FloorServer server([&](int fd) { writeAll(fd, text.data(), text.size()); });
    for (auto _ : state) {
        if (server.request("tester list\n") != (long)text.size())
            state.SkipWithError("not all bytes came");
    }
}
BENCHMARK(floorOfIt)->Name("Floor")->Apply(withSizes);

int main(int argc, char** argv)
{
    std::vector<Comparison> rows;
    for (const char* size : { "10", "100", "1,000", "10,000" }) {
        const std::string number = withoutCommas(size);
        rows.push_back({ std::string("list of ") + size + " jobs", "List/" + number,
                         "Floor/" + number, "the reply's bytes through a connection",
                         number == "10000" ? 4.0 : 0.0 });
    }
    return benchMain(argc, argv, rows);
}
