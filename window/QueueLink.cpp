#include "window/QueueLink.h"

#include "window/QueueWorker.h"

#include <QThread>
#include <QTimer>

static const int SLOW = 700;     // ms after which somebody is told that a request is under way
static const int ENDING = 1000;  // ms for the thread's end when it is not in a request

QueueLink::QueueLink(const QString& rootDirectory, QObject* parent)
    : QObject(parent),
      thread(new QThread),
      worker(new QueueWorker(rootDirectory)),
      patience(new QTimer(this))
{
    qRegisterMetaType<QueueSnapshot>();
    qRegisterMetaType<JobDetails>();
    qRegisterMetaType<OutputPiece>();
    qRegisterMetaType<Answer>();
    thread->setObjectName("zojob queue");
    worker->moveToThread(thread);
    connect(thread, &QThread::finished, worker, &QObject::deleteLater);
    qRegisterMetaType<WorkerCall>();
    connect(this, &QueueLink::posted, worker, [to = worker](const WorkerCall& call) { call(*to); });
    connect(worker, &QueueWorker::queueRead, this, &QueueLink::queueRead);
    connect(worker, &QueueWorker::detailsRead, this, &QueueLink::detailsRead);
    connect(worker, &QueueWorker::outputRead, this, &QueueLink::outputRead);
    connect(worker, &QueueWorker::answered, this, [this](const Answer& answer) {
        if (--open == 0)
            setSlow(false);
        emit answered(answer);
    });
    patience->setSingleShot(true);
    connect(patience, &QTimer::timeout, this, [this] { setSlow(open > 0); });
}

QueueLink::~QueueLink()
{
    // First: it may end between the wait and what follows.
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->quit();
    if (thread->wait(open > 0 ? 0 : ENDING))
        delete thread;
}

template <typename Call>
int QueueLink::request(Call call)
{
    const int number = ++requests;
    if (++open == 1)
        patience->start(SLOW);
    emit posted([number, call](QueueWorker& to) { call(to, number); });
    return number;
}

void QueueLink::setSlow(bool on)
{
    if (slow == on)
        return;
    slow = on;
    emit slowChanged(on);
}

void QueueLink::start()
{
    thread->start(QThread::LowPriority);
    emit posted([](QueueWorker& to) { to.start(); });
}

int QueueLink::submit(const NewJob& job)
{
    return request([job](QueueWorker& to, int number) { to.submit(number, job); });
}

int QueueLink::runAll()
{
    return request([](QueueWorker& to, int number) { to.runAll(number); });
}

int QueueLink::run(const JobKey& job)
{
    return request([job](QueueWorker& to, int number) { to.run(number, job); });
}

int QueueLink::kill(const JobKey& job)
{
    return request([job](QueueWorker& to, int number) { to.kill(number, job); });
}

int QueueLink::remove(const QVector<JobKey>& jobs)
{
    return request([jobs](QueueWorker& to, int number) { to.remove(number, jobs); });
}

int QueueLink::submitAgain(const JobKey& job)
{
    return request([job](QueueWorker& to, int number) { to.submitAgain(number, job); });
}

void QueueLink::refresh()
{
    emit posted([](QueueWorker& to) { to.readQueue(); });
}

int QueueLink::show(const JobKey& job)
{
    const int number = ++serial;
    emit posted([number, job](QueueWorker& to) { to.show(number, job); });
    return number;
}

void QueueLink::wantOutput()
{
    emit posted([](QueueWorker& to) { to.wantOutput(); });
}
