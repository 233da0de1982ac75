#ifndef UTDIRECTORY_H
#define UTDIRECTORY_H

#include "utlib/UtExport.h"

/// Questions about directories.
class UTLIB_EXPORT UtDirectory
{
public:
    /// 1 when the path names an existing directory, else 0. A symbolic link to one counts.
    static int isDirectory(const char* path);
};

#endif
