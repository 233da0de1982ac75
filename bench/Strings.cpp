// What appending to a string costs, against copying the same bytes into a buffer that is large
// enough from the start.

#include "bench/support/Report.h"
#include "utlib/UtString.h"

#include <cstring>
#include <memory>

static const char PIECE[] = "0123456789abcdefghijklmnopqrstuvwxyz";
static const long LENGTH = sizeof PIECE - 1;

static void appendTexts(benchmark::State& state)
{
    for (auto _ : state) {
        UtString text;
        for (long i = 0; i < state.range(0); ++i)
            text += PIECE;
        benchmark::DoNotOptimize(text.data);
    }
}
BENCHMARK(appendTexts)->Name("AppendTexts")->Arg(10)->Arg(10000)->UseRealTime();

static void appendCharacters(benchmark::State& state)
{
    for (auto _ : state) {
        UtString text;
        for (long i = 0; i < state.range(0); ++i) {
            for (const char* c = PIECE; *c; ++c)
                text += *c;
        }
        benchmark::DoNotOptimize(text.data);
    }
}
BENCHMARK(appendCharacters)->Name("AppendCharacters")->Arg(10)->Arg(10000)->UseRealTime();

static void copyTexts(benchmark::State& state)
{
    for (auto _ : state) {
        const std::unique_ptr<char[]> buffer(new char[state.range(0) * LENGTH + 1]);
        for (long i = 0; i < state.range(0); ++i)
            ::memcpy(&buffer[i * LENGTH], PIECE, LENGTH + 1);
        benchmark::DoNotOptimize(buffer.get());
    }
}
BENCHMARK(copyTexts)->Name("CopyTexts")->Arg(10)->Arg(10000)->UseRealTime();

int main(int argc, char** argv)
{
    const std::string floor = "copy into a large enough buffer";
    return benchMain(
        argc, argv,
        { { "append 10 texts of 36 bytes", "AppendTexts/10", "CopyTexts/10", floor },
          { "append 10,000 texts of 36 bytes", "AppendTexts/10000", "CopyTexts/10000", floor },
          { "append 360 characters", "AppendCharacters/10", "CopyTexts/10", floor },
          { "append 360,000 characters", "AppendCharacters/10000", "CopyTexts/10000", floor } });
}
