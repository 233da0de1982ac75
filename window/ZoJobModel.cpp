#include "window/ZoJobModel.h"

#include "window/QueueLink.h"
#include "window/ShownText.h"
#include "window/StateLook.h"

#include <QDateTime>
#include <QHash>
#include <QSet>
#include <QTimer>
#include <algorithm>
#include <utility>

static const int SECOND = 1000;  // ms

/// What names a job in a set. A damaged queue may hold one job twice; then `count` tells them
/// apart.
struct RowKey {
    qint64 id;
    QByteArray directory;
    int count;

    bool operator==(const RowKey& other) const
    {
        return id == other.id && count == other.count && directory == other.directory;
    }
};

static auto qHash(const RowKey& key, decltype(qHash(0)) seed = 0)
{
    return ::qHash(key.id, seed) ^ ::qHash(key.directory, seed) ^ ::qHash(key.count, seed);
}

using RowKeys = QVector<RowKey>;

/// The keys of rows[first .. behind - 1].
static RowKeys keysOf(const ZoJobRows& rows, int first, int behind)
{
    RowKeys keys;
    keys.reserve(behind - first);
    QHash<RowKey, int> seen;
    seen.reserve(behind - first);
    for (int row = first; row < behind; ++row) {
        RowKey key = { rows[row].id, rows[row].directory, 0 };
        key.count = seen[key]++;
        keys.append(key);
    }
    return keys;
}

bool ZoJobRow::operator==(const ZoJobRow& other) const
{
    return isSameJob(other) && state == other.state && status == other.status &&
           started == other.started && ran == other.ran && ended == other.ended &&
           ours == other.ours && name == other.name && lastLines == other.lastLines &&
           description == other.description && command == other.command;
}

qint64 ZoJobRow::runTime(qint64 now) const
{
    return state == RUNNING && started > 0 ? std::max<qint64>(0, now - started) : ran;
}

ZoJobModel::ZoJobModel(QObject* parent) : QAbstractTableModel(parent), timer(new QTimer(this))
{
    timer->setInterval(SECOND);
    connect(timer, &QTimer::timeout, this, &ZoJobModel::tick);
}

ZoJobModel::~ZoJobModel() = default;

void ZoJobModel::watchQueue(const QString& rootDirectory)
{
    if (link)
        return;
    link = new QueueLink(rootDirectory, this);
    connect(link, &QueueLink::queueRead, this,
            [this](const QueueSnapshot& queue) { update(queue.rows); });
    link->start();
}

int ZoJobModel::find(qint64 id, const QByteArray& directory) const
{
    for (int row = 0; row < jobs.size(); ++row)
        if (jobs[row].id == id && jobs[row].directory == directory)
            return row;
    return -1;
}

void ZoJobModel::update(const ZoJobRows& fresh)
{
    clock = QDateTime::currentSecsSinceEpoch();
    const int most = int(std::min(jobs.size(), fresh.size()));
    int first = 0;
    while (first < most && jobs[first].isSameJob(fresh[first]))
        ++first;
    int same = 0;  // rows at the end that stay as they are
    while (same < most - first &&
           jobs[jobs.size() - 1 - same].isSameJob(fresh[fresh.size() - 1 - same]))
        ++same;
    const int freshBehind = int(fresh.size()) - same;
    if (first < jobs.size() - same) {
        removeGone(fresh, first, freshBehind);
        placeKept(fresh, first, freshBehind, int(jobs.size()) - same);
    }
    insertNew(fresh, first, freshBehind);
    changeRows(fresh);
    updateTimer();
}

/// Takes out the rows from `first` on that are not among fresh[first .. behind - 1].
void ZoJobModel::removeGone(const ZoJobRows& fresh, int first, int behind)
{
    const int end = int(jobs.size()) - (int(fresh.size()) - behind);
    const RowKeys wanted = keysOf(fresh, first, behind);
    const QSet<RowKey> kept(wanted.begin(), wanted.end());
    const RowKeys keys = keysOf(jobs, first, end);
    for (int last = end - 1; last >= first; --last) {
        if (kept.contains(keys[last - first]))
            continue;
        int start = last;
        while (start > first && !kept.contains(keys[start - 1 - first]))
            --start;
        beginRemoveRows(QModelIndex(), start, last);
        jobs.erase(jobs.begin() + start, jobs.begin() + last + 1);
        endRemoveRows();
        last = start;
    }
}

/// Which of the numbers belong to a longest run that ascends: these rows can stay where they are.
static QVector<bool> ascending(const QVector<int>& numbers)
{
    QVector<int> tails;  // index of the number that ends the best run of each length
    QVector<int> before(numbers.size(), -1);
    for (int i = 0; i < numbers.size(); ++i) {
        const auto less = [&](int a, int value) { return numbers[a] < value; };
        const auto place = std::lower_bound(tails.begin(), tails.end(), numbers[i], less);
        if (place != tails.begin())
            before[i] = *(place - 1);
        if (place == tails.end())
            tails.append(i);
        else
            *place = i;
    }
    QVector<bool> stays(numbers.size(), false);
    for (int i = tails.isEmpty() ? -1 : tails.last(); i >= 0; i = before[i])
        stays[i] = true;
    return stays;
}

/// Moves the rows from `first` to `behind - 1`, all of them among the fresh ones, into the order of
/// fresh[first .. freshBehind - 1].
void ZoJobModel::placeKept(const ZoJobRows& fresh, int first, int freshBehind, int behind)
{
    RowKeys keys = keysOf(jobs, first, behind);
    QHash<RowKey, int> oldPlace;
    for (int i = 0; i < keys.size(); ++i)
        oldPlace.insert(keys[i], i);
    RowKeys order;
    QVector<int> places;
    for (const RowKey& key : keysOf(fresh, first, freshBehind)) {
        if (!oldPlace.contains(key))
            continue;
        order.append(key);
        places.append(oldPlace.value(key));
    }
    const QVector<bool> stays = ascending(places);
    int behindLast = 0;  // the place behind the row that was looked at last
    for (int i = 0; i < order.size(); ++i) {
        const int now = int(keys.indexOf(order[i]));
        if (stays[i]) {
            behindLast = now + 1;
            continue;
        }
        const int to = now < behindLast ? behindLast - 1 : behindLast;
        if (to != now) {
            beginMoveRows(QModelIndex(), first + now, first + now, QModelIndex(),
                          first + behindLast);
            jobs.move(first + now, first + to);
            endMoveRows();
            keys.move(now, to);
        }
        behindLast = to + 1;
    }
}

/// Puts in what of fresh[first .. behind - 1] is not there; the rest is there in this order.
void ZoJobModel::insertNew(const ZoJobRows& fresh, int first, int behind)
{
    const int same = int(fresh.size()) - behind;  // rows at the end that have their places already
    for (int row = first; row < behind; ++row) {
        const auto isThere = [&](int at) {
            return row < jobs.size() - same && jobs[row].isSameJob(fresh[at]);
        };
        if (isThere(row))
            continue;
        int last = row;
        while (last + 1 < behind && !isThere(last + 1))
            ++last;
        beginInsertRows(QModelIndex(), row, last);
        jobs.insert(row, last - row + 1, ZoJobRow());
        std::copy(fresh.begin() + row, fresh.begin() + last + 1, jobs.begin() + row);
        endInsertRows();
        row = last;
    }
}

void ZoJobModel::changeRows(const ZoJobRows& fresh)
{
    const ZoJobRows& present = jobs;
    for (int row = 0; row < fresh.size(); ++row) {
        const int first = row;
        while (row < fresh.size() && !(present[row] == fresh[row])) {
            jobs[row] = fresh[row];
            ++row;
        }
        if (row > first)
            emit dataChanged(index(first, 0), index(row - 1, COLUMNS - 1));
    }
}

void ZoJobModel::tick()
{
    clock = QDateTime::currentSecsSinceEpoch();
    for (int row = 0; row < jobs.size(); ++row)
        if (std::as_const(jobs)[row].state == ZoJobRow::RUNNING)
            emit dataChanged(index(row, TIME), index(row, TIME), { Qt::DisplayRole, SORT_ROLE });
}

void ZoJobModel::setTicking(bool on)
{
    ticking = on;
    if (on)
        tick();
    updateTimer();
}

void ZoJobModel::updateTimer()
{
    const bool needed = ticking && std::any_of(jobs.cbegin(), jobs.cend(), [](const ZoJobRow& job) {
                            return job.state == ZoJobRow::RUNNING;
                        });
    if (needed && !timer->isActive())
        timer->start();
    else if (!needed)
        timer->stop();
}

int ZoJobModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(jobs.size());
}

int ZoJobModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : COLUMNS;
}

QVariant ZoJobModel::text(const ZoJobRow& job, int column) const
{
    switch (column) {
    case STATE:
        return stateWord(job.state);
    case DESCRIPTION:
        return visibleLine(job.description);
    case SUBMITTED:
        return shortTime(job.id);
    case STARTED:
        return shortTime(job.started);
    case TIME:
        return job.started > 0 ? duration(job.runTime(clock)) : QString();
    case STATUS:
        return job.status >= 0 ? QString::number(job.status) : QString();
    default:
        return visibleLine(job.name);
    }
}

QVariant ZoJobModel::sortValue(const ZoJobRow& job, int column) const
{
    switch (column) {
    case STATE:
        return int(job.state);
    case DESCRIPTION:
        return job.description;
    case SUBMITTED:
        return job.id;
    case STARTED:
        return job.started;
    case TIME:
        return job.runTime(clock);
    case STATUS:
        return job.status;
    default:
        // Names that are numbers sort as such, before the others.
        return job.name.rightJustified(20);
    }
}

QString ZoJobModel::toolTip(const ZoJobRow& job, int column) const
{
    switch (column) {
    case STATE:
    case DESCRIPTION:
        return plainToolTip(jobSummary(job));
    case SUBMITTED:
        return plainToolTip(fullTime(job.id));
    case STARTED:
        return plainToolTip(fullTime(job.started));
    case NAME:
        return plainToolTip(
            tr("Id %1 in %2").arg(QString::number(job.id), QString::fromUtf8(job.directory)));
    default:
        return plainToolTip(stateMeaning(job));
    }
}

QVariant ZoJobModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= jobs.size() || index.column() >= COLUMNS)
        return QVariant();
    const ZoJobRow& job = jobs[index.row()];
    switch (role) {
    case Qt::DisplayRole:
        return text(job, index.column());
    case Qt::DecorationRole:
        return index.column() == STATE ? QVariant(stateIcon(job.state)) : QVariant();
    case Qt::ToolTipRole:
        return toolTip(job, index.column());
    case Qt::TextAlignmentRole:
        return index.column() == TIME || index.column() == STATUS || index.column() == NAME
                   ? QVariant(int(Qt::AlignRight | Qt::AlignVCenter))
                   : QVariant(int(Qt::AlignLeft | Qt::AlignVCenter));
    case SORT_ROLE:
        return sortValue(job, index.column());
    default:
        return QVariant();
    }
}

QVariant ZoJobModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= COLUMNS)
        return QVariant();
    if (role == Qt::TextAlignmentRole)
        return section == TIME || section == STATUS || section == NAME
                   ? int(Qt::AlignRight | Qt::AlignVCenter)
                   : int(Qt::AlignLeft | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return QVariant();
    const QString titles[COLUMNS] = { tr("State"),   tr("Description"), tr("Submitted"),
                                      tr("Started"), tr("Time"),        tr("Exit"),
                                      tr("Job") };
    return titles[section];
}
