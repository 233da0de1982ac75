#include "utlib/UtTree.h"

#include "utlib/UtClock.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/openat2.h>

/// Directories that are open at the same time, one below the other. A directory that lies deeper is
/// moved up to the top of the tree first.
static const int MOST_OPEN = 64;

/// Names that are tried where one must be free.
static const int NAME_ATTEMPTS = 10000;

/// Opens a directory in an open one, unless it is a link or something is mounted there. Returns a
/// descriptor, or -1 with errno set.
static int openInside(int parent, const char* name)
{
    const int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    struct open_how how = {};
    how.flags = flags;
    how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
    const int result = (int)::syscall(SYS_openat2, parent, name, &how, sizeof how);
    if (result >= 0 || (errno != ENOSYS && errno != EPERM))
        return result;
    // An older kernel, or a sandbox that does not know the call: the device tells most mounts.
    struct stat above, inside;
    if (::fstat(parent, &above) != 0 || ::fstatat(parent, name, &inside, AT_SYMLINK_NOFOLLOW) != 0)
        return -1;
    errno = EXDEV;
    return above.st_dev == inside.st_dev ? ::openat(parent, name, flags) : -1;
}

/// Renames an entry to "PREFIX-NUMBER", with a number from `first` on under which there is nothing.
/// Returns the number, or -1 with errno set.
static long renameToFree(int from, const char* entry, int to, const char* prefix, long first,
                         char (&name)[64])
{
    for (long number = first; number < first + NAME_ATTEMPTS; ++number) {
        ::snprintf(name, sizeof name, "%s-%ld", prefix, number);
        int result = ::renameat2(from, entry, to, name, RENAME_NOREPLACE);
        struct stat other;
        if (result != 0 && (errno == EINVAL || errno == ENOSYS) &&
            ::fstatat(to, name, &other, AT_SYMLINK_NOFOLLOW) != 0)
            result = ::renameat(from, entry, to, name);  // a file system that cannot promise it
        if (result == 0)
            return number;
        if (errno != EEXIST)
            return -1;
    }
    return -1;
}

UtTree::UtTree(const char* path)
{
    long end = (long)::strlen(path);
    while (end > 1 && path[end - 1] == '/')  // "link/" would name what the link points to
        --end;
    UtString trimmed;
    trimmed.appendText(path, end);
    const char* const slash = ::strrchr(trimmed, '/');
    name = slash ? slash + 1 : (const char*)trimmed;
    if (name == "." || name == "..")
        name = "";
    directory = ::open(trimmed, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    keep("/");
}

UtTree::~UtTree()
{
    if (directory >= 0)
        ::close(directory);
}

void UtTree::keep(const char* path)
{
    int fd = ::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
    struct stat status;
    while (fd >= 0 && ::fstat(fd, &status) == 0) {
        const Identity identity = { status.st_dev, status.st_ino };
        const bool isRoot = kept.size() > 0 && kept[kept.size() - 1].device == identity.device &&
                            kept[kept.size() - 1].node == identity.node;
        if (isRoot)  // the directory above it is itself
            break;
        kept.append(identity);
        const int above = ::openat(fd, "..", O_PATH | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        fd = above;
    }
    if (fd >= 0)
        ::close(fd);
}

bool UtTree::holds(int fd) const
{
    struct stat status;
    if (::fstat(fd, &status) != 0)
        return true;  // what cannot be judged stays
    for (long i = 0; i < kept.size(); ++i) {
        if (kept[i].device == status.st_dev && kept[i].node == status.st_ino)
            return true;
    }
    return false;
}

bool UtTree::isKept() const
{
    return holds(directory);
}

bool UtTree::isLate() const
{
    return deadline >= 0 && UtClock::now() >= deadline;
}

int UtTree::moveUp(int parent, const char* entry)
{
    char fresh[64];
    const long number = renameToFree(parent, entry, directory, "moved-up", (long)renamed, fresh);
    if (number < 0)
        return -1;
    renamed = number + 1;
    return 0;
}

int UtTree::removeEntry(int parent, const char* entry, int depth)
{
    if (::unlinkat(parent, entry, 0) == 0)
        return 0;
    const int error = errno;
    const int fd = openInside(parent, entry);
    if (fd < 0) {
        errno = error == EISDIR ? errno : error;
        return -1;
    }
    if (holds(fd)) {
        ::close(fd);
        errno = EBUSY;
        return -1;
    }
    ::fchmod(fd, S_IRWXU);  // a read-only directory of ours; the end tells if this did not help
    if (depth == MOST_OPEN && moveUp(parent, entry) == 0) {
        ::close(fd);
        return 0;  // the top of the tree is read again
    }
    if (removeContents(fd, depth + 1) != 0)
        return -1;
    return ::unlinkat(parent, entry, AT_REMOVEDIR);
}

/// Deletes what an open directory holds and closes it. Some file systems skip entries while others
/// vanish, so it is read again until a reading deletes nothing more. Returns -1 when it is late, or
/// the directory cannot be read.
int UtTree::removeContents(int fd, int depth)
{
    DIR* const stream = ::fdopendir(fd);
    if (!stream) {
        ::close(fd);
        return -1;
    }
    for (int removed = 1; removed > 0 && !isLate();) {
        removed = 0;
        ::rewinddir(stream);
        const struct dirent* entry;
        while (!isLate() && (entry = ::readdir(stream))) {
            if (::strcmp(entry->d_name, ".") == 0 || ::strcmp(entry->d_name, "..") == 0)
                continue;
            removed += removeEntry(::dirfd(stream), entry->d_name, depth) == 0;
        }
    }
    ::closedir(stream);
    return isLate() ? -1 : 0;
}

/// Whether the entry of an open directory is still the one that another descriptor has open.
static bool isSame(int parent, const char* entry, int fd)
{
    struct stat named, open;
    return ::fstatat(parent, entry, &named, AT_SYMLINK_NOFOLLOW) == 0 && ::fstat(fd, &open) == 0 &&
           named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

/// Opens the directory that holds the one of a descriptor under that name. Returns a descriptor, or
/// -1 with errno set.
static int openParent(int fd, const char* name)
{
    const int parent = ::openat(fd, "..", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (parent < 0 || isSame(parent, name, fd))
        return parent;
    ::close(parent);
    errno = ENOENT;
    return -1;
}

int UtTree::remove(long long milliseconds)
{
    deadline = milliseconds < 0 ? -1 : UtClock::now() + milliseconds;
    if (isKept()) {
        errno = EBUSY;
        return FAILED;
    }
    ::fchmod(directory, S_IRWXU);
    const int copy = ::fcntl(directory, F_DUPFD_CLOEXEC, 0);
    if (copy < 0 || (removeContents(copy, 0) != 0 && !isLate()))
        return FAILED;
    if (isLate())
        return LATE;
    const int parent = openParent(directory, name);
    if (parent < 0)
        return FAILED;
    const int result = ::unlinkat(parent, name, AT_REMOVEDIR);
    const int error = errno;
    ::close(parent);
    errno = error;
    return result == 0 ? GONE : FAILED;
}

int UtTree::rename()
{
    const int parent = openParent(directory, name);
    if (parent < 0)
        return -1;
    char fresh[64];
    const long number = renameToFree(parent, name, parent, ".kelvo-removed", ::getpid(), fresh);
    const int error = errno;
    ::close(parent);
    errno = error;
    if (number < 0)
        return -1;
    name = fresh;
    return 0;
}
