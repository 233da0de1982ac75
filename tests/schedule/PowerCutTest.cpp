// What a disk may hold after a power cut: from each such state a server that starts must find a
// whole queue that lacks nothing of what was answered.

#include "jobs/NewJobDirectory.h"
#include "schedule/ZoJobList.h"
#include "tests/sandbox/Sandbox.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

static const int STATES_PER_STEP = 20;

namespace
{
/// What a process does to the files below a directory.
struct Step {
    enum { MAKE, WRITE, CUT, SYNC, ANSWER } kind;
    std::string path;
    std::size_t place = 0;  ///< where is written, or where the file is cut off
    std::string bytes;
};

/// A process, followed through its system calls.
class Recording
{
public:
    std::vector<Step> steps;

    /// Runs the changes in a child. getppid() is their sign that something was answered.
    Recording(const std::string& belowRoot, const std::function<void()>& changes) : root(belowRoot)
    {
        known = paths();
        pid = ::fork();
        if (pid == 0) {
            ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            ::raise(SIGSTOP);
            changes();
            ::_exit(0);
        }
        struct __ptrace_syscall_info call = {}, entry = {};
        for (int status = 0; ::waitpid(pid, &status, 0) == pid && WIFSTOPPED(status);) {
            ::ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD);
            ::ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof call, &call);
            if (call.op == PTRACE_SYSCALL_INFO_ENTRY)
                entry = call;
            else if (call.op == PTRACE_SYSCALL_INFO_EXIT && call.exit.rval >= 0)
                note((int)entry.entry.nr, entry.entry.args, call.exit.rval);
            ::ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
        }
    }

private:
    std::string root;
    pid_t pid;
    std::vector<std::string> known;

    std::vector<std::string> paths() const
    {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(root))
            found.push_back(entry.path());
        std::sort(found.begin(), found.end());
        return found;
    }

    std::string ofProcess(const std::string& name) const
    {
        return "/proc/" + std::to_string(pid) + "/" + name;
    }

    std::string memory(unsigned long long address, std::size_t size) const
    {
        std::string bytes(size, '\0');
        const int fd = ::open(ofProcess("mem").c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ((ssize_t)size, ::pread(fd, &bytes[0], size, (off_t)address));
        ::close(fd);
        return bytes;
    }

    std::size_t position(int fd) const
    {
        const std::string info = Sandbox::read(ofProcess("fdinfo/" + std::to_string(fd)));
        return std::strtoul(info.c_str() + 4, nullptr, 10);  // "pos:"
    }

    void note(int call, const std::uint64_t (&arguments)[6], long long result)
    {
        const int fd = (int)arguments[0];
        std::error_code noSuchFile;
        const std::string path =
            fs::read_symlink(ofProcess("fd/" + std::to_string(fd)), noSuchFile);
        const bool isBelow = path.compare(0, root.size(), root) == 0;
        if (call == SYS_openat || call == SYS_mkdir || call == SYS_mkdirat) {
            for (const std::string& found : paths())
                if (std::find(known.begin(), known.end(), found) == known.end()) {
                    known.push_back(found);
                    steps.push_back({ Step::MAKE, found, fs::is_directory(found), "" });
                }
        } else if (call == SYS_getppid) {
            steps.push_back({ Step::ANSWER, "", 0, "" });
        } else if (isBelow && (call == SYS_write || call == SYS_pwrite64)) {
            const std::size_t n = (std::size_t)result;
            const std::size_t place = call == SYS_write ? position(fd) - n : arguments[3];
            steps.push_back({ Step::WRITE, path, place, memory(arguments[1], n) });
        } else if (isBelow && call == SYS_ftruncate) {
            steps.push_back({ Step::CUT, path, arguments[1], "" });
        } else if (isBelow && (call == SYS_fsync || call == SYS_fdatasync)) {
            steps.push_back({ Step::SYNC, path, 0, "" });
        }
    }
};

/// The files as far as a disk is sure to have them, and what it may have of the rest.
class Disk
{
public:
    explicit Disk(const std::string& belowRoot) : root(belowRoot)
    {
        for (const auto& entry : fs::recursive_directory_iterator(root))
            nodes[entry.path()] = { entry.is_directory(), true, Sandbox::read(entry.path()), {} };
    }

    void take(const Step& step)
    {
        Node& node = nodes[step.path];
        if (step.kind == Step::MAKE)
            node.isDirectory = step.place;
        else if (step.kind != Step::SYNC)
            node.open.push_back(step);
        else if (!node.isDirectory)
            sync(node);
        else
            for (auto& [path, other] : nodes)
                if (fs::path(path).parent_path() == step.path)
                    other.isNamed = true;
    }

    /// Makes the files as one power cut may leave them: of what is not synced any part, in any
    /// order.
    void cutPower()
    {
        for (const auto& entry : fs::directory_iterator(root))
            fs::remove_all(entry.path());
        const unsigned all = random() % 4;  // 0: nothing that is not synced, 1: everything
        for (const auto& [path, node] : nodes) {
            if (!fs::is_directory(fs::path(path).parent_path()) ||
                (!node.isNamed && (all == 0 || (all > 1 && random() % 2))))
                continue;
            if (node.isDirectory)
                fs::create_directory(path);
            else
                Sandbox::write(path, contents(node, all));
        }
    }

private:
    struct Node {
        bool isDirectory = false;
        bool isNamed = false;  // its directory is sure to hold it
        std::string text;
        std::vector<Step> open;  // not synced
    };

    std::string root;
    std::map<std::string, Node> nodes;
    std::mt19937 random{ 7 };  // the same states in every run

    enum { NOTHING, ALL, ZEROS, SIZE, HALF, WAYS };

    static void apply(std::string& text, const Step& step, unsigned way)
    {
        const std::size_t end = step.place + step.bytes.size();
        if (step.kind == Step::CUT && way != NOTHING)
            text.resize(step.place);
        if (step.kind == Step::CUT || way == NOTHING)
            return;
        if (text.size() < end)
            text.resize(end);
        if (way == ZEROS)
            std::fill_n(text.begin() + (long)step.place, step.bytes.size(), '\0');
        else if (way != SIZE)
            text.replace(step.place, step.bytes.size() / (way == HALF ? 2 : 1), step.bytes, 0,
                         step.bytes.size() / (way == HALF ? 2 : 1));
    }

    static void sync(Node& node)
    {
        for (const Step& step : node.open)
            apply(node.text, step, ALL);
        node.open.clear();
    }

    std::string contents(const Node& node, unsigned all)
    {
        std::string text = node.text;
        std::vector<Step> open = node.open;
        if (all == 3)
            std::shuffle(open.begin(), open.end(), random);
        for (const Step& step : open)
            apply(text, step, all < 2 ? all : random() % WAYS);
        return text;
    }
};

/// The jobs that a list shows, by their descriptions; "?" for one whose script is not whole.
std::string descriptions(ZoJobList& list)
{
    std::string text;
    for (long i = 0; i < list.jobs.size(); ++i) {
        const std::string name((const char*)list.jobs[i]->description);
        const std::string script =
            Sandbox::read((const char*)list.jobs[i]->directory + std::string("/job"));
        text += script.empty() == (name == "b") ? name : "?";
    }
    return text;
}

/// The disk of a user, with a home and a place for temporary directories.
class PowerCut : public ::testing::Test
{
protected:
    // In memory, if that can be had: a disk takes ten times as long.
    const std::string root =
        (Sandbox::smallDisk().empty() ? Sandbox::path() : Sandbox::smallDisk()) + "/disk";
    const std::string home = root + "/home";

    PowerCut()
    {
        ::setenv("HOME", home.c_str(), 1);
        ::setenv("TMPDIR", (root + "/tmp").c_str(), 1);
        ::unsetenv("XDG_STATE_HOME");
        ::unsetenv("JOB_SYNC");
    }

    void begin(bool hasQueueFile) const
    {
        fs::remove_all(root);
        fs::create_directories(home);
        fs::create_directory(root + "/tmp");
        if (hasQueueFile)
            Sandbox::write(home + "/.zojobs-node1", "");
    }

    /// Submits four jobs, and removes one. The second has no script, but a fresh directory.
    void change() const
    {
        ZoJobList list;
        list.homeDirectory = home.c_str();
        for (const char* name : { "a", "b", "", "c", "d" }) {
            if (!*name) {
                list.remove(list.jobs[0]);
            } else if (*name == 'b') {
                list.submit("true", name, "");
            } else {
                NewJobDirectory place;
                place.keep = true;
                place.writeFile("job", std::string(5000, *name));
                list.submit(place.finish().c_str(), name, place.path.c_str());
            }
            ::getppid();
        }
    }

    /// What a server that starts finds in the queue, and what it has after its first change.
    static std::string look(ZoJobList& list)
    {
        list.jobs.resize(0);
        list.readQueue(list.jobs);
        const std::string seen = descriptions(list);
        list.update();
        EXPECT_EQ(seen, descriptions(list));
        return seen;
    }

    void replay(const std::vector<Step>& steps) const
    {
        const std::vector<std::string> queues = { "", "a", "ab", "b", "bc", "bcd", "bcd" };
        Disk disk(root);
        ZoJobList list;
        list.homeDirectory = home.c_str();
        std::size_t answers = 0;
        for (std::size_t i = 0; i < steps.size(); ++i) {
            if (steps[i].kind == Step::ANSWER)
                ++answers;
            else
                disk.take(steps[i]);
            for (int k = 0; k < STATES_PER_STEP; ++k) {
                disk.cutPower();
                const std::string seen = look(list);
                ASSERT_TRUE(seen == queues[answers] || seen == queues[answers + 1])
                    << "'" << seen << "' and not '" << queues[answers] << "' after step " << i
                    << ", " << steps[i].path;
            }
        }
        EXPECT_EQ(5U, answers);
        EXPECT_GT(steps.size(), 70U) << "not all was recorded";
    }
};
}  // namespace

TEST_F(PowerCut, LosesNothingThatWasAnswered)
{
    begin(false);
    const Recording first(root, [this] { change(); });
    begin(true);
    const Recording second(root, [this] { change(); });
    ::setenv("JOB_SYNC", "off", 1);  // not for the looks from here on
    begin(false);
    replay(first.steps);
    begin(true);
    replay(second.steps);
}
