#include "utlib/UtTmpDir.h"

#include "utlib/UtTree.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

/// Where directories are made when $TMPDIR does not serve. The first outlives a restart of the
/// machine; the second is better than none.
static const char* const PLACES[] = { "/var/tmp", "/tmp" };

UtTmpDir::UtTmpDir(const char* givenName, bool givenRemoveAtEnd, bool givenKeepName)
    : name(givenName), removeAtEnd(givenRemoveAtEnd), keepName(givenKeepName)
{
}

UtTmpDir::~UtTmpDir()
{
    if (removeAtEnd)
        remove();  // nobody is left to be told of a failure
}

int UtTmpDir::createIn(const char* place, int mode)
{
    *this = place;
    *this += "/";
    *this += (const char*)name;
    if (keepName) {
        if (::mkdir(*this, 0700) == 0 && ::chmod(*this, mode) == 0)
            return 0;
    } else {
        *this += "XXXXXX";
        if (::mkdtemp(data) && ::chmod(*this, mode) == 0)
            return 0;
    }
    const int error = errno;
    *this = "";
    errno = error;
    return -1;
}

int UtTmpDir::create(int mode)
{
    const char* const place = ::getenv("TMPDIR");
    // A path with white space or a quote could not be told to a client, nor a relative one be found
    // by a process with another working directory.
    if (place && place[0] == '/' && !::strpbrk(place, " \t\n\v\f\r\"") &&
        createIn(place, mode) == 0)
        return 0;
    for (const char* each : PLACES) {
        if (createIn(each, mode) == 0)
            return 0;
    }
    return -1;
}

int UtTmpDir::remove()
{
    long end = length();
    while (end > 1 && (*this)[end - 1] == '/')
        --end;
    UtString path;
    path.appendText(*this, end);
    if (path.length() == 0) {
        errno = EINVAL;
        return -1;
    }
    UtTree tree(path);
    if (tree.directory < 0)  // a link, or no directory at all
        return errno == ELOOP || errno == ENOTDIR ? ::unlink(path) : -1;
    return tree.remove(-1) == UtTree::GONE ? 0 : -1;
}
