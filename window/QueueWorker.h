#ifndef QUEUEWORKER_H
#define QUEUEWORKER_H

#include "window/JobRows.h"
#include "window/QueueTypes.h"

#include "jobs/Cluster.h"
#include "jobs/JobLog.h"
#include "jobs/QueueWatch.h"
#include "jobs/Server.h"

#include <QElapsedTimer>
#include <QObject>
#include <memory>

class QSocketNotifier;
class QTimer;
class Submission;

/// Does in a thread of its own what may wait: watches the queue, reads the files of jobs and asks
/// the server. Watching asks nobody, so that an idle server can end.
class QueueWorker : public QObject
{
    Q_OBJECT

public:
    explicit QueueWorker(const QString& rootDirectory);
    ~QueueWorker() override;

    void start();

    /// Reads the queue and tells it.
    void readQueue();

    // Requests; each is answered once.
    void submit(int number, const NewJob& job);
    void runAll(int number);
    void run(int number, const JobKey& key);
    void kill(int number, const JobKey& key);
    void remove(int number, const QVector<JobKey>& keys);
    void submitAgain(int number, const JobKey& key);

    /// From now on this job's details and output are told; an empty key stands for none.
    void show(int number, const JobKey& key);

    /// The next piece of the output is welcome.
    void wantOutput();

signals:
    void queueRead(const QueueSnapshot& queue);
    void answered(const Answer& answer);
    void detailsRead(const JobDetails& details);
    void outputRead(const OutputPiece& piece);

private:
    template <typename Call>
    void answer(int number, Call call);
    void tellMade(const std::string& place, Answer& result);
    void runMade(Answer& result);
    bool killRunning(const Job& job);
    void look();
    void scheduleRead();
    void lookAtClusters();
    void lookAround();
    void tellServer();
    void readDetails();
    void readOutput();
    bool fillPiece(OutputPiece& piece);
    const Job& find(const JobKey& key) const;
    const Job* shownJob() const;

    const Server server;
    std::unique_ptr<QueueWatch> watch;
    ClusterQuestion question;
    QSocketNotifier* notifier = nullptr;  // fires while the queue may have changed
    QTimer* slowLook = nullptr;
    QTimer* soon = nullptr;     // the next reading, when the last one was a moment ago
    QTimer* logLook = nullptr;  // while more output is to be expected

    QElapsedTimer lastReading;

    Queue queue;
    JobRows rows;
    QueueSnapshot told;  // last

    JobKey shown;
    int serial = 0;
    std::unique_ptr<JobLog> log;
    bool wanted = false;  // a piece of the output
    bool begun = false;   // a piece of it has been told
    long long skipped = 0;
};

#endif
