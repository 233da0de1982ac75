#ifndef ZOJOBDIRECTORY_H
#define ZOJOBDIRECTORY_H

#include "schedule/ZoJob.h"

/// The directory of a job. Others may be able to write to it, or to one above it: what lies in it
/// counts as the job's only as far as it is this user's own.
class ZoJobDirectory
{
public:
    /// Writes the path of the job's marker file.
    static void formatMarker(UtString& path, const ZoJob* job);

    /// Whether there is a marker file of that path: a regular file of this user. A link is none.
    static bool hasMarker(const char* path);

    /// Opens and empties the job's output file, "log", and makes it where it is not there. Returns
    /// a descriptor; or -1, without waiting, for what is no regular file. A link is followed if it
    /// is this user's own. Somebody else's file is not emptied.
    static int openLog(const char* directory);

    /// Deletes the directory with everything in it, if the job's marker is there; of a link to it
    /// only the link. "/", the home directory and directories above it stay, less the marker. What
    /// has not gone after 2 seconds gets another name, and goes in a process of its own.
    static void remove(const ZoJob* job, const char* home);
};

#endif
