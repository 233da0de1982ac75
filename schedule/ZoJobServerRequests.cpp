#include "schedule/ZoJobServer.h"

#include "schedule/ZoProcess.h"
#include "schedule/ZoProtocol.h"
#include "utlib/UtSocket.h"

#include <climits>
#include <cstdio>

static const int PAUSE_BETWEEN_JOBS = 1;   // seconds
static const int CLOSING_TIME = 10000;     // ms for the server that send() has sent to
static const long LIST_PIECE = 32 * 1024;  // bytes of a list that go out together

void ZoJobServer::interprete(int fd, char* line)
{
    ZoJobList::log("got message \"%s\"\n", line);
    UtStringTokenizer tokens(line);
    UtString user;
    jobList.saveKills();
    const ZoProtocol::Request request = ZoProtocol::readRequest(tokens, user);
    if (user != jobList.user) {
        reply(fd, ZoProtocol::REPLY_ERROR);
        return;
    }
    switch (request) {
    case ZoProtocol::SUBMIT:
        return submit(fd, tokens);
    case ZoProtocol::REMOVE:
        return remove(fd, tokens);
    case ZoProtocol::RUN:
        return run(fd, tokens);
    case ZoProtocol::KILL:
        return kill(fd);
    case ZoProtocol::STATUS:
        return status(fd);
    case ZoProtocol::LIST:
        return list(fd);
    case ZoProtocol::DONE:
        return done(fd);
    case ZoProtocol::QUIT:
        return quit(fd);
    case ZoProtocol::UNKNOWN_REQUEST:
        reply(fd, ZoProtocol::REPLY_UNKNOWN);
    }
}

UtHandle<ZoJob> ZoJobServer::findJob(UtStringTokenizer& tokens)
{
    return jobList.find(ZoProtocol::readJobName(tokens), jobList.jobs);
}

void ZoJobServer::submit(int fd, UtStringTokenizer& tokens)
{
    UtString command, description, directory;
    ZoProtocol::readSubmission(tokens, command, description, directory);
    if (command.length() == 0) {
        reply(fd, ZoProtocol::REPLY_ERROR);
        return;
    }
    jobList.submit(command, description, directory);
    reply(fd, ZoProtocol::REPLY_OK);
}

void ZoJobServer::remove(int fd, UtStringTokenizer& tokens)
{
    UtHandle<ZoJob> job = findJob(tokens);
    const bool isRemoved = job && jobList.remove(job) == 0;
    reply(fd, isRemoved ? ZoProtocol::REPLY_OK : ZoProtocol::REPLY_ERROR);
}

int ZoJobServer::startJob(int fd, UtHandle<ZoJob> job)
{
    jobList.fdsToClose.resize(0);
    if (fd >= 0)
        jobList.fdsToClose.append(fd);
    jobList.fdsToClose.append(descriptor);
    return jobList.run(job);
}

void ZoJobServer::run(int fd, UtStringTokenizer& tokens)
{
    if (jobRunning || !jobList.hasWaitingJobs()) {
        ZoJobList::log("no job to be run\n");
        reply(fd, ZoProtocol::REPLY_ERROR);
        return;
    }
    UtHandle<ZoJob> job;
    const bool namesJob = tokens.hasMoreTokens();
    if (namesJob && !(job = findJob(tokens))) {
        reply(fd, ZoProtocol::REPLY_ERROR);
        return;
    }
    if (startJob(fd, job) != 1) {
        reply(fd, ZoProtocol::REPLY_ERROR);
        return;
    }
    jobRunning = 1;
    if (!namesJob)
        runAll = 1;
    reply(fd, ZoProtocol::REPLY_OK);
}

void ZoJobServer::kill(int fd)
{
    if (!jobList.isRunning()) {
        reply(fd, ZoProtocol::REPLY_ERROR);
        return;
    }
    jobList.kill();
    jobRunning = jobList.isRunning();
    reply(fd, jobRunning ? ZoProtocol::REPLY_ERROR : ZoProtocol::REPLY_OK);
}

void ZoJobServer::status(int fd)
{
    if (jobRunning)
        reply(fd, ZoProtocol::REPLY_RUNNING);
    else
        reply(fd, jobList.hasWaitingJobs() ? ZoProtocol::REPLY_WAITING : ZoProtocol::REPLY_DONE);
}

void ZoJobServer::list(int fd)
{
    const long count = jobList.jobs.size();
    UtString text;
    ZoProtocol::writeCount(text, count);
    int result = answer(fd, "%s", (const char*)text);
    text = "";
    // A reader that stands still is waited for once, not for each job.
    for (long i = 0; i < count && result == 0; ++i) {
        ZoProtocol::writeJob(text, jobList.jobs[i]);
        if (text.length() < LIST_PIECE && i + 1 < count)
            continue;
        result = answer(fd, "%s", (const char*)text);
        text = "";
    }
}

void ZoJobServer::done(int fd)
{
    if (jobRunning) {
        reply(fd, ZoProtocol::REPLY_OK);
    } else {
        ZoJobList::log("error in done()\n");
        reply(fd, ZoProtocol::REPLY_ERROR);
    }
    startNextOrRest(fd);
}

void ZoJobServer::startNextOrRest(int fd)
{
    const bool goesOn = runAll && jobList.hasWaitingJobs();
    jobList.update();
    // A late report: a kill and a run request were faster. The job of that run reports in its turn.
    if (jobList.hasLivingChild())
        return;
    if (goesOn) {
        ZoProcess::pause(PAUSE_BETWEEN_JOBS);
        if (startJob(fd, UtHandle<ZoJob>()) == 1)
            return;
    }
    jobRunning = 0;
    runAll = 0;
}

void ZoJobServer::quit(int fd)
{
    terminate = 1;
    reply(fd, ZoProtocol::REPLY_OK);
}

/// Writes the formatted text and, unless it has one, a line end. Returns 0 or -1.
static int sendLine(int fd, const char* format, va_list arguments)
{
    UtString text;
    text.vprintf(format, arguments);
    int result = UtSocket::send(fd, "%s", (const char*)text);
    if (result == 0 && text.length() > 0 && text[text.length() - 1] != '\n')
        result = UtSocket::send(fd, "\n");
    return result;
}

int ZoJobServer::answer(int fd, const char* format, ...)
{
    UtSocket::nonBlocking(fd);
    va_list arguments;
    va_start(arguments, format);
    const int result = sendLine(fd, format, arguments);
    va_end(arguments);
    return result;
}

void ZoJobServer::reply(int fd, int words)
{
    answer(fd, "%s", ZoProtocol::replyText((ZoProtocol::Reply)words));
}

void ZoJobServer::send(int toPort, const char* format, ...)
{
    const int fd = UtSocket::connect(nullptr, toPort);
    if (fd == -1) {
        ::fprintf(stderr, "Couldn't connect to port %d\n", toPort);
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    sendLine(fd, format, arguments);
    va_end(arguments);
    UtSocket::drain(fd, CLOSING_TIME, LONG_MAX);
    UtSocket::close(fd);
}
