#include "schedule/ZoDisk.h"

#include "utlib/UtString.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

static bool isOff()
{
    static const char* const value = ::getenv("JOB_SYNC");
    return value && ::strcmp(value, "off") == 0;
}

int ZoDisk::write(int fd, const char* bytes, long size)
{
    while (size > 0) {
        const long n = ::write(fd, bytes, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        bytes += n;
        size -= n;
    }
    return 0;
}

int ZoDisk::sync(int fd)
{
    if (isOff())
        return 0;
    int result;
    do
        result = ::fdatasync(fd);
    while (result != 0 && errno == EINTR);
    return result != 0 && (errno == EINVAL || errno == ENOSYS || errno == EROFS) ? 0 : result;
}

int ZoDisk::syncPath(const char* path)
{
    if (isOff())
        return 0;
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return errno == EACCES ? 0 : -1;  // a directory in which one may write, but not look
    const int result = sync(fd);
    const int error = errno;
    ::close(fd);
    errno = error;
    return result;
}

int ZoDisk::syncParent(const char* path)
{
    const char* const slash = ::strrchr(path, '/');
    UtString parent;
    parent.appendText(path, slash ? slash - path : 0);
    return syncPath(!slash ? "." : slash == path ? "/" : (const char*)parent);
}

int ZoDisk::syncAround(const char* path)
{
    if (isOff())
        return 0;
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return -1;
    const int result = ::syncfs(fd);
    const int error = errno;
    ::close(fd);
    errno = error;
    return result;
}
