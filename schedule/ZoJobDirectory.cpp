#include "schedule/ZoJobDirectory.h"

#include "schedule/ZoJobList.h"
#include "schedule/ZoNumber.h"
#include "schedule/ZoProcess.h"
#include "utlib/UtTree.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

static const long long CLIENT_WAIT = 2000;  // ms that a client waits for a directory to go
static const long long MOST_WAIT = 20000;   // the same where it cannot be renamed
static const int LOG_MODE = 0666;
static const int TRIES = 100;                  // to lock a marker that somebody looks at
static const useconds_t BETWEEN_TRIES = 1000;  // microseconds

void ZoJobDirectory::formatMarker(UtString& path, const ZoJob* job)
{
    path = job->directory;
    path.appendText("/.", 2);
    zoAppendNumber(path, job->id);
}

/// A descriptor of the job's marker, or -1.
static int openMarker(const ZoJob* job, int mode)
{
    UtString path;
    ZoJobDirectory::formatMarker(path, job);
    return ::open(path, mode | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
}

void ZoJobDirectory::holdMarker(const ZoJob* job)
{
    const int fd = openMarker(job, O_RDWR);  // stays open; the command does not inherit it
    for (int i = 0; i < TRIES && fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0; ++i)
        ::usleep(BETWEEN_TRIES);
}

bool ZoJobDirectory::isHeld(const ZoJob* job)
{
    const int fd = openMarker(job, O_RDONLY);
    const bool isLocked = fd >= 0 && ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (fd >= 0)
        ::close(fd);
    return isLocked;
}

/// Whether there is a marker file of that path, which is relative to an open directory.
static bool isMarker(int directory, const char* path, uid_t user)
{
    struct stat status;
    return ::fstatat(directory, path, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(status.st_mode) && status.st_uid == user;
}

ZoJobMarkers::ZoJobMarkers() : user(::geteuid())
{
}

ZoJobMarkers::~ZoJobMarkers()
{
    setParent("", 0);
}

void ZoJobMarkers::setParent(const char* directory, long length)
{
    if (length > 0 && parent.length() == length && ::memcmp(parent, directory, length) == 0) {
        if (descriptor < 0)
            descriptor = ::open(parent, O_PATH | O_DIRECTORY | O_CLOEXEC);
        return;
    }
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
    parent = "";
    parent.appendText(directory, length);
}

bool ZoJobMarkers::has(const ZoJob* job)
{
    ZoJobDirectory::formatMarker(path, job);
    const char* const slash = ::strrchr(job->directory, '/');
    const long length = slash ? slash - job->directory : 0;
    setParent(job->directory, length);
    const char* const rest = (const char*)path + length + 1;
    if (descriptor < 0 || *rest == '/')  // that would begin at the root
        return isMarker(AT_FDCWD, path, user);
    return isMarker(descriptor, rest, user);
}

/// Opens what a link in the directory points to, if the link is this user's. Returns a descriptor
/// or -1.
static int openThroughLink(int directory, const char* name, int flags)
{
    const int link = ::openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    struct stat status;
    char target[PATH_MAX] = {};
    const bool isOurs = link >= 0 && ::fstat(link, &status) == 0 && S_ISLNK(status.st_mode) &&
                        status.st_uid == ::geteuid() &&
                        ::readlinkat(link, "", target, sizeof target - 1) > 0;
    if (link >= 0)
        ::close(link);
    return isOurs ? ::openat(directory, target, flags, LOG_MODE) : -1;
}

/// Makes an open output file an empty one that its owner can read. Returns whether it can be one.
static bool prepareLog(int fd)
{
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    ::fcntl(fd, F_SETFL, O_APPEND);  // it waits again, where a file can make it wait
    if (status.st_uid != ::geteuid())
        return true;
    if (~status.st_mode & (S_IRUSR | S_IWUSR))
        ::fchmod(fd, (status.st_mode & 07777) | S_IRUSR | S_IWUSR);
    return ::ftruncate(fd, 0) == 0 || errno == EPERM;  // EPERM: it may only grow
}

int ZoJobDirectory::openLog(const char* directory)
{
    // Appending, standard output and standard error do not write over each other.
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC;
    const int place = ::open(directory, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (place < 0)
        return -1;
    int fd = ::openat(place, "log", flags | O_NOFOLLOW, LOG_MODE);
    if (fd < 0 && errno == ELOOP)
        fd = openThroughLink(place, "log", flags);
    ::close(place);
    if (fd < 0 || prepareLog(fd))
        return fd;
    ::close(fd);
    return -1;
}

/// Deletes what is left of a tree in a process of its own, for which nobody waits. Returns 0 or -1.
static int removeBeside(UtTree& tree)
{
    const pid_t child = ::fork();
    if (child == 0) {
        const pid_t grandchild = ::fork();
        if (grandchild == 0) {
            ZoProcess::detach();
            tree.directory = ZoProcess::closeOthers(tree.directory);
            tree.remove(-1);
        }
        ::_exit(grandchild < 0);
    }
    int status = -1;
    while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    return status == 0 ? 0 : -1;
}

static void removeTree(UtTree& tree, const char* path)
{
    int result = tree.remove(CLIENT_WAIT);
    if (result == UtTree::LATE && tree.rename() == 0)
        result = removeBeside(tree) == 0 ? UtTree::GONE : UtTree::FAILED;
    else if (result == UtTree::LATE)  // under its name, somebody may put something new there
        result = tree.remove(MOST_WAIT);
    if (result != UtTree::GONE)
        ZoJobList::log("cannot delete all of %s\n", path);
}

/// Deletes the link of that path, but not one whose target must stay: that loses the marker.
static void removeLink(const UtString& path, const char* marker, const char* home)
{
    UtString inside = path;
    inside += "/.";
    UtTree target(inside);
    if (target.directory < 0 || !isMarker(target.directory, marker, ::geteuid()))
        return;
    target.keep(home);
    if (target.isKept()) {
        ::unlinkat(target.directory, marker, 0);
        return;
    }
    UtString parent;
    const char* const slash = ::strrchr(path, '/');
    parent.appendText(path, slash ? slash + 1 - path : 0);
    const int fd = ::open(slash ? (const char*)parent : ".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    const char* const name = slash ? slash + 1 : (const char*)path;
    struct stat status;
    if (::fstatat(fd, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode))
        ::unlinkat(fd, name, 0);
    if (fd >= 0)
        ::close(fd);
}

void ZoJobDirectory::remove(const ZoJob* job, const char* home)
{
    UtString path, marker(".");
    zoAppendNumber(marker, job->id);
    long end = job->directory.length();
    while (end > 1 && job->directory[end - 1] == '/')
        --end;
    path.appendText(job->directory, end);
    UtTree tree(path);
    if (tree.directory < 0)
        return errno == ELOOP || errno == ENOTDIR ? removeLink(path, marker, home) : (void)0;
    if (!isMarker(tree.directory, marker, ::geteuid()))
        return;
    tree.keep(home);
    if (tree.isKept())
        ::unlinkat(tree.directory, marker, 0);
    else
        removeTree(tree, path);
}
