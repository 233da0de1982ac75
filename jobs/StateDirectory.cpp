#include "jobs/StateDirectory.h"

#include "jobs/JobError.h"
#include "schedule/ZoDisk.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

static const char* const NOT_CARRIED = " \t\n\v\f\r\"";  // in a directory's name, by a request
static const char* const ELSEWHERE = "/var/tmp/zojob-";  // and the user's id
static const char* const PREFIX = "/job-";
static const char* const NEXT = "/next";  // holds the number to try first
static const std::size_t MAX_DIGITS = 9;
static const char* const ADVICE = "; set XDG_STATE_HOME to another place";
static const int MODE = 0700;

/// Where the directories belong, whatever its name holds.
static std::string wantedDirectory()
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

std::string stateDirectory()
{
    const std::string wanted = wantedDirectory();
    const bool isCarried = wanted.find_first_of(NOT_CARRIED) == std::string::npos;
    return isCarried ? wanted : ELSEWHERE + std::to_string(::getuid());
}

static JobError notMade(const std::string& path)
{
    return JobError(JobError::FILE_FAILED, withReason("cannot make " + path) + ADVICE);
}

static void makeDirectories(const std::string& path)
{
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (::mkdir(part.c_str(), MODE) == 0)
            ZoDisk::syncParent(part.c_str());  // where this fails, the next one says so
        else if (errno != EEXIST && errno != EISDIR)
            throw notMade(part);
        if (end == std::string::npos)
            return;
    }
}

/// Everybody can make directories where ours is then: one that others can write is not used.
static void checkOwner(const std::string& path)
{
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0)
        throw notMade(path);
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::getuid() || (status.st_mode & 077) != 0)
        throw JobError(JobError::FILE_FAILED, path +
                                                  " is not a private directory of yours: nothing "
                                                  "is put there" +
                                                  ADVICE);
}

static long readNumber(int fd)
{
    char text[MAX_DIGITS + 2] = {};
    const ssize_t n = ::pread(fd, text, MAX_DIGITS, 0);
    return n > 0 ? std::atol(text) : 0;
}

/// Notes the number after this one, unless a later one stands there. Of use, but not needed.
static void noteNext(int fd, long number)
{
    const std::string text = std::to_string(number + 1) + "\n";
    if (fd >= 0 && readNumber(fd) <= number)
        (void)!::pwrite(fd, text.data(), text.size(), 0);
}

std::string makeJobDirectory()
{
    const std::string state = stateDirectory();
    makeDirectories(state);
    if (state != wantedDirectory())
        checkOwner(state);
    const int fd = ::open((state + NEXT).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    long number = std::max(1L, fd >= 0 ? readNumber(fd) : 0);
    std::string path = state + PREFIX + std::to_string(number);
    while (::mkdir(path.c_str(), MODE) != 0 && errno == EEXIST)
        path = state + PREFIX + std::to_string(++number);
    // The mode once more, since the umask may have taken bits away.
    const bool isMade = ::chmod(path.c_str(), MODE) == 0;
    const int reason = errno;
    if (isMade)
        noteNext(fd, number);
    if (fd >= 0)
        ::close(fd);
    errno = reason;
    if (!isMade)
        throw JobError(JobError::FILE_FAILED,
                       withReason("cannot make a directory for the job, " + path) + ADVICE);
    return path;
}

std::string numberOf(const std::string& directory)
{
    const std::size_t slash = directory.rfind('/');
    if (slash == std::string::npos || directory.compare(slash, 5, PREFIX) != 0)
        return "";
    const std::string number = directory.substr(slash + 5);
    const bool isNumber = !number.empty() && number.size() <= MAX_DIGITS && number[0] != '0' &&
                          number.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? number : "";
}
