#include "schedule/ZoProcessTree.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/wait.h>

/// Appends the ids of all processes below the given one, parents before their children.
static void getChildren(UtDArray<int>& pids, int pid)
{
    static const char pscmd[] = "ps xj";
    const long start = pids.size();
    if (FILE* const listing = ::popen(pscmd, "re")) {
        char line[1024];
        while (::fgets(line, sizeof line, listing)) {
            int parent, own;
            if (::sscanf(line, "%d %d", &parent, &own) == 2 && parent == pid)
                pids.append(own);
        }
        ::pclose(listing);  // its status does not change what was read
    }
    const long end = pids.size();
    for (long k = start; k < end; ++k)
        getChildren(pids, pids[k]);
}

void ZoProcessTree::appendBelow(UtDArray<int>& pids, int pid)
{
    getChildren(pids, pid);
}

bool ZoProcessTree::isGone(int pid)
{
    if (pid < 1)
        return true;
    if (::kill(pid, 0) != 0)
        return errno == ESRCH || errno == EPERM;  // EPERM: the id has come to another user
    char path[32], status[512];
    ::snprintf(path, sizeof path, "/proc/%d/stat", pid);
    FILE* const file = ::fopen(path, "re");
    if (!file)
        return false;
    const size_t n = ::fread(status, 1, sizeof status - 1, file);
    ::fclose(file);  // only read: nothing can be lost
    status[n] = '\0';
    // "PID (NAME) STATE ...", and the name may hold anything.
    const char* const name = ::strrchr(status, ')');
    return name && (name[1] == ' ') && (name[2] == 'Z' || name[2] == 'X');
}

bool ZoProcessTree::hasEnded(int child)
{
    siginfo_t info = {};
    return ::waitid(P_PID, child, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == child;
}

long long ZoProcessTree::bootTime()
{
    struct timespec sinceBoot, now;
    ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec - sinceBoot.tv_sec - 1;
}
