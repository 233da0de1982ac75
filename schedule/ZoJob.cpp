#include "schedule/ZoJob.h"

#include "schedule/ZoProtocol.h"

#include <ctime>

ZoJob::ZoJob() = default;

ZoJob::~ZoJob() = default;

long long ZoJob::runTime() const
{
    return (state == RUNNING ? (long long)::time(nullptr) : endTime) - startTime;
}

ZoJob* ZoJob::createFromMessage(const char* line)
{
    return ZoProtocol::readJob(line);
}
