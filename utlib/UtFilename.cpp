#include "utlib/UtFilename.h"

#include "utlib/UtString.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

UtFilename& UtFilename::operator=(const char* given)
{
    text = QByteArray(given);
    return *this;
}

void UtFilename::printf(const char* format, ...)
{
    UtString formatted;
    va_list arguments;
    va_start(arguments, format);
    formatted.vprintf(format, arguments);
    va_end(arguments);
    *this = (const char*)formatted;
}

int UtFilename::create(int mode) const
{
    // Non-blocking, so that a pipe of that name is an error instead of a wait.
    const int fd = ::open(text.constData(),
                          O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0)
        return -1;
    const int result = ::fchmod(fd, mode);
    const int error = errno;
    ::close(fd);
    errno = error;
    return result;
}

bool UtFilename::doesExist() const
{
    return ::access(text.constData(), F_OK) == 0;
}

int UtFilename::length() const
{
    return (int)text.size();
}
