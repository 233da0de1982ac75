#include "utlib/UtTmpDir.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/// Where directories are made when $TMPDIR does not serve. The first outlives a restart of the
/// machine; the second is better than none.
static const char* const PLACES[] = { "/var/tmp", "/tmp" };

UtTmpDir::UtTmpDir(const char* givenName, bool givenRemoveAtEnd, bool givenKeepName)
    : name(givenName), removeAtEnd(givenRemoveAtEnd), keepName(givenKeepName)
{
}

UtTmpDir::~UtTmpDir()
{
    if (removeAtEnd)
        remove();  // nobody is left to be told of a failure
}

int UtTmpDir::createIn(const char* place, int mode)
{
    *this = place;
    *this += "/";
    *this += (const char*)name;
    if (keepName) {
        if (::mkdir(*this, 0700) == 0 && ::chmod(*this, mode) == 0)
            return 0;
    } else {
        *this += "XXXXXX";
        if (::mkdtemp(data) && ::chmod(*this, mode) == 0)
            return 0;
    }
    const int error = errno;
    *this = "";
    errno = error;
    return -1;
}

int UtTmpDir::create(int mode)
{
    const char* const place = ::getenv("TMPDIR");
    // A path with white space or a quote could not be told to a client, nor a relative one be found
    // by a process with another working directory.
    if (place && place[0] == '/' && !::strpbrk(place, " \t\n\v\f\r\"") &&
        createIn(place, mode) == 0)
        return 0;
    for (const char* each : PLACES) {
        if (createIn(each, mode) == 0)
            return 0;
    }
    return -1;
}

static int removeAt(int parent, const char* name);

/// Deletes what an open directory holds. Some file systems skip entries while others vanish, so it
/// is read again until a reading deletes nothing more.
static void removeContents(DIR* directory)
{
    for (int removed = 1; removed > 0;) {
        removed = 0;
        ::rewinddir(directory);
        while (const struct dirent* entry = ::readdir(directory)) {
            if (::strcmp(entry->d_name, ".") == 0 || ::strcmp(entry->d_name, "..") == 0)
                continue;
            removed += removeAt(::dirfd(directory), entry->d_name) == 0;
        }
    }
}

/// Deletes one directory entry, a directory with everything in it. Works on descriptors, so that
/// nobody can put a link in its way. Returns 0, or -1 with errno set.
static int removeAt(int parent, const char* name)
{
    if (::unlinkat(parent, name, 0) == 0)
        return 0;
    const int error = errno;
    const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        errno = error == EISDIR ? errno : error;
        return -1;
    }
    ::fchmod(fd, S_IRWXU);  // a read-only directory of ours; rmdir tells if this did not help
    DIR* const directory = ::fdopendir(fd);
    if (!directory) {
        ::close(fd);
        return -1;
    }
    removeContents(directory);
    ::closedir(directory);
    return ::unlinkat(parent, name, AT_REMOVEDIR);
}

int UtTmpDir::remove()
{
    long end = length();
    while (end > 1 && (*this)[end - 1] == '/')  // "link/" would name what the link points to
        --end;
    UtString path;
    path.appendText(*this, end);
    if (path.length() == 0 || path == "/") {
        errno = EINVAL;
        return -1;
    }
    return removeAt(AT_FDCWD, path);
}
