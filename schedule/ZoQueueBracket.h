#ifndef ZOQUEUEBRACKET_H
#define ZOQUEUEBRACKET_H

#include "schedule/ZoJobList.h"

/// One change of the queue: locks and loads it, and unlocks it at the end of the scope.
class ZoQueueBracket
{
public:
    ZoJobList& list;

    explicit ZoQueueBracket(ZoJobList& givenList) : list(givenList)
    {
        list.lockQueue();
        list.readQueue(list.jobs);
    }
    ZoQueueBracket(const ZoQueueBracket&) = delete;
    ZoQueueBracket& operator=(const ZoQueueBracket&) = delete;
    ~ZoQueueBracket() { list.unlockQueue(); }
};

#endif
