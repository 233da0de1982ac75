#include "jobs/JobTree.h"

#include "schedule/ZoProcessTree.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <unistd.h>

static std::string readWhole(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// When a living process was started, in ticks; 0 when there is none.
static unsigned long long startOf(int pid)
{
    const std::string text = readWhole("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t name = text.rfind(')');  // what is in front of it may hold anything
    unsigned long long start = 0;
    char state = 0;
    if (name == std::string::npos ||
        std::sscanf(text.c_str() + name + 1,
                    " %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d "
                    "%llu",
                    &state, &start) != 2)
        return 0;
    return state == 'Z' || state == 'X' ? 0 : start;
}

static bool isScript(int pid)
{
    return readWhole("/proc/" + std::to_string(pid) + "/cmdline") == std::string("sh\0job\0-\0", 9);
}

/// Whether the process is the server, which a job may have started.
static bool isServer(int pid)
{
    const std::string words = readWhole("/proc/" + std::to_string(pid) + "/cmdline");
    return words.find(std::string("\0-jobserver\0", 12)) != std::string::npos;
}

JobTree::JobTree(const Job& job)
{
    if (!job.isRunningHere() || job.pid <= 1 || startOf(job.pid) == 0 || job.hasLostItsId())
        return;
    ZoProcessTree tree;
    UtDArray<int> pids;
    tree.look();
    tree.appendBelow(pids, job.pid);
    // The server's shell stands above the script; it has ended by the first signal.
    long script = 0;
    while (script < pids.size() && !isScript(pids[script]))
        ++script;
    for (long i = 0; i < pids.size(); ++i)
        if (i != script && (script == pids.size() || i != 0) && !isServer(pids[i]))
            add(pids[i]);
}

void JobTree::add(int pid)
{
    const auto same = [pid](const Process& process) { return process.pid == pid; };
    const unsigned long long start = startOf(pid);
    if (start > 0 && std::none_of(processes.begin(), processes.end(), same))
        processes.push_back({ pid, start });
}

void JobTree::lookAgain()
{
    if (allGone())
        return;
    ZoProcessTree tree;
    tree.look();
    const std::vector<Process> known = processes;
    for (const Process& process : known) {
        UtDArray<int> pids;
        if (startOf(process.pid) == process.start)
            tree.appendBelow(pids, process.pid);
        for (long i = 0; i < pids.size(); ++i)
            add(pids[i]);
    }
}

bool JobTree::allGone() const
{
    return std::all_of(processes.begin(), processes.end(), [](const Process& process) {
        return startOf(process.pid) != process.start;
    });
}

bool JobTree::killRest()
{
    lookAgain();
    bool isAny = false;
    for (const Process& process : processes)
        if (startOf(process.pid) == process.start && ::kill(process.pid, SIGKILL) == 0)
            isAny = true;
    return isAny;
}
