#include "window/JobTable.h"

#include "window/RowDelegate.h"
#include "window/StateLook.h"

#include <QHeaderView>
#include <QMenu>
#include <QPainter>
#include <algorithm>

JobFilter::JobFilter(ZoJobModel* jobs, QObject* parent) : QSortFilterProxyModel(parent), model(jobs)
{
    setSourceModel(jobs);
    setSortRole(ZoJobModel::SORT_ROLE);
    setDynamicSortFilter(true);
}

void JobFilter::setWords(const QString& text)
{
    words = text.simplified().split(' ');
    words.removeAll(QString());
    invalidateFilter();
}

bool JobFilter::filterAcceptsRow(int row, const QModelIndex&) const
{
    const ZoJobRow& job = model->rows()[row];
    return std::all_of(words.begin(), words.end(), [&job](const QString& word) {
        return job.description.contains(word, Qt::CaseInsensitive) ||
               job.command.contains(word, Qt::CaseInsensitive) ||
               stateWord(job.state).contains(word, Qt::CaseInsensitive) || job.name == word;
    });
}

bool JobFilter::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const QVariant a = left.data(sortRole()), b = right.data(sortRole());
    if (left.column() == ZoJobModel::DESCRIPTION || left.column() == ZoJobModel::NAME)
        return QString::compare(a.toString(), b.toString(), Qt::CaseInsensitive) < 0;
    return a.toLongLong() < b.toLongLong();
}

JobTable::JobTable(ZoJobModel* jobModel, QWidget* parent)
    : QTreeView(parent), filter(new JobFilter(jobModel, this)), model(jobModel)
{
    setModel(filter);
    setAccessibleName(tr("Jobs of the queue"));
    setItemDelegate(new RowDelegate(this));
    setAlternatingRowColors(true);
    setRootIsDecorated(false);
    setUniformRowHeights(true);
    setItemsExpandable(false);
    setAllColumnsShowFocus(true);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
    setSortingEnabled(true);
    sortByQueue();
    header()->setStretchLastSection(false);
    header()->setSectionResizeMode(ZoJobModel::DESCRIPTION, QHeaderView::Stretch);
    header()->setContextMenuPolicy(Qt::CustomContextMenu);
    header()->setHighlightSections(false);
#if QT_VERSION >= QT_VERSION_CHECK(6, 1, 0)
    header()->setSortIndicatorClearable(true);
#endif
    connect(header(), &QWidget::customContextMenuRequested, this, &JobTable::showHeaderMenu);
    setWidths();
}

void JobTable::setWidths()
{
    const auto width = [this](const char* text) {
        return fontMetrics().horizontalAdvance(text) + 20;
    };
    setColumnWidth(ZoJobModel::STATE, width("cancelled") + 24);
    setColumnWidth(ZoJobModel::SUBMITTED, width("2026-01-31 14:07"));
    setColumnWidth(ZoJobModel::STARTED, width("2026-01-31 14:07"));
    setColumnWidth(ZoJobModel::TIME, width("10:00:00"));
    setColumnWidth(ZoJobModel::STATUS, width("Exit  "));
    setColumnWidth(ZoJobModel::NAME, width("0000000000"));
}

void JobTable::sortByQueue()
{
    sortByColumn(-1, Qt::AscendingOrder);
}

const ZoJobRow* JobTable::currentJob() const
{
    const QModelIndex index = filter->mapToSource(currentIndex());
    return index.isValid() ? &model->rows()[index.row()] : nullptr;
}

ZoJobRows JobTable::selectedJobs() const
{
    QVector<int> rows;
    for (const QModelIndex& index : selectionModel()->selectedRows())
        rows.append(filter->mapToSource(index).row());
    std::sort(rows.begin(), rows.end());
    ZoJobRows jobs;
    for (const int row : rows)
        jobs.append(model->rows()[row]);
    return jobs;
}

void JobTable::selectRow(int row)
{
    const QModelIndex index = filter->mapFromSource(model->index(row, 0));
    if (!index.isValid())
        return;
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect |
                                                 QItemSelectionModel::Rows);
    scrollTo(index);
}

void JobTable::currentChanged(const QModelIndex& current, const QModelIndex& previous)
{
    QTreeView::currentChanged(current, previous);
    emit currentJobChanged();
}

void JobTable::selectionChanged(const QItemSelection& selected, const QItemSelection& deselected)
{
    QTreeView::selectionChanged(selected, deselected);
    emit selectedJobsChanged();
}

void JobTable::showHeaderMenu(const QPoint& place)
{
    QMenu menu(this);
    connect(menu.addAction(tr("Sort as in the &queue")), &QAction::triggered, this,
            &JobTable::sortByQueue);
    menu.addSeparator();
    for (int column = 0; column < ZoJobModel::COLUMNS; ++column) {
        QAction* const action =
            menu.addAction(model->headerData(column, Qt::Horizontal).toString());
        action->setCheckable(true);
        action->setChecked(!isColumnHidden(column));
        action->setEnabled(column != ZoJobModel::STATE && column != ZoJobModel::DESCRIPTION);
        connect(action, &QAction::toggled, this,
                [this, column](bool on) { setColumnHidden(column, !on); });
    }
    menu.exec(header()->mapToGlobal(place));
}

void JobTable::paintEvent(QPaintEvent* event)
{
    QTreeView::paintEvent(event);
    if (filter->rowCount() > 0)
        return;
    QPainter painter(viewport());
    QColor color = palette().color(QPalette::WindowText);
    color.setAlpha(150);
    painter.setPen(color);
    painter.drawText(viewport()->rect().adjusted(12, 12, -12, -12),
                     Qt::AlignCenter | Qt::TextWordWrap,
                     model->rows().isEmpty()
                         ? tr("The queue is empty. \u201CNew job\u201D queues a command; so does "
                              "\u201Czojob submit\u201D at a prompt.")
                         : tr("No job of the queue matches the filter."));
}
