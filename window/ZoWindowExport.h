#ifndef ZOWINDOWEXPORT_H
#define ZOWINDOWEXPORT_H

/// Marks what a host application may use of libschedulewindow; everything else is hidden.
#define ZOWINDOW_EXPORT __attribute__((visibility("default")))

#endif
