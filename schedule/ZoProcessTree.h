#ifndef ZOPROCESSTREE_H
#define ZOPROCESSTREE_H

#include "utlib/UtDArray.h"

/// What the system tells about processes other than this one.
class ZoProcessTree
{
public:
    /// Appends the ids of all processes below the given one, parents before their children.
    static void appendBelow(UtDArray<int>& pids, int pid);

    /// Whether no living process of this user has the id any more. A zombie lives no more. An id
    /// below 1 is none.
    static bool isGone(int pid);

    /// Whether a child of this process has ended. It stays to be collected.
    static bool hasEnded(int child);

    /// When the machine was started, in seconds since the epoch; rather a second early than late.
    static long long bootTime();
};

#endif
