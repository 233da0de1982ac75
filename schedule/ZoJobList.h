#ifndef ZOJOBLIST_H
#define ZOJOBLIST_H

#include "schedule/ZoExport.h"
#include "schedule/ZoJob.h"
#include "utlib/UtDArray.h"
#include "utlib/UtFilename.h"
#include "utlib/UtHandle.h"
#include "utlib/UtString.h"

class ZoJobChildren;
class ZoQueueFile;

/// The job queue of one user on one host. The queue lives in a text file in the user's home
/// directory; `jobs` is a copy of it as of the last load or save. The server owns one list; each
/// job child works on a forked copy of it.
///
/// Every change of the queue is one bracket: lockQueue(), readQueue(jobs), the change on `jobs`,
/// writeQueue(jobs), unlockQueue(). Other processes may have changed the file since the last one.
class SCHEDULE_EXPORT ZoJobList
{
public:
    UtString hostName;               ///< this machine's name; the queue file's name ends with it
    UtString user;                   ///< login name, never empty: every request begins with it
    UtString homeDirectory;          ///< never empty; the queue file lies there
    UtDArray<UtHandle<ZoJob>> jobs;  ///< in the order of the queue file
    int port = -1;                   ///< where job children report; -1 until the server listens
    UtDArray<int> fdsToClose;        ///< descriptors that a forked job child closes first
    ZoQueueFile* queueFile;          ///< owned; the queue on the disk
    ZoJobChildren* children;         ///< owned; the processes that run jobs
    UtDArray<UtHandle<ZoJob>> unsavedKills;  ///< killed, and the queue file could not be written

    /// Name of the log file; nothing is logged while it is empty.
    static UtFilename logFile;

    /// Resolves the names and loads the queue. Creates nothing and never fails.
    ZoJobList();
    ZoJobList(const ZoJobList&) = delete;
    ZoJobList& operator=(const ZoJobList&) = delete;
    /// Leaves the queue file as it is.
    ~ZoJobList();

    /// 1 if a job of `jobs` is in the state RUNNING, else 0. The queue file is not read.
    int isRunning();

    /// 1 if a job of `jobs` is in the state WAITING, else 0. The queue file is not read.
    int hasWaitingJobs();

    /// The first job of the given array that has the same id and directory as `job`, of which
    /// nothing else is read; a null handle if there is none.
    UtHandle<ZoJob> find(UtHandle<ZoJob> job, UtDArray<UtHandle<ZoJob>>& inJobs);

    /// Adds a waiting job at the end of the queue. Null counts as an empty text. Without a
    /// directory the job gets a fresh one. The job's marker file is made in its directory; if that
    /// fails the job is dropped at the next load.
    void submit(const char* command, const char* description, const char* directory);

    /// Takes a job out of the queue, whatever its state, and deletes its directory with everything
    /// in it; only "/", the home directory and directories above it stay, less the marker file. A
    /// large one may still be going, under another name, when this returns. A running command is
    /// not stopped. Returns 0, or -1 when the queue file does not hold the job.
    int remove(UtHandle<ZoJob> job);

    /// The same for many jobs in one change of the queue file, but those that are running stay.
    /// What cannot be saved shows at the next load, as the markers are gone.
    void remove(UtDArray<UtHandle<ZoJob>>& many);

    /// Appends one line, which must end in "\n", to the log file: local time, process id, message.
    /// A log file that is a link or another user's is left alone.
    static void log(const char* format, ...) UT_PRINTF(1, 2);

    /// Loads the queue in place of the array's contents: from the lock file when that holds a whole
    /// journal, else from the queue file. Jobs whose marker file is gone are left out. A file that
    /// cannot be opened leaves the array as it is.
    void readQueue(UtDArray<UtHandle<ZoJob>>& intoJobs);

    /// Parses a queue text in place of the array's contents. Never fails: fields that do not begin
    /// with a state code are skipped where a record should start.
    void readQueue(UtString text, UtDArray<UtHandle<ZoJob>>& intoJobs);

    /// Appends the records of the jobs to the text.
    void writeQueue(UtString& text, UtDArray<UtHandle<ZoJob>>& ofJobs);

    /// Writes the queue file anew with the records of the jobs. A file that cannot be opened, or
    /// that the disk has no room for, stays as it was; that is not reported. Inside a bracket a
    /// process that is killed meanwhile leaves the old queue or the new one, never a torn one.
    void writeQueue(UtDArray<UtHandle<ZoJob>>& ofJobs);

    /// Loads the queue file into `jobs`, inside the brackets.
    void update();

    /// Begins a bracket: waits until no other process of this user is inside one, and takes back
    /// the rewrite that a process left half done. Where the lock file cannot be made, the queue is
    /// served without a lock, and without that safety.
    void lockQueue();

    /// Ends a bracket.
    void unlockQueue();

    /// For a process forked inside a bracket: forgets the lock, which stays with the parent.
    void leaveBracket();

    /// Writes the queue file anew with the records of `jobs`. Returns 0, or -1 when it is as it
    /// was.
    int save();

    /// Starts the given job if it is waiting, or the first waiting one for a null handle, in a
    /// forked child, which begins when it is saved that the job runs. Returns 1, or -1 when nothing
    /// was started: no such job; or the job waits on, since fork() failed or the queue file cannot
    /// be saved. Does not look whether another job is
    /// running.
    int run(UtHandle<ZoJob> job);

    /// Marks every running job KILLED in the queue file, then sends SIGTERM to its processes, those
    /// below the job child first. Returns 1 if at least one job was running, else 0.
    int kill();

    /// Saves that jobs were killed, where the queue file could not be written then; once it can be,
    /// nobody is to find them running.
    void saveKills();

    /// Whether a job in the state RUNNING runs in a living child of this process.
    bool hasLivingChild();

    /// Collects the job children that have ended. One that the queue still holds as RUNNING is left
    /// uncollected: its process id cannot come to stand for another process until it is.
    void reapChildren();

    /// Looks for jobs in the state RUNNING whose process has certainly gone without a report, and
    /// marks them KILLED in the queue file. Certain are a child of this process that has ended; for
    /// other processes that the machine was started after the job, or that they were gone at the
    /// last look, too. For a caller that takes a job to be running: returns 1 when none is any
    /// more, else 0.
    int endLostJobs();

private:
    bool hasLostJobs();
    void markLostJobs();
};

#endif
