#ifndef JOB_H
#define JOB_H

#include "schedule/ZoJob.h"

#include <string>

/// One job as the queue has it. A plain value of its own: it may be copied, kept and handed to
/// another thread, unlike the record of the scheduler library that it is made from.
struct Job {
    int state = 0;  ///< ZoJob::WAITING, RUNNING, DONE or KILLED
    std::string command;
    std::string description;
    std::string directory;    ///< the job's own: its script, its output, its marker
    long long id = 0;         ///< time of submission, seconds since the epoch
    long long startTime = 0;  ///< seconds since the epoch; 0 until started
    long long endTime = 0;    ///< seconds since the epoch; 0 until ended
    int reserved = 0;
    int pid = -1;  ///< the job child, on its machine; -1 until started, or when it is not known

    /// What is known of a job that was handed over to a cluster (see Cluster.h).
    struct Cluster {
        std::string id;     ///< its number there; empty: it is on no cluster
        std::string state;  ///< "PENDING (Resources)", "RUNNING on n3", "COMPLETED"
        int status = -1;    ///< that it ended with; -1 while it has not
    };
    Cluster cluster;
    bool isDetached = false;  ///< it runs on the cluster, and nothing stands for it in this queue

    /// It has ended, which the queue does not hold, as on a full disk: see UnsavedEnd.h.
    bool isUnsaved = false;
    std::string keptEnd;  ///< of an unsaved one: what its file "exit" will hold; else empty

    Job() = default;
    explicit Job(const ZoJob& record);

    /// The record that stands for this job in a request: its id and directory.
    UtHandle<ZoJob> record() const;

    /// Whether both are the same job of one queue, whatever became of it meanwhile.
    bool isSame(const Job& other) const { return id == other.id && directory == other.directory; }

    bool isWaiting() const { return state == ZoJob::WAITING; }
    bool isRunning() const { return state == ZoJob::RUNNING; }
    bool hasEnded() const { return state == ZoJob::DONE || state == ZoJob::KILLED; }

    /// Whether a process of this queue's machine runs for it.
    bool isRunningHere() const { return isRunning() && !isDetached; }

    /// Seconds from the start to the end, or up to now while it runs; 0 for a waiting job. Of a job
    /// of ours without what the server takes around it: reads two times of files.
    long long runTime() const;

    /// Whether the process that would record the end of this running job is certainly gone from
    /// this machine. Only a server can end the record then.
    bool isAbandoned() const;

    /// Whether its process, too, has certainly gone, and the id has come to another process of this
    /// machine, which a kill would meet.
    bool hasLostItsId() const;
};

/// The states in their order, and what they are called.
const int JOB_STATES = 4;
extern const int STATES[JOB_STATES];
extern const char* const STATE_NAMES[JOB_STATES];

/// "waiting", "running", "done" or "killed"; the number of any other state.
std::string stateName(const Job& job);

/// The status that the job's command ended with: of a killed one 128 + SIGTERM; -1 when it has not
/// ended, or when nobody recorded it, as with jobs of other applications. Reads a file.
int exitStatus(const Job& job);

#endif
