// What the list of the queue costs an application, from ZoScheduleOpen() to the array of jobs, with
// a real server. The floor sends the bytes of the same reply through a loopback connection, in one
// piece or, as the server must, a line at a time.

#include "bench/support/Place.h"
#include "bench/support/Report.h"
#include "bench/support/Servers.h"
#include "schedule/ZoSchedule.h"
#include "utlib/UtSocket.h"

#include <unistd.h>

static void withSizes(benchmark::internal::Benchmark* one)
{
    one->Arg(10)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();
}

static void list(benchmark::State& state)
{
    const long count = state.range(0);
    Place::makeJobs(count);
    Place::write(Place::queueFile(), Place::queueText(count));
    JobServer server;
    ::close(JobServer::open());  // the first one probes the server
    for (auto _ : state) {
        UtDArray<UtHandle<ZoJob>> jobs;
        if (ZoScheduleJobList(JobServer::open(), jobs) != count)
            state.SkipWithError("not all jobs came");
    }
}
BENCHMARK(list)->Name("List")->Apply(withSizes);

/// The whole reply of a real server with that many jobs.
static std::string reply(long count)
{
    Place::makeJobs(count);
    Place::write(Place::queueFile(), Place::queueText(count));
    JobServer server;
    const int fd = JobServer::open();
    UtSocket::send(fd, "bench list\n");
    std::string text;
    char buffer[65536];
    for (int n; (n = UtSocket::receive(fd, buffer, sizeof buffer, 0)) > 0;)
        text.append(buffer, n);
    ::close(fd);
    return text;
}

static void floorInOnePiece(benchmark::State& state)
{
    const std::string text = reply(state.range(0));
    const LeastServer server([&](int fd) { writeAll(fd, text.data(), text.size()); });
    for (auto _ : state) {
        if (server.request("bench list\n") != (long)text.size())
            state.SkipWithError("not all bytes came");
    }
}
BENCHMARK(floorInOnePiece)->Name("Floor")->Apply(withSizes);

static void floorByLines(benchmark::State& state)
{
    const std::string text = reply(state.range(0));
    const LeastServer server([&](int fd) {
        for (size_t start = 0, end; start < text.size(); start = end) {
            end = text.find('\n', start) + 1;
            writeAll(fd, text.data() + start, end - start);
        }
    });
    for (auto _ : state) {
        if (server.request("bench list\n") != (long)text.size())
            state.SkipWithError("not all bytes came");
    }
}
BENCHMARK(floorByLines)->Name("FloorByLines")->Apply(withSizes);

int main(int argc, char** argv)
{
    const std::string bytes = "the reply's bytes through a connection";
    const std::string lines = "its lines, a write each";
    std::vector<Comparison> rows;
    for (const auto& [size, name] : { std::pair<const char*, const char*>{ "/10", "10" },
                                      { "/100", "100" },
                                      { "/1000", "1,000" },
                                      { "/10000", "10,000" } }) {
        const std::string what = std::string("list of ") + name + " jobs";
        const bool hasTarget = std::string(name) == "10,000";
        rows.push_back({ what, std::string("List") + size, std::string("Floor") + size, bytes,
                         hasTarget ? 4.0 : 0.0 });
        rows.push_back(
            { what, std::string("List") + size, std::string("FloorByLines") + size, lines });
    }
    return benchMain(argc, argv, rows);
}
