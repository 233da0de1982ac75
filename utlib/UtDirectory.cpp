#include "utlib/UtDirectory.h"

#include <sys/stat.h>

int UtDirectory::isDirectory(const char* path)
{
    struct stat status;
    return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}
