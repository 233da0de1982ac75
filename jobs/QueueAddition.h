#ifndef QUEUEADDITION_H
#define QUEUEADDITION_H

#include <memory>
#include <string>

class ZoJobList;

/// Many jobs for this user's queue on this machine, saved in one change of the queue file, as the
/// server and its job children change it. A server takes notice with the next request that changes
/// the queue.
class QueueAddition
{
public:
    QueueAddition();
    ~QueueAddition();
    QueueAddition(const QueueAddition&) = delete;
    QueueAddition& operator=(const QueueAddition&) = delete;

    /// One more job, with these fields of its record. Throws JobError.
    void add(const std::string& command, const std::string& description,
             const std::string& directory);

    /// Brings what the directories hold onto the disk, and then the jobs into the queue: all, or
    /// none and JobError is thrown.
    void save();

private:
    std::unique_ptr<ZoJobList> added;
};

#endif
