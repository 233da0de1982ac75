// What turning text into jobs and back costs, without files: the queue's text, one line of the list
// reply, one request line. The floor passes over the same bytes once, copying them.

#include "bench/support/Place.h"
#include "bench/support/Report.h"
#include "schedule/ZoJobList.h"
#include "utlib/UtStringTokenizer.h"

#include <cstring>
#include <unistd.h>

static const long COUNT = 10000;

/// Stands in for the system's look-up in this program and its libraries: every marker is there.
extern "C" __attribute__((visibility("default"))) int access(const char*, int) noexcept
{
    return 0;
}

static void parse(benchmark::State& state)
{
    const UtString text(Place::queueText(COUNT).c_str());
    ZoJobList list;
    for (auto _ : state)
        list.readQueue(text, list.jobs);
    if (list.jobs.size() != COUNT)
        state.SkipWithError("not all jobs came back");
}
BENCHMARK(parse)->Name("Parse")->Arg(COUNT)->Unit(benchmark::kMillisecond)->UseRealTime();

static void format(benchmark::State& state)
{
    const std::string whole = Place::queueText(COUNT);
    ZoJobList list;
    list.readQueue(whole.c_str(), list.jobs);
    for (auto _ : state) {
        UtString text;
        list.writeQueue(text, list.jobs);
        if (text.length() != (long)whole.size())
            state.SkipWithError("not all bytes came back");
    }
}
BENCHMARK(format)->Name("Format")->Arg(COUNT)->Unit(benchmark::kMillisecond)->UseRealTime();

static void copy(benchmark::State& state)
{
    const std::string text = Place::queueText(COUNT);
    for (auto _ : state)
        benchmark::DoNotOptimize(std::string(text));
}
BENCHMARK(copy)->Name("CopyQueue")->Arg(COUNT)->Unit(benchmark::kMillisecond)->UseRealTime();

static const char LIST_LINE[] =
    "10 \"make -j2 all\" \"dddddddddddddddd\" /var/tmp/kelvojob012345 1700000000 0 0 0";

static void readListLine(benchmark::State& state)
{
    for (auto _ : state)
        UtHandle<ZoJob> job(ZoJob::createFromMessage(LIST_LINE));
}
BENCHMARK(readListLine)->Name("ReadListLine")->Arg(1)->UseRealTime();

static void splitRequest(benchmark::State& state)
{
    for (auto _ : state) {
        UtStringTokenizer tokens("bench submit \"make -j2 all\" \"nightly build\" \"/home/u/run\"");
        while (tokens.hasMoreTokens())
            benchmark::DoNotOptimize(tokens.nextToken().data);
    }
}
BENCHMARK(splitRequest)->Name("SplitRequest")->Arg(1)->UseRealTime();

static void copyLine(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(std::string(LIST_LINE));
}
BENCHMARK(copyLine)->Name("CopyLine")->Arg(1)->UseRealTime();

int main(int argc, char** argv)
{
    const std::string whole = "copy the text", line = "copy such a line";
    return benchMain(argc, argv,
                     { { "parse a queue of 10,000 jobs", "Parse/10000", "CopyQueue/10000", whole },
                       { "format one", "Format/10000", "CopyQueue/10000", whole },
                       { "read one line of a list", "ReadListLine/1", "CopyLine/1", line },
                       { "split a request line", "SplitRequest/1", "CopyLine/1", line } });
}
