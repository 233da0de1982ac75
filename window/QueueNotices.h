#ifndef QUEUENOTICES_H
#define QUEUENOTICES_H

#include "window/QueueTypes.h"

#include <QHash>

/// What somebody who does not look at the window is told.
struct QueueNotice {
    QString title;  ///< empty: nothing to tell
    QString text;
    bool warning = false;
    JobKey job;
};

/// Decides what is worth a message: the first job that fails in a row of jobs, and that nothing
/// runs any more. Never one message for each job.
class QueueNotices
{
public:
    /// Takes the queue as it is now; what was there the first time is nothing new.
    QueueNotice take(const ZoJobRows& rows);

    /// To be asked when the queue has not changed for a few seconds.
    QueueNotice settle();

private:
    QHash<QPair<qint64, QByteArray>, bool> ended;  // of each job
    bool first = true;
    bool failureTold = false;
    int done = 0, failed = 0, killed = 0;  // in this row of jobs
    int waiting = 0;
    bool running = false;
    ZoJobRow last;  // that ended
};

/// A text for the desktop's messages, some of which read it as HTML.
QString forMessage(const QString& text);

#endif
