#include "jobs/QueueFile.h"

#include "jobs/JobError.h"
#include "jobs/Text.h"
#include "schedule/ZoJobList.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

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
    return ".zojobs-" + str(list->hostName);
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
    return Queue(list->jobs);
}
