#ifndef ZOJOBDIRECTORY_H
#define ZOJOBDIRECTORY_H

#include "schedule/ZoExport.h"
#include "schedule/ZoJob.h"

#include <sys/types.h>

/// The directory of a job. Others may be able to write to it, or to one above it: what lies in it
/// counts as the job's only as far as it is this user's own.
class ZoJobDirectory
{
public:
    /// Writes the path of the job's marker file.
    static void formatMarker(UtString& path, const ZoJob* job);

    /// Locks the job's marker for as long as this process lives. Where that fails, others have to
    /// judge by process ids and times whether the job runs.
    static void holdMarker(const ZoJob* job);

    /// Whether a living process holds the marker, and so runs the job, whatever the clock says.
    static SCHEDULE_EXPORT bool isHeld(const ZoJob* job);

    /// Opens and empties the job's output file, "log", and makes it where it is not there. Returns
    /// a descriptor; or -1, without waiting, for what is no regular file. A link is followed if it
    /// is this user's own. Somebody else's file is not emptied.
    static int openLog(const char* directory);

    /// Deletes the directory with everything in it, if the job's marker is there; of a link to it
    /// only the link. "/", the home directory and directories above it stay, less the marker. What
    /// has not gone after 2 seconds gets another name, and goes in a process of its own.
    static void remove(const ZoJob* job, const char* home);
};

/// Looks for the markers of many jobs, whose directories mostly lie beside each other: the one that
/// holds them is found once.
class ZoJobMarkers
{
public:
    ZoJobMarkers();
    ZoJobMarkers(const ZoJobMarkers&) = delete;
    ZoJobMarkers& operator=(const ZoJobMarkers&) = delete;
    ~ZoJobMarkers();

    /// Whether the job's marker file is there: a regular file of this user. A link is none.
    bool has(const ZoJob* job);

private:
    const uid_t user;
    UtString path;        ///< of the marker looked for last
    UtString parent;      ///< what held the directory of the last job
    int descriptor = -1;  ///< of the parent, once two jobs in a row have the same one

    void setParent(const char* directory, long length);
};

#endif
