#include "window/TrayIcon.h"

#include "window/StateLook.h"
#include "window/ZoJobPanel.h"

#include <QApplication>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>

static const int QUIET = 3000;  // ms; between two jobs nothing runs for a moment

TrayIcon::TrayIcon(ZoJobPanel* jobPanel, QMenu* menu, QWidget* ofWindow)
    : QObject(ofWindow),
      panel(jobPanel),
      window(ofWindow),
      icon(new QSystemTrayIcon(QApplication::windowIcon(), this)),
      quiet(new QTimer(this))
{
    icon->setContextMenu(menu);
    quiet->setSingleShot(true);
    quiet->setInterval(QUIET);
    connect(quiet, &QTimer::timeout, this, [this] { tell(notices.settle()); });
    connect(panel, &ZoJobPanel::queueChanged, this, &TrayIcon::takeQueue);
    connect(icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason why) {
        if (why == QSystemTrayIcon::Trigger)
            emit activated(JobKey());
    });
    connect(icon, &QSystemTrayIcon::messageClicked, this, [this] { emit activated(told); });
}

void TrayIcon::setOn(bool on)
{
    icon->setVisible(on);  // where there is no tray yet, it appears with it
}

bool TrayIcon::isShown() const
{
    return icon->isVisible() && QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayIcon::takeQueue()
{
    int waiting = 0;
    QString running;
    for (const ZoJobRow& job : panel->model()->rows()) {
        waiting += job.state == ZoJobRow::WAITING;
        if (job.state == ZoJobRow::RUNNING)
            running = tr("Running: %1").arg(forMessage(job.description));
    }
    if (running.isEmpty())
        running = tr("No job is running");
    icon->setToolTip(waiting > 0 ? tr("%1; %2 waiting").arg(running).arg(waiting) : running);
    tell(notices.take(panel->model()->rows()));
    quiet->start();
}

void TrayIcon::tell(const QueueNotice& notice)
{
    if (notice.title.isEmpty() || !isShown() || (window->isVisible() && window->isActiveWindow()))
        return;
    told = notice.job;
    icon->showMessage(notice.title, notice.text,
                      notice.warning ? QSystemTrayIcon::Warning : QSystemTrayIcon::Information);
}
