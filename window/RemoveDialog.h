#ifndef REMOVEDIALOG_H
#define REMOVEDIALOG_H

#include "window/QueueTypes.h"

#include <QDialog>

class QLabel;
class QPushButton;
class QTreeWidget;

/// Asks whether jobs are to be removed, and names every directory that goes with them. Jobs of
/// other applications are ticked only by hand: their directories may hold anything.
class ZOWINDOW_EXPORT RemoveDialog : public QDialog
{
    Q_OBJECT

public:
    explicit RemoveDialog(const ZoJobRows& candidates, QWidget* parent = nullptr);

    QTreeWidget* list;
    QPushButton* removeButton;

    /// The ticked jobs.
    QVector<JobKey> chosen() const;

private:
    void fill();
    void check();

    ZoJobRows jobs;
};

#endif
