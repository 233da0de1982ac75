#ifndef CLUSTER_H
#define CLUSTER_H

#include "jobs/Job.h"

#include <string>
#include <sys/types.h>
#include <vector>

// Jobs that run on a cluster: what the files in their directories say, and what is asked and asked
// for when nobody stands for them any more. In DIRECTORY/cluster/ stand
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

/// Marks a job of a cluster as one to be killed; a script that stands for it and is ended without
/// that leaves it on the cluster. Takes the mark back.
void markKill(const Job& job);
void unmarkKill(const Job& job);

/// Cancels what the cluster has of a job that is marked so. Returns when the cluster has heard it
/// and the job has ended, or some seconds after it; where the cluster does not answer, it says on
/// standard error that it goes on trying.
void cancelOnCluster(const Job& job);

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
