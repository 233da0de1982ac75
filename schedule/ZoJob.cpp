#include "schedule/ZoJob.h"

#include "schedule/ZoNumber.h"
#include "utlib/UtStringTokenizer.h"

#include <ctime>

ZoJob::ZoJob() = default;

ZoJob::~ZoJob() = default;

long long ZoJob::runTime() const
{
    return (state == RUNNING ? (long long)::time(nullptr) : endTime) - startTime;
}

ZoJob* ZoJob::createFromMessage(const char* line)
{
    UtStringTokenizer tokens(line);
    ZoJob* const job = new ZoJob;
    job->state = zoNumber32(tokens.nextToken());
    job->command = tokens.nextToken();
    job->description = tokens.nextToken();
    job->directory = tokens.nextToken();
    job->id = zoNumber(tokens.nextToken());
    job->startTime = zoNumber(tokens.nextToken());
    job->endTime = zoNumber(tokens.nextToken());
    job->reserved = zoNumber32(tokens.nextToken());
    return job;
}
