#include "window/QueueNotices.h"

#include "window/ShownText.h"
#include "window/StateLook.h"

#include <QCoreApplication>
#include <QStringList>

static const int LONGEST = 120;  // characters of a description

static QString tr(const char* text)
{
    return QCoreApplication::translate("QueueNotices", text);
}

QString forMessage(const QString& text)
{
    QString shown = visibleLine(text.left(LONGEST));
    // Look-alikes: where "&lt;" is not read as HTML, it would be shown as it stands.
    return shown.replace('<', QChar(0x2039))
        .replace('>', QChar(0x203A))
        .replace('&', QChar(0xFF06));
}

QueueNotice QueueNotices::take(const ZoJobRows& rows)
{
    QHash<QPair<qint64, QByteArray>, bool> now;
    const ZoJobRow* failure = nullptr;
    running = false;
    waiting = 0;
    for (const ZoJobRow& job : rows) {
        const QPair<qint64, QByteArray> key(job.id, job.directory);
        now.insert(key, job.hasEnded());
        running = running || job.state == ZoJobRow::RUNNING;
        waiting += job.state == ZoJobRow::WAITING;
        if (first || !job.hasEnded() || ended.value(key, false))
            continue;
        ++(job.hasFailed() ? failed : job.state == ZoJobRow::KILLED ? killed : done);
        last = job;
        if (job.hasFailed())
            failure = &job;
    }
    ended = now;
    first = false;
    if (!failure || failureTold)
        return QueueNotice();
    failureTold = true;
    return { tr("Job %1 failed").arg(failure->name),
             forMessage(failure->description) + "\n" + stateMeaning(*failure), true,
             keyOf(*failure) };
}

QueueNotice QueueNotices::settle()
{
    const int all = done + failed + killed;
    if (running || all == 0)
        return QueueNotice();
    QStringList counts;
    if (done > 0)
        counts += tr("%1 done").arg(done);
    if (failed > 0)
        counts += tr("%1 failed").arg(failed);
    if (killed > 0)
        counts += tr("%1 killed").arg(killed);
    QueueNotice notice = { waiting > 0 ? tr("Nothing runs; %1 waiting").arg(waiting)
                                       : tr("The queue is through"),
                           counts.join(", "), failed > 0, keyOf(last) };
    if (all == 1)
        notice.text = forMessage(last.description) + "\n" + stateMeaning(last);
    // Of a single job that failed there is nothing more to say, nor of one that somebody killed.
    const bool known = all == 1 && (failureTold || killed > 0);
    failureTold = false;
    done = failed = killed = 0;
    return known ? QueueNotice() : notice;
}
