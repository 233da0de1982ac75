#include "schedule/ZoJobGate.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

ZoJobGate::ZoJobGate()
{
    if (::pipe2(ends, O_CLOEXEC) != 0)
        ends[0] = ends[1] = -1;
}

ZoJobGate::~ZoJobGate()
{
    for (const int end : ends) {
        if (end >= 0)
            ::close(end);
    }
}

void ZoJobGate::letIn()
{
    // It always fits, and our own reading end keeps a child that was killed from ending us, too.
    while (::write(ends[1], "", 1) < 0 && errno == EINTR)
        continue;
}

bool ZoJobGate::pass()
{
    ::close(ends[1]);
    ends[1] = -1;
    char byte;
    ssize_t n;
    do {
        n = ::read(ends[0], &byte, 1);
    } while (n < 0 && errno == EINTR);
    ::close(ends[0]);
    ends[0] = -1;
    return n == 1;
}
