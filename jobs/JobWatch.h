#ifndef JOBWATCH_H
#define JOBWATCH_H

#include "jobs/Cluster.h"
#include "jobs/QueueWatch.h"

#include <string>
#include <vector>

/// Follows jobs until they have ended. The server may end and come back meanwhile: the jobs do not
/// depend on it. What runs on a cluster and is stood for by nobody is asked for there. Only where
/// the process of a running job has gone without a word, so that nobody but a server can end its
/// record, one is started.
///
///     JobWatch watch(server);
///     watch.follow(findJobs(watch.queue, names));
///     for (; !watch.allEnded(); watch.wait(1))
///         watch.look();
class JobWatch
{
public:
    struct Target {
        Job job;           ///< as last seen in the queue
        std::string name;  ///< as it was when it was first followed
        bool hasEnded = false;
        bool wasRemoved = false;  ///< before it ended, so that nobody will know how
    };

    std::vector<Target> targets;
    Queue queue;  ///< as last seen

    /// Looks at the queue for the first time. The server must live as long as the object. Throws
    /// JobError.
    explicit JobWatch(const Server& server);

    /// Follows these jobs as well, in the state that the queue has them in.
    void follow(const std::vector<Job>& jobs);

    /// Looks at the queue if it may have changed, and brings the targets up to date. Throws
    /// JobError, for another machine only when its server has been away for half a minute.
    void look();

    const Server& server() const { return watch.server; }

    bool allEnded() const;

    /// A target waits, and no job has been running for longer than a server takes from one job to
    /// the next: nothing will ever run it.
    bool isStuck() const;

    /// Sleeps until there may be something new, at most so many seconds.
    void wait(double seconds) { watch.wait(seconds); }

private:
    bool readQueue();
    void update(Target& target);
    void lookAtCluster();
    void endAbandoned();

    QueueWatch watch;
    ClusterQuestion question;
    double readAt = 0;          // when the queue was last read
    double ranAt = 0;           // when a job was last seen running
    double abandonedSince = 0;  // 0: no job is
    bool isLost = false;        // nobody answered the last time
};

#endif
