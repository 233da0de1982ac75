#include "jobs/JobTree.h"

#include "schedule/ZoProcessTree.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <unistd.h>

static std::string commandLine(int pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

static bool isScript(int pid)
{
    return commandLine(pid) == std::string("sh\0job\0-\0", 9);
}

/// Whether the process is the server, which a job may have started.
static bool isServer(int pid)
{
    return commandLine(pid).find(std::string("\0-jobserver\0", 12)) != std::string::npos;
}

JobTree::JobTree(const Job& job)
{
    if (!job.isRunningHere() || job.pid <= 1 || ZoProcessTree::startTicks(job.pid) == 0 ||
        job.hasLostItsId())
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
    const unsigned long long start = ZoProcessTree::startTicks(pid);
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
        if (ZoProcessTree::startTicks(process.pid) == process.start)
            tree.appendBelow(pids, process.pid);
        for (long i = 0; i < pids.size(); ++i)
            add(pids[i]);
    }
}

bool JobTree::allGone() const
{
    return std::all_of(processes.begin(), processes.end(), [](const Process& process) {
        return ZoProcessTree::startTicks(process.pid) != process.start;
    });
}

bool JobTree::killRest()
{
    lookAgain();
    bool isAny = false;
    for (const Process& process : processes)
        if (ZoProcessTree::startTicks(process.pid) == process.start &&
            ::kill(process.pid, SIGKILL) == 0)
            isAny = true;
    return isAny;
}
