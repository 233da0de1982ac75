// Watching the queue: every way in which it can change shows soon, and nothing else does.

#include "jobs/QueueWatch.h"
#include "jobs/JobError.h"
#include "schedule/ZoJobList.h"
#include "tests/sandbox/Process.h"
#include "tests/sandbox/Sandbox.h"

#include <cerrno>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace fs = std::filesystem;

static bool kernelTells = true;

/// In place of libc's: a system whose watches are used up.
extern "C" int inotify_add_watch(int fd, const char* path, unsigned mask) noexcept
{
    static const auto real =
        (int (*)(int, const char*, unsigned))::dlsym(RTLD_NEXT, "inotify_add_watch");
    return kernelTells ? real(fd, path, mask) : (errno = ENOSPC, -1);
}

static bool namesAreSlow = false;
static int slowLookups = 0;

/// The same: a machine whose name server does not answer.
extern "C" __attribute__((visibility("default"))) struct hostent* gethostbyname(const char* name)
{
    static const auto real = (struct hostent * (*)(const char*))::dlsym(RTLD_NEXT, "gethostbyname");
    if (!namesAreSlow)
        return real(name);
    ++slowLookups;
    ::usleep(1010000);
    return nullptr;
}

class QueueWatching : public ::testing::Test
{
protected:
    const Server server{ "", "", Server::NEVER_START };
    ZoJobList list;

    QueueWatching() { kernelTells = true; }

    /// Waits for a change; returns the seconds that it took, more than 9 when there was none.
    static double secondsToChange(QueueWatch& watch)
    {
        const double start = now();
        while (!watch.hasChanged() && now() - start < 9)
            watch.wait(1);
        return now() - start;
    }
};

TEST_F(QueueWatching, EveryChangeShows)
{
    const std::string file = Sandbox::queueFile();
    const struct {
        const char* what;
        std::function<void()> change;
        std::size_t jobs;
    } cases[] = {
        { "first job", [&] { list.submit("a", "", nullptr); }, 1 },
        { "another", [&] { list.submit("b", "", nullptr); }, 2 },
        { "another file", [&] { fs::copy(file, "new"), fs::rename("new", file); }, 2 },
        { "emptied", [&] { Sandbox::write(file, ""); }, 0 },
        { "a job again", [&] { list.submit("c", "", nullptr); }, 1 },
        { "no file", [&] { fs::remove(file); }, 0 },
    };
    QueueWatch watch(server);
    for (const auto& [what, change, jobs] : cases) {
        (void)watch.read();
        Sandbox::write(Sandbox::home() + "/other", what);
        watch.wait(0.05);
        EXPECT_FALSE(watch.hasChanged()) << "before " << what;
        change();
        EXPECT_LT(secondsToChange(watch), 0.3) << what;
        EXPECT_EQ(jobs, watch.read().jobs.size()) << what;
    }
    fs::create_directory(file);
    EXPECT_THROW((void)watch.read(), JobError);
}

TEST_F(QueueWatching, LooksSlowlyWhereNobodyTells)
{
    kernelTells = false;
    QueueWatch watch(server);
    EXPECT_EQ(0u, watch.read().jobs.size());
    EXPECT_EQ(-1, watch.descriptor());
    list.submit("a", "", nullptr);
    EXPECT_FALSE(watch.hasChanged()) << "each question looks at the file";
    EXPECT_LT(secondsToChange(watch), QueueWatch::SLOW_LOOK + 0.5);
    EXPECT_EQ(1u, watch.read().jobs.size());
}

TEST_F(QueueWatching, ANameThatTakesLongIsLookedUpOnceAndSaid)
{
    static std::string said;
    Server::onSlowLookup([](const std::string& sentence) { said += sentence; });
    namesAreSlow = true;
    for (int i = 0; i < 3; ++i)
        (void)readQueue(server);
    namesAreSlow = false;
    EXPECT_EQ(1, slowLookups);
    EXPECT_EQ("looking up the name of this machine, node1, took 1 seconds; it takes none with the "
              "line '127.0.1.1 node1' in /etc/hosts",
              said);
}
