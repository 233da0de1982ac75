#include "window/ZoJobPanel.h"

#include "window/JobTable.h"
#include "window/PanelParts.h"

#include <QDataStream>
#include <QHeaderView>
#include <QIODevice>
#include <QSplitter>

static const quint32 STATE_VERSION = 1;

ZoJobPanel::ZoJobPanel(const QString& rootDirectory, QWidget* parent)
    : QWidget(parent), parts(new ZoJobPanelParts(rootDirectory, this))
{
    setWindowTitle(tr("Jobs"));
}

ZoJobPanel::~ZoJobPanel() = default;

ZoJobModel* ZoJobPanel::model() const
{
    return parts->model;
}

QAction* ZoJobPanel::action(Action which) const
{
    return parts->actions->actions[which];
}

void ZoJobPanel::setDirectory(const QString& path)
{
    parts->directory = path;
}

QString ZoJobPanel::directory() const
{
    return parts->directory;
}

QByteArray ZoJobPanel::saveState() const
{
    QByteArray state;
    QDataStream stream(&state, QIODevice::WriteOnly);
    stream << STATE_VERSION << parts->table->header()->saveState() << parts->splitter->saveState();
    return state;
}

bool ZoJobPanel::restoreState(const QByteArray& state)
{
    QDataStream stream(state);
    quint32 version = 0;
    QByteArray header, splitter;
    stream >> version >> header >> splitter;
    if (stream.status() != QDataStream::Ok || version != STATE_VERSION)
        return false;
    const bool both = parts->table->header()->restoreState(header);
    return parts->splitter->restoreState(splitter) && both;
}

bool ZoJobPanel::selectJob(qint64 id, const QByteArray& jobDirectory)
{
    const int row = model()->find(id, jobDirectory);
    if (row >= 0)
        parts->table->selectRow(row);
    return row >= 0;
}

void ZoJobPanel::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    model()->setTicking(true);
}

void ZoJobPanel::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    model()->setTicking(false);
}
