#ifndef ZOLAUNCHER_H
#define ZOLAUNCHER_H

#include "schedule/ZoExport.h"

/// Starts servers, each in a session of its own with nothing of this process's but its environment
/// and working directory. Several threads may call it.
class SCHEDULE_EXPORT ZoLauncher
{
public:
    enum {
        STILL_RUNS = -1,
        NOT_EXECUTABLE = 127  ///< exit status when the launcher could not be executed
    };

    /// Runs "bin/start" under the directory, with "-jobserver" and the port, and waits for nothing.
    /// Returns its process id, or -1 when the path is longer than 255 characters or no process can
    /// be made.
    static int start(const char* rootDirectory, int port);

    /// STILL_RUNS, or the exit status of a launcher of this process that has ended, which is then
    /// collected; a signal counts as 128 and its number.
    static int statusOf(int launcher);

    /// Collects the launchers of earlier start-ups that have ended, so that none stays as a zombie
    /// of the host application. Never waits.
    static void collect();
};

#endif
