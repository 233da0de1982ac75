#include "jobs/QueueFile.h"

#include "jobs/JobError.h"
#include "jobs/Text.h"
#include "jobs/UnsavedEnd.h"
#include "schedule/ZoJobList.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

static const std::string PREFIX = ".zojobs-";  // and the machine's name

QueueFile::QueueFile() : list(std::make_unique<ZoJobList>())
{
}

QueueFile::~QueueFile() = default;

std::string QueueFile::directory() const
{
    return str(list->homeDirectory);
}

std::string QueueFile::name() const
{
    return PREFIX + str(list->hostName);
}

/// Whether there is a file; throws when it cannot be read.
static bool isReadable(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    char first;
    const bool result = fd >= 0 && ::read(fd, &first, 1) >= 0;
    const int error = errno;
    if (fd >= 0)
        ::close(fd);
    errno = error;
    if (!result && error != ENOENT && error != ENOTDIR)
        throw JobError(JobError::FILE_FAILED, withReason("cannot read the queue, " + path));
    return result;
}

Queue QueueFile::read()
{
    // The list keeps what it has where it cannot read, and tells nobody.
    if (!isReadable(path()))
        list->jobs.resize(0);
    list->readQueue(list->jobs);
    Queue queue(list->jobs);
    const auto isOpen = [](const Job& job) { return job.isWaiting() || job.isRunning(); };
    if (std::any_of(queue.jobs.begin(), queue.jobs.end(), isOpen)) {
        queue.trouble = trouble();
        readUnsavedEnds(queue);
    }
    return queue;
}

std::string QueueFile::trouble() const
{
    return whyNotWritten(directory(), path());
}

/// Whether it can be a queue of this user.
static bool isOwnFile(const std::string& path)
{
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == ::getuid();
}

std::vector<OtherQueue> otherQueues()
{
    ZoJobList list;
    const std::string home = str(list.homeDirectory), own = PREFIX + str(list.hostName);
    std::vector<OtherQueue> found;
    std::error_code error;  // what cannot be read tells of no other queue
    for (const auto& entry : std::filesystem::directory_iterator(home, error)) {
        const std::string name = entry.path().filename();
        if (name == own || name.compare(0, PREFIX.size(), PREFIX) != 0 || !isOwnFile(entry.path()))
            continue;
        OtherQueue other{ entry.path(), name.substr(PREFIX.size()), 0, 0 };
        list.hostName = other.host.c_str();
        list.jobs.resize(0);
        list.readQueue(list.jobs);
        other.jobs = list.jobs.size();
        for (const Job& job : Queue(list.jobs).jobs)
            other.waiting += job.isWaiting();
        if (other.jobs > 0)
            found.push_back(other);
    }
    std::sort(found.begin(), found.end(),
              [](const OtherQueue& a, const OtherQueue& b) { return a.path < b.path; });
    return found;
}
