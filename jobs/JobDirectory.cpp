#include "jobs/JobDirectory.h"

#include "jobs/JobScript.h"
#include "jobs/StateDirectory.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

// The words are the job's own: what goes into the script never passes through a request line.
const char* const JobDirectory::COMMAND = "sh job || [ -s exit ] || echo $? >exit";

static const char* const SCRIPT = "job";
static const char* const STATUS = "exit";
static const char* const STARTED = "started";
static const char* const CANCEL = "cancel";
static const char* const WANTED = "run";
static const char* const AWAITED = "/awaited";  // the directories of other jobs
static const char* const AFTER = "/after-";     // and the number of a job that has gone: its status
static const std::size_t MOST_OF_END = 64;      // bytes of what is written down at the end
static const std::size_t HEAD = 4096;           // enough for what nearly all jobs were given

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

bool JobDirectory::hasScript() const
{
    const std::size_t size = std::strlen(COMMAND);
    return job.command.size() >= size &&
           job.command.compare(job.command.size() - size, size, COMMAND) == 0;
}

bool JobDirectory::isOurs() const
{
    struct stat status;
    if (!hasScript() || ::lstat(job.directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        status.st_uid != ::getuid())
        return false;
    const std::string start = scriptStart(job.directory);
    return readStart(path(SCRIPT), start.size()) == start;
}

bool JobDirectory::isMarked() const
{
    struct stat marker;
    return ::lstat(path(("." + std::to_string(job.id)).c_str()).c_str(), &marker) == 0 &&
           S_ISREG(marker.st_mode) && marker.st_uid == ::getuid();
}

std::string JobDirectory::text(const char* name) const
{
    std::ifstream file(path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string JobDirectory::script() const
{
    return text(SCRIPT);
}

GivenTexts JobDirectory::given() const
{
    GivenTexts texts;
    if (!hasScript()) {
        texts.command = job.command;
        texts.directory = job.directory;
        if (!job.description.empty())
            texts.label = job.description;
        return texts;
    }
    const std::string start = readStart(path(SCRIPT), HEAD);
    texts = givenTexts(start.size() < HEAD ? start : script());
    if (texts.command.empty())
        texts.command = job.description;
    return texts;
}

/// Seconds since the epoch at which a file was changed last; 0 when there is none.
static double changeTime(const std::string& file)
{
    struct stat status;
    if (::lstat(file.c_str(), &status) != 0)
        return 0;
    return (double)status.st_mtim.tv_sec + 1e-9 * (double)status.st_mtim.tv_nsec;
}

double JobDirectory::startTime() const
{
    return hasScript() ? changeTime(path(STARTED)) : 0;
}

double JobDirectory::endTime() const
{
    return hasScript() ? changeTime(path(STATUS)) : 0;
}

JobDirectory::End JobDirectory::endOf(const std::string& text)
{
    End end;
    std::string disk;
    if (text.empty() || text.back() != '\n')
        return end;
    std::istringstream words(text);
    if (!(words >> end.status))
        end.status = -1;
    words >> end.outcome >> disk;
    if (end.outcome == "-")
        end.outcome.clear();
    end.isDiskFull = disk == "full";
    return end;
}

JobDirectory::End JobDirectory::end() const
{
    if (!hasScript())
        return {};
    return endOf(job.keptEnd.empty() ? readStart(path(STATUS), MOST_OF_END) : job.keptEnd);
}

bool JobDirectory::endedByItself() const
{
    const End own = end();
    return job.cluster.id.empty() && own.status >= 0 && own.outcome != "killed";
}

bool JobDirectory::isCancelled() const
{
    return hasScript() && ::access(path(CANCEL).c_str(), F_OK) == 0;
}

bool JobDirectory::mark(const char* file, bool isThere) const
{
    if (!hasScript())
        return false;
    if (!isThere)
        return ::unlink(path(file).c_str()) == 0;
    const int fd = ::open(path(file).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd >= 0)
        ::close(fd);
    return fd >= 0;
}

bool JobDirectory::setCancelled(bool isCancelled) const
{
    return mark(CANCEL, isCancelled);
}

bool JobDirectory::isWanted() const
{
    return hasScript() && ::access(path(WANTED).c_str(), F_OK) == 0;
}

bool JobDirectory::setWanted(bool isWanted) const
{
    return mark(WANTED, isWanted);
}

void JobDirectory::noteAwaited(const std::string& directory, const std::string& by)
{
    // Without it, the other job is skipped if this one is removed before its turn, and says why.
    std::ofstream(directory + AWAITED, std::ios::app) << by << "\n";
}

void JobDirectory::handStatusOn() const
{
    const int status = exitStatus(job);
    std::istringstream others(job.hasEnded() && status >= 0 && isOurs() ? text(AWAITED + 1) : "");
    for (std::string other; std::getline(others, other);)
        if (!numberOf(other).empty())
            std::ofstream(other + AFTER + numberOf(job.directory)) << status << "\n";
}
