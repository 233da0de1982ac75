#include "schedule/ZoJobList.h"
#include "schedule/ZoNumber.h"

/// The characters that would end a field or hide another one.
static const char SPECIAL[] = ":\\";

/// Appends one text field; a backslash goes before each special character.
static void quote(UtString& text, const char* value)
{
    for (;;) {
        const long plain = (long)::strcspn(value, SPECIAL);
        text.appendText(value, plain);
        value += plain;
        if (!*value)
            return;
        const char escaped[] = { '\\', *value++ };
        text.appendText(escaped, sizeof escaped);
    }
}

/// Appends a number and the character that ends its field.
static void appendNumber(UtString& text, long long value, char end)
{
    char digits[24];
    char* p = digits + sizeof digits;
    *--p = end;
    unsigned long long rest = value < 0 ? 0ULL - (unsigned long long)value : value;
    do {
        *--p = (char)('0' + rest % 10);
    } while ((rest /= 10) > 0);
    if (value < 0)
        *--p = '-';
    text.appendText(p, digits + sizeof digits - p);
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

/// Reads the eight fields that follow a state code. `field` is scratch space.
static void readRecord(const char*& text, UtHandle<ZoJob> job, UtString& field)
{
    getToken(text, job->command);
    getToken(text, job->description);
    getToken(text, job->directory);
    getToken(text, field);
    job->id = zoNumber(field);
    getToken(text, field);
    job->startTime = zoNumber(field);
    getToken(text, field);
    job->endTime = zoNumber(field);
    getToken(text, field);
    job->reserved = zoNumber32(field);
    getToken(text, field);
    job->pid = zoNumber32(field);
}

void ZoJobList::readQueue(UtString text, UtDArray<UtHandle<ZoJob>>& intoJobs)
{
    intoJobs.resize(0);
    UtString field;
    UtFilename marker;
    for (const char* rest = text; *rest;) {
        getToken(rest, field);
        const int state = zoNumber32(field);
        if (state < ZoJob::WAITING || state > ZoJob::KILLED)
            continue;
        UtHandle<ZoJob> job = new ZoJob;
        job->state = state;
        readRecord(rest, job, field);
        marker.printf("%s/.%lld", (const char*)job->directory, job->id);
        if (marker.doesExist())
            intoJobs.append(job);
    }
}

void ZoJobList::writeQueue(UtString& text, UtDArray<UtHandle<ZoJob>>& ofJobs)
{
    for (long i = 0; i < ofJobs.size(); ++i) {
        const ZoJob* const job = ofJobs[i];
        appendNumber(text, job->state, ':');
        for (const UtString* field : { &job->command, &job->description, &job->directory }) {
            quote(text, *field);
            text.appendText(":", 1);
        }
        appendNumber(text, job->id, ':');
        appendNumber(text, job->startTime, ':');
        appendNumber(text, job->endTime, ':');
        appendNumber(text, job->reserved, ':');
        appendNumber(text, job->pid, '\n');
    }
}
