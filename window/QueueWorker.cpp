#include "window/QueueWorker.h"

#include "window/PortOwner.h"

#include "jobs/JobDirectory.h"
#include "jobs/JobError.h"
#include "jobs/JobScript.h"
#include "jobs/JobTree.h"
#include "jobs/Keeper.h"
#include "jobs/QueueRemoval.h"
#include "jobs/Submission.h"

#include <QFile>
#include <QSocketNotifier>
#include <QTimer>
#include <algorithm>

static const int GRACE = 10000;            // ms for a killed job to end by itself
static const double CLUSTER_PATIENCE = 5;  // seconds for a cluster to hear of a kill
static const int MOST_LOOKED_AT = 1000;    // jobs, every few seconds without any sign of a change
static const int BREATH = 40;     // ms between two readings of a queue that changes all the time
static const int LOG_LOOK = 150;  // ms between two looks at the output of a running job
static const std::size_t PIECE = 32 * 1024;     // bytes of output at once
static const long long HELD = 512 * 1024;       // bytes of output that are shown at most
static const long long CAUGHT_UP = 256 * 1024;  // bytes shown when more came than could be shown

QueueWorker::QueueWorker(const QString& rootDirectory)
    : server("", QFile::encodeName(rootDirectory).toStdString())
{
}

QueueWorker::~QueueWorker() = default;

void QueueWorker::start()
{
    slowLook = new QTimer(this);
    soon = new QTimer(this);
    logLook = new QTimer(this);
    soon->setSingleShot(true);
    logLook->setSingleShot(true);
    connect(slowLook, &QTimer::timeout, this, [this] {
        lookAtClusters();
        look();
        lookAround();
    });
    connect(soon, &QTimer::timeout, this, &QueueWorker::look);
    connect(logLook, &QTimer::timeout, this, &QueueWorker::readOutput);
    watch = std::make_unique<QueueWatch>(server);
    if (watch->descriptor() >= 0) {
        notifier = new QSocketNotifier(watch->descriptor(), QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, &QueueWorker::scheduleRead);
    }
    slowLook->start(1000 * QueueWatch::SLOW_LOOK);
    readQueue();
}

/// Reads when the last reading is long enough ago, so that a queue in which much happens leaves
/// time for everything else.
void QueueWorker::scheduleRead()
{
    notifier->setEnabled(false);
    const qint64 passed = lastReading.isValid() ? lastReading.elapsed() : BREATH;
    soon->start(int(std::max<qint64>(0, BREATH - passed)));
}

void QueueWorker::look()
{
    if (watch->descriptor() < 0 && notifier) {  // the directory has gone; slow looks go on
        delete notifier;
        notifier = nullptr;
    }
    if (watch->hasChanged())
        readQueue();
    if (notifier)
        notifier->setEnabled(true);
}

/// What happens on a cluster is in the files of its jobs, and nothing tells of their changes.
void QueueWorker::lookAtClusters()
{
    question.ask(queue.jobs);
    for (const Job& job : queue.jobs)
        if (job.isRunning() && !job.cluster.id.empty()) {
            readQueue();
            return;
        }
}

/// Looks at what changes without the queue file: the server, and marks in the jobs' directories.
void QueueWorker::lookAround()
{
    if (queue.waiting() && int(queue.jobs.size()) <= MOST_LOOKED_AT) {
        const ZoJobRows now = rows.make(queue);
        if (now != told.rows) {
            told.rows = now;
            emit queueRead(told);
        }
    }
    tellServer();
}

void QueueWorker::readQueue()
{
    told.problem.clear();
    try {
        queue = watch->read();
        told.rows = rows.make(queue);
    } catch (const std::exception& error) {
        told.problem = tr("The queue cannot be shown: %1").arg(QString::fromUtf8(error.what()));
    }
    lastReading.start();
    emit queueRead(told);
    tellServer();  // the kernel's table takes as long as a thousand jobs
    if (wanted)
        readOutput();
}

void QueueWorker::tellServer()
{
    QueueSnapshot now = told;
    lookAtPort(now);
    if (now.server == told.server && now.serverText == told.serverText)
        return;
    told = now;
    emit queueRead(told);
}

/// Has `call` fill in an answer, and tells it. The queue is told first, so that a job that has been
/// made is there when the answer comes.
template <typename Call>
void QueueWorker::answer(int number, Call call)
{
    Answer result;
    result.request = number;
    try {
        result.ok = true;
        call(result);
    } catch (const JobError& error) {
        result.ok = false;
        result.text = QString::fromUtf8(error.what());
        if (error.kind == JobError::NO_LAUNCHER)
            result.text += tr("; start zojob-window with --root and the installation directory");
    } catch (const std::exception& error) {
        result.ok = false;
        result.text = QString::fromUtf8(error.what());
    }
    readQueue();
    emit answered(result);
}

const Job& QueueWorker::find(const JobKey& key) const
{
    for (const Job& job : queue.jobs)
        if (job.id == key.id && job.directory == key.directory.toStdString())
            return job;
    throw JobError(JobError::NOT_FOUND, "the job has left the queue meanwhile");
}

/// Why the server would not run this job, or any.
static QString whyNotRun(const Queue& queue, const Job* job)
{
    if (!queue.trouble.empty())
        return QueueWorker::tr("Nothing was run: %1").arg(QString::fromStdString(queue.trouble));
    if (const Job* const running = queue.running())
        return QueueWorker::tr("Job %1 is running, and only one runs at a time: try again when it "
                               "has ended")
            .arg(running->id);
    if (job ? !job->isWaiting() : !queue.waiting())
        return QueueWorker::tr("Nothing was run: no job is waiting any more");
    return QueueWorker::tr("The server would not run it: it may be busy with a job that was "
                           "removed while it ran; try again later");
}

void QueueWorker::tellMade(const std::string& place, Answer& result)
{
    queue = watch->read();
    if (const Job* const made = queue.findDirectory(place))
        result.made = { made->id, QByteArray::fromStdString(made->directory) };
}

/// Has a job that was made run. When that fails it is in the queue all the same.
void QueueWorker::runMade(Answer& result)
{
    try {
        runQueue(server, { find(result.made) });
    } catch (const JobError& error) {
        result.text = QString::fromUtf8(error.what()) + tr("; use \u201CRun all\u201D then");
    }
}

void QueueWorker::submit(int number, const NewJob& job)
{
    answer(number, [&](Answer& result) {
        Submission submission;
        submission.body = job.command.toStdString();
        while (!submission.body.empty() && submission.body.back() == '\n')
            submission.body.pop_back();
        const bool isLine = submission.body.find('\n') == std::string::npos;
        const std::string title = isLine ? submission.body : firstLine(submission.body);
        submission.command = title;
        if (!job.label.isEmpty())
            submission.label = job.label.toStdString();
        submission.description = describe(submission.label.value_or(title));
        submission.directory = job.directory.toStdString();
        submission.check();
        server.ensure();
        tellMade(submission.queue(server), result);
        if (job.run)
            runMade(result);
    });
}

void QueueWorker::runAll(int number)
{
    answer(number, [&](Answer& result) {
        result.ok = server.run();
        if (!result.ok)
            result.text = whyNotRun(watch->read(), nullptr);
    });
}

void QueueWorker::run(int number, const JobKey& key)
{
    answer(number, [&](Answer& result) {
        const Job job = find(key);
        result.ok = server.run(job);
        if (result.ok)
            return;
        const Queue now = watch->read();
        const Job* const same = now.find(job);
        result.text = whyNotRun(now, same ? same : &job);
    });
}

/// Ends a running job; what goes on in spite of that is ended by force later.
bool QueueWorker::killRunning(const Job& job)
{
    const auto tree = std::make_shared<JobTree>(job);
    stopKeeping(queue);
    if (!killJob(server, job, CLUSTER_PATIENCE))
        return false;
    tree->lookAgain();
    QTimer::singleShot(GRACE, this, [tree] {
        if (!tree->allGone())
            (void)tree->killRest();
    });
    return true;
}

void QueueWorker::kill(int number, const JobKey& key)
{
    answer(number, [&](Answer& result) {
        queue = watch->read();
        const Job& job = find(key);
        if (job.isWaiting() && !JobDirectory(job).setCancelled(true))
            throw JobError(JobError::FILE_FAILED, withReason("the job cannot be cancelled"));
        rows.forget(job);  // the mark is in a file of it
        if (job.hasEnded())
            result.text = tr("The job had ended before it could be killed");
        else if (job.hasLostItsId())
            result.text = tr("The job has ended without a report, and its process id belongs to "
                             "another process: the server marks it as killed within a minute or "
                             "two");
        else if (job.isRunning() && !killRunning(job))
            result.text = tr("The job could not be killed; it may just have ended");
        result.ok = result.text.isEmpty();
    });
}

void QueueWorker::remove(int number, const QVector<JobKey>& keys)
{
    answer(number, [&](Answer& result) {
        queue = watch->read();
        std::vector<Job> chosen;
        int running = 0, gone = 0;
        for (const JobKey& key : keys) {
            const auto same = [&key](const Job& job) {
                return job.id == key.id && job.directory == key.directory.toStdString();
            };
            const auto job = std::find_if(queue.jobs.begin(), queue.jobs.end(), same);
            if (job == queue.jobs.end())
                ++gone;
            else if (job->isRunning())
                ++running;  // its command would go on unseen, and nothing else could be run
            else
                chosen.push_back(*job);
        }
        server.ensure();
        const std::vector<Job> left = removeJobs(server, chosen);
        for (const Job& job : left)
            running += job.isRunning();
        if (running > 0)
            result.text = tr("A job that has begun to run meanwhile stays");
        else if (!left.empty())
            result.text = tr("%1 of the jobs could not be removed").arg(left.size());
        else if (gone > 0)
            result.text = tr("%1 of the jobs had left the queue already").arg(gone);
        result.ok = result.text.isEmpty();
    });
}

void QueueWorker::submitAgain(int number, const JobKey& key)
{
    answer(number, [&](Answer& result) {
        const Job& job = find(key);
        server.ensure();
        rows.forget(job);
        tellMade(Submission::again(server, job), result);
    });
}

const Job* QueueWorker::shownJob() const
{
    for (const Job& job : queue.jobs)
        if (job.id == shown.id && job.directory == shown.directory.toStdString())
            return &job;
    return nullptr;
}

void QueueWorker::show(int number, const JobKey& key)
{
    shown = key;
    serial = number;
    log.reset();
    wanted = begun = false;
    skipped = 0;
    logLook->stop();
    if (const Job* const job = shownJob()) {
        log = std::make_unique<JobLog>(*job);
        emit detailsRead(readJobDetails(*job));
    }
}

void QueueWorker::wantOutput()
{
    wanted = true;
    readOutput();
}

/// Reads what comes next; false when there is nothing to tell.
bool QueueWorker::fillPiece(OutputPiece& piece)
{
    const long long unread = log->unread();
    piece.restart = !begun || unread < 0 || unread > HELD;
    if (piece.restart)
        skipped = log->goToLast(CAUGHT_UP);
    piece.skipped = skipped;
    const std::string bytes = log->read(PIECE);
    piece.bytes = QByteArray(bytes.data(), int(bytes.size()));
    return piece.restart || !bytes.empty();
}

void QueueWorker::readOutput()
{
    const Job* const job = shownJob();
    if (!wanted || !log || !job || job->isWaiting())
        return;
    OutputPiece piece;
    piece.key = shown;
    piece.serial = serial;
    bool tell = false;
    try {
        if (log->open())
            tell = fillPiece(piece);
        else if (job->hasEnded() && !begun)
            throw JobError(JobError::FILE_FAILED, log->path + " is not there: the job left no "
                                                              "output, or somebody removed it");
    } catch (const JobError& error) {
        piece.problem = QString::fromUtf8(error.what());
        piece.restart = tell = true;
        log.reset();
    }
    if (tell) {
        begun = true;
        wanted = false;
        emit outputRead(piece);
    } else if (job->isRunning()) {
        logLook->start(LOG_LOOK);
    }
}
