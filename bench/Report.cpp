#include "bench/Report.h"

#include "tests/sandbox/TestServer.h"

#include <algorithm>
#include <cstdio>
#include <map>

struct Medians {
    double real = 0, cpu = 0;  ///< seconds
};

/// Shows what the console shows, and keeps the medians.
class MedianKeeper : public benchmark::ConsoleReporter
{
public:
    std::map<std::string, Medians> medians;

    MedianKeeper() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            failed = failed || run.error_occurred;
            const double unit = benchmark::GetTimeUnitMultiplier(run.time_unit);
            if (run.aggregate_name == "median")
                medians[run.run_name.function_name + "/" + run.run_name.args] = {
                    run.GetAdjustedRealTime() / unit, run.GetAdjustedCPUTime() / unit
                };
        }
    }

    bool failed = false;
};

std::string timeText(double seconds)
{
    if (seconds == 0)
        return "0 s";
    static const struct {
        double size;
        const char* name;
    } units[] = { { 1, "s" }, { 1e-3, "ms" }, { 1e-6, "us" }, { 1e-9, "ns" } };
    const auto* unit = units;
    while (unit->size > 1e-9 && seconds < unit->size)
        ++unit;
    const double value = seconds / unit->size;
    char text[40];
    ::snprintf(text, sizeof text, "%.*f %s",
               value < 10    ? 2
               : value < 100 ? 1
                             : 0,
               value, unit->name);
    return text;
}

std::string withoutCommas(std::string number)
{
    number.erase(std::remove(number.begin(), number.end(), ','), number.end());
    return number;
}

void printRow(const std::string& what, const std::string& figure, const std::string& reference,
              const std::string& ratio, const std::string& target, const std::string& verdict)
{
    std::printf("| %s | %s | %s | %s | %s | %s |\n", what.c_str(), figure.c_str(),
                reference.c_str(), ratio.c_str(), target.c_str(), verdict.c_str());
    std::fflush(stdout);
}

void printFigure(const std::string& what, const std::string& text, double value, double atMost,
                 const std::string& target)
{
    printRow(what, text, "", "", target, atMost <= 0 ? "" : value <= atMost ? "met" : "missed");
}

static void printComparison(const Comparison& row, const std::map<std::string, Medians>& medians)
{
    const auto figure = medians.find(row.figure), against = medians.find(row.against);
    if (figure == medians.end() || against == medians.end())
        return;  // filtered out by the caller
    const double measured = row.isCpu ? figure->second.cpu : figure->second.real;
    const double reference = row.isCpu ? against->second.cpu : against->second.real;
    const double ratio = measured / reference;
    char ratioText[32], target[40] = "";
    ::snprintf(ratioText, sizeof ratioText, "%.2f", ratio);
    if (row.atMost > 0)
        ::snprintf(target, sizeof target, "at most %g times", row.atMost);
    printRow(row.what, timeText(measured), timeText(reference) + ": " + row.meaning, ratioText,
             target,
             row.atMost <= 0       ? ""
             : ratio <= row.atMost ? "met"
                                   : "missed");
}

int benchMain(int argc, char** argv, const std::vector<Comparison>& comparisons)
{
    Sandbox::enter(argv);
    TestServer::logs = false;
    const char* const defaults[] = { "--benchmark_repetitions=9", "--benchmark_min_time=0.02",
                                     "--benchmark_enable_random_interleaving=true",
                                     "--benchmark_display_aggregates_only=true" };
    std::vector<char*> words = { argv[0] };
    for (const char* word : defaults)
        words.push_back(const_cast<char*>(word));
    words.insert(words.end(), argv + 1, argv + argc);
    int count = (int)words.size();
    words.push_back(nullptr);
    benchmark::Initialize(&count, words.data());
    if (benchmark::ReportUnrecognizedArguments(count, words.data()))
        return 2;
    MedianKeeper keeper;
    benchmark::RunSpecifiedBenchmarks(&keeper);
    for (const Comparison& row : comparisons)
        printComparison(row, keeper.medians);
    return keeper.failed ? 1 : 0;
}
