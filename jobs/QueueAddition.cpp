#include "jobs/QueueAddition.h"

#include "jobs/JobError.h"
#include "jobs/QueueFile.h"
#include "schedule/ZoDisk.h"
#include "schedule/ZoJobList.h"

#include <ctime>
#include <fcntl.h>
#include <unistd.h>

static const int MARKER_MODE = 0600;

QueueAddition::QueueAddition() : added(std::make_unique<ZoJobList>())
{
    added->jobs.resize(0);
}

QueueAddition::~QueueAddition() = default;

void QueueAddition::add(const std::string& command, const std::string& description,
                        const std::string& directory)
{
    UtHandle<ZoJob> job = new ZoJob;
    job->command = command.c_str();
    job->description = description.c_str();
    job->directory = directory.c_str();
    job->id = std::time(nullptr);
    job->state = ZoJob::WAITING;
    const std::string marker = directory + "/." + std::to_string(job->id);
    const int fd = ::open(marker.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, MARKER_MODE);
    if (fd < 0 || ::close(fd) != 0)
        throw JobError(JobError::FILE_FAILED,
                       withReason("nothing was submitted, cannot make " + marker));
    added->jobs.append(job);
}

void QueueAddition::save()
{
    UtDArray<UtHandle<ZoJob>>& jobs = added->jobs;
    const long count = jobs.size();
    if (count == 0)
        return;
    const std::string last((const char*)jobs[count - 1]->directory);
    if (ZoDisk::syncAround(last.c_str()) != 0)
        throw JobError(JobError::FILE_FAILED,
                       withReason("nothing was submitted, cannot write " + last));
    UtDArray<UtHandle<ZoJob>> all;
    added->lockQueue();
    added->readQueue(all);
    for (long i = 0; i < count; ++i)
        all.append(jobs[i]);
    added->writeQueue(all);  // one that fails leaves the queue as it was
    added->unlockQueue();
    if (!QueueFile().read().findDirectory(last))
        throw JobError(JobError::FILE_FAILED,
                       "nothing was submitted: the queue file could not be written" +
                           (QueueFile().trouble().empty() ? "" : ", " + QueueFile().trouble()));
}
