#include "schedule/ZoJob.h"

#include "schedule/ZoProtocol.h"

#include <climits>
#include <ctime>

ZoJob::ZoJob() = default;

ZoJob::~ZoJob() = default;

long long ZoJob::runTime() const
{
    const long long end = state == RUNNING ? (long long)::time(nullptr) : endTime;
    const unsigned long long seconds = (unsigned long long)end - (unsigned long long)startTime;
    return end <= startTime ? 0 : seconds > LLONG_MAX ? LLONG_MAX : (long long)seconds;
}

ZoJob* ZoJob::createFromMessage(const char* line)
{
    return ZoProtocol::readJob(line);
}
