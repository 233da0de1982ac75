// This queue beside two others that Debian packages, task-spooler and nq, as a person meets them:
// whole processes at a prompt. Every measurement is made in a private place of its own, by this
// program run again with the words "measure QUEUE COUNT".

#include "bench/support/Place.h"
#include "bench/support/Process.h"
#include "bench/support/Report.h"
#include "bench/support/Servers.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

static const int SUBMISSIONS = 15, LISTS = 7, GAPS = 3;
static const double SECONDS_FOR_GAPS = 60;

typedef std::vector<std::string> Words;

struct Queue {
    std::string name;  ///< in the table
    Words submit;      ///< the words before a job's command
    Words list;
    std::string process;  ///< name of its processes
};

static const std::vector<Queue>& queues()
{
    static const std::string zojob = Place::installation() + "/bin/zojob";
    static const std::vector<Queue> all = {
        { "ours", { zojob, "submit" }, { zojob, "list", "--no-header" }, "start" },
        { "task-spooler", { "tsp", "-B" }, { "tsp", "-l" }, "tsp" },
        { "nq", { "nq" }, { "fq", "-nq" }, "nq" },
    };
    return all;
}

static Words with(Words words, const Words& more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

/// Puts that many waiting jobs into the queue. Returns how many it took. The other queues run
/// whatever they are given, so a long job goes first.
static long fill(const Queue& queue, long count)
{
    if (queue.name == "ours") {
        Place::makeJobs(count);
        Place::write(Place::queueFile(), Place::queueText(count));
        return count;
    }
    Process::run(with(queue.submit, { "sleep", "10000" }));
    long taken = 0;
    while (taken < count && Process::run(with(queue.submit, { "true" })).status == 0)
        ++taken;
    return taken;
}

/// Kills the server and returns how many waiting jobs the queue shows afterwards, or -1 where there
/// is no server.
static long leftAfterKill(const Queue& queue)
{
    if (queue.name == "nq")
        return -1;
    const std::vector<int> pids = ProcessTable::named(queue.process);
    if (pids.empty())
        return -1;
    ::kill(*std::min_element(pids.begin(), pids.end()), SIGKILL);  // the oldest is the server
    ::usleep(500000);
    std::istringstream lines(Process::run(queue.list, true).output);
    long left = 0;
    for (std::string line; std::getline(lines, line);)
        left += line.find("waiting") != line.npos || line.find(" queued") != line.npos;
    return left;
}

/// Median seconds between what one short job prints and what the next one prints.
static double medianGap(const Queue& queue)
{
    const std::string file = Place::home() + "/stamps";
    Place::write(file, "");
    Process::run(with(queue.submit, { "sleep", "1" }));
    for (int i = 0; i <= GAPS; ++i)
        Process::run(with(queue.submit, { "sh", "-c", "date +%s.%N >>" + file }));
    if (queue.name == "ours")
        Process::run({ queue.submit[0], "run" });
    std::vector<double> stamps;
    for (const double end = now() + SECONDS_FOR_GAPS; now() < end && stamps.size() <= GAPS;) {
        ::usleep(100000);
        std::istringstream text(Place::read(file));
        stamps.clear();
        for (double stamp; text >> stamp;)
            stamps.push_back(stamp);
    }
    std::vector<double> gaps;
    for (size_t i = 1; i < stamps.size(); ++i)
        gaps.push_back(stamps[i] - stamps[i - 1]);
    return gaps.size() == GAPS ? median(gaps) : -1;
}

/// Prints "key value" lines.
static int measure(const std::string& name, long count)
{
    ::setenv("NQDIR", (Place::home() + "/nq").c_str(), 1);
    for (const Queue& queue : queues()) {
        if (queue.name != name)
            continue;
        const long taken = fill(queue, count);
        const std::unique_ptr<JobServer> server(name == "ours" ? new JobServer : nullptr);
        std::printf("taken %ld\n", taken);
        if (taken == count)
            std::printf("submit %.9f\n",
                        Process::medianOf(SUBMISSIONS, with(queue.submit, { "true" })));
        std::printf("list %.9f\n", Process::medianOf(LISTS, queue.list));
        const std::vector<int> pids = ProcessTable::named(queue.process);
        // Ours in full; of the pages that others share among their many processes, once each.
        const double memory =
            name == "ours" ? ProcessTable::resident(pids.at(0)) : ProcessTable::share(pids);
        std::printf("processes %ld\nmemory %.0f\n", (long)pids.size(), memory);
        std::printf("left %ld\n", leftAfterKill(queue));
    }
    return 0;
}

static int measureGap(const std::string& name)
{
    ::setenv("NQDIR", (Place::home() + "/nq").c_str(), 1);
    for (const Queue& queue : queues()) {
        if (queue.name != name)
            continue;
        const std::unique_ptr<JobServer> server(name == "ours" ? new JobServer : nullptr);
        std::printf("gap %.9f\n", medianGap(queue));
    }
    return 0;
}

/// Runs this program in a place of its own and reads what it prints.
static std::map<std::string, double> ask(const std::string& words)
{
    std::map<std::string, double> answers;
    const std::string command = Place::script() + " " + Place::program() + " " + words;
    FILE* const output = ::popen(command.c_str(), "r");
    char key[32];
    double value;
    while (output && ::fscanf(output, "%31s %lf", key, &value) == 2)
        answers[key] = value;
    if (!output || ::pclose(output) != 0)
        std::fprintf(stderr, "failed: %s\n", words.c_str());
    return answers;
}

static std::string countText(double value)
{
    std::string text = std::to_string((long)value);
    for (long at = (long)text.size() - 3; at > 0; at -= 3)
        text.insert(at, ",");
    return text;
}

static std::string megabytes(double bytes)
{
    char text[32];
    ::snprintf(text, sizeof text, "%.1f MB", bytes / 1e6);
    return text;
}

/// Prints a row of ours beside another queue; less is better.
static void printBeside(const std::string& what, double ours, const std::string& ourText,
                        double theirs, const std::string& theirText)
{
    char ratio[32];
    ::snprintf(ratio, sizeof ratio, "%.2f", ours / theirs);
    printRow(what, ourText, theirText, ratio, "", ours <= theirs ? "ahead" : "behind");
}

/// Prints what two queues of one length cost.
static void printSize(long count, const Queue& other, std::map<std::string, double> ours,
                      std::map<std::string, double> theirs)
{
    const std::string behind = ": " + other.name;
    const std::string size = countText(count) + " queued";
    if (theirs.count("submit"))
        printBeside("submission as a whole process, " + size, ours["submit"],
                    timeText(ours["submit"]), theirs["submit"],
                    timeText(theirs["submit"]) + behind);
    else
        printRow("submission as a whole process, " + size, timeText(ours["submit"]),
                 "holds at most " + countText(theirs["taken"]) + behind, "", "", "ahead");
    const bool isLess = theirs["taken"] < (double)count;
    const std::string whole = isLess ? ", with " + countText(theirs["taken"]) : "";
    printBeside("list as a whole process, " + size, ours["list"], timeText(ours["list"]),
                theirs["list"], timeText(theirs["list"]) + behind + whole);
    printBeside("memory of all processes, " + size, ours["memory"],
                megabytes(ours["memory"]) + " in " + countText(ours["processes"]), theirs["memory"],
                megabytes(theirs["memory"]) + " in " + countText(theirs["processes"]) + behind +
                    whole);
    if (count == 0)
        return;
    const std::string left = theirs["left"] < 0 ? "no server" : countText(theirs["left"]);
    printRow("jobs left after SIGKILL of the server, " + size, countText(ours["left"]),
             left + behind + whole, "", "", theirs["left"] < 0 ? "" : "ahead");
}

int main(int argc, char** argv)
{
    const std::string word = argc > 1 ? argv[1] : "";
    if (word == "measure" || word == "gap")
        Place::enter(argv);
    if (word == "measure" && argc == 4)
        return measure(argv[2], std::atol(argv[3]));
    if (word == "gap" && argc == 3)
        return measureGap(argv[2]);
    for (const long count : { 0L, 900L, 10000L }) {
        std::vector<std::map<std::string, double>> answers;
        for (const Queue& queue : queues())
            answers.push_back(ask("measure " + queue.name + " " + std::to_string(count)));
        for (size_t i = 1; i < answers.size(); ++i)
            printSize(count, queues()[i], answers[0], answers[i]);
    }
    const double ours = ask("gap ours")["gap"];
    for (size_t i = 1; i < queues().size(); ++i) {
        const double theirs = ask("gap " + queues()[i].name)["gap"];
        printBeside("from one job's output to the next job's", ours, timeText(ours), theirs,
                    timeText(theirs) + ": " + queues()[i].name);
    }
    return 0;
}
