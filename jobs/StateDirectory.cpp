#include "jobs/StateDirectory.h"

#include "jobs/Account.h"
#include "jobs/JobError.h"
#include "schedule/ZoDisk.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

static const char* const NOT_CARRIED = " \t\n\v\f\r\"";  // in a directory's name, by a request
static const char* const ELSEWHERE = "/var/tmp/zojob-";  // and the user's id
static const char* const PREFIX = "/job-";
static const char* const NEXT = "/next";            // holds the number to try first
static const char* const SWEPT = "/swept";          // changes when what was left behind is deleted
static const long FORGOTTEN_AFTER = 24L * 60 * 60;  // seconds
static const std::size_t MAX_DIGITS = 9;
static const char* const ADVICE = "; set XDG_STATE_HOME to another place";
static const int MODE = 0700;

/// Whether the path leads to something that belongs to another user.
static bool isAnothers(const std::string& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && status.st_uid != ::getuid();
}

/// The home directory. One that HOME names and that is another user's is none, as after "sudo -E":
/// its owner could change what we run from there.
static std::string homeDirectory()
{
    const char* const home = std::getenv("HOME");
    if (home && home[0] == '/' && !isAnothers(home))
        return home;
    return Account(::getuid()).home;
}

/// Where the directories belong, whatever its name holds.
static std::string wantedDirectory()
{
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state && state[0] == '/')
        return std::string(state) + "/zojob";
    return homeDirectory() + "/.local/state/zojob";
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
        if (::mkdir(part.c_str(), MODE) == 0) {
            ::chmod(part.c_str(), MODE);       // the umask may have taken bits away
            ZoDisk::syncParent(part.c_str());  // where this fails, the next one says so
        } else if (errno != EEXIST && errno != EISDIR)
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

/// Whether a directory was made for a job that never came into the queue: it holds no marker, and
/// its submission has had more than enough time.
static bool isForgotten(const std::filesystem::path& directory)
{
    struct stat status;
    if (numberOf(directory).empty() || ::lstat(directory.c_str(), &status) != 0 ||
        !S_ISDIR(status.st_mode) || ::time(nullptr) - status.st_mtime < FORGOTTEN_AFTER)
        return false;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename();
        if (name.size() > 1 && name[0] == '.' &&
            name.find_first_not_of("0123456789", 1) == std::string::npos)
            return false;
    }
    return !error;
}

/// Deletes, once a day, what submissions left behind that were killed before they had queued their
/// job. Of use, but not needed: what fails is tried again.
static void sweep(const std::string& state)
{
    struct stat last;
    const std::string note = state + SWEPT;
    if (::stat(note.c_str(), &last) == 0 && ::time(nullptr) - last.st_mtime < FORGOTTEN_AFTER)
        return;
    const int fd = ::open(note.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    const bool isNoted = fd >= 0 && ::futimens(fd, nullptr) == 0;
    if (fd >= 0)
        ::close(fd);
    if (!isNoted)
        return;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(state, error))
        if (isForgotten(entry.path()))
            std::filesystem::remove_all(entry.path(), error);
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
    else if (isAnothers(state))
        throw JobError(JobError::FILE_FAILED,
                       state + " belongs to another user: nothing is put there" + ADVICE);
    sweep(state);
    const int fd = ::open((state + NEXT).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd >= 0)
        ::fchmod(fd, 0600);  // whatever the umask has left of it
    long number = std::max(1L, fd >= 0 ? readNumber(fd) : 0);
    std::string path = state + PREFIX + std::to_string(number);
    int result;
    while ((result = ::mkdir(path.c_str(), MODE)) != 0 && errno == EEXIST)
        path = state + PREFIX + std::to_string(++number);
    // The mode once more, since the umask may have taken bits away.
    const bool isMade = result == 0 && ::chmod(path.c_str(), MODE) == 0;
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
