#include "schedule/ZoJobList.h"
#include "schedule/ZoQueueBracket.h"
#include "utlib/UtClock.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

// The queue file is rewritten in place, and a process can be killed at any moment of it. While a
// rewrite is under way, the lock file therefore holds the text that the queue had before, behind a
// header with its length and checksum. One rule carries everything: a whole journal is the queue.

static const long PATH_BUFFER = 1024;
static const int LOCK_MODE = 0600;
static const long long READ_LOCK_WAIT = 2000;    // ms that a reader waits for a writer
static const useconds_t READ_LOCK_PAUSE = 1000;  // microseconds between two tries
static const int UNLOCKED_READS = 100;           // until one that no writer has disturbed

/// Size of "kelvo-undo LENGTH CHECKSUM\n", with 20 digits and 16 hexadecimal ones.
static const long HEADER_SIZE = 49;

int ZoJobList::formatPath(char* buffer, long size, const char* name)
{
    const int n = ::snprintf(buffer, size, "%s/%s-%s", (const char*)homeDirectory, name,
                             (const char*)hostName);
    return n < 0 || n >= size ? -1 : 0;
}

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

/// Writes the header of the journal of a text, and a NUL behind it.
static void formatHeader(char (&header)[HEADER_SIZE + 1], const char* text, long length)
{
    ::snprintf(header, sizeof header, "kelvo-undo %020ld %016llx\n", length,
               checksum(text, length));
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

/// Writes all bytes. Returns 0 or -1.
static int writeAll(int fd, const char* bytes, long size)
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

/// Whether the lock file holds a whole journal; the text is then the queue.
static bool readJournal(int lockFile, UtString& text)
{
    struct stat status;
    if (::fstat(lockFile, &status) != 0 || status.st_size < HEADER_SIZE)
        return false;
    UtString journal;
    if (::lseek(lockFile, 0, SEEK_SET) != 0 || readAll(lockFile, journal) != 0 ||
        journal.length() < HEADER_SIZE)
        return false;
    const char* const old = (const char*)journal + HEADER_SIZE;
    const long length = journal.length() - HEADER_SIZE;
    char header[HEADER_SIZE + 1];
    formatHeader(header, old, length);
    if (::memcmp(header, journal, HEADER_SIZE) != 0)
        return false;
    text = "";
    text.appendText(old, length);
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

/// Puts the text into the journal, on disk as far as the system is concerned. Returns 0, or -1 with
/// the journal empty.
static int writeJournal(int lockFile, const UtString& text)
{
    char header[HEADER_SIZE + 1];
    formatHeader(header, text, text.length());
    if (::lseek(lockFile, 0, SEEK_SET) == 0 && writeAll(lockFile, header, HEADER_SIZE) == 0 &&
        writeAll(lockFile, text, text.length()) == 0)
        return 0;
    emptyJournal(lockFile);
    return -1;
}

/// Reads a file as it is. Returns 0, or -1 with errno set.
static int readFile(const char* path, UtString& text)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    const int result = readAll(fd, text);
    const int error = errno;
    ::close(fd);
    errno = error;
    return result;
}

/// Takes out what a damaged file holds from a NUL byte to the end of that line, and nothing more.
static void dropNulBytes(UtString& text)
{
    const char* const end = text.data + text.length();
    char* to = text.data;
    const char* from = to;
    while (const char* const nul = (const char*)::memchr(from, '\0', end - from)) {
        ::memmove(to, from, nul - from);
        to += nul - from;
        const char* const lineEnd = (const char*)::memchr(nul, '\n', end - nul);
        from = lineEnd ? lineEnd + 1 : end;
    }
    if (from != to)
        ::memmove(to, from, end - from);
    to += end - from;
    *to = '\0';
    text.used = to + 1 - text.data;
}

/// Reads a text file; a NUL byte costs the rest of its line. Returns 0, or -1 when it cannot be
/// read.
static int readLines(const char* path, UtString& text)
{
    if (readFile(path, text) != 0)
        return -1;
    dropNulBytes(text);
    return 0;
}

/// Rewrites a file in place. Returns 0; 1 when it could not be opened and is as before; -1 when its
/// contents are lost.
static int rewriteFile(const char* path, const UtString& text)
{
    FILE* const file = ::fopen(path, "we");
    if (!file)
        return 1;
    const bool isWritten = ::fwrite(text, 1, text.length(), file) == (size_t)text.length();
    // A full disk may show only at the close.
    return ::fclose(file) == 0 && isWritten ? 0 : -1;
}

/// Puts the text of the queue file into the journal and into `old`. Returns 0 or -1.
static int startJournal(int lockFile, const char* path, UtString& old)
{
    if (readFile(path, old) != 0) {
        // Out of descriptors or the like, a queue that is there must not be taken for an empty one.
        if (errno != ENOENT && errno != EACCES)
            return -1;
        old = "";
    }
    return writeJournal(lockFile, old);
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

/// Reads the queue's text: a whole journal, else the queue file. Returns 0, or -1 when neither is
/// there.
static int readText(int journal, const char* path, UtString& text)
{
    return (journal >= 0 && readJournal(journal, text)) ? 0 : readLines(path, text);
}

/// Reads the queue's text without a lock. A rewrite that begins after the look at the journal shows
/// in the files: then once more.
static int readTextUnlocked(int journal, const char* path, UtString& text)
{
    int result = -1;
    for (int i = 0; i < UNLOCKED_READS; ++i) {
        const Version before(journal, path);
        text = "";
        result = readText(journal, path, text);
        if (before == Version(journal, path))
            break;
    }
    return result;
}

void ZoJobList::readQueue(UtDArray<UtHandle<ZoJob>>& intoJobs)
{
    char path[PATH_BUFFER], lockPath[PATH_BUFFER];
    if (formatPath(path, sizeof path, ".zojobs") != 0)
        return;
    // Outside the brackets a shared lock keeps a rewrite under way from being seen half done.
    int reader = -1;
    if (lockFile < 0 && formatPath(lockPath, sizeof lockPath, ".zojobs.lock") == 0)
        reader = ::open(lockPath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    UtString text;
    const bool isLocked = reader < 0 || waitForSharedLock(reader) == 0;
    const int journal = lockFile >= 0 ? lockFile : reader;
    const int result =
        isLocked ? readText(journal, path, text) : readTextUnlocked(journal, path, text);
    if (reader >= 0)
        ::close(reader);
    if (result == 0)
        readQueue(text, intoJobs);
}

void ZoJobList::writeQueue(UtDArray<UtHandle<ZoJob>>& ofJobs)
{
    UtString text, old;
    writeQueue(text, ofJobs);
    char path[PATH_BUFFER];
    if (formatPath(path, sizeof path, ".zojobs") != 0)
        return;
    if (lockFile < 0) {
        rewriteFile(path, text);  // without a lock file there is nowhere to keep the old text
        return;
    }
    // A journal that is whole now could not be put back when the bracket began, or was made ready
    // in it: it stays.
    const bool wasWhole = readJournal(lockFile, old);
    if (!wasWhole && startJournal(lockFile, path, old) != 0)
        return;
    const int result = rewriteFile(path, text);
    const bool isUntouched = result > 0 && !wasWhole;
    if (result == 0 || isUntouched || (result < 0 && rewriteFile(path, old) == 0))
        emptyJournal(lockFile);
}

int ZoJobList::prepareSave()
{
    char path[PATH_BUFFER];
    if (formatPath(path, sizeof path, ".zojobs") != 0)
        return 0;
    const int fd = ::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
    ::close(fd);
    UtString old;
    return lockFile < 0 || readJournal(lockFile, old) ? 0 : startJournal(lockFile, path, old);
}

void ZoJobList::update()
{
    const ZoQueueBracket bracket(*this);
}

/// Whether the open file can serve as lock and journal: a regular file, on a file system with
/// locks.
static bool isLockable(int fd)
{
    struct stat status;
    return ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && waitForLock(fd) == 0;
}

void ZoJobList::lockQueue()
{
    char path[PATH_BUFFER];
    if (formatPath(path, sizeof path, ".zojobs.lock") != 0)
        return;
    lockFile = ::open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, LOCK_MODE);
    if (lockFile < 0)
        return;
    if (isLockable(lockFile)) {
        recoverQueue();
        return;
    }
    ::close(lockFile);
    lockFile = -1;
}

void ZoJobList::recoverQueue()
{
    struct stat status;
    if (::fstat(lockFile, &status) == 0 && status.st_size == 0)
        return;
    char path[PATH_BUFFER];
    UtString old;
    // A journal that is not whole was cut off before the queue file was touched.
    if (!readJournal(lockFile, old) ||
        (formatPath(path, sizeof path, ".zojobs") == 0 && rewriteFile(path, old) == 0))
        emptyJournal(lockFile);
}

void ZoJobList::unlockQueue()
{
    if (lockFile < 0)
        return;
    // A forked child may still have its copy open, so closing alone would not end the lock.
    ::flock(lockFile, LOCK_UN);
    ::close(lockFile);
    lockFile = -1;
}

void ZoJobList::leaveBracket()
{
    if (lockFile >= 0)
        ::close(lockFile);  // only this copy, and without unlocking
    lockFile = -1;
}
