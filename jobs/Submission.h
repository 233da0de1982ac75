#ifndef SUBMISSION_H
#define SUBMISSION_H

#include "jobs/Server.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

class NewJobDirectory;

/// A job that is to be queued: all of it is known before anything is made. Every front submits
/// through this class, so that a job is the same wherever it came from.
///
///     Submission submission;
///     submission.body = commandText({ "make", "-j2", "all" });
///     submission.command = commandLine({ "make", "-j2", "all" });
///     submission.description = describe(submission.command);
///     submission.directory = "/home/u/project";
///     submission.check();  // before a server is started for nothing
///     server.ensure();
///     const std::string directory = submission.queue(server);
class Submission
{
public:
    std::string body;                      ///< a line or a script of shell; or "#!" and a script
    std::string command;                   ///< as it was given, to be shown: see commandLine()
    std::optional<std::string> label;      ///< as it was given
    std::string description;               ///< as describe() makes it, of the label or the command
    std::string directory;                 ///< absolute: where the command runs
    std::vector<std::string> environment;  ///< of the command, "NAME=value"; at first the caller's
    unsigned umask;                        ///< of the command; at first the caller's

    /// For a job that is handed over to a cluster when its turn comes. The directory of a script
    /// for that is the script's own matter.
    struct Cluster {
        std::vector<std::string> options;  ///< for the cluster's own program
        bool detach = false;  ///< the queue goes on at once, and not when the job has ended
    };
    std::optional<Cluster> cluster;

    /// Another job of ours that must have ended before.
    struct Condition {
        std::string number;
        std::string directory;
        bool well;  ///< with 0, and not anyhow
    };
    std::vector<Condition> after;

    std::string shell = "/bin/sh";  ///< what runs a body that names no interpreter
    std::string timeout;            ///< seconds, as timeout(1) takes them; empty: none
    int retries = 0;                ///< how often again when it ends with another status than 0
    std::string then;               ///< a line of shell at the end; empty: none
    std::string done;               ///< a program at the end, which need not exist
    int niceness;                   ///< at first the caller's
    std::vector<std::pair<char, std::string>> limits;  ///< letters of ulimit; at first the caller's

    /// The same of a job that was submitted before; nothing for one that was for no cluster. Its
    /// body is the file "script" in its directory.
    static std::optional<Cluster> givenCluster(const std::string& jobDirectory);

    Submission();

    /// Throws JobError for an empty command and for a directory in which nothing can run.
    void check() const;

    /// Queues a job of ours anew: command, directory, environment and what else was said, but not
    /// the conditions on other jobs. One that is cancelled and waits still is brought back in place
    /// of that. Returns the directory of the job. Throws JobError.
    static std::string again(const Server& server, const Job& job);

    /// Makes the job's private directory and queues the job. Returns that directory, by which the
    /// job is found in the queue. Throws JobError, also when the server could not save the job;
    /// nothing is left behind then.
    std::string queue(const Server& server) const;

    /// The same for many at once, in their order, where there is one at least. When JobError is
    /// thrown, none is queued, or the first ones are.
    static std::vector<std::string> queueAll(const Server& server,
                                             const std::vector<Submission>& submissions);

private:
    std::string write(NewJobDirectory& place) const;
    void writeScript(NewJobDirectory& place) const;
    void writeClusterScript(NewJobDirectory& place) const;
};

#endif
