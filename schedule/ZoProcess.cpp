#include "schedule/ZoProcess.h"

#include "utlib/UtClock.h"

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <linux/close_range.h>

static const int FIRST_OTHER = STDERR_FILENO + 1;

void ZoProcess::pause(int seconds)
{
    const long long end = UtClock::now() + seconds * 1000LL;
    unsigned left = (unsigned)seconds;
    while ((left = ::sleep(left)) > 0 && UtClock::now() < end)
        continue;
}

void ZoProcess::openStandardDescriptors()
{
    for (int fd = ::open("/dev/null", O_RDWR); fd >= 0; fd = ::open("/dev/null", O_RDWR)) {
        if (fd >= FIRST_OTHER) {
            ::close(fd);
            return;
        }
    }
}

/// One behind the highest descriptor that there can be, for an older kernel.
static int endOfDescriptors()
{
    struct rlimit limit;
    const rlim_t most = 1 << 20;
    const bool isKnown = ::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < most;
    return (int)(isKnown ? limit.rlim_cur : most);
}

void ZoProcess::closeDescriptorsOnExec()
{
    if (::close_range(FIRST_OTHER, ~0U, CLOSE_RANGE_CLOEXEC) == 0)
        return;
    const int end = endOfDescriptors();
    for (int fd = FIRST_OTHER; fd < end; ++fd)
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);  // fails for a number that is not open, as it should
}

int ZoProcess::closeOthers(int kept)
{
    if (kept > FIRST_OTHER && ::dup2(kept, FIRST_OTHER) == FIRST_OTHER)
        kept = FIRST_OTHER;
    if (::close_range(FIRST_OTHER + 1, ~0U, 0) == 0)
        return kept;
    const int end = endOfDescriptors();
    for (int fd = FIRST_OTHER + 1; fd < end; ++fd)
        ::close(fd);
    return kept;
}

void ZoProcess::detach()
{
    ::setsid();  // fails only for the leader of a group, which a forked child is not
    resetSignals();
    const int null = ::open("/dev/null", O_RDWR);
    for (int fd = STDIN_FILENO; null >= 0 && fd <= STDERR_FILENO; ++fd)
        ::dup2(null, fd);  // a pipe held open would make its reader wait for this process's end
}

void ZoProcess::resetSignals()
{
    for (int number = 1; number < NSIG; ++number)
        ::signal(number, SIG_DFL);  // fails for SIGKILL and SIGSTOP, which need no reset
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}
