// What one change of the queue costs: load the whole file, look every marker up, save the whole
// file, inside the lock brackets. The floor does no more than the system calls that this needs.

#include "bench/Queue.h"
#include "bench/Report.h"
#include "schedule/ZoJobList.h"
#include "tests/sandbox/Sandbox.h"

static void withSizes(benchmark::internal::Benchmark* one)
{
    one->Arg(10)->Arg(100)->Arg(1000)->Arg(10000)->Arg(20000)->Arg(100000);
    one->Unit(benchmark::kMillisecond)->UseRealTime();
}

static void loadSave(benchmark::State& state)
{
    const long count = state.range(0);
    Queue::write(count);
    ZoJobList list;
    for (auto _ : state) {
        list.lockQueue();
        list.readQueue(list.jobs);
        list.writeQueue(list.jobs);
        list.unlockQueue();
    }
    if (list.jobs.size() != count || Sandbox::read(Sandbox::queueFile()) != Queue::text(count))
        state.SkipWithError("the queue is not what it was");
}
BENCHMARK(loadSave)->Name("LoadSave")->Apply(withSizes);

static void floorOfIt(benchmark::State& state)
{
    QueueFloor floor(state.range(0));
    for (auto _ : state) {
        if (!floor.readLookUpWrite()) {
            state.SkipWithError("a file is missing");
            break;
        }
    }
}
BENCHMARK(floorOfIt)->Name("Floor")->Apply(withSizes);

int main(int argc, char** argv)
{
    const std::string floor = "read, look up, write", ten = "of 10,000 jobs";
    const std::string what = "load and save of ";
    std::vector<Comparison> rows;
    for (const char* name : { "10", "100", "1,000", "10,000", "100,000" }) {
        const std::string size = "/" + withoutCommas(name);
        rows.push_back({ what + name + " jobs", "LoadSave" + size, "Floor" + size, floor,
                         size == "/10000" ? 1.5 : 0 });
    }
    rows.push_back({ what + "20,000 jobs", "LoadSave/20000", "LoadSave/10000", ten, 2.3 });
    rows.push_back({ what + "100,000 jobs", "LoadSave/100000", "LoadSave/10000", ten, 11 });
    for (size_t i = 3, end = rows.size(); i < end; ++i) {
        Comparison row = rows[i];
        row.what += ", processor time";
        row.atMost = 0;
        row.isCpu = true;
        rows.push_back(row);
    }
    return benchMain(argc, argv, rows);
}
