#ifndef ZOJOB_H
#define ZOJOB_H

#include "schedule/ZoExport.h"
#include "utlib/UtHandle.h"
#include "utlib/UtString.h"

/// One batch job. Plain data that the server, its job children and the host application share.
/// A job is identified by the pair of `id` and `directory`.
class SCHEDULE_EXPORT ZoJob : public UtHandable
{
public:
    enum { WAITING = 10, RUNNING = 11, DONE = 12, KILLED = 13 };  // saved and sent: never renumber

    int state = 0;            ///< one of the codes above; 0 until submitted
    UtString command;         ///< shell command line
    UtString description;     ///< free text, may be empty; never interpreted
    UtString directory;       ///< where the command runs; holds its "log" and the marker file
    long long id = 0;         ///< time of submission, seconds since the epoch
    long long startTime = 0;  ///< seconds since the epoch; 0 until started
    long long endTime = 0;    ///< seconds since the epoch; 0 until done or killed
    int reserved = 0;         ///< carried along unchanged
    int pid = -1;             ///< the job child; -1 until started: test for > 0 before any kill()

    ZoJob();
    ~ZoJob() override;

    /// Seconds that the job has run: up to now by this machine's clock while it is running, else
    /// from its start to its end; 0 for a waiting job, and where the clock was set back meanwhile.
    long long runTime() const;

    /// Builds a job from one line of the list reply, for instance
    ///     12 "make all" "nightly build" /home/u/run 1700000000 1700000005 1700000065 0
    /// Never fails: missing fields are empty or 0, further ones are ignored. The result has no
    /// holder yet; put it into a UtHandle<ZoJob> at once, or it leaks.
    static ZoJob* createFromMessage(const char* line);
};

#endif
