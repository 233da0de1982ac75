#include "utlib/UtMemory.h"

#include <cstdlib>
#include <unistd.h>

/// Ends the process without touching the heap again: stdio might want to allocate.
[[noreturn]] static void outOfMemory()
{
    static const char message[] = "utlib: out of memory\n";
    // A failed write leaves nothing else to do: the process ends here either way.
    if (::write(STDERR_FILENO, message, sizeof message - 1) < 0)
        ::abort();
    ::abort();
}

void* utmalloc(size_t n)
{
    void* p = ::malloc(n > 0 ? n : 1);  // malloc(0) may give null, which is not a failure
    if (!p)
        outOfMemory();
    return p;
}

void* utrealloc(void* p, size_t n)
{
    p = ::realloc(p, n > 0 ? n : 1);
    if (!p)
        outOfMemory();
    return p;
}

void utfree(void* p)
{
    ::free(p);
}
