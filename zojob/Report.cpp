#include "zojob/Report.h"

#include "jobs/Text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

struct Answer {
    JobError::Kind kind;
    int code;
    const char* advice;  // behind the sentence
};

static const Answer ANSWERS[] = {
    { JobError::INVALID, WRONG_USAGE, "" },
    { JobError::NOT_FOUND, REFUSED, "; see 'zojob list'" },
    { JobError::NO_SERVER, NO_SERVER, "" },
    { JobError::NO_LAUNCHER, NO_SERVER, "; name the installation directory with --root" },
    { JobError::SILENT_SERVER, NO_SERVER, "" },
};

Failure::Failure(const JobError& error)
    : code(REFUSED), text(error.what()), otherUser(error.otherUser)
{
    for (const Answer& answer : ANSWERS)
        if (answer.kind == error.kind) {
            code = answer.code;
            text += answer.advice;
        }
}

static int firstError = 0;
static bool isPrinted = false;

static void check(bool written)
{
    if (!written && firstError == 0)
        firstError = errno;
}

bool hasPrinted()
{
    return isPrinted;
}

void print(const std::string& text)
{
    isPrinted = isPrinted || !text.empty();
    check(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

bool flushPrinted()
{
    check(std::fflush(stdout) == 0);
    return firstError == 0;
}

int printError()
{
    return firstError;
}

void note(const std::string& text)
{
    (void)flushPrinted();  // what failed is found again at the end
    std::fprintf(stderr, "zojob: %s\n", printable(text).c_str());
}
