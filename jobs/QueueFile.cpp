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
    if (fd >= 0)
        ::close(fd);
    else if (errno != ENOENT && errno != ENOTDIR)
        throw JobError(JobError::FILE_FAILED, withReason("cannot read the queue, " + path));
    return fd >= 0;
}

Queue QueueFile::read()
{
    // The list keeps what it has where it cannot read, and tells nobody.
    if (!isReadable(path()))
        list->jobs.resize(0);
    list->readQueue(list->jobs);
    return Queue(list->jobs);
}
