#include "jobs/JobDirectory.h"

#include "jobs/JobScript.h"
#include "zojob/Report.h"
#include "zojob/view/Text.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

// The words are the job's own: what goes into the script never passes through a request line.
const char* const PrivateDirectory::COMMAND = "sh job; echo $? >exit";

static const char* const NOT_CARRIED = " \t\n\v\f\r\"";  // in a directory's name, by a request
static const char* const ELSEWHERE = "/var/tmp/zojob-XXXXXX";
static const int MODE = 0700;
static const int KILLED_STATUS = 128 + SIGTERM;  // what a shell says of a command ended so

static std::string stateDirectory()
{
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state && state[0] == '/')
        return std::string(state) + "/zojob";
    const char* home = std::getenv("HOME");
    if (!home || home[0] != '/') {
        const struct passwd* const entry = ::getpwuid(::getuid());
        home = entry && entry->pw_dir ? entry->pw_dir : "";
    }
    return std::string(home) + "/.local/state/zojob";
}

static void makeDirectories(const std::string& path)
{
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (::mkdir(part.c_str(), MODE) != 0 && errno != EEXIST && errno != EISDIR)
            throw Failure{ REFUSED, withReason("cannot make " + part) +
                                        "; set XDG_STATE_HOME to another place" };
        if (end == std::string::npos)
            return;
    }
}

PrivateDirectory::PrivateDirectory()
{
    const std::string state = stateDirectory();
    std::string name = ELSEWHERE;
    if (state.find_first_of(NOT_CARRIED) == std::string::npos) {
        makeDirectories(state);
        name = state + "/job-XXXXXX";
    }
    // The mode once more, since the umask may have taken bits away.
    if (!::mkdtemp(&name[0]) || ::chmod(name.c_str(), MODE) != 0)
        throw Failure{ REFUSED, withReason("cannot make a directory for the job, " + name) +
                                    "; set XDG_STATE_HOME to another place" };
    path = name;
}

PrivateDirectory::~PrivateDirectory()
{
    std::error_code ignored;  // there is nobody left to tell
    if (!keep)
        std::filesystem::remove_all(path, ignored);
}

/// Writes and closes; false with errno set.
static bool writeAndClose(int fd, const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            const int reason = errno;
            ::close(fd);
            errno = reason;
            return false;
        }
        done += n;
    }
    return ::close(fd) == 0;
}

void PrivateDirectory::writeFile(const std::string& name, const std::string& text) const
{
    const std::string file = path + "/" + name;
    // A limit on file sizes is to be an error here, not the end of the process. Put back at once,
    // since a server started from here would inherit it.
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, MODE);
    const bool written = fd >= 0 && ::fchmod(fd, MODE) == 0 && writeAndClose(fd, text);
    const int reason = errno;
    std::signal(SIGXFSZ, before);
    errno = reason;
    if (!written)
        throw Failure{ REFUSED, withReason("nothing was submitted, cannot write " + file) +
                                    "; make room, or set XDG_STATE_HOME" };
}

void PrivateDirectory::writeJob(const std::string& body, const std::string& workDirectory) const
{
    if (body.compare(0, 2, "#!") == 0) {
        writeFile("script", body);
        writeFile("job", makeScript(path, workDirectory, shellQuoted(path + "/script")));
    } else {
        writeFile("job", makeScript(path, workDirectory, body));
    }
}

/// The first bytes of a file, at most `size`; empty when it cannot be read.
static std::string readStart(const std::string& file, std::size_t size)
{
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return "";
    std::string text(size, '\0');
    const ssize_t n = ::read(fd, &text[0], size);
    ::close(fd);
    text.resize(n > 0 ? n : 0);
    return text;
}

bool PrivateDirectory::isOurs(const ZoJob& job)
{
    const std::string directory = str(job.directory);
    struct stat status;
    if (!(job.command == COMMAND) || ::lstat(directory.c_str(), &status) != 0 ||
        !S_ISDIR(status.st_mode) || status.st_uid != ::getuid())
        return false;
    const std::string start = scriptStart(directory);
    return readStart(directory + "/job", start.size()) == start;
}

std::string PrivateDirectory::script(const ZoJob& job)
{
    std::ifstream file(str(job.directory) + "/job", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// The number that the job's shells wrote into a file; -1 when they have not, or not whole.
static int recorded(const ZoJob& job, const char* name)
{
    if (!(job.command == PrivateDirectory::COMMAND))
        return -1;
    const std::string text = readStart(str(job.directory) + name, 16);
    return !text.empty() && text.back() == '\n' ? std::atoi(text.c_str()) : -1;
}

static const char* const NAMED = "/named";  // exists in the directory of a job that owns its id

void PrivateDirectory::ownId(const ZoJob& job)
{
    // Where this fails, the id may come to be refused as ambiguous, no more.
    const std::string file = str(job.directory) + NAMED;
    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, MODE);
    if (fd >= 0)
        ::close(fd);
}

bool PrivateDirectory::ownsId(const ZoJob& job)
{
    return job.command == COMMAND && ::access((str(job.directory) + NAMED).c_str(), F_OK) == 0;
}

bool PrivateDirectory::hasReturned(const ZoJob& job)
{
    return recorded(job, "/exit") >= 0;
}

bool PrivateDirectory::isGone(const ZoJob& job)
{
    const int pid = recorded(job, "/pid");
    return pid > 0 && ::kill(pid, 0) != 0 && errno == ESRCH;
}

int PrivateDirectory::exitStatus(const ZoJob& job)
{
    if (job.state == ZoJob::KILLED)
        return KILLED_STATUS;
    return job.state == ZoJob::DONE ? recorded(job, "/exit") : -1;
}
