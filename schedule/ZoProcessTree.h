#ifndef ZOPROCESSTREE_H
#define ZOPROCESSTREE_H

#include "schedule/ZoExport.h"
#include "utlib/UtDArray.h"

/// The processes of this machine as one look shows them, and what else the system tells about
/// processes other than this one.
class SCHEDULE_EXPORT ZoProcessTree
{
public:
    UtDArray<int> ids;      ///< the processes seen at the last look, in the order of the listing
    UtDArray<int> parents;  ///< the parent of each

    /// Looks at all processes: by "ps xj" while that serves, and takes no more than 5 seconds for
    /// all looks of this object; else in /proc. Nothing is seen where neither serves.
    void look();

    /// Appends the ids of all processes below the given one, parents before their children.
    void appendBelow(UtDArray<int>& pids, int pid) const;

    /// Sends SIGTERM to each process below the given one but this one, also to those that come
    /// meanwhile, and then to the process itself.
    void terminate(int pid);

    /// Whether no living process of this user has the id any more. A zombie lives no more. An id
    /// below 1 is none.
    static bool isGone(int pid);

    /// When a living process was started, in ticks of sysconf(_SC_CLK_TCK) since the machine was; 0
    /// when there is none.
    static unsigned long long startTicks(int pid);

    /// Whether a child of this process has ended. It stays to be collected.
    static bool hasEnded(int child);

    /// When the machine was started, in seconds since the epoch; rather a second early than late.
    static long long bootTime();

private:
    long long timeForPs = 5000;  ///< milliseconds that are left for it; 0: it does not serve

    bool askPs();
    void readProc();
    bool isUsable() const;
};

#endif
