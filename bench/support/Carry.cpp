#include "bench/support/Carry.h"

#include "bench/support/Place.h"

#include <fcntl.h>
#include <unistd.h>

Carry::Carry(long count) : file(Place::home() + "/floor"), buffer(Place::queueText(count))
{
    Place::makeJobs(count);
    Place::write(file, buffer);
    for (long i = 0; i < count; ++i)
        markers.push_back(Place::marker(i));
}

bool Carry::once()
{
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    const long n = ::read(fd, buffer.data(), buffer.size());
    ::close(fd);
    long found = 0;
    for (const std::string& marker : markers)
        found += ::access(marker.c_str(), F_OK) == 0;
    fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const long written = ::write(fd, buffer.data(), buffer.size());
    ::close(fd);
    return n == written && n == (long)buffer.size() && found == (long)markers.size();
}
