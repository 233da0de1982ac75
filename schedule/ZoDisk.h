#ifndef ZODISK_H
#define ZODISK_H

#include "schedule/ZoExport.h"

/// Brings files onto the disk, so that a power cut does not take what somebody was told is safe.
/// With JOB_SYNC=off in the environment every sync does nothing and succeeds.
class SCHEDULE_EXPORT ZoDisk
{
public:
    /// Writes so many bytes from the file's position on. Returns 0, or -1 with errno set; part of
    /// them may have been written then.
    static int write(int fd, const char* bytes, long size);

    /// Waits until the contents and the size of an open file are on the disk. Returns 0, or -1
    /// with errno set; a file system that cannot say is taken at its word.
    static int sync(int fd);

    /// The same for a file or a directory by its path: of a directory, the names in it.
    static int syncPath(const char* path);

    /// The same for the directory that holds the path.
    static int syncParent(const char* path);

    /// The same for everything on the file system that holds the path: for many files at once.
    static int syncAround(const char* path);
};

#endif
