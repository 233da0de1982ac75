#ifndef ZOEXPORT_H
#define ZOEXPORT_H

/// Marks what libschedule hands to host applications and programs; everything else stays hidden.
#define SCHEDULE_EXPORT __attribute__((visibility("default")))

#endif
