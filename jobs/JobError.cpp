#include "jobs/JobError.h"

#include <cerrno>
#include <cstring>

std::string withReason(const std::string& text)
{
    return text + ": " + std::strerror(errno);
}
