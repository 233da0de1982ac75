#ifndef ZOJOBMODEL_H
#define ZOJOBMODEL_H

#include "window/ZoWindowExport.h"

#include <QAbstractTableModel>
#include <QByteArray>
#include <QString>
#include <QVector>

class QTimer;
class QueueLink;

/// One job as a window shows it. The texts are plain text as they were given, never HTML; a view
/// has to show them so.
struct ZOWINDOW_EXPORT ZoJobRow {
    enum State { WAITING, RUNNING, DONE, FAILED, KILLED, TIMED_OUT, SKIPPED, CANCELLED, UNKNOWN };

    State state = UNKNOWN;
    qint64 id = 0;         ///< time of submission, seconds since the epoch; 0 for none
    QByteArray directory;  ///< the job's own; together with the id it names the job
    QString name;          ///< what the commands call the job
    QString description;   ///< the label, or the command where there is none
    QString command;
    qint64 started = 0;  ///< seconds since the epoch; 0 until then
    qint64 ended = 0;    ///< seconds since the epoch; 0 until then
    qint64 ran = 0;      ///< seconds that the command of an ended job has run
    int status = -1;     ///< of the ended command; -1 when there is none or nobody recorded it
    QString lastLines;   ///< of the output of a job that failed, at most three
    bool ours = false;   ///< made by zojob or the window; else another application's

    bool isSameJob(const ZoJobRow& other) const
    {
        return id == other.id && directory == other.directory;
    }
    bool operator==(const ZoJobRow& other) const;

    /// Whether the job has ended, in whichever way.
    bool hasEnded() const
    {
        return state != WAITING && state != RUNNING && (state != CANCELLED || ended > 0);
    }

    /// Whether it ended in a way that somebody should look at.
    bool hasFailed() const { return state == FAILED || state == TIMED_OUT || state == SKIPPED; }

    /// Seconds that the job has run, up to `now` for a running one.
    qint64 runTime(qint64 now) const;
};

using ZoJobRows = QVector<ZoJobRow>;

/// The queue as a table, a row a job, in queue order. It is kept up to date by inserting, moving,
/// removing and changing single rows; it is never reset, so that a view keeps its selection and its
/// place.
///
///     auto* model = new ZoJobModel(this);
///     model->watchQueue("/opt/kelvo");
///     table->setModel(model);
class ZOWINDOW_EXPORT ZoJobModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { STATE, DESCRIPTION, SUBMITTED, STARTED, TIME, STATUS, NAME, COLUMNS };

    /// A number or text to sort by: times in seconds, states in the order of ZoJobRow::State.
    static constexpr int SORT_ROLE = Qt::UserRole;

    explicit ZoJobModel(QObject* parent = nullptr);
    ~ZoJobModel() override;

    /// From now on shows the queue of this user on this machine. It is watched by a thread of its
    /// own, which asks the server nothing. `rootDirectory` is the installation directory, whose
    /// launcher starts a server when a request needs one. Later calls do nothing.
    void watchQueue(const QString& rootDirectory);

    /// Shows these jobs, for a model that watches no queue.
    void update(const ZoJobRows& fresh);

    const ZoJobRows& rows() const { return jobs; }

    /// The row of the job; -1 when it is not there.
    int find(qint64 id, const QByteArray& directory) const;

    /// Whether the time of a running job is counted up each second. A view that nobody sees may
    /// switch it off.
    void setTicking(bool on);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    friend class ZoJobPanel;

    QVariant text(const ZoJobRow& job, int column) const;
    QVariant sortValue(const ZoJobRow& job, int column) const;
    QString toolTip(const ZoJobRow& job, int column) const;

    void removeGone(const ZoJobRows& fresh, int first, int behind);
    void placeKept(const ZoJobRows& fresh, int first, int freshBehind, int behind);
    void insertNew(const ZoJobRows& fresh, int first, int behind);
    void changeRows(const ZoJobRows& fresh);
    void tick();
    void updateTimer();

    ZoJobRows jobs;
    qint64 clock = 0;  // of the last tick: every view shows the same times
    QTimer* timer;
    bool ticking = true;
    QueueLink* link = nullptr;  // to the thread that watches; null without
};

#endif
