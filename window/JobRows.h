#ifndef JOBROWS_H
#define JOBROWS_H

#include "window/QueueTypes.h"

#include "jobs/Queue.h"

#include <QHash>

/// Makes the rows of a window from the jobs of a queue. What has been read from the files of a job
/// is kept as long as the job stays as it is.
class JobRows
{
public:
    ZoJobRows make(const Queue& queue);

    /// Has the files of this job looked at next time, whatever the queue says.
    void forget(const Job& job);

private:
    static ZoJobRow makeRow(const Job& job);
    const ZoJobRow* find(const Job& job, std::size_t& place);

    std::vector<Job> before;  // what the rows were made of
    ZoJobRows rows;
    QHash<QPair<qint64, QByteArray>, int> index;  // of them, once one is looked for
};

/// The command or script of a job of ours, as it was given.
std::string commandOf(const Job& job);

/// What can be read about a job beyond its row.
JobDetails readJobDetails(const Job& job);

#endif
