#ifndef ZOJOBCHILD_H
#define ZOJOBCHILD_H

#include "schedule/ZoJobGate.h"
#include "schedule/ZoJobList.h"

/// The process that runs one job: what happens in it from the fork to its end.
class ZoJobChild
{
public:
    /// Runs the job's command, records the job's end and reports it to the server. Does nothing of
    /// it when the server could not save that the job runs. `list`: this process's copy of the
    /// server's list.
    [[noreturn]] static void live(ZoJobList& list, UtHandle<ZoJob> job, ZoJobGate& gate);
};

#endif
