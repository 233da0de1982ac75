// The main() of every test program: each test in a world of its own. A test fails that leaves a
// process behind or a file outside of its place. In the sandbox the first process is the keeper: it
// adopts what the tests orphan, as init does, and ends it when the tests are over. Its child runs
// the tests.

#include "tests/sandbox/Process.h"
#include "tests/sandbox/Sandbox.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static const double SECONDS_TO_END = 3;  ///< for what a test has told to end

/// What lies in the temporary directories. In the machine's own ones other programs put their
/// files: there, what our programs would name so.
static std::set<std::string> strayFiles()
{
    std::set<std::string> found;
    for (const char* directory : { "/tmp", "/var/tmp" })
        for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
            const std::string name = entry.path().filename();
            if (::getenv("KELVO_SANDBOX_PRIVATE") || name.rfind("kelvojob", 0) == 0)
                found.insert(entry.path());
        }
    return found;
}

/// Begins and ends the world of each test.
class Worlds : public ::testing::EmptyTestEventListener
{
    std::set<std::string> strayBefore;

    void OnTestStart(const ::testing::TestInfo&) override
    {
        Sandbox::enterNew();
        strayBefore = strayFiles();
    }

    void OnTestEnd(const ::testing::TestInfo&) override
    {
        const int keeper = ::getppid();
        if (!Sandbox::waitFor([=] { return ProcessTable::descendants(keeper).empty(); },
                              SECONDS_TO_END))
            ADD_FAILURE() << "The test left processes behind:"
                          << ProcessTable::descendants(keeper, SIGKILL);
        Sandbox::waitFor([=] { return ProcessTable::descendants(keeper, SIGKILL).empty(); });
        for (const std::string& path : strayFiles())
            if (!strayBefore.count(path))
                ADD_FAILURE() << "The test left a file outside of its place: " << path;
    }
};

static int runTests(int argc, char** argv)
{
    Sandbox::fail = [](const std::string& what) { ADD_FAILURE() << what; };
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new Worlds);
    return RUN_ALL_TESTS();
}

static volatile pid_t theTests = -1;

static int keep(int argc, char** argv)
{
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    ::signal(SIGINT, SIG_DFL);  // a shell ignores it for what runs in its background
    theTests = ::fork();
    if (theTests == 0)
        return runTests(argc, argv);
    for (int signal : { SIGINT, SIGTERM, SIGHUP })
        ::signal(signal, [](int) { ::kill(theTests, SIGKILL); });
    int status = -1;
    for (pid_t ended = 0; ended != theTests && (ended >= 0 || errno == EINTR);)
        ended = ::waitpid(-1, &status, 0);
    if (WIFSIGNALED(status))
        ::fprintf(stderr, "The tests were ended by signal %d.\n", WTERMSIG(status));
    Sandbox::waitFor([] { return ProcessTable::descendants(::getpid(), SIGKILL).empty(); });
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

int main(int argc, char** argv)
{
    if (argc > 1 && ::strcmp(argv[1], "--gtest_list_tests") == 0)
        return runTests(argc, argv);
    Sandbox::enter(argv);
    return keep(argc, argv);
}
