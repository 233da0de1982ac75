#ifndef QUEUE_H
#define QUEUE_H

#include <string>
#include <vector>

/// The queue that is measured: jobs 0 .. count - 1, all waiting, each with a directory and a marker
/// file of its own in the sandbox.
class Queue
{
public:
    enum { RECORD_SIZE = 100 };  ///< bytes of each job's record in the queue file

    /// Makes the directories and markers that are missing.
    static void makeJobs(long count);
    /// The queue file's text, and of one job its record and its marker.
    static std::string text(long count);
    static std::string record(long number);
    static std::string marker(long number);
    /// Makes the jobs and writes the queue file with them.
    static void write(long count);
    /// A connection to the server, through the client functions.
    static int open();
};

/// The floor of every change of the queue: no more than the system calls that it needs. The buffer
/// is as large as the file.
class QueueFloor
{
public:
    /// For a queue of this many jobs, in a file of its own.
    explicit QueueFloor(long count);

    /// Reads the file, looks every marker up once, writes the file anew. Returns whether all of it
    /// succeeded.
    bool readLookUpWrite();

private:
    std::string file;
    std::string buffer;
    std::vector<std::string> markers;
};

#endif
