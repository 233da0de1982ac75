#include "schedule/ZoQueueFile.h"

#include "schedule/ZoDisk.h"
#include "schedule/ZoJobList.h"
#include "schedule/ZoQueueText.h"
#include "utlib/UtClock.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

static const long PATH_BUFFER = 1024;
static const int FILE_MODE = 0600;  // a command that somebody writes there would run as us
static const long long READ_LOCK_WAIT = 2000;    // ms that a reader waits for a writer
static const useconds_t READ_LOCK_PAUSE = 1000;  // microseconds between two tries
static const int UNLOCKED_READS = 100;           // until one that no writer has disturbed

/// Size of "kelvo-undo LENGTH CHECKSUM LENGTH CHECKSUM\n": 20 decimal and 16 hexadecimal digits.
static const long HEADER_SIZE = 87;

/// The part of it that tells of the old text.
static const long OLD_SIZE = 48;

/// Stands for the length of a new text that is not known yet.
static const long UNKNOWN = -1;

/// A 64-bit sum over words of eight bytes, the last one filled up with zeros: byte by byte it would
/// take as long as the rest of a save. The shift lets high bits, too, reach every bit of the sum.
static unsigned long long checksum(const char* bytes, long size)
{
    unsigned long long sum = 0xcbf29ce484222325ULL;
    for (long i = 0; i < size; i += (long)sizeof sum) {
        unsigned long long word = 0;
        ::memcpy(&word, bytes + i, size - i < (long)sizeof word ? size - i : (long)sizeof word);
        sum = (sum ^ word) * 0x100000001b3ULL;
        sum ^= sum >> 32;
    }
    return sum;
}

/// Writes the header of a journal, and a NUL behind it. Without a new text it fits none.
static void formatHeader(char (&header)[HEADER_SIZE + 1], const char* old, long oldLength,
                         const UtString* next)
{
    ::snprintf(header, sizeof header, "kelvo-undo %020ld %016llx %020ld %016llx\n", oldLength,
               checksum(old, oldLength), next ? next->length() : UNKNOWN,
               next ? checksum(*next, next->length()) : 0);
}

/// Appends everything from the descriptor's position on. Returns 0 or -1.
static int readAll(int fd, UtString& text)
{
    struct stat status;
    if (::fstat(fd, &status) == 0) {  // room at once: a text that grows is copied again and again
        text.insertMemory(text.size(), status.st_size);
        text.used -= status.st_size;
    }
    char piece[65536];
    for (;;) {
        const long n = ::read(fd, piece, sizeof piece);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return (int)n;
        text.appendText(piece, n);
    }
}

/// What a journal tells of the text that was being written.
struct NextText {
    long length = UNKNOWN;
    unsigned long long sum = 0;
};

/// Whether the lock file holds a whole journal; `old` is then its text.
static bool readJournal(int lockFile, UtString& old, NextText& next)
{
    struct stat status;
    char start[HEADER_SIZE + 1] = {}, header[HEADER_SIZE + 1];
    long length;
    // The size first: what is no journal of ours need not be read.
    if (::fstat(lockFile, &status) != 0 || status.st_size < HEADER_SIZE ||
        ::pread(lockFile, start, HEADER_SIZE, 0) != HEADER_SIZE ||
        ::sscanf(start, "kelvo-undo %20ld %*16[0-9a-f] %20ld %16llx", &length, &next.length,
                 &next.sum) != 3 ||
        length != status.st_size - HEADER_SIZE)
        return false;
    UtString text;
    if (::lseek(lockFile, HEADER_SIZE, SEEK_SET) != HEADER_SIZE || readAll(lockFile, text) != 0)
        return false;
    formatHeader(header, text, text.length(), nullptr);
    if (text.length() != length || ::memcmp(header, start, OLD_SIZE) != 0)
        return false;
    old = text;
    return true;
}

/// Ends the journal's say about the queue.
static void emptyJournal(int lockFile)
{
    // If the file cannot be cut, a header that fits nothing does as well; if that fails too, the
    // journal stays whole and the queue stays what it was before.
    if (::ftruncate(lockFile, 0) != 0 && ::pwrite(lockFile, "-", 1, 0) != 1)
        ZoJobList::log("cannot empty the journal: %s\n", ::strerror(errno));
}

/// Reads the queue file as it is. Returns 0, or -1 with errno set: EACCES for what is no regular
/// file.
static int readFile(const char* path, UtString& text)
{
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return -1;
    struct stat status;
    int result = ::fstat(fd, &status);
    int error = errno;
    if (result == 0 && !S_ISREG(status.st_mode)) {
        result = -1;
        error = EACCES;
    } else if (result == 0) {
        result = readAll(fd, text);
        error = errno;
    }
    ::close(fd);
    errno = error;
    return result;
}

/// Whether the queue file holds the text that the journal says was being written.
static bool isNext(const char* path, const NextText& next)
{
    struct stat status;
    UtString text;
    return next.length >= 0 && ::stat(path, &status) == 0 && status.st_size == next.length &&
           readFile(path, text) == 0 && text.length() == next.length &&
           checksum(text, text.length()) == next.sum;
}

/// Makes a file that this user can open again, whatever the umask. Returns a descriptor or -1.
static int make(const char* path, int flags)
{
    const int fd = ::open(path, flags | O_CREAT, FILE_MODE);
    if (fd >= 0)
        ::fchmod(fd, FILE_MODE);  // fails for a file that somebody else has made meanwhile
    return fd;
}

/// Opens the queue file for writing, and makes it where it is not there. Nobody else may write to
/// it. Returns a descriptor, or -1 with errno set; `isNew` tells that it was made.
static int openForWriting(const char* path, bool* isNew)
{
    const int flags = O_WRONLY | O_NONBLOCK | O_CLOEXEC;
    int fd = ::open(path, flags);
    *isNew = fd < 0 && errno == ENOENT;
    if (*isNew)
        fd = make(path, flags);
    struct stat status;
    if (fd < 0 || ::fstat(fd, &status) != 0)
        return -1;
    if (!S_ISREG(status.st_mode)) {
        ::close(fd);
        errno = EACCES;
        return -1;
    }
    if (status.st_mode & (S_IWGRP | S_IWOTH))
        ::fchmod(fd, status.st_mode & 07777 & ~(S_IWGRP | S_IWOTH));  // fails for another's file
    return fd;
}

/// Rewrites the queue file in place, on the disk. Returns 0; 1 when it could not be opened and is
/// as before; -1 when its contents are lost.
static int rewriteFile(const char* path, const UtString& text)
{
    bool isNew;
    const int fd = openForWriting(path, &isNew);
    if (fd < 0)
        return 1;
    const bool isWritten = ::ftruncate(fd, 0) == 0 && ZoDisk::write(fd, text, text.length()) == 0 &&
                           ZoDisk::sync(fd) == 0;
    // A full disk may show only at the close.
    return ::close(fd) == 0 && isWritten && (!isNew || ZoDisk::syncParent(path) == 0) ? 0 : -1;
}

/// Waits for the exclusive lock on the file. Returns 0, or -1 where there are no locks.
static int waitForLock(int fd)
{
    int result;
    do {
        result = ::flock(fd, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    return result;
}

/// Waits for a shared lock on the file, but not for ever: its holder may be stopped, or be this
/// very process. Returns 0 or -1.
static int waitForSharedLock(int fd)
{
    const long long deadline = UtClock::now() + READ_LOCK_WAIT;
    while (::flock(fd, LOCK_SH | LOCK_NB) != 0) {
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK || UtClock::now() >= deadline)
            return -1;
        ::usleep(READ_LOCK_PAUSE);
    }
    return 0;
}

/// What tells one version of the queue on the disk from another.
struct Version {
    struct timespec times[2] = {};
    long long sizes[2] = {};

    Version(int journal, const char* path)
    {
        struct stat status[2] = {};
        ::fstat(journal, &status[0]);  // a file that is not there has size and time 0
        ::stat(path, &status[1]);
        for (int i = 0; i < 2; ++i) {
            times[i] = status[i].st_mtim;
            sizes[i] = status[i].st_size;
        }
    }
    bool operator==(const Version& other) const
    {
        return ::memcmp(this, &other, sizeof other) == 0;
    }
};

/// Reads the queue's text by the journal's rule. Returns 0, or -1 when there is none.
static int readText(int journal, const char* path, UtString& text)
{
    NextText next;
    if (journal >= 0 && readJournal(journal, text, next) && !isNext(path, next))
        return 0;
    text = "";
    return readFile(path, text);
}

/// The same without a lock. A rewrite that begins after the look at the journal shows in the files:
/// then once more.
static int readTextUnlocked(int journal, const char* path, UtString& text)
{
    int result = -1;
    for (int i = 0; i < UNLOCKED_READS; ++i) {
        const Version before(journal, path);
        result = readText(journal, path, text);
        if (before == Version(journal, path))
            break;
    }
    return result;
}

/// Whether an open lock file can be one: a regular file of this user. Others could put a queue of
/// their own into it.
static bool isOurs(int fd)
{
    struct stat status;
    return ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
}

ZoQueueFile::ZoQueueFile(const UtString& homeDirectory, const UtString& hostName)
    : home(homeDirectory), host(hostName)
{
}

ZoQueueFile::~ZoQueueFile()
{
    unlock();
}

/// Formats the path of a file, "<home>/<name>-<host>". Returns 0, or -1 when it does not fit.
int ZoQueueFile::formatPath(char* buffer, long size, const char* name) const
{
    const int n = ::snprintf(buffer, size, "%s/%s-%s", (const char*)home, name, (const char*)host);
    return n < 0 || n >= size ? -1 : 0;
}

/// Opens the lock file, and makes it where it is not there. Returns a descriptor or -1.
static int openLockFile(const char* path)
{
    const int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    int fd = ::open(path, flags);
    if (fd < 0 && errno == ENOENT) {
        fd = make(path, flags);
        if (fd >= 0)
            ZoDisk::syncParent(path);  // a journal without a name would be none
    }
    if (fd < 0 || (isOurs(fd) && waitForLock(fd) == 0))
        return fd;
    ::close(fd);
    return -1;
}

void ZoQueueFile::lock()
{
    char path[PATH_BUFFER];
    if (bracket || formatPath(path, sizeof path, ".zojobs.lock") != 0)
        return;
    const int fd = openLockFile(path);
    if (fd < 0)
        return;
    bracket = new Bracket;
    bracket->lockFile = fd;
    recover();
}

/// Puts the text of a whole journal back into the queue file; empties the journal.
void ZoQueueFile::recover()
{
    struct stat status;
    if (::fstat(bracket->lockFile, &status) == 0 && status.st_size == 0)
        return;
    char path[PATH_BUFFER];
    NextText next;
    // A journal that is not whole was cut off before the queue file was touched.
    if (readJournal(bracket->lockFile, bracket->old, next) &&
        formatPath(path, sizeof path, ".zojobs") == 0 && !isNext(path, next)) {
        bracket->isRead = true;
        if (rewriteFile(path, bracket->old) != 0) {
            bracket->journal = Bracket::NEEDED;
            return;
        }
    }
    emptyJournal(bracket->lockFile);
}

void ZoQueueFile::unlock()
{
    if (!bracket)
        return;
    if (bracket->journal == Bracket::PREPARED)
        emptyJournal(bracket->lockFile);  // nothing was saved after all
    // A forked child may still have its copy open, so closing alone would not end the lock.
    ::flock(bracket->lockFile, LOCK_UN);
    forget();
}

void ZoQueueFile::forget()
{
    if (!bracket)
        return;
    ::close(bracket->lockFile);
    delete bracket;
    bracket = nullptr;
}

/// Reads the queue file for this bracket, once. Returns 0, or -1 with errno set.
int ZoQueueFile::readOld(const char* path)
{
    if (bracket->isRead)
        return 0;
    bracket->old = "";
    if (readFile(path, bracket->old) != 0)
        return -1;
    bracket->isRead = true;
    return 0;
}

/// Reads the queue's text outside of a bracket. Returns 0, or -1 when there is none.
static int readOutside(const char* path, const char* lockPath, UtString& text)
{
    // A shared lock keeps a rewrite under way from being seen half done.
    const int reader = ::open(lockPath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    const bool isLocked = reader < 0 || waitForSharedLock(reader) == 0;
    const int journal = reader >= 0 && isOurs(reader) ? reader : -1;
    const int result =
        isLocked ? readText(journal, path, text) : readTextUnlocked(journal, path, text);
    if (reader >= 0)
        ::close(reader);
    return result;
}

const UtString* ZoQueueFile::read(UtString& space)
{
    char path[PATH_BUFFER], lockPath[PATH_BUFFER];
    if (formatPath(path, sizeof path, ".zojobs") != 0)
        return nullptr;
    if (formatPath(lockPath, sizeof lockPath, ".zojobs.lock") != 0)
        lockPath[0] = '\0';  // cannot be opened
    if ((bracket ? readOld(path) : readOutside(path, lockPath, space)) != 0)
        return nullptr;
    if (bracket) {
        const UtString& old = bracket->old;
        if (!::memchr(old, '\0', old.length()))
            return &old;
        space = old;  // the journal keeps it as it is
    }
    ZoQueueText::dropNulBytes(space);
    return &space;
}

/// Puts the old text into the journal, on the disk when the new one is known. Returns 0, or -1 with
/// errno set and the journal empty.
int ZoQueueFile::startJournal(const UtString* next)
{
    const int fd = bracket->lockFile;
    const UtString& old = bracket->old;
    char header[HEADER_SIZE + 1];
    formatHeader(header, old, old.length(), next);
    const bool isThere = bracket->journal == Bracket::PREPARED;  // all but the new header
    if (::lseek(fd, 0, SEEK_SET) == 0 && ZoDisk::write(fd, header, HEADER_SIZE) == 0 &&
        (isThere || ZoDisk::write(fd, old, old.length()) == 0) &&
        (!next || ZoDisk::sync(fd) == 0)) {
        bracket->journal = Bracket::PREPARED;
        return 0;
    }
    const int error = errno;
    emptyJournal(fd);
    bracket->journal = Bracket::NO_JOURNAL;
    errno = error;
    return -1;
}

/// Whether a queue file that cannot be read for this reason may be taken for an empty one. Out of
/// descriptors or the like, a queue that is there must not.
static bool isNoQueue(int error)
{
    return error == ENOENT || error == EACCES;
}

int ZoQueueFile::prepare()
{
    char path[PATH_BUFFER];
    if (formatPath(path, sizeof path, ".zojobs") != 0)
        return 0;
    const int fd = ::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
    ::close(fd);
    if (!bracket || bracket->journal != Bracket::NO_JOURNAL)
        return 0;
    return readOld(path) == 0 || isNoQueue(errno) ? startJournal(nullptr) : -1;
}

/// Rewrites the queue file under the protection of the journal. Returns 0 or -1.
int ZoQueueFile::save(const char* path, const UtString& text)
{
    if (readOld(path) != 0 && !isNoQueue(errno))
        return -1;
    // A journal that is needed stays as it is, and is the queue until the file is whole.
    const bool wasNeeded = bracket->journal == Bracket::NEEDED;
    if (!wasNeeded && startJournal(&text) != 0)
        return -1;
    const int result = rewriteFile(path, text);
    const bool isUntouched = result > 0 && !wasNeeded;
    const bool isWhole =
        result == 0 || isUntouched || (result < 0 && rewriteFile(path, bracket->old) == 0);
    bracket->journal = isWhole ? Bracket::NO_JOURNAL : Bracket::NEEDED;
    if (isWhole) {
        emptyJournal(bracket->lockFile);
        if (wasNeeded)
            ZoDisk::sync(bracket->lockFile);  // it knows nothing of this new text
    }
    bracket->isRead = !isWhole;
    return result == 0 ? 0 : -1;
}

int ZoQueueFile::write(const UtString& text)
{
    char path[PATH_BUFFER];
    if (formatPath(path, sizeof path, ".zojobs") != 0)
        return -1;
    if (bracket)
        return save(path, text);
    return rewriteFile(path, text) == 0 ? 0 : -1;  // nowhere to keep the old text meanwhile
}
