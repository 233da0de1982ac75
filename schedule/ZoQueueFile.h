#ifndef ZOQUEUEFILE_H
#define ZOQUEUEFILE_H

#include "utlib/UtString.h"

/// The bytes of the queue, safely on disk: "<home>/.zojobs-<host>", with the lock file
/// "<home>/.zojobs.lock-<host>" beside it. Knows nothing of jobs.
///
/// The queue file is rewritten in place, and a process can be killed, or the machine lose its
/// power, at any moment of it. While a rewrite is under way, the lock file therefore holds a
/// journal: the text that the queue had before, behind a header with its length and checksum and
/// those of the text that is being written. One rule carries everything: **a whole journal is the
/// queue**, unless the queue file is the new text already.
///
/// Each step is on the disk before the next one: the journal, the rewrite, the emptied journal.
class ZoQueueFile
{
public:
    /// The two names stay the caller's, and are looked at anew in every call.
    ZoQueueFile(const UtString& homeDirectory, const UtString& hostName);
    ZoQueueFile(const ZoQueueFile&) = delete;
    ZoQueueFile& operator=(const ZoQueueFile&) = delete;
    ~ZoQueueFile();

    /// Begins a bracket: waits until no other process of this user is inside one, and takes back
    /// the rewrite that a process left half done. Where the lock file cannot be made, is not this
    /// user's or cannot be locked, the queue is served without a lock, and without that safety.
    void lock();

    /// Ends a bracket; does nothing outside of one.
    void unlock();

    /// For a forked child: gives up its copy of a bracket, which goes on in the parent.
    void forget();

    /// Reads the queue's text. Outside of a bracket a shared lock is waited for, two seconds at
    /// most. A NUL byte costs the rest of its line. Returns the text, which lies in `space` or, up
    /// to the end of the bracket, in here; null when there is no queue, or none that can be read.
    const UtString* read(UtString& space);

    /// Tells, inside a bracket, whether a save can be expected to succeed: the queue file can be
    /// opened, and the disk has room for the journal. Without a queue file there is nothing that a
    /// failed save could bring back. Returns 0, or -1 with errno set.
    int prepare();

    /// Writes the queue file anew. When that fails it holds what it held before; outside of a
    /// bracket its contents may be lost then. Returns 0, or -1.
    int write(const UtString& text);

private:
    /// What is known inside a bracket.
    struct Bracket {
        int lockFile = -1;
        UtString old;         ///< what the queue file held when it was read, byte for byte
        bool isRead = false;  ///< whether `old` is filled
        enum {
            NO_JOURNAL,
            PREPARED,  ///< there is a journal of `old`, and the queue file was not touched
            NEEDED     ///< the queue file is torn, and could not be restored from the journal
        } journal = NO_JOURNAL;
    };

    const UtString& home;
    const UtString& host;
    Bracket* bracket = nullptr;  ///< null outside of one

    int formatPath(char* buffer, long size, const char* name) const;
    void recover();
    int readOld(const char* path);
    int startJournal(const UtString* next);
    int save(const char* path, const UtString& text);
};

#endif
