#ifndef CLUSTER_H
#define CLUSTER_H

#include "jobs/Job.h"
#include "jobs/Server.h"

#include <string>
#include <sys/types.h>
#include <vector>

// Jobs that run on a cluster: what the files in their directories say, and what is asked and asked
// for when nobody stands for them any more. In DIRECTORY/cluster/ stand
//     given    what was asked for: "detach" or nothing, and the options
//     library  functions of the job's script;  batch: what was handed over
//     id       the job's number there, "4711" or "4711;NAME"; missing: it has not been handed over
//     state    the state there, one line
//     start    a node has begun it
//     count    of an array: how many tasks
//     tasks/   for each task, or "job", the status it has ended with, and perhaps the state
//     end      the status of the whole, and the state; with this file all is known
//     error, .new*: of use to the scripts only
// and DIRECTORY/kill exists when somebody wants the job to end. An engine (Slurm.h) is what writes
// these files: it hands over, tells the state, cancels.

/// Sets what is known of the job on its cluster, and its state when that depends on it: a job that
/// the queue has ended with goes on running while the cluster has it. Reads files, asks nobody.
void readCluster(Job& job);

/// The same for all jobs.
void readClusters(std::vector<Job>& jobs);

/// What to show of a job on a cluster that has not ended well, as "[4711 PENDING (Resources)] ";
/// empty for all others.
std::string clusterText(const Job& job);

/// Kills a running job, here and on its cluster; false when the server refuses. Returns when the
/// cluster has heard it and the job has ended there, or some seconds after it. Where the cluster
/// does not answer, it is asked again and again, which is said on standard error; after so many
/// seconds, unless they are negative, that goes on without the caller.
bool killJob(const Server& server, const Job& job, double seconds = -1);

/// Asks the cluster what becomes of detached jobs: one question for all, and for each job at most
/// one in 8 seconds, whoever asks. The answer goes into the files.
class ClusterQuestion
{
public:
    ClusterQuestion() = default;
    ClusterQuestion(const ClusterQuestion&) = delete;
    ClusterQuestion& operator=(const ClusterQuestion&) = delete;
    ~ClusterQuestion() { (void)isAnswered(); }

    /// Asks if it is time to, and does not wait for the answer.
    void ask(const std::vector<Job>& jobs);

    /// Waits for the answer, at most so many seconds.
    void wait(double seconds);

private:
    bool isAnswered();

    pid_t pid = -1;  // of the shell that asks
};

#endif
