#ifndef QUEUELINK_H
#define QUEUELINK_H

#include "window/QueueTypes.h"

#include <QObject>
#include <functional>

class QThread;
class QTimer;
class QueueWorker;

/// What the thread is to do, with its worker.
using WorkerCall = std::function<void(QueueWorker&)>;
Q_DECLARE_METATYPE(WorkerCall)

/// The window's end of the thread that watches the queue, reads files and asks the server, one
/// thing after another. Nothing here waits: a request returns its number, and answered() tells what
/// became of it.
class ZOWINDOW_EXPORT QueueLink : public QObject
{
    Q_OBJECT

public:
    explicit QueueLink(const QString& rootDirectory, QObject* parent = nullptr);

    /// When the thread hangs in a request, it is left to end with it; nothing waits for that.
    ~QueueLink() override;

    /// Begins to watch. Whoever wants the first queueRead() connects before.
    void start();

    int submit(const NewJob& job);
    int runAll();
    int run(const JobKey& job);
    int kill(const JobKey& job);
    int remove(const QVector<JobKey>& jobs);
    int submitAgain(const JobKey& job);

    /// Reads the queue now, whether it seems to have changed or not.
    void refresh();

    /// Has the job's details and output read, in place of any other's. Returns the serial number
    /// that its pieces carry.
    int show(const JobKey& job);
    void showNothing() { show(JobKey()); }

    /// Asks for the next piece of the output, as soon as there is one.
    void wantOutput();

    /// Whether a request has been under way for so long that somebody should be told.
    bool isSlow() const { return slow; }

signals:
    void queueRead(const QueueSnapshot& queue);
    void answered(const Answer& answer);
    void detailsRead(const JobDetails& details);
    void outputRead(const OutputPiece& piece);
    void slowChanged(bool slow);

    /// For the other thread alone.
    void posted(const WorkerCall& call);

private:
    template <typename Call>
    int request(Call call);
    void setSlow(bool on);

    QThread* thread;
    QueueWorker* worker;
    QTimer* patience;
    int requests = 0;  // so far
    int open = 0;      // not answered
    int serial = 0;
    bool slow = false;
};

#endif
