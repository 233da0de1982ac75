#include "schedule/ZoLauncher.h"

#include "schedule/ZoMutexHeld.h"
#include "schedule/ZoProcess.h"
#include "utlib/UtDArray.h"

#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

static const long PATH_BUFFER = 256;
static const int SIGNALLED = 128;  // added to a signal's number, as a shell does

static UtDArray<int> theLaunchers;  ///< process ids of launchers whose ends are not collected yet
static pthread_mutex_t theLaunchersMutex = PTHREAD_MUTEX_INITIALIZER;

/// Becomes the launcher. Only calls that are safe after fork in a process with threads.
[[noreturn]] static void becomeServer(const char* launcher, const char* port)
{
    ZoProcess::detach();
    ZoProcess::closeDescriptorsOnExec();
    ::execl(launcher, launcher, "-jobserver", port, (char*)nullptr);
    ::_exit(ZoLauncher::NOT_EXECUTABLE);
}

int ZoLauncher::start(const char* rootDirectory, int port)
{
    char launcher[PATH_BUFFER], portText[PATH_BUFFER];
    const int n =
        ::snprintf(launcher, sizeof launcher, "%s/bin/start", rootDirectory ? rootDirectory : "");
    if (n < 0 || n >= (int)sizeof launcher)
        return -1;
    ::snprintf(portText, sizeof portText, "%d", port);
    const pid_t pid = ::fork();
    if (pid == 0)
        becomeServer(launcher, portText);
    if (pid > 0) {
        const ZoMutexHeld held(theLaunchersMutex);
        theLaunchers.append(pid);
    }
    return pid;
}

/// As ZoLauncher::statusOf(), while theLaunchers is held.
static int heldStatusOf(int launcher)
{
    for (long i = 0; i < theLaunchers.size(); ++i) {
        if (theLaunchers[i] != launcher)
            continue;
        int status = 0;
        if (::waitpid(launcher, &status, WNOHANG) == 0)
            return ZoLauncher::STILL_RUNS;
        theLaunchers.remove(i, 1);
        return WIFSIGNALED(status) ? SIGNALLED + WTERMSIG(status) : WEXITSTATUS(status);
    }
    return 0;  // collected before
}

int ZoLauncher::statusOf(int launcher)
{
    const ZoMutexHeld held(theLaunchersMutex);
    return heldStatusOf(launcher);
}

void ZoLauncher::collect()
{
    const ZoMutexHeld held(theLaunchersMutex);
    for (long i = theLaunchers.size() - 1; i >= 0; --i)
        heldStatusOf(theLaunchers[i]);
}
