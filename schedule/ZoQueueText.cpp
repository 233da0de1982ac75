#include "schedule/ZoQueueText.h"

#include "schedule/ZoJobDirectory.h"
#include "schedule/ZoNumber.h"

#include <initializer_list>
#include <typeinfo>

/// Characters up to which the memory of a job serves again.
static const long MOST_KEPT = 1024;

/// Writes a text; a backslash goes before each character that would end a field or hide another
/// one. Returns the place behind it.
static char* quote(char* to, const UtString& value)
{
    const char* from = value;
    const long n = value.length();
    if (!::memchr(from, ':', n) && !::memchr(from, '\\', n)) {
        ::memcpy(to, from, n);
        return to + n;
    }
    for (; *from; *to++ = *from++) {
        if (*from == ':' || *from == '\\')
            *to++ = '\\';
    }
    return to;
}

/// The job's record takes no more bytes than this.
static long recordLimit(const ZoJob* job)
{
    const long texts = job->command.length() + job->description.length() + job->directory.length();
    return 2 * texts + 9 * (ZO_NUMBER_SIZE + 1);
}

/// Writes the job's record. Returns the place behind it.
static char* putRecord(char* to, const ZoJob* job)
{
    to = zoPutNumber(to, job->state);
    for (const UtString* field : { &job->command, &job->description, &job->directory }) {
        *to++ = ':';
        to = quote(to, *field);
    }
    for (const long long number :
         { job->id, job->startTime, job->endTime, (long long)job->reserved, (long long)job->pid }) {
        *to++ = ':';
        to = zoPutNumber(to, number);
    }
    *to++ = '\n';
    return to;
}

/// Takes the next field, without its escapes, from the front of the text and moves the start of the
/// text behind it. A colon, a newline and the end of the text all end a field.
static void getToken(const char*& text, UtString& token)
{
    token = "";
    for (;;) {
        const long plain = (long)::strcspn(text, ":\n\\");
        token.appendText(text, plain);
        text += plain;
        if (*text != '\\')
            break;
        if (text[1])
            ++text;
        token.appendText(text++, 1);
    }
    if (*text)
        ++text;
}

/// Takes the next field from the front of the text as a number. `field` is scratch space.
static long long getNumber(const char*& text, UtString& field)
{
    const char* end = text;
    const long long number = zoTakeNumber(end);
    if (*end == ':' || *end == '\n') {
        text = end + 1;
        return number;
    }
    getToken(text, field);  // nothing that was written here
    return zoNumber(field);
}

/// Reads the eight fields that follow a state code. `field` is scratch space.
static void readRecord(const char*& text, UtHandle<ZoJob> job, UtString& field)
{
    getToken(text, job->command);
    getToken(text, job->description);
    getToken(text, job->directory);
    job->id = getNumber(text, field);
    job->startTime = getNumber(text, field);
    job->endTime = getNumber(text, field);
    job->reserved = zoNarrow(getNumber(text, field));
    job->pid = zoNarrow(getNumber(text, field));
}

/// An object for the job that comes to stand at index i of the array, to be filled in every field.
/// The one that stands there now serves again, as far as its memory goes: freeing and allocating it
/// anew would cost more than the parsing. Not when somebody else holds it or it is more than a
/// plain job, nor with long texts, whose memory would stay behind in every place that the job
/// passes on its way up the queue.
static UtHandle<ZoJob> jobFor(UtDArray<UtHandle<ZoJob>>& jobs, long i)
{
    const ZoJob* const job = i < jobs.size() ? jobs[i] : nullptr;
    if (!job || job->references != 1 || typeid(*job) != typeid(ZoJob))
        return new ZoJob;
    const long kept =
        job->command.capacity() + job->description.capacity() + job->directory.capacity();
    return kept <= MOST_KEPT ? jobs[i] : UtHandle<ZoJob>(new ZoJob);
}

void ZoQueueText::read(const char* text, UtDArray<UtHandle<ZoJob>>& intoJobs)
{
    ZoJobMarkers markers;
    long count = 0;
    UtString field;
    for (const char* rest = text; *rest;) {
        const int state = zoNarrow(getNumber(rest, field));
        if (state < ZoJob::WAITING || state > ZoJob::KILLED)
            continue;
        UtHandle<ZoJob> job = jobFor(intoJobs, count);
        job->state = state;
        readRecord(rest, job, field);
        if (!markers.has(job))
            continue;
        if (count == intoJobs.size())
            intoJobs.append(job);
        else
            intoJobs[count] = job;
        ++count;
    }
    intoJobs.resize(count);
}

void ZoQueueText::write(UtString& text, UtDArray<UtHandle<ZoJob>>& ofJobs)
{
    long limit = 0;
    for (long i = 0; i < ofJobs.size(); ++i)
        limit += recordLimit(ofJobs[i]);
    const long length = text.length();
    text.insertMemory(text.size(), limit);  // at once: a text that grows is copied again and again
    char* end = text.data + length;
    for (long i = 0; i < ofJobs.size(); ++i)
        end = putRecord(end, ofJobs[i]);
    *end++ = '\0';
    text.used = end - text.data;
}

void ZoQueueText::dropNulBytes(UtString& text)
{
    const char* const end = text.data + text.length();
    char* to = text.data;
    const char* from = to;
    while (const char* const nul = (const char*)::memchr(from, '\0', end - from)) {
        ::memmove(to, from, nul - from);
        to += nul - from;
        const char* const lineEnd = (const char*)::memchr(nul, '\n', end - nul);
        from = lineEnd ? lineEnd + 1 : end;
    }
    if (from != to)
        ::memmove(to, from, end - from);
    to += end - from;
    *to = '\0';
    text.used = to + 1 - text.data;
}
