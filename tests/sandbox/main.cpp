// The main() of every test program. It runs the program again in a private place, made by
// sandbox.sh. There the first process is the keeper: it adopts what the tests orphan, as init does,
// and ends it when the tests are over. Its child runs the tests.

#include "tests/sandbox/Sandbox.h"

#include <csignal>
#include <dlfcn.h>
#include <filesystem>
#include <map>
#include <set>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static const double SECONDS_TO_END = 3;  ///< for what a test has told to end

/// The living processes that descend from one, without the calling process, as " 4711 (sh) 4712
/// (sleep)". Sends each of them a signal, if one is given.
static std::string descendants(int ancestor, int signal = 0)
{
    std::map<int, int> parents;
    std::map<int, std::string> living;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        int pid, parent;
        char name[64], state;
        const std::string text = Sandbox::read(entry.path().string() + "/stat");
        if (::sscanf(text.c_str(), "%d (%63[^)]) %c %d", &pid, name, &state, &parent) != 4)
            continue;
        parents[pid] = parent;
        if (state != 'Z' && pid != ::getpid())
            living[pid] = name;
    }
    std::string found;
    for (const auto& [pid, name] : living)
        for (int above = parents[pid]; above > 0; above = parents[above])
            if (above == ancestor) {
                found += " " + std::to_string(pid) + " (" + name + ")";
                if (signal)
                    ::kill(pid, signal);
            }
    return found;
}

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
        if (!Sandbox::waitFor([=] { return descendants(keeper).empty(); }, SECONDS_TO_END))
            ADD_FAILURE() << "The test left processes behind:" << descendants(keeper, SIGKILL);
        Sandbox::waitFor([=] { return descendants(keeper, SIGKILL).empty(); });
        for (const std::string& path : strayFiles())
            if (!strayBefore.count(path))
                ADD_FAILURE() << "The test left a file outside of its place: " << path;
    }
};

static int runTests(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new Worlds);
    return RUN_ALL_TESTS();
}

static int runInPlace(char** argv)
{
    const std::string program = fs::read_symlink("/proc/self/exe");
    std::vector<const char*> words = { "sh", KELVO_SOURCE_DIR "/tests/sandbox/sandbox.sh",
                                       KELVO_SOURCE_DIR, KELVO_BUILD_DIR, program.c_str() };
    while (*argv++)
        words.push_back(*argv);
    ::execv("/bin/sh", const_cast<char**>(words.data()));
    ::perror("/bin/sh");
    return 1;
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
    const std::string left = descendants(::getpid(), SIGKILL);
    if (!left.empty())
        ::fprintf(stderr, "The tests left processes behind:%s\n", left.c_str());
    Sandbox::waitFor([] { return descendants(::getpid(), SIGKILL).empty(); });
    return WIFEXITED(status) && left.empty() ? WEXITSTATUS(status) : 1;
}

int main(int argc, char** argv)
{
    if (argc > 1 && ::strcmp(argv[1], "--gtest_list_tests") == 0)
        return runTests(argc, argv);
    if (!::getenv("KELVO_SANDBOX"))
        return runInPlace(argv);
    if (::dlsym(RTLD_DEFAULT, "nss_wrapper_enabled"))
        return keep(argc, argv);
    ::fprintf(stderr, "The tests need libnss-wrapper: libnss_wrapper.so cannot be loaded.\n");
    return 1;
}
