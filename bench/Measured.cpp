#include "bench/Measured.h"

#include "tests/sandbox/Process.h"
#include "tests/sandbox/Sandbox.h"

#include <cstdlib>
#include <unistd.h>

double Measured::medianOf(int runs, const std::vector<std::string>& words)
{
    std::vector<double> seconds;
    for (int i = 0; i < runs; ++i) {
        const double start = now();
        Process process(words);
        const int status = process.end();
        seconds.push_back(now() - start);
        if (status != 0)
            Sandbox::fail(words[0] + " failed: " + process.err());
    }
    return median(seconds);
}

static std::string procFile(int pid, const char* name)
{
    return Sandbox::read("/proc/" + std::to_string(pid) + "/" + name);
}

/// The number behind a name in a process's status; 0 when there is none.
static double statusValue(int pid, const std::string& name)
{
    const std::string text = procFile(pid, "status");
    const size_t at = text.find("\n" + name + ":");
    return at == std::string::npos ? 0 : std::atof(text.c_str() + at + name.size() + 2);
}

double Measured::resident(int pid)
{
    return 1024 * statusValue(pid, "VmRSS");
}

long Measured::wakeUps(int pid)
{
    return (long)statusValue(pid, "voluntary_ctxt_switches");
}

double Measured::cpuSeconds(int pid)
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
