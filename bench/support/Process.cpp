#include "bench/support/Process.h"

#include "bench/support/Place.h"
#include "bench/support/Report.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

double now()
{
    struct timespec time;
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + 1e-9 * (double)time.tv_nsec;
}

Process Process::run(const std::vector<std::string>& words, bool wantsOutput)
{
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const std::string file = wantsOutput ? Place::home() + "/output" : "/dev/null";
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, file.c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0600);
    Process result;
    pid_t pid;
    int status = -1;
    const double start = now();
    const bool isStarted =
        ::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    const bool isEnded = isStarted && ::waitpid(pid, &status, 0) == pid;
    result.seconds = now() - start;
    ::posix_spawn_file_actions_destroy(&actions);
    result.status = isEnded && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (wantsOutput)
        result.output = Place::read(file);
    return result;
}

double Process::medianOf(int runs, const std::vector<std::string>& words)
{
    std::vector<double> seconds;
    for (int i = 0; i < runs; ++i) {
        const Process process = run(words);
        if (process.status != 0) {
            std::fprintf(stderr, "%s failed: %d\n", words[0].c_str(), process.status);
            ::exit(1);
        }
        seconds.push_back(process.seconds);
    }
    return median(seconds);
}

static std::string procFile(int pid, const char* name)
{
    return Place::read("/proc/" + std::to_string(pid) + "/" + name);
}

/// The number behind a name in a text of "Name:   number" lines; 0 when there is none.
static double valueOf(const std::string& text, const std::string& name)
{
    const size_t at = text.find("\n" + name + ":");
    return at == std::string::npos ? 0 : std::atof(text.c_str() + at + name.size() + 2);
}

std::vector<int> ProcessTable::named(const std::string& name)
{
    std::vector<int> pids;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        const int pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && procFile(pid, "comm") == name + "\n")
            pids.push_back(pid);
    }
    return pids;
}

double ProcessTable::resident(int pid)
{
    return 1024 * valueOf(procFile(pid, "status"), "VmRSS");
}

double ProcessTable::share(const std::vector<int>& pids)
{
    double bytes = 0;
    for (const int pid : pids)
        bytes += 1024 * valueOf(procFile(pid, "smaps_rollup"), "Pss");
    return bytes;
}

long ProcessTable::wakeUps(int pid)
{
    return (long)valueOf(procFile(pid, "status"), "voluntary_ctxt_switches");
}

double ProcessTable::cpuSeconds(int pid)
{
    const std::string text = procFile(pid, "stat");
    unsigned long user = 0, system = 0;
    const size_t at = text.rfind(')');
    if (at == std::string::npos ||
        ::sscanf(text.c_str() + at, ") %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &user,
                 &system) != 2)
        return 0;
    return (double)(user + system) / (double)::sysconf(_SC_CLK_TCK);
}
