#ifndef JOBDIRECTORY_H
#define JOBDIRECTORY_H

#include "schedule/ZoJob.h"

#include <string>

/// The directory that a submission makes for its job, with the script in it. It disappears with the
/// object unless `keep` has been set: a submission that fails leaves nothing behind.
class PrivateDirectory
{
public:
    /// What the queue's record of such a job holds as its command.
    static const char* const COMMAND;

    std::string path;
    bool keep = false;

    /// Makes a fresh directory, mode 0700, under $XDG_STATE_HOME/zojob, or under /var/tmp when that
    /// path holds what a request cannot carry. Throws Failure.
    PrivateDirectory();
    ~PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    /// Writes the job: the caller's umask and environment, then `body` in `workDirectory`. A body
    /// that names its own interpreter in its first line ("#!") is run by that one. Throws Failure.
    void writeJob(const std::string& body, const std::string& workDirectory) const;

    /// Whether zojob made the job's directory: it is this user's, and its script says so.
    static bool isOurs(const ZoJob& job);

    /// Notes in the directory of a job of ours that its id was told as its name, and asks for that.
    static void ownId(const ZoJob& job);
    static bool ownsId(const ZoJob& job);

    /// The whole script of a job of ours; empty when it cannot be read.
    static std::string script(const ZoJob& job);

    /// The status that the job ended with: of a killed one 128 + SIGTERM; -1 when it has not ended,
    /// or when nobody recorded the status, as with jobs of other applications.
    static int exitStatus(const ZoJob& job);

    /// Whether the job's command has returned with its status recorded.
    static bool hasReturned(const ZoJob& job);

    /// Whether the job's script has been started on this machine and its process is gone.
    static bool isGone(const ZoJob& job);

private:
    void writeFile(const std::string& name, const std::string& text) const;
};

#endif
