#include "schedule/ZoProtocol.h"

#include "schedule/ZoNumber.h"
#include "utlib/UtSocket.h"

#include <cstring>
#include <initializer_list>

static const char* const REQUESTS[] = { "submit", "remove", "run",  "kill",
                                        "status", "list",   "done", "quit" };
static const char* const REPLIES[] = { "ok",      "error",   "unknown command",
                                       "running", "waiting", "done" };

bool ZoProtocol::canQuote(const char* text)
{
    return !::strpbrk(text, "\"\r\n");
}

bool ZoProtocol::canBeBare(const char* text)
{
    return !::strpbrk(text, "\" \t\n\v\f\r");
}

static void appendBare(UtString& line, const char* text)
{
    line += ' ';
    line += text;
}

static void appendQuoted(UtString& line, const char* text, long length)
{
    line.appendText(" \"", 2);
    line.appendText(text, length);
    line += '"';
}

static void appendNumber(UtString& line, long long number)
{
    line += ' ';
    zoAppendNumber(line, number);
}

/// Begins a request line.
static void startRequest(UtString& line, const char* user, ZoProtocol::Request request)
{
    line = user;
    appendBare(line, REQUESTS[request]);
}

/// Ends a request line. Returns 0, or -1 when it is longer than a server takes.
static int endRequest(UtString& line)
{
    const bool isTooLong = line.length() > UtSocket::MAX_LINE;
    line += '\n';
    return isTooLong ? -1 : 0;
}

int ZoProtocol::writeRequest(UtString& line, const char* user, Request request, const ZoJob* job)
{
    startRequest(line, user, request);
    if (job) {
        if (!canBeBare(job->directory))  // its first word might name another job
            return -1;
        appendNumber(line, job->id);
        appendBare(line, job->directory);
    }
    return endRequest(line);
}

int ZoProtocol::writeSubmission(UtString& line, const char* user, const char* command,
                                const char* description, const char* directory)
{
    // Better no job than another command.
    if (!canQuote(command) || !canQuote(description) || !canBeBare(directory))
        return -1;
    startRequest(line, user, SUBMIT);
    for (const char* text : { command, description, directory })
        appendQuoted(line, text, (long)::strlen(text));
    return endRequest(line);
}

ZoProtocol::Request ZoProtocol::readRequest(UtStringTokenizer& tokens, UtString& user)
{
    user = tokens.nextToken();
    const UtString& word = tokens.nextToken();
    int request = 0;
    while (request < UNKNOWN_REQUEST && word != REQUESTS[request])
        ++request;
    return (Request)request;
}

void ZoProtocol::readSubmission(UtStringTokenizer& tokens, UtString& command, UtString& description,
                                UtString& directory)
{
    command = tokens.nextToken();
    description = tokens.nextToken();
    directory = tokens.nextToken();
}

UtHandle<ZoJob> ZoProtocol::readJobName(UtStringTokenizer& tokens)
{
    UtHandle<ZoJob> job = new ZoJob;
    job->id = zoNumber(tokens.nextToken());
    job->directory = tokens.nextToken();
    return job;
}

const char* ZoProtocol::replyText(Reply reply)
{
    return REPLIES[reply];
}

ZoProtocol::Reply ZoProtocol::readReply(const char* text)
{
    for (int reply = 0; reply < NO_REPLY; ++reply) {
        const size_t length = ::strlen(REPLIES[reply]);
        if (::strncmp(text, REPLIES[reply], length) != 0)
            continue;
        const char* const end = text + length;
        const bool isRefusal = reply == REPLY_ERROR && (!*end || *end == '\n' || *end == '\r');
        if (isRefusal || ::strcmp(end, "\n") == 0)
            return (Reply)reply;
    }
    return NO_REPLY;
}

void ZoProtocol::writeCount(UtString& text, long count)
{
    zoAppendNumber(text, count);
    text += '\n';
}

void ZoProtocol::writeJob(UtString& text, const ZoJob* job)
{
    zoAppendNumber(text, job->state);
    for (const UtString* quoted : { &job->command, &job->description })
        appendQuoted(text, *quoted, quoted->length());
    appendBare(text, job->directory);
    for (const long long number : { job->id, job->startTime, job->endTime })
        appendNumber(text, number);
    appendNumber(text, job->reserved);
    text += '\n';
}

long long ZoProtocol::readCount(const char* line)
{
    return zoNumber(line);
}

bool ZoProtocol::isCount(const char* line)
{
    const size_t digits = ::strspn(line, "0123456789");
    return digits > 0 && !line[digits];
}

bool ZoProtocol::isJob(const char* line)
{
    const long long state = zoTakeNumber(line);
    return state >= ZoJob::WAITING && state <= ZoJob::KILLED && ::strncmp(line, " \"", 2) == 0;
}

ZoJob* ZoProtocol::readJob(const char* line)
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
