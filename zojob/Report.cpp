#include "zojob/Report.h"

#include "zojob/view/Text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

static int firstError = 0;

static void check(bool written)
{
    if (!written && firstError == 0)
        firstError = errno;
}

void print(const std::string& text)
{
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

std::string withReason(const std::string& text)
{
    return text + ": " + std::strerror(errno);
}
