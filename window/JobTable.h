#ifndef JOBTABLE_H
#define JOBTABLE_H

#include "window/QueueTypes.h"

#include <QSortFilterProxyModel>
#include <QTreeView>

/// The jobs whose description, command, name or state holds every word of the filter, sorted by
/// what the model says of its columns.
class ZOWINDOW_EXPORT JobFilter : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    explicit JobFilter(ZoJobModel* jobs, QObject* parent = nullptr);

    void setWords(const QString& text);

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    const ZoJobModel* model;
    QStringList words;
};

/// The queue as a list that can be sorted and filtered, in queue order at first.
class ZOWINDOW_EXPORT JobTable : public QTreeView
{
    Q_OBJECT

public:
    explicit JobTable(ZoJobModel* jobModel, QWidget* parent = nullptr);

    JobFilter* filter;

    /// The job that the keyboard is at; null when there is none.
    const ZoJobRow* currentJob() const;

    /// The selected jobs in queue order.
    ZoJobRows selectedJobs() const;

    /// Makes this row of the model the current and only selected one, and brings it into view.
    void selectRow(int row);

    /// Back to the order of the queue.
    void sortByQueue();

signals:
    void currentJobChanged();
    void selectedJobsChanged();

protected:
    void currentChanged(const QModelIndex& current, const QModelIndex& previous) override;
    void selectionChanged(const QItemSelection& selected,
                          const QItemSelection& deselected) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void setWidths();
    void showHeaderMenu(const QPoint& place);

    ZoJobModel* model;
};

#endif
