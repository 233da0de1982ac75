#include "schedule/ZoJobServer.h"

#include "schedule/ZoNumber.h"
#include "schedule/ZoProcess.h"
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
    const UtString user(tokens.nextToken());
    const UtString command(tokens.nextToken());
    if (user != jobList.user)
        answer(fd, "error");
    else if (command == "submit")
        submit(fd, tokens);
    else if (command == "remove")
        remove(fd, tokens);
    else if (command == "run")
        run(fd, tokens);
    else if (command == "kill")
        kill(fd);
    else if (command == "status")
        status(fd);
    else if (command == "list")
        list(fd);
    else if (command == "done")
        done(fd);
    else if (command == "quit")
        quit(fd);
    else
        answer(fd, "unknown command");
}

UtHandle<ZoJob> ZoJobServer::findJob(UtStringTokenizer& tokens)
{
    UtHandle<ZoJob> wanted = new ZoJob;
    wanted->id = zoNumber(tokens.nextToken());
    wanted->directory = tokens.nextToken();
    return jobList.find(wanted, jobList.jobs);
}

void ZoJobServer::submit(int fd, UtStringTokenizer& tokens)
{
    const UtString command(tokens.nextToken());
    const UtString description(tokens.nextToken());
    const UtString directory(tokens.nextToken());
    if (command.length() == 0) {
        answer(fd, "error");
        return;
    }
    jobList.submit(command, description, directory);
    answer(fd, "ok");
}

void ZoJobServer::remove(int fd, UtStringTokenizer& tokens)
{
    UtHandle<ZoJob> job = findJob(tokens);
    answer(fd, job && jobList.remove(job) == 0 ? "ok" : "error");
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
        answer(fd, "error");
        return;
    }
    UtHandle<ZoJob> job;
    const bool namesJob = tokens.hasMoreTokens();
    if (namesJob && !(job = findJob(tokens))) {
        answer(fd, "error");
        return;
    }
    if (startJob(fd, job) != 1) {
        answer(fd, "error");
        return;
    }
    jobRunning = 1;
    if (!namesJob)
        runAll = 1;
    answer(fd, "ok");
}

void ZoJobServer::kill(int fd)
{
    if (!jobList.isRunning()) {
        answer(fd, "error");
        return;
    }
    jobList.kill();
    jobRunning = jobList.isRunning();
    answer(fd, jobRunning ? "error" : "ok");
}

void ZoJobServer::status(int fd)
{
    if (jobRunning)
        answer(fd, "running");
    else
        answer(fd, jobList.hasWaitingJobs() ? "waiting" : "done");
}

/// Appends the job's line of the list.
static void appendLine(UtString& text, const ZoJob* job)
{
    zoAppendNumber(text, job->state);
    for (const UtString* quoted : { &job->command, &job->description }) {
        text.appendText(" \"", 2);
        text.appendText(*quoted, quoted->length());
        text.appendText("\"", 1);
    }
    text.appendText(" ", 1);
    text.appendText(job->directory, job->directory.length());
    for (const long long number :
         { job->id, job->startTime, job->endTime, (long long)job->reserved }) {
        text.appendText(" ", 1);
        zoAppendNumber(text, number);
    }
    text.appendText("\n", 1);
}

void ZoJobServer::list(int fd)
{
    // A reader that stands still is waited for once, not once a job.
    int result = answer(fd, "%d\n", (int)jobList.jobs.size());
    const long count = jobList.jobs.size();
    UtString text;
    for (long i = 0; i < count && result == 0; ++i) {
        appendLine(text, jobList.jobs[i]);
        if (text.length() < LIST_PIECE && i + 1 < count)
            continue;
        result = answer(fd, "%s", (const char*)text);
        text = "";
    }
}

void ZoJobServer::done(int fd)
{
    if (jobRunning) {
        answer(fd, "ok");
    } else {
        ZoJobList::log("error in done()\n");
        answer(fd, "error");
    }
    goOn(fd);
}

void ZoJobServer::goOn(int fd)
{
    if (runAll && jobList.hasWaitingJobs()) {
        ZoProcess::pause(PAUSE_BETWEEN_JOBS);
        if (startJob(fd, UtHandle<ZoJob>()) == 1)
            return;
    }
    jobRunning = 0;
    runAll = 0;
    jobList.update();
}

void ZoJobServer::quit(int fd)
{
    terminate = 1;
    answer(fd, "ok");
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
