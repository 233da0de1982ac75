#include "jobs/NewJobDirectory.h"

#include "jobs/JobError.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

static const char* const NOT_CARRIED = " \t\n\v\f\r\"";  // in a directory's name, by a request
static const char* const ELSEWHERE = "/var/tmp/zojob-XXXXXX";
static const char* const ADVICE = "; set XDG_STATE_HOME to another place";
static const int MODE = 0700;

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
            throw JobError(JobError::FILE_FAILED, withReason("cannot make " + part) + ADVICE);
        if (end == std::string::npos)
            return;
    }
}

NewJobDirectory::NewJobDirectory()
{
    const std::string state = stateDirectory();
    std::string name = ELSEWHERE;
    if (state.find_first_of(NOT_CARRIED) == std::string::npos) {
        makeDirectories(state);
        name = state + "/job-XXXXXX";
    }
    // The mode once more, since the umask may have taken bits away.
    if (!::mkdtemp(&name[0]) || ::chmod(name.c_str(), MODE) != 0)
        throw JobError(JobError::FILE_FAILED,
                       withReason("cannot make a directory for the job, " + name) + ADVICE);
    path = name;
}

NewJobDirectory::~NewJobDirectory()
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

static JobError notMade(const std::string& name)
{
    return JobError(JobError::FILE_FAILED,
                    withReason("nothing was submitted, cannot write " + name) +
                        "; make room, or set XDG_STATE_HOME");
}

void NewJobDirectory::makeDirectory(const std::string& name) const
{
    const std::string directory = path + "/" + name;
    if (::mkdir(directory.c_str(), MODE) != 0 || ::chmod(directory.c_str(), MODE) != 0)
        throw notMade(directory);
}

void NewJobDirectory::writeFile(const std::string& name, const std::string& text) const
{
    const std::string file = path + "/" + name;
    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, MODE);
    if (fd < 0 || ::fchmod(fd, MODE) != 0 || !writeAndClose(fd, text))
        throw notMade(file);
}
