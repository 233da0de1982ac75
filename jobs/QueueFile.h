#ifndef QUEUEFILE_H
#define QUEUEFILE_H

#include "jobs/Queue.h"

#include <memory>
#include <string>
#include <vector>

class ZoJobList;

/// A queue file of this user that this machine does not use: it is called otherwise than the
/// queue's name says, since it got another name, or has the home directory in common with another
/// one.
struct OtherQueue {
    std::string path;
    std::string host;  ///< the machine's name in it
    long jobs;
    long waiting;
};

/// Those in this user's home directory that hold jobs, by their names.
std::vector<OtherQueue> otherQueues();

/// This user's queue file on this machine, read as the server and its job children read it: under
/// its lock, with what an interrupted change left behind, without the jobs whose markers are gone.
/// No server is asked or needed, and nothing is changed.
class QueueFile
{
public:
    /// Resolves the names of user and machine, which may take a moment.
    QueueFile();
    ~QueueFile();
    QueueFile(const QueueFile&) = delete;
    QueueFile& operator=(const QueueFile&) = delete;

    /// Reads the file, and what ends of jobs could not be written there (see UnsavedEnd.h); the
    /// queue is empty where there is none yet. Throws JobError when it cannot be read.
    Queue read();

    /// Why the file cannot be written, in a sentence; empty when it can be. No job can be queued,
    /// started, recorded or removed then.
    std::string trouble() const;

    /// The directory and the name in it.
    std::string directory() const;
    std::string name() const;
    std::string path() const { return directory() + "/" + name(); }

private:
    const std::unique_ptr<ZoJobList> list;
};

#endif
