#include "tests/sandbox/Process.h"

#include "tests/sandbox/Sandbox.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

double now()
{
    struct timespec time;
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

Process::Process(const std::vector<std::string>& words, const std::string& input)
{
    static int count = 0;
    file = Sandbox::path("process" + std::to_string(++count));
    Sandbox::write(file + ".in", input);
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (const auto& [name, fd] : { std::pair(".in", 0), { ".out", 1 }, { ".err", 2 } })
        ::posix_spawn_file_actions_addopen(&actions, fd, (file + name).c_str(),
                                           fd ? O_WRONLY | O_CREAT | O_APPEND : O_RDONLY, 0600);
    if (::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        pid = -1;
        Sandbox::fail("cannot run " + words[0]);
    }
    ::posix_spawn_file_actions_destroy(&actions);
}

Process::Process(const std::function<int()>& function) : pid(::fork())
{
    if (pid == 0)
        ::_exit(function());
}

bool Process::hasEnded(double forSeconds)
{
    return Sandbox::waitFor(
        [this] {
            if (pid > 0 && ::waitpid(pid, &status, WNOHANG) == pid)
                pid = -1;
            return pid < 0;
        },
        forSeconds);
}

int Process::end()
{
    if (pid > 0 && ::waitpid(pid, &status, 0) == pid)
        pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Process::out()
{
    end();
    return Sandbox::read(file + ".out");
}

std::string Process::err()
{
    end();
    return Sandbox::read(file + ".err");
}

std::string Process::line()
{
    const std::string text = out();
    return text.substr(0, text.find('\n'));
}

std::string ProcessTable::descendants(int ancestor, int signal)
{
    std::map<int, int> parents;
    std::map<int, std::string> living;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        int parent;
        char state;
        const std::string text = Sandbox::read(entry.path().string() + "/stat");
        const std::size_t start = text.find('('), end = text.rfind(')');  // of the name
        if (end == std::string::npos ||
            ::sscanf(text.c_str() + end, ") %c %d", &state, &parent) != 2)
            continue;
        const int pid = std::stoi(text);
        parents[pid] = parent;
        if (state != 'Z' && pid != ::getpid())
            living[pid] = text.substr(start, end + 1 - start);
    }
    std::string found;
    for (const auto& [pid, name] : living)
        for (int above = parents[pid]; above > 0; above = parents[above])
            if (above == ancestor) {
                found += " " + std::to_string(pid) + " " + name;
                if (signal)
                    ::kill(pid, signal);
            }
    return found;
}

long ProcessTable::descriptors(int pid)
{
    const fs::directory_iterator all("/proc/" + std::to_string(pid) + "/fd");
    return std::distance(begin(all), end(all));
}
