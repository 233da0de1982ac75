#include "jobs/JobLog.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

static const std::size_t CHUNK = 65536;

JobLog::JobLog(const Job& job)
    : path(JobDirectory(job).logPath()), isMarked(JobDirectory(job).isMarked())
{
    if (JobDirectory(job).hasScript())
        start = std::string("Starting \"") + job.command + "\"\n";
}

JobLog::~JobLog()
{
    if (fd >= 0)
        ::close(fd);
}

bool JobLog::open()
{
    if (fd < 0 && !isMarked && ::access(path.c_str(), F_OK) == 0)
        throw JobError(JobError::REFUSED, path + " is not read: nothing there shows that the "
                                                 "directory was given to this job");
    if (fd < 0)
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0 && errno != ENOENT)
        throw JobError(JobError::FILE_FAILED, withReason("cannot read " + path));
    return fd >= 0;
}

std::size_t JobLog::readAt(char* buffer, std::size_t size, off_t offset) const
{
    const ssize_t n = ::pread(fd, buffer, size, offset);
    if (n < 0)
        throw JobError(JobError::FILE_FAILED, withReason("cannot read " + path));
    return (std::size_t)n;
}

void JobLog::skipStart()
{
    std::string head(start.size(), '\0');
    if (position == 0 && !start.empty() && readAt(&head[0], head.size(), 0) == head.size() &&
        head == start)
        position = (off_t)start.size();
}

void JobLog::skipToLast(long lines)
{
    struct stat status;
    char last = 0;
    skipStart();
    if (::fstat(fd, &status) != 0)
        throw JobError(JobError::FILE_FAILED, withReason("cannot read " + path));
    off_t end = status.st_size;
    if (end <= position || readAt(&last, 1, end - 1) != 1)
        return;
    // The line end at the very end of the file begins no line.
    long wanted = lines + (last == '\n');
    std::vector<char> buffer(CHUNK);
    while (wanted > 0 && end > position) {
        const off_t from = std::max<off_t>(position, end - (off_t)CHUNK);
        for (ssize_t i = (ssize_t)readAt(buffer.data(), end - from, from) - 1; i >= 0 && wanted > 0;
             --i)
            if (buffer[i] == '\n' && --wanted == 0)
                end = from + i + 1;
        if (wanted > 0)
            end = from;
    }
    position = end;
}

long long JobLog::unread() const
{
    struct stat status;
    if (::fstat(fd, &status) != 0)
        throw JobError(JobError::FILE_FAILED, withReason("cannot read " + path));
    return status.st_size - position;
}

long long JobLog::goToLast(long long bytes)
{
    position = 0;
    skipStart();
    if (unread() <= bytes)
        return 0;
    position += (off_t)(unread() - bytes);
    std::vector<char> buffer(CHUNK);
    const std::size_t size = readAt(buffer.data(), buffer.size(), position);
    for (std::size_t i = 0; i < size; ++i)
        if (buffer[i] == '\n') {
            position += (off_t)i + 1;
            break;
        }
    return position;
}

std::string JobLog::read(std::size_t most)
{
    skipStart();
    std::string text(most, '\0');
    text.resize(readAt(&text[0], most, position));
    position += (off_t)text.size();
    return text;
}
