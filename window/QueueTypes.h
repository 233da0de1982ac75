#ifndef QUEUETYPES_H
#define QUEUETYPES_H

#include "window/ZoJobModel.h"

#include <QMetaType>

// What goes between the window's thread and the one that reads files and asks the server. All of it
// is plain data.

/// The queue as it was at one moment.
struct QueueSnapshot {
    enum Server { NONE, OURS, FOREIGN };

    ZoJobRows rows;
    QString problem;  ///< why the queue cannot be shown, and what to do; empty when all is well
    Server server = NONE;  ///< who listens on the port
    QString serverText;    ///< the same as a sentence
};

struct JobKey {
    qint64 id = 0;
    QByteArray directory;

    bool operator==(const JobKey& other) const
    {
        return id == other.id && directory == other.directory;
    }
};

inline JobKey keyOf(const ZoJobRow& job)
{
    return { job.id, job.directory };
}

/// A job that is to be submitted.
struct NewJob {
    QString command;  ///< shell text, one line or a whole script
    QString label;    ///< empty for none
    QByteArray directory;
    bool run = false;  ///< have the queue run at once
};

/// What is known of one job beyond its row.
struct JobDetails {
    JobKey key;
    QString script;            ///< the command or script as it was given
    QByteArray workDirectory;  ///< where it runs
    QByteArray log;            ///< the file with its output
    QString environment;       ///< a variable a line; empty when it is not known
};

/// The next part of a job's output.
struct OutputPiece {
    JobKey key;
    int serial = 0;        ///< of the request to show this job
    bool restart = false;  ///< what came before is void
    qint64 skipped = 0;    ///< with restart: bytes before this piece that are not shown
    QByteArray bytes;
    bool more = false;  ///< the next piece can be had at once
    QString problem;    ///< why there is no output; empty when there may be some
};

/// What became of a request.
struct Answer {
    int request = 0;
    bool ok = false;
    QString text;  ///< why not and what to do; with ok a note, or nothing
    JobKey made;   ///< the job that was submitted
};

Q_DECLARE_METATYPE(QueueSnapshot)
Q_DECLARE_METATYPE(JobDetails)
Q_DECLARE_METATYPE(OutputPiece)
Q_DECLARE_METATYPE(Answer)

#endif
