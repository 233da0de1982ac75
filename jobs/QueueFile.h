#ifndef QUEUEFILE_H
#define QUEUEFILE_H

#include "jobs/Queue.h"

#include <memory>
#include <string>

class ZoJobList;

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

    /// Reads the file; the queue is empty where there is none yet. Throws JobError when it cannot
    /// be read.
    Queue read();

    /// The directory and the name in it.
    std::string directory() const;
    std::string name() const;
    std::string path() const { return directory() + "/" + name(); }

private:
    const std::unique_ptr<ZoJobList> list;
};

#endif
