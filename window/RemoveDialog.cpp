#include "window/RemoveDialog.h"

#include "window/RowDelegate.h"
#include "window/ShownText.h"
#include "window/StateLook.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

RemoveDialog::RemoveDialog(const ZoJobRows& candidates, QWidget* parent)
    : QDialog(parent), jobs(candidates)
{
    setWindowTitle(tr("Remove jobs"));
    auto* column = new QVBoxLayout(this);
    auto* text = new QLabel(tr("The ticked jobs leave the queue, and their directories are deleted "
                               "with everything in them, the output included."),
                            this);
    text->setWordWrap(true);
    column->addWidget(text);
    fill();
    column->addWidget(list, 1);
    const bool foreign =
        std::any_of(jobs.begin(), jobs.end(), [](const ZoJobRow& job) { return !job.ours; });
    if (foreign) {
        auto* warning = new QLabel(tr("Jobs that another application made are not ticked: their "
                                      "directories may hold files of yours. Tick what may go."),
                                   this);
        warning->setWordWrap(true);
        column->addWidget(warning);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    removeButton = buttons->addButton(tr("&Remove"), QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    column->addWidget(buttons);
    connect(list, &QTreeWidget::itemChanged, this, &RemoveDialog::check);
    check();
    resize(620, 320);
}

void RemoveDialog::fill()
{
    list = new QTreeWidget(this);
    list->setHeaderLabels({ tr("Job"), tr("Description"), tr("Directory that is deleted") });
    list->setRootIsDecorated(false);
    list->setUniformRowHeights(true);
    list->setItemDelegate(new RowDelegate(list));
    list->setSelectionMode(QAbstractItemView::NoSelection);
    list->setAccessibleName(tr("Jobs to remove"));
    QList<QTreeWidgetItem*> items;
    for (const ZoJobRow& job : jobs) {
        auto* item = new QTreeWidgetItem;
        const QString path = visibleLine(QString::fromUtf8(job.directory));
        item->setText(0, visibleLine(job.name));
        item->setText(1, visibleLine(job.description));
        item->setText(2, path);
        item->setToolTip(1, plainToolTip(job.description));
        item->setToolTip(2, plainToolTip(path));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(0, job.ours ? Qt::Checked : Qt::Unchecked);
        if (!job.ours)
            item->setIcon(0, drawnIcon("warning"));
        items.append(item);
    }
    list->addTopLevelItems(items);
    list->header()->resizeSection(0, fontMetrics().horizontalAdvance("000000000000") + 30);
    list->header()->resizeSection(1, 180);
}

QVector<JobKey> RemoveDialog::chosen() const
{
    QVector<JobKey> keys;
    for (int i = 0; i < jobs.size(); ++i)
        if (list->topLevelItem(i)->checkState(0) == Qt::Checked)
            keys.append(keyOf(jobs[i]));
    return keys;
}

void RemoveDialog::check()
{
    const int count = int(chosen().size());
    removeButton->setEnabled(count > 0);
    if (count == 1)
        removeButton->setText(tr("&Remove 1 job"));
    else
        removeButton->setText(tr("&Remove %1 jobs").arg(count));
}
