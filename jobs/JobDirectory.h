#ifndef JOBDIRECTORY_H
#define JOBDIRECTORY_H

#include "jobs/Job.h"
#include "jobs/JobScript.h"

#include <string>

/// The directory of a job in the queue, and what its script left there. Of a job that another
/// application submitted nothing but the output is known: the questions say so.
class JobDirectory
{
public:
    /// How the command in the queue's record of a job ends when the job was made here (see
    /// NewJobDirectory): the real command is in the script.
    static const char* const COMMAND;

    explicit JobDirectory(const Job& itsJob) : job(itsJob) {}

    /// Whether the job was submitted with a script of ours, as far as the queue's record tells.
    bool hasScript() const;

    /// Whether the directory was made for this job and holds nothing of its user's: it is this
    /// user's, and the script in it says so.
    bool isOurs() const;

    /// Whether the directory holds the mark that it was given to this job, made by this user. A
    /// server on another machine can name any directory.
    bool isMarked() const;

    /// The whole of a file in it; empty when it cannot be read.
    std::string text(const char* name) const;

    /// The whole script of a job of ours; empty when it cannot be read.
    std::string script() const;

    /// What the submission was given; of a job that is not ours what the queue's record tells.
    GivenTexts given() const;

    /// When the command itself was started and ended, in seconds since the epoch; 0 when the files
    /// do not tell.
    double startTime() const;
    double endTime() const;

    /// Where the output is, once the job has been started.
    std::string logPath() const { return job.directory + "/log"; }

    /// What the script of a job of ours has written down at its end.
    struct End {
        int status = -1;          ///< -1: nothing yet, or not whole
        std::string outcome;      ///< "timeout", "skipped", "cancelled", "killed"; else empty
        bool isDiskFull = false;  ///< the disk had no room then: the output may be incomplete
    };
    End end() const;

    /// The same from the text of that file.
    static End endOf(const std::string& text);

    /// Its status.
    int recordedStatus() const { return end().status; }

    /// Whether its command had ended here before a kill, which met what runs after it.
    bool endedByItself() const;

    /// Whether a waiting job is to end at once when its turn comes.
    bool isCancelled() const;

    /// Cancels, or takes that back. False with errno set when it cannot be noted.
    bool setCancelled(bool isCancelled) const;

    /// Whether somebody has asked for the job to run when its turn comes (see Keeper.h),
    /// and the same the other way.
    bool isWanted() const;
    bool setWanted(bool isWanted) const;

    /// Notes in the directory of a job that another one, in the directory `by`, looks at its end.
    static void noteAwaited(const std::string& directory, const std::string& by);

    /// Tells those jobs how this one has ended: its directory is about to go.
    void handStatusOn() const;

private:
    bool mark(const char* file, bool isThere) const;
    std::string path(const char* file) const { return job.directory + "/" + file; }

    const Job& job;
};

#endif
