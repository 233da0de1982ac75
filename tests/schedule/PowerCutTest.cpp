// What a disk may hold after a power cut: from each such state a server that starts must find a
// whole queue that lacks nothing of what was answered.

#include "jobs/NewJobDirectory.h"
#include "schedule/ZoJobList.h"
#include "tests/sandbox/Sandbox.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

static const int STATES_PER_STEP = 20;

namespace
{
/// What a process does to the files below a directory.
struct Step {
    enum Kind { MAKE, WRITE, CUT, SYNC, ANSWER } kind;
    std::string path;
    std::size_t place = 0;  ///< where is written, or where the file is cut off
    std::string bytes;
};

/// What is recorded: what happens below a directory, if one is named, whose files are known.
std::string theRoot;
std::set<std::string> theFiles;
std::vector<Step> theSteps;

/// Notes what a call has done, and before it the files that are new since the last one. Returns the
/// call's result. A place below 0 is in front of the descriptor's position.
long note(long result, int fd, Step::Kind kind, long place = 0, const void* bytes = "")
{
    std::error_code isNoFile;
    const std::string path =
        theRoot.empty() || result < 0
            ? ""
            : fs::read_symlink("/proc/self/fd/" + std::to_string(fd), isNoFile);
    if (path.empty() || path.compare(0, theRoot.size(), theRoot) != 0)
        return result;
    for (const auto& entry : fs::recursive_directory_iterator(theRoot))
        if (theFiles.insert(entry.path()).second)
            theSteps.push_back({ Step::MAKE, entry.path(), entry.is_directory(), "" });
    if (place < 0)
        place = ::lseek(fd, 0, SEEK_CUR) - result;
    theSteps.push_back({ kind, path, (std::size_t)place, { (const char*)bytes, (size_t)result } });
    return result;
}

/// What the changes do to the files below a directory.
std::vector<Step> record(const std::string& root, const std::function<void()>& changes)
{
    theFiles.clear();
    theSteps.clear();
    for (const auto& entry : fs::recursive_directory_iterator(root))
        theFiles.insert(entry.path());
    theRoot = root;
    changes();
    theRoot.clear();
    return theSteps;
}

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
            theSteps.push_back({ Step::ANSWER, "", 0, "" });
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

/// Of the calls below, so many go well; then so many fail, as with a broken disk.
int theGoodCalls = 0, theBadCalls = 0;

static bool isBad()
{
    if (theGoodCalls > 0 || theBadCalls == 0) {
        theGoodCalls -= theGoodCalls > 0;
        return false;
    }
    --theBadCalls;
    errno = EIO;
    return true;
}

// These replace the C library's, inside the libraries too. No test here needs a real disk.
#pragma GCC visibility push(default)
extern "C" ssize_t write(int fd, const void* bytes, size_t size)
{
    const bool isBroken = isBad();
    const long n = ::syscall(SYS_write, fd, bytes, isBroken ? size / 2 : size);
    return isBroken ? -1 : note(n, fd, Step::WRITE, -1, bytes);
}
extern "C" ssize_t pwrite(int fd, const void* bytes, size_t size, off_t place)
{
    return isBad() ? -1
                   : note(::syscall(SYS_pwrite64, fd, bytes, size, place), fd, Step::WRITE, place,
                          bytes);
}
extern "C" int ftruncate(int fd, off_t size) noexcept
{
    return isBad() ? -1 : (int)note(::syscall(SYS_ftruncate, fd, size), fd, Step::CUT, size);
}
extern "C" int fdatasync(int fd)
{
    return isBad() ? -1 : (int)note(0, fd, Step::SYNC);
}
#pragma GCC visibility pop

TEST_F(PowerCut, LosesNothingThatWasAnswered)
{
    for (const bool hasQueueFile : { false, true }) {
        begin(hasQueueFile);
        const std::vector<Step> steps = record(root, [this] { change(); });
        begin(hasQueueFile);
        replay(steps);
    }
}
